#include "trevlin/collectors/automatic_updates.h"

#include <gio/gio.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <climits>

#include "base/glib_handle.h"
#include "trevlin/collectors/readings.h"

namespace trevlin {

namespace {

using SchemaHandle = std::unique_ptr<GSettingsSchema, CRelease<&g_settings_schema_unref>>;

constexpr const char* kUnitFolders[] = {"/etc/systemd/system/", "/usr/lib/systemd/system/", "/lib/systemd/system/"};

std::string Lower(std::string_view text) {
  std::string lower(text);
  std::transform(lower.begin(), lower.end(), lower.begin(), [](char c) { return g_ascii_tolower(c); });
  return lower;
}

/// What the settings consist of: quoted texts, words, and the marks { } ;. Without comments.
std::vector<std::string> AptTokens(std::string_view text) {
  constexpr std::string_view kMarks = "{};", kEnds = " \t\r\n\"{};";
  std::vector<std::string> tokens;
  for (size_t at = 0; at < text.size();) {
    const std::string_view rest = text.substr(at);
    size_t length = 1;
    if (rest.starts_with("/*")) {
      length = std::min(rest.find("*/", 2), rest.size() - 2) + 2;
    } else if (rest.starts_with("//") || rest.front() == '#') {
      length = std::min(rest.find('\n'), rest.size());
    } else if (rest.front() == '"') {
      length = std::min(rest.find('"', 1), rest.size() - 1) + 1;
      tokens.push_back("\"" + std::string(rest.substr(1, length > 1 ? length - 2 : 0)));
    } else if (kMarks.find(rest.front()) != kMarks.npos) {
      tokens.emplace_back(1, rest.front());
    } else if (kEnds.find(rest.front()) == kEnds.npos) {
      length = std::min(rest.find_first_of(kEnds), rest.size());
      tokens.emplace_back(rest.substr(0, length));
    }
    at += length;
  }
  return tokens;
}

bool IsOn(const std::map<std::string, std::string>& settings, const char* name, const char* usual) {
  const auto at = settings.find(name);
  const std::string value = at == settings.end() ? usual : at->second;
  return !value.empty() && value != "0";
}

/// Started at the machine's start: systemd.unit(5), the links that `systemctl enable` makes.
bool IsEnabled(const Machine& machine, const std::string& timer) {
  char target[PATH_MAX];
  const std::string mask = machine.Path(kUnitFolders[0] + timer);
  const ssize_t length = readlink(mask.c_str(), target, sizeof target);
  if (length > 0 && std::string_view(target, static_cast<size_t>(length)) == "/dev/null") return false;
  return std::any_of(std::begin(kUnitFolders), std::end(kUnitFolders), [&](const std::string& folder) {
    return readlink(machine.Path(folder + "timers.target.wants/" + timer).c_str(), target, sizeof target) > 0;
  });
}

bool AreAptTimersEnabled(const Machine& machine) {
  if (!Exists(machine, "/run/systemd/system")) return Exists(machine, "/etc/cron.daily/apt-compat");
  return std::all_of(std::begin(kAptTimers), std::end(kAptTimers),
                     [&](const char* timer) { return IsEnabled(machine, timer); });
}

/// The settings of dnf's timers that only fetch unless told otherwise.
bool DoesDnfInstall(const Machine& machine) {
  const std::string text = ReadText(machine, kDnfSettings).value_or("");
  bool isOn = false;
  for (const std::string_view line : SplitLines(text)) {
    const size_t equals = line.find('=');
    const auto name = SplitWords(line.substr(0, equals));
    if (equals == line.npos || name.size() != 1 || name[0] != "apply_updates") continue;
    const auto value = SplitWords(line.substr(equals + 1));
    const std::string word = value.empty() ? "" : Lower(value[0]);
    isOn = word == "yes" || word == "true" || word == "1" || word == "on";
  }
  return isOn;
}

/// The desktop keeps its settings for each user; the daemon's are nobody's.
bool HasDesktopSetting(const Machine& machine) {
  GSettingsSchemaSource* const source = g_settings_schema_source_get_default();
  if (machine.IsCaptured() || getuid() == 0 || !source) return false;
  const SchemaHandle schema(g_settings_schema_source_lookup(source, kDesktopSchema, TRUE));
  return schema && g_settings_schema_has_key(schema.get(), kDesktopKey);
}

/// The system comes as a whole, and is replaced so.
bool IsImage(const Machine& machine) {
  struct statvfs system;
  return Exists(machine, "/run/ostree-booted") ||
         (statvfs(machine.Path("/usr").c_str(), &system) == 0 && (system.f_flag & ST_RDONLY) != 0);
}

}  // namespace

void ParseAptSettings(std::string_view text, std::map<std::string, std::string>& settings) {
  std::vector<std::string> scopes;
  std::string name, value;
  const auto full = [&scopes](const std::string& last) {
    std::string path;
    for (const std::string& scope : scopes) path += scope.empty() ? "" : scope + "::";
    return path + last;
  };
  for (const std::string& token : AptTokens(text)) {
    if (token == "{") {
      scopes.push_back(Lower(name));
    } else if (token == "}" || token == ";") {
      if (!name.empty()) settings[full(Lower(name))] = value;
      if (token == "}" && !scopes.empty()) scopes.pop_back();
    } else if (name.empty()) {
      name = token;
      continue;
    } else {
      value = token.front() == '"' ? token.substr(1) : token;
      continue;
    }
    name.clear();
    value.clear();
  }
}

std::map<std::string, std::string> ReadAptSettings(const Machine& machine) {
  const std::string folder = "/etc/apt/apt.conf.d/";
  std::map<std::string, std::string> settings;
  for (const std::string& name : ListNames(machine, folder))
    // As run-parts(8) does, apt leaves other names alone, as those of backups.
    if (name.find_first_of(".~") == name.npos || name.ends_with(".conf"))
      ParseAptSettings(ReadText(machine, folder + name).value_or(""), settings);
  ParseAptSettings(ReadText(machine, "/etc/apt/apt.conf").value_or(""), settings);
  return settings;
}

bool HasUnit(const Machine& machine, const std::string& unit) {
  return std::any_of(std::begin(kUnitFolders), std::end(kUnitFolders),
                     [&](const std::string& folder) { return Exists(machine, folder + unit); });
}

std::string FindDnfTimer(const Machine& machine) {
  for (const char* timer : {"dnf-automatic-install.timer", "dnf5-automatic.timer", "dnf-automatic.timer"})
    if (HasUnit(machine, timer)) return timer;
  return "";
}

UpdateMeans FindUpdateMeans(const Machine& machine) {
  if (IsImage(machine)) return UpdateMeans::kNone;
  if (Exists(machine, "/usr/bin/unattended-upgrade")) return UpdateMeans::kApt;
  if (!FindDnfTimer(machine).empty()) return UpdateMeans::kDnf;
  return HasDesktopSetting(machine) ? UpdateMeans::kDesktop : UpdateMeans::kNone;
}

std::optional<bool> AreUpdatesAutomatic(const Machine& machine) {
  switch (FindUpdateMeans(machine)) {
    case UpdateMeans::kApt: {
      const auto settings = ReadAptSettings(machine);
      return IsOn(settings, "apt::periodic::enable", "1") && IsOn(settings, kAptLists, "0") &&
             IsOn(settings, kAptUpgrade, "0") && AreAptTimersEnabled(machine);
    }
    case UpdateMeans::kDnf:
      return IsEnabled(machine, "dnf-automatic-install.timer") ||
             ((IsEnabled(machine, "dnf-automatic.timer") || IsEnabled(machine, "dnf5-automatic.timer")) &&
              DoesDnfInstall(machine));
    case UpdateMeans::kDesktop: {
      const GObjectHandle<GSettings> settings(g_settings_new(kDesktopSchema));
      return g_settings_get_boolean(settings.get(), kDesktopKey) != FALSE;
    }
    case UpdateMeans::kNone:
      break;
  }
  return std::nullopt;
}

std::optional<bool> IsRefreshAutomatic(const Machine& machine) {
  for (const char* timer : {"dnf-makecache.timer", "dnf5-makecache.timer"})
    if (HasUnit(machine, timer)) return IsEnabled(machine, timer);
  if (!Exists(machine, "/var/lib/apt/lists")) return std::nullopt;
  const auto settings = ReadAptSettings(machine);
  return IsOn(settings, "apt::periodic::enable", "1") && IsOn(settings, kAptLists, "0") && AreAptTimersEnabled(machine);
}

}  // namespace trevlin
