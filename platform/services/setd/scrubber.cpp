#include "setd/scrubber.h"

#include <arpa/inet.h>
#include <glib.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <climits>
#include <filesystem>
#include <sstream>

#include "base/atomic_file.h"
#include "base/glib_handle.h"
#include "setd/report.h"
#include "setd/setd_log.h"
#include "system_info.h"
#include "system_path.h"

namespace setd {

namespace {

using RegexHandle = std::unique_ptr<GRegex, CRelease<&g_regex_unref>>;

constexpr size_t kShortestSecret = 3, kShortestLearned = 4, kMaxSecrets = 200;
// Users of every set and machine; their names tell nothing.
constexpr const char* kCommonUsers[] = {"owner", "root", "nobody", "user"};

bool Always(const std::string&) {
  return true;
}

bool IsPrivateAddress(const std::string& value) {
  in6_addr bytes;
  const int family = value.find(':') == std::string::npos ? AF_INET : AF_INET6;
  if (inet_pton(family, value.c_str(), &bytes) != 1) return false;
  return !value.starts_with("127.") && value != "0.0.0.0" && value != "::" && value != "::1";
}

/// The shared part of the set's one user is the platform's own; all else below a home is somebody's.
bool IsPrivatePath(const std::string& value) {
  return !value.starts_with("/home/owner/share/") && !value.starts_with("/opt/usr/home/owner/share/") &&
         !value.starts_with("/opt/usr/home/owner/.cache/Apps/");
}

bool IsPrivateUser(const std::string& value) {
  return std::find(std::begin(kCommonUsers), std::end(kCommonUsers), value) == std::end(kCommonUsers);
}

/// Words that logs put where a name is expected; to replace them everywhere would spoil the report.
bool IsOrdinaryWord(const std::string& value) {
  constexpr const char* kWords[] = {"any",    "connected", "default", "disabled", "enabled", "error",
                                    "failed", "false",     "hidden",  "invalid",  "network", "none",
                                    "null",   "true",      "unknown", "unset"};
  return std::find(std::begin(kWords), std::end(kWords), value) != std::end(kWords);
}

struct Rule {
  const char* kind;
  const char* pattern;  // what it captures as "v", or else all of it, is replaced
  bool (*isPrivate)(const std::string&);
  bool isName = false;  // can stand anywhere else without what tells that it is one
};
// In this order: an earlier rule takes what a later one would take a part of.
constexpr Rule kRules[] = {
    {"secret",
     R"~((?i)(?:\b|_)(?:psk|passwd|password|passphrase|pass|pwd|pin|token|secret|api[_-]?key)\\?"?\s*[:=]\s*\\?["']?(?<v>[^\s"',;&<>\\]+))~",
     Always},
    {"secret", R"~((?i)\bauthorization\\?"?\s*[:=]\s*(?:(?:bearer|basic|digest)\s+)?(?<v>[^\s"',;<>]+))~", Always},
    {"user", R"~((?i)(?:\b|_)(?:user|username|login|account)=\\?["']?(?<v>[^\s"',;&<>\\]+))~", IsPrivateUser},
    {"mail", R"~([A-Za-z0-9._%+-]+@[A-Za-z0-9-]+(?:\.[A-Za-z0-9-]+)+)~", Always},
    {"path",
     R"~((?:/opt/usr|/var)?/home/[^\s"'<>|:,;)\]}]+|/(?:run/)?media/[^\s"'<>|:,;)\]}]+|(?<![\w/])/root/[^\s"'<>|:,;)\]}]+)~",
     IsPrivatePath},
    {"ssid", R"~((?i)\bwifi_[0-9a-f]{12}_[0-9a-f]*_[a-z]+_[a-z0-9]+)~", Always},
    {"ssid", R"~((?i)\b(?:network|access point|ap)\s+(?:"(?<v>[^"\n]+)"|'(?<v>[^'\n]+)'))~", Always, true},
    {"ssid",
     R"~((?i)(?:\b|_)e?ssid(?:\\?"?\s*[:=]\s*\\?(?:"(?<v>[^"\n]+?)\\?"|'(?<v>[^'\n]+)'|(?<v>[^"',;{}<>\n]+))|\s+(?:"(?<v>[^"\n]+)"|'(?<v>[^'\n]+)')))~",
     Always, true},
    {"serial",
     R"~((?i)(?:\b|_)(?:serial[ _-]?(?:number|no\.?|nr\.?|num)?|s/n|sn)\\?"?(?:\s*[:=]\s*|\s+)\\?"?(?<v>(?=[^\s"',;<>]*\d)[^\s"',;<>]{4,}))~",
     Always, true},
    {"mac", R"~((?i)(?<![0-9a-z])(?:[0-9a-f]{2}[:_-]){5,7}[0-9a-f]{2}(?![0-9a-z]))~", Always},
    {"mac", R"~((?i)(?<![0-9a-z.])[0-9a-f]{4}\.[0-9a-f]{4}\.[0-9a-f]{4}(?![0-9a-z.]))~", Always},
    {"mac", R"~((?i)(?:(?<=enx|wlx)|(?<![0-9a-z-]))[0-9a-f]{12}(?![0-9a-z-]))~", Always},
    {"ip",
     R"~((?<![0-9A-Za-z.])(?<![0-9A-Fa-f:]:)(?:[0-9A-Fa-f]{0,4}:){2,7}(?:[0-9A-Fa-f]{0,4}|(?:\d{1,3}\.){3}\d{1,3})(?![0-9A-Za-z:]))~",
     IsPrivateAddress},
    {"ip", R"~((?<![\d.])(?:\d{1,3}\.){3}\d{1,3}(?![\w]|\.\d))~", IsPrivateAddress},
    {"id", R"~((?i)\b[0-9a-f]{8}-?(?:[0-9a-f]{4}-?){3}[0-9a-f]{12}\b)~", Always},
};

