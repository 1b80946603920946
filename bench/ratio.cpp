// The main of every program of claims, and the reporter that holds the claims against the medians.
#include "ratio.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <string>
#include <thread>
#include <vector>

namespace oss::bench {
namespace {

// Nanoseconds of one operation: the median of all runs of a benchmark, and the bounds that hold the
// true median with a confidence of 95 %.
struct Times {
  std::string name;
  double low;
  double median;
  double high;
};

// A benchmark that does several operations in a turn says so by its items.
double nanosecondsOf(const benchmark::BenchmarkReporter::Run& run) {
  const auto items = run.counters.find("items_per_second");
  return items != run.counters.end() ? 1e9 / items->second.value : run.GetAdjustedRealTime();
}

// The bounds are samples themselves: how many lie below the true median is binomial, n / 2 with a
// standard deviation of sqrt(n) / 2.
Times timesOf(const std::string& name, std::vector<double> samples) {
  std::sort(samples.begin(), samples.end());
  const size_t last = samples.size() - 1;
  const size_t middle = last / 2;
  const auto spread = static_cast<size_t>(std::sqrt(static_cast<double>(samples.size())));
  return {name, samples[middle - std::min(middle, spread)], samples[middle],
          samples[std::min(last, middle + spread)]};
}

class ClaimReporter : public benchmark::BenchmarkReporter {
 public:
  bool ReportContext(const Context&) override { return true; }

  // Called twice for each benchmark: with all of its repetitions, and with what the framework makes
  // of them, which goes to the file of results only.
  void ReportRuns(const std::vector<Run>& runs) override {
    std::vector<double> samples;
    for (const Run& run : runs) {
      if (run.error_occurred) {
        std::printf("%s: %s\n", run.benchmark_name().c_str(), run.error_message.c_str());
        failed_ = true;
        return;
      }
      if (run.run_type == Run::RT_Iteration) samples.push_back(nanosecondsOf(run));
    }
    if (!samples.empty())
      times_.push_back(timesOf(runs.front().run_name.function_name, std::move(samples)));
  }

  void Finalize() override {
    std::printf("%-44s %10s   %s\n", "ns per operation", "median", "95 %");
    std::sort(times_.begin(), times_.end(),
              [](const Times& a, const Times& b) { return a.name < b.name; });
    for (const Times& times : times_)
      std::printf("%-44s %10.2f   %.2f..%.2f\n", times.name.c_str(), times.median, times.low,
                  times.high);

    std::printf("\n%-9s %8s %18s %6s %-7s  %s\n", "claim", "result", "95 %", "reach", "",
                "measured : peer");
    for (const Claim& claim : kClaims) print(claim);
    std::fflush(stdout);
  }

  // A benchmark could not do what it measures.
  bool hasFailed() const { return failed_; }

 private:
  const Times* find(const char* name) const {
    const auto found = std::find_if(times_.begin(), times_.end(),
                                    [&](const Times& times) { return times.name == name; });
    return found != times_.end() ? &*found : nullptr;
  }

  void print(const Claim& claim) const {
    const Times* const measured = find(claim.measured);
    const Times* const peer = find(claim.peer);
    // Left out by the caller's filter, or misspelt here.
    if (measured == nullptr || peer == nullptr)
      std::printf("%-52s", "not measured");
    else if (claim.reach.nanoseconds != 0.0)
      printRow("ns over", claim.reach.nanoseconds, measured->median - peer->median,
               measured->low - peer->high, measured->high - peer->low);
    else
      printRow("times", claim.reach.times, measured->median / peer->median,
               measured->low / peer->high, measured->high / peer->low);
    std::printf("  %s : %s\n", claim.measured, claim.peer);
  }

  static void printRow(const char* unit, double reach, double result, double least, double most) {
    const char* const verdict = result <= reach ? "met" : least <= reach ? "in noise" : "MISSED";
    std::printf("%-9s %8.3f %8.3f..%-8.3f %6.2f %-7s", verdict, result, least, most, reach, unit);
  }

  std::vector<Times> times_;
  bool failed_ = false;
};

int run(int argc, char** argv) {
  // Defaults that the caller's own arguments override, for they come later.
  std::string defaults[] = {"--benchmark_repetitions=101",
                            "--benchmark_enable_random_interleaving=true"};
  std::vector<char*> arguments = {argv[0]};
  for (std::string& argument : defaults) arguments.push_back(argument.data());
  arguments.insert(arguments.end(), argv + 1, argv + argc);
  auto count = static_cast<int>(arguments.size());
  arguments.push_back(nullptr);

  benchmark::Initialize(&count, arguments.data());
  if (benchmark::ReportUnrecognizedArguments(count, arguments.data())) return 2;
  ClaimReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  return reporter.hasFailed() ? 1 : 0;
}

}  // namespace

void beginTimeSlice(const benchmark::State&) {
  std::this_thread::sleep_for(std::chrono::milliseconds(1));
}

}  // namespace oss::bench

int main(int argc, char** argv) { return oss::bench::run(argc, argv); }
