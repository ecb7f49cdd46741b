#include "screen_mode.h"

#include <fcntl.h>

#include <cstdlib>

#include "base/helper.h"
#include "c_handle.h"
#include "set_paths.h"

bool ShowBestResolution(std::string& problem) {
  const char* const wayland = std::getenv("WAYLAND_DISPLAY");
  HelperProblem reason{"on Wayland the desktop alone decides on it"};
  const FdHandle nothing(open("/dev/null", O_RDONLY | O_CLOEXEC));
  const bool isDone = (!wayland || !*wayland) && RunHelper(set_paths::kScreenHelper, {"best"}, nothing.get(),
                                                           std::chrono::seconds(10), {}, reason) == HelperEnd::kDone;
  problem = isDone ? "" : "cannot change the screen's resolution: " + reason.text;
  return isDone;
}
