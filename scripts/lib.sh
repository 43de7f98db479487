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
    command -v sudo >/dev/null || die "Missing: ${missing[*]}. Install them as root, or install sudo."
    as_root=(sudo)
  fi
  say "Installing ${missing[*]}"
  "${as_root[@]}" apt-get update -qq
  "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive \
    apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
}

# Ends with an explanation if the sender $1 can't do here what it must: it is
# run on an empty folder, since only the kernel knows for sure.
check_privileges() {
  local trial said
  trial=$(mktemp -d)
  mkdir "$trial/scan_dir"
  said=$(cd "$trial" && exec -a "$trial/tarnwick-trial-$$" "$1" -v:1 -c:0 <<<'' 2>&1) || true
  rm -rf "$trial" "/var/run/tarnwick-trial-$$.lock" # stays after a failure, stale
  case $said in
    *'Error in setsockopt(SO_SNDBUF)'*)
      say "The network administration privilege (CAP_NET_ADMIN) is missing: the sender forces a"
      say "16 MiB send buffer with it." ;;
    *'openclose: Cannot open file'*)
      say "The right to create a lock file under /var/run/ is missing." ;;
    *) return 0 ;;
  esac
  say "Run this as root (sudo $0), or give the program what it needs:"
  say "  sudo setcap cap_net_admin,cap_dac_override+ep $1"
  return 1
}
