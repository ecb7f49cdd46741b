#include "base/machine_path.h"

#include <sys/stat.h>

#include "base/atomic_file.h"
#include "system_path.h"

std::string MachinePath(const std::string& path) {
  const std::string own = SystemPath(path);
  struct stat status;
  return stat(own.c_str(), &status) == 0 ? own : path;
}

std::string FirstLineOf(const std::string& path) {
  std::string text;
  ReadWholeFile(path, text, Links::kRefuse, kMostNoted);
  return text.substr(0, text.find('\n'));
}

std::string BootId() {
  return FirstLineOf(MachinePath("/proc/sys/kernel/random/boot_id"));
}
