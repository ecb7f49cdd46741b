// vexilo-standin: shows what an application that this machine does not have was asked for. docs/launching.md.

#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>

#include "appfw/toolkit.h"
#include "base/glib_handle.h"
#include "dlog.h"
#include "log_tags.h"
#include "screen.h"
#include "settings/menu_language.h"

namespace standin {

namespace {

enum ExitCode { kShown = 0, kNotShown = 1, kUsage = 2 };

/// The text as it can be shown: valid UTF-8.
std::string Valid(const char* text) {
  const GText valid(g_utf8_make_valid(text, -1));
  return valid.get();
}

Asked ParseArguments(int argc, char** argv) {
  Asked asked{Valid(argv[1]), {}};
  for (int i = 2; i < argc; ++i) {
    const std::string text = Valid(argv[i]);
    const size_t equals = text.find('=');
    asked.extras.emplace_back(text.substr(0, equals), equals == text.npos ? "" : text.substr(equals + 1));
  }
  return asked;
}

void Log(const Asked& asked, const char* why) {
  const auto line = [](const std::string& text) {
    __dlog_print(LOG_ID_APPS, DLOG_WARN, log_tags::kStandin, "%s", text.c_str());
  };
  line("cannot show \"" + asked.name + "\": " + why);
  for (const auto& [key, value] : asked.extras) line("  " + key + " = " + value);
}

bool HasDisplay() {
  for (const char* variable : {"DISPLAY", "WAYLAND_DISPLAY"})
    if (const char* value = std::getenv(variable); value && *value) return true;
  const char* engine = std::getenv("ELM_ENGINE");
  return engine && std::string_view(engine) == "buffer";
}

int Main(int argc, char** argv) {
  if (argc < 2) {
    std::fputs("Usage: vexilo-standin NAME [KEY=VALUE...]\n", stderr);
    return kUsage;
  }
  const Asked asked = ParseArguments(argc, argv);
  ApplyMenuLanguage();
  if (!HasDisplay()) {
    Log(asked, "there is no display");
    return kNotShown;
  }
  const app_framework::ToolkitEnvironment environment;
  const app_framework::Toolkit toolkit(1, argv);
  if (toolkit && Show(asked)) return kShown;
  Log(asked, "no window can be made on the display");
  return kNotShown;
}

}  // namespace

}  // namespace standin

int main(int argc, char** argv) {
  return standin::Main(argc, argv);
}
