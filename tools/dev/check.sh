# ./dev check: everything that is verified beside the tests. Each check is a function check_<name>
# that prints what is wrong and fails; it runs as a script of its own. All of them run, whatever the
# others found. Sourced by ./dev.
# shellcheck shell=bash

. tools/dev/bench.sh
. tools/dev/surface.sh

checks=(format scripts paths headers surface traces traps report queues bench asan tsan fuzz decimal debug
  tidy)

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

# What osse exports of a real trace is what other programs read: the packets decode without a rest
# and name what was traced, the JSON parses.
check_traces() {
  local dump='build\traces\dump' traces=build/traces form
  build mingw-release --target osse_program --target traced
  warmWine
  rm -rf "$traces"
  mkdir -p "$traces"
  cmake/wine-run.sh build/mingw-release/bin/traced.exe README.md "$dump"
  for form in perfetto chrome folded; do
    cmake/wine-run.sh build/mingw-release/bin/osse.exe trace export "--$form" "$dump" \
      -o "build\\traces\\$form"
  done

  protoc --decode_raw < "$traces/perfetto" > "$traces/perfetto.txt"
  grep -F '2: "OSSHFile::read"' "$traces/perfetto.txt"
  grep -F '6: "ECF_FILE_EOF"' "$traces/perfetto.txt"
  python3 -m json.tool "$traces/chrome" > "$traces/chrome.txt"
  grep -F '"name": "OSSHFile::read"' "$traces/chrome.txt"
  grep -E '^process [0-9]+;thread [0-9]+;OSSHFile::read [0-9]+$' "$traces/folded"

  ends 0 cmake/wine-run.sh build/mingw-release/bin/osse.exe trace export --help
  ends 1 cmake/wine-run.sh build/mingw-release/bin/osse.exe trace format README.md
  ends 2 cmake/wine-run.sh build/mingw-release/bin/osse.exe trace export "$dump"
}

# Four processes that all put and get: what ./dev test does with few messages, with many.
check_queues() {
  local messages=200000
  [ "$long" = no ] || messages=2000000
  build mingw-release --target osse_tests
  warmWine
  OSSE_QUEUE_MESSAGES=$messages cmake/wine-run.sh build/mingw-release/bin/osse_tests.exe \
    --gtest_filter=QueueTest.NothingIsLostDoubledMixedOrReorderedBetweenFourProcesses
}

# A trap file of a real fault: its JSON parses, and Wine's debugger, which wine-run.sh keeps away from
# programs that crash, finds the fault's registers and modules in the minidump.
check_traps() {
  local trap='build\traps\trap' traps=build/traps rip
  local osse=(cmake/wine-run.sh build/mingw-release/bin/osse.exe)
  build mingw-release --target osse_program --target trapfaults
  warmWine
  rm -rf "$traps"
  mkdir -p "$traps"
  ends 77 cmake/wine-run.sh build/mingw-release/bin/trapfaults.exe illegal "$trap"
  "${osse[@]}" trap show --json -o "$trap.json" "$trap"
  "${osse[@]}" trap export --minidump "$trap.dmp" "$trap"

  python3 -m json.tool "$traps/trap.json" > "$traps/trap.txt"
  grep -F '"name": "illegal instruction"' "$traps/trap.txt"
  rip=$(sed -n 's/^ *"rip": "0x\(.*\)",$/\1/p' "$traps/trap.txt")
  OSSE_DLLOVERRIDES='winedbg.exe=b' cmake/wine-run.sh winedbg "$trap.dmp" < /dev/null \
    > "$traps/winedbg.txt" 2>&1
  grep -iF "rip:$rip" "$traps/winedbg.txt"
  grep -F 'trapfaults was running on' "$traps/winedbg.txt"

  ends 0 "${osse[@]}" trap export --help
  ends 1 "${osse[@]}" trap show README.md
  ends 2 "${osse[@]}" trap export "$trap"
}

