# bash completion for tarnwick-key
complete -f -W '--help' tarnwick-key
