# Completion of morvane for bash.
_morvane()
{
    local current=${COMP_WORDS[COMP_CWORD]}
    # "=" parts words: after "--mode=" only the mode is left to complete.
    if [[ ${COMP_WORDS[COMP_CWORD-1]} == "=" || $current == "=" ]]; then
        mapfile -t COMPREPLY < <(compgen -W "normal livecd" -- "${current#=}")
        return
    fi
    mapfile -t COMPREPLY < <(compgen -W "--mode=normal --mode=livecd" -- "$current")
}
complete -F _morvane morvane
