#include "SolutionMap.h"

#include <stdexcept>

#include "QUVA_XMLParser.h"
#include "SafeFile.h"
#include "set_paths.h"

namespace QUVA {

namespace {

// Bytes; one of all the codes that are in use has some ten thousand.
constexpr size_t kLargestMap = 16 << 20;

}  // namespace

bool ReadSolutionMap(QUVA_SolutionMap& map, std::string& problem) {
  problem.clear();
  std::string text;
  if (!ReadRegularFile(set_paths::kSolutionMap, kLargestMap, true, text, problem)) return false;
  try {
    if (!TCXMLParser().Parse(text, map)) problem = "it is not well-formed";
  } catch (const std::out_of_range&) {
    problem = "it has a sol_val before any solution";
  }
  if (!problem.empty()) return false;
  const std::string count = std::to_string(map.solutions.size());
  if (map.count != map.solutions.size())
    problem = "it declares " + std::to_string(map.count) + " solutions and has " + count +
              (map.solutions.size() < map.count ? ", as one does that was cut short" : "");
  else if (map.solutions.empty())
    problem = "it has no solutions";
  return true;
}

}  // namespace QUVA
