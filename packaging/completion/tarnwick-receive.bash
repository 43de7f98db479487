# bash completion for tarnwick-receive

_tarnwick_receive() {
  local cur=${COMP_WORDS[COMP_CWORD]} prev=${COMP_WORDS[COMP_CWORD - 1]} options word
  [[ $cur != = ]] || cur= # of "--option=value"
  [[ $prev != = ]] || prev=${COMP_WORDS[COMP_CWORD - 2]}
  COMPREPLY=()
  case $prev in
    --into | --journals)
      mapfile -t COMPREPLY < <(compgen -d -- "$cur")
      return
      ;;
    --incomplete)
      if [[ " ${COMP_WORDS[*]} " != *' report '* ]]; then # there it has no value
        mapfile -t COMPREPLY < <(compgen -d -- "$cur")
        return
      fi
      ;;
    --html | --ledger | --log | --metrics | --trust)
      mapfile -t COMPREPLY < <(compgen -f -- "$cur")
      return
      ;;
    --charset)
      mapfile -t COMPREPLY < <(compgen -W 'UTF-8 cp1251 KOI8-R ISO-8859-1' -- "$cur")
      return
      ;;
    --allow | --count | --give-up | --join | --listen | --max-age | --max-file-size | --max-transfers | \
      --memory | --mode | --older-than | --prune-older-than | --reserve | --silence | --datagram | --rate | --wait) return ;;
  esac
  options='--allow --charset --count --drop-incomplete --give-up --help --ignore-source
    --incomplete --into --join --journals --json --keep-existing --ledger --listen --log
    --max-age --max-file-size --max-transfers --memory --metrics --mode --no-sandbox --no-sync
    --prune-older-than --require-seal --reserve --silence --trust --version check prune report'
  for word in "${COMP_WORDS[@]:1:COMP_CWORD-1}"; do
    [[ $word != report ]] || options='--help --html --incomplete --into --json --ledger --missing'
    [[ $word != check ]] || options+=' --datagram --rate --wait'
    [[ $word != prune ]] || options='--help --incomplete --into --journals --ledger --older-than'
  done
  mapfile -t COMPREPLY < <(compgen -W "$options" -- "$cur")
}
complete -o filenames -F _tarnwick_receive tarnwick-receive
