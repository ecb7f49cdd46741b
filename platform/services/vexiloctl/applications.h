#pragma once
/// @file
/// The applications of the set, as the commands find, measure and show them.

#include <json/value.h>

#include <cstdint>
#include <string>
#include <vector>

#include "packages/package_store.h"

namespace vexiloctl {

/// What an application takes, in bytes as the file system counts them.
struct Sizes {
  int64_t program = 0;  ///< all of the package that is neither data nor cache
  int64_t data = 0;
  int64_t cache = 0;  ///< its own and the web engine's
  int64_t Total() const { return program + data + cache; }
  std::string problem{};  ///< why not all was measured; empty when it was
};
Sizes Measure(const packages::Package& package);

/// The caches alone.
struct Caches {
  int64_t bytes = 0;
  int kept = 0;  ///< entries that nothing of this platform removes: mount points, other owners'
};
Caches MeasureCaches(const packages::Package& package);

/// The installed packages that the names name, by package id or else by application id, each once. Throws Failure at
/// the first that is none.
std::vector<packages::Package> FindAll(const std::vector<std::string>& names);

/// "1.50MB"
std::string SizeText(int64_t bytes);

/// What the file system of the applications says, in bytes. Throws Failure.
struct Partition {
  int64_t total = 0;
  int64_t used = 0;
  int64_t available = 0;  ///< to users that are not privileged
};
Partition ReadPartition();

/// {"app_id": …, "package_id": …, "title": …}
Json::Value IdsOf(const packages::Package& package);
void AddSizes(const Sizes& sizes, Json::Value& object);

}  // namespace vexiloctl
