# Shell helper: a SAT device for a CI job. Source it, then:
#
#   start_sat_device --activated --fault "on any chance=5 do nak 1"
#   echo "the till opens $sat_port"
#   ...
#   stop_sat_device
#
# SAT_EMULATOR names the program if it is not on the PATH. Works in any POSIX shell.

# Starts the emulator with the given options and returns once its port, $sat_port, can be opened.
start_sat_device() {
  # A short name: the library takes ports of up to 31 characters.
  sat_folder=$(mktemp -d /tmp/sat.XXXXXX) || return 1
  sat_port=$sat_folder/sat0
  mkfifo "$sat_folder/ready" || return 1
  "${SAT_EMULATOR:-sat-emulator}" --link "$sat_port" "$@" >"$sat_folder/ready" 2>"$sat_folder/log" &
  sat_pid=$!
  # The line comes once the port can be opened; an early end gives an end of file.
  if ! read -r sat_terminal <"$sat_folder/ready"; then
    cat "$sat_folder/log" >&2
    stop_sat_device
    return 1
  fi
}

# Ends the emulator that was started, by its process id. Its exit status is that of this function.
stop_sat_device() {
  kill "$sat_pid" 2>/dev/null
  sat_status=0
  wait "$sat_pid" || sat_status=$?
  rm -rf "$sat_folder"
  return "$sat_status"
}
