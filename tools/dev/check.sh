# ./dev check: everything that is verified beside the tests. Each check is a function check_<name>
# that prints what is wrong and fails; it runs as a script of its own. All of them run, whatever the
# others found. Sourced by ./dev.
# shellcheck shell=bash

. tools/dev/bench.sh
. tools/dev/surface.sh

checks=(format scripts paths headers surface asan tsan fuzz debug tidy bench)

# Files that are, or by the next commit will be, the project's.
ownFiles() { git ls-files --cached --others --exclude-standard -- "$@"; }

check_format() {
  ownFiles '*.h' '*.cpp' | xargs clang-format-14 --dry-run -Werror
}

check_scripts() {
  # ./dev brings in what lies in tools/dev.
  ownFiles dev .ci/run 'cmake/*.sh' | xargs shellcheck --external-sources --check-sourced
}

# No file knows where it lies on this machine, or whose home is here.
check_paths() {
  local patterns=(-e "$root/")
  [ "${HOME:-/}" = / ] || patterns+=(-e "$HOME/")
  ! git grep --untracked --line-number -I --fixed-strings "${patterns[@]}" -- .
}

# A public header compiles alone, without a warning, and brings no platform header along.
check_headers() {
  local header compiler dependencies=build/header.d broken=0
  for header in include/*.h; do
    for compiler in x86_64-w64-mingw32-g++-posix g++; do
      echo "#include \"${header#include/}\"" |
        "$compiler" -std=c++20 -Wall -Wextra -Wpedantic -Werror -Iinclude -Icore \
          -fsyntax-only -MD -MF "$dependencies" -x c++ - || broken=1
      ! grep -niE '/(windows|windef|winnt)\.h' "$dependencies" || broken=1
    done
  done
  return "$broken"
}

check_surface() {
  local broken=0
  build mingw-release --target osse
  compareExports || broken=1
  compareImports || broken=1
  compareVersion || broken=1
  return "$broken"
}

check_asan() {
  build host-asan
  ctest --preset host-asan -j "$jobs"
}

# Only what threads share is worth the ThreadSanitizer's time.
check_tsan() {
  build host-tsan
  ctest --preset host-tsan -j "$jobs" -R 'Latch|Atomic'
}

# The same inputs each time; a long check instead goes on from the inputs that the last one found.
check_fuzz() {
  local fuzzer name corpus
  build host-fuzz
  mkdir -p build/fuzz/artifacts
  for fuzzer in build/host-fuzz/bin/*_fuzz; do
    name=$(basename "$fuzzer")
    local arguments=(-seed=1 -runs=50000)
    if [ "$long" = yes ]; then
      corpus=build/fuzz/corpus/$name
      mkdir -p "$corpus"
      arguments=(-max_total_time=300 "$corpus")
    fi
    echo "$name ${arguments[*]}"
    "$fuzzer" -artifact_prefix=build/fuzz/artifacts/ "${arguments[@]}"
  done
}

# The release build leaves assertions out.
check_debug() {
  build mingw-debug
  warmWine
  ctest --preset mingw-debug -j "$jobs"
}

# Clang's own compile commands; GCC's name headers that it does not find.
check_tidy() {
  local sources
  sources="^$(sed 's/[^A-Za-z0-9_/]/\\&/g' <<< "$root")/(?!build/|tests/|bench/|examples/)"
  configure mingw-clang
  run-clang-tidy-14 -quiet -j "$jobs" -p build/mingw-clang "$sources" 2>&1 |
    sed 's/\x1b\[[0-9;]*m//g; /warnings\? generated\.$/d; /^clang-tidy-14 /d'
}

# Every benchmark does its work, once, and every claim finds its two. Whether a claim is met is for
# ./dev bench, on a machine that has nothing else to do.
check_bench() {
  local programs program output=build/bench/once.txt broken=0
  buildBenchmarks
  warmWine
  for program in "${programs[@]}"; do
    cmake/wine-run.sh "$program" --benchmark_repetitions=1 > "$output" &&
      grep -q 'measured : peer' "$output" && ! grep -q 'not measured' "$output" && continue
    echo "$program:"
    cat "$output"
    broken=1
  done
  return "$broken"
}

# runCheck <name>: one line of result; what a failed check printed follows it.
runCheck() {
  local name=$1 log=$logs/check-$1.log start=$SECONDS
  printf '==> check %-8s ' "$name"
  attempt "$log" "check_$name"
  if [ "$status" -eq 0 ]; then
    printf 'passed, %d s\n' $((SECONDS - start))
  else
    printf 'FAILED, %d s; %s says:\n' $((SECONDS - start)) "$log"
    tail -n 60 "$log" | sed 's/^/    /'
    failed+=("$name")
  fi
}

runChecks() {
  local chosen=() failed=() name long=no
  for name in "$@"; do
    if [ "$name" = --long ]; then
      long=yes
    elif [[ " ${checks[*]} " == *" $name "* ]]; then
      chosen+=("$name")
    else
      die "there is no check $name; there are ${checks[*]}"
    fi
  done
  [ ${#chosen[@]} -gt 0 ] || chosen=("${checks[@]}")

  needPackages "${crossPackages[@]}" "${checkPackages[@]}"
  for name in "${chosen[@]}"; do
    runCheck "$name"
  done

  [ ${#failed[@]} -eq 0 ] || say "failed: ${failed[*]}"
  printf 'checks: %d passed, %d failed\n' $((${#chosen[@]} - ${#failed[@]})) ${#failed[@]}
  [ ${#failed[@]} -eq 0 ]
}
