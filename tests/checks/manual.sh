#!/bin/sh
# tests/checks/manual.sh - the manual pages are well-formed, and show exactly the options that the commands have.
#   manual.sh DESCRIBE    the built program that prints the tables of options
set -eu
describe=$(realpath "$1")
cd "$(dirname "$0")/../../docs/man"
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# Each option as "COMMAND -LETTER --LONG argument or none".
"$describe" | awk -F '\t' '
    $1 == "option" { print $2, $3 == "" ? "." : $3, $4 == "" ? "." : $4, $5 == "none" ? "none" : "argument" }
    ' | LC_ALL=C sort >"$work/tables"
for page in ventix-*.1.scd; do
    command=${page#ventix-} command=${command%.1.scd}
    awk -v command="$command" '
        /^# / { options = /^# OPTIONS/ }
        options && /^\*-/ && !/^\*--help\*$/ {
            letter = long = "."
            argument = /_[A-Z]+_/ ? "argument" : "none"
            for (i = 1; i <= NF; ++i) {
                if (match($i, /^\*--[a-z-]+\*/)) long = substr($i, 2, RLENGTH - 2)
                else if (match($i, /^\*-[A-Za-z]\*/)) letter = substr($i, 2, 2)
            }
            print command, letter, long, argument
        }' "$page"
done | grep -v '^machine' | LC_ALL=C sort >"$work/pages"
diff "$work/tables" "$work/pages" || { echo "< has no place in the manual page, > has none in the program"; exit 1; }

for page in *.scd; do
    ./translate.sh scdoc 0.0.0 2000-01-01 <"$page" >"$work/${page%.scd}"
done
cd "$work"
said=$(mandoc -Tlint -- *.[0-9]) || true
[ -z "$said" ] || { printf '%s\n' "$said"; exit 1; }
wide=$(mandoc -Tutf8 -O width=78 -- *.[0-9] | sed 's/.\x08//g' | grep -nE '^.{81,}') || true
[ -z "$wide" ] || { printf 'wider than 80 columns: %s\n' "$wide"; exit 1; }
