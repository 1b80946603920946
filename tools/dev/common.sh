# What the commands of ./dev share: telling, installing, building, Wine. Sourced with the project's
# root as the working folder; every output goes below build/.
# shellcheck shell=bash

root=$PWD
jobs=$(nproc)
logs=build/logs

# What a command installs when it is missing.
crossPackages=(cmake ninja-build ccache g++-mingw-w64-x86-64-posix googletest wine wine64
  libcli11-dev nlohmann-json3-dev)
hostPackages=(cmake ninja-build ccache g++ googletest nlohmann-json3-dev)
checkPackages=(g++ clang-14 clang-format-14 clang-tidy-14 libclang-rt-14-dev protobuf-compiler python3
  shellcheck)
browserPackages=(chromium)

# Compilations that two builds have in common are done once. The folder of the build does not count
# as a difference: nothing that is compiled depends on it.
export CMAKE_C_COMPILER_LAUNCHER=ccache CMAKE_CXX_COMPILER_LAUNCHER=ccache
export CCACHE_DIR=${CCACHE_DIR:-$root/build/ccache} CCACHE_NOHASHDIR=1

say() { printf '==> %s\n' "$*"; }

die() {
  printf '==> failed: %s\n' "$*" >&2
  exit 1
}

# attempt <log> <command...>: runs the command as a script of its own, which stops at its first
# failure, and leaves its exit status in `status`.
attempt() {
  local log=$1
  shift
  mkdir -p "$(dirname "$log")"
  set +e
  (
    set -e
    "$@"
  ) < /dev/null > "$log" 2>&1
  status=$?
  set -e
}

# step <title> <command...>: says the title and runs the command silently; a failure shows the end
# of what it printed and ends the script.
step() {
  local title=$1 log="$logs/${1//[^A-Za-z0-9]/-}.log"
  shift
  say "$title"
  attempt "$log" "$@"
  [ "$status" -eq 0 ] && return
  tail -n 40 "$log" >&2
  die "$title; the whole output is in $log"
}

asRoot() {
  if [ "$(id -u)" -eq 0 ]; then
    "$@"
  else
    sudo "$@"
  fi
}

aptInstall() {
  asRoot env DEBIAN_FRONTEND=noninteractive apt-get install -y --no-install-recommends "$@"
}

# The package lists are fetched only when they turn out to be missing or too old.
installPackages() {
  aptInstall "$@" || {
    asRoot apt-get update
    aptInstall "$@"
  }
}

isInstalled() {
  [ "$(dpkg-query -W -f='${db:Status-Status}' "$1" 2> /dev/null)" = installed ]
}

needPackages() {
  local package missing=()
  for package in "$@"; do
    isInstalled "$package" || missing+=("$package")
  done
  [ ${#missing[@]} -eq 0 ] && return
  [ "$(id -u)" -eq 0 ] || command -v sudo > /dev/null ||
    die "these packages are missing, and there is no sudo to install them: ${missing[*]}"
  step "installing ${missing[*]}" installPackages "${missing[@]}"
}

# Configured once; CMake itself sees to changes of its files, but not to those of the presets.
configure() {
  local preset=$1 stamp=build/$1/.configured
  [ "$stamp" -nt CMakePresets.json ] && return
  step "configuring $preset" cmake --preset "$preset"
  touch "$stamp"
}

# build <preset> [arguments of cmake --build]
build() {
  local preset=$1
  shift
  configure "$preset"
  step "building $preset" cmake --build "build/$preset" -j "$jobs" "$@"
}

warmWine() {
  [ -e build/wineprefix.created ] || say "creating the Wine prefix, build/wineprefix"
  cmake/wine-run.sh || die "Wine did not start"
}

stopWine() {
  WINEPREFIX=$root/build/wineprefix wineserver -k || true
  WINEPREFIX=$root/build/wineprefix wineserver -w
}

# testUnderWine <preset> [ctest arguments]: all tests of a preset. Where addresses cannot but be
# randomised (wine-run.sh tells more), one program in some ten thousand ends at once and has printed
# nothing, whereas a test that runs prints its name first. If all that failed is of this kind, it is
# told and runs once more.
testUnderWine() {
  local preset=$1 record=build/$1/Testing/Temporary
  shift
  ctest --preset "$preset" -j "$jobs" "$@" < /dev/null && return
  [ -s "$record/LastTestsFailed.log" ] && ! anyRanAndFailed "$record/LastTest.log" || return 1
  say "Wine did not start $(wc -l < "$record/LastTestsFailed.log") of the programs; once more"
  ctest --preset "$preset" -j "$jobs" --rerun-failed < /dev/null
}

# Whether a test of CTest's record has failed that printed something.
anyRanAndFailed() {
  awk '
    /^Output:$/ { inside = 1; lines = 0; next }
    /^<end of output>$/ { inside = 0 }
    inside && !/^-+$/ { lines++ }
    /^Test Failed\.$/ && lines > 0 { found = 1 }
    END { exit !found }
  ' "$1"
}
