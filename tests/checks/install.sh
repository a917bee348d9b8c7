#!/bin/sh
# tests/checks/install.sh - installs below a staging directory, as packagers do, and uses what is there from outside the
# source: the program, its links, the libraries through CMake and pkg-config, each public header on its own.
set -eu
cd "$(dirname "$0")/../.."
here=$PWD
stage=$(mktemp -d)
trap 'rm -rf "$stage"' EXIT
fail() { printf '%s\n' "$*"; exit 1; }

DESTDIR=$stage ./dev install /opt/ventix
[ -z "$(find "$stage" -mindepth 1 ! -path "$stage/opt" ! -path "$stage/opt/ventix" ! -path "$stage/opt/ventix/*")" ] ||
    fail "something was installed outside the prefix"
root=$stage/opt/ventix
[ "$(cd "$root/lib/ventix/bin" && ls)" = "$("$root/bin/ventix" --list)" ] || fail "the links are not the commands"
VENTIX_MACHINE=$root/share/ventix/machines/demo.json "$root/lib/ventix/bin/task" -n >/dev/null
"$root/bin/ventix-machine" check "$root"/share/ventix/machines/*.json
for page in ventix ventix-machine $("$root/bin/ventix" --list | sed 's/^/ventix-/'); do
    [ -s "$root/share/man/man1/$page.1.gz" ] || fail "$page has no manual page"
done
if grep -rlF "$here" "$root"; then fail "these name the build's own directory"; fi
if ./dev install /proc/ventix 2>"$stage/said"; then fail "/proc was installed to"; fi
[ "$(wc -l <"$stage/said")" -eq 1 ] || fail "not one line for a prefix that cannot be written: $(cat "$stage/said")"

mkdir "$stage/user"
cd "$stage/user"
cat >user.cpp <<'CODE'
#include <cstdio>

#include "colp/colp.h"
#include "platform/registry.h"

int main() {
    uint64_t value = 0;
    const bool done = RegGetKeyInt(GetRegDev(), "config/boot/timeout", &value);
    colp_table *table = colp_new();
    colp_delete(table);
    std::printf("%d %d\n", done, static_cast<int>(value));
}
CODE
cat >CMakeLists.txt <<'CODE'
cmake_minimum_required(VERSION 3.25)
project(user LANGUAGES CXX)
find_package(ventix 0.3 REQUIRED)
add_executable(user user.cpp)
target_link_libraries(user ventix::client ventix::hosted)
CODE
cmake -B build -DCMAKE_PREFIX_PATH="$root" >/dev/null
cmake --build build >/dev/null
flags=$(PKG_CONFIG_PATH=$root/lib/pkgconfig pkg-config --cflags --libs ventix ventix-hosted)
# shellcheck disable=SC2086  # a list of words
"${CXX:-g++}" -std=c++20 user.cpp $flags -o user
for built in build/user ./user; do
    said=$(VENTIX_MACHINE=$root/share/ventix/machines/demo.json $built)
    [ "$said" = '1 5' ] || fail "$built read '$said' from the registry"
done

# The examples, by both ways; the page about servers shows the server as it is built here. The machine notices the end of
# a server a moment after the server's parent does.
# shellcheck disable=SC2016  # no expansion
sed -n '/^```cpp$/,/^```$/p' "$here/docs/device-server.md" | sed '1d;$d' | cmp - "$here/examples/doubler.cpp" ||
    fail "the page about device servers shows another server"
cmake -S "$here/examples" -B examples -DCMAKE_PREFIX_PATH="$root" >/dev/null
cmake --build examples >/dev/null
mkdir examples-too
for program in doubler double; do
    # shellcheck disable=SC2086  # a list of words
    "${CXX:-g++}" -std=c++20 "$here/examples/$program.cpp" $flags -o "examples-too/$program"
done
for built in examples examples-too; do
    # shellcheck disable=SC2016  # the other shell expands them
    said=$(PATH=$root/bin:$PATH timeout 60 ventix-machine run "$root/share/ventix/machines/demo.json" -- sh -c '
        "$0/doubler" & until ventix devping doubler >/dev/null; do sleep 0.1; done
        "$0/double" 21; ventix svccall doubler double number=4; ventix counters doubler 0
        kill -9 $!; wait $! 2>/dev/null
        until ventix devping doubler 2>&1 | grep "device not exist"; do sleep 0.1; done' "$built" 2>&1) ||
        fail "$built: the server is still published: $said"
    [ "$said" = '42
doubled: 8
numbers: 2
devping: doubler: device not exist' ] || fail "$built: $said"
done

find "$root/include/ventix" -name '*.h' | while read -r header; do
    "${CXX:-g++}" -std=c++20 -fsyntax-only -I"$root/include/ventix" -include "$header" -x c++ /dev/null
done
