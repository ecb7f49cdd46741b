// bench_engine: whole runs of the engine on this machine, as a diagnosis begins them: no fact is known yet. Prints the
// median time, that of the slowest collectors, and what runs in the background cost.

#include <sys/resource.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "trevlin/collectors/collectors.h"
#include "trevlin/inference.h"

namespace {

constexpr int kRuns = 21;
constexpr size_t kSlowest = 5;
constexpr double kBackgroundPeriod = 300;  // seconds

double Median(std::vector<double> values) {
  std::nth_element(values.begin(), values.begin() + values.size() / 2, values.end());
  return values[values.size() / 2];
}

/// Processor time of this process so far, in seconds.
double ProcessorTime() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  const auto seconds = [](const timeval& time) {
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
  };
  return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

}  // namespace

int main() {
  std::vector<double> runs, processor;
  std::map<std::string, std::vector<double>> collectors;
  size_t rules = 0, decided = 0;
  for (int i = 0; i < kRuns; ++i) {
    trevlin::Inference inference(trevlin::MakeCollectors());
    if (!inference.HasRules()) return EXIT_FAILURE;
    const double before = ProcessorTime();
    trevlin::Outcome outcome = inference.Run(trevlin::kLongestRun);
    trevlin::Database database(trevlin::Database::Access::kReadWrite);
    std::vector<trevlin::Transition> changes;
    if (trevlin::RecordOutcome(database, outcome, changes) != TREVLIN_OK) return EXIT_FAILURE;
    processor.push_back(ProcessorTime() - before);
    runs.push_back(static_cast<double>(outcome.took.count()) / 1000);
    for (const trevlin::Reading& each : outcome.readings)
      collectors[each.collector].push_back(static_cast<double>(each.took.count()) / 1000);
    rules = inference.Rules().size();
    decided = outcome.issues.size();
  }
  std::printf("inference, %zu rules, %zu decided, %zu collectors: %.1f ms; in the background %.4f %% of a core\n",
              rules, decided, collectors.size(), Median(runs), 100 * Median(processor) / kBackgroundPeriod);
  std::vector<std::pair<double, std::string>> slowest;
  for (const auto& [name, times] : collectors) slowest.emplace_back(Median(times), name);
  std::sort(slowest.rbegin(), slowest.rend());
  for (size_t i = 0; i < std::min(kSlowest, slowest.size()); ++i)
    std::printf("  collector %s: %.1f ms\n", slowest[i].second.c_str(), slowest[i].first);
  return EXIT_SUCCESS;
}
