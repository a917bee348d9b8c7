#!/bin/sh
# tests/checks/commands.sh - every command of the table has its source file, its cases and a run with an unknown switch.
# Names what is missing and ends with 1 if anything is.
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
    for file in "src/commands/$command.cpp" "tests/cases/$command.case"; do
        [ -f "$file" ] || say "$file is missing"
    done
    grep -q "^@$command => 100" tests/cases/ventix.case || say "ventix.case tries no unknown switch of $command"
done
exit $missing
