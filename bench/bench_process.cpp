// bench_process PROGRAM MINIMAL: makes the data in the set root, runs the two programs in turn and prints the ratio of
// their median times.

#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "bench_data.h"
#include "set_paths.h"
#include "system_path.h"

namespace {

constexpr int kRuns = 11;

double Milliseconds(std::vector<std::string> arguments) {
  std::vector<char*> argv;
  for (std::string& argument : arguments) argv.push_back(argument.data());
  argv.push_back(nullptr);
  const auto start = std::chrono::steady_clock::now();
  pid_t child = 0;
  int status = -1;
  if (posix_spawn(&child, argv[0], nullptr, nullptr, argv.data(), environ) == 0) waitpid(child, &status, 0);
  const std::chrono::duration<double, std::milli> taken = std::chrono::steady_clock::now() - start;
  if (status != 0) {
    std::fprintf(stderr, "%s failed\n", argv[0]);
    std::exit(EXIT_FAILURE);
  }
  return taken.count();
}

double Median(std::vector<double> values) {
  std::nth_element(values.begin(), values.begin() + values.size() / 2, values.end());
  return values[values.size() / 2];
}

std::string Content(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) return EXIT_FAILURE;
  const std::string map = SystemPath(set_paths::kSolutionMap);
  const std::string result = SystemPath(set_paths::kQGuideResult);
  const std::string minimalResult = result + ".minimal";
  std::ofstream(map, std::ios::binary) << bench::SolutionMap(bench::kSolutions);
  if (!bench::FillDatabases(bench::kSolutions, bench::kTransitions)) return EXIT_FAILURE;

  const std::vector<std::string> program = {argv[1], "qguide"};
  const std::vector<std::string> minimal = {argv[2], map, SystemPath(set_paths::kInferenceDb),
                                            SystemPath(set_paths::kSolutionDb), minimalResult};
  std::vector<double> programTimes;
  std::vector<double> minimalTimes;
  for (int run = 0; run < kRuns; ++run) {
    minimalTimes.push_back(Milliseconds(minimal));
    programTimes.push_back(Milliseconds(program));
  }
  if (Content(result) != Content(minimalResult) || Content(result).empty()) {
    std::fprintf(stderr, "the two results differ\n");
    return EXIT_FAILURE;
  }
  std::printf("qguide, %d solutions, %d transitions: %.0f ms; minimal program: %.0f ms; ratio %.2f\n",
              bench::kSolutions, bench::kTransitions, Median(programTimes), Median(minimalTimes),
              Median(programTimes) / Median(minimalTimes));
  return EXIT_SUCCESS;
}
