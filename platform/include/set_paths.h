#pragma once
/// @file
/// Every absolute path of the set that this system uses, written once. Pass them through SystemPath() before use.

namespace set_paths {

// The application.
inline constexpr char kResourceDir[] = "/usr/apps/com.tornelo.TVVexilo/res";
inline constexpr char kFontRules[] = "/usr/apps/com.tornelo.TVVexilo/res/fonts/fonts.conf";
inline constexpr char kLocaleDir[] = "/usr/apps/com.tornelo.TVVexilo/shared/locale";
inline constexpr char kParserPlugin[] = "/usr/lib/libquva_parser.so";
inline constexpr char kSolutionMap[] = "/usr/share/vexilo/solutionmap.xml";
inline constexpr char kRules[] = "/usr/share/trevlin/rules.json";
inline constexpr char kMenuItems[] = "/usr/share/vexilo/menuitems.json";
inline constexpr char kFluxTheme[] = "/usr/share/vexilo-flux/flux.edj";
inline constexpr char kVideoPlayer[] = "/usr/lib/vexilo-video-player.so";
inline constexpr char kSoundPlayer[] = "/usr/lib/vexilo-sound-player.so";
inline constexpr char kTestClip[] = "/usr/share/vexilo/test-clip.ogv";
inline constexpr char kCheckerDir[] = "/usr/share/menu/providers/";

// What all applications of the set share.
inline constexpr char kCommonImagesDir[] = "/usr/share/vexilo-flux/images";

// Databases.
inline constexpr char kTrevlinDatabases[] = "/home/owner/share/Trevlin/DB";
inline constexpr char kInferenceDb[] = "/home/owner/share/Trevlin/DB/inference.db";
inline constexpr char kSolutionDb[] = "/home/owner/share/Trevlin/DB/solution.db";
inline constexpr char kRemainingDb[] = "/opt/usr/home/owner/share/remaining.db";
inline constexpr char kTestDb[] = "/opt/usr/home/owner/share/test.db";

// Exchange with other applications and services.
inline constexpr char kQGuideFolder[] = "/tmp/qsyslink";
inline constexpr char kQGuideResult[] = "/tmp/qsyslink/inference_result";
inline constexpr char kQGuideBackgroundResult[] = "/opt/usr/home/owner/content/Documents/inference_result";
inline constexpr char kTager[] = "/tmp/tager";
inline constexpr char kTagerRequests[] = "/tmp/tager/req";
inline constexpr char kTagerAnswers[] = "/tmp/tager/ack";
inline constexpr char kCobaltSize[] = "/tmp/tager/cobalt_size";
inline constexpr char kReportTriggers[] = "/tmp/kov_NDF";
inline constexpr char kRebootReportTriggers[] = "/tmp/kov_NDF_reboot";

// Packages.
inline constexpr char kPackagesDir[] = "/opt/usr/apps";
inline constexpr char kShippedPackages[] = "/usr/share/vexilo/packages";
inline constexpr char kCobaltDir[] = "/opt/usr/home/owner/.cache/Apps/Cobalt";
inline constexpr char kWebCacheDir[] = "/opt/usr/home/owner/.cache/Apps/WebAppsCache";
inline constexpr char kFlatpakSystemDir[] = "/var/lib/flatpak";
inline constexpr char kFlatpakMoreDirs[] = "/etc/flatpak/installations.d";
inline constexpr char kFlatpakUserDir[] = "/opt/usr/home/owner/.local/share/flatpak";
inline constexpr char kFlatpakDataDir[] = "/opt/usr/home/owner/.var/app";
inline constexpr char kFlatpakHelper[] = "/usr/lib/vexilo-flatpak";

// Programs that do what takes a library of their own.
inline constexpr char kGraphicsHelper[] = "/usr/lib/vexilo-graphics";
inline constexpr char kScreenHelper[] = "/usr/lib/vexilo-screen";
inline constexpr char kSoundHelper[] = "/usr/lib/vexilo-sound";

// What others keep that can be made again.
inline constexpr char kOwnerHome[] = "/opt/usr/home/owner";
inline constexpr char kPackageArchives[] = "/var/cache/apt/archives";
inline constexpr char kLastingTemporary[] = "/var/tmp";
inline constexpr char kCoreDumps[] = "/var/lib/systemd/coredump";
inline constexpr char kCrashReports[] = "/var/crash";
inline constexpr char kJournals[] = "/var/log/journal";
inline constexpr char kJournalSettings[] = "/etc/systemd/journald.conf";  // and NAME.d/*.conf

// Facts of the set.
inline constexpr char kUserPartition[] = "/opt";
inline constexpr char kChipId[] = "/proc/sdp_chipid_val";
inline constexpr char kReleaseMark[] = "/etc/release";
inline constexpr char kDebugMark[] = "/etc/debug";
inline constexpr char kSetProfile[] = "/etc/vexilo/set.conf";
inline constexpr char kDesktopEntries[] = "/usr/share/applications";

// State of the platform on a Linux host.
inline constexpr char kHostState[] = "/var/lib/vexilo-host";
inline constexpr char kHostRun[] = "/run/vexilo-host";
inline constexpr char kDaemonLock[] = "/run/vexilo-host/setd.lock";
inline constexpr char kTrevlinRun[] = "/run/vexilo-host/trevlin";
inline constexpr char kRuleHistories[] = "/run/vexilo-host/trevlin/histories.json";
inline constexpr char kRuleHistoriesLock[] = "/run/vexilo-host/trevlin/lock";
inline constexpr char kRemovalLock[] = "/run/vexilo-host/removals.lock";
inline constexpr char kReportResults[] = "/run/vexilo-host/report_results";
inline constexpr char kSettingsDir[] = "/var/lib/vexilo-host/settings";
inline constexpr char kVolatileSettingsDir[] = "/run/vexilo-host/settings";
inline constexpr char kEventLog[] = "/var/lib/vexilo-host/events.jsonl";
inline constexpr char kPackageOwners[] = "/var/lib/vexilo-host/packages/owners";
inline constexpr char kFlatpakIcons[] = "/var/lib/vexilo-host/flatpak/icons";
inline constexpr char kFlatpakRemovals[] = "/var/lib/vexilo-host/flatpak/removals";
inline constexpr char kHomeDeckReset[] = "/var/lib/vexilo-host/home_deck_reset";
inline constexpr char kHomeDeckResetDone[] = "/var/lib/vexilo-host/home_deck_reset.done";
inline constexpr char kReportsDir[] = "/var/lib/vexilo-host/reports";
inline constexpr char kSetdState[] = "/var/lib/vexilo-host/setd";
inline constexpr char kLastShutdown[] = "/var/lib/vexilo-host/setd/last_shutdown";
inline constexpr char kLogFile[] = "/var/lib/vexilo-host/log/vexilo.log";

}  // namespace set_paths
