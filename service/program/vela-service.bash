# bash completion for vela-service
_vela_service() {
    local cur=${COMP_WORDS[COMP_CWORD]} prev=${COMP_WORDS[COMP_CWORD-1]}
    case $prev in
        --config|--check-config|--trace|--record|--profile) COMPREPLY=($(compgen -f -- "$cur")); return ;;
        --sysfs-root) COMPREPLY=($(compgen -d -- "$cur")); return ;;
    esac
    COMPREPLY=($(compgen -W "--config --sysfs-root --trace --record --check-config --exec-all --profile --list-nodes -v --verbose -q --quiet -h --help --version" -- "$cur"))
}
complete -F _vela_service vela-service
