# Sourced by the other scripts: ensure_packages installs the Debian packages that are missing.
packages_build="g++ cmake ninja-build libcli11-dev nlohmann-json3-dev libpugixml-dev libssl-dev libboost1.81-dev \
  libboost-url1.81-dev libsqlitecpp-dev libsqlite3-dev libtomlplusplus-dev libsystemd-dev"
packages_test="libgtest-dev libgmock-dev udev umockdev python3 binutils valgrind groff-base pkg-config python3-pytest socat"
packages_static="clang clang-format clang-tidy cppcheck"
packages_fuzz="clang libclang-rt-14-dev"
packages_bench="libbenchmark-dev strace udev umockdev python3"

ensure_packages() {
  missing=""
  for package in "$@"; do
    dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q 'ok installed' || missing="$missing $package"
  done
  [ -z "$missing" ] && return 0
  if [ "$(id -u)" -eq 0 ]; then
    as_root=""
  elif command -v sudo >/dev/null && sudo -n true 2>/dev/null; then
    as_root="sudo"
  else
    echo "These Debian packages are missing; install them and try again:" >&2
    echo "  apt-get install$missing" >&2
    return 1
  fi
  echo "Installing$missing"
  $as_root apt-get update -qq
  # shellcheck disable=SC2086  # a list of words
  $as_root env DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends $missing >/dev/null
}
