# shellcheck shell=bash
# What the scripts beside it and .ci/run share. Sourced, never run; changes no directory.

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)

say() { printf '%s\n' "$*" >&2; }

# The names given that are not installed as Debian packages, one a line; all of them where there
# is no dpkg.
missing_packages() {
  local package status
  for package in "$@"; do
    status=$(dpkg-query -W -f='${db:Status-Abbrev}' "$package" 2>/dev/null) || status=
    [[ $status == ii* ]] || printf '%s\n' "$package"
  done
}

# Whether what we use of a package is there all the same: a command, a header that the compiler
# finds, or a file by its full name. For machines where Debian's packages are not to be had.
provided() {
  case $1 in
    *.h | *.hpp) "${CXX:-c++}" -x c++ -fsyntax-only - <<<"#include <$1>" 2>/dev/null ;;
    /*) [[ -e $1 ]] ;;
    *) command -v "$1" >/dev/null ;;
  esac
}

# need PACKAGE=USE...: sees to it that every PACKAGE is installed. Where it cannot install, it goes
# on if each USE (see provided) is there, and otherwise ends the script, naming what is not.
need() {
  local uses=("$@") missing use sudo=() lacking=()
  mapfile -t missing < <(missing_packages "${uses[@]%%=*}")
  ((${#missing[@]})) || return 0

  ((EUID == 0)) || sudo=(sudo)
  if command -v apt-get >/dev/null && { ((EUID == 0)) || command -v sudo >/dev/null; }; then
    say "Installing: ${missing[*]}"
    # A stale source of packages that are not ours is no reason to stop: the installation tells.
    "${sudo[@]}" apt-get -q update >&2 || say "apt-get update failed; trying the lists at hand"
    "${sudo[@]}" env DEBIAN_FRONTEND=noninteractive \
      apt-get -q -o DPkg::Lock::Timeout=300 install -y --no-install-recommends "${missing[@]}" >&2
    return
  fi

  for use in "${uses[@]}"; do
    provided "${use#*=}" || lacking+=("${use#*=} (on Debian: ${use%%=*})")
  done
  ((${#lacking[@]})) || return 0
  say "Cannot install packages here. Please install these, then try again:"
  printf '  %s\n' "${lacking[@]}" >&2
  exit 1
}

# What building takes, along with any further PACKAGE=USE given.
need_to_build() {
  need g++=c++ cmake=cmake ninja-build=ninja libcli11-dev=CLI/CLI.hpp \
    nlohmann-json3-dev=nlohmann/json.hpp "$@"
}

need_to_test() {
  need_to_build libgtest-dev=gtest/gtest.h binutils=readelf
}

# configured PRESET [TESTS]: whether the preset's build folder can be built as it is, with
# TASKWARDEN_TESTS at the given value if there is one. Changes to a CMakeLists.txt are ninja's
# business; it knows nothing of the presets.
configured() {
  local folder=$root/build/$1
  [[ -f $folder/build.ninja && -f $folder/CMakeCache.txt ]] &&
    [[ ! $root/CMakePresets.json -nt $folder/build.ninja ]] &&
    { [[ -z ${2-} ]] || grep -q "^TASKWARDEN_TESTS:BOOL=$2\$" "$folder/CMakeCache.txt"; }
}

# build_with_tests PRESET: configures where that is needed, and builds. TASKWARDEN_CMAKE_ARGS, if set,
# holds more arguments for configuring, separated by blanks.
build_with_tests() {
  local cmake_args
  read -ra cmake_args <<<"${TASKWARDEN_CMAKE_ARGS-}"
  if ((${#cmake_args[@]})) || ! configured "$1" ON; then
    cmake --preset "$1" -DTASKWARDEN_TESTS=ON "${cmake_args[@]}"
  fi
  cmake --build --preset "$1"
}

# build_apart FOLDER OPTION...: builds the release without tests in build/FOLDER, configured with the
# given cmake options and those of TASKWARDEN_CMAKE_ARGS.
build_apart() {
  local folder=$root/build/$1 cmake_args
  shift
  read -ra cmake_args <<<"${TASKWARDEN_CMAKE_ARGS-}"
  cmake -S "$root" --preset release -B "$folder" -DTASKWARDEN_TESTS=OFF "$@" "${cmake_args[@]}"
  cmake --build "$folder"
}

# apart FLAG... COMMAND...: runs COMMAND in namespaces of its own (unshare(1)) where that is allowed,
# and as it is where not.
apart() {
  local flags=()
  while [[ $1 == --* ]]; do
    flags+=("$1") && shift
  done
  ! unshare "${flags[@]}" true 2>/dev/null || set -- unshare "${flags[@]}" "$@"
  "$@"
}

# describe_machine COMMAND: the sentence above the figures that COMMAND prints.
describe_machine() {
  printf "Measured by \`%s\` on Linux %s, %s cores of %s.\n\n" "$1" "$(uname -r)" "$(nproc)" \
    "$(sed -n 's/^model name[[:space:]]*: //p' /proc/cpuinfo | sort -u | head -n 1)"
}

# Goes before a command that sanitizers watch: their shadow memory stands at fixed addresses, which a
# kernel that spreads its mappings widely may hand out first.
fixed_addresses=()
if setarch -R true 2>/dev/null; then
  # shellcheck disable=SC2034 # used by who sources this
  fixed_addresses=(setarch -R)
fi
