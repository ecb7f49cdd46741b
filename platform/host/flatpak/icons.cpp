#include "flatpak/icons.h"

#include <fcntl.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <string>

#include "base/atomic_file.h"
#include "base/folder.h"
#include "c_handle.h"
#include "flatpak/helper.h"
#include "flatpak/layout.h"
#include "packages/removal.h"
#include "packages/safe_tree.h"
#include "set_paths.h"
#include "system_path.h"

namespace flatpak {

namespace {

using packages::Package;

constexpr std::chrono::minutes kLimit{1};

bool IsDrawn(const Package& package, const std::string& deployment) {
  std::string drawn;
  return ReadWholeFile(SystemPath(package.iconDir + "drawn"), drawn, Links::kRefuse, kMostNoted) && drawn == deployment;
}

void RemoveOthers(const std::vector<Package>& packages) {
  for (const std::filesystem::path& each : EntriesOf(SystemPath(set_paths::kFlatpakIcons))) {
    const std::string id = each.filename();
    const bool known = std::any_of(packages.begin(), packages.end(), [&id](const Package& package) {
      return package.source == packages::Source::kFlatpak && package.packageId == id;
    });
    if (!known) packages::RemoveTree(set_paths::kFlatpakIcons + ("/" + id), {}, set_paths::kFlatpakIcons);
  }
}

}  // namespace

void RenewIcons(const std::vector<Package>& packages) {
  std::vector<std::string> arguments{"icons"};
  for (const Package& package : packages) {
    if (package.source != packages::Source::kFlatpak) continue;
    const std::string deployment = DeploymentOf(package);
    if (!deployment.empty() && !IsDrawn(package, deployment)) {
      arguments.push_back(package.packageId);
      arguments.push_back(deployment);
    }
  }
  RemoveOthers(packages);
  if (arguments.size() == 1) return;
  const FdHandle nothing(open("/dev/null", O_RDONLY | O_CLOEXEC));
  Problem problem;
  RunHelper(std::move(arguments), nothing.get(), kLimit, {}, problem);
  packages::Complain(set_paths::kFlatpakIcons, problem.text);
}

}  // namespace flatpak
