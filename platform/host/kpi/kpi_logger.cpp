#include "kpi_logger.h"

#include <glib.h>
#include <json/json.h>
#include <sys/stat.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <span>
#include <thread>
#include <utility>

#include "base/atomic_file.h"
#include "base/disk_sync.h"
#include "base/file_lock.h"
#include "base/time_text.h"
#include "base/writer_thread.h"
#include "c_handle.h"
#include "dlog.h"
#include "log_tags.h"
#include "set_paths.h"
#include "system_path.h"

namespace KPILogFramework {

namespace {

constexpr const char* kTag = log_tags::kKpi;
constexpr off_t kMaxFileSize = 1 << 20;
constexpr size_t kMaxWaiting = 1000;
constexpr std::chrono::milliseconds kLockPatience(100);
constexpr std::chrono::milliseconds kTurn(5);  // longer than the step in which others ask for the lock

/// The text with every byte that is part of no UTF-8 character taken as the Latin-1 character of that number.
std::string ToUtf8(const std::string& bytes) {
  std::string text;
  const char* next = bytes.data();
  const char* const end = next + bytes.size();
  while (true) {
    const char* valid = nullptr;
    g_utf8_validate_len(next, static_cast<gsize>(end - next), &valid);
    text.append(next, valid);
    if (valid == end) return text;
    char character[6];
    text.append(character, static_cast<size_t>(g_unichar_to_utf8(static_cast<unsigned char>(*valid), character)));
    next = valid + 1;
  }
}

std::string Quoted(const std::string& bytes) {
  static const Json::StreamWriterBuilder& kWriter = *[] {
    auto* builder = new Json::StreamWriterBuilder;
    (*builder)["indentation"] = "";
    (*builder)["emitUTF8"] = true;
    return builder;
  }();
  return Json::writeString(kWriter, Json::Value(ToUtf8(bytes)));
}

/// "2031-05-07T19:04:59.123Z"
std::string Now() {
  using namespace std::chrono;
  return std::string(TimeText(floor<milliseconds>(system_clock::now()), 'T').data()) + "Z";
}

struct Event {
  std::string service;
  std::string name;
  std::string line;
};
using Events = std::span<const Event>;

/// The first of the events, as many as a log of that size takes: an empty one takes any.
Events FirstThatFit(Events events, off_t size) {
  size_t count = 0;
  for (const Event& event : events) {
    if (size > 0 && size + static_cast<off_t>(event.line.size()) > kMaxFileSize) break;
    size += static_cast<off_t>(event.line.size());
    ++count;
  }
  return events.first(count);
}

/// Whether the log ends within a line: a power cut can leave one so.
bool EndsWithinLine(int fd, off_t size) {
  char last = '\n';
  return size > 0 && pread(fd, &last, 1, size - 1) == 1 && last != '\n';
}

/// Appends as many of the first events as the log takes, `events` afterwards; 0 or an error number, EWOULDBLOCK while
/// another writer has its turn, and then the log is as it was.
int Store(const std::string& path, Events& events) {
  const FdHandle lock = LockBeside(path, std::chrono::steady_clock::now() + kLockPatience);
  struct stat status;
  FdHandle file = lock ? OpenToAppend(path) : FdHandle();
  if (!file || fstat(file.get(), &status) != 0) return errno;
  if (FirstThatFit(events, status.st_size).empty()) {
    if (rename(path.c_str(), (path + ".1").c_str()) != 0) return errno;
    DiskSync::OfProcess().Add(path + ".1", file.get());
    file = OpenToAppend(path);
    if (!file || fstat(file.get(), &status) != 0) return errno;
  }
  events = FirstThatFit(events, status.st_size);
  std::string lines(EndsWithinLine(file.get(), status.st_size), '\n');
  for (const Event& event : events) lines += event.line;
  const ssize_t written = write(file.get(), lines.data(), lines.size());
  if (written == static_cast<ssize_t>(lines.size())) {
    DiskSync::OfProcess().Add(path, file.get());
    if (status.st_size == 0) DiskSync::OfProcess().AddFolderOf(path);
    return 0;
  }
  const int reason = written >= 0 ? ENOSPC : errno;
  if (written > 0 && ftruncate(file.get(), status.st_size) != 0)
    __dlog_print(LOG_ID_APPS, DLOG_ERROR, kTag, "%s ends within a line: %s", set_paths::kEventLog,
                 std::strerror(errno));
  return reason;
}

void LogLoss(const Event& event, const char* reason) {
  __dlog_print(LOG_ID_APPS, DLOG_ERROR, kTag, "the event \"%s\" of \"%s\" is not in %s: %s", event.name.c_str(),
               event.service.c_str(), set_paths::kEventLog, reason);
}

const char* TextOf(int reason) {
  return reason == ELOOP ? "it is a symbolic link, which is not followed" : std::strerror(reason);
}

/// Stores the first events, as many as go at once; how many are stored, or given up after a line in the log.
size_t WriteFirst(Events waiting) {
  static bool isLocked = false;  // by somebody else, and the log has it
  static std::chrono::steady_clock::time_point last;
  std::this_thread::sleep_until(last + kTurn);
  const std::string path = SystemPath(set_paths::kEventLog);
  Events events = waiting;
  int reason = Store(path, events);
  // Where there is no room for all of them there may be for one.
  if (reason != 0 && reason != EWOULDBLOCK && waiting.size() > 1) {
    events = waiting.first(1);
    reason = Store(path, events);
  }
  if (reason == EWOULDBLOCK) {
    if (!std::exchange(isLocked, true))
      __dlog_print(LOG_ID_APPS, DLOG_WARN, kTag, "events wait: somebody holds the lock of %s", set_paths::kEventLog);
    return 0;
  }
  isLocked = false;
  last = std::chrono::steady_clock::now();
  if (reason == 0) return events.size();
  LogLoss(waiting.front(), TextOf(reason));
  return 1;
}

/// Lives to the end of the process, whatever its static objects still do then.
WriteQueue<Event>& Writer() {
  static auto& writer = *new WriteQueue<Event>(WriterThread::OfProcess(), kMaxWaiting, WriteFirst);
  static const struct FlushAtEnd {
    ~FlushAtEnd() {
      if (!CLogger::GetInstance()->Flush())
        __dlog_print(LOG_ID_APPS, DLOG_ERROR, kTag, "the process ends, and what waits for %s is lost",
                     set_paths::kEventLog);
    }
  } atEnd;
  return writer;
}

/// Why nothing can be appended to what lies in the log's place; 0 when it can, or is made.
int RefusalOf(const std::string& path) {
  struct stat status;
  if (lstat(path.c_str(), &status) != 0 || S_ISREG(status.st_mode)) return 0;
  return S_ISLNK(status.st_mode) ? ELOOP : S_ISDIR(status.st_mode) ? EISDIR : EINVAL;
}

}  // namespace

CLogger* CLogger::GetInstance() {
  static CLogger& logger = *new CLogger;
  return &logger;
}

int CLogger::AddEventLogSync(const std::string& service, const std::string& event, const std::string& category,
                             const std::string& description) {
  static std::atomic<size_t> dropped = 0;
  const Event added = {service, event,
                       "{\"time\":" + Quoted(Now()) + ",\"service\":" + Quoted(service) +
                           ",\"event\":" + Quoted(event) + ",\"category\":" + Quoted(category) +
                           ",\"description\":" + Quoted(description) + "}\n"};
  if (const int reason = RefusalOf(SystemPath(set_paths::kEventLog))) {
    LogLoss(added, TextOf(reason));
    return -reason;
  }
  if (Writer().Add(added)) return 1;
  const std::string total = std::to_string(++dropped);
  LogLoss(added, (std::to_string(kMaxWaiting) + " wait already; " + total + " dropped so far").c_str());
  return -ENOBUFS;
}

bool CLogger::Flush(std::chrono::milliseconds limit) {
  const auto end = std::chrono::steady_clock::now() + limit;
  const size_t waiting = Writer().Flush(limit);
  if (waiting > 0)
    __dlog_print(LOG_ID_APPS, DLOG_ERROR, kTag, "%zu events wait for %s for more than %lld ms", waiting,
                 set_paths::kEventLog, static_cast<long long>(limit.count()));
  else
    DiskSync::OfProcess().Flush(std::chrono::ceil<std::chrono::milliseconds>(end - std::chrono::steady_clock::now()));
  return waiting == 0;
}

}  // namespace KPILogFramework
