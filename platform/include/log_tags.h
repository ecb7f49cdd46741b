#pragma once
/// @file
/// The tags with which the application, its tools and the platform log. Whoever collects the log's lines asks for all.

namespace log_tags {

inline constexpr char kApplication[] = "TVVexilo";
inline constexpr char kAppfw[] = "APPFW";
inline constexpr char kConnection[] = "CONNECTION";
inline constexpr char kFlatpak[] = "FLATPAK";
inline constexpr char kFlux[] = "FLUX";
inline constexpr char kHomeData[] = "HOME_DATA";
inline constexpr char kKpi[] = "KPI";
inline constexpr char kMenuChecker[] = "MENU_CHECKER";
inline constexpr char kMenuLanguage[] = "MENU_LANGUAGE";
inline constexpr char kPackages[] = "PACKAGES";
inline constexpr char kPkgmgr[] = "PKGMGR";
inline constexpr char kScreenSaver[] = "SCREEN_SAVER";
inline constexpr char kSetd[] = "SETD";
inline constexpr char kSettingsApi[] = "SETTINGS_API";
inline constexpr char kSpeech[] = "SPEECH";
inline constexpr char kStandin[] = "STANDIN";
inline constexpr char kSystemInfo[] = "SYSTEM_INFO";
inline constexpr char kTrevlin[] = "TREVLIN";
inline constexpr char kTvService[] = "TV_SERVICE";
inline constexpr char kVconf[] = "VCONF";
inline constexpr char kWas[] = "WAS";
inline constexpr char kWriter[] = "WRITER";

inline constexpr const char* kAll[] = {kApplication, kAppfw,       kConnection,   kFlatpak,  kFlux,       kHomeData,
                                       kKpi,         kMenuChecker, kMenuLanguage, kPackages, kPkgmgr,     kScreenSaver,
                                       kSetd,        kSettingsApi, kSpeech,       kStandin,  kSystemInfo, kTrevlin,
                                       kTvService,   kVconf,       kWas,          kWriter};

}  // namespace log_tags
