#include "kpi_logger.h"

#include <glib.h>
#include <json/json.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <cerrno>
#include <chrono>
#include <cstring>

#include "base/atomic_file.h"
#include "base/time_text.h"
#include "c_handle.h"
#include "dlog.h"
#include "log_tags.h"
#include "set_paths.h"
#include "system_path.h"

namespace KPILogFramework {

namespace {

constexpr const char* kTag = log_tags::kKpi;
constexpr off_t kMaxFileSize = 1 << 20;

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

/// The event log, locked against all other writers, with `status`; with none, errno tells why.
FdHandle OpenLocked(const std::string& path, struct stat& status) {
  while (true) {
    FdHandle file = OpenToAppend(path);
    if (!file) return file;
    while (flock(file.get(), LOCK_EX) != 0)
      if (errno != EINTR) return FdHandle();
    struct stat named;
    if (fstat(file.get(), &status) != 0) return FdHandle();
    // Another writer may have renamed it while this one waited.
    if (lstat(path.c_str(), &named) == 0 && named.st_dev == status.st_dev && named.st_ino == status.st_ino) return file;
  }
}

/// Whether the log ends within a line: a power cut can leave one so.
bool EndsWithinLine(int fd, off_t size) {
  char last = '\n';
  return size > 0 && pread(fd, &last, 1, size - 1) == 1 && last != '\n';
}

/// Appends the line and flushes it; 0 or an error number, and then the log is as it was.
int Store(const std::string& path, std::string line) {
  struct stat status;
  FdHandle file = OpenLocked(path, status);
  if (!file) return errno;
  if (status.st_size > 0 && status.st_size + static_cast<off_t>(line.size()) > kMaxFileSize) {
    if (rename(path.c_str(), (path + ".1").c_str()) != 0) return errno;
    file = OpenLocked(path, status);
    if (!file) return errno;
  }
  if (EndsWithinLine(file.get(), status.st_size)) line.insert(0, 1, '\n');
  const ssize_t written = write(file.get(), line.data(), line.size());
  if (written == static_cast<ssize_t>(line.size()) && fdatasync(file.get()) == 0 &&
      (status.st_size > 0 || SyncFolderOf(path)))
    return 0;
  const int reason = written >= 0 && written < static_cast<ssize_t>(line.size()) ? ENOSPC : errno;
  if (written > 0 && ftruncate(file.get(), status.st_size) != 0)
    __dlog_print(LOG_ID_APPS, DLOG_ERROR, kTag, "%s ends within a line: %s", set_paths::kEventLog,
                 std::strerror(errno));
  return reason;
}

}  // namespace

CLogger* CLogger::GetInstance() {
  static CLogger& logger = *new CLogger;
  return &logger;
}

int CLogger::AddEventLogSync(const std::string& service, const std::string& event, const std::string& category,
                             const std::string& description) {
  const std::string line = "{\"time\":" + Quoted(Now()) + ",\"service\":" + Quoted(service) +
                           ",\"event\":" + Quoted(event) + ",\"category\":" + Quoted(category) +
                           ",\"description\":" + Quoted(description) + "}\n";
  const int reason = Store(SystemPath(set_paths::kEventLog), line);
  if (reason == 0) return 1;
  __dlog_print(LOG_ID_APPS, DLOG_ERROR, kTag, "the event \"%s\" of \"%s\" is not in %s: %s", event.c_str(),
               service.c_str(), set_paths::kEventLog,
               reason == ELOOP ? "it is a symbolic link, which is not followed" : std::strerror(reason));
  return -reason;
}

}  // namespace KPILogFramework
