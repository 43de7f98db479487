# Sourced by the other scripts: what they need on a bare Debian or Ubuntu.

top=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)

say() { printf '%s\n' "$*"; }
die() { printf '%s\n' "$*" >&2; exit 1; }

# Installs the packages among its arguments that are missing, and says so.
install_packages() {
  local missing=() package
  for package in "$@"; do
    dpkg-query -W -f '${Status}' "$package" 2>/dev/null | grep -q 'ok installed' || missing+=("$package")
  done
  [ ${#missing[@]} -gt 0 ] || return 0
  local as_root=()
  if [ "$(id -u)" -ne 0 ]; then
    command -v sudo >/dev/null || die "Packages are missing, run as root: apt-get install ${missing[*]}"
    as_root=(sudo)
  fi
  say "Installing ${missing[*]}"
  "${as_root[@]}" apt-get update -qq
  "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive \
    apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
}

# Builds in folder $1, with what else cmake --build is to be told. Prints the last line, or
# all where that fails.
compile() {
  local said
  said=$(cmake --build "$@" 2>&1) || { printf '%s\n' "$said" >&2; return 1; }
  tail -n 1 <<<"$said"
}

# Runs a function of the calling script where it can write folder $1 only, see
# scripts/confine. It knows all functions, but only the variables that are exported. After
# --strict it runs confined or not at all.
confined() {
  local strict=()
  [ "$1" != --strict ] || { strict=("$1"); shift; }
  local folder=$1
  shift
  # shellcheck disable=SC2046 # names of functions hold no blanks
  export -f $(compgen -A function)
  "$top/scripts/confine" "${strict[@]}" "$folder" bash -euo pipefail -c '"$@"' "$0" "$@"
}

# What the sender $1 writes when it is run on an empty folder without the options
# that need no privilege: only the kernel knows for sure what it may do here.
try_sender() {
  local trial
  trial=$(mktemp -d)
  mkdir "$trial/scan_dir"
  (cd "$trial" && exec -a "$trial/tarnwick-trial-$$" "$1" -v:1 -c:0 <<<'' 2>&1) || true
  rm -rf "$trial" "/var/run/tarnwick-trial-$$.lock" # stays after a failure, stale
}

# Says which privileges the sender $1 lacks here; status 1 if it lacks any.
check_privileges() {
  case $(try_sender "$1") in
    *'Error in setsockopt(SO_SNDBUF)'*)
      say "The network administration privilege (CAP_NET_ADMIN) is missing, with which the sender"
      say "forces a 16 MiB send buffer." ;;
    *'openclose: Cannot open file'*)
      say "The right to create a lock file under /var/run/ is missing." ;;
    *) return 0 ;;
  esac
  return 1
}
