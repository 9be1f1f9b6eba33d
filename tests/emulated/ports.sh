# shellcheck shell=bash
# The queueing ports are character devices of virtio, whose other ends the host connects and disconnects.

top_version_is() {
  [[ $(quilctl get topversion --raw) == "$1" ]]
}

# The far side sends its initial values when it comes.
reconnect_far_side() {
  ask_host disconnect
  ask_host connect
  wait_until top_version_is TV-2026.11.0
}

has_no_top_version() {
  [[ -z $(quilctl get topversion --raw) ]]
}

reopens_a_port_that_hangs_up() {
  local away back
  away=$(count_logged 'receive port away')
  back=$(count_logged 'receive port is back')
  ask_host disconnect
  wait_until status_text_is '*receive port away since ??:??'
  quilctl status | grep '^service .*receive port away since'
  ask_host connect
  wait_until status_text_is 'on line'
  equal $((away + 1)) "$(count_logged 'receive port away')"
  equal $((back + 1)) "$(count_logged 'receive port is back')"
  quilctl param set 0xa003=hex:01020304
}

# The driver lets the device go and takes it again: the nodes vanish and others appear.
survives_nodes_that_vanish() {
  local device driver=/sys/bus/virtio/drivers/virtio_console
  device=$(basename "$driver"/virtio*)
  echo "$device" >$driver/unbind
  wait_until status_text_is '*receive port away since ??:??'
  echo "$device" >$driver/bind
  reconnect_far_side
  quilctl param set 0xa003=hex:0a0b0c0d
}

# The top version belongs to the far side, so a restarted daemon does not have it until the far side sends it again.
starts_without_the_far_side() {
  ask_host disconnect
  wait_until status_text_is '*receive port away since ??:??'
  restart
  wait_until status_text_is 'on line; receive port away since ??:??'
  wait_until has_no_top_version
  ask_host connect
  wait_until top_version_is TV-2026.11.0
}

waits_for_ports_that_appear_late() {
  systemctl stop tolquil
  modprobe -r virtio_console
  systemctl reset-failed tolquil
  systemctl start --no-block tolquil
  wait_until eval 'systemctl list-jobs | grep -q telematics_param_receive.device'
  systemctl list-jobs | grep tolquil.service | grep waiting
  modprobe virtio_console
  wait_until systemctl is-active --quiet tolquil
  reconnect_far_side
}

# The drop-in of the manual for ports with other paths.
uses_other_ports() {
  mkdir -p /dev/other
  cp --archive "$(readlink -f /dev/qport/telematics_param_receive)" /dev/other/receive
  cp --archive "$(readlink -f /dev/qport/telematics_param_send)" /dev/other/send
  printf '[Service]\nDeviceAllow=/dev/other/receive r\nDeviceAllow=/dev/other/send w\n' >$drop_ins/other-ports.conf
  printf 'qpread = /dev/other/receive\nqpwrite = /dev/other/send\n' >>$configuration
  with_changed_service wait_until has_no_top_version
  reconnect_far_side
  quilctl param set 0xa002=Asia/Seoul
  sed -i '/^qp/d' $configuration
  rm $drop_ins/other-ports.conf
  with_changed_service wait_until is_on_line
}
