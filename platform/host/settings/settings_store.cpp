#include "settings/settings_store.h"

#include <array>
#include <cerrno>
#include <charconv>
#include <cstring>

#include "base/atomic_file.h"
#include "plain_text.h"
#include "set_paths.h"
#include "system_path.h"

namespace settings {

namespace {

constexpr size_t kMaxKey = 150;
constexpr size_t kMaxFileName = 248;  // seven bytes short of the file system's limit, for the name while it is written
constexpr size_t kMaxText = 65536;
constexpr size_t kMaxContent = 2 * kMaxText;  // a text, with its type
constexpr std::string_view kVolatilePrefix = "memory/";
constexpr std::array<const char*, 4> kTypeNames = {"int", "bool", "double", "string"};

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
  return key.starts_with(kVolatilePrefix) ? set_paths::kVolatileSettingsDir : set_paths::kSettingsDir;
}

ReadResult Read(std::string_view key, Value& value, std::string& error) {
  if (const char* problem = KeyProblem(key)) {
    error = Message(key, problem);
    return ReadResult::kFailed;
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
  if (const char* problem = KeyProblem(key)) {
    error = Message(key, problem);
    return false;
  }
  const std::string text = ToText(value);
  if (!FromText(TypeName(value), text)) {
    error = Message(key, "a text is at most 65536 bytes without null bytes");
    return false;
  }
  const std::string content = std::string(TypeName(value)) + "\n" + text;
  const std::string path = SystemPath(FileOfKey(key));
  std::string present;
  if (ReadWholeFile(path, present, Links::kRefuse, kMaxContent) && present == content) return true;
  if (PublishFile(path, content)) return true;
  if (errno == ENOENT && MakeFolders(SystemPath(FolderOfKey(key))) && PublishFile(path, content)) return true;
  error = FileMessage(key, "write", errno);
  return false;
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
