#!/bin/sh
# tests/checks/commands.sh - every command of the table has its source file and a case of an unknown switch. Names what
# is missing and ends with 1 if anything is.
cd "$(dirname "$0")/../.." || exit 2
missing=0
say() {
    printf '%s\n' "$1"
    missing=1
}

commands=$(build/release/ventix --list)
for file in src/commands/*.cpp; do
    printf '%s\n' "$commands" | grep -qx "$(basename "$file" .cpp)" || say "$file is no command of the table"
done
for command in $commands; do
    cases=tests/cases/$command.case
    [ -f "src/commands/$command.cpp" ] || say "src/commands/$command.cpp is missing"
    grep -Eq '^(100\$|@.* => 100)' "$cases" || say "$cases tries no unknown switch"
done
exit $missing
