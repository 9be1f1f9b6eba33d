# shellcheck shell=bash
# The limits on memory, in kB, on the program's size, in 1000 bytes, and on its threads.

readonly max_resident=4608     # peak
readonly max_private_dirty=819
readonly max_program=300
readonly max_threads=5

keeps_to_its_limits() {
  local process
  process=/proc/$(property MainPID)
  at_most resident "$(awk '/^VmHWM:/ { print $2 }' "$process/status")" $max_resident
  at_most private_dirty "$(awk '/^Private_Dirty:/ { print $2 }' "$process/smaps_rollup")" $max_private_dirty
  at_most program "$((($(stat -c %s /usr/sbin/tolquil) + 999) / 1000))" $max_program
  at_most threads "$(awk '/^Threads:/ { print $2 }' "$process/status")" $max_threads
}
