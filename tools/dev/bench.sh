# ./dev bench: Google Benchmark's sources, and the benchmarks on one core. Sourced by ./dev.
# shellcheck shell=bash

# The headers are a peer's, and so is the last one, of the native programs.
benchmarkPackages=(dpkg-dev g++ libboost-dev libintelrdfpmath-dev)

# Debian's binary package is for this system, but the benchmarks are Windows programs: so its source
# package. The archives are those that this machine takes its packages from, asked through a private
# configuration; the machine's own is left alone.
fetchBenchmark() {
  local private=$root/build/benchmark-source apt
  mkdir -p "$private/lists/partial" "$private/cache/archives/partial"
  # shellcheck disable=SC2016  # apt fills these in
  apt-get indextargets --format 'deb-src $(REPO_URI) $(RELEASE) $(COMPONENT)' \
    'Created-By: Packages' 'Origin: Debian' | sort -u > "$private/sources.list"
  apt=(apt-get -o "Dir::Etc::SourceList=$private/sources.list" -o Dir::Etc::SourceParts=-
    -o "Dir::State::Lists=$private/lists" -o "Dir::Cache=$private/cache"
    -o Acquire::Languages=none)

  "${apt[@]}" update
  (cd "$private" && "${apt[@]}" source --download-only benchmark)
  rm -rf build/benchmark
  dpkg-source --extract "$private"/benchmark_*.dsc build/benchmark
}

needBenchmark() {
  needPackages "${crossPackages[@]}" "${benchmarkPackages[@]}"
  [ -d build/benchmark ] || step "fetching the sources of Google Benchmark" fetchBenchmark
}

# One core for the programs and the Wine server: calls that pass through the server are then many
# times faster, and steady.
onOneCore() { taskset -c 0 "$@"; }

# Leaves the programs in `programs`: Windows programs, and native ones, whose peers are native.
buildBenchmarks() {
  local program
  needBenchmark
  build bench --target benches
  build host-bench --target benches
  programs=(build/bench/bin/*_bench.exe build/host-bench/bin/*_bench)
  for program in "${programs[@]}"; do
    [ -e "$program" ] || die "bench/CMakeLists.txt declares no benchmark such as $program"
  done
}

# Leaves in `command` what runs a program: Wine, unless it is native.
commandOf() {
  command=("$root/$1")
  [[ $1 != *.exe ]] || command=("$root/cmake/wine-run.sh" "${command[@]}")
}

benchUsage() {
  cat << 'TEXT'
usage: ./dev bench [--filter RE]

Builds the benchmarks and runs them on one core, each a hundred times; prints medians and, claim by
claim, how they relate. The results go to build/bench/results as JSON.

  --filter RE  run only the benchmarks whose name the regular expression finds. A claim needs what
               is measured and what it is held against: --filter 'mapError|mappingLoad'
TEXT
}

runBenchmarks() {
  local filter=. results=build/bench/results programs program command name failed=()
  case ${1:-} in
    --filter) filter=${2:?a regular expression must follow --filter} ;;
    --help | -h) benchUsage && return ;;
    '') ;;
    *) benchUsage >&2 && exit 2 ;;
  esac

  buildBenchmarks
  mkdir -p "$results"
  warmWine
  stopWine
  onOneCore cmake/wine-run.sh

  for program in "${programs[@]}"; do
    name=$(basename "$program" .exe)
    say "$name"
    commandOf "$program"
    (cd "$results" &&
      onOneCore "${command[@]}" "--benchmark_filter=$filter" --benchmark_color=false \
        "--benchmark_out=$name.json" --benchmark_out_format=json) ||
      failed+=("$name")
  done < /dev/null
  stopWine

  say "the results are in $results"
  [ ${#failed[@]} -eq 0 ] || die "benchmarks: ${failed[*]}"
}
