#include "SolutionMap.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstring>
#include <stdexcept>

#include "QUVA_XMLParser.h"
#include "c_handle.h"
#include "set_paths.h"
#include "system_path.h"

namespace QUVA {

namespace {

// Bytes that the parser takes at once.
constexpr off_t kLargestMap = INT_MAX;

// Regular files only: another kind could make the process wait for ever.
const char* ProblemOf(int fd) {
  struct stat info {};
  if (fd < 0 || fstat(fd, &info) != 0) return std::strerror(errno);
  if (S_ISDIR(info.st_mode)) return std::strerror(EISDIR);
  if (!S_ISREG(info.st_mode)) return "not a regular file";
  return info.st_size > kLargestMap ? "too large" : nullptr;
}

bool ReadText(std::string& text, std::string& problem) {
  const FdHandle fd(open(SystemPath(set_paths::kSolutionMap).c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
  if (const char* const found = ProblemOf(fd.get())) {
    problem = found;
    return false;
  }
  text.reserve(static_cast<size_t>(lseek(fd.get(), 0, SEEK_END)) + 1);
  lseek(fd.get(), 0, SEEK_SET);
  char block[1 << 16];
  ssize_t size;
  while ((size = read(fd.get(), block, sizeof block)) > 0) text.append(block, static_cast<size_t>(size));
  if (size < 0) problem = std::strerror(errno);
  return size == 0;
}

}  // namespace

bool ReadSolutionMap(QUVA_SolutionMap& map, std::string& problem) {
  problem.clear();
  std::string text;
  if (!ReadText(text, problem)) return false;
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
