# fish completion for tarnwick-check: the options of tarnwick, and its own
complete -c tarnwick-check -w tarnwick
complete -c tarnwick-check -l files -d 'Tell of every file whether it would go'
complete -c tarnwick-check -l json -d 'Print JSON'
complete -c tarnwick-check -l program -r -F -d 'As tarnwick will be called'
