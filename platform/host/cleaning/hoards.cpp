#include "cleaning/hoards.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <chrono>
#include <cmath>
#include <iterator>
#include <limits>
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

std::string_view WithoutBlanks(std::string_view text) {
  constexpr std::string_view kBlanks = " \t\r";
  const size_t first = text.find_first_not_of(kBlanks);
  return first == text.npos ? "" : text.substr(first, text.find_last_not_of(kBlanks) - first + 1);
}

/// "1G", "1.5G", "500M": powers of 1024. Nothing for another text.
std::optional<int64_t> SizeFrom(std::string_view text) {
  constexpr std::string_view kUnits = "BKMGTPE";
  double number = 0;
  const auto [rest, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  const std::string_view unit = text.substr(static_cast<size_t>(rest - text.data()));
  const size_t power = unit.empty() ? 0 : kUnits.find(unit[0]);
  if (error != std::errc() || !(number > 0) || unit.size() > 1 || power == kUnits.npos) return std::nullopt;
  const double size = std::ldexp(number, static_cast<int>(10 * power));
  return size < std::ldexp(1, 62) ? std::optional(static_cast<int64_t>(size)) : std::nullopt;
}

/// The last SystemMaxUse= of a file's lines. One that is not understood has all of them kept.
void ReadLimit(const std::string& path, std::optional<int64_t>& limit) {
  std::string text;
  if (!ReadWholeFile(path, text)) return;
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);) {
    const std::string_view whole = line;
    const size_t equals = whole.find('=');
    if (equals == whole.npos || WithoutBlanks(whole.substr(0, equals)) != "SystemMaxUse") continue;
    limit = SizeFrom(WithoutBlanks(whole.substr(equals + 1))).value_or(std::numeric_limits<int64_t>::max());
  }
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

bool IsArchivedJournal(int depth, std::string_view name) {
  return depth == 0 && ((name.ends_with(".journal") && name.find('@') != name.npos) || name.ends_with(".journal~"));
}
bool IsJournal(int depth, std::string_view name) {
  return depth == 0 && (name.ends_with(".journal") || IsArchivedJournal(depth, name));
}

/// One for each machine that has written journals here, by its id.
std::vector<std::string> JournalFolders() {
  std::vector<std::string> folders;
  for (const std::filesystem::path& each : EntriesOf(SystemPath(set_paths::kJournals)))
    if (std::filesystem::is_directory(std::filesystem::symlink_status(each)))
      folders.emplace_back(NameOnSet(each.string()));
  return folders;
}

int64_t JournalBytes(const std::string& folder, bool (*names)(int depth, std::string_view name)) {
  return packages::MeasureSelection(folder, set_paths::kJournals, {.names = names}).bytes;
}

/// What is beyond the limit, which is each machine's; the journals that are being written stay.
TreeResult MeasureJournals() {
  const int64_t limit = JournalLimit();
  TreeResult sum;
  for (const std::string& folder : JournalFolders())
    sum.bytes +=
        std::clamp<int64_t>(JournalBytes(folder, IsJournal) - limit, 0, JournalBytes(folder, IsArchivedJournal));
  return sum;
}

bool MayChangeJournals() {
  return MayChange(set_paths::kJournals) && std::ranges::all_of(JournalFolders(), MayChange);
}

/// The journal's own tool knows which come first.
TreeResult RemoveJournals(const TreeStop& stop) {
  const auto bytes = [] {
    int64_t sum = 0;
    for (const std::string& folder : JournalFolders()) sum += JournalBytes(folder, IsJournal);
    return sum;
  };
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
