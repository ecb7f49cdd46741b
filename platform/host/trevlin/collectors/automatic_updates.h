#pragma once
/// @file
/// What the machine does about updates by itself.
///
/// Thread rule: callable from any thread; files are read, and for the desktop's setting its store.

#include <map>
#include <optional>
#include <string>

#include "trevlin/facts.h"

namespace trevlin {

/// Who installs updates without being asked.
enum class UpdateMeans {
  kNone,     ///< nobody that we know; also where the system is an image that is replaced as a whole
  kApt,      ///< unattended-upgrades, from apt's timers
  kDnf,      ///< dnf-automatic, from a timer
  kDesktop,  ///< the desktop's program, which gets them for its user
};
UpdateMeans FindUpdateMeans(const Machine& machine);

/// Whether updates are installed without being asked; nothing without means, or where it cannot be told.
std::optional<bool> AreUpdatesAutomatic(const Machine& machine);
/// Whether lists of what can be installed are fetched without being asked; nothing where there is no such thing.
std::optional<bool> IsRefreshAutomatic(const Machine& machine);

inline constexpr char kAptLists[] = "apt::periodic::update-package-lists";
inline constexpr char kAptUpgrade[] = "apt::periodic::unattended-upgrade";
inline constexpr const char* kAptTimers[] = {"apt-daily.timer", "apt-daily-upgrade.timer"};
inline constexpr char kDnfSettings[] = "/etc/dnf/automatic.conf";
inline constexpr char kDesktopSchema[] = "org.gnome.software", kDesktopKey[] = "download-updates";

/// apt's settings as apt reads them, by their names in small letters; apt.conf(5). Includes are not followed.
std::map<std::string, std::string> ReadAptSettings(const Machine& machine);
/// The same of one text, into `settings`.
void ParseAptSettings(std::string_view text, std::map<std::string, std::string>& settings);

/// dnf's timer that installs, or can be told to.
std::string FindDnfTimer(const Machine& machine);
bool HasUnit(const Machine& machine, const std::string& unit);

}  // namespace trevlin
