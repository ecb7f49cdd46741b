#include "ReportTrigger.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "SafeFile.h"
#include "VexiloLog.h"
#include "system_path.h"

namespace QUVA {

namespace {

constexpr char kCommand[] = "touch ";

}  // namespace

void LeaveReportTrigger(const char* folder, const std::string& fileName) {
  if (!IsPlainName(fileName)) {
    VEXILO_LOGE("no report is asked for with the name \"%s\": it is not of letters, digits, '.', '_' and '-'",
                fileName.c_str());
    return;
  }
  const std::string path = std::string(folder) + "/" + fileName;
  if (!HasNoLinks(path)) {
    VEXILO_LOGE("no report is asked for with %s: %s", path.c_str(), std::strerror(errno));
    return;
  }
  VEXILO_LOGI("cmd on sending error type for KOV  is %s", (kCommand + path).c_str());
  const int result = std::system((kCommand + SystemPath(path)).c_str());
  // The toolkit collects ended children as well; where it was first, what became of this one is not known.
  if (result == -1 && errno != ECHILD) VEXILO_LOGE("no shell to touch %s: %s", path.c_str(), std::strerror(errno));
  if (result > 0) VEXILO_LOGE("touching %s failed: status %d", path.c_str(), result);
}

}  // namespace QUVA
