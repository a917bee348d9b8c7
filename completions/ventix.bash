# bash completion of ventix, ventix-machine, and the commands' own names where they are links to ventix.  -*- sh -*-
#
# Only words that depend on the machine (tasks, devices, registry keys) start the program, once for each key press.

# What the option tables of the programs say, as completions/generate.sh writes it.
_ventix_data=(
@DATA@
)

# Sets `reply` to the fields after KEY in the data.
_ventix_field() {
    local row
    reply=''
    for row in "${_ventix_data[@]}"; do
        [[ $row != "$1|"* ]] || { reply=${row#"$1|"}; return; }
    done
}

# Sets `cur` to the word at the cursor, without its quoting, and `words` to those before it. Readline breaks words at the
# characters of COMP_WORDBREAKS too: `broken` is how much of the word precedes the last such place.
_ventix_split() {
    local left=${COMP_LINE:0:COMP_POINT} char i
    for ((i = 0; i < ${#left}; ++i)); do
        char=${left:i:1}
        if [[ $open_quote ]]; then
            if [[ $char == "$open_quote" ]]; then open_quote=''; else cur+=$char; fi
        elif [[ $char == [\'\"] ]]; then
            open_quote=$char
        elif [[ $char == \\ ]]; then
            ((++i))
            cur+=${left:i:1}
        elif [[ $char == [[:blank:]] ]]; then
            [[ -z $cur ]] || words+=("$cur")
            cur='' broken=''
        else
            cur+=$char
            [[ $COMP_WORDBREAKS != *"$char"* ]] || broken=$cur
        fi
    done
}

# Offers the words given that begin with what is typed, each a word or WORD<TAB>DESCRIPTION.
_ventix_offer() {
    local entry word about found=() shown=() quoted
    for entry; do
        [[ $entry == "$cur"* ]] || continue
        word=${entry%%$'\t'*} about=${entry#"$word"}
        if [[ $open_quote ]]; then quoted=$word
        else
            quoted=${word#"$broken"}
            [[ $quoted != *[!A-Za-z0-9_./:,=+@%^-]* ]] || printf -v quoted %q "$quoted"
        fi
        found+=("$quoted") shown+=("$quoted${about:+  (${about#$'\t'})}")
    done
    # Readline inserts what all have in common, so a description is shown only where there is a choice.
    if ((${#found[@]} > 1)); then COMPREPLY=("${shown[@]}"); else COMPREPLY=("${found[@]}"); fi
}

# Sets `lines` to what a command prints; to none where it fails.
_ventix_ask() {
    local IFS=$'\n'
    lines=($(unset VENTIX_CALL_LOG VENTIX_MACHINE_SAVE; exec ventix "$@" 2>/dev/null </dev/null))
}

# Offers words of one kind, by the tables' names of them.
_ventix_word() {
    local kind=$1 reply lines offers=() line text directory
    case $kind in
    style | query | exception | property)
        _ventix_field "$kind"
        offers=($reply)
        ;;
    sortspec)
        if [[ $cur == *,* ]]; then
            _ventix_field mode
            for text in $reply; do offers+=("${cur%,*},$text"); done
        else
            _ventix_field "columns|${command#ventix }"
            if [[ -z $reply ]]; then
                # What was typed so far decides which columns there are.
                _ventix_ask "${command#ventix }" "${given[@]}" -S raw
                reply=${lines[0]-}
            fi
            for text in $reply; do offers+=("${#offers[@]}"$'\t'"$text"); done
            compopt -o nospace
        fi
        ;;
    task)
        _ventix_ask task -n -S raw
        for line in "${lines[@]}"; do
            # " 0xHANDLE^ PRI TH MO ALLOCk RESERVEDk NAME"; a name that could not be read is not there.
            text=${line#*[0-9]k *[0-9]k }
            [[ $line == ' 0x'* && $text != "$line" ]] || continue
            if [[ $by_handle ]]; then
                line=${line# } line=${line%%[ ^]*}
                printf -v line 0x%X "$line"
                offers+=("$line"$'\t'"$text")
            elif [[ $text != @(\[kernel\]|\[idle\]) ]]; then  # in the place of a name, by which none is found
                offers+=("$text")
            fi
        done
        ;;
    device)
        _ventix_ask treereg -I -L 0 run/dev
        for line in "${lines[@]}"; do [[ $line != [\|\`]--\ * ]] || offers+=("${line#??? }"); done
        ;;
    service)
        _ventix_ask svcinfo "${operands[0]}"
        for line in "${lines[@]}"; do [[ ! $line =~ ^' '+service\ \#[0-9]+,\ \"(.*)\": ]] || offers+=("${BASH_REMATCH[1]}"); done
        ;;
    keyval)
        _ventix_ask svcinfo -s "${operands[0]}" "${operands[1]}"
        for line in "${lines[@]}"; do
            [[ ! $line =~ ^' '+arg\ \#[0-9]+:\ \"(.*)\",\ (.*)$ ]] || offers+=("${BASH_REMATCH[1]}="$'\t'"${BASH_REMATCH[2]}")
        done
        compopt -o nospace
        ;;
    registry_path | registry_key)
        directory=${cur%"${cur##*/}"}
        _ventix_ask treereg -F -I -B -L 0 "${directory%/}"
        for line in "${lines[@]}"; do
            [[ $line =~ ^[\|\`]--\ \[(int|bin|dir|tmp)\]\ (.*)$ ]] || continue
            case ${BASH_REMATCH[1]} in
            dir | tmp) offers+=("$directory${BASH_REMATCH[2]}/") ;;
            *) [[ $kind == registry_path ]] || offers+=("$directory${BASH_REMATCH[2]}") ;;
            esac
        done
        compopt -o nospace
        ;;
    file | terminal) compopt -o default ;;
    esac
    _ventix_offer "${offers[@]}"
    # A whole key is followed by a blank after all.
    [[ $kind != registry_key || ${#COMPREPLY[@]} -ne 1 || ${COMPREPLY[0]} == */ ]] || compopt +o nospace
}

_ventix() {
    local cur='' broken='' open_quote='' words=() program command row fields offers=() reply i
    COMPREPLY=()
    _ventix_split
    program=${words[0]##*/}
    case $program in
    *ventix-machine*)
        program=ventix-machine
        # What follows "--" is a command of its own, which bash-completion completes.
        for ((i = 2; i < COMP_CWORD; ++i)); do
            [[ ${COMP_WORDS[i]} == -- ]] || continue
            ! declare -F _command_offset >/dev/null || _command_offset $((i + 1))
            return
        done
        ;;
    *ventix*) program=ventix ;;
    *) words=(ventix "$program" "${words[@]:1}") program=ventix ;;
    esac

    local - IFS='|'
    set -f  # rows and lines are split into words, and no word is a pattern
    if ((${#words[@]} == 1)); then
        for row in "${_ventix_data[@]}"; do
            [[ $row == "operands|$program "* ]] || continue
            fields=($row)
            offers+=("${fields[1]#* }"$'\t'"${fields[4]}")
        done
        _ventix_offer "${offers[@]}"
        return
    fi

    # Walk over what was typed: which option still waits for its argument, and which operands there are.
    local -A argument=()
    local word waits='' by_handle='' given=() operands=() kinds at
    command="$program ${words[1]}"
    for row in "${_ventix_data[@]}"; do
        [[ $row == "option|$command|"* ]] || continue
        fields=($row)
        for word in "${fields[2]}" "${fields[3]}"; do
            [[ $word ]] || continue
            offers+=("$word"$'\t'"${fields[5]}")
            [[ ${fields[4]} == none ]] || argument[$word]=${fields[4]}
        done
    done
    IFS=$' \t\n'
    for word in "${words[@]:2}"; do
        if [[ $waits ]]; then waits=''
        elif [[ $word == --* ]]; then waits=${argument[$word]-}
        elif [[ $word == -?* ]]; then
            waits=${argument[-${word: -1}]-}
            [[ $word != *P* ]] || by_handle=1
        else operands+=("$word")
        fi
        [[ $waits == sortspec ]] || given+=("$word")
    done
    if [[ -z $waits && $cur == --*=* ]]; then
        waits=${argument[${cur%%=*}]-}
        cur=${cur#*=} broken=${broken#*=}
    fi

    if [[ $waits ]]; then _ventix_word "$waits"
    elif [[ $cur == -* ]]; then _ventix_offer "${offers[@]}"
    else
        _ventix_field "operands|$command"
        IFS='|' fields=($reply) IFS=$' \t\n'
        kinds=(${fields[1]-}) at=${#operands[@]}
        ((${#kinds[@]} > 0 && at < fields[0])) || return 0
        ((at < ${#kinds[@]})) || at=$((${#kinds[@]} - 1))
        # Without -s, svcinfo takes devices alone.
        [[ $command != 'ventix svcinfo' || " ${given[*]}" == *' -s'* ]] || at=0
        _ventix_word "${kinds[at]}"
    fi
}

# Completes the commands' names that lead to the program; tools of the same names are left alone. Fails for a file named
# after one of those, so that bash-completion goes on looking.
#   _ventix_register FILE    being read; bash-completion reads the file NAME or NAME.bash when it meets NAME first
_ventix_register() {
    local row name file=${1##*/} directory directories program=''
    complete -F _ventix ventix ventix-machine
    IFS=: read -ra directories <<<"$PATH"
    for directory in "${directories[@]}"; do
        [[ -n $program || ! -x $directory/ventix ]] || program=$directory/ventix
    done
    for row in "${_ventix_data[@]}"; do
        [[ $row == 'operands|ventix '[a-z]* ]] || continue
        name=${row#* } name=${name%%|*}
        for directory in "${directories[@]}"; do
            [[ -x $directory/$name ]] || continue
            [[ ! $directory/$name -ef $program ]] || complete -F _ventix "$name"
            break
        done
    done
    complete -p "${file%.bash}" >/dev/null 2>&1
}
_ventix_register "${BASH_SOURCE[0]}"
