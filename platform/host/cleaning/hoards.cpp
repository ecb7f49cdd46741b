#include "cleaning/hoards.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <iterator>
#include <sstream>

#include "base/atomic_file.h"
#include "base/folder.h"
#include "base/program.h"
#include "c_handle.h"
#include "cleaning/cleanup.h"
#include "cleaning/leftovers.h"
#include "flatpak/helper.h"
#include "flatpak/layout.h"
#include "set_paths.h"
#include "system_path.h"

namespace cleaning {

namespace {

using packages::TreeResult;
using packages::TreeStop;

constexpr int64_t kMebibyte = int64_t{1} << 20;
constexpr int64_t kLeastWorthAsking = kMebibyte;
constexpr int64_t kJournalsKept = 64 * kMebibyte;  // bytes, where their owner says nothing
constexpr std::chrono::seconds kJournalPatience{60}, kFlatpakPatience{120}, kLookPatience{20};

void Add(TreeResult& sum, const TreeResult& part) {
  sum.bytes += part.bytes;
  sum.files += part.files;
  sum.kept += part.kept;
  if (sum.error == 0 && part.error != ENOENT) sum.error = part.error;
}

/// Whether this process may remove what lies directly in the folder.
bool MayChange(const std::string& folder) {
  struct stat status;
  const std::string path = SystemPath(folder);
  return lstat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode) &&
         faccessat(AT_FDCWD, path.c_str(), W_OK | X_OK, AT_EACCESS) == 0;
}

// --- Journals: systemd.io/JOURNAL_FILE_FORMAT, journald.conf(5)
// --------------------------------------------------------

/// "1G", "500M": powers of 1024. Nothing for another text.
std::optional<int64_t> SizeFrom(const std::string& text) {
  char* rest = nullptr;
  const long long number = std::strtoll(text.c_str(), &rest, 10);
  const std::string_view units = "KMGT", unit = rest;
  if (rest == text.c_str() || number <= 0 || unit.size() > 1) return std::nullopt;
  const size_t power = unit.empty() ? 0 : units.find(unit[0]) + 1;
  if (!unit.empty() && units.find(unit[0]) == units.npos) return std::nullopt;
  return number << (10 * power);
}

/// The last SystemMaxUse= of a file's lines.
void ReadLimit(const std::string& path, std::optional<int64_t>& limit) {
  constexpr std::string_view kKey = "SystemMaxUse=";
  std::string text;
  if (!ReadWholeFile(path, text)) return;
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);)
    if (line.starts_with(kKey))
      if (const auto size = SizeFrom(line.substr(kKey.size()))) limit = size;
}

int64_t JournalLimit() {
  std::optional<int64_t> limit;
  const std::string file = SystemPath(set_paths::kJournalSettings);
  ReadLimit(file, limit);
  std::vector<std::string> parts;
  for (const std::filesystem::path& each : EntriesOf(file + ".d"))
    if (each.extension() == ".conf") parts.push_back(each);
  std::ranges::sort(parts);
  for (const std::string& part : parts) ReadLimit(part, limit);
  return limit.value_or(kJournalsKept);
}

bool IsArchivedName(std::string_view name) {
  return (name.ends_with(".journal") && name.find('@') != name.npos) || name.ends_with(".journal~");
}
bool IsJournal(int depth, std::string_view name) {
  return depth == 1 && (name.ends_with(".journal") || IsArchivedName(name));
}
bool IsArchivedJournal(int depth, std::string_view name) {
  return depth == 1 && IsArchivedName(name);
}

/// What is beyond the limit; the journals that are being written stay.
TreeResult MeasureJournals() {
  TreeResult all = packages::MeasureSelection(set_paths::kJournals, "", {.names = IsJournal});
  const TreeResult archived = packages::MeasureSelection(set_paths::kJournals, "", {.names = IsArchivedJournal});
  all.bytes = std::clamp<int64_t>(all.bytes - JournalLimit(), 0, archived.bytes);
  return all;
}

bool MayChangeJournals() {
  const auto folders = EntriesOf(SystemPath(set_paths::kJournals));
  return MayChange(set_paths::kJournals) && std::ranges::all_of(folders, [](const auto& each) {
           return MayChange(std::string(NameOnSet(each.string())));
         });
}

/// The journal's own tool knows which come first.
TreeResult RemoveJournals(const TreeStop& stop) {
  const auto bytes = [] { return packages::MeasureSelection(set_paths::kJournals, "", {.names = IsJournal}).bytes; };
  const int64_t before = bytes();
  const ProgramEnd end = RunProgram(
      {"journalctl", "--quiet", "--directory=" + SystemPath(set_paths::kJournals),
       "--vacuum-size=" + std::to_string(JournalLimit())},
      kJournalPatience, stop ? stop : [] { return false; }, [](std::string_view) {});
  TreeResult removed{.bytes = std::max<int64_t>(before - bytes(), 0)};
  // The toolkit may have taken away the program's status: what is there tells.
  if (MeasureJournals().bytes >= kLeastWorthAsking)
    removed.error = end == ProgramEnd::kStopped ? ECANCELED : end == ProgramEnd::kNotStarted ? ENOENT : EACCES;
  return removed;
}

