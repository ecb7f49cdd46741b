// vexilo-screen: changes the resolution of the screens for the platform, in a process of its own, as the platform's
// library has no display. platform/host/base/helper.h says what its lines mean.

#include <cstdio>
#include <cstdlib>
#include <string_view>

#include "best_mode.h"

int main(int argc, char** argv) {
  if (argc != 2 || std::string_view(argv[1]) != "best") {
    std::fputs("usage: vexilo-screen best   gives each screen of the X server its best resolution\n", stderr);
    return 2;
  }
  const std::string problem = vexilo_screen::ShowBestModes();
  if (problem.empty())
    std::printf("done\n");
  else
    std::printf("failed 0 %s\n", problem.c_str());
  return std::fflush(stdout) == 0 && problem.empty() ? EXIT_SUCCESS : EXIT_FAILURE;
}
