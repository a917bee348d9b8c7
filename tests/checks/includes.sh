#!/bin/sh
# tests/checks/includes.sh - each folder includes only from the folders below it, by paths from src/. Names every other
# include and ends with 1 if there is one.
cd "$(dirname "$0")/../.." || exit 2
# shellcheck disable=SC2016  # the program is awk's
find src -name '*.cpp' -o -name '*.h' | LC_ALL=C sort | xargs awk '
    BEGIN {
        lower = "^(common|platform|colp)/"
        may["machine"] = "^(machine|hosted|platform|common)/"
        may["main"] = "^(main/|commands/commands\\.h$)"
        may["commands"] = lower "|^commands/commands\\.h$"
        may["common"] = lower
        may["platform"] = "^platform/"
        may["colp"] = "^colp/"
        may["hosted"] = "^(hosted/|platform/(kernel\\.h$|terminal\\.h$|protocol/))"
    }
    FNR == 1 && index($0, "// " substr(FILENAME, 5) " - ") != 1 {
        printf "%s:1: begin with: // %s - its purpose\n", FILENAME, substr(FILENAME, 5)
        found = 1
    }
    /^[ \t]*#[ \t]*include/ {
        split(FILENAME, part, "/")
        path = $0
        sub(/^[^"<]*/, "", path)
        sub(/[">][^">]*$/, "", path)
        local = path ~ /^"/
        path = substr(path, 2)
        if (local && (!(part[2] in may) || path !~ may[part[2]] || path ~ /\.\./) ||
            !local && path == "iostream") {
            printf "%s:%d: src/%s may not include %s\n", FILENAME, FNR, part[2], path
            found = 1
        }
    }
    END { exit found }'
