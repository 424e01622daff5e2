# bash completion for rk-socket

_rk_socket() {
    local current=${COMP_WORDS[COMP_CWORD]} words=""
    local common="--proto --type --proto-path -n --count --fifo --close-policy --peer-timeout --ipv6 -v --verbose -h --help"
    local listening="--listen-on --max-message-size"
    local received="--format --all-fields --max-size -t --timeout"
    COMPREPLY=()
    case ${COMP_WORDS[COMP_CWORD - 1]} in
    --format) words="text hex raw" ;;
    --close-policy) words="drop linger wait" ;;
    --file | --proto | --record | --replay | --reply-file)
        compopt -o filenames
        mapfile -t COMPREPLY < <(compgen -f -- "$current")
        return
        ;;
    --proto-path)
        compopt -o filenames
        mapfile -t COMPREPLY < <(compgen -d -- "$current")
        return
        ;;
    --type | --reply-type | -n | --count | -t | --timeout | -i | --interval | --delay | --speed) return ;;
    --rate | --fifo | --max-size | --reply | --command) return ;;
    --listen-on | --max-message-size | --peer-timeout) return ;;
    *)
        case $COMP_CWORD,$current,${COMP_WORDS[1]} in
        1,*) words="sub pub req rep --help --help-all --version" ;;
        *,-*,sub) words="$common $received --stats --record -i --interval" ;;
        *,-*,pub) words="$common $listening --file --lines --whole --hex --replay --speed --delay -i --interval --rate" ;;
        *,-*,req) words="$common $received --file --lines --whole --hex --reply-type -i --interval --rate" ;;
        *,-*,rep) words="$common $listening $received --reply --reply-file --echo --command --hex --reply-type --rate" ;;
        esac
        ;;
    esac
    mapfile -t COMPREPLY < <(compgen -W "$words" -- "$current")
}

complete -F _rk_socket rk-socket
