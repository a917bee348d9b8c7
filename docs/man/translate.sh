#!/bin/sh
# docs/man/translate.sh - translates one manual page, on standard input, to what mandoc accepts without a remark: scdoc
# begins a paragraph where a section has just begun or nothing follows, and keeps the lines of its source.
#   translate.sh SCDOC VERSION DATE
set -eu
"$1" | awk -v version="$2" -v date="$3" '
    # Breaks a text at its last blank before column 80 that no control character follows.
    function text(line,   at) {
        while (length(line) > 80) {
            for (at = 80; at > 1; --at) if (substr(line, at) ~ /^ [^ .\047]/) break
            if (at == 1) break
            print substr(line, 1, at - 1)
            line = substr(line, at + 1)
        }
        print line
    }
    /^\.TH / { $0 = ".TH " toupper($2) " " $3 " \"" date "\" \"ventix " version "\" \"System toolbox\"" }
    /^\.nf/ { literal = 1 }
    /^\.fi/ { literal = 0 }
    /^\.TS/ { table = 1 }
    /^\.TE/ { table = 0 }
    # A paragraph begins with text; a list or a literal block takes the space alone.
    /^\.P$/ { owed = !heading; next }
    /^\.S[HS]/ { owed = 0 }
    owed && !/^\.RE/ { print (/^\.(RS|nf|TS)/ ? ".sp" : ".P"); owed = 0 }
    { heading = /^\.S[HS]/ }
    /^[.\047]/ || literal || table { print; next }
    { text($0) }'
