# bash completion for fmxhost

_fmxhost()
{
    local current=$2 previous=$3 command='' plugin=() word index
    local commands='run list steps strings help check'
    local options='-e --plugin --api --json --get --no-arity-check --time --version --help'

    # readline splits --plugin=FILE into three words.
    if [[ $current == = ]]; then
        current=''
    fi
    if [[ $previous == = ]]; then
        previous=${COMP_WORDS[COMP_CWORD - 2]}
    fi

    case $previous in
    --plugin | --allow | --libraries | run)
        compopt -o filenames
        mapfile -t COMPREPLY < <(compgen -f -- "$current")
        return
        ;;
    --get)
        compopt -o nospace
        mapfile -t COMPREPLY < <(compgen -S = -W 'ScriptParameter ScriptResult DocumentsPath DesktopPath TemporaryPath' -- "$current")
        return
        ;;
    -e | --api | --timeout)
        return
        ;;
    esac

    for ((index = 1; index < COMP_CWORD; ++index)); do
        word=${COMP_WORDS[index]}
        case $word in
        --plugin)
            # In pieces where "=" is between them.
            [[ ${COMP_WORDS[index + 1]} != = ]] || ((++index))
            plugin=(--plugin "${COMP_WORDS[++index]}")
            ;;
        -e | --api | --get | --timeout | --allow | --libraries) ((++index)) ;;
        run | list | steps | strings | help | check)
            command=$word
            break
            ;;
        esac
    done

    case $command in
    '') mapfile -t COMPREPLY < <(compgen -W "$commands $options" -- "$current") ;;
    help)
        # One name, in any letter case; what is typed so far is no pattern.
        COMPREPLY=()
        ((index == COMP_CWORD - 1)) || return
        while read -r word; do
            [[ ${word,,} != "${current,,}"* ]] || COMPREPLY+=("$word")
        done < <(_fmxhost_functions "${plugin[@]}")
        ;;
    check)
        mapfile -t COMPREPLY < <(compgen -W "$(_fmxhost_tests) list-tests --only-failed --timeout --allow --libraries $options" -- "$current")
        ;;
    *) mapfile -t COMPREPLY < <(compgen -W "$options" -- "$current") ;;
    esac
}

# The names of the functions that the plug-in registers.
_fmxhost_functions()
{
    fmxhost "$@" --json list 2>/dev/null | sed -n 's/^{"id":[-0-9]*,"name":"\([^"]*\)".*/\1/p'
}

# The names of the tests of "fmxhost check".
_fmxhost_tests()
{
    fmxhost check list-tests 2>/dev/null | sed 's/ .*//'
}

complete -F _fmxhost fmxhost
