# fish completion for tarnwick-key
complete -c tarnwick-key -l help -d 'Print help'
