#include "dlog.h"

#include <fcntl.h>
#include <glib.h>
#include <pthread.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <string>
#include <string_view>

#include "base/atomic_file.h"
#include "base/time_text.h"
#include "c_handle.h"
#include "set_paths.h"
#include "system_path.h"

// Everything here is constant-initialised and never destroyed, so that lines of static constructors and destructors
// arrive. Lines are written without a lock; the one lock guards set-up, rotation and the look at the time zone, and is
// held over a fork, so that the child never inherits it taken.

namespace {

constexpr size_t kMaxLine = 4096;  // also what Linux writes to a pipe in one piece
constexpr off_t kMaxFileSize = 4 << 20;
constexpr char kCutMark[] = " [cut]";
constexpr char kLetters[] = "VDIWEF";

enum Target : unsigned { kStderr = 1, kFile = 2, kJournal = 4 };

constinit std::atomic<int> g_level{-1};  // below every priority until the environment is read
constinit std::atomic<unsigned> g_targets{0};
constinit std::atomic<int> g_fileFd{-1};  // once open, the number stays: rotation puts another file under it
constinit std::mutex g_lock;

[[gnu::constructor]] void HoldLockOverFork() {
  const auto unlock = [] { g_lock.unlock(); };
  pthread_atfork([] { g_lock.lock(); }, unlock, unlock);
}

bool WriteLine(int fd, std::string_view line) {
  ssize_t written;
  do {
    written = write(fd, line.data(), line.size());
  } while (written < 0 && errno == EINTR);
  if (written >= 0 && written < static_cast<ssize_t>(line.size())) errno = ENOSPC;
  return written == static_cast<ssize_t>(line.size());
}

/// The log's own complaints; they cannot go to the log.
void Complain(const std::string& text) {
  WriteLine(STDERR_FILENO, "vexilo log: " + text + "\n");
}

// --- Set-up ----------------------------------------------------------------------------------------------------------

struct Word {
  std::string_view text;
  int value;
};
constexpr Word kLevels[] = {{"verbose", DLOG_VERBOSE}, {"debug", DLOG_DEBUG}, {"info", DLOG_INFO},
                            {"warn", DLOG_WARN},       {"error", DLOG_ERROR}, {"fatal", DLOG_FATAL},
                            {"silent", DLOG_SILENT}};
constexpr Word kTargets[] = {{"stderr", kStderr}, {"file", kFile}, {"journal", kJournal}};

/// The word's value, or 0 after a complaint.
template <size_t count>
int ValueOf(const char* variable, std::string_view text, const Word (&words)[count]) {
  std::string known;
  for (const Word& word : words) {
    if (word.text == text) return word.value;
    known.append(known.empty() ? "" : ", ").append(word.text);
  }
  Complain(std::string(variable) + ": unknown word \"" + std::string(text) + "\"; known are " + known);
  return 0;
}

unsigned ReadTargets() {
  const char* value = std::getenv("VEXILO_LOG_TARGET");
  unsigned targets = 0;
  for (std::string_view rest = value ? value : ""; !rest.empty();) {
    const size_t comma = rest.find(',');
    targets |= static_cast<unsigned>(ValueOf("VEXILO_LOG_TARGET", rest.substr(0, comma), kTargets));
    rest = comma == std::string_view::npos ? "" : rest.substr(comma + 1);
  }
  return targets ? targets : static_cast<unsigned>(kStderr | kFile);
}

int ReadLevel() {
  const char* value = std::getenv("VEXILO_LOG_LEVEL");
  const int level = value && *value ? ValueOf("VEXILO_LOG_LEVEL", value, kLevels) : 0;
  return level ? level : static_cast<int>(DLOG_INFO);
}

/// What the path of the log names now, made where there is nothing.
FdHandle OpenLogFile() {
  return OpenToAppend(SystemPath(set_paths::kLogFile));
}

/// Goes on without a target; standard error stands in for the last one.
void GiveUp(Target target, const std::string& why) {
  const unsigned before = g_targets.fetch_and(~static_cast<unsigned>(target));
  if ((before & target) == 0) return;
  if (before == target) g_targets.fetch_or(kStderr);
  Complain(why);
}

void GiveUpFile(int reason) {
  GiveUp(kFile,
         std::string("cannot write ") + set_paths::kLogFile + ": " + std::strerror(reason) + "; going on without");
}

/// Reads the environment and opens the file, once.
void SetUp() {
  const std::lock_guard guard(g_lock);
  if (g_level.load(std::memory_order_relaxed) >= 0) return;
  g_targets = ReadTargets();
  if (g_targets & kFile) {
    g_fileFd = OpenLogFile().release();
    if (g_fileFd < 0) GiveUpFile(errno);
  }
  g_level.store(ReadLevel(), std::memory_order_release);
}

// --- The line --------------------------------------------------------------------------------------------------------

/// Seconds east of Greenwich. Asked anew each quarter of an hour, the grid on which offsets change, and under the lock
/// that is held over a fork: the C library takes one of its own for the answer, which a child could inherit taken.
int64_t UtcOffset(int64_t now) {
  constexpr int64_t kSlot = 900;
  constexpr int64_t kRange = 1 << 20;
  static constinit std::atomic<int64_t> known{0};  // slot and offset in one, so that they fit together
  int64_t value = known.load(std::memory_order_relaxed);
  if (value / kRange != now / kSlot) {
    const std::lock_guard guard(g_lock);
    const time_t seconds = now;
    std::tm local{};
    localtime_r(&seconds, &local);
    value = now / kSlot * kRange + local.tm_gmtoff + kRange / 2;
    known.store(value, std::memory_order_relaxed);
  }
  return value % kRange - kRange / 2;
}

struct Line {
  std::array<char, kMaxLine> bytes;
  size_t size = 0;
  bool cut = false;

