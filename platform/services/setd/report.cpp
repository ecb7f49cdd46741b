#include "setd/report.h"

#include <json/json.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/sysinfo.h>
#include <sys/utsname.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <map>
#include <memory>
#include <mutex>
#include <sstream>
#include <vector>

#include "base/atomic_file.h"
#include "base/folder.h"
#include "base/running_time.h"
#include "c_handle.h"
#include "set_paths.h"
#include "setd/archive.h"
#include "setd/folder_watch.h"
#include "setd/scrubber.h"
#include "setd/setd_log.h"
#include "setd/sources.h"
#include "system_info.h"
#include "system_path.h"

namespace setd {

namespace {

constexpr size_t kMaxReports = 20;
constexpr int64_t kMaxBytes = 32 * 1024 * 1024;
constexpr char kNotSearched[] = "it could not be searched for private data";

std::string TimeText(time_t time, const char* format) {
  tm parts;
  char text[64];
  gmtime_r(&time, &parts);
  return std::string(text, std::strftime(text, sizeof text, format, &parts));
}

/// What the set is and how it is; nothing that only one set has.
Json::Value SetFacts() {
  Json::Value facts(Json::objectValue);
  const struct {
    const char* name;
    system_info_key_e key;
  } kTexts[] = {{"swModel", SYSTEM_INFO_KEY_SW_MODEL},
                {"modelName", SYSTEM_INFO_KEY_MODEL_NAME},
                {"localSet", SYSTEM_INFO_KEY_LOCAL_SET}};
  for (const auto& [name, key] : kTexts) {
    char* text = nullptr;
    if (system_info_get_value_string(key, &text) == SYSTEM_INFO_ERROR_NONE) facts[name] = CText(text).get();
  }
  int region = 0;
  if (system_info_get_value_int(SYSTEM_INFO_KEY_REGION_KIND, &region) == SYSTEM_INFO_ERROR_NONE)
    facts["region"] = region;
  utsname kernel;
  if (uname(&kernel) == 0) {
    facts["kernel"] = kernel.release;
    facts["machine"] = kernel.machine;
  }
  struct sysinfo state;
  if (sysinfo(&state) == 0) {
    facts["uptimeSeconds"] = static_cast<Json::Int64>(state.uptime);
    facts["memoryBytes"] = static_cast<Json::UInt64>(state.totalram) * state.mem_unit;
  }
  struct statvfs space;
  if (statvfs(SystemPath(set_paths::kUserPartition).c_str(), &space) == 0) {
    facts["storageBytes"] = static_cast<Json::UInt64>(space.f_blocks) * space.f_frsize;
    facts["storageFreeBytes"] = static_cast<Json::UInt64>(space.f_bavail) * space.f_frsize;
  }
  return facts;
}

bool IsReport(const std::string& name) {
  return name.ends_with(".tar.zst") || name.ends_with(".tar.gz");
}

/// Whether it can stand in a line of the list.
bool IsPlainName(const std::string& name) {
  return std::none_of(name.begin(), name.end(), [](unsigned char c) { return c <= ' '; });
}

struct Stored {
  std::string name;
  int64_t since;  // running seconds
  int64_t bytes = 0;
  time_t time = 0;  // as the file system tells
};

/// In the daemon's state: a line "SINCE NAME" for each report, in the order of their coming. The clock may have been
/// anything.
std::string PathOfList() {
  return std::string(set_paths::kSetdState) + "/reports";
}

std::vector<Stored> ReadList(int64_t now) {
  std::string text;
  ReadWholeFile(SystemPath(PathOfList()), text, Links::kRefuse);
  std::istringstream lines(text);
  std::vector<Stored> list;
  for (Stored each{}; lines >> each.since >> each.name;) {
    each.since = std::min(each.since, now);
    list.push_back(each);
  }
  return list;
}

void WriteList(const std::vector<Stored>& reports) {
  std::string text, before;
  for (const Stored& each : reports) text += std::to_string(each.since) + " " + each.name + "\n";
  ReadWholeFile(SystemPath(PathOfList()), before, Links::kRefuse);
  if (text == before) return;
  if (!MakeFolders(SystemPath(set_paths::kSetdState)) || !PublishFile(SystemPath(PathOfList()), text))
    Log(DLOG_ERROR, PathOfList() + ": " + std::strerror(errno));
}

/// What is there, in the order of its coming; what the list has not yet has come now.
std::vector<Stored> StoredReports() {
  const int64_t now = RunningSeconds();
  std::map<std::string, Stored> there;
  for (const std::filesystem::path& each : EntriesOf(SystemPath(set_paths::kReportsDir))) {
    const std::string name = each.filename();
    struct stat status;
    if (lstat(each.c_str(), &status) != 0 || !S_ISREG(status.st_mode)) continue;
    if (IsReport(name) && IsPlainName(name)) there[name] = {name, now, status.st_size, status.st_mtime};
    // One that was being written when the daemon was killed has a name that is none of a report.
    const size_t mark = name.find('#');
    if (mark != name.npos && IsReport(name.substr(0, mark))) unlink(each.c_str());
  }
  std::vector<Stored> reports;
  for (const Stored& listed : ReadList(now))
    if (const auto found = there.extract(listed.name)) {
      reports.push_back(found.mapped());
      reports.back().since = listed.since;
    }
  const auto listed = static_cast<ptrdiff_t>(reports.size());
  for (const auto& [name, report] : there) reports.push_back(report);
  std::sort(reports.begin() + listed, reports.end(), [](const Stored& one, const Stored& other) {
    return std::tie(one.time, one.name) < std::tie(other.time, other.name);
  });
  return reports;
}

std::string FreePath(const std::string& name, time_t now, const char* suffix) {
  const std::string base = set_paths::kReportsDir + ("/" + TimeText(now, "%Y%m%dT%H%M%SZ")) + "-" + name;
  std::string path = base + "." + suffix;
  struct stat status;
  for (int number = 2; lstat(SystemPath(path).c_str(), &status) == 0; ++number)
    path = base + "-" + std::to_string(number) + "." + suffix;
  return path;
}

std::string TextOf(const Json::Value& value) {
  return Json::writeString(Json::StreamWriterBuilder(), value) + "\n";
}

/// What meta.json has without private data; when it could not be searched, just what is the collector's own.
Json::Value CleanMeta(Json::Value meta, Scrubber& scrubber) {
  if (const auto text = scrubber.Clean(TextOf(meta))) {
    Json::Value clean;
    const std::unique_ptr<Json::CharReader> reader(Json::CharReaderBuilder().newCharReader());
    if (reader->parse(text->data(), text->data() + text->size(), &clean, nullptr) && clean.isObject()) return clean;
  }
  meta.removeMember("name");
  meta.removeMember("set");
  for (Json::Value& reason : meta["missing"])
    if (reason != kNotSearched) reason = "the reason could not be searched for private data";
  meta["missing"][kMetaFile] = kNotSearched;
  return meta;
}

/// With its own checksum, too.
std::string MetaText(Json::Value meta) {
  const std::string zeros(Sha256("").size(), '0');
  meta["files"][kMetaFile]["sha256"] = zeros;
  std::string text = TextOf(meta);
  const std::string checksum = Sha256(text);
  return text.replace(text.rfind(zeros), zeros.size(), checksum);
}

/// For this user's eyes: the folder is shut before the file is readable in it.
bool PublishPrivate(const std::string& path, const std::string& bytes) {
  const std::string folder = SystemPath(set_paths::kReportsDir);
  return chmod(folder.c_str(), 0700) == 0 && PublishPrivateFile(path, bytes);
}

/// One at a time: what another is writing looks like something that was left.
std::mutex g_publishing;

int Prune(time_t age) {
  std::vector<Stored> reports = StoredReports();
  const int64_t now = RunningSeconds();
  size_t count = reports.size();
  int64_t bytes = 0;
  for (const Stored& each : reports) bytes += each.bytes;
  std::vector<Stored> kept;
  for (const Stored& each : reports) {
    const bool goes = now - each.since > age || count > kMaxReports || bytes > kMaxBytes;
    const std::string path = set_paths::kReportsDir + ("/" + each.name);
    if (!goes) {
      kept.push_back(each);
    } else if (unlink(SystemPath(path).c_str()) != 0 && errno != ENOENT) {
      Log(DLOG_ERROR, "an old report stays: " + path + ": " + std::strerror(errno));
      kept.push_back(each);
    } else {
      --count;
      bytes -= each.bytes;
    }
  }
  WriteList(kept);
  return static_cast<int>(reports.size() - kept.size());
}

}  // namespace

std::string CategoryOf(const std::string& name) {
  const std::string first = name.substr(0, name.find('-'));
  return IsCategory(first) ? first : "OTHER";
}

bool MakeReport(const std::string& name, const StopFlag& stop, std::string& file, std::string& problem) {
  const time_t now = time(nullptr);
  Scrubber scrubber(KnownSecrets());
  Archive archive;
  Json::Value meta;
  meta["format"] = 1;
  meta["name"] = name;
  meta["category"] = CategoryOf(name);
  meta["time"] = TimeText(now, "%Y-%m-%dT%H:%M:%SZ");
  meta["set"] = SetFacts();
  meta["missing"] = Json::objectValue;
  std::vector<std::pair<std::string, std::string>> files;
  Collect(CategoryOf(name), stop, [&](const std::string& source, const std::string& text, const std::string& reason) {
    if (!reason.empty()) meta["missing"][source] = reason;
    if (reason.empty() || !text.empty()) files.emplace_back(source, text);
  });
  for (const auto& [source, text] : files)
    if (!stop) scrubber.Learn(text);
  Json::Value sums;
  for (const auto& [source, text] : files)
    if (stop) {
      problem = "the collector was ended; its next start makes the report";
      return false;
    } else if (const auto clean = scrubber.Clean(text)) {
      archive.Add(source, *clean, now);
      sums[source]["bytes"] = Json::UInt64(clean->size());
      sums[source]["sha256"] = Sha256(*clean);
    } else {
      meta["missing"][source] = kNotSearched;
    }
  meta = CleanMeta(meta, scrubber);
  // They are no keys of anything, and what they are of is clean.
  meta["files"] = sums;
  archive.Add(kMetaFile, MetaText(meta), now);
  std::string bytes;
  if (!archive.Finish(bytes, problem) || !MakeOwnFolder(set_paths::kReportsDir, problem)) return false;
  const std::lock_guard guard(g_publishing);
  file = FreePath(name, now, archive.Suffix());
  if (!PublishPrivate(SystemPath(file), bytes)) {
    problem = file + ": " + std::strerror(errno);
    return false;
  }
  Prune(kMaxReportAge);
  return true;
}

int PruneReports(time_t age) {
  const std::lock_guard guard(g_publishing);
  return Prune(age);
}

}  // namespace setd
