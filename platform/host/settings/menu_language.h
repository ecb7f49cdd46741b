#pragma once
/// @file
/// The language of a program's texts.

#include <string>

/// The menu language as a locale's name, from the settings key "db/menu_widget/language" ("de_DE.utf8"); English where
/// it is not set or no locale's name. Any thread.
std::string MenuLocale();
/// The language of a locale's name: "de", "zh". Any thread.
std::string LanguageOfLocale(const std::string& locale);

/// Sets the process's locale to the menu language. Catalogues are found for a language whose locale this machine does
/// not have, too. Main thread, before other threads start.
void ApplyMenuLanguage();
