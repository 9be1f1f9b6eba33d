#!/bin/sh
# vin-mosquitto.sh [HOST [PORT]]: prints the VIN, or why there is none, at each change. Needs mosquitto-clients and quilctl.
export QUILCTL_HOST="${1:-localhost}" QUILCTL_PORT="${2:-1883}"

show() {
  [ "$1" = "$shown" ] || echo "$1"
  shown=$1
}

vin="no value yet"
show "$vin"
# mosquitto_sub connects again by itself, but not the first time.
while :; do
  mosquitto_sub -h "$QUILCTL_HOST" -p "$QUILCTL_PORT" -F '%t %x' -t system/var/vehicleid -t system/presence/quil
  sleep 1
done | while read -r topic hex; do
  case $topic,$hex in
    system/presence/quil,6f66666c696e65) show "daemon off line" ;;
    system/presence/quil,*) show "$vin" ;;
    *)
      vin=$(quilctl decode --json --count 1 "$topic" | sed 's/.*"fields":{}.*/no value yet/; s/.*"value":"\([^"]*\)".*/\1/')
      show "$vin" ;;
  esac
done
