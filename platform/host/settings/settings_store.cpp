#include "settings/settings_store.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <chrono>
#include <cstring>
#include <map>
#include <mutex>
#include <span>
#include <vector>

#include "base/atomic_file.h"
#include "base/background_writing.h"
#include "base/disk_sync.h"
#include "base/folder.h"
#include "base/writer_thread.h"
#include "plain_text.h"
#include "set_paths.h"
#include "settings/settings_log.h"
#include "system_path.h"

namespace settings {

namespace {

constexpr size_t kMaxKey = 150;
constexpr size_t kMaxFileName = 248;  // seven bytes short of the file system's limit, for the name while it is written
constexpr size_t kMaxText = 65536;
constexpr size_t kMaxContent = 2 * kMaxText;  // a text, with its type
constexpr std::string_view kVolatilePrefix = "memory/";
constexpr std::array<const char*, 4> kTypeNames = {"int", "bool", "double", "string"};

bool IsVolatile(std::string_view key) {
  return key.starts_with(kVolatilePrefix);
}

std::string FileOfKey(std::string_view key) {
  return std::string(FolderOfKey(key)) + "/" + FileNameOfKey(key);
}

std::string Message(std::string_view key, const std::string& problem) {
  return "settings key \"" + std::string(key) + "\": " + problem;
}

std::string FileMessage(std::string_view key, const char* action, int reason) {
  return Message(
      key, std::string("cannot ") + action + " " + FileOfKey(key) + ": " +
               (reason == ELOOP ? "it is a symbolic link, which is not followed" : WhyUnread(reason, kMaxContent)));
}

template <typename Number>
std::string NumberToText(Number number) {
  std::array<char, 32> text;
  const auto result = std::to_chars(text.data(), text.data() + text.size(), number);
  return {text.data(), result.ptr};
}

template <typename Number>
std::optional<Value> NumberFromText(std::string_view text) {
  Number number{};
  const char* const end = text.data() + text.size();
  const auto [parsed, error] = std::from_chars(text.data(), end, number);
  if (error != std::errc() || parsed != end) return std::nullopt;
  return number;
}

/// Why the value cannot be the key's; empty when it can.
std::string ProblemOf(std::string_view key, const Value& value) {
  if (const char* problem = KeyProblem(key)) return problem;
  return FromText(TypeName(value), ToText(value)) ? "" : "a text is at most 65536 bytes without null bytes";
}

std::string ContentOf(const Value& value) {
  return std::string(TypeName(value)) + "\n" + ToText(value);
}

bool Holds(const std::string& path, std::string_view content) {
  std::string present;
  return ReadWholeFile(path, present, Links::kRefuse, kMaxContent) && present == content;
}

// --- In the background -----------------------------------------------------------------------------------------------

constexpr size_t kMaxWaiting = 1000;
constexpr std::chrono::milliseconds kSyncPatience(200);

/// The values that were taken and are not stored yet. Lives to the end of the process.
class WaitingValues {
 public:
  struct Entry {
    Value value;
    uint64_t number;  ///< of the call that gave it
  };

  void Put(const std::string& key, const Value& value) {
    const std::lock_guard guard(m_lock);
    m_entries[key] = {value, ++m_calls};
  }
  std::optional<Entry> Find(std::string_view key) {
    const std::lock_guard guard(m_lock);
    const auto found = m_entries.find(key);
    if (found == m_entries.end()) return std::nullopt;
    return found->second;
  }
  /// Unless another value was taken meanwhile.
  void Forget(const std::string& key, uint64_t number) {
    const std::lock_guard guard(m_lock);
    const auto found = m_entries.find(key);
    if (found != m_entries.end() && found->second.number == number) m_entries.erase(found);
  }

