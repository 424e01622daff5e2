# bash completion for rk-socket, from its help

_rk_socket() {
    local tool=${COMP_WORDS[0]} current=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD - 1]}
    local help value="" words="" files="" place
    local -a schema=()
    if ((COMP_CWORD == 1)); then
        words="$("$tool" --help | sed -nE '/^Commands:/,/^$/s/^  ([a-z]+) .*/\1/p; s/^  (-h,)?(--[a-z-]+) .*/\2/p')"
    else
        help=$("$tool" "${COMP_WORDS[1]}" --help 2>/dev/null)
        [[ ! $previous =~ ^-[-a-zA-Z]+$ ]] || value=$(sed -nE "s/^  (-.*,)?$previous(,-[^ ]*)? ([A-Z]+).*/\3/p" <<<"$help")
        case $value in
        FORMAT) words="text hex hexdump raw" ;;
        POLICY) words="drop linger wait" ;;
        FILE) files=-f ;;
        DIR) files=-d ;;
        NAME)
            for ((place = 3; place < COMP_CWORD; ++place)); do
                case ${COMP_WORDS[place - 1]} in
                --proto | --descriptor-set | --proto-path | -I) schema+=("${COMP_WORDS[@]:place-1:2}") ;;
                esac
            done
            words=$("$tool" types "${schema[@]}" 2>/dev/null)
            ;;
        "") [[ $current == -* ]] && words=$(sed -nE 's/^  (-[^ ]+).*/\1/p' <<<"$help" | tr , '\n') || files=-f ;;
        esac
    fi
    [[ -z $files ]] || compopt -o filenames
    mapfile -t COMPREPLY < <(compgen ${files:-"-W" "$words"} -- "$current")
}

complete -F _rk_socket rk-socket
