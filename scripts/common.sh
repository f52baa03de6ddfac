# What the scripts share: the Debian packages they need, and stages that are quiet when they succeed.
# Sourced by bash; `root` is the project's folder.
set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
logs=$root/build/logs

BUILD_PACKAGES=(g++ cmake ninja-build)
TEST_PACKAGES=(
  "${BUILD_PACKAGES[@]}" python3
  libgtest-dev libgmock-dev libbenchmark-dev python3-pytest python3-pytest-xdist # tests and benchmarks
  clang clang-format clang-tidy cppcheck mandoc # checks of source and manual
  srecord ipmitool ipmiutil xxd                 # second opinions on files, the cookbook's other tools
  g++-aarch64-linux-gnu qemu-user-static        # a processor without I/O ports
)
# The whole-machine test: a machine, and other tools to compare with.
SYSTEM_PACKAGES=(qemu-system-x86 busybox-static cpio ipmitool freeipmi-tools openipmi)
PACKAGE_PACKAGES=("${BUILD_PACKAGES[@]}" build-essential debhelper lintian)

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

# need PACKAGE...: says what is missing, and installs it; says nothing when nothing is.
need() {
  local missing
  mapfile -t missing < <(missing_packages "$@" | sort -u)
  [[ ${#missing[@]} -gt 0 ]] || return 0
  if [[ $(id -u) -ne 0 ]]; then
    echo "These Debian packages are missing: ${missing[*]}" >&2
    echo "Run this as root, or: apt-get install --no-install-recommends ${missing[*]}" >&2
    exit 1
  fi
  echo "These Debian packages are missing, and installed now: ${missing[*]}"
  stage "install ${#missing[@]} packages" install_packages "${missing[@]}"
}

# try_packages PACKAGE...: as install_packages, but succeeds whatever came of it.
try_packages() {
  install_packages "$@" || true
}

# wish PACKAGE...: as need, but what cannot be installed is left out, with one line; under CI it is needed.
wish() {
  local missing
  mapfile -t missing < <(missing_packages "$@" | sort -u)
  [[ ${#missing[@]} -gt 0 ]] || return 0
  if [[ ${CI:-} == true ]]; then
    need "$@"
    return
  fi
  if [[ $(id -u) -eq 0 ]]; then
    echo "These Debian packages are missing, and installed now: ${missing[*]}"
    stage "try ${#missing[@]} packages" try_packages "${missing[@]}"
    mapfile -t missing < <(missing_packages "${missing[@]}")
  fi
  [[ ${#missing[@]} -eq 0 ]] || echo "cannot install ${missing[*]}: what needs them is left out"
}

# how_far LOG: how many tests have ended, and which run; how many steps of a build; else the last line.
how_far() {
  awk '/^ *Start +[0-9]+: / { running[$3] }
    /^ *[0-9]+\/[0-9]+ Test +#/ { ended = $1; delete running[$4] }
    NF { last = $0 }
    END {
      for (name in running) names = names " " name
      if (match(last, /^\[[0-9]+\/[0-9]+\]/)) last = substr(last, 2, RLENGTH - 2) " steps"
      print ended names ? ended " tests" (names ? ", now" names : "") : last
    }' "$1" | tr -d '[:cntrl:]'
}

# show_life LABEL LOG: until it is ended, shows how long a stage runs and how far it is: on a terminal in
# one line, elsewhere in a line every half minute. Its status is 1 when it has shown something.
show_life() {
  local every=30 shown=0 pause='' line
  [[ ! -t 1 ]] || every=1
  trap '[[ -z $pause ]] || kill "$pause"; exit "$shown"' TERM
  while kill -0 $$ 2>/dev/null; do
    sleep "$every" >/dev/null 2>&1 &
    pause=$!
    wait "$pause"
    line="$((SECONDS - began)) s: $(how_far "$2")"
    if [[ -t 1 ]]; then
      line=$(printf '%-32s %s' "$1" "$line")
      printf '\r\033[K%s' "${line:0:79}"
    else
      printf '\n  %s' "${line:0:100}"
    fi
    shown=1
  done
}

# stage LABEL COMMAND...: one line when the command succeeds; else its whole output, and the end.
stage() {
  local label=$1 log=$logs/${1//[^a-zA-Z0-9]/-}.log began=$SECONDS result=ok life anew='\n'
  shift
  [[ ! -t 1 ]] || anew='\r\033[K'
  mkdir -p "$logs"
  : >"$log"
  printf '%-32s ' "$label"
  show_life "$label" "$log" &
  life=$!
  "$@" >"$log" 2>&1 </dev/null || result=FAILED
  kill "$life"
  wait "$life" || [[ $? -ne 1 ]] || printf '%b%-32s ' "$anew" "$label"
  echo "$result, $((SECONDS - began)) s"
  [[ $result != ok ]] || return 0
  cat "$log"
  echo "$label failed; its output stands above and in $log" >&2
  exit 1
}

# build FOLDER CMAKE-OPTION...: configures and builds everything there.
build() {
  local folder=$1
  shift
  cmake -S "$root" -B "$folder" -G Ninja "$@" && ninja -C "$folder"
}

# copy_source FOLDER: the source as it is now, without what was built.
copy_source() {
  tar -C "$root" --exclude-vcs --exclude='./build*' --exclude=./.cache --exclude=__pycache__ -c . | tar -C "$1" -x
}
