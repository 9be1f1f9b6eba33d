#!/bin/sh
# vin-mosquitto.sh [HOST [PORT]]: prints the VIN, or why there is none, at each message. Needs mosquitto-clients and quilctl.
export QUILCTL_HOST="${1:-localhost}" QUILCTL_PORT="${2:-1883}"

echo "no value yet"
# mosquitto_sub connects again by itself, but not the first time.
while :; do
  mosquitto_sub -h "$QUILCTL_HOST" -p "$QUILCTL_PORT" -F '%t %x' -t system/var/vehicleid -t system/presence/quil
  sleep 1
done | while read -r topic hex; do
  case $topic,$hex in
    system/presence/quil,6f66666c696e65) echo "daemon off line" ;;
    system/var/vehicleid,*)
      quilctl decode --json --count 1 "$topic" | sed 's/.*"fields":{}.*/no value yet/; s/.*"value":"\([^"]*\)".*/\1/' ;;
  esac
done
