#!/usr/bin/env bash
# What scripts/confine promises, and that its canary notices when it doesn't hold:
# confine_test.sh CONFINE FOLDER. Status 77: it can't be had here.
set -uo pipefail
confine=$1
beside=$2/outside
home=$beside/in
rm -rf "$beside"
mkdir -p "$home"
cd "$home" || exit 1
"$confine" --strict "$home" true 2>/dev/null || {
  printf '%s\n' "confine: Skipped" "no right to make namespaces" "[  SKIPPED ] confine (0 ms)"
  exit 77
}
unset TARNWICK_CONFINED # this may run inside of one: what follows is one more, in it

failures=0
expect() { # what, expected, seen
  [ "$2" = "$3" ] || { echo "$1: expected '$2', got '$3'"; failures=$((failures + 1)); }
}
status_of() { "$@" >"$beside/said" 2>&1; echo $?; }

expect "The command's status" 7 "$(status_of "$confine" "$home" sh -c 'exit 7')"
expect "Standard input" hello "$(echo hello | "$confine" "$home" cat)"

touch "$beside/file" /tmp/outside-$$
"$confine" "$home" sh -c "echo inside >kept; rm -f ../file; echo >../new; echo >/etc/new-$$
  ls /tmp /run /dev/shm >seen; readlink /proc/self/ns/* >>seen" 2>/dev/null
expect "In the folder" inside "$(cat kept)"
expect "Beside it" "file in said" "$(ls "$beside" | xargs)"
expect "In /etc" "" "$(ls /etc | grep new-$$)"
expect "Of the outside" "" "$(grep -E "outside-$$|$(readlink /proc/self/ns/{mnt,pid,net} | xargs | tr ' ' '|')" seen)"
rm -f /tmp/outside-$$

# a mount beside the folder, the folder below /tmp with a blank in its name, a wrong word
# that it is confined already
[ "$(id -u)" -ne 0 ] || unshare --mount sh -c "mkdir ../mount && mount -t tmpfs tmpfs ../mount && '$confine' . touch ../mount/new 2>said
  ls ../mount >>said"
[ "$(id -u)" -ne 0 ] || expect "A mount beside it" "touch: cannot touch '../mount/new': Read-only file system" "$(cat said)"
below=$(mktemp -d "/tmp/a b XXXXXX")
"$confine" "$below" touch "$below/kept"
expect "In a folder below /tmp" kept "$(ls "$below")"
rm -rf "$below"
TARNWICK_CONFINED=1 "$confine" "$home" touch "$beside/new" 2>/dev/null
"$confine" "$home" "$confine" "$home" touch nested
expect "Told that it is confined" nested "$(cd "$beside" && ls new in/nested 2>/dev/null | xargs -n 1 basename)"

# without the package of ip(8)
ip() { return 127; }
export -f ip
expect "Its network" "" "$("$confine" "$home" bash -c 'echo >/dev/udp/127.0.0.1/9' 2>&1)"
unset -f ip

# its end is the end of all inside
for signal in INT TERM KILL; do
  env --default-signal=INT "$confine" "$home" flock lock sh -c 'touch started; setsid sleep 1000' 2>/dev/null &
  ended=$!
  disown
  until [ -e started ]; do sleep 0.05; done
  rm started
  kill -$signal $ended
  expect "Ended by $signal" 0 "$(status_of flock -w 20 lock true)"
done

# broken on purpose by another "mount": nothing is run
refused() { # what, the words that tell why
  export -f mount
  expect "$1" 125 "$(status_of "$confine" "$home" touch ran)"
  expect "$1" "$2" "$(grep -o "$2" "$beside/said")"
  expect "$1" "" "$(ls ran 2>/dev/null)"
  unset -f mount
}
export BESIDE=$beside
mount() { # opens again what was shut
  command mount "$@" || return
  case $* in *fd/8*) ;; *) return ;; esac
  local point=$BESIDE
  until command mount -c -o remount,bind,rw "$point" 2>/dev/null; do point=$(dirname "$point"); done
}
refused "Opened again" "the confinement leaves $beside open for writing"
mount() { # leaves open what it was told to shut or to cover
  case $* in *remount* | *"-o ro"*) ;; *) command mount "$@" ;; esac
}
refused "Left open" "can't be made read-only"

cd / && rm -rf "$beside"
[ $failures -eq 0 ]
