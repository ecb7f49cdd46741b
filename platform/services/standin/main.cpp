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

/// Without a name where there is none.
Asked ParseArguments(int argc, char** argv) {
  Asked asked;
  int i = 1;
  for (; i + 1 < argc; i += 2) {
    const std::string_view option = argv[i];
    if (option == "--advice")
      asked.advice.push_back(Valid(argv[i + 1]));
    else if (option == "--with")
      asked.with = Valid(argv[i + 1]);
    else
      break;
  }
  if (i < argc) asked.name = Valid(argv[i]);
  while (++i < argc) {
    const std::string text = Valid(argv[i]);
    const size_t equals = text.find('=');
    asked.extras.emplace_back(text.substr(0, equals), equals == text.npos ? "" : text.substr(equals + 1));
  }
  return asked;
}

void Log(const Asked& asked, log_priority priority, const std::string& what) {
  const auto line = [priority](const std::string& text) {
    __dlog_print(LOG_ID_APPS, priority, log_tags::kStandin, "%s", text.c_str());
  };
  line(what);
  for (const auto& [key, value] : asked.extras) line("  " + key + " = " + value);
}

int CannotShow(const Asked& asked, const char* why) {
  Log(asked, DLOG_WARN, "cannot show \"" + asked.name + "\": " + why);
  return kNotShown;
}

bool HasDisplay() {
  for (const char* variable : {"DISPLAY", "WAYLAND_DISPLAY"})
    if (const char* value = std::getenv(variable); value && *value) return true;
  const char* engine = std::getenv("ELM_ENGINE");
  return engine && std::string_view(engine) == "buffer";
}

int Main(int argc, char** argv) {
  const Asked asked = ParseArguments(argc, argv);
  if (asked.name.empty()) {
    std::fputs("Usage: vexilo-standin [--advice MESSAGE]... [--with TEXT] NAME [KEY=VALUE...]\n", stderr);
    return kUsage;
  }
  ApplyMenuLanguage();
  if (!HasDisplay()) return CannotShow(asked, "there is no display");
  const app_framework::ToolkitEnvironment environment;
  const app_framework::Toolkit toolkit(1, argv);
  if (!asked.advice.empty()) Log(asked, DLOG_INFO, "stands in for \"" + asked.name + "\"");
  if (toolkit && Show(asked)) return kShown;
  return CannotShow(asked, "no window can be made on the display");
}

}  // namespace

}  // namespace standin

int main(int argc, char** argv) {
  return standin::Main(argc, argv);
}
