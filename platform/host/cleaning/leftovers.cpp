#include "cleaning/leftovers.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <ctime>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/running_time.h"
#include "c_handle.h"
#include "flatpak/layout.h"
#include "set_paths.h"
#include "system_path.h"

namespace cleaning {

namespace {

using packages::TreeResult;
using packages::TreeStop;
using DirHandle = std::unique_ptr<DIR, CRelease<&closedir>>;

constexpr time_t kDay = 24 * 60 * 60;
constexpr time_t kThumbnailAge = 30 * kDay;
constexpr char kHexDigits[] = "0123456789abcdef";

/// Whether it is a folder, and no link to one, of this daemon's user.
bool IsOurs(const std::string& folder) {
  struct stat status;
  return !folder.empty() && lstat(SystemPath(folder).c_str(), &status) == 0 && S_ISDIR(status.st_mode) &&
         status.st_uid == geteuid();
}

/// Whether a process holds a lock on the file, as one that uses it does. What cannot be told counts as held.
bool IsHeld(const std::string& file) {
  const FdHandle opened(open(SystemPath(file).c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
  if (!opened) return errno != ENOENT;
  struct flock any {};
  any.l_type = F_WRLCK;
  any.l_whence = SEEK_SET;
  return fcntl(opened.get(), F_OFD_GETLK, &any) != 0 || any.l_type != F_UNLCK;
}

void Add(TreeResult& sum, const TreeResult& part) {
  sum.bytes += part.bytes;
  sum.files += part.files;
  sum.kept += part.kept;
  if (sum.error == 0 && part.error != ENOENT) sum.error = part.error;
}

struct Entry {
  std::string name;
  std::string path;  // of the set
  bool isFolder;
  time_t changed;  // seconds since 1970
};

/// What lies in it; nothing where it cannot be read.
std::vector<Entry> EntriesOf(const std::string& folder) {
  std::vector<Entry> entries;
  const DirHandle stream(opendir(SystemPath(folder).c_str()));
  while (const dirent* entry = stream ? readdir(stream.get()) : nullptr) {
    const std::string name = entry->d_name;
    struct stat status;
    if (name == "." || name == ".." || fstatat(dirfd(stream.get()), entry->d_name, &status, AT_SYMLINK_NOFOLLOW) != 0)
      continue;
    entries.push_back({name, folder + "/" + name, S_ISDIR(status.st_mode), status.st_mtime});
  }
  return entries;
}

bool HasForm(std::string_view name, size_t hexDigits, std::string_view end) {
  return name.size() == hexDigits + end.size() && name.ends_with(end) &&
         name.find_first_not_of(kHexDigits) == hexDigits;
}

bool IsThumbnail(int depth, std::string_view name) {
  return (depth == 1 || depth == 2) && HasForm(name, 32, ".png");  // normal/, fail/APPLICATION/
}

bool IsArchive(int depth, std::string_view name) {
  return depth == 0 && name.ends_with(".deb");
}

bool IsDirectlyThere(int depth, std::string_view) {
  return depth == 0;
}

// --- Flatpak ---------------------------------------------------------------------------------------------------------

constexpr std::string_view kLockEnd = "-lock";

bool IsTemporaryFile(int depth, std::string_view name) {
  return depth == 0 && !name.ends_with(kLockEnd);
}

/// A catalogue's link that was to become "active": in REMOTE/ARCHITECTURE/.
bool IsCatalogueLink(int depth, std::string_view name) {
  return depth == 2 && name.starts_with(".active-");
}

/// A catalogue that was being unpacked: "." checksum "-" and six letters.
bool IsCatalogueFolder(std::string_view name) {
  constexpr size_t kDigits = 64, kLetters = 6;
  return name.size() == 1 + kDigits + 1 + kLetters && name.front() == '.' && name[1 + kDigits] == '-' &&
         name.substr(1).find_first_not_of(kHexDigits) == kDigits;
}

/// Of an installation of Flatpak's, or of folders of its own.
class Leftovers {
 public:
  Leftovers(TreeResult& sum, const TreeStop& stop) : m_sum(sum), m_stop(stop) {}

  void RemoveOf(const std::string& installation);
  void RemoveDownloads();

 private:
  void RemoveFolders(const std::string& folder, const std::string& within,
                     const std::function<bool(const Entry&)>& isLeftover);
  void RemoveFiles(const std::string& folder, const std::string& within, bool (*names)(int, std::string_view));

  bool IsOld(const Entry& entry) const { return m_dayOld && entry.changed < *m_dayOld; }

  TreeResult& m_sum;
  const TreeStop& m_stop;
  const std::optional<time_t> m_dayOld = ChangedWithin(kDay);
};

void Leftovers::RemoveFolders(const std::string& folder, const std::string& within,
                              const std::function<bool(const Entry&)>& isLeftover) {
  for (const Entry& entry : EntriesOf(folder))
    if (entry.isFolder && m_sum.error != ECANCELED && isLeftover(entry))
      Add(m_sum, packages::RemoveTree(entry.path, {}, within, m_stop));
}

void Leftovers::RemoveFiles(const std::string& folder, const std::string& within,
                            bool (*names)(int, std::string_view)) {
  if (m_dayOld)
    Add(m_sum, packages::EmptyTree(folder, {}, within, {.before = m_dayOld, .names = names, .stop = m_stop}));
}

void Leftovers::RemoveOf(const std::string& installation) {
  if (!IsOurs(installation)) return;
  // An application that was removed while it ran: it holds this file until it ends.
  RemoveFolders(installation + "/.removed", installation,
                [](const Entry& entry) { return !IsHeld(entry.path + "/files/.ref"); });
  const std::string repository = installation + "/repo", temporary = repository + "/tmp";
  // While anything is fetched or written its files may have any age: they have that of their origin.
  if (!IsHeld(repository + "/.lock")) {
    RemoveFolders(temporary, installation, [this](const Entry& entry) {
      return entry.name != "cache" && IsOld(entry) && !IsHeld(entry.path + std::string(kLockEnd));
    });
    RemoveFiles(temporary, installation, IsTemporaryFile);
  }
  const std::string catalogues = installation + "/appstream";
  for (const Entry& remote : EntriesOf(catalogues))
    for (const Entry& architecture : remote.isFolder ? EntriesOf(remote.path) : std::vector<Entry>())
      if (architecture.isFolder)
        RemoveFolders(architecture.path, installation,
                      [this](const Entry& entry) { return IsCatalogueFolder(entry.name) && IsOld(entry); });
  RemoveFiles(catalogues, installation, IsCatalogueLink);
}

void Leftovers::RemoveDownloads() {
  RemoveFolders(set_paths::kLastingTemporary, "", [this](const Entry& folder) {
    if (!folder.name.starts_with("flatpak-cache-") || !IsOld(folder) || !IsOurs(folder.path)) return false;
    const std::vector<Entry> inside = EntriesOf(folder.path);
    return std::all_of(inside.begin(), inside.end(), [this](const Entry& entry) {
      return IsOld(entry) && !(entry.name.ends_with(kLockEnd) && IsHeld(entry.path));
    });
  });
}

}  // namespace

std::string UserCaches() {
  if (!SystemRoot().empty()) return std::string(set_paths::kOwnerHome) + "/.cache";
  const char* const said = std::getenv("XDG_CACHE_HOME");
  const bool isSaid = said && *said == '/';
  const char* const base = isSaid ? said : std::getenv("HOME");
  // Where it leads may have links, which are the system's; what lies in it is gone through without.
  const CText resolved(base ? realpath(base, nullptr) : nullptr);
  return resolved ? resolved.get() + std::string(isSaid ? "" : "/.cache") : "";
}

TreeResult RemoveOldThumbnails(const TreeStop& stop) {
  const std::string caches = UserCaches();
  TreeResult sum;
  const std::optional<time_t> cutoff = ChangedWithin(kThumbnailAge);
  if (cutoff && IsOurs(caches))
    Add(sum, packages::EmptyTree(caches + "/thumbnails", {}, caches,
                                 {.before = cutoff, .countsUse = true, .names = IsThumbnail, .stop = stop}));
  return sum;
}

TreeResult RemoveThumbnails(const TreeStop& stop) {
  const std::string caches = UserCaches();
  TreeResult sum;
  if (IsOurs(caches))
    Add(sum, packages::EmptyTree(caches + "/thumbnails", {}, caches, {.names = IsThumbnail, .stop = stop}));
  return sum;
}

TreeResult MeasureThumbnails() {
  const std::string caches = UserCaches();
  if (!IsOurs(caches)) return {};
  return packages::MeasureSelection(caches + "/thumbnails", caches, {.names = IsThumbnail});
}

TreeResult MeasurePackageArchives() {
  const std::string archives = set_paths::kPackageArchives;
  TreeResult sum;
  Add(sum, packages::MeasureSelection(archives, "", {.names = IsArchive}));
  Add(sum, packages::MeasureSelection(archives + "/partial", "", {.names = IsDirectlyThere}));
  return sum;
}

TreeResult RemovePackageArchives(const TreeStop& stop) {
  const std::string archives = set_paths::kPackageArchives;
  struct stat status;
  TreeResult sum;
  if (lstat(SystemPath(archives).c_str(), &status) != 0 || !S_ISDIR(status.st_mode)) return sum;
  // As the tool itself does, which makes this file where it is missing.
  const FdHandle lock(
      open(SystemPath(archives + "/lock").c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC, 0640));
  struct flock whole {};
  whole.l_type = F_WRLCK;
  whole.l_whence = SEEK_SET;
  if (!lock || fcntl(lock.get(), F_OFD_SETLK, &whole) != 0) {
    sum.error = errno;
    return sum;
  }
  Add(sum, packages::EmptyTree(archives, {}, "", {.names = IsArchive, .stop = stop}));
  // This folder is that of the user who downloads for the tool.
  if (sum.error != ECANCELED)
    Add(sum, packages::EmptyTree(archives + "/partial", {}, "", {.names = IsDirectlyThere, .stop = stop}));
  return sum;
}

TreeResult RemoveFlatpakLeftovers(const TreeStop& stop) {
  TreeResult sum;
  Leftovers leftovers(sum, stop);
  for (const std::string& installation : flatpak::Installations()) leftovers.RemoveOf(installation);
  leftovers.RemoveDownloads();
  return sum;
}

}  // namespace cleaning
