# bash completion of ventix, and of the commands' own names where they are links to it.                -*- sh -*-
#
# The program is called for words that change only (tasks, devices, registry keys), and at most once for each key.

# What the option tables of the program say, as completions/generate.sh writes it.
_ventix_data='
@DATA@
'

# Sets the given variable to the fields after KEY in the data: _ventix_field VARIABLE KEY
_ventix_field() {
    local row
    printf -v "$1" ''
    while IFS= read -r row; do
        [[ $row != "$2|"* ]] || { printf -v "$1" %s "${row#"$2|"}"; return; }
    done <<<"$_ventix_data"
}

# Sets `cur` to the word at the cursor, without its quoting, and `words` to those before it. Readline breaks words at the
# characters of COMP_WORDBREAKS too: `broken` is how much of the word precedes the last such place.
_ventix_split() {
    local left=${COMP_LINE:0:COMP_POINT} quote='' char i
    words=() cur='' broken=''
    for ((i = 0; i < ${#left}; ++i)); do
        char=${left:i:1}
        if [[ $quote ]]; then
            if [[ $char == "$quote" ]]; then quote=''; else cur+=$char; fi
        elif [[ $char == [\'\"] ]]; then
            quote=$char
        elif [[ $char == \\ ]]; then
            ((++i))
            cur+=${left:i:1}
        elif [[ $char == [[:blank:]] ]]; then
            [[ -z $cur ]] || words+=("$cur")
            cur='' broken=''
        elif [[ $char == [\;\|\&\(] ]]; then
            words=() cur='' broken=''
        else
            cur+=$char
            [[ $COMP_WORDBREAKS != *"$char"* ]] || broken=$cur
        fi
    done
    # Assignments in front of the command are no part of it; words are asked for on the machine that they name.
    while [[ ${words[0]-} == [A-Za-z_]*=* ]]; do
        [[ ${words[0]} != VENTIX_MACHINE=* ]] || machine=${words[0]}
        words=("${words[@]:1}")
    done
    open_quote=$quote
}

# Offers the words given that begin with what is typed, each a word or WORD<TAB>DESCRIPTION. A description shows only
# where there is a choice.
_ventix_offer() {
    local entry word about found=() shown=() quoted
    for entry; do
        word=${entry%%$'\t'*} about=${entry#"$word"}
        [[ $word == "$cur"* && $word ]] || continue
        if [[ $open_quote ]]; then quoted=$word
        else
            quoted=${word#"$broken"}
            [[ $quoted != *[!A-Za-z0-9_./:,=+@%^-]* ]] || printf -v quoted %q "$quoted"
        fi
        found+=("$quoted") shown+=("$quoted${about:+  (${about#$'\t'})}")
    done
    # Readline inserts what all have in common, so descriptions are left out where that would end in one.
    if ((${#found[@]} > 1)); then COMPREPLY=("${shown[@]}"); else COMPREPLY=("${found[@]}"); fi
}

# The lines that the program prints; nothing where it fails.
_ventix_ask() {
    mapfile -t lines < <(
        unset VENTIX_CALL_LOG VENTIX_MACHINE_SAVE
        [[ -z $machine ]] || export "$machine"
        exec ventix "$@" 2>/dev/null </dev/null
    )
}

# Offers words of one kind, by the tables' names of them.
_ventix_word() {
    local kind=$1 command=$2 lines=() offers=() line text directory
    case $kind in
    style | query | exception | property)
        _ventix_field text "$kind"
        read -ra offers <<<"$text"
        ;;
    sortspec)
        if [[ $cur == *,* ]]; then
            _ventix_field text mode
            for line in $text; do offers+=("${cur%,*},$line"); done
        else
            _ventix_field text "columns|$command"
            if [[ -z $text ]]; then
                _ventix_ask "$command" "${given[@]}" -S raw
                text=${lines[0]-}
            fi
            local index=0
            for line in $text; do offers+=("$((index++))"$'\t'"$line"); done
            compopt -o nospace
        fi
        ;;
    task)
        _ventix_ask task -n -S raw
        for line in "${lines[@]}"; do
            # " 0xHANDLE^ PRI TH MO ALLOCk RESERVEDk NAME"; a name that could not be read is not there.
            text=${line#*[0-9]k *[0-9]k }
            [[ $line == ' 0x'* && $text != "$line" ]] || continue
            if ((by_handle)); then
                line=${line# } line=${line%%[ ^]*}
                printf -v line 0x%X "$line"
                offers+=("$line"$'\t'"$text")
            else offers+=("$text"); fi
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
    terminal)
        compopt -o default
        return
        ;;
    esac
    _ventix_offer "${offers[@]}"
    # A whole key is followed by a blank after all.
    [[ $kind != registry_key || ${#COMPREPLY[@]} -ne 1 || ${COMPREPLY[0]} == */ ]] || compopt +o nospace
}

_ventix() {
    local IFS=$' \t\n' cur broken open_quote machine='' words=() given=() operands=() by_handle=0 command row text offers=()
    COMPREPLY=()
    _ventix_split
    command=${words[0]##*/}
    words=("${words[@]:1}")
    if [[ $command == *ventix* ]]; then
        if ((${#words[@]} == 0)); then
            while IFS='|' read -r row command _; do
                [[ $row != operands ]] || offers+=("$command")
            done <<<"$_ventix_data"
            _ventix_offer "${offers[@]}" help --list --version --install --uninstall
            return
        fi
        command=${words[0]}
        words=("${words[@]:1}")
    fi

    # Walk over what was typed: which option still waits for its argument, and which operands there are.
    local word letter long argument about waits='' letters=' ' longs=' ' arguments=()
    while IFS='|' read -r row text letter long argument about; do
        [[ $row == option && $text == "$command" ]] || continue
        [[ -z $letter ]] || { letters+="$letter " offers+=("$letter"$'\t'"$about"); }
        [[ -z $long ]] || { longs+="$long " offers+=("$long"$'\t'"$about"); }
        [[ $argument == none ]] || arguments+=("$letter|$argument" "$long|$argument")
    done <<<"$_ventix_data"
    for word in "${words[@]}"; do
        if [[ $waits ]]; then waits=''
        elif [[ $word == --* ]]; then
            for row in "${arguments[@]}"; do [[ ${row%%|*} != "$word" ]] || waits=${row#*|}; done
        elif [[ $word == -?* ]]; then
            for row in "${arguments[@]}"; do [[ ${row%%|*} != -"${word: -1}" ]] || waits=${row#*|}; done
            [[ $word != *P* ]] || by_handle=1
        else
            operands+=("$word")
        fi
        [[ $waits == sortspec ]] || given+=("$word")
    done

    if [[ -z $waits && $cur == --*=* ]]; then
        for row in "${arguments[@]}"; do [[ ${row%%|*} != "${cur%%=*}" ]] || waits=${row#*|}; done
        cur=${cur#*=} broken=${broken#*=}
    fi
    if [[ $waits ]]; then _ventix_word "$waits" "$command"
    elif [[ $cur == -* ]]; then _ventix_offer "${offers[@]}" --help
    else
        _ventix_field text "operands|$command"
        local kinds max=${text%%|*} at=${#operands[@]}
        read -ra kinds <<<"${text#*|}"
        ((${#kinds[@]} > 0 && at < max)) || return
        ((at < ${#kinds[@]})) || at=$((${#kinds[@]} - 1))
        # Without -s, svcinfo takes devices alone.
        [[ $command != svcinfo || " ${words[*]}" == *' -s'* ]] || at=0
        _ventix_word "${kinds[at]}" "$command"
    fi
}

complete -F _ventix ventix
# The names of commands, where they are links of this program, and not tools of the same name.
_ventix_complete_links() {
    local row name directory directories program=''
    IFS=: read -ra directories <<<"$PATH"
    for directory in "${directories[@]}"; do
        [[ -n $program || ! -x $directory/ventix ]] || program=$directory/ventix
    done
    while IFS='|' read -r row name _; do
        [[ $row == operands ]] || continue
        for directory in "${directories[@]}"; do
            [[ -x $directory/$name ]] || continue
            [[ ! $directory/$name -ef $program ]] || complete -F _ventix "$name"
            break
        done
    done <<<"$_ventix_data"
}
_ventix_complete_links
unset -f _ventix_complete_links
