# bash completion for tarnwick; installed as .../bash-completion/completions/tarnwick

# Offers what `compgen` makes of the value in "-x:value" or "--name=value". Readline
# has cut off what stands before a separator that it splits words at.
_tarnwick_value() { # word, compgen's arguments
  local value=${1#*[:=]} prefix
  prefix=${1%"$value"}
  shift
  [[ $COMP_WORDBREAKS != *"${prefix: -1}"* ]] || prefix=
  mapfile -t COMPREPLY < <(compgen -P "$prefix" "$@" -- "$value")
}

_tarnwick() {
  local line=${COMP_LINE:0:COMP_POINT}
  local cur=${line##*[[:space:]]}
  COMPREPLY=()
  case $cur in
    -f:* | -w:* | -y:* | --run-dir=*) _tarnwick_value "$cur" -d -S / ;;
    -g:* | -j:* | -o:* | --metrics=* | --sign=*) _tarnwick_value "$cur" -f ;;
    -a:*) _tarnwick_value "$cur" -W 'cp1251 UTF-8 KOI8-R ISO-8859-1' ;;
    -i:*) _tarnwick_value "$cur" -A hostname ;;
    -m:*) _tarnwick_value "$cur" -W '0 1 2 3 4' ;;
    -v:*) _tarnwick_value "$cur" -W '0 1 2' ;;
    -k:* | -l:* | -z:*) _tarnwick_value "$cur" -W '0 1' ;;
    -?:* | --*=*) ;;
    *)
      mapfile -t COMPREPLY < <(compgen -W '-a: -b: -c: -d: -e: -f: -g: -h -i: -j: -k: -l: -m: -o: -p:
        -q: -r: -s: -t: -u: -v: -w: -x: -y: -z: --help --metrics= --repair= --run-dir= --seal
        --send-buffer= --sign= --version' -- "$cur")
      ;;
  esac
}
complete -o nospace -F _tarnwick tarnwick