RegexHandle Compile(const std::string& pattern) {
  GErrorHandle error;
  constexpr auto kFlags = static_cast<GRegexCompileFlags>(G_REGEX_RAW | G_REGEX_DUPNAMES | G_REGEX_OPTIMIZE);
  RegexHandle regex(g_regex_new(pattern.c_str(), kFlags, G_REGEX_MATCH_DEFAULT, error.Out()));
  if (!regex) Log(DLOG_FATAL, "pattern " + pattern + ": " + error.Message());
  return regex;
}

std::string Escaped(const std::string& text) {
  const GText escaped(g_regex_escape_string(text.c_str(), static_cast<int>(text.size())));
  return escaped.get();
}

/// The text with what the pattern captures as "v", or else all of each match, replaced by what `replace` makes of it;
/// placeholders stay.
template <typename Replace>
std::string ReplaceAll(const std::string& text, const std::string& pattern, Replace replace) {
  const RegexHandle regex = Compile(pattern);
  if (!regex) return {};
  std::string out;
  size_t copied = 0;
  GMatchInfo* info = nullptr;
  GErrorHandle error;
  g_regex_match_full(regex.get(), text.data(), static_cast<gssize>(text.size()), 0, G_REGEX_MATCH_DEFAULT, &info,
                     error.Out());
  for (; g_match_info_matches(info); g_match_info_next(info, error.Out())) {
    int from = -1, to = -1;
    if (!g_match_info_fetch_named_pos(info, "v", &from, &to) || from < 0) g_match_info_fetch_pos(info, 0, &from, &to);
    const std::string value = text.substr(static_cast<size_t>(from), static_cast<size_t>(to - from));
    if (value.starts_with('<') && value.ends_with('>')) continue;
    out.append(text, copied, static_cast<size_t>(from) - copied).append(replace(value));
    copied = static_cast<size_t>(to);
  }
  g_match_info_unref(info);
  if (!error.Get()) return out.append(text, copied, std::string::npos);
  // Rather no text than one that nobody has looked at to the end.
  Log(DLOG_ERROR, "a text was left out of a report: " + std::string(error.Message()));
  return {};
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
  std::error_code error;
  for (std::filesystem::directory_iterator each(MachinePath(folder), error), end; !error && each != end;
       each.increment(error))
    files.push_back(std::filesystem::path(folder) / each->path().filename());
  return files;
}

/// The networks that the connection managers of Linux know; where their files are not readable the text rules remain.
void AddWirelessNames(std::vector<Scrubber::Secret>& secrets) {
  for (const auto& file : FilesIn("/var/lib/iwd"))
    if (file.extension() == ".psk" || file.extension() == ".open" || file.extension() == ".8021x")
      secrets.push_back({"ssid", FromFileName(file.stem().string())});
  std::vector<std::filesystem::path> files;
  for (const char* folder : {"/etc/NetworkManager/system-connections", "/etc/wpa_supplicant"})
    for (const auto& file : FilesIn(folder)) files.push_back(file);
  for (const auto& folder : FilesIn("/var/lib/connman"))
    if (folder.filename().string().starts_with("wifi_")) files.push_back(folder / "settings");
  for (const auto& file : files) {
    std::istringstream lines(LinesOf(file.string()));
    const std::string key = file.filename() == "settings" ? "Name=" : "ssid=";
    for (std::string line; std::getline(lines, line);) {
      const size_t at = line.find(key);
      if (at == line.npos || (at > 0 && std::isalnum(static_cast<unsigned char>(line[at - 1])))) continue;
      std::string name = line.substr(at + key.size());
      if (name.size() > 2 && name.front() == '"' && name.back() == '"') name = name.substr(1, name.size() - 2);
      secrets.push_back({"ssid", name});
    }
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
  AddWirelessNames(secrets);
  std::erase_if(secrets, [](const Scrubber::Secret& each) {
    return each.text.size() < kShortestSecret || each.text == "localhost" ||
           std::find(std::begin(kCommonUsers), std::end(kCommonUsers), each.text) != std::end(kCommonUsers);
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
  for (const Rule& rule : kRules) {
    if (!rule.isName) continue;
    ReplaceAll(text, rule.pattern, [&](const std::string& value) {
      if (value.size() >= kShortestLearned && !IsOrdinaryWord(value) && m_secrets.size() < kMaxSecrets)
        AddSecret({rule.kind, value});
      return value;
    });
  }
}

std::string Scrubber::Placeholder(const std::string& kind, std::string value) {
  std::transform(value.begin(), value.end(), value.begin(), [](unsigned char c) { return std::tolower(c); });
  std::string& placeholder = m_placeholders[kind + " " + value];
  if (placeholder.empty()) placeholder = "<" + kind + "-" + std::to_string(++m_counts[kind]) + ">";
  return placeholder;
}

std::string Scrubber::Clean(const std::string& text) {
  std::string clean = text;
  for (const Rule& rule : kRules)
    clean = ReplaceAll(clean, rule.pattern, [&](const std::string& value) {
      return rule.isPrivate(value) ? Placeholder(rule.kind, value) : value;
    });
  for (const Secret& secret : m_secrets)
    clean = ReplaceAll(clean, "(?i)(?<![0-9A-Za-z<])" + Escaped(secret.text) + "(?![0-9A-Za-z])",
                       [&](const std::string& value) { return Placeholder(secret.kind, value); });
  return clean;
}

}  // namespace setd
