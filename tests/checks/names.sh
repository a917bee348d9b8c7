#!/bin/sh
# Machine files know every item that platform/kernel.h names. Names those that they do not, and ends with 1 if any.
cd "$(dirname "$0")/../.." || exit 2
kinds='KSTATE|OBJINFO|TASKINFO|THREADINFO|ISRINFO|MEMINFO|VSINFO|MEMOINFO|VIEWINFO|KSYSIDX'
items=$(grep -oE "^ +($kinds)_[A-Z0-9_]+ =" src/platform/kernel.h | tr -d ' =')
[ -n "$items" ] || exit 2
missing=0
for item in $items; do
    grep -qw "$item" src/hosted/described/names.cpp && continue
    echo "hosted/described/names.cpp does not know $item"
    missing=1
done
exit $missing
