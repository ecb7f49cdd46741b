#include "dlog.h"

#include <fcntl.h>
#include <glib.h>
#include <pthread.h>
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
#include <new>
#include <span>
#include <string>
#include <string_view>

#include "base/atomic_file.h"
#include "base/background_writing.h"
#include "base/file_lock.h"
#include "base/time_text.h"
#include "base/writer_thread.h"
#include "c_handle.h"
#include "log_tags.h"
#include "set_paths.h"
#include "system_path.h"

// Everything here is constant-initialised and never destroyed, so that lines of static constructors and destructors
// arrive. Lines are written without a lock. One lock guards set-up and the look at the time zone, and is held over a
// fork, so that the child never inherits it taken. Another one guards which file is the log's; whoever forks does not
// wait for it, as it is held while the disk is asked: the child has a new one.

namespace {

constexpr size_t kMaxLine = 4096;  // also what Linux writes to a pipe in one piece
constexpr off_t kMaxFileSize = 4 << 20;
constexpr size_t kMaxWaiting = 4096;                 // lines
constexpr std::chrono::seconds kOpenPause(1);        // until a file that cannot be opened is tried again
constexpr std::chrono::milliseconds kErrorWait(20);  // for an error's line: the process may end with the next step
constexpr char kCutMark[] = " [cut]";
constexpr char kLetters[] = "VDIWEF";

enum Target : unsigned { kStderr = 1, kFile = 2, kJournal = 4 };

constinit std::atomic<int> g_level{-1};  // below every priority until the environment is read
constinit std::atomic<unsigned> g_targets{0};
constinit std::atomic<int> g_fileFd{-1};  // once open, the number stays: rotation puts another file under it
constinit std::mutex g_lock;
constinit std::mutex g_fileLock;
constinit std::atomic<bool> g_fileFails{false};  // and standard error has it
constinit std::atomic<int> g_fileReason{0};
constinit std::atomic<size_t> g_missing{0};  // lines that the file has not
constinit std::atomic<int64_t> g_opened{0};  // when that was tried last, in nanoseconds

[[gnu::constructor]] void HoldLockOverFork() {
  const auto unlock = [] { g_lock.unlock(); };
  pthread_atfork([] { g_lock.lock(); }, unlock,
                 [] {
                   g_lock.unlock();
                   new (&g_fileLock) std::mutex;
                 });
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

/// Goes on without a line in the file; what is wrong is said once, until one can be written again.
void MissLine(int reason) {
  g_fileReason = reason;
  ++g_missing;
  if (!g_fileFails.exchange(true))
    Complain(std::string("cannot write ") + set_paths::kLogFile + ": " + std::strerror(reason) + "; going on without");
}

/// Reads the environment, once.
void SetUp() {
  const std::lock_guard guard(g_lock);
  if (g_level.load(std::memory_order_relaxed) >= 0) return;
  g_targets = ReadTargets();
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
/// holds the lock while the path still names it. The others, and whoever comes later, take the new one.
void Rotate() {
  const std::lock_guard guard(g_fileLock);
  const std::string path = SystemPath(set_paths::kLogFile);
  struct stat ours;
  struct stat named;
  FdHandle file = OpenLogFile();
  if (!file || fstat(g_fileFd, &ours) != 0 || fstat(file.get(), &named) != 0) return;
  if (SameFile(ours, named)) {
    if (ours.st_size < kMaxFileSize) return;
    const FdHandle lock = LockBeside(path, std::chrono::steady_clock::now());
    if (!lock || lstat(path.c_str(), &named) != 0 || !SameFile(ours, named)) return;
    if (rename(path.c_str(), (path + ".1").c_str()) != 0) return;
    file = OpenLogFile();
  }
  if (file) dup3(file.get(), g_fileFd, O_CLOEXEC);
}

/// Opens the file where it is not; what cannot be opened is left alone for a while. False with errno.
bool OpenIfNot() {
  if (g_fileFd.load(std::memory_order_relaxed) >= 0) return true;
  const std::lock_guard guard(g_fileLock);
  if (g_fileFd >= 0) return true;
  const int64_t now = std::chrono::nanoseconds(std::chrono::steady_clock::now().time_since_epoch()).count();
  errno = g_fileReason;
  if (g_fileFails && now - g_opened < std::chrono::nanoseconds(kOpenPause).count()) return false;
  g_opened = now;
  g_fileFd = OpenLogFile().release();
  return g_fileFd >= 0;
}

/// Writes the line whole or not at all: a part of it, at a full disk, is taken back unless something follows it
/// already.
bool WriteWhole(int fd, std::string_view line) {
  ssize_t written;
  do {
    written = write(fd, line.data(), line.size());
  } while (written < 0 && errno == EINTR);
  if (written == static_cast<ssize_t>(line.size())) return true;
  if (written < 0) return false;
  const std::string_view part = line.substr(0, static_cast<size_t>(written));
  std::array<char, kMaxLine> end;
  struct stat status;
  const bool isLast = fstat(fd, &status) == 0 && status.st_size >= written &&
                      pread(fd, end.data(), part.size(), status.st_size - written) == written &&
                      std::string_view(end.data(), part.size()) == part;
  // Where it cannot be taken back it stays.
  [[maybe_unused]] const int kept = isLast ? ftruncate(fd, status.st_size - written) : 0;
  errno = ENOSPC;
  return false;
}

/// A line that says how many there should be in its place, where there are any.
bool WriteMissing(int fd) {
  const size_t missing = g_missing.exchange(0);
  if (missing == 0) return true;
  char text[128];
  std::snprintf(text, sizeof text, "%zu lines are missing here: %s", missing, std::strerror(g_fileReason));
  Line line;
  if (WriteWhole(fd, Format(line, DLOG_WARN, log_tags::kWriter, text))) return true;
  g_missing += missing;
  return false;
}

bool WriteToFile(std::string_view line) {
  if (!OpenIfNot() || !WriteMissing(g_fileFd) || !WriteWhole(g_fileFd, line)) {
    MissLine(errno);
    return false;
  }
  g_fileFails = false;
  const int fd = g_fileFd;
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
  if (g_targets.fetch_and(~static_cast<unsigned>(kJournal)) & kJournal)
    Complain("the journal of this machine cannot be reached; going on without");
  return false;
}

/// A line as it goes to the targets that may have to be waited for; `tag` and `message` are the journal's.
struct LineToWrite {
  int priority;
  std::string tag, message, bytes;
};

/// Writes it to the file and the journal. Where standard error is no target it stands in for the others.
bool WriteOut(int priority, const char* tag, const char* message, std::string_view bytes) {
  const unsigned targets = g_targets.load(std::memory_order_relaxed);
  bool taken = false;
  if (targets & kJournal) taken |= WriteToJournal(priority, tag, message);
  if (targets & kFile) taken |= WriteToFile(bytes);
  return taken || ((targets & kStderr) == 0 && WriteLine(STDERR_FILENO, bytes));
}

constinit std::atomic<bool> g_isLate{false};  // an error's line did not get written in its time

WriteQueue<LineToWrite>& Queue() {
  static auto& queue =
      *new WriteQueue<LineToWrite>(WriterThread::OfProcess(), kMaxWaiting, [](std::span<const LineToWrite> waiting) {
        for (const auto& [priority, tag, message, bytes] : waiting)
          WriteOut(priority, tag.c_str(), message.c_str(), bytes);
        g_isLate = false;
        return waiting.size();
      });
  return queue;
}

bool WriteInBackground(int priority, const char* tag, const char* message, std::string_view bytes) {
  LineToWrite line{priority, "", "", std::string(bytes)};
  if (g_targets & kJournal) line.tag = tag, line.message = message;
  if (!Queue().Add(std::move(line))) {
    MissLine(ENOBUFS);
    return false;
  }
  if (priority >= DLOG_ERROR && !g_isLate) g_isLate = Queue().Flush(kErrorWait) > 0;
  return true;
}

int Write(int priority, const char* tag, const char* message) {
  std::string_view text = message;
  while (!text.empty() && (text.back() == '\n' || text.back() == '\r')) text.remove_suffix(1);
  Line line;
  const std::string_view bytes = Format(line, priority, tag, text);
  const unsigned targets = g_targets.load(std::memory_order_acquire);
  bool taken = false;
  if (targets != kStderr)
    taken = IsWritingInBackground() ? WriteInBackground(priority, tag, message, bytes)
                                    : WriteOut(priority, tag, message, bytes);
  if (targets & kStderr) taken |= WriteLine(STDERR_FILENO, bytes);
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
