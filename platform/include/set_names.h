#pragma once
/// @file
/// Names that the set, its services and its applications share: written once. Settings keys are those of vconf.h.

namespace set_names {

/// The package whose web engine stores in set_paths::kCobaltDir.
inline constexpr char kCobaltPackage[] = "9Ur5IzDKqV";

/// The id of the care application; also its text domain.
inline constexpr char kCareApplication[] = "com.tornelo.TVVexilo";

/// The extra of a request that says where the care application is launched from, and its value for a quick diagnosis
/// without a screen.
inline constexpr char kLaunchMechanism[] = "launch_mech";
inline constexpr char kBackgroundLaunch[] = "bg_inference";

/// int: the user's consent to the content terms, 1 when given.
inline constexpr char kConsentKey[] = "db/menu/home_deck/homedatacontrol/defaultdisclaimeragree";
// int, 1 for on: high contrast, larger texts, spoken texts.
inline constexpr char kHighContrastKey[] = "db/menu/system/accessibility/highcontrast";
inline constexpr char kEnlargeKey[] = "db/menu/system/accessibility/focuszoom";
inline constexpr char kScreenReaderKey[] = "db/menu/system/accessibility/voiceguide";
/// text: the locale of the menus, "de_DE.utf8".
inline constexpr char kMenuLanguageKey[] = "db/menu_widget/language";
/// bool: a database was damaged and has been made anew, and the viewer has not been told yet.
inline constexpr char kDatabaseRenewedKey[] = "db/vexilo/database_renewed";
/// text: the id of the application that is in front.
inline constexpr char kForegroundAppKey[] = "memory/setd/foreground_app";

}  // namespace set_names
