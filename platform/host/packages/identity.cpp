#include "packages/identity.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <map>
#include <set>
#include <sstream>

#include "base/atomic_file.h"
#include "base/file_lock.h"
#include "flatpak/layout.h"
#include "packages/removal.h"
#include "set_names.h"
#include "set_paths.h"
#include "system_path.h"

namespace packages {

namespace {

constexpr std::chrono::seconds kLongestLock{1};
constexpr char kFixed[] = "fixed";

/// Who has each id: a folder by its name, or a Flatpak by its id after kFlatpakMark, which no name begins with.
using Owners = std::map<std::string, std::string>;
constexpr char kFlatpakMark = '@';

std::string OwnerOf(const Package& package) {
  return package.source == Source::kFlatpak ? kFlatpakMark + package.packageId : package.packageId;
}

/// Why a package cannot have an id that is another one's.
std::string Taken(const Package& package, const std::string& id, const std::string& owner) {
  const bool isFlatpak = owner.front() == kFlatpakMark;
  if (package.source == Source::kFlatpak) return "is not listed: " + InPackages(owner) + " has its id";
  const std::string whose = isFlatpak     ? "that of the Flatpak " + owner.substr(1)
                            : id == owner ? "the package id of another"
                                          : "that of " + owner;
  return id == package.packageId ? "is not used: its package id is " + whose
                                 : "manifest.json: \"app_id\" " + id + " is " + whose;
}

/// What the set shipped: a line for each package, its id, then kFixed where it stays.
std::map<std::string, bool> Shipped() {
  std::string text, line;
  ReadWholeFile(SystemPath(set_paths::kShippedPackages), text);
  std::map<std::string, bool> shipped;
  for (std::istringstream lines(text); std::getline(lines, line);) {
    std::istringstream words(line);
    std::string id, mark;
    words >> id >> mark;
    shipped[id] = mark == kFixed;
  }
  return shipped;
}

/// Of an application that the set launches by a desktop entry of its own.
bool IsBuiltIn(const std::string& appId) {
  return appId == set_names::kCareApplication || IsThere(set_paths::kDesktopEntries + ("/" + appId) + ".desktop");
}

/// A line for each id: the id, a blank, its owner.
Owners ReadOwners() {
  std::string text;
  ReadWholeFile(SystemPath(set_paths::kPackageOwners), text, Links::kRefuse);
  std::istringstream words(text);
  Owners owners;
  for (std::string id, owner; words >> id >> owner;)
    if (IsId(id) && IsId(owner.substr(owner.front() == kFlatpakMark))) owners.emplace(id, owner);
  return owners;
}

std::string TextOf(const Owners& owners) {
  std::string text;
  for (const auto& [id, owner] : owners) text.append(id).append(" ").append(owner).append("\n");
  return text;
}

/// The ids that are still claimed by those who have them. A folder keeps its own while nobody knows what it claims.
Owners StillClaimed(const Owners& owners, const std::vector<Package>& packages,
                    const std::vector<std::string>& folderNames) {
  std::map<std::string, const Package*> known;
  for (const Package& package : packages) known[OwnerOf(package)] = &package;
  const std::set<std::string> folders(folderNames.begin(), folderNames.end());
  Owners claimed;
  for (const auto& [id, owner] : owners) {
    const auto found = known.find(owner);
    if (found == known.end() ? folders.contains(owner) : id == found->second->packageId || id == found->second->appId)
      claimed.emplace(id, owner);
  }
  return claimed;
}

/// Those who may claim ids that nobody has yet, in their order.
std::vector<const Package*> InOrder(const std::vector<Package>& packages, const std::map<std::string, bool>& shipped) {
  std::vector<const Package*> order;
  for (const Package& package : packages) order.push_back(&package);
  std::sort(order.begin(), order.end(), [&](const Package* one, const Package* other) {
    const auto rank = [&](const Package* package) {
      return std::tuple(package->source, !shipped.contains(package->packageId), package->packageId);
    };
    return rank(one) < rank(other);
  });
  return order;
}

/// What is wrong with the ids of each package, by owner; `owners` becomes what it is with theirs.
std::map<std::string, std::string> Settle(Owners& owners, const std::vector<Package>& packages,
                                          const std::vector<std::string>& folderNames) {
  owners = StillClaimed(owners, packages, folderNames);
  for (const std::string& name : folderNames) owners.emplace(name, name);
  const auto shipped = Shipped();
  std::map<std::string, std::string> problems;
  for (const Package* package : InOrder(packages, shipped)) {
    const std::string self = OwnerOf(*package);
    std::string& problem = problems[self];
    for (const std::string& id : {package->packageId, package->appId}) {
      const auto owner = owners.find(id);
      if (!problem.empty()) break;
      if (owner != owners.end() && owner->second != self)
        problem = Taken(*package, id, owner->second);
      else if (package->source == Source::kFolder && !shipped.contains(package->packageId) && IsBuiltIn(id))
        problem = "is not used: " + id + " is the id of an application of the set";
    }
    if (!problem.empty()) continue;
    owners[package->packageId] = self;
    owners[package->appId] = self;
  }
  return problems;
}

std::map<std::string, std::string> SettleAndStore(const std::vector<Package>& packages,
                                                  const std::vector<std::string>& folderNames) {
  const Owners before = ReadOwners();
  Owners owners = before;
  auto problems = Settle(owners, packages, folderNames);
  if (owners == before) return problems;
  // Once more, as another process may have come first.
  const std::string file = set_paths::kPackageOwners, path = SystemPath(file);
  const FdHandle lock = LockBeside(path, std::chrono::steady_clock::now() + kLongestLock);
  owners = ReadOwners();
  problems = Settle(owners, packages, folderNames);
  const bool isStored = lock && PublishFile(path, TextOf(owners));
  Complain(file, isStored ? "" : std::string("who has which id is not stored: ") + std::strerror(errno));
  return problems;
}

}  // namespace

bool IsFixed(const std::string& packageId) {
  const auto shipped = Shipped();
  const auto found = shipped.find(packageId);
  return found != shipped.end() && found->second;
}

void KeepRightful(std::vector<Package>& packages, const std::vector<std::string>& folderNames) {
  const auto problems = SettleAndStore(packages, folderNames);
  std::erase_if(packages, [&](const Package& package) {
    const std::string& problem = problems.at(OwnerOf(package));
    const bool isFolder = package.source == Source::kFolder;
    Complain(isFolder ? InPackages(package.packageId) : flatpak::ProgramFolderOf(package), problem);
    return !problem.empty();
  });
}

}  // namespace packages
