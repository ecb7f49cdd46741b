#include "packages/package.h"

#include "plain_text.h"
#include "set_paths.h"

namespace packages {

bool IsId(const std::string& id) {
  static constexpr size_t kMaxIdBytes = 128;
  return !id.empty() && id.size() <= kMaxIdBytes && IsLetterOrDigit(id.front()) && IsPlain(id);
}

std::string InPackages(std::string_view name) {
  return std::string(set_paths::kPackagesDir).append("/").append(name);
}

}  // namespace packages
