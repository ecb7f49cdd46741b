#include "setd/scrubber.h"

#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <climits>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <sstream>

#include "base/atomic_file.h"
#include "base/folder.h"
#include "base/glib_handle.h"
#include "base/machine_path.h"
#include "setd/scrubber_rules.h"
#include "setd/setd_log.h"
#include "system_info.h"
#include "system_path.h"

namespace setd {

/// A text in which escapes may be the characters that they stand for, and how those were spelled.
struct Readable {
  struct Escape {
    size_t at;
    std::string spelling;
  };
  std::string text;
  std::vector<Escape> escapes;  // in their order
};

namespace {

constexpr size_t kShortestSecret = 3, kShortestLearned = 4, kLongestLearned = 64, kMaxSecrets = 200;
// From this length on a serial number is found within a word, too.
constexpr size_t kUniqueSerial = 8;
// Longer ones would be patterns that are too large, or take as long as they and the text are.
constexpr size_t kLongestSearched = 256;
constexpr size_t kAddressDigits = 12;

/// Words that logs put where a name is expected; to replace them everywhere would spoil the report.
bool IsOrdinaryWord(const std::string& value) {
  constexpr const char* kWords[] = {"any",    "connected", "default", "disabled", "enabled", "error",
                                    "failed", "false",     "hidden",  "invalid",  "network", "none",
                                    "null",   "true",      "unknown", "unset"};
  return std::find(std::begin(kWords), std::end(kWords), value) != std::end(kWords);
}

std::string Hex(unsigned char byte) {
  char text[3];
  std::snprintf(text, sizeof text, "%02x", byte);
  return text;
}

/// The code of the escape that begins at the place: that of "\u00e9".
std::optional<gunichar> EscapedAt(const std::string& text, size_t at) {
  if (at + 6 > text.size() || text[at] != '\\' || text[at + 1] != 'u') return std::nullopt;
  gunichar code = 0;
  for (size_t i = at + 2; i < at + 6; ++i) {
    if (!g_ascii_isxdigit(text[i])) return std::nullopt;
    code = code * 16 + static_cast<gunichar>(g_ascii_xdigit_value(text[i]));
  }
  return code;
}

/// The text with the characters that JSON's escapes stand for, but for control characters and what would end a string
/// of JSON. All backslashes of an escape go: a text of JSON within another has two.
std::string Unescaped(const std::string& text) {
  std::string out;
  size_t copied = 0;
  for (size_t at = 0; (at = text.find("\\u", at)) != text.npos; ++at) {
    std::optional<gunichar> code = EscapedAt(text, at);
    size_t end = at + 6;
    if (code && *code >= 0xd800 && *code < 0xdc00) {
      const size_t next = std::min(text.find_first_not_of('\\', end), text.size());
      const std::optional<gunichar> low = next > end ? EscapedAt(text, next - 1) : std::nullopt;
      if (low && *low >= 0xdc00 && *low < 0xe000) {
        code = 0x10000 + (*code - 0xd800) * 0x400 + (*low - 0xdc00);
        end = next + 5;
      }
    }
    if (!code || !g_unichar_validate(*code) || g_unichar_iscntrl(*code) || *code == '"' || *code == '\\') continue;
    size_t from = at;
    while (from > copied && text[from - 1] == '\\') --from;
    char bytes[6];
    out.append(text, copied, from - copied).append(bytes, static_cast<size_t>(g_unichar_to_utf8(*code, bytes)));
    copied = end;
    at = end - 1;
  }
  return out.append(text, copied, std::string::npos);
}

/// What is the same of all spellings of a value.
std::string KeyOf(const std::string& kind, const std::string& value) {
  std::string key;
  for (size_t i = 0; i < value.size(); ++i) {
    char byte = value[i];
    if (byte == '%' && i + 2 < value.size() && g_ascii_isxdigit(value[i + 1]) && g_ascii_isxdigit(value[i + 2])) {
      byte = static_cast<char>(g_ascii_xdigit_value(value[i + 1]) * 16 + g_ascii_xdigit_value(value[i + 2]));
      i += 2;
    }
    if (kind == "ip" && byte == '-') byte = '.';
    // Hardware addresses and telephone numbers have several separators, and none.
    if ((kind != "mac" && kind != "phone") || g_ascii_isalnum(byte)) key += g_ascii_tolower(byte);
  }
  if (kind != "mail") return key;
  std::erase(key, ' ');
  const size_t at = key.find_first_of("([");
  return at == key.npos ? key : key.replace(at, std::strlen("(at)"), "@");
}

/// A pattern for the text as a word, in the ways in which URLs and logs write it; wireless names also in hexadecimal.
/// Of a very long text it is that of its beginning and of all that follows in the line.
std::string PatternOf(const Scrubber::Secret& secret) {
  std::string plain, hex;
  for (const char each : secret.text.substr(0, kLongestSearched)) {
    const auto byte = static_cast<unsigned char>(each);
    hex += Hex(byte);
    if (std::isalnum(byte))
      plain += each;
    else
      plain += "(?:\\x" + Hex(byte) + "|%" + Hex(byte) + "|\\\\x" + Hex(byte) + (each == ' ' ? "|\\+" : "") + ")";
  }
  if (secret.kind == "ssid") plain += "|" + hex;
  const std::string end = secret.text.size() > kLongestSearched ? R"([^\n]*+)" : "(?![0-9a-z])";
  if (secret.kind == "serial" && secret.text.size() >= kUniqueSerial)
    return "(?i)" + plain + (secret.text.size() > kLongestSearched ? end : "");
  return "(?i)(?:(?<![0-9a-z])|(?<=%[0-9a-f]{2}))(?!" + PlaceholderKindsPattern() + "-\\d++>)(?:" + plain + ")" + end;
}

/// The character, and the end of the escape, that begins at the place: those of JSON and of programs (any number of
/// backslashes, for a text within another) and those of URLs. None when none does.
std::optional<std::pair<char, size_t>> ReadEscape(const std::string& text, size_t at) {
  const auto hex = [&](size_t digits) {
    const bool isByte =
        digits + 2 <= text.size() && g_ascii_isxdigit(text[digits]) && g_ascii_isxdigit(text[digits + 1]);
    return isByte ? g_ascii_xdigit_value(text[digits]) * 16 + g_ascii_xdigit_value(text[digits + 1]) : 0;
  };
  const auto byte = [](int code, size_t end) -> std::optional<std::pair<char, size_t>> {
    if (code < ' ' && code != '\t' && code != '\n' && code != '\r') return std::nullopt;
    return std::pair(static_cast<char>(code), end);
  };
  if (text[at] == '%') {
    size_t digits = at + 1;
    while (text.compare(digits, 2, "25") == 0) digits += 2;
    return byte(hex(digits), digits + 2);
  }
  const size_t kind = text[at] == '\\' ? text.find_first_not_of('\\', at) : text.npos;
  if (kind == text.npos) return std::nullopt;
  constexpr char kKinds[] = "\"'/\nntr", kCharacters[] = "\"'/\n\n\t\r";
  if (const char* const found = std::strchr(kKinds, text[kind]); found && *found)
    return std::pair(kCharacters[found - kKinds], kind + 1);
  if (text[kind] == 'x') return byte(hex(kind + 1), kind + 3);
  if (text.compare(kind, 3, "u00") == 0) return byte(hex(kind + 3), kind + 5);
  return std::nullopt;
}

/// With characters for the escapes.
Readable Read(const std::string& text) {
  Readable out;
  size_t copied = 0;
  for (size_t at = 0; (at = text.find_first_of("\\%", at)) != text.npos;) {
    if (const auto escape = ReadEscape(text, at)) {
      out.text.append(text, copied, at - copied);
      out.escapes.push_back({out.text.size(), text.substr(at, escape->second - at)});
      out.text += escape->first;
      at = copied = escape->second;
    } else {
      at = text[at] == '%' ? at + 1 : std::min(text.find_first_not_of('\\', at), text.size());
    }
  }
  out.text.append(text, copied, std::string::npos);
  return out;
}

/// With the escapes as they were spelled.
std::string Written(const Readable& readable) {
  std::string out;
  size_t copied = 0;
  for (const auto& [at, spelling] : readable.escapes) {
    out.append(readable.text, copied, at - copied).append(spelling);
    copied = at + 1;
  }
  return out.append(readable.text, copied, std::string::npos);
}

/// Has `replace` make something of what the pattern captures as "v", or else of all of each match; placeholders stay.
/// False with a reason when the text was not searched to its end. That names no pattern: one is of what is private.
template <typename Replace>
bool ReplaceAll(Readable& readable, const GRegex* regex, std::string& problem, Replace replace) {
  if (!regex) {
    problem = "a pattern is none";
    return false;
  }
  Readable out;
  size_t copied = 0;
  auto escape = readable.escapes.begin();
  const auto copyUntil = [&](size_t end) {
    for (; escape != readable.escapes.end() && escape->at < end; ++escape)
      out.escapes.push_back({out.text.size() + escape->at - copied, std::move(escape->spelling)});
    out.text.append(readable.text, copied, end - copied);
  };
  GMatchInfo* info = nullptr;
  GErrorHandle error;
  const std::string& text = readable.text;
  g_regex_match_full(regex, text.data(), static_cast<gssize>(text.size()), 0, G_REGEX_MATCH_DEFAULT, &info,
                     error.Out());
  for (; g_match_info_matches(info); g_match_info_next(info, error.Out())) {
    int from = -1, to = -1;
    if (!g_match_info_fetch_named_pos(info, "v", &from, &to) || from < 0) g_match_info_fetch_pos(info, 0, &from, &to);
    const std::string value = text.substr(static_cast<size_t>(from), static_cast<size_t>(to - from));
    if (IsPlaceholder(value)) continue;
    const std::string replaced = replace(value);
    if (replaced == value) continue;
    copyUntil(static_cast<size_t>(from));
    out.text.append(replaced);
    copied = static_cast<size_t>(to);
    while (escape != readable.escapes.end() && escape->at < copied) ++escape;
  }
  g_match_info_unref(info);
  if (error.Get()) {
    problem = "a pattern fails: error " + std::to_string(error.Get()->code);
    return false;
  }
  if (copied > 0) {
    copyUntil(text.size());
    readable = std::move(out);
  }
  return true;
}

std::string LinesOf(const std::string& path) {
  std::string text;
  ReadWholeFile(MachinePath(path), text);
  return text;
}

void AddUsers(std::vector<Scrubber::Secret>& secrets) {
  std::istringstream lines(LinesOf("/etc/passwd"));
  for (std::string line; std::getline(lines, line);) {
    std::vector<std::string> fields;
    std::istringstream parts(line);
    for (std::string part; std::getline(parts, part, ':');) fields.push_back(part);
    // People have ids from 1000; "nobody" has the last but one.
    if (fields.size() < 5 || std::atoi(fields[2].c_str()) < 1000) continue;
    secrets.push_back({"user", fields[0]});
    secrets.push_back({"user", fields[4].substr(0, fields[4].find(','))});
  }
  for (const char* variable : {"USER", "LOGNAME", "SUDO_USER"})
    if (const char* name = std::getenv(variable)) secrets.push_back({"user", name});
}

/// A name out of a file's name, as iwd writes it: plain, or "=" and hexadecimal digits.
std::string FromFileName(const std::string& stem) {
  if (stem.empty() || stem[0] != '=') return stem;
  std::string name;
  for (size_t i = 1; i + 1 < stem.size(); i += 2)
    name += static_cast<char>(std::strtol(stem.substr(i, 2).c_str(), nullptr, 16));
  return name;
}

/// The names of files in a folder of the machine.
std::vector<std::filesystem::path> FilesIn(const char* folder) {
  std::vector<std::filesystem::path> files;
  for (const std::filesystem::path& each : EntriesOf(MachinePath(folder)))
    files.push_back(std::filesystem::path(folder) / each.filename());
  return files;
}

/// The wireless names and the keys that a file of a connection manager has.
void AddWirelessOf(const std::filesystem::path& file, std::vector<Scrubber::Secret>& secrets) {
  const std::pair<const char*, const char*> kKeys[] = {{file.filename() == "settings" ? "Name=" : "ssid=", "ssid"},
                                                       {"psk=", "secret"},
                                                       {"Passphrase=", "secret"},
                                                       {"PreSharedKey=", "secret"},
                                                       {"password=", "secret"}};
  std::istringstream lines(LinesOf(file.string()));
  for (std::string line; std::getline(lines, line);)
    for (const auto& [key, kind] : kKeys) {
      const size_t at = line.find(key);
      if (at == line.npos || (at > 0 && std::isalnum(static_cast<unsigned char>(line[at - 1])))) continue;
      std::string text = line.substr(at + std::strlen(key));
      if (text.size() > 2 && text.front() == '"' && text.back() == '"') text = text.substr(1, text.size() - 2);
      secrets.push_back({kind, text});
    }
}

/// The networks that the connection managers of Linux know; where their files are not readable the text rules remain.
void AddWireless(std::vector<Scrubber::Secret>& secrets) {
  std::vector<std::filesystem::path> files;
  for (const auto& file : FilesIn("/var/lib/iwd"))
    if (file.extension() == ".psk" || file.extension() == ".open" || file.extension() == ".8021x") {
      secrets.push_back({"ssid", FromFileName(file.stem().string())});
      files.push_back(file);
    }
  for (const char* folder : {"/etc/NetworkManager/system-connections", "/etc/wpa_supplicant"})
    for (const auto& file : FilesIn(folder)) files.push_back(file);
  for (const auto& folder : FilesIn("/var/lib/connman"))
    if (folder.filename().string().starts_with("wifi_")) files.push_back(folder / "settings");
  for (const auto& file : files) AddWirelessOf(file, secrets);
}

/// The hardware addresses of the network devices without separators, in which form one of ten digits is like a number.
void AddHardwareAddresses(std::vector<Scrubber::Secret>& secrets) {
  for (const auto& device : FilesIn("/sys/class/net")) {
    std::string digits = LinesOf((device / "address").string());
    std::erase_if(digits, [](char each) { return !g_ascii_isxdigit(each); });
    if (digits.size() == kAddressDigits && digits.find_first_not_of('0') != digits.npos)
      secrets.push_back({"mac", digits});
  }
}

}  // namespace

std::vector<Scrubber::Secret> KnownSecrets() {
  std::vector<Scrubber::Secret> secrets;
  char* serial = nullptr;
  if (system_info_get_value_string(SYSTEM_INFO_KEY_SERIAL_NUMBER, &serial) == SYSTEM_INFO_ERROR_NONE)
    secrets.push_back({"serial", CText(serial).get()});
  char host[HOST_NAME_MAX + 1] = "";
  if (gethostname(host, sizeof host) == 0) secrets.push_back({"host", host});
  AddUsers(secrets);
  AddWireless(secrets);
  AddHardwareAddresses(secrets);
  std::erase_if(secrets, [](const Scrubber::Secret& each) {
    return each.text.size() < kShortestSecret || each.text == "localhost" || IsCommonUser(each.text);
  });
  return secrets;
}

Scrubber::Scrubber(const std::vector<Secret>& secrets) {
  for (const Secret& each : secrets) AddSecret(each);
}

void Scrubber::AddSecret(const Secret& secret) {
  const auto same = [&](const Secret& each) { return each.text == secret.text; };
  if (std::any_of(m_secrets.begin(), m_secrets.end(), same)) return;
  // A name that holds another must go first.
  const auto shorter = [&](const Secret& each) { return each.text.size() < secret.text.size(); };
  m_secrets.insert(std::find_if(m_secrets.begin(), m_secrets.end(), shorter), secret);
}

void Scrubber::Learn(const std::string& text) {
  const std::string plain = Unescaped(text);
  LearnIn({plain, {}});
  if (Readable readable = Read(plain); !readable.escapes.empty()) LearnIn(std::move(readable));
}

void Scrubber::LearnIn(Readable text) {
  std::string problem;
  for (const ScrubRule& rule : ScrubRules()) {
    if (!rule.isName) continue;
    const auto learn = [&](const std::string& value) {
      if (rule.isPrivate(value) && value.size() >= kShortestLearned && value.size() <= kLongestLearned &&
          !IsOrdinaryWord(value) && m_secrets.size() < kMaxSecrets)
        AddSecret({rule.kind, value});
      return value;
    };
    if (!ReplaceAll(text, rule.regex.get(), problem, learn))
      Log(DLOG_ERROR, "not all private names of a text are known: " + problem);
  }
}

std::string Scrubber::Placeholder(const std::string& kind, const std::string& value) {
  std::string& placeholder = m_placeholders[kind + " " + KeyOf(kind, value)];
  if (placeholder.empty()) placeholder = "<" + kind + "-" + std::to_string(++m_counts[kind]) + ">";
  return placeholder;
}

bool Scrubber::CleanIn(Readable& text, std::string& problem) {
  for (const ScrubRule& rule : ScrubRules()) {
    const auto replace = [&](const std::string& value) {
      return rule.isPrivate(value) ? Placeholder(rule.kind, value) : value;
    };
    if (!ReplaceAll(text, rule.regex.get(), problem, replace)) return false;
  }
  return std::all_of(m_secrets.begin(), m_secrets.end(), [&](const Secret& secret) {
    return ReplaceAll(text, CompilePattern(PatternOf(secret)).get(), problem,
                      [&](const std::string&) { return Placeholder(secret.kind, secret.text); });
  });
}

std::optional<std::string> Scrubber::Clean(const std::string& text) {
  if (text.empty()) return text;
  Readable clean{Unescaped(text), {}};
  std::string problem;
  bool isClean = CleanIn(clean, problem);
  // As it stands, escapes tell where a text within another ends; as it reads, none hides what it is.
  if (isClean) {
    clean = Read(clean.text);
    isClean = clean.escapes.empty() || CleanIn(clean, problem);
  }
  if (isClean) return Written(clean);
  // Rather no text than one that nobody has looked at to the end.
  Log(DLOG_ERROR, "a text is left out, it could not be searched for private data: " + problem);
  return std::nullopt;
}

}  // namespace setd
