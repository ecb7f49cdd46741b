// vexilo-sound: asks and changes the session's sound server for the platform, in a process of its own, as libpulse
// takes long to load. platform/host/base/helper.h says what its lines mean.

#include <cstdio>
#include <cstdlib>
#include <string_view>

#include "sound/screen_output.h"

namespace {

constexpr auto kLimit = std::chrono::seconds(1);
constexpr char kUsage[] =
    "usage: vexilo-sound elsewhere   tells \"elsewhere yes\" where sound goes nowhere and a screen could play it, else "
    "\"no\"\n"
    "       vexilo-sound to-screen   leads it there\n";

int Report(const std::string& problem) {
  if (problem.empty())
    std::printf("done\n");
  else
    std::printf("failed 0 %s\n", problem.c_str());
  return std::fflush(stdout) == 0 && problem.empty() ? EXIT_SUCCESS : EXIT_FAILURE;
}

int TellWhetherElsewhere(sound::Server& server) {
  const auto outputs = server.List();
  if (!outputs) return Report(server.Problem());
  std::printf("elsewhere %s\n", sound::FindWayToScreen(*outputs) ? "yes" : "no");
  return Report("");
}

int LeadToScreen(sound::Server& server) {
  std::string problem;
  sound::TakeWayToScreen(server, problem);
  return Report(problem);
}

}  // namespace

int main(int argc, char** argv) {
  const std::string_view verb = argc == 2 ? argv[1] : "";
  if (verb != "elsewhere" && verb != "to-screen") {
    std::fputs(kUsage, stderr);
    return 2;
  }
  sound::Server server(kLimit);
  if (!server.IsConnected()) return Report("the sound server: " + server.Problem());
  return verb == "elsewhere" ? TellWhetherElsewhere(server) : LeadToScreen(server);
}
