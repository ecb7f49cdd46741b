#include "setd/deep_clean.h"

#include <ctime>

#include "setd/report.h"
#include "setd/setd_log.h"

namespace setd {

bool CleanAll(const StopFlag& stop, std::chrono::milliseconds patience) {
  constexpr time_t kReportAge = 7 * 24 * 60 * 60;
  return cleaning::CleanUp(stop, {.log = Log, .removeReports = [] { return PruneReports(kReportAge); }}, patience);
}

}  // namespace setd
