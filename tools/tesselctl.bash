# bash completion for tesselctl. The commands of the service come from the program itself.

_tesselctl() {
    local program=$1 word=$2 previous=$3 command='' index
    local own='shell status log pen channel install upgrade remove start stop is-running is-installed icon help'
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
                    mapfile -t COMPREPLY < <(compgen -W "$own $(
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
            mapfile -t COMPREPLY < <(compgen -W "$own $(
                "$program" help --list 2>/dev/null | cut -d ' ' -f 1
            )" -- "$word")
            ;;
        pen)
            case $previous in
                --plot)
                    compopt -o filenames 2>/dev/null
                    mapfile -t COMPREPLY < <(compgen -f -- "$word")
                    ;;
                --app) ;;
                *) mapfile -t COMPREPLY < <(compgen -W '--app --raw --json --plot' -- "$word") ;;
            esac
            ;;
        channel)
            if ((COMP_CWORD == index + 1)); then
                mapfile -t COMPREPLY < <(compgen -W 'listen send' -- "$word")
            fi
            ;;
        install | upgrade | remove | start | stop | is-running | is-installed)
            if [[ $previous == --name ]]; then
                return
            elif [[ $word == -* ]]; then
                mapfile -t COMPREPLY < <(compgen -W '--air --native --name' -- "$word")
            elif [[ $command == install || $command == upgrade ]]; then
                compopt -o filenames 2>/dev/null
                mapfile -t COMPREPLY < <(compgen -f -- "$word")
            fi
            ;;
        icon)
            compopt -o filenames 2>/dev/null
            mapfile -t COMPREPLY < <(compgen -f -- "$word")
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
