#!/bin/sh
# completions/generate.sh - puts the tables of both programs into the completion script of a shell.
#   generate.sh DESCRIBE VENTIX MACHINE PAGES SCRIPT
# DESCRIBE prints the option tables of VENTIX; the usage of MACHINE has its own. Manual pages describe commands and
# options, an option by its first sentence. The script gets these rows, each as one word:
#   operands|PROGRAM COMMAND|the most there may be|the KIND of each, the last one for all that follow|description
#   option|PROGRAM COMMAND|-LETTER or nothing|--LONG or nothing|the KIND of its argument, or none|description
#   KIND|words, of a kind whose words never change
#   columns|COMMAND|titles, of a table whose columns never change
set -eu
describe=$1 ventix=$2 machine=$3 pages=$4 script=$5
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

# The lines of DESCRIBE, and what the usage of MACHINE says in their form: "MACHINE VERB FILE... [-o FILE] [--maps]" for
# each verb, then "  VERB   description".
tables() {
    "$describe" | sed 's/\t/\tventix /'
    "$machine" --help | awk '
        sub(/^.*ventix-machine /, "") {
            most[$1] = /^[a-z]+ [A-Z]+\.\.\./ ? 2147483647 : /^[a-z]+ [A-Z]/ ? 1 : 0
            for (verb = $1; match($0, /\[-[^]]*/); $0 = substr($0, RSTART + RLENGTH)) {
                split(substr($0, RSTART + 1, RLENGTH - 1), word, " ")
                if (word[1] == "--") continue
                printf "option\tventix-machine %s\t%s\t%s\n", verb,
                    word[1] ~ /^--/ ? "\t" word[1] : word[1] "\t", word[2] == "" ? "none" : "file"
            }
        }
        /^  [a-z]/ {
            verb = $1
            sub(/^ *[a-z]+ +/, "")
            printf "operands\tventix-machine %s\t%d\t%s\t%s\n", verb, most[verb], most[verb] ? "file" : "", $0
        }'
    printf 'operands\tventix-machine %s\t0\t\t%s\n' --help 'print the usage' \
        --version 'print the release and how it was built'
    # Use "WORD" to do something.
    "$ventix" | awk -F '"' '
        sub(/\.$/, "", $3) && /^Use/ { sub(/^ to /, "", $3); printf "operands\tventix %s\t0\t\t%s\n", $2, $3 }
        /^ +Additional/ {
            for (word = "--install"; word != ""; word = word == "--install" ? "--uninstall" : "")
                printf "option\tventix %s\t\t%s\tnone\tdisplay the progress\n", word, $2
        }'
}

rows() {
    tables | awk -F '\t' -v pages="$pages" '
        # The first sentence below the term of an option, "*-a*, *--all*"; without one, what the command is for.
        function about(command, term,   page, line, at, text) {
            page = command
            sub(/^ventix-machine .*/, "ventix-machine", page)
            sub(/^ventix /, "ventix-", page)
            page = pages "/" page ".1.scd"
            while ((getline line <page) > 0) {
                if (term == "" && sub(/^ventix-[a-z]+ - /, "", line)) { text = line; break }
                if (line ~ /^\*-/) at = term != "" && index(line, "*" term "*")
                else if (at && line ~ /^\t/) {
                    sub(/^\t/, "", line)
                    text = text (text ? " " : "") line
                } else if (text) break
            }
            close(page)
            sub(/^Of [^:]*: /, "", text)
            gsub(/[*\\|]/, "", text)
            gsub(/(^| )_/, " ", text)
            gsub(/_( |$)/, " ", text)
            gsub(/_,/, ",", text)
            sub(/[.;]( .*)?$/, "", text)
            return text
        }
        $1 == "option" { print "option|" $2 "|" $3 "|" $4 "|" $5 "|" ($6 ? $6 : about($2, $3 ? $3 : $4)) }
        $1 == "operands" {
            sub(/ $/, "", $4)
            print "operands|" $2 "|" $3 "|" $4 "|" ($5 ? $5 : about($2, ""))
            if (!$5) print "option|" $2 "||--help|none|Print the usage"
        }'
    fixed style 'Available table styles:' task
    fixed mode 'The optional MODE is any of the following sort modes:' task
    fixed query 'QUERY list:' devquery
    fixed exception 'EXSPECs:' raiseexc
    fixed property PROPERTY: tprop
    for command in tmemo tview; do echo "columns|$command|$("$ventix" $command -S raw init | sed -n 2p)"; done
}

commands=$("$ventix" --list | paste -sd '|')
data=$(rows)
printf '%s\n' "$data" | sed "s/'/'\\\\''/g; s/.*/'&'/" |
    sed -e "s/@COMMANDS@/$commands/" -e '/@DATA@/{r /dev/stdin' -e 'd}' "$script"