# A browser shows the XML report that faults have left with the style sheet that ships, row by row.
# A browser that can no longer apply a style sheet fails the check: then one that can is needed.
check_report() {
  local folder=$root/build/report fault row
  build mingw-release --target tour
  needPackages "${browserPackages[@]}"
  warmWine
  rm -rf "$folder"
  mkdir -p "$folder"
  cp share/kt5trapfile.xsl "$folder/"
  for fault in null-write division-by-zero illegal-instruction; do
    cmake/wine-run.sh build/mingw-release/bin/tour.exe --fault "$fault" 'build\report' || true
  done
  shownRows "$folder" tour.traps.xml > "$folder/rows.txt"
  grep -F 'fault|process|code|address' "$folder/rows.txt"
  for row in null-write:0xC0000005 division-by-zero:0xC0000094 illegal-instruction:0xC000001D; do
    grep -E "^${row%:*}\|[0-9]+\|${row#*:}\|0x[0-9A-F]{16}\$" "$folder/rows.txt"
  done

  # Rows that differ in their attributes, the order of these, and texts.
  {
    head -n 2 "$folder/tour.traps.xml"
    printf '%s' '<traps><trap a="1" b="2"/><trap b="3" a="4">text</trap><trap c="5" a="6"/></traps>'
  } > "$folder/mixed.xml"
  shownRows "$folder" mixed.xml > "$folder/mixed.txt"
  grep 'trapa|b|c|$' "$folder/mixed.txt"
  for row in '1|2||' '4|3||text' '6||5|'; do grep -xF "$row" "$folder/mixed.txt"; done
}

# What a browser shows of a report's tables: one line a row, cells separated by bars.
# shownRows <folder> <file in it>
shownRows() {
  timeout 120 chromium --headless --no-sandbox --disable-gpu --allow-file-access-from-files \
    --user-data-dir="$1/profile" --dump-dom "file://$1/$2" > "$1/page.html"
  tr -d '\n' < "$1/page.html" | sed 's,</tr>,\n,g; s,</t[hd]><t[hd]>,|,g; s,<[^>]*>,,g'
}

# ends <exit code> <command...>
ends() {
  local wanted=$1 code=0
  shift
  "$@" || code=$?
  [ "$code" -eq "$wanted" ] || die "exit code $code instead of $wanted: $*"
}

check_asan() {
  build host-asan
  ctest --preset host-asan -j "$jobs"
}

# Only what threads share is worth the ThreadSanitizer's time.
check_tsan() {
  build host-tsan
  ctest --preset host-tsan -j "$jobs" -R 'Latch|Atomic|Ring|Rambo|Queue'
}

# The same inputs each time; a long check instead goes on from the inputs that the last one found.
# What a fuzzer prints is kept until it ends: several run at once.
fuzzOne() {
  local fuzzer=$1 long=$2 name output status arguments=(-seed=1 -runs=50000)
  name=$(basename "$fuzzer")
  if [ "$long" = yes ]; then
    mkdir -p "build/fuzz/corpus/$name"
    arguments=(-max_total_time=300 "build/fuzz/corpus/$name")
  fi
  output=$("$fuzzer" -artifact_prefix=build/fuzz/artifacts/ "${arguments[@]}" 2>&1)
  status=$?
  printf '%s %s\n%s\n' "$name" "${arguments[*]}" "$output"
  return "$status"
}

check_fuzz() {
  build host-fuzz
  mkdir -p build/fuzz/artifacts
  export -f fuzzOne
  printf '%s\n' build/host-fuzz/bin/*_fuzz |
    xargs -P "$jobs" -I{} bash -c 'fuzzOne "$@"' fuzz {} "$long"
}

# Decimal numbers against Python's decimal module: texts under every rounding, and encodings. The
# sample that the tests hold is what the module says today.
check_decimal() {
  local oracle=tests/numeric/decimal_oracle.py count=20000
  [ "$long" = no ] || count=1000000
  build host-asan --target decimal_answers
  python3 "$oracle" --sample | diff tests/numeric/decimal_sample.def -
  python3 "$oracle" build/host-asan/bin/decimal_answers "$count"
}

# The release build leaves assertions out.
check_debug() {
  build mingw-debug
  warmWine
  testUnderWine mingw-debug
}

# The tests that have a larger size than ./dev test has the time for. Part of a long check only.
check_large() {
  build mingw-release --target osse_tests
  warmWine
  OSSE_LARGE_TREE=1 cmake/wine-run.sh build/mingw-release/bin/osse_tests.exe \
    --gtest_filter='LargeTree.*'
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
  local programs program command output=$root/build/bench/once.txt broken=0
  buildBenchmarks
  warmWine
  mkdir -p build/bench
  for program in "${programs[@]}"; do
    commandOf "$program"
    (cd build/bench && "${command[@]}" --benchmark_repetitions=1) > "$output" &&
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
      checks+=(large)
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
