# shellcheck shell=bash
# Ends of the daemon, wanted and unwanted.

stops_within_two_seconds() {
  local microseconds
  systemctl stop tolquil
  microseconds=$(($(property InactiveEnterTimestampMonotonic) - $(property ActiveExitTimestampMonotonic)))
  at_most stop_ms $((microseconds / 1000)) 2000
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

gave_up() {
  (($(count_logged "$gave_up") > $1))
}

# A retained record of the wrong size ends the daemon at each start.
gives_up_after_five_starts() {
  local starts='Starting tolquil.service' gave_up='Start request repeated too quickly' starts_before before
  systemctl reset-failed tolquil
  starts_before=$(count_logged "$starts")
  before=$(count_logged "$gave_up")
  cat >/run/scenario.json <<'END'
{"messages": [{"topic": "rt/system/version_hypervisor", "retain": true, "signals": [{"name": "version", "text": "short"}]}]}
END
  systemd-run --quiet --unit wrong-record ecusim play /run/scenario.json
  wait_until gave_up "$before"
  equal "failed $((starts_before + 5))" "$(property ActiveState) $(count_logged "$starts")"
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
