# shellcheck shell=bash
# What the steps share. A step is a function that runs with `set -e`; its output is shown if it fails.

readonly drop_ins=/etc/systemd/system/tolquil.service.d
readonly configuration=/etc/morn/tolquil.conf
readonly examples=/usr/share/doc/tolquil/examples

# The seconds since the unit was switched on. The shell's own SECONDS ends in 2038.
uptime_seconds() {
  local uptime
  read -r uptime _ </proc/uptime
  echo "${uptime%.*}"
}

# wait_until COMMAND...: repeats the command until it succeeds. Emulated on a loaded machine, this may take minutes.
wait_until() {
  local end=$(($(uptime_seconds) + 600))
  until "$@" >/dev/null 2>&1; do
    if (($(uptime_seconds) >= end)); then
      echo "never: $*"
      "$@"
      return
    fi
    sleep 1
  done
}

# equal EXPECTED ACTUAL
equal() {
  if [[ $1 != "$2" ]]; then
    printf 'expected: %s\nactual:   %s\n' "$1" "$2"
    return 1
  fi
}

# at_most NAME FIGURE LIMIT: the figure appears on the console, too.
at_most() {
  echo "figure $1 $2, at most $3" | tee /dev/ttyAMA0
  (($2 <= $3))
}

property() {
  systemctl show --property "$1" --value tolquil
}

# Emulated on a loaded machine, the default limit of a few seconds is too short.
quilctl() {
  command quilctl --timeout 120 "$@"
}

is_on_line() {
  quilctl "$@" status | grep 'on line'
}

has_all_variables() {
  quilctl status | grep -q '\([0-9]*\) of \1 have a value'
}

status_text_is() {
  # shellcheck disable=SC2053 # a pattern
  [[ $(property StatusText) == $1 ]]
}

has_restarted() {
  [[ $(property MainPID) != 0 && $(property MainPID) != "$1" ]] && systemctl is-active --quiet tolquil
}

# How often the journal contains a text.
count_logged() {
  journalctl --sync
  journalctl --quiet --output cat | grep -c -- "$1" || true
}

# Restarts the service without counting towards its limit of starts.
restart() {
  systemctl reset-failed tolquil
  systemctl restart tolquil
}

# with_changed_service COMMAND...: the command must succeed after the service has started with its present drop-ins.
with_changed_service() {
  systemctl daemon-reload
  restart
  "$@"
}

# ask_host WHAT: the host connects the far side of the ports, with its initial values, or disconnects it.
ask_host() {
  echo "ask $1" >/dev/ttyAMA0
}

# run_steps STEP...: until one fails, which show_failure then explains. The last line says that all have passed. Not for a
# condition: there, `set -e` has no effect.
run_steps() {
  local step begin code
  for step in "$@"; do
    begin=$(uptime_seconds)
    (
      set -eu
      "$step"
    ) >/run/step.log 2>&1
    code=$?
    if ((code != 0)); then
      echo "step $step failed with $code after $(($(uptime_seconds) - begin))"
      cat /run/step.log
      show_failure
      return 1
    fi
    echo "step $step ok $(($(uptime_seconds) - begin))"
  done
  echo "unit passed"
}
