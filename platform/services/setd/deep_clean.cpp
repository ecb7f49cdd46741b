#include "setd/deep_clean.h"

#include <cstring>
#include <ctime>
#include <string>

#include "setd/report.h"
#include "setd/setd_log.h"

namespace setd {

bool CleanAll(const StopFlag& stop, std::chrono::milliseconds patience) {
  constexpr time_t kReportAge = 7 * 24 * 60 * 60;
  return cleaning::CleanUp(stop, {.log = Log, .removeReports = [] { return PruneReports(kReportAge); }}, patience);
}

bool CleanHoards(const std::vector<cleaning::Hoard>& hoards, const StopFlag& stop) {
  for (const cleaning::Hoard hoard : hoards) {
    if (stop) return false;
    const packages::TreeResult removed = cleaning::RemoveHoard(hoard, [&stop] { return stop.load(); });
    const std::string stays = removed.error ? std::string("; something stays: ") + std::strerror(removed.error) : "";
    Log(DLOG_INFO, std::string("agreed clean: ") + cleaning::KeyOf(hoard) + ": freed " + std::to_string(removed.bytes) +
                       " bytes" + stays);
  }
  return !stop;
}

}  // namespace setd