// --- Core dumps
// --------------------------------------------------------------------------------------------------------

bool IsCoreDump(int depth, std::string_view name) {
  return depth == 0 && (name.starts_with("core.") || name.ends_with(".crash") || name.ends_with(".core") ||
                        name.ends_with(".upload") || name.ends_with(".uploaded"));
}

/// The system's own folder of dumps holds those of all users, and is its owner's; where everybody may write, each has
/// his own.
TreeResult OfCoreDumps(bool removes, const TreeStop& stop) {
  TreeResult sum;
  for (const char* folder : {set_paths::kCoreDumps, set_paths::kCrashReports}) {
    const packages::TreeSelection selection{
        .names = IsCoreDump, .ownedByUs = folder == set_paths::kCrashReports && geteuid() != 0, .stop = stop};
    Add(sum,
        removes ? packages::EmptyTree(folder, {}, "", selection) : packages::MeasureSelection(folder, "", selection));
  }
  return sum;
}

bool MayRemoveCoreDumps() {
  return MayChange(set_paths::kCoreDumps) ||
         packages::MeasureSelection(set_paths::kCoreDumps, "", {.names = IsCoreDump}).bytes == 0;
}

// --- Runtimes of Flatpak
// -----------------------------------------------------------------------------------------------

/// Whether the installation is the user's own, as nobody knows whose applications use those of the system, and can have
/// any at all: asking starts a program.
bool HasRuntimes(const std::string& installation) {
  return flatpak::IsOfUser(installation) && flatpak::MayChange(installation) &&
         !EntriesOf(SystemPath(installation + "/runtime")).empty();
}

TreeResult OfRuntimes(const char* verb, std::chrono::milliseconds patience) {
  TreeResult sum;
  for (const std::string& installation : flatpak::Installations()) {
    if (!HasRuntimes(installation)) continue;
    flatpak::Problem problem;
    const std::string runtimes = installation + "/runtime";
    int64_t unused = 0;
    const int64_t before = packages::MeasureTree(runtimes).bytes;
    const flatpak::HelperEnd end = flatpak::RunHelper({verb, installation}, -1, patience, {}, problem,
                                                      [&unused](int64_t bytes) { unused = bytes; });
    const bool removes = std::string_view(verb) == flatpak::kRemoveUnused;
    sum.bytes += removes ? std::max<int64_t>(before - packages::MeasureTree(runtimes).bytes, 0) : unused;
    if (end != flatpak::HelperEnd::kDone && sum.error == 0) sum.error = problem.error != 0 ? problem.error : EIO;
  }
  return sum;
}

// --- All
// ---------------------------------------------------------------------------------------------------------------

struct Kind {
  Hoard hoard;
  const char* key;
  TreeResult (*measure)();
  TreeResult (*remove)(const TreeStop& stop);
  bool (*mayRemove)();
};
constexpr Kind kKinds[] = {
    {Hoard::kJournals, "journals", MeasureJournals, RemoveJournals, MayChangeJournals},
    {Hoard::kPackageArchives, "package_archives", MeasurePackageArchives, RemovePackageArchives,
     [] { return MayChange(set_paths::kPackageArchives); }},
    {Hoard::kCoreDumps, "core_dumps", [] { return OfCoreDumps(false, {}); },
     [](const TreeStop& stop) { return OfCoreDumps(true, stop); }, MayRemoveCoreDumps},
    {Hoard::kThumbnails, "thumbnails", MeasureThumbnails, RemoveThumbnails, [] { return true; }},
    {Hoard::kFlatpakRuntimes, "flatpak_runtimes", [] { return OfRuntimes(flatpak::kListUnused, kLookPatience); },
     [](const TreeStop&) { return OfRuntimes(flatpak::kRemoveUnused, kFlatpakPatience); }, [] { return true; }},
};

const Kind& KindOf(Hoard hoard) {
  return *std::ranges::find(kKinds, hoard, &Kind::hoard);
}

}  // namespace

const char* KeyOf(Hoard hoard) {
  return KindOf(hoard).key;
}

std::optional<Hoard> HoardOf(std::string_view key) {
  for (const Kind& kind : kKinds)
    if (kind.key == key) return kind.hoard;
  return std::nullopt;
}

std::vector<Stock> FindHoards(const TreeStop& stop) {
  std::vector<Stock> stocks;
  for (const Kind& kind : kKinds) {
    if (!IsOn(kind.key) || (stop && stop())) continue;
    const int64_t bytes = kind.measure().bytes;
    if (bytes >= kLeastWorthAsking) stocks.push_back({kind.hoard, bytes, kind.mayRemove()});
  }
  std::ranges::stable_sort(stocks, std::ranges::greater(), &Stock::bytes);
  return stocks;
}

TreeResult RemoveHoard(Hoard hoard, const TreeStop& stop) {
  const Kind& kind = KindOf(hoard);
  return IsOn(kind.key) ? kind.remove(stop) : TreeResult{};
}

}  // namespace cleaning
