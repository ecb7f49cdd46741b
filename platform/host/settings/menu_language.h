#pragma once
/// @file
/// The language of a program's texts.

#include <string>

/// The menu language as a locale's name, from the settings key "db/menu_widget/language" ("de_DE.utf8"); English where
/// it is not set or no locale's name. Any thread.
std::string MenuLocale();
/// The language of a locale's name: "de", "zh". Any thread.
std::string LanguageOfLocale(const std::string& locale);
/// The language of the texts that are shown: "de", "pt_BR", "sr@latin". Another than the menu language where the
/// application has no catalogue of it, and "en" where it has none at all. After bindtextdomain(). Any thread.
std::string LanguageOfTexts();

/// Sets the process's locale to the menu language. Catalogues are found for a language whose locale this machine does
/// not have, too; a damaged one of the set's is not used, which the log tells, and English ones stand in. Main thread,
/// before other threads start.
void ApplyMenuLanguage();
