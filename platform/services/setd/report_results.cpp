#include "setd/report_results.h"

#include <glib.h>
#include <json/json.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <map>
#include <mutex>
#include <tuple>
#include <vector>

#include "base/atomic_file.h"
#include "base/folder.h"
#include "base/glib_handle.h"
#include "request_files.h"
#include "set_paths.h"
#include "setd/folder_watch.h"
#include "setd/setd_log.h"
#include "system_path.h"

namespace setd {

namespace {

constexpr size_t kMaxResults = 100;

std::string ResultLine(const std::string& trigger, const std::string& report, const std::string& problem) {
  const GText id(g_uuid_string_random());
  Json::Value result;
  result["id"] = id.get();
  result["trigger"] = trigger;
  if (!report.empty()) result[kov::kReport] = report;
  if (!problem.empty()) result[kov::kProblem] = problem;
  Json::StreamWriterBuilder oneLine;
  oneLine["indentation"] = "";
  return Json::writeString(oneLine, result) + "\n";
}

/// Removes the oldest files of the folder, but `path`, until one more has its place: those of an earlier daemon first,
/// by their times, then those of this one as they came, whatever the clock was.
void MakeRoomFor(const std::string& path) {
  static auto& published = *new std::map<std::string, uint64_t>;
  static uint64_t number = 0;
  published[path] = ++number;
  std::vector<std::tuple<uint64_t, time_t, std::string>> others;
  for (const std::filesystem::path& each : EntriesOf(std::filesystem::path(path).parent_path())) {
    struct stat status;
    if (each != path && lstat(each.c_str(), &status) == 0 && !S_ISDIR(status.st_mode))
      others.emplace_back(published.contains(each) ? published[each] : 0, status.st_mtime, each);
  }
  if (others.size() < kMaxResults) return;
  std::sort(others.begin(), others.end());
  others.resize(others.size() - kMaxResults + 1);
  for (const auto& [order, time, oldest] : others) {
    unlink(oldest.c_str());
    published.erase(oldest);
  }
}

}  // namespace

void PublishResult(const std::string& trigger, const std::string& report, const std::string& problem) {
  // One at a time: what another is writing would count as a file, and might go.
  static std::mutex publishing;
  const std::lock_guard guard(publishing);
  std::string reason;
  if (MakeOwnFolder(set_paths::kReportResults, reason)) {
    const std::string folder = SystemPath(set_paths::kReportResults), path = folder + "/" + trigger;
    MakeRoomFor(path);
    if (chmod(folder.c_str(), 0755) == 0 &&
        PublishFile(path, ResultLine(trigger, report, problem), Readers::kEverybody))
      return;
    reason = set_paths::kReportResults + ("/" + trigger) + ": " + std::strerror(errno);
    unlink(path.c_str());
  }
  Log(DLOG_ERROR, "nobody is told what became of " + trigger + ": " + reason);
}

}  // namespace setd