  /// Bytes that fit before the end of the line.
  size_t Room() const { return kMaxLine - sizeof kCutMark - size; }

  /// Appends as much of the text as there is room for.
  void Append(std::string_view text) {
    const size_t fits = std::min(text.size(), Room());
    std::memcpy(bytes.data() + size, text.data(), fits);
    size += fits;
    cut = fits < text.size();
  }

  /// Appends a character or an escape: whole or not at all.
  void AppendWhole(std::string_view character) {
    if (character.size() <= Room())
      Append(character);
    else
      cut = true;
  }

  /// Appends text; what would forge a line, steer a terminal or is no character is written as an escape.
  void AppendVisibly(std::string_view text) {
    while (!text.empty() && !cut) {
      size_t length = PlainLength(text);
      if (length > 0) {
        Append(text.substr(0, length));
      } else if ((length = CharacterLength(text)) > 0) {
        AppendWhole(text.substr(0, length));
      } else {
        AppendEscape(static_cast<unsigned char>(text.front()));
        length = 1;
      }
      text.remove_prefix(length);
    }
  }

  void AppendEscape(unsigned char byte) {
    char escape[8];
    if (byte == '\n' || byte == '\r')
      std::snprintf(escape, sizeof escape, "\\%c", byte == '\n' ? 'n' : 'r');
    else
      std::snprintf(escape, sizeof escape, "\\x%02X", byte);
    AppendWhole(escape);
  }

  /// Ends the line and gives it whole.
  std::string_view Finish() {
    const std::string_view end = cut ? kCutMark : "";
    std::memcpy(bytes.data() + size, end.data(), end.size());
    size += end.size();
    bytes[size++] = '\n';
    return {bytes.data(), size};
  }

  /// Leading bytes that stand for themselves.
  static size_t PlainLength(std::string_view text) {
    size_t length = 0;
    while (length < text.size() && ((text[length] >= ' ' && text[length] <= '~') || text[length] == '\t')) ++length;
    return length;
  }

