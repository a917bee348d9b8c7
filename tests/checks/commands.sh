#!/bin/sh
# Every command of the table has its source file, a usage that names it, the promised status for an unknown switch, and
# cases. Names what is missing and ends with 1 if anything is.
cd "$(dirname "$0")/../.." || exit 2
ventix=$PWD/build/release/ventix
export VENTIX_MACHINE="$PWD/tests/machines/empty.json"
missing=0
say() {
    printf '%s\n' "$1"
    missing=1
}

commands=$("$ventix" --list)
count=$(printf '%s\n' "$commands" | wc -l)
[ "$count" -eq 25 ] || say "the command table has $count commands, not 25"
for command in $commands; do
    usage=$("$ventix" "$command" --help </dev/null 2>&1)
    status=$?
    [ -f "src/commands/$command.cpp" ] || say "src/commands/$command.cpp is missing"
    [ -f "tests/cases/$command.case" ] || say "tests/cases/$command.case is missing"
    [ $status -eq 0 ] || say "$command --help: status $status"
    case $usage in
    "Usage: $command"*) ;;
    *) say "$command --help: no usage: $(printf '%s\n' "$usage" | head -n 1)" ;;
    esac
    diagnostics=$("$ventix" "$command" --no-such-switch </dev/null 2>&1)
    status=$?
    [ $status -eq 100 ] || say "$command --no-such-switch: status $status: $(printf '%s\n' "$diagnostics" | head -n 1)"
done
exit $missing
