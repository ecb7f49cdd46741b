#include "QGuideResult.h"

#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <string_view>

#include "AppState.h"
#include "SafeFile.h"
#include "VexiloLog.h"
#include "set_paths.h"
#include "system_path.h"

namespace QUVA {

const char* QGuideResultPath(const char* launchFrom) {
  const bool background = launchFrom && std::string_view(launchFrom) == launch_source::kBackground;
  return background ? set_paths::kQGuideBackgroundResult : set_paths::kQGuideResult;
}

bool MayWriteQGuideResult(const char* path) {
  if (IsLink(path)) {
    VEXILO_LOGE("symbolic link is detected\n");
    return false;
  }
  if (errno == 0) return true;
  VEXILO_LOGE("lstat error %s %d", path, errno);
  return false;
}

FileHandle OpenQGuideResult(const char* path) {
  if (IsLink(path)) {
    std::fputs("symbolic link is detected\n", stderr);
    return nullptr;
  }
  if (errno != 0) {
    VEXILO_LOGE("lstat error");
    return nullptr;
  }
  FileHandle file = OpenFileWithoutLinks(SystemPath(path));
  if (!file) VEXILO_LOGE("Unable to open file %s %d", path, errno);
  return file;
}

bool WriteQGuideResult(FILE* file, const char* path, const std::vector<MapToDBTable>& rows) {
  bool written = true;
  for (const MapToDBTable& row : rows) written = std::fprintf(file, "%s\n", row.issue_code.c_str()) >= 0 && written;
  if (std::fflush(file) == 0 && written) return true;
  VEXILO_LOGE("Writing %s failed: error %d", path, errno);
  // Half a code could be taken for another issue, and an empty file for a set without any.
  if (ftruncate(fileno(file), 0) != 0) VEXILO_LOGE("Emptying %s failed: error %d", path, errno);
  if (unlink(SystemPath(path).c_str()) != 0) VEXILO_LOGE("Removing %s failed: error %d", path, errno);
  return false;
}

}  // namespace QUVA
