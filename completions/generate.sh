#!/bin/sh
# completions/generate.sh - puts the tables of all commands into the completion script of a shell.
#   generate.sh DESCRIBE VENTIX PAGES SCRIPT
# DESCRIBE prints the option tables. The first sentence about an option in its manual page describes it. VENTIX lists
# the words that are fixed: table styles, queries, exceptions, properties, and columns that are always the same.
set -eu
describe=$1 ventix=$2 pages=$3 script=$4
unset VENTIX_MACHINE_SAVE VENTIX_CALL_LOG
VENTIX_MACHINE=$pages/../../machines/demo.json
export VENTIX_MACHINE

# fixed NAME HEADING COMMAND: the first words of the lines below a heading of the command's usage.
fixed() {
    "$ventix" "$3" --help | awk -v name="$1" -v heading="$2" '
        $0 == heading { under = 1; next }
        !/^ / { under = 0 }
        under { words = words " " $1 }
        END { if (words == "") exit 1; print name "|" substr(words, 2) }'
}

tables=$("$describe")
data=$(
    printf '%s\n' "$tables" | awk -F '\t' -v pages="$pages" '
        # The first sentence below the term of an option: "*-a*, *--all*".
        function about(command, letter, name,   page, line, at, text) {
            page = pages "/ventix-" command ".1.scd"
            while ((getline line <page) > 0) {
                if (line ~ /^\*-/) at = index(line, "*" (letter ? letter : name) "*")
                else if (at && line ~ /^\t/) {
                    sub(/^\t/, "", line)
                    text = text (text ? " " : "") line
                } else if (text) break
            }
            close(page)
            gsub(/[*\\|]/, "", text)
            gsub(/(^| )_/, " ", text)
            gsub(/_( |$)/, " ", text)
            sub(/[.;]( .*)?$/, "", text)
            return text
        }
        $1 == "option" { print "option|" $2 "|" $3 "|" $4 "|" $5 "|" about($2, $3, $4) }
        $1 == "operands" { sub(/ $/, "", $4); print "operands|" $2 "|" $3 "|" $4 }'
    fixed style 'Available table styles:' task
    fixed mode 'The optional MODE is any of the following sort modes:' task
    fixed query 'QUERY list:' devquery
    fixed exception 'EXSPECs:' raiseexc
    fixed property PROPERTY: tprop
    for command in tmemo tview; do echo "columns|$command|$("$ventix" $command -S raw init | sed -n 2p)"; done
)
printf '%s\n' "$data" | sed "s/'/'\\\\''/g" | sed -e '/@DATA@/{r /dev/stdin' -e 'd}' "$script"
