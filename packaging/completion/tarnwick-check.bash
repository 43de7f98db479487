# bash completion for tarnwick-check: the options of tarnwick, and its own

for _tarnwick_file in "${BASH_SOURCE[0]%/*}"/tarnwick{,.bash}; do
  # shellcheck disable=SC1090 # beside this one, as installed or in the sources
  [[ ! -f $_tarnwick_file ]] || . "$_tarnwick_file"
done
unset _tarnwick_file

_tarnwick_check() {
  local line=${COMP_LINE:0:COMP_POINT} own
  local cur=${line##*[[:space:]]}
  if [[ $cur == --program=* ]]; then
    _tarnwick_value "$cur" -f
    return
  fi
  _tarnwick
  mapfile -t own < <(compgen -W '--files --json --program=' -- "$cur")
  COMPREPLY+=("${own[@]}")
}
complete -o nospace -F _tarnwick_check tarnwick-check
