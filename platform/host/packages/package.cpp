#include "packages/package.h"

#include <glib.h>

#include <algorithm>

#include "set_paths.h"

namespace packages {

bool IsId(const std::string& id) {
  static constexpr size_t kMaxIdBytes = 128;
  static constexpr std::string_view kMarks = "._-";
  return !id.empty() && id.size() <= kMaxIdBytes && g_ascii_isalnum(id.front()) &&
         std::all_of(id.begin(), id.end(),
                     [](char c) { return g_ascii_isalnum(c) || kMarks.find(c) != std::string_view::npos; });
}

std::string InPackages(std::string_view name) {
  return std::string(set_paths::kPackagesDir).append("/").append(name);
}

}  // namespace packages
