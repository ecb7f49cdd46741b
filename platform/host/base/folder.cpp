#include "base/folder.h"

#include <algorithm>
#include <system_error>

std::vector<std::filesystem::path> EntriesOf(const std::filesystem::path& folder) {
  std::vector<std::filesystem::path> entries;
  std::error_code error;
  for (std::filesystem::directory_iterator each(folder, error), end; !error && each != end; each.increment(error))
    entries.push_back(each->path());
  std::ranges::sort(entries, {}, &std::filesystem::path::native);
  return entries;
}