  /// Bytes of the character beyond ASCII that the text begins with; 0 when it begins with none that can be shown.
  static size_t CharacterLength(std::string_view text) {
    const gunichar character = g_utf8_get_char_validated(text.data(), static_cast<gssize>(text.size()));
    // From 0xFFFFFFFE on they are GLib's words for broken ones; U+0080 to U+009F steer terminals.
    if (character < 0xA0 || character >= 0xFFFFFFFE) return 0;
    return static_cast<size_t>(g_unichar_to_utf8(character, nullptr));
  }
};

/// "2031-05-07 21:04:59.123 W 4711 TVVexilo: message", and a line feed
std::string_view Format(Line& line, int priority, std::string_view tag, std::string_view message) {
  using namespace std::chrono;
  const auto now = floor<milliseconds>(system_clock::now());
  const auto local = now + seconds(UtcOffset(floor<seconds>(now.time_since_epoch()).count()));
  char head[48];
  std::snprintf(head, sizeof head, "%s %c %d ", TimeText(local, ' ').data(), kLetters[priority - DLOG_VERBOSE],
                getpid());
  line.Append(head);
  line.AppendVisibly(tag);
  line.Append(": ");
  line.AppendVisibly(message);
  return line.Finish();
}

// --- The targets -----------------------------------------------------------------------------------------------------

bool SameFile(const struct stat& one, const struct stat& other) {
  return one.st_dev == other.st_dev && one.st_ino == other.st_ino;
}

/// Puts a fresh file under the log's descriptor. Of all processes that find the file full one renames it: the one that
/// holds the file's lock while the path still names it. The others, and whoever comes later, take the new one. The lock
/// is taken on a descriptor of our own, because forked processes share the log's.
void Rotate() {
  const std::lock_guard guard(g_lock);
  const std::string path = SystemPath(set_paths::kLogFile);
  struct stat ours;
  struct stat named;
  FdHandle file = OpenLogFile();
  if (!file || fstat(g_fileFd, &ours) != 0 || fstat(file.get(), &named) != 0) return;
  if (SameFile(ours, named)) {
    if (ours.st_size < kMaxFileSize || flock(file.get(), LOCK_EX | LOCK_NB) != 0) return;
    if (lstat(path.c_str(), &named) != 0 || !SameFile(ours, named)) return;
    if (rename(path.c_str(), (path + ".1").c_str()) != 0) return;
    file = OpenLogFile();
  }
  if (file) dup3(file.get(), g_fileFd, O_CLOEXEC);
}

bool WriteToFile(std::string_view line) {
  const int fd = g_fileFd.load(std::memory_order_relaxed);
  if (!WriteLine(fd, line)) {
    GiveUpFile(errno);
    return false;
  }
  struct stat status;
  if (fstat(fd, &status) == 0 && (status.st_size >= kMaxFileSize || status.st_nlink == 0)) Rotate();
  return true;
}

bool WriteToJournal(int priority, const char* tag, const char* message) {
  constexpr const char* kSyslog[] = {"7", "7", "6", "4", "3", "2"};
  const GLogField fields[] = {
      {"MESSAGE", message, -1}, {"PRIORITY", kSyslog[priority - DLOG_VERBOSE], -1}, {"SYSLOG_IDENTIFIER", tag, -1}};
  if (g_log_writer_journald(G_LOG_LEVEL_MESSAGE, fields, std::size(fields), nullptr) == G_LOG_WRITER_HANDLED)
    return true;
  GiveUp(kJournal, "the journal of this machine cannot be reached; going on without");
  return false;
}

int Write(int priority, const char* tag, const char* message) {
  std::string_view text = message;
  while (!text.empty() && (text.back() == '\n' || text.back() == '\r')) text.remove_suffix(1);
  Line line;
  const std::string_view bytes = Format(line, priority, tag, text);
  const unsigned targets = g_targets.load(std::memory_order_acquire);
  bool taken = false;
  if (targets & kJournal) taken |= WriteToJournal(priority, tag, message);
  if (targets & kFile) taken |= WriteToFile(bytes);
  // A target that was just given up may have made standard error one.
  if (g_targets.load(std::memory_order_acquire) & kStderr) taken |= WriteLine(STDERR_FILENO, bytes);
  return taken ? static_cast<int>(bytes.size()) : -1;
}

}  // namespace

int __dlog_print(log_id_t /*log*/, int priority, const char* tag, const char* format, ...) {
  if (priority < g_level.load(std::memory_order_relaxed) || priority >= DLOG_SILENT) return 0;
  const int savedErrno = errno;
  if (g_level.load(std::memory_order_acquire) < 0) SetUp();
  int result = 0;
  if (priority >= g_level.load(std::memory_order_acquire)) {
    // One byte more than a line holds, so that a cut shows.
    std::array<char, kMaxLine + 1> message;
    va_list arguments;
    va_start(arguments, format);
    errno = savedErrno;  // for %m
    if (std::vsnprintf(message.data(), message.size(), format, arguments) < 0)
      std::snprintf(message.data(), message.size(), "(cannot be formatted) %s", format);
    va_end(arguments);
    result = Write(priority, tag ? tag : "", message.data());
  }
  errno = savedErrno;
  return result;
}
