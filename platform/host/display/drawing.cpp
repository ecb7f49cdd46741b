#include "display/drawing.h"

#include <fcntl.h>

#include "base/helper.h"
#include "c_handle.h"
#include "set_paths.h"

namespace display {

std::optional<bool> IsDrawnBySoftware(const std::vector<std::string>& nodes) {
  constexpr std::chrono::milliseconds kLimit{1500};
  std::optional<bool> told;
  const auto onLine = [&told](const std::string& line) { told = line == "software yes"; };
  const FdHandle nothing(open("/dev/null", O_RDONLY | O_CLOEXEC));
  HelperProblem problem;
  if (RunHelper(set_paths::kGraphicsHelper, nodes, nothing.get(), kLimit, onLine, problem) != HelperEnd::kDone)
    return std::nullopt;
  return told;
}

}  // namespace display
