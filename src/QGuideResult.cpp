#include "QGuideResult.h"

#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>
#include <string_view>

#include "AppState.h"
#include "QUVA_Storage.h"
#include "SafeFile.h"
#include "VexiloLog.h"
#include "ownership.h"
#include "set_paths.h"
#include "system_path.h"

namespace QUVA {

namespace {

// Whether the file or its folder is a link; else errno says, as IsLink() does, why that cannot be told of the file.
bool LeadsElsewhere(const std::string& path) {
  return IsLink(path.substr(0, path.rfind('/'))) || IsLink(path);
}

}  // namespace

const char* QGuideResultPath(const char* launchFrom) {
  const bool background = launchFrom && std::string_view(launchFrom) == launch_source::kBackground;
  return background ? set_paths::kQGuideBackgroundResult : set_paths::kQGuideResult;
}

void SayNoQGuideResult(const char* path, const char* reason) {
  std::fprintf(stderr, "no result is written to %s: %s; what stands there, if anything, is of an earlier diagnosis\n",
               path, reason);
}

void SayWhetherNothingIsKnown() {
  unsigned int count = 0;
  std::vector<QUVA_Solution> solutions;
  TCInformationStorage::Instance()->GetSolutionInformation(count, solutions);
  if (solutions.empty())
    std::fprintf(stderr, "no issue can be told: %s has no solutions that can be used\n", set_paths::kSolutionMap);
}

bool MayWriteQGuideResult(const char* path) {
  if (LeadsElsewhere(path)) {
    VEXILO_LOGE("symbolic link is detected\n");
    SayNoQGuideResult(path, "symbolic link is detected");
    return false;
  }
  const int error = errno;
  if (error == 0) return true;
  VEXILO_LOGE("lstat error %s %d", path, error);
  SayNoQGuideResult(path, std::strerror(error));
  return false;
}

FileHandle OpenQGuideResult(const char* path) {
  if (LeadsElsewhere(path)) {
    std::fputs("symbolic link is detected\n", stderr);
    return nullptr;
  }
  if (const int error = errno) {
    VEXILO_LOGE("lstat error");
    SayNoQGuideResult(path, std::strerror(error));
    return nullptr;
  }
  const bool isExchanged = std::string_view(path) == set_paths::kQGuideResult;
  FileHandle file = isExchanged ? OpenExchangeFile(path) : OpenFileWithoutLinks(SystemPath(path));
  if (file) return file;
  const int error = errno;
  VEXILO_LOGE("Unable to open file %s %d", path, error);
  SayNoQGuideResult(path, exchange::WhyNot(error));
  return nullptr;
}

bool WriteQGuideResult(FILE* file, const char* path, const std::vector<MapToDBTable>& rows) {
  bool written = true;
  for (const MapToDBTable& row : rows) written = std::fprintf(file, "%s\n", row.issue_code.c_str()) >= 0 && written;
  if (std::fflush(file) == 0 && written) return true;
  const int error = errno;
  VEXILO_LOGE("Writing %s failed: error %d", path, error);
  SayNoQGuideResult(path, std::strerror(error));
  // Half a code could be taken for another issue, and an empty file for a set without any.
  if (ftruncate(fileno(file), 0) != 0) VEXILO_LOGE("Emptying %s failed: error %d", path, errno);
  if (unlink(SystemPath(path).c_str()) != 0) VEXILO_LOGE("Removing %s failed: error %d", path, errno);
  return false;
}

}  // namespace QUVA
