# bash completion for rk-socket

# The types of the schema on the command line.
_rk_socket_types() {
    local -a options=()
    local place
    for ((place = 2; place < COMP_CWORD; ++place)); do
        case ${COMP_WORDS[place - 1]} in
        --proto | --descriptor-set | --proto-path | -I) options+=("${COMP_WORDS[place - 1]}" "${COMP_WORDS[place]}") ;;
        esac
    done
    "${COMP_WORDS[0]}" types "${options[@]}" 2>/dev/null
}

_rk_socket() {
    local current=${COMP_WORDS[COMP_CWORD]} words=""
    local general="-v --verbose -h --help" schema="--proto --descriptor-set -I --proto-path"
    local common="$general $schema --type --proto-part --separator -n --count --bind --connect --fifo"
    common+=" --listen-on --max-message-size --peer-timeout --ipv6 --key --trust"
    local received="--format --all-fields --parts --json --timestamps --template --max-size -t --timeout"
    local sent="--file --lines --whole --hex -i --interval --rate --close-policy"
    local replayed="--replay --speed --max-size --live"
    COMPREPLY=()
    case ${COMP_WORDS[COMP_CWORD - 1]} in
    --format) words="text hex hexdump raw" ;;
    --close-policy) words="drop linger wait" ;;
    --type | --reply-type) words=$(_rk_socket_types) ;;
    --file | --proto | --descriptor-set | --record | --replay | --reply-file | --key | --trust)
        compopt -o filenames
        mapfile -t COMPREPLY < <(compgen -f -- "$current")
        return
        ;;
    -I | --proto-path)
        compopt -o filenames
        mapfile -t COMPREPLY < <(compgen -d -- "$current")
        return
        ;;
    -n | --count | -t | --timeout | -i | --interval | --delay | --wait | --speed | --command-timeout) return ;;
    --listen-on | --max-message-size | --peer-timeout) return ;;
    --rate | --fifo | --max-size | --command-output | --proto-part) return ;;
    --reply | --command | --separator | --template | --topic) return ;;
    *)
        case $COMP_CWORD,$current,${COMP_WORDS[1]} in
        1,*) words="sub pub req rep push pull probe check types keygen pubkey --help --help-all --version" ;;
        *,-*,sub) words="$common $received --topic --stats --record -i --interval" ;;
        *,-*,pull) words="$common $received --stats --record -i --interval" ;;
        *,-*,pub) words="$common $sent $replayed --delay --wait" ;;
        *,-*,push) words="$common $sent $replayed" ;;
        *,-*,req) words="$common $received $sent --reply-type" ;;
        *,-*,rep)
            words="$common $received --reply --reply-file --echo --command --command-timeout --command-output --hex"
            words+=" --reply-type --rate --close-policy"
            ;;
        *,-*,probe | *,-*,check) words="$general -t --timeout --key --trust" ;;
        *,-*,keygen | *,-*,pubkey) words=$general ;;
        *,*,keygen | *,*,pubkey)
            compopt -o filenames
            mapfile -t COMPREPLY < <(compgen -f -- "$current")
            return
            ;;
        *,-*,types) words="$general $schema --type" ;;
        esac
        ;;
    esac
    mapfile -t COMPREPLY < <(compgen -W "$words" -- "$current")
}

complete -F _rk_socket rk-socket
