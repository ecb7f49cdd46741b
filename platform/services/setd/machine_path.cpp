#include "setd/machine_path.h"

#include <sys/stat.h>

#include "system_path.h"

namespace setd {

std::string MachinePath(const std::string& path) {
  const std::string own = SystemPath(path);
  struct stat status;
  return stat(own.c_str(), &status) == 0 ? own : path;
}

}  // namespace setd
