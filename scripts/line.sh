# shellcheck shell=bash disable=SC2154
# Sourced after lib.sh by the scripts that try the programs on a line: two networks of their
# own, "near" and "far", with a veth pair between them, 10.9.0.1 and 10.9.0.2.

near() { ip netns exec near "$@"; }
far() { ip netns exec far "$@"; }

make_line() {
  ip netns add near
  ip netns add far
  ip link add line netns near type veth peer name line netns far
  near sysctl -qw net.ipv6.conf.all.disable_ipv6=1 2>/dev/null || true
  ip -n near addr add 10.9.0.1/24 dev line
  ip -n far addr add 10.9.0.2/24 dev line
  ip -n far link set lo up
  ip -n near link set line up
  ip -n far link set line up
  ip -n near route add 224.0.0.0/4 dev line
  ip -n far route add 224.0.0.0/4 dev line
}

# Frames are dropped where they come in at the far end, at random.
set_loss() { # percent
  far nft -f - <<END
flush ruleset
table netdev line {
  chain loss {
    type filter hook ingress device "line" priority 0
    ip protocol udp numgen random mod 1000 < $(($1 * 10)) drop
  }
}
END
}

set_mtu() { # bytes, of both ends
  ip -n near link set line mtu "$1"
  ip -n far link set line mtu "$1"
}

# The programs by names of their own, since the lock file has the program's.
lay_out_programs() {
  ln -s "$build/tarnwick" tarnwick-line
  mkfifo keys
  exec 3<>keys # a standard input that never ends: its end is the escape key
}

# Starts the receiver with these options, on port $1; it is $receiver.
start_receiver() { # port, options...
  local port=$1
  shift
  ip netns exec far "$build/tarnwick-receive" --into in --listen "0.0.0.0:$port" --ignore-source \
    "$@" >received 2>&1 &
  receiver=$! # of the program itself, which a function in the background would hide
  until grep -qs listening received; do
    kill -0 $receiver 2>/dev/null || die "The receiver did not start: $(cat received)"
    sleep 0.05
  done
}

stop_receiver() { # [signal]
  kill "-${1:-TERM}" $receiver
  wait $receiver || [ -n "${1:-}" ]
}

# Counts the files in folder $1 that the sender sent from $PWD/out: sets `arrived` (whole),
# `named` (as not arrived, by the receiver's report), `neither`, and `wrong` (other bytes).
count_arrived() {
  local file name
  arrived=0 named=0 neither=0 wrong=0
  { "$build/tarnwick-receive" report --into in --missing --json || true; } >missing
  for file in "$1"/*; do
    name=${file##*/}
    if cmp -s "$file" "in/$name"; then
      arrived=$((arrived + 1))
    elif [ -e "in/$name" ]; then
      wrong=$((wrong + 1))
    elif grep -qF "\"path\":\"$PWD/out/$name\"" missing; then
      named=$((named + 1))
    else
      neither=$((neither + 1))
      say "neither arrived nor named: $name" >&2
    fi
  done
}
