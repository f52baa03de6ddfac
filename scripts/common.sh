# What the scripts share: the Debian packages they need, and stages that are quiet when they succeed.
# Sourced by bash; `root` is the project's folder.
set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
logs=$root/build/logs

BUILD_PACKAGES=(g++ cmake ninja-build)
TEST_PACKAGES=(
  "${BUILD_PACKAGES[@]}" python3
  libgtest-dev libgmock-dev libbenchmark-dev    # tests and benchmarks
  clang clang-format clang-tidy cppcheck mandoc # checks of source and manual
  srecord                                       # a second opinion on S-records
  g++-aarch64-linux-gnu qemu-user-static        # a processor without I/O ports
)
# The whole-machine test: a machine, and other tools to compare with.
SYSTEM_PACKAGES=(qemu-system-x86 busybox-static cpio ipmitool freeipmi-tools openipmi)
PACKAGE_PACKAGES=("${BUILD_PACKAGES[@]}" dpkg-dev debhelper lintian)

# The packages among the arguments that are not installed, a line each.
missing_packages() {
  local package
  for package in "$@"; do
    [[ $(dpkg-query -W -f '${db:Status-Status}' "$package" 2>/dev/null) == installed ]] ||
      echo "$package"
  done
}

install_packages() {
  export DEBIAN_FRONTEND=noninteractive RUNLEVEL=1 # nothing asks, no service starts
  apt-get update -q && apt-get install -y -q --no-install-recommends "$@"
}

# need PACKAGE...: installs what is missing; says nothing when nothing is.
need() {
  local missing
  mapfile -t missing < <(missing_packages "$@")
  [[ ${#missing[@]} -gt 0 ]] || return 0
  if [[ $(id -u) -ne 0 ]]; then
    echo "These Debian packages are missing: ${missing[*]}" >&2
    echo "Run this as root, or: apt-get install --no-install-recommends ${missing[*]}" >&2
    exit 1
  fi
  stage "install ${#missing[@]} packages" install_packages "${missing[@]}"
}

# wish PACKAGE...: as need, but what cannot be installed is left out, with one line; under CI it is needed.
wish() {
  local missing
  mapfile -t missing < <(missing_packages "$@")
  [[ ${#missing[@]} -gt 0 ]] || return 0
  if [[ ${CI:-} == true ]]; then
    need "$@"
  elif [[ $(id -u) -ne 0 ]] || ! install_packages "${missing[@]}" >/dev/null 2>&1; then
    echo "cannot install ${missing[*]}: what needs them is left out"
  fi
}

# stage LABEL COMMAND...: one line when the command succeeds; else its whole output, and the end.
stage() {
  local label=$1 log=$logs/${1//[^a-zA-Z0-9]/-}.log began=$SECONDS
  shift
  mkdir -p "$logs"
  printf '%-32s ' "$label"
  if "$@" >"$log" 2>&1 </dev/null; then
    echo "ok, $((SECONDS - began)) s"
  else
    echo "FAILED, $((SECONDS - began)) s"
    cat "$log"
    echo "$label failed; its output stands above and in $log" >&2
    exit 1
  fi
}

# build FOLDER CMAKE-OPTION...: configures and builds everything there.
build() {
  local folder=$1
  shift
  cmake -S "$root" -B "$folder" -G Ninja "$@" && ninja --quiet -C "$folder"
}

# copy_source FOLDER: the source as it is now, without what was built.
copy_source() {
  tar -C "$root" --exclude-vcs --exclude='./build*' --exclude=./.cache --exclude=__pycache__ -c . | tar -C "$1" -x
}
