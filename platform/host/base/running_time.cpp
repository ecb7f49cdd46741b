#include "base/running_time.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <mutex>
#include <sstream>
#include <string>
#include <vector>

#include "base/atomic_file.h"
#include "base/machine_path.h"
#include "dlog.h"
#include "log_tags.h"
#include "set_paths.h"
#include "system_path.h"

namespace {

constexpr int64_t kSpan = 6 * 60 * 60;
constexpr int64_t kLongestAge = 32 * 24 * 60 * 60;

/// The lowest that the clock was from then to the next of these.
struct Span {
  int64_t start;   // running seconds
  int64_t lowest;  // seconds since 1970
};

/// A line "BOOT_ID START NOW": the running seconds at the start of that kernel and when this was written. Then a line
/// for each span, oldest first: its start and its lowest.
struct Record {
  std::string bootId;
  int64_t start = 0;
  int64_t now = 0;
  std::vector<Span> spans;
};

std::string PathOfRecord() {
  return std::string(set_paths::kSetdState) + "/running_time";
}

Record Read() {
  std::string text;
  ReadWholeFile(SystemPath(PathOfRecord()), text, Links::kRefuse);
  std::istringstream words(text);
  Record record;
  if (!(words >> record.bootId >> record.start >> record.now) || record.start < 0 || record.now < record.start)
    return {};
  for (Span span{}; words >> span.start >> span.lowest;)
    if (span.start <= record.now) record.spans.push_back(span);
  return record;
}

void Write(const Record& record) {
  std::ostringstream text;
  text << record.bootId << " " << record.start << " " << record.now << "\n";
  for (const Span& span : record.spans) text << span.start << " " << span.lowest << "\n";
  if (!MakeFolders(SystemPath(set_paths::kSetdState)) || !PublishFile(SystemPath(PathOfRecord()), text.str()))
    __dlog_print(LOG_ID_APPS, DLOG_ERROR, log_tags::kSetd, "%s: %s", PathOfRecord().c_str(), std::strerror(errno));
}

Record Update() {
  static std::mutex mutex;
  const std::lock_guard guard(mutex);
  std::string bootId = BootId();
  if (bootId.empty()) bootId = "-";
  timespec since{};
  clock_gettime(CLOCK_BOOTTIME, &since);
  int64_t clock = time(nullptr);
  Record record = Read();
  if (record.bootId != bootId) {
    record.bootId = bootId;
    record.start = record.now;
    // As it was when this kernel started: files are older than this daemon.
    clock -= since.tv_sec;
  }
  record.now = std::max(record.now, record.start + since.tv_sec);
  if (record.spans.empty() || record.now - record.spans.back().start >= kSpan)
    record.spans.push_back({record.now, clock});
  record.spans.back().lowest = std::min(record.spans.back().lowest, clock);
  std::erase_if(record.spans, [&](const Span& span) { return span.start < record.now - kLongestAge; });
  Write(record);
  return record;
}

}  // namespace

int64_t RunningSeconds() {
  return Update().now;
}

std::optional<time_t> ChangedWithin(time_t age) {
  const Record record = Update();
  const int64_t since = record.now - age;
  std::optional<time_t> lowest;
  for (auto span = record.spans.rbegin(); span != record.spans.rend(); ++span) {
    lowest = std::min<time_t>(lowest.value_or(span->lowest), span->lowest);
    if (span->start <= since) return lowest;
  }
  return std::nullopt;
}
