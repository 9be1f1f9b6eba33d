# shellcheck shell=bash
# Ends of the daemon, wanted and unwanted.

stops_within_two_seconds() {
  local begin end
  begin=$(date +%s%N)
  systemctl stop tolquil
  end=$(date +%s%N)
  echo "stopped in $(((end - begin) / 1000000)) ms"
  ((end - begin < 2000000000))
  equal success "$(property Result)"
  systemctl start tolquil
}

# after_signal SIGNAL RESULT: the service manager restarts the daemon, having seen RESULT in the journal.
after_signal() {
  local before failures
  systemctl reset-failed tolquil
  before=$(property MainPID)
  failures=$(count_logged "tolquil.service: Failed with result '$2'")
  kill "-$1" "$before"
  wait_until has_restarted "$before"
  equal $((failures + 1)) "$(count_logged "tolquil.service: Failed with result '$2'")"
  wait_until is_on_line
}

is_restarted_after_kill() {
  after_signal KILL signal
}

is_restarted_after_a_crash() {
  after_signal SEGV signal
}

is_restarted_after_a_freeze() {
  after_signal STOP watchdog
}

result_is() {
  [[ $(property Result) == "$1" ]]
}

# A retained record of the wrong size ends the daemon at each start.
gives_up_after_five_starts() {
  systemctl reset-failed tolquil
  cat >/run/scenario.json <<'END'
{"messages": [{"topic": "rt/system/version_hypervisor", "retain": true, "signals": [{"name": "version", "text": "short"}]}]}
END
  systemd-run --quiet --unit wrong-record ecusim play /run/scenario.json
  wait_until result_is start-limit-hit
  systemctl stop wrong-record
  mosquitto_pub -r -n -t rt/system/version_hypervisor
  restart
  wait_until is_on_line
}

stays_down_with_a_faulty_configuration() {
  systemctl reset-failed tolquil
  echo 'port = none' >>$configuration
  if systemctl restart tolquil; then
    return 1
  fi
  equal failed/exit-code/1/0 "$(property ActiveState)/$(property Result)/$(property ExecMainStatus)/$(property NRestarts)"
  sed -i '/^port = none/d' $configuration
  restart
  wait_until is_on_line
}

# A refused call that ends the daemon, as it does in the second run, is in the journal.
was_refused_nothing() {
  if journalctl --quiet --boot | grep 'status=31/SYS\|type=1326'; then
    return 1
  fi
}
