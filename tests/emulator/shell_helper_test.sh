# The shell helper that its users source: $1.
set -eu
. "$1"

start_sat_device --activated --quiet
test "$(readlink "$sat_port")" = "$sat_terminal"
test -c "$sat_terminal"
folder=$sat_folder
stop_sat_device
test ! -e "$folder"

if start_sat_device --no-such-option 2>"${TMPDIR:-/tmp}/sat-helper-$$"; then
  echo "a device that did not start was taken for one" >&2
  exit 1
fi
grep -q "no-such-option" "${TMPDIR:-/tmp}/sat-helper-$$"
rm "${TMPDIR:-/tmp}/sat-helper-$$"
