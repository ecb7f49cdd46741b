#pragma once
/// @file
/// The language of a program's texts.

#include <string>

/// Sets the process's locale to the menu language, the settings key "db/menu_widget/language" ("de_DE.utf8"); English
/// where it is not set. Catalogues are found for a language whose locale this machine does not have, too.
/// Main thread, before other threads start.
void ApplyMenuLanguage();
