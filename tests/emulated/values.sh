# shellcheck shell=bash
# Values on all their ways: from the bus, the boot loader and the ports, and to the ports.

becomes_active() {
  ask_host connect
  wait_until systemctl is-active --quiet tolquil
  wait_until is_on_line
}

publishes_all_variables() {
  systemd-run --quiet --unit ecusim --property DynamicUser=yes ecusim play
  ecusim scenario >/run/expected.json
  quilctl list --expect /run/expected.json
  has_all_variables
}

# tests/emulated/boot_loader.txt is at 0x900000 of the unit's memory.
reads_the_boot_loader() {
  equal r12 "$(quilctl get versionuboot)"
}

writes_parameters_both_ways() {
  equal UNIT-4711 "$(quilctl param get 0xa001 --raw)"
  quilctl param set 0xa002=Asia/Tokyo 0xa009=TV-2027.1
  equal Asia/Tokyo "$(quilctl param get 0xa002 --raw)"
  equal TV-2027.1 "$(quilctl get topversion --raw)"
}

writes_secrets_both_ways() {
  equal 3f5c0091d42e77a80bc61de2f9648035 "$(quilctl secstore get master | od -An -vtx1 | tr -d ' \n')"
  printf 'new remote secret' | quilctl secstore set remote -
  wait_until remote_secret_is 'new remote secret'
}

remote_secret_is() {
  [[ $(quilctl secstore get remote) == "$1" ]]
}

# The broker of the unit is that of its fleet, too.
sends_its_values_to_the_fleet() {
  local vin message
  vin=$(quilctl get vehicleid)
  echo 'host = localhost' >>/etc/morn/tolquil-uplink.conf
  systemctl start tolquil-uplink
  message=$(mosquitto_sub -C 1 -W 600 -t fleet/+/var/vehicleid)
  echo "$message" | grep -F "\"value\":\"$vin\""
  systemctl stop tolquil-uplink
}
