#include "settings/menu_language.h"

#include <libintl.h>

#include <algorithm>
#include <clocale>
#include <cstdlib>
#include <sstream>
#include <string>
#include <string_view>

#include "c_handle.h"
#include "dlog.h"
#include "log_tags.h"
#include "plain_text.h"
#include "set_names.h"
#include "settings/text_catalogue.h"
#include "vconf.h"

namespace {

constexpr const char* kTag = log_tags::kMenuLanguage;
constexpr char kEnglish[] = "en_US.utf8";
constexpr char kNeutral[] = "C.UTF-8";

bool IsLocaleName(const std::string& locale) {
  const std::string language = LanguageOfLocale(locale);
  return language.size() >= 2 && language.size() <= 3 && IsPlain(locale, "@");
}

/// Whose texts are read more easily than another region's or English ones, the closest first.
constexpr struct {
  std::string_view name, relatives;
} kRelatives[] = {{"pt_PT", ":pt_BR"}, {"zh_HK", ":zh_TW:zh_CN"}, {"zh_TW", ":zh_HK:zh_CN"}};

/// "de_DE.utf8" as gettext's list of languages, "de_DE:de:en"; "sr_RS.utf8@latin" as "sr_RS@latin:sr@latin:en". English
/// stands in for texts that a catalogue has not.
std::string LanguagesOf(const std::string& locale) {
  const size_t modifierAt = std::min(locale.find('@'), locale.size());
  const std::string modifier = locale.substr(modifierAt);
  const std::string name = locale.substr(0, std::min(locale.find('.'), modifierAt));
  const std::string language = LanguageOfLocale(locale);
  std::string languages = (name == language ? "" : name + modifier + ":") + language + modifier;
  for (const auto& [of, relatives] : kRelatives)
    if (name == of) languages += relatives;
  return languages + (language == "en" ? "" : ":en");
}

/// Of a list of languages those whose catalogues are sound, or have none; "C", which has no catalogue, where none is.
std::string Sound(const std::string& languages) {
  std::string sound;
  std::istringstream each(languages);
  for (std::string language; std::getline(each, language, ':');) {
    const std::string problem = CatalogueProblemOf(language);
    if (problem.empty())
      sound.append(sound.empty() ? "" : ":").append(language);
    else
      __dlog_print(LOG_ID_APPS, DLOG_ERROR, kTag, "the texts are not in \"%s\": %s", language.c_str(), problem.c_str());
  }
  return sound.empty() ? "C" : sound;
}

}  // namespace

std::string LanguageOfLocale(const std::string& locale) {
  return locale.substr(0, locale.find_first_of("_.@"));
}

std::string MenuLocale() {
  const CText stored(vconf_get_str(set_names::kMenuLanguageKey));
  if (!stored) return kEnglish;
  if (IsLocaleName(stored.get())) return stored.get();
  __dlog_print(LOG_ID_APPS, DLOG_ERROR, kTag, "%s: \"%s\" is no locale; taking English", set_names::kMenuLanguageKey,
               stored.get());
  return kEnglish;
}

std::string LanguageOfTexts() {
  // The catalogue that is found first has its header as the translation of the empty text.
  constexpr std::string_view kField = "\nLanguage: ";
  const std::string header = std::string("\n") + dgettext(set_names::kCareApplication, "");
  const size_t at = header.find(kField);
  if (at == std::string::npos) return "en";
  const size_t from = at + kField.size();
  return header.substr(from, header.find('\n', from) - from);
}

void ApplyMenuLanguage() {
  std::string locale = MenuLocale();
  setenv("LANGUAGE", Sound(LanguagesOf(locale)).c_str(), 1);
  // The C library forgets the texts that it has found only when the locale changes.
  std::setlocale(LC_ALL, "C");
  // Without the locale, numbers and dates are neutral, and the texts come by LANGUAGE, which the locale "C" alone would
  // keep out.
  if (!std::setlocale(LC_ALL, locale.c_str())) {
    __dlog_print(LOG_ID_APPS, DLOG_INFO, kTag, "the locale %s is not installed; texts only", locale.c_str());
    locale = kNeutral;
    if (!std::setlocale(LC_ALL, kNeutral))
      __dlog_print(LOG_ID_APPS, DLOG_ERROR, kTag, "the locale %s is not installed either; texts stay ids", kNeutral);
  }
  // Libraries that set the locale by the environment later, and programs that are launched, come to the same one.
  setenv("LC_ALL", locale.c_str(), 1);
}
