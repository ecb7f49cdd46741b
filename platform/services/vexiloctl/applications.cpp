#include "applications.h"

#include <sys/statvfs.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "Texts.h"
#include "command.h"
#include "set_paths.h"
#include "system_path.h"

namespace vexiloctl {

namespace {

/// Adds what went wrong to the problem; a folder that is not there is no problem.
int64_t BytesOf(const packages::TreeResult& tree, const std::string& folder, std::string& problem) {
  if (tree.error != 0 && tree.error != ENOENT && problem.empty()) problem = folder + ": " + std::strerror(tree.error);
  return tree.bytes;
}

}  // namespace

Sizes Measure(const packages::Package& package) {
  Sizes sizes;
  const int64_t own = BytesOf(MeasureWhole(package), FolderOf(package), sizes.problem);
  const int64_t ownCache = BytesOf(MeasureCache(package), CacheFolderOf(package), sizes.problem);
  sizes.data = BytesOf(MeasureData(package), DataFolderOf(package), sizes.problem);
  sizes.cache = ownCache + BytesOf(MeasureWebCache(package), WebCacheFolderOf(package), sizes.problem);
  // The application may be writing meanwhile.
  sizes.program = std::max<int64_t>(0, own - ownCache - sizes.data);
  return sizes;
}

Caches MeasureCaches(const packages::Package& package) {
  const packages::TreeResult own = MeasureCache(package);
  const packages::TreeResult web = MeasureWebCache(package);
  return {own.bytes + web.bytes, own.kept + web.kept};
}

std::vector<packages::Package> FindAll(const std::vector<std::string>& names) {
  const std::vector<packages::Package> installed = packages::List();
  const auto find = [&installed](std::string packages::Package::*id, const std::string& name) {
    return std::find_if(installed.begin(), installed.end(), [&](const auto& each) { return each.*id == name; });
  };
  std::vector<packages::Package> found;
  for (const std::string& name : names) {
    auto package = find(&packages::Package::packageId, name);
    if (package == installed.end()) package = find(&packages::Package::appId, name);
    if (package == installed.end())
      throw Failure("\"" + Visible(name) + "\": no such package or application in " + set_paths::kPackagesDir);
    const auto isSame = [&package](const auto& each) { return each.packageId == package->packageId; };
    if (std::none_of(found.begin(), found.end(), isSame)) found.push_back(*package);
  }
  return found;
}

std::string SizeText(int64_t bytes) {
  return QUVA::ConvertBytes(bytes);
}

Partition ReadPartition() {
  struct statvfs info {};
  if (statvfs(SystemPath(set_paths::kUserPartition).c_str(), &info) != 0)
    throw Failure(std::string(set_paths::kUserPartition) + ": " + std::strerror(errno));
  const auto bytes = [&info](fsblkcnt_t blocks) { return static_cast<int64_t>(blocks * info.f_frsize); };
  return {bytes(info.f_blocks), bytes(info.f_blocks - info.f_bfree), bytes(info.f_bavail)};
}

Json::Value IdsOf(const packages::Package& package) {
  Json::Value object;
  object["app_id"] = package.appId;
  object["package_id"] = package.packageId;
  object["title"] = package.title;
  return object;
}

void AddSizes(const Sizes& sizes, Json::Value& object) {
  object["program_bytes"] = Json::Int64(sizes.program);
  object["data_bytes"] = Json::Int64(sizes.data);
  object["cache_bytes"] = Json::Int64(sizes.cache);
  object["total_bytes"] = Json::Int64(sizes.Total());
}

}  // namespace vexiloctl
