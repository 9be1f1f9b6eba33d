#!/bin/sh
# vin-quilctl.sh [HOST [PORT]]: prints the VIN, or why there is none, at each change. Needs quilctl.
export QUILCTL_HOST="${1:-localhost}" QUILCTL_PORT="${2:-1883}"

show() {
  quilctl status >/dev/null 2>&1
  case $? in
    0) text=$(quilctl get vehicleid 2>/dev/null) || text="no value yet" ;;
    6) text="daemon off line" ;;
    *) text="no connection" ;;
  esac
  [ "$text" = "$shown" ] || echo "$text"
  shown=$text
}

# Each line of quilctl watch is a change: of the VIN, of the daemon or of the connection. It connects again by itself, but
# not the first time.
while :; do
  quilctl watch vehicleid 2>&1
  sleep 1
done | while read -r _; do show; done
