#!/bin/sh
# tests/checks/kernel_library.sh - builds without the hosted kernel, on a kernel library that defines exactly the calls of
# platform/kernel.h, and refuses each of them.
set -eu
cd "$(dirname "$0")/../.."
stub=$PWD/build/kernel/libkernel_stub.a
mkdir -p build/kernel
grep -o '_SL_[A-Za-z]*(' src/platform/kernel.h | tr -d '(' | LC_ALL=C sort -u >build/kernel/declared
sed -n 's/.* CALL([a-z_]*, \([A-Za-z]*\),.*/_SL_\1/p' src/hosted/kernel/calls.h | LC_ALL=C sort -u >build/kernel/named
diff build/kernel/declared build/kernel/named || { echo "hosted/kernel/calls.h lists other calls than kernel.h"; exit 1; }
sed 's/.*/unsigned long &(void) { return ~0ul; }/; /GetState/s/~//' build/kernel/declared >build/kernel/stub.c
"${CC:-cc}" -O2 -c build/kernel/stub.c -o build/kernel/stub.o
rm -f "$stub"
ar rcs "$stub" build/kernel/stub.o

cmake --preset release -B build/kernel -DVENTIX_KERNEL_LIBRARY="$stub"
cmake --build build/kernel --target ventix
build/kernel/ventix --version
if timeout 10 build/kernel/ventix lsisr; then echo "lsisr found interrupts on a kernel without any"; exit 1; fi
