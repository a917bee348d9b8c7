# bash completion of ventix-machine: verbs, their options and files.                                       -*- sh -*-

# The usage that the program prints: a line with the synopsis of each verb comes first.
_ventix_machine_usage='
@DATA@
'

_ventix_machine() {
    local IFS=$' \t\n' cur=${COMP_WORDS[COMP_CWORD]} before=${COMP_WORDS[COMP_CWORD - 1]} line fields=() words=()
    COMPREPLY=()
    # A verb that runs a command takes its words after "--".
    if [[ " ${COMP_WORDS[*]:1:COMP_CWORD-1} " == *' -- '* ]]; then
        [[ $before != -- ]] || mapfile -t COMPREPLY < <(compgen -c -- "$cur")
        return
    fi
    while read -r line; do
        read -ra fields <<<"${line#Usage: }"
        [[ ${fields[0]} == ventix-machine ]] || continue
        if ((COMP_CWORD == 1)); then words+=("${fields[1]}")
        elif [[ ${fields[1]} == "${COMP_WORDS[1]}" ]]; then words+=("${fields[@]:2}")
        fi
    done <<<"$_ventix_machine_usage"
    ((COMP_CWORD > 1)) || words+=(--version)
    [[ " ${words[*]}" != *" [$before "* ]] || return  # an option's file
    # A synopsis has options in brackets; what else it has are files.
    words=("${words[@]//[\[\]]/}")
    [[ $cur != -* && $COMP_CWORD -gt 1 ]] || mapfile -t COMPREPLY < <(compgen -W "${words[*]//[A-Z]*/}" -- "$cur")
}

complete -o default -F _ventix_machine ventix-machine
