# shellcheck shell=bash
# The broker goes away and comes back.

survives_a_restart_of_the_broker() {
  local before
  reconnect_far_side
  before=$(property MainPID)
  systemctl restart mosquitto
  wait_until is_on_line
  wait_until has_all_variables
  equal "$before" "$(property MainPID)"
}

starts_without_the_broker() {
  local code=0
  systemctl stop mosquitto
  restart
  systemctl is-active --quiet tolquil
  quilctl status || code=$?
  equal 7 "$code"
  systemctl start mosquitto
  wait_until is_on_line
}
