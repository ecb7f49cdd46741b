#include "sound_output.h"

#include <fcntl.h>

#include <cstdlib>
#include <filesystem>

#include "base/helper.h"
#include "c_handle.h"
#include "set_paths.h"

namespace {

using namespace std::chrono_literals;

std::string Variable(const char* name) {
  const char* const value = std::getenv(name);
  return value ? value : "";
}

/// Where the client library looks for the server of a session.
bool HasServer() {
  if (!Variable("PULSE_SERVER").empty()) return true;
  const std::string runtime = Variable("XDG_RUNTIME_DIR"), own = Variable("PULSE_RUNTIME_PATH");
  std::error_code error;
  return (!own.empty() && std::filesystem::exists(own + "/native", error)) ||
         (!runtime.empty() && std::filesystem::exists(runtime + "/pulse/native", error));
}

}  // namespace

SoundOutput AskSoundOutput() {
  SoundOutput output;
  output.hasServer = HasServer();
  output.hasSession = output.hasServer || !Variable("XDG_RUNTIME_DIR").empty();
  if (!output.hasServer) return output;
  std::optional<bool> told;
  const auto onLine = [&told](const std::string& line) { told = line == "elsewhere yes"; };
  const FdHandle nothing(open("/dev/null", O_RDONLY | O_CLOEXEC));
  HelperProblem problem;
  if (RunHelper(set_paths::kSoundHelper, {"elsewhere"}, nothing.get(), 1500ms, onLine, problem) == HelperEnd::kDone)
    output.isElsewhere = told;
  return output;
}

bool LeadSoundToScreen(FixProblem& problem) {
  const FdHandle nothing(open("/dev/null", O_RDONLY | O_CLOEXEC));
  HelperProblem reason;
  const bool isDone =
      RunHelper(set_paths::kSoundHelper, {"to-screen"}, nothing.get(), 5s, {}, reason) == HelperEnd::kDone;
  problem = {isDone ? "" : "cannot lead the sound to the screen: " + reason.text};
  return isDone;
}
