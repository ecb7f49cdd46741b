#pragma once

#include <map>
#include <string>
#include <utility>

#include "system_info.h"

namespace QUVA {

/// The menu languages of the set, 0 to 87: message id of the language's name, name of its locale. Variants of a
/// language share the message id.
extern const std::map<system_info_language_e, std::pair<std::string, std::string>> languageInfoMap;

/// Which region the set is for, which locale its menus have, and how times and dates are written there.
/// Thread rule: any thread.
class CMenuTimeUtil {
 public:
  static constexpr int kLocaleSize = 512;  ///< bytes of a buffer for a locale's name
  static constexpr int kUnknownRegion = -1;

  /// 1 to 34, or kUnknownRegion when the set does not say.
  static int GetRegionKind();

  /// Copies the locale's name ("de_DE.utf8") of a language to a buffer of kLocaleSize bytes; "UNKNOWN" for a language
  /// that is none. Nothing for a null buffer.
  static void GetLanguageLocale(char* languageLocale, system_info_language_e language);

  /// Stores the locale of the menus, which the caller frees with free(). 0, or -1 and null when none is set.
  static int GetCurrentLanguage(char** languageLocale);

  /// How the current language and region write times and dates, 0 to 5; the order of a date follows from it, see
  /// GetDateFormat().
  static int GetTimeFormatType();
};

}  // namespace QUVA
