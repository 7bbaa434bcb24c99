# Completion of morvane-cli for bash.
_morvane_cli()
{
    local current=${COMP_WORDS[COMP_CWORD]}
    local command=${COMP_WORDS[1]}
    local common="--json --null --help"
    if [[ $COMP_CWORD -eq 1 ]]; then
        mapfile -t COMPREPLY < <(compgen -W "index search grep space dupes share recover vault --help --version" -- "$current")
        return
    fi
    local options=""
    case $command in
    index) options="--rebuild" ;;
    search | grep) options="--limit" ;;
    space) options="--files" ;;
    dupes) options="--min-size" ;;
    share) options="--port --minutes --upload --password" ;;
    recover) options="--deep --socket" ;;
    vault) options="--to --socket" ;;
    esac
    if [[ $current == -* ]]; then
        mapfile -t COMPREPLY < <(compgen -W "$options $common" -- "$current")
        return
    fi
    case $command:$COMP_CWORD in
    recover:2) mapfile -t COMPREPLY < <(compgen -W "list scan run" -- "$current") ;;
    vault:2) mapfile -t COMPREPLY < <(compgen -W "list restore" -- "$current") ;;
    recover:3) mapfile -t COMPREPLY < <(compgen -f -- "${current:-/dev/}") ;;
    index:* | space:* | dupes:*) mapfile -t COMPREPLY < <(compgen -d -- "$current") ;;
    share:* | recover:*) mapfile -t COMPREPLY < <(compgen -f -- "$current") ;;
    esac
}
complete -o filenames -F _morvane_cli morvane-cli
