// vexilo-graphics: finds out for the platform who draws, in a process of its own, as graphics drivers take long to load
// and may break. platform/host/base/helper.h says what its lines mean.

#include <fcntl.h>
#include <sys/prctl.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "c_handle.h"
#include "drawing.h"

namespace {

constexpr char kUsage[] =
    "usage: vexilo-graphics NODE...   tells \"software yes\" where nothing that is installed draws with a graphics "
    "card, else \"software no\"; NODE is the device file of each card for drawing, /dev/dri/renderD128\n";

int Fail(int error, const char* what, const char* reason) {
  std::printf("failed %d %s: %s\n", error, what, reason);
  return EXIT_FAILURE;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2 || argv[1][0] == '-') {
    std::fputs(kUsage, stderr);
    return 2;
  }
  // A driver that breaks is not a program that crashed.
  prctl(PR_SET_DUMPABLE, 0);
  // Who may not use a card does not find out what draws with it.
  for (int i = 1; i < argc; ++i)
    if (!FdHandle(open(argv[i], O_RDWR | O_CLOEXEC))) return Fail(errno, argv[i], std::strerror(errno));
  const auto software = vexilo_graphics::IsSoftwareAlone();
  if (!software) return Fail(0, "EGL", "it does not tell who draws");
  std::printf("software %s\ndone\n", *software ? "yes" : "no");
  return std::fflush(stdout) == 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}
