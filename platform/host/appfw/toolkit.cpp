#include "appfw/toolkit.h"

#include <Efreet.h>
#include <Elementary.h>
#include <fontconfig/fontconfig.h>
#include <glib.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <system_error>

#include "c_handle.h"
#include "dlog.h"
#include "log_tags.h"
#include "set_paths.h"
#include "settings/menu_language.h"
#include "system_path.h"

namespace app_framework {

namespace {

constexpr const char* kTag = log_tags::kAppfw;

bool IsUsableFolder(const char* path) {
  return path && g_path_is_absolute(path) && g_file_test(path, G_FILE_TEST_IS_DIR) && access(path, W_OK | X_OK) == 0;
}

/// The private folder of ToolkitEnvironment, where a signal handler can reach it; empty for none.
constinit std::array<char, PATH_MAX> g_privateFolder{};

/// For signals that come before the toolkit catches them: the folder is still empty then.
void RemovePrivateFolderAndEnd(int number) {
  rmdir(g_privateFolder.data());
  std::signal(number, SIG_DFL);
  std::raise(number);
}

void MakePrivateFolder() {
  for (const int number : {SIGTERM, SIGINT, SIGHUP}) std::signal(number, RemovePrivateFolderAndEnd);
  std::snprintf(g_privateFolder.data(), g_privateFolder.size(), "%s/vexilo-XXXXXX", g_get_tmp_dir());
  if (mkdtemp(g_privateFolder.data())) return;
  __dlog_print(LOG_ID_APPS, DLOG_ERROR, kTag, "no folder for run-time files: %s: %s", g_privateFolder.data(),
               g_strerror(errno));
  g_privateFolder[0] = '\0';
}

/// The toolkit's own messages go to the platform log; they are many, and few are of interest.
void LogToolkitMessage(const Eina_Log_Domain* domain, Eina_Log_Level level, const char*, const char*, int,
                       const char* format, void*, va_list arguments) {
  std::array<char, 1024> text;
  vsnprintf(text.data(), text.size(), format, arguments);
  const int priority = level == EINA_LOG_LEVEL_CRITICAL ? DLOG_INFO : DLOG_DEBUG;
  __dlog_print(LOG_ID_APPS, priority, kTag, "%s: %s", domain->name, text.data());
}

void UseSetFonts() {
  const std::string rules = SystemPath(set_paths::kFontRules);
  if (access(rules.c_str(), R_OK) != 0) {
    __dlog_print(LOG_ID_APPS, DLOG_WARN, kTag, "%s: %s; texts are in the system's fonts", set_paths::kFontRules,
                 g_strerror(errno));
    return;
  }
  setenv("FONTCONFIG_FILE", rules.c_str(), 1);
  setenv("FC_LANG", MenuLocale().c_str(), 1);
}

constexpr double kFontCheckAfterSeconds = 4.0;  // when the first screen is calm

/// What the font rules ask for first, and Debian's package that has it.
struct FontFamily {
  const char* name;
  const char* package;
};
constexpr FontFamily kFontFamilies[] = {
    {"Inter", "fonts-inter"},
    {"Noto Sans", "fonts-noto-core"},
    {"Noto Sans Arabic UI", "fonts-noto-ui-core"},
    {"Noto Sans CJK SC", "fonts-noto-cjk"},
};

using FontConfig = std::unique_ptr<FcConfig, CRelease<&FcConfigDestroy>>;
using FontPattern = std::unique_ptr<FcPattern, CRelease<&FcPatternDestroy>>;
using FontSet = std::unique_ptr<FcFontSet, CRelease<&FcFontSetDestroy>>;
using FontProperties = std::unique_ptr<FcObjectSet, CRelease<&FcObjectSetDestroy>>;

/// Says in one line which fonts this machine lacks; others stand in for them, as far as they have the characters.
Eina_Bool LogMissingFonts(void* timer) {
  *static_cast<Ecore_Timer**>(timer) = nullptr;
  const FontConfig config(FcInitLoadConfigAndFonts());
  std::string missing;
  for (const auto& [name, package] : kFontFamilies) {
    const FontPattern pattern(FcPatternCreate());
    FcPatternAddString(pattern.get(), FC_FAMILY, reinterpret_cast<const FcChar8*>(name));
    const FontProperties properties(FcObjectSetBuild(FC_FILE, nullptr));
    const FontSet found(FcFontList(config.get(), pattern.get(), properties.get()));
    if (!found || found->nfont == 0)
      missing += std::string(missing.empty() ? "" : ", ") + name + " (package " + package + ")";
  }
  if (!missing.empty()) __dlog_print(LOG_ID_APPS, DLOG_WARN, kTag, "fonts that are not installed: %s", missing.c_str());
  return ECORE_CALLBACK_CANCEL;
}

}  // namespace

ToolkitEnvironment::ToolkitEnvironment() {
  setenv("ECORE_NO_SYSTEM_MODULES", "1", 1);  // else it looks for services on the system bus
  setenv("EINA_LOG_BACKTRACE", "-1", 1);
  for (const char* variable : {"XDG_RUNTIME_DIR", "HOME"}) {
    if (IsUsableFolder(std::getenv(variable))) continue;
    if (!g_privateFolder[0]) MakePrivateFolder();
    setenv(variable, g_privateFolder.data(), 1);
  }
  UseSetFonts();
}

void ToolkitEnvironment::RemovePrivateFolder() {
  std::error_code ignored;
  if (g_privateFolder[0]) std::filesystem::remove_all(g_privateFolder.data(), ignored);
  g_privateFolder[0] = '\0';
}

Toolkit::Toolkit(int argc, char** argv) {
  eina_init();
  eina_log_print_cb_set(LogToolkitMessage, nullptr);
  efreet_cache_disable();  // else a daemon is started that holds our standard output open
  m_started = elm_init(argc, argv) > 0;
  if (!m_started) return;
  m_glib.emplace();
  m_fontCheck = ecore_timer_add(kFontCheckAfterSeconds, LogMissingFonts, &m_fontCheck);
}

Toolkit::~Toolkit() {
  if (m_fontCheck) ecore_timer_del(m_fontCheck);
  m_glib.reset();
  if (m_started) elm_shutdown();
  eina_shutdown();
}

}  // namespace app_framework
