# Completion of ksfax for bash. Source this file, or install it as
# /usr/share/bash-completion/completions/ksfax. Commands, options and their values are taken from
# what the program says of itself with --help, so that they are always those of the program at hand.

_ksfax() {
    local program=$1 word=$2 previous=$3 command='' line value='' words=() help i
    COMPREPLY=()
    for ((i = 1; i < COMP_CWORD; ++i)); do
        [[ ${COMP_WORDS[i]} == -* ]] || { command=${COMP_WORDS[i]}; break; }
    done
    help=$("$program" $command --help 2>/dev/null </dev/null) || return 0
    while IFS= read -r line; do
        if [[ -z $command && $line =~ ^\ \ ([a-z]+)\ \  ]]; then
            words+=("${BASH_REMATCH[1]}")
        elif [[ $line =~ ^\ \ (-h,)?(--[a-z-]+)(\ [^\ ]+)? ]]; then
            words+=("${BASH_REMATCH[2]}")
            [[ ${BASH_REMATCH[2]} == "$previous" ]] && value=${BASH_REMATCH[3]# }
        fi
    done <<<"$help"

    # What an option takes is named in capitals after it; of a few words, those words.
    case $value in
        *{*}*)
            value=${value#*\{}
            words=(${value%%\}*})
            IFS=, read -ra words <<<"${words[*]}" ;;
        DIR)
            mapfile -t COMPREPLY < <(compgen -d -- "$word")
            return ;;
        FILE | CSV | BMP | TXT | RECORD | PNG)
            mapfile -t COMPREPLY < <(compgen -f -- "$word")
            return ;;
        N | N:* | NAME | NAME[=[]*) return ;;
    esac
    mapfile -t COMPREPLY < <(compgen -W "${words[*]}" -- "$word")
    # Anything else on the line of a command is a file.
    if [[ -n $command && $word != -* && -z $value ]]; then
        mapfile -t COMPREPLY < <(compgen -f -- "$word")
    fi
}
complete -o filenames -F _ksfax ksfax
