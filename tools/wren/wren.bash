# Completion of wren's command lines in bash: the commands and options that its help tells of, and what they take.

_wren_files() {
    compopt -o filenames 2>/dev/null
    mapfile -t COMPREPLY < <(compgen -f -- "$1")
}

_wren_options() {
    "$@" --help 2>/dev/null | grep -oE '^  [^ ]*--[a-z-]+' | grep -oE -- '--[a-z-]+'
}

_wren_complete() {
    local wren=$1 word=$2 before=$3 command= candidate words= i
    local variables='SPIPORT QUILLMODE SPI_DELAY SPICLOCK SPIMUL SPICMDBITS SPICMDREADBITS
        SPICMDWRITEBITS SPIMAXCLOCK'
    local commands
    commands="$("$wren" --help 2>/dev/null | sed -n '/^Subcommands:/,/^$/s/^  \([a-z]*\) .*/\1/p') help"
    COMPREPLY=()
    for ((i = 1; i < COMP_CWORD; i++)); do
        for candidate in $commands; do
            [ "${COMP_WORDS[i]}" != "$candidate" ] || command=${command:-$candidate}
        done
    done

    case $before in
        --mode) words='SPI JTAG' ;;
        --progress) words='bar lines json none' ;;
        --format) words='raw hex text' ;;
        --endian) words='little big' ;;
        --port) words=$("$wren" ports 2>/dev/null | sed -nE 's/.*\(([0-9]+)\).*/\1/p') ;;
        -o | --output | -i | --input | --log | --record | --capture)
            _wren_files "$word"
            return
            ;;
        *)
            case $command in
                '' | help) words=$commands ;;
                command) words='DFU SPISLOWER' ;;
                get) words="$variables QUILLVERSION MUTEXNAME" ;;
                set) words=$(printf '%s= ' $variables) ;;
            esac
            [[ $command == help ]] || words+=" $(_wren_options "$wren") $(_wren_options "$wren" ${command:+"$command"})"
            ;;
    esac
    mapfile -t COMPREPLY < <(compgen -W "$words" -- "$word")
    [[ ${COMPREPLY[0]-} != *= ]] || compopt -o nospace 2>/dev/null
    if [[ $command == run && $word != -* ]]; then _wren_files "$word"; fi
}

complete -o bashdefault -F _wren_complete wren
