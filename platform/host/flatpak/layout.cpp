#include "flatpak/layout.h"

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <memory>

#include "base/atomic_file.h"
#include "base/beneath.h"
#include "base/folder.h"
#include "base/glib_handle.h"
#include "c_handle.h"
#include "flatpak/title.h"
#include "packages/removal.h"
#include "set_paths.h"
#include "settings/menu_language.h"
#include "system_path.h"

namespace flatpak {

namespace {

using DirHandle = std::unique_ptr<DIR, CRelease<&closedir>>;
using packages::Package;

constexpr size_t kMaxInfoBytes = 65536;

/// The path of the set without links, where it is there and stays in the set; else as it is.
std::string Resolved(const std::string& path) {
  const CText real(realpath(SystemPath(path).c_str(), nullptr));
  if (!real || !std::string_view(real.get()).starts_with(std::string(SystemRoot()) + "/")) return path;
  return std::string(NameOnSet(real.get()));
}

/// What the environment says, which counts for the machine only.
std::string FromEnvironment(const char* variable, const std::string& otherwise) {
  const char* const value = SystemRoot().empty() ? std::getenv(variable) : nullptr;
  return value && *value == '/' ? value : otherwise;
}

std::string UserDir() {
  if (!SystemRoot().empty()) return set_paths::kFlatpakUserDir;
  return FromEnvironment("FLATPAK_USER_DIR", std::string(g_get_user_data_dir()) + "/flatpak");
}

/// The installations that an administrator has added: key files with a path for each.
std::vector<std::string> MoreDirs() {
  std::vector<std::string> dirs;
  for (const std::filesystem::path& each : EntriesOf(SystemPath(set_paths::kFlatpakMoreDirs))) {
    const GKeyFileHandle file(g_key_file_new());
    std::string text;
    if (each.extension() != ".conf" || !ReadWholeFile(each, text, Links::kFollow, kMostNoted) ||
        !g_key_file_load_from_data(file.get(), text.data(), text.size(), G_KEY_FILE_NONE, nullptr))
      continue;
    const GTextArray groups(g_key_file_get_groups(file.get(), nullptr));
    for (char** group = groups.get(); *group; ++group) {
      const GText path(g_key_file_get_string(file.get(), *group, "Path", nullptr));
      if (path && *path == '/') dirs.emplace_back(path.get());
    }
  }
  std::sort(dirs.begin(), dirs.end());
  return dirs;
}

std::string ProgramFolder(const std::string& installation, const std::string& id) {
  return installation + "/app/" + id;
}

std::string DeploymentIn(const std::string& folder) {
  const CText real(realpath(SystemPath(folder + "/current/active").c_str(), nullptr));
  // A link may lead anywhere.
  if (!real || !std::string_view(real.get()).starts_with(SystemPath(folder) + "/")) return {};
  return std::string(NameOnSet(real.get()));
}

std::optional<Package> ReadIn(const std::string& installation, const std::string& id, const std::string& locale) {
  const std::string deployment = DeploymentIn(ProgramFolder(installation, id));
  const FdHandle folder(
      deployment.empty() ? -1 : open(SystemPath(deployment).c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  if (!folder) return std::nullopt;
  Package package;
  package.source = packages::Source::kFlatpak;
  package.installation = installation;
  package.packageId = package.appId = package.serviceId = id;
  package.title = ReadTitle(folder.get(), id, locale);
  package.iconDir = set_paths::kFlatpakIcons + ("/" + id + "/");
  package.forAdministrator = !MayChange(installation);
  return package;
}

/// The ids of what lies in an installation.
std::vector<std::string> IdsIn(const std::string& installation) {
  std::vector<std::string> ids;
  const std::string apps = installation + "/app";
  const DirHandle folder(opendir(SystemPath(apps).c_str()));
  packages::Complain(apps, folder || errno == ENOENT ? "" : std::strerror(errno));
  while (const dirent* entry = folder ? readdir(folder.get()) : nullptr) {
    const std::string name = entry->d_name;
    if (packages::IsId(name))
      ids.push_back(name);
    else if (name.front() != '.')
      packages::Complain(ProgramFolder(installation, name), "is no name of a package");
  }
  return ids;
}

}  // namespace

std::vector<std::string> Installations() {
  std::vector<std::string> dirs = MoreDirs();
  dirs.insert(dirs.begin(), FromEnvironment("FLATPAK_SYSTEM_DIR", set_paths::kFlatpakSystemDir));
  dirs.insert(dirs.begin(), UserDir());
  std::vector<std::string> found;
  for (const std::string& dir : dirs) {
    const std::string resolved = Resolved(dir);
    if (packages::IsThere(resolved) && std::find(found.begin(), found.end(), resolved) == found.end())
      found.push_back(resolved);
  }
  return found;
}

bool IsOfUser(const std::string& installation) {
  return installation == Resolved(UserDir());
}

bool MayChange(const std::string& installation) {
  return (IsOfUser(installation) || geteuid() == 0) &&
         faccessat(AT_FDCWD, SystemPath(installation).c_str(), W_OK, AT_EACCESS) == 0;
}

std::vector<Package> List() {
  std::vector<Package> listed;
  const std::string locale = MenuLocale();
  for (const std::string& installation : Installations())
    for (const std::string& id : IdsIn(installation)) {
      const bool known =
          std::any_of(listed.begin(), listed.end(), [&id](const Package& one) { return one.packageId == id; });
      auto package = known ? std::nullopt : ReadIn(installation, id, locale);
      if (package) listed.push_back(std::move(*package));
    }
  std::sort(listed.begin(), listed.end(),
            [](const Package& one, const Package& other) { return one.packageId < other.packageId; });
  return listed;
}

std::optional<Package> Read(const std::string& id) {
  for (const std::string& installation : Installations())
    if (auto package = ReadIn(installation, id, MenuLocale())) return package;
  return std::nullopt;
}

std::string ProgramFolderOf(const Package& package) {
  return ProgramFolder(package.installation, package.packageId);
}

std::string DeploymentOf(const Package& package) {
  return DeploymentIn(ProgramFolderOf(package));
}

std::vector<Branch> BranchesOf(const std::string& installation, const std::string& id) {
  namespace fs = std::filesystem;
  std::vector<Branch> branches;
  std::error_code error;
  for (const fs::path& arch : EntriesOf(SystemPath(ProgramFolder(installation, id)))) {
    if (fs::is_symlink(arch, error) || !fs::is_directory(arch, error)) continue;
    for (const fs::path& each : EntriesOf(arch))
      branches.push_back({std::string(NameOnSet(each.native())),
                          "app/" + id + "/" + arch.filename().string() + "/" + each.filename().string(),
                          fs::exists(each / "active", error)});
  }
  return branches;
}

std::string DataDir() {
  return Resolved(SystemRoot().empty() ? std::string(g_get_home_dir()) + "/.var/app" : set_paths::kFlatpakDataDir);
}

std::string DataFolderOf(const std::string& id) {
  return DataDir() + "/" + id;
}

std::string CacheFolderOf(const std::string& id) {
  return DataFolderOf(id) + "/cache";
}

std::string IdOfProcess(const std::string& proc) {
  const FdHandle root(open((proc + "/root").c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
  std::string text;
  const GKeyFileHandle info(g_key_file_new());
  if (!root || !ReadBeneath(root.get(), ".flatpak-info", kMaxInfoBytes, text) ||
      !g_key_file_load_from_data(info.get(), text.data(), text.size(), G_KEY_FILE_NONE, nullptr))
    return {};
  const GText id(g_key_file_get_string(info.get(), "Application", "name", nullptr));
  const GText program(g_key_file_get_string(info.get(), "Instance", "app-path", nullptr));
  if (!id || !program) return {};
  // What was updated or removed while it runs is not there any more.
  std::error_code error;
  const std::string path = std::filesystem::weakly_canonical(program.get(), error);
  for (const std::string& installation : Installations())
    if (path.starts_with(SystemPath(ProgramFolder(installation, id.get())) + "/")) return id.get();
  return {};
}

}  // namespace flatpak
