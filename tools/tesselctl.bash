# bash completion for tesselctl. The commands of the service come from the program itself.

_tesselctl() {
    local program=$1 word=$2 previous=$3 command='' index
    COMPREPLY=()

    for ((index = 1; index < COMP_CWORD; index++)); do
        case ${COMP_WORDS[index]} in
            --home | --timeout) ((index++)) ;;
            -*) ;;
            *)
                command=${COMP_WORDS[index]}
                break
                ;;
        esac
    done

    if [[ -z $command ]]; then
        case $previous in
            --home) mapfile -t COMPREPLY < <(compgen -d -- "$word") ;;
            --timeout) ;;
            *)
                if [[ $word == -* ]]; then
                    mapfile -t COMPREPLY < <(compgen -W '--home --timeout --help --version' -- "$word")
                else
                    mapfile -t COMPREPLY < <(compgen -W "shell status log help $(
                        "$program" help --list 2>/dev/null | cut -d ' ' -f 1
                    )" -- "$word")
                fi
                ;;
        esac
        return
    fi

    case $command in
        log) mapfile -t COMPREPLY < <(compgen -W '--follow --lines --enable' -- "$word") ;;
        help)
            mapfile -t COMPREPLY < <(compgen -W "shell status log help $(
                "$program" help --list 2>/dev/null | cut -d ' ' -f 1
            )" -- "$word")
            ;;
        shell | status) ;;
        *)
            # The name of the argument that stands here tells whether it is a path.
            local -a names
            read -ra names < <("$program" help --list 2>/dev/null | awk -v name="$command" '$1 == name')
            case ${names[COMP_CWORD - index]} in
                PATH | FILE | FOLDER | BUNDLE | PACKAGE)
                    compopt -o filenames 2>/dev/null
                    mapfile -t COMPREPLY < <(compgen -f -- "$word")
                    ;;
            esac
            ;;
    esac
}

complete -F _tesselctl tesselctl
