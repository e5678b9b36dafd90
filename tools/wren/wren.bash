# Completion of wren's command lines in bash: commands, options, and what they take.

_wren_files() {
    compopt -o filenames 2>/dev/null
    mapfile -t COMPREPLY < <(compgen -f -- "$1")
}

_wren_complete() {
    local word=$2 before=$3 command= candidate
    COMPREPLY=()
    local commands='ports info xap speed read dump write fill verify diff get set vars command mgcmd
        run help'
    local options='--port --wait --no-lock --mode --clock --max-clock --mux --read-bits --write-bits
        --simulate --capture
        --json --progress --verbose --record --log --help --version'
    local variables='SPIPORT QUILLMODE SPI_DELAY SPICLOCK SPIMUL SPICMDBITS SPICMDREADBITS
        SPICMDWRITEBITS SPIMAXCLOCK'
    local i
    for ((i = 1; i < COMP_CWORD; i++)); do
        for candidate in $commands; do
            [ "${COMP_WORDS[i]}" != "$candidate" ] || command=${command:-$candidate}
        done
    done

    local words=
    case $before in
        --mode) words='SPI JTAG' ;;
        --progress) words='bar lines json none' ;;
        --format) words='raw hex text' ;;
        --endian) words='little big' ;;
        --region) words='all' ;;
        --port) words=$(wren ports 2>/dev/null | sed -nE 's/.*\(([0-9]+)\).*/\1/p') ;;
        -o | --output | -i | --input | --log | --record | --capture)
            _wren_files "$word"
            return
            ;;
        *)
            case $command in
                '') words="$commands $options" ;;
                help) words=$commands ;;
                ports) words="--await --watch $options" ;;
                read) words="--region --output --format --endian $options" ;;
                dump) words="--region --watch --looks $options" ;;
                write) words="--region --input --format --endian --no-verify --changed --dry-run $options" ;;
                fill) words="--region --no-verify --changed --dry-run $options" ;;
                verify) words="--region --input --format --endian $options" ;;
                diff) words="--region --format --endian --most $options" ;;
                speed) words="--seconds $options" ;;
                mgcmd) words="--init --any-answer $options" ;;
                command) words="DFU SPISLOWER $options" ;;
                get) words="$variables QUILLVERSION MUTEXNAME $options" ;;
                set) words="$(printf '%s= ' $variables) $options" ;;
                *) words=$options ;;
            esac
            ;;
    esac
    mapfile -t COMPREPLY < <(compgen -W "$words" -- "$word")
    [[ ${COMPREPLY[0]-} != *= ]] || compopt -o nospace 2>/dev/null
    if [[ $command == @(diff|run) && $word != -* ]]; then _wren_files "$word"; fi
}

complete -o bashdefault -F _wren_complete wren
