#!/bin/sh
# tests/checks/startup.sh - no object of the release build has a constructor that runs before main. Names those that do
# and ends with 1 if there is one.
cd "$(dirname "$0")/../.." || exit 2
found=$(find build/release -name '*.o' -exec nm -AC {} + | grep -E ' [tT] (_GLOBAL__|__static_initialization)')
[ -z "$found" ] || printf '%s\n' "$found"
[ -z "$found" ]