 private:
  std::mutex m_lock;
  std::map<std::string, Entry, std::less<>> m_entries;
  uint64_t m_calls = 0;
};

WaitingValues& Waiting() {
  static auto& values = *new WaitingValues;
  return values;
}

/// One that is written beside its file.
struct StagedValue {
  std::string key;
  uint64_t number;
  StagedFile file;
};

/// Where there is something to be stored, adds it to `staged`.
void Stage(const std::string& key, std::vector<StagedValue>& staged) {
  const auto entry = Waiting().Find(key);
  if (!entry) return;
  const std::string path = SystemPath(FileOfKey(key));
  const std::string content = ContentOf(entry->value);
  StagedFile file;
  if (!Holds(path, content)) {
    if (file.Write(path, content) ||
        (errno == ENOENT && MakeFolders(SystemPath(FolderOfKey(key))) && file.Write(path, content))) {
      staged.push_back({key, entry->number, std::move(file)});
      return;
    }
    LogError(FileMessage(key, "write", errno));
  }
  Waiting().Forget(key, entry->number);
}

/// Stores the last value of each key, in the order in which these were given. The disk is waited for so long that a
/// power cut leaves the old value or the new one; one that takes longer is not, so that others see the value.
size_t Store(std::span<const std::string> keys) {
  std::vector<StagedValue> staged;
  for (auto key = keys.begin(); key != keys.end(); ++key)
    if (std::find(key + 1, keys.end(), *key) == keys.end()) Stage(*key, staged);
  DiskSync& disk = DiskSync::OfProcess();
  const auto lasts = [](const StagedValue& each) { return !IsVolatile(each.key); };
  const bool isWaitedFor = std::ranges::any_of(staged, lasts);
  for (const StagedValue& each : staged)
    if (lasts(each)) disk.Add(SystemPath(FileOfKey(each.key)), each.file.Fd());
  if (isWaitedFor) disk.Flush(kSyncPatience);
  for (StagedValue& each : staged) {
    if (!each.file.Publish()) LogError(FileMessage(each.key, "write", errno));
    Waiting().Forget(each.key, each.number);
  }
  if (isWaitedFor) disk.AddFolderOf(SystemPath(set_paths::kSettingsDir) + "/");
  return keys.size();
}

/// What a look can tell, which waits for nobody; 0 or an error number.
int RefusalOf(std::string_view key) {
  struct stat status;
  if (lstat(SystemPath(FileOfKey(key)).c_str(), &status) == 0 && S_ISDIR(status.st_mode)) return EISDIR;
  return access(SystemPath(FolderOfKey(key)).c_str(), W_OK | X_OK) == 0 || errno == ENOENT ? 0 : errno;
}

}  // namespace

const char* KeyProblem(std::string_view key) {
  if (key.empty()) return "a key cannot be empty";
  if (key.size() > kMaxKey) return "a key is at most 150 bytes";
  for (const char byte : key)
    if (byte <= ' ' || byte > '~') return "a key is printable ASCII without blanks";
  for (std::string_view rest = key; true;) {
    const size_t slash = rest.find('/');
    const std::string_view part = rest.substr(0, slash);
    if (part.empty() || part == "." || part == "..") return "a key has no empty, \".\" or \"..\" part";
    if (slash == std::string_view::npos) break;
    rest.remove_prefix(slash + 1);
  }
  if (FileNameOfKey(key).size() > kMaxFileName)
    return "a key is at most 248 bytes, counting three for each but letters, digits, '.', '_' and '-'";
  return nullptr;
}

const char* TypeName(const Value& value) {
  return kTypeNames[value.index()];
}

std::string ToText(const Value& value) {
  if (const auto* text = std::get_if<std::string>(&value)) return *text;
  if (const auto* flag = std::get_if<bool>(&value)) return *flag ? "true" : "false";
  if (const auto* number = std::get_if<int>(&value)) return NumberToText(*number);
  return NumberToText(std::get<double>(value));
}

std::optional<Value> FromText(std::string_view type, std::string_view text) {
  if (type == "int") return NumberFromText<int>(text);
  if (type == "double") return NumberFromText<double>(text);
  if (type == "bool" && (text == "true" || text == "false")) return text == "true";
  // Callers in C see a text up to its first null byte, so none with one is let in.
  if (type == "string" && text.size() <= kMaxText && text.find('\0') == std::string_view::npos)
    return std::string(text);
  return std::nullopt;
}

const char* FolderOfKey(std::string_view key) {
  return IsVolatile(key) ? set_paths::kVolatileSettingsDir : set_paths::kSettingsDir;
}

std::string FileNameOfKey(std::string_view key) {
  constexpr char kDigits[] = "0123456789ABCDEF";
  std::string name;
  for (const char byte : key) {
    if (IsPlain(byte)) {
      name += byte;
    } else {
      const auto code = static_cast<unsigned char>(byte);
      name += {'%', kDigits[code >> 4], kDigits[code & 15]};
    }
  }
  return name;
}

std::vector<std::string> KeysBelow(std::string_view prefix) {
  std::vector<std::string> keys;
  for (const auto& file : EntriesOf(SystemPath(FolderOfKey(prefix))))
    if (std::string key = KeyOfFileName(file.filename().native()); !key.empty() && key.starts_with(prefix))
      keys.push_back(std::move(key));
  return keys;
}

ReadResult Read(std::string_view key, Value& value, std::string& error) {
  if (const char* problem = KeyProblem(key)) {
    error = Message(key, problem);
    return ReadResult::kFailed;
  }
  if (auto entry = Waiting().Find(key)) {
    value = std::move(entry->value);
    return ReadResult::kOk;
  }
  std::string content;
  if (!ReadWholeFile(SystemPath(FileOfKey(key)), content, Links::kRefuse, kMaxContent)) {
    if (errno == ENOENT) return ReadResult::kNotSet;
    error = FileMessage(key, "read", errno);
    return ReadResult::kFailed;
  }
  const size_t lineEnd = content.find('\n');
  if (lineEnd != std::string::npos) {
    const std::string_view file = content;
    if (auto read = FromText(file.substr(0, lineEnd), file.substr(lineEnd + 1))) {
      value = std::move(*read);
      return ReadResult::kOk;
    }
  }
  error = Message(key, FileOfKey(key) + " is damaged: " +
                           (content.empty() ? "it is empty"
                            : lineEnd == std::string::npos
                                ? "it ends within the first line"
                                : "\"" + content.substr(0, lineEnd).substr(0, 32) + "\" followed by " +
                                      std::to_string(content.size() - lineEnd - 1) + " bytes is no type with a value"));
  return ReadResult::kFailed;
}

bool Write(std::string_view key, const Value& value, std::string& error) {
  if (const std::string problem = ProblemOf(key, value); !problem.empty()) {
    error = Message(key, problem);
    return false;
  }
  const std::string content = ContentOf(value);
  const std::string path = SystemPath(FileOfKey(key));
  if (Holds(path, content)) return true;
  if (PublishFile(path, content)) return true;
  if (errno == ENOENT && MakeFolders(SystemPath(FolderOfKey(key))) && PublishFile(path, content)) return true;
  error = FileMessage(key, "write", errno);
  return false;
}

bool WriteSoon(std::string_view key, const Value& value, std::string& error) {
  if (!IsWritingInBackground() || !ProblemOf(key, value).empty()) return Write(key, value, error);
  if (const int reason = RefusalOf(key)) {
    error = FileMessage(key, "write", reason);
    return false;
  }
  static auto& queue = *new WriteQueue<std::string>(WriterThread::OfProcess(), kMaxWaiting, Store);
  static std::mutex lock;
  const std::lock_guard guard(lock);  // the queue's order is that of the values, and only the thread changes its room
  if (queue.IsFull()) {
    error = Message(key, std::to_string(kMaxWaiting) + " values wait already");
    return false;
  }
  const std::string name(key);
  Waiting().Put(name, value);
  return queue.Add(name);
}

std::string KeyOfFileName(std::string_view fileName) {
  std::string key;
  for (size_t i = 0; i < fileName.size(); ++i) {
    unsigned char code = 0;
    const char* const digits = fileName.data() + i + 1;
    if (fileName[i] == '%' && i + 2 < fileName.size() &&
        std::from_chars(digits, digits + 2, code, 16).ptr == digits + 2) {
      key += static_cast<char>(code);
      i += 2;
    } else {
      key += fileName[i];
    }
  }
  // One key has one name: what would be written otherwise stands for none.
  return !KeyProblem(key) && FileNameOfKey(key) == fileName ? key : std::string();
}

}  // namespace settings
