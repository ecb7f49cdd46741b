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
#include <memory>
#include <mutex>
#include <vector>

#include "base/atomic_file.h"
#include "base/folder.h"
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

struct Stored {
  std::string path;
  time_t time;
  int64_t bytes;
};

/// Oldest first.
std::vector<Stored> StoredReports() {
  std::vector<Stored> reports;
  for (const std::filesystem::path& each : EntriesOf(SystemPath(set_paths::kReportsDir))) {
    const std::string name = each.filename();
    struct stat status;
    if (lstat(each.c_str(), &status) != 0 || !S_ISREG(status.st_mode)) continue;
    if (IsReport(name)) reports.push_back({each, status.st_mtime, static_cast<int64_t>(status.st_size)});
    // One that is being written has a name that is none of a report.
    const size_t mark = name.find('#');
    if (mark != name.npos && IsReport(name.substr(0, mark)) && status.st_mtime < time(nullptr) - 3600)
      unlink(each.c_str());
  }
  std::sort(reports.begin(), reports.end(), [](const Stored& one, const Stored& other) {
    return std::tie(one.time, one.path) < std::tie(other.time, other.path);
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
  static std::mutex publishing;
  const std::lock_guard guard(publishing);
  file = FreePath(name, now, archive.Suffix());
  if (!PublishPrivate(SystemPath(file), bytes)) {
    problem = file + ": " + std::strerror(errno);
    return false;
  }
  PruneReports();
  return true;
}

int PruneReports(time_t age) {
  const std::vector<Stored> reports = StoredReports();
  const time_t now = time(nullptr);
  size_t count = reports.size();
  int64_t bytes = 0;
  int removed = 0;
  for (const Stored& each : reports) bytes += each.bytes;
  for (const Stored& each : reports) {
    if (each.time >= now - age && count <= kMaxReports && bytes <= kMaxBytes) break;
    if (unlink(each.path.c_str()) != 0 && errno != ENOENT) {
      Log(DLOG_ERROR, "an old report stays: " + each.path.substr(SystemRoot().size()) + ": " + std::strerror(errno));
      continue;
    }
    --count;
    bytes -= each.bytes;
    ++removed;
  }
  return removed;
}

}  // namespace setd
