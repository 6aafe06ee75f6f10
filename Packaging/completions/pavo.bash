# Completion of pavo for bash. Commands and options are read from the help of the program that will run.

# What an option takes that only certain words are good for, or that some words are usual for.
_pavo_values() {
    case "$1 $2" in
        "send --format") echo "UYVY YUY2 NV12 I420 BGRA" ;;
        "send --matrix") echo "auto bt601 bt709" ;;
        "view --format") echo "YUY2 UYVY NV12 BGRx" ;;
        "preview --graphics") echo "auto symbols sixels kitty" ;;
        "demo --pipewire") echo "auto running private embedded" ;;
        *" --size") echo "640x480 1280x720 1920x1080 3840x2160" ;;
        *" --fps") echo "24 25 30 50 60" ;;
    esac
}

_pavo() {
    local program="${COMP_WORDS[0]}" current="${COMP_WORDS[COMP_CWORD]}"
    local option="${COMP_WORDS[COMP_CWORD - 1]}" command="" help kind words
    COMPREPLY=()
    ((COMP_CWORD > 1)) && command="${COMP_WORDS[1]}"
    # --size=640 comes as three words.
    [[ $current == = ]] && current=""
    [[ $option == = ]] && option="${COMP_WORDS[COMP_CWORD - 2]}"

    help="$("$program" ${command:+"$command"} --help 2>/dev/null)" || return
    if [[ $option == --* ]]; then
        # An option that takes a value has the kind of it in capitals.
        kind="$(sed -En "s/^ +(-[a-z],)?$option ([A-Z]+).*/\2/p" <<<"$help")"
        words="$(_pavo_values "$command" "$option")"
        case "$kind" in
            "") words="" ;;
            FILE | FILES) compopt -o filenames; mapfile -t COMPREPLY < <(compgen -f -- "$current"); return ;;
            FOLDER) compopt -o filenames; mapfile -t COMPREPLY < <(compgen -d -- "$current"); return ;;
            *) mapfile -t COMPREPLY < <(compgen -W "$words" -- "$current"); return ;;
        esac
    fi

    if [[ -z $command && $current != -* ]]; then
        words="$(sed -En '/^Subcommands:/,/^$/s/^ +([a-z-]+) .*/\1/p' <<<"$help")"
    else
        words="$(sed -En 's/^ +(-[a-z],)?(--[a-z0-9-]+).*/\2/p' <<<"$help")"
    fi
    mapfile -t COMPREPLY < <(compgen -W "$words" -- "$current")
}
complete -F _pavo pavo
