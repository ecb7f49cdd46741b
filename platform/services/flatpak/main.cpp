// vexilo-flatpak: does for the platform what takes Flatpak's library or draws, in a process of its own. It is started
// by platform/host/flatpak/helper.h, which says what its lines mean.

#include <cstdio>
#include <cstdlib>
#include <exception>
#include <string>
#include <vector>

#include "icon.h"
#include "transaction.h"

namespace {

constexpr char kUsage[] =
    "usage: vexilo-flatpak remove ID INSTALLATION   removes all branches of the application\n"
    "       vexilo-flatpak finish ID INSTALLATION   removes what an interrupted removal left\n"
    "       vexilo-flatpak unused INSTALLATION      tells what the runtimes take that no application needs\n"
    "       vexilo-flatpak remove-unused INSTALLATION\n"
    "       vexilo-flatpak icons [ID DEPLOYMENT]... draws the icons\n";

int Report(const flatpak::Problem& problem) {
  if (problem.text.empty())
    std::printf("done\n");
  else
    std::printf("failed %d %s\n", problem.error, problem.text.c_str());
  return std::fflush(stdout) == 0 && problem.text.empty() ? EXIT_SUCCESS : EXIT_FAILURE;
}

}  // namespace

int main(int argc, char** argv) {
  using namespace vexilo_flatpak;
  const std::vector<std::string> words(argv + 1, argv + argc);
  const std::string verb = words.empty() ? "" : words[0];
  try {
    if (verb == "remove" && words.size() == 3) return Report(RemoveApplication(words[1], words[2]));
    if (verb == "finish" && words.size() == 3) return Report(FinishRemoval(words[1], words[2]));
    if (verb == flatpak::kListUnused && words.size() == 2) return Report(TellUnused(words[1]));
    if (verb == flatpak::kRemoveUnused && words.size() == 2) return Report(RemoveUnused(words[1]));
    if (verb == "icons" && words.size() % 2 == 1) {
      flatpak::Problem problem;
      for (size_t i = 1; i < words.size(); i += 2)
        if (const std::string one = DrawIcon(words[i], words[i + 1]); !one.empty()) problem.text = one;
      return Report(problem);
    }
  } catch (const std::exception& exception) {
    return Report({exception.what()});
  }
  std::fputs(kUsage, stderr);
  return 2;
}
