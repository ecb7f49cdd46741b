#include "setd/start_mark.h"

#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "base/atomic_file.h"
#include "base/machine_path.h"
#include "set_paths.h"
#include "setd/setd_log.h"
#include "system_path.h"

namespace setd {

namespace {

bool Publish(const std::string& path, const std::string& text) {
  if (MakeFolders(SystemPath(set_paths::kSetdState)) && PublishFile(SystemPath(path), text)) return true;
  Log(DLOG_ERROR, path + ": " + std::strerror(errno));
  return false;
}

}  // namespace

StartMark::StartMark() {
  const std::string path = std::string(set_paths::kSetdState) + "/running";
  const std::string boot = BootId();
  if (boot.empty()) return;
  const std::string left = FirstLineOf(SystemPath(path));
  if (!FirstLineOf(SystemPath(set_paths::kLastShutdown)).starts_with(boot + " ")) {
    const bool isClean = left.empty() || left == boot;
    if (!isClean) Log(DLOG_WARN, "the set was not shut down in order before this start");
    Publish(set_paths::kLastShutdown, boot + (isClean ? " clean\n" : " unclean\n"));
  }
  if (Publish(path, boot + "\n")) m_path = SystemPath(path);
}

StartMark::~StartMark() {
  if (m_path.empty()) return;
  unlink(m_path.c_str());
  SyncFolderOf(m_path);
}

}  // namespace setd
