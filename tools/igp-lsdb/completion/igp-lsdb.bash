# bash completion for igp-lsdb
_igp_lsdb() {
    local cur prev word sub=""
    cur=${COMP_WORDS[COMP_CWORD]}
    prev=${COMP_WORDS[COMP_CWORD-1]}
    local subcommands="summary detail dump events diff stats routes topology graph"
    local i
    for ((i = 1; i < COMP_CWORD; i++)); do
        word=${COMP_WORDS[i]}
        case $word in
            -i|--interface|--level|--node|--prefix|--since|--until|--from|--to|--format) ((i++)) ;;
            -*) ;;
            *) sub=$word; break ;;
        esac
    done
    case $prev in
        --level) COMPREPLY=($(compgen -W "1 2 L1 L2" -- "$cur")); return ;;
        -i|--interface) COMPREPLY=($(compgen -W "$(ls /sys/class/net 2>/dev/null)" -- "$cur")); return ;;
        --format) COMPREPLY=($(compgen -W "dot json" -- "$cur")); return ;;
        --node|--prefix|--since|--until|--from|--to) COMPREPLY=(); return ;;
    esac
    local common="--json --level --node --interface --random-seed --help"
    local opts
    case $sub in
        summary|detail) opts="$common --prefix --since --until" ;;
        events) opts="$common --prefix --since --until --follow" ;;
        dump|stats) opts="$common --until" ;;
        diff) opts="$common --prefix --from --to --since --until --separate" ;;
        routes) opts="--from --level --json --follow --help" ;;
        topology) opts="--from --level --json --help" ;;
        graph) opts="--format --level --help" ;;
        *) opts="$common --prefix --since --until --from --to --separate --follow --version" ;;
    esac
    if [[ $cur == -* ]]; then
        COMPREPLY=($(compgen -W "$opts" -- "$cur"))
    elif [[ -z $sub ]]; then
        COMPREPLY=($(compgen -W "$subcommands" -- "$cur"))
    else
        COMPREPLY=($(compgen -f -- "$cur"))
    fi
}
complete -F _igp_lsdb igp-lsdb
