#include "flatpak/helper.h"

#include <cstdlib>
#include <string_view>

#include "set_paths.h"

namespace flatpak {

HelperEnd RunHelper(std::vector<std::string> arguments, int input, std::chrono::milliseconds limit,
                    const std::function<void(int)>& onProgress, Problem& problem,
                    const std::function<void(int64_t bytes)>& onUnused) {
  const auto onLine = [&](const std::string& line) {
    constexpr std::string_view kProgress = "progress ", kUnused = "unused ";
    if (line.starts_with(kProgress) && onProgress) onProgress(std::atoi(line.c_str() + kProgress.size()));
    if (line.starts_with(kUnused) && onUnused) onUnused(std::atoll(line.c_str() + kUnused.size()));
  };
  return ::RunHelper(set_paths::kFlatpakHelper, std::move(arguments), input, limit, onLine, problem);
}

}  // namespace flatpak
