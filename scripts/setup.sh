# Sourced by ./run, ./test and ./bench: installs what scripts/packages.txt lists and is missing, and builds.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

install_packages() {
  local wanted missing
  wanted=$(sed 's/#.*//' scripts/packages.txt)
  missing=$(for package in $wanted; do dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q 'install ok installed' || echo "$package"; done)
  [ -z "$missing" ] && return 0
  if [ "$(id -u)" != 0 ]; then
    echo "These packages are missing; install them as root, then try again:" $missing >&2
    exit 1
  fi
  echo "installing:" $missing
  export DEBIAN_FRONTEND=noninteractive
  apt-get update -qq
  # shellcheck disable=SC2086
  apt-get install -y -qq --no-install-recommends $missing >/tmp/halvo-apt.log 2>&1 || { tail -20 /tmp/halvo-apt.log >&2; exit 1; }
}

# build PRESET [TARGET...]
build() {
  local preset=$1
  shift
  [ -f "build/$preset/build.ninja" ] || cmake --preset "$preset" >"/tmp/halvo-cmake-$preset.log" || { tail -30 "/tmp/halvo-cmake-$preset.log" >&2; exit 1; }
  cmake --build "build/$preset" -- --quiet "$@"
}
