#include "solution_actions.h"

#include <charconv>
#include <cmath>
#include <cstdint>
#include <memory>
#include <optional>
#include <string_view>
#include <vector>

#include "QUVA_ParserPlugin.h"
#include "TaskManagerRequests.h"
#include "Texts.h"
#include "VexiloLog.h"
#include "app_framework.h"
#include "c_handle.h"
#include "clock_control.h"
#include "idle_off.h"
#include "scheduled_off.h"
#include "screen_mode.h"
#include "service_control.h"
#include "sound_output.h"
#include "update_control.h"
#include "vconf.h"
#include "wireless_control.h"

namespace solution_actions {

namespace {

using AppControl = std::unique_ptr<app_control_s, CRelease<&app_control_destroy>>;

// The words of `text` between single blanks, at most `most`: the last one is the rest.
std::vector<std::string> Words(const std::string& text, size_t most = SIZE_MAX) {
  std::vector<std::string> words;
  size_t from = 0;
  for (size_t blank; words.size() + 1 < most && (blank = text.find(' ', from)) != std::string::npos; from = blank + 1)
    words.push_back(text.substr(from, blank - from));
  words.push_back(text.substr(from));
  return words;
}

std::string Decoded(std::string_view text) {
  std::string out;
  for (size_t i = 0; i < text.size(); ++i) {
    const std::string_view rest = text.substr(i, 3);
    if (rest == "%20" || rest == "%25") {
      out += rest == "%20" ? ' ' : '%';
      i += 2;
    } else {
      out += text[i];
    }
  }
  return out;
}

// The number that the whole text is, whatever the locale.
template <typename Number>
std::optional<Number> Whole(const std::string& text) {
  Number value{};
  const char* end = text.data() + text.size();
  const auto [stopped, error] = std::from_chars(text.data(), end, value);
  if (stopped != end || error != std::errc() || !std::isfinite(static_cast<double>(value))) return std::nullopt;
  return value;
}

bool SetKey(const std::string& type, const char* key, const std::string& value) {
  if (type == "int") {
    const auto number = Whole<int>(value);
    return number && vconf_set_int(key, *number) == 0;
  }
  if (type == "double") {
    const auto number = Whole<double>(value);
    return number && vconf_set_dbl(key, *number) == 0;
  }
  if (type == "bool") return (value == "true" || value == "false") && vconf_set_bool(key, value == "true") == 0;
  return type == "string" && vconf_set_str(key, value.c_str()) == 0;
}

bool SetSetting(const std::string& request) {
  const std::vector<std::string> words = Words(request, 3);
  if (words.size() == 3 && SetKey(words[0], words[1].c_str(), words[2])) return true;
  VEXILO_LOGE("cannot set [%s]: it is \"TYPE KEY VALUE\" with TYPE int, bool, double or string", request.c_str());
  return false;
}

// Logs the problem; true where there is none. `advice` is a text for the viewer, where there is something to tell.
bool IsDone(const FixProblem& problem, std::string& advice) {
  if (problem.reason.empty()) return true;
  VEXILO_LOGE("%s", problem.reason.c_str());
  if (!problem.command.empty()) {
    VEXILO_LOGE("by hand: %s", problem.command.c_str());
    advice = QUVA::GetTextWith("TV_SID_VEXILO_MIX_RUN_COMMAND", problem.command);
  }
  return false;
}

bool RestartServices(const std::string& services, ServicesOf whose, std::string& advice) {
  FixProblem problem;
  RestartFailedServices(Words(services), whose, problem);
  return IsDone(problem, advice);
}

/// The time comes a while after the service has started.
int ChangeClock(const std::string& what, std::string& advice) {
  FixProblem problem{"\"" + what + "\" is not \"synchronise\""};
  if (what == "synchronise") SynchroniseClock(problem);
  return IsDone(problem, advice) ? SOLUTION_TRIED : SOLUTION_FAILED;
}

bool ChangeUpdates(const std::string& what, std::string& advice) {
  FixProblem problem{"\"" + what + "\" is neither \"automatic\", \"refresh\" nor \"repair\""};
  if (what == "automatic") SwitchAutomaticUpdatesOn(problem);
  if (what == "refresh") RefreshUpdates(problem);
  if (what == "repair") RepairSoftware(problem);
  return IsDone(problem, advice);
}

/// The one thing that an action can be asked for.
bool DoKnown(const std::string& what, const char* known, bool (*act)(FixProblem& problem), std::string& advice) {
  FixProblem problem{"\"" + what + "\" is not \"" + known + "\""};
  if (what == known) act(problem);
  return IsDone(problem, advice);
}

/// Where it cannot be changed from here, `settings` is launched.
int ShowBestResolutionOr(const std::string& settings) {
  std::string problem;
  if (ShowBestResolution(problem)) return SOLUTION_DONE;
  VEXILO_LOGI("%s", problem.c_str());
  return Launch(settings);
}

bool ChangeWireless(const std::string& what, std::string& advice) {
  FixProblem problem{"\"" + what + "\" is neither \"on\" nor \"reconnect\""};
  if (what == "on") SwitchWirelessOn(problem);
  if (what == "reconnect") ReconnectWireless(problem);
  return IsDone(problem, advice);
}

}  // namespace

int Launch(const std::string& request) {
  const std::vector<std::string> words = Words(request);
  app_control_h handle = nullptr;
  if (app_control_create(&handle) != APP_CONTROL_ERROR_NONE) return SOLUTION_FAILED;
  const AppControl control(handle);
  app_control_set_operation(handle, APP_CONTROL_OPERATION_DEFAULT);
  app_control_set_app_id(handle, words[0].c_str());
  for (size_t i = 1; i < words.size(); ++i) {
    const size_t equals = words[i].find('=');
    if (equals == std::string::npos || equals == 0) {
      VEXILO_LOGE("cannot launch [%s]: \"%s\" is not key=value", request.c_str(), words[i].c_str());
      return SOLUTION_FAILED;
    }
    app_control_add_extra_data(handle, Decoded(words[i].substr(0, equals)).c_str(),
                               Decoded(words[i].substr(equals + 1)).c_str());
  }
  const int result = app_control_send_launch_request(handle, nullptr, nullptr);
  if (result != APP_CONTROL_ERROR_NONE) {
    VEXILO_LOGE("cannot launch [%s]: error %d", request.c_str(), result);
    return SOLUTION_FAILED;
  }
  return app_control_started_stand_in(handle) ? SOLUTION_NOT_ON_DEVICE : SOLUTION_OPENED;
}

int Perform(const std::string& type, const std::string& value, std::string& advice) {
  if (type == "launch") return Launch(value);
  if (type == "best_resolution") return ShowBestResolutionOr(value);
  const auto outcome = [](bool done) { return done ? SOLUTION_DONE : SOLUTION_FAILED; };
  if (type == "setting") return outcome(SetSetting(value));
  if (type == "memboost") return outcome(QUVA::PerformMemBoost() == 0);
  if (type == "deepclean") return outcome(QUVA::PerformDeepClean() == 0);
  if (type == "restart_service") return outcome(RestartServices(value, ServicesOf::kMachine, advice));
  if (type == "restart_user_service") return outcome(RestartServices(value, ServicesOf::kUser, advice));
  if (type == "off_timer") return outcome(DoKnown(value, "stop", &CancelScheduledOff, advice));
  if (type == "auto_power_off") return outcome(DoKnown(value, "stop", &StopIdleOff, advice));
  if (type == "clock") return ChangeClock(value, advice);
  if (type == "updates") return outcome(ChangeUpdates(value, advice));
  if (type == "sound_output") return outcome(DoKnown(value, "screen", &LeadSoundToScreen, advice));
  if (type == "wireless") return outcome(ChangeWireless(value, advice));
  VEXILO_LOGE("unknown param_type [%s] with param_value [%s]", type.c_str(), value.c_str());
  return SOLUTION_FAILED;
}

}  // namespace solution_actions
