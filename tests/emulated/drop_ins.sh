# shellcheck shell=bash
# The drop-ins of the manual and the samples for the broker, edited as their comments say.

readonly broker_socket=/run/mqtt/broker.socket

# drop_in NAME LINE...: for the service.
drop_in() {
  printf '%s\n' '[Service]' "${@:2}" >"$drop_ins/$1.conf"
}

works_on_the_loopback_interface() {
  drop_in loopback IPAddressDeny=any IPAddressAllow=localhost
  with_changed_service wait_until is_on_line
  rm $drop_ins/loopback.conf
}

works_without_privileges() {
  drop_in unprivileged CapabilityBoundingSet= AmbientCapabilities= SupplementaryGroups=
  with_changed_service wait_until is_on_line
  equal Unknown "$(quilctl get versionuboot)"
  rm $drop_ins/unprivileged.conf
}

uses_the_broker_on_a_socket() {
  mkdir -p /etc/systemd/system/mosquitto.service.d
  cp $examples/broker/mosquitto-socket.conf /etc/systemd/system/mosquitto.service.d/
  cp $examples/broker/tolquil-socket.conf $drop_ins/
  cp $examples/broker/{socket,limits}.conf /etc/mosquitto/conf.d/
  echo "host = $broker_socket" >>$configuration
  systemctl daemon-reload
  systemctl restart mosquitto
  with_changed_service wait_until is_on_line --host $broker_socket
}

# With the socket of the step before.
works_without_the_network() {
  drop_in no-network 'RestrictAddressFamilies=~AF_INET AF_INET6'
  with_changed_service wait_until is_on_line --host $broker_socket
  rm $drop_ins/no-network.conf
}

# Together with the socket, from whose sample two lines go.
uses_logins() {
  local user
  sed -i '/^per_listener_settings/d; /^allow_anonymous/d' /etc/mosquitto/conf.d/socket.conf
  cp $examples/broker/access.conf /etc/mosquitto/conf.d/
  cp $examples/broker/access.acl /etc/mosquitto/tolquil.acl
  : >/etc/mosquitto/tolquil.passwd
  for user in quil application; do
    mosquitto_passwd -b /etc/mosquitto/tolquil.passwd $user secret
  done
  chown root:mosquitto /etc/mosquitto/tolquil.{passwd,acl}
  chmod 640 /etc/mosquitto/tolquil.passwd
  echo secret >/run/password
  printf 'username = quil\npassword = secret\n' >>$configuration
  systemctl restart mosquitto
  with_changed_service wait_until is_on_line --host localhost --user application --password-file /run/password
}
