#!/bin/sh
# Builds without the hosted kernel, on a kernel library that defines the calls of platform/kernel.h and nothing else.
set -eu
cd "$(dirname "$0")/../.."
stub=$PWD/build/kernel/libkernel_stub.a
mkdir -p build/kernel
"${CXX:-c++}" -std=c++20 -O2 -Wall -Wextra -Werror -Isrc -c tests/kernel_stub/kernel_stub.cpp -o build/kernel/stub.o
rm -f "$stub"
ar rcs "$stub" build/kernel/stub.o

grep -o '_SL_[A-Za-z]*(' src/platform/kernel.h | tr -d '(' | LC_ALL=C sort -u >build/kernel/declared
nm --defined-only --extern-only --format=posix build/kernel/stub.o | cut -d' ' -f1 |
    LC_ALL=C sort >build/kernel/defined
[ "$(wc -l <build/kernel/declared)" -eq 34 ] || { echo "platform/kernel.h does not declare 34 calls"; exit 1; }
diff build/kernel/declared build/kernel/defined

cmake --preset release -B build/kernel -DVENTIX_KERNEL_LIBRARY="$stub"
cmake --build build/kernel --target ventix
build/kernel/ventix --version
# A kernel that refuses everything: the command says so and ends.
if timeout 10 build/kernel/ventix lsisr; then echo "lsisr found interrupts on a kernel without any"; exit 1; fi
