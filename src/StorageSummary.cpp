#include "StorageSummary.h"

#include <algorithm>

#include "Texts.h"
#include "VexiloLog.h"

namespace QUVA {

namespace {

std::string AvailableLabel(const std::string& available, const std::string& percent) {
  return available + "(" + percent + "%)";
}

// The bands overlap a little, and a sum of exactly 4 is in none of the first ones.
double NominalCapacity(double sum) {
  if (sum < 4) return 4;
  if (sum > 4 && sum <= 8.011) return 8;
  if (sum > 8.01 && sum <= 16.011) return 16;
  if (sum > 16.01 && sum <= 32.011) return 32;
  return 64;
}

void MakeNominal(int64_t used, int64_t system, StorageSummary& summary) {
  const double usedGB = ConvertToGB(used);
  const double availableGB = ConvertToGB(summary.availableBytes);
  double systemGB = ConvertToGB(system);
  VEXILO_LOGI(" the values now are used: %f  available: %f system: %f", usedGB, availableGB, systemGB);
  const double sum = usedGB + availableGB + systemGB;
  VEXILO_LOGI("current total is ::  %f", sum);
  const double nominal = NominalCapacity(sum);
  const double delta = nominal - sum;
  VEXILO_LOGI("new delta is %f", delta);
  systemGB = std::max(0.0, systemGB + delta);
  summary.percent = std::to_string(static_cast<int>(availableGB * 100 / nominal));
  summary.available = AvailableLabel(GigabytesText(availableGB), summary.percent);
  summary.used = GigabytesText(usedGB);
  summary.system = GigabytesText(systemGB);
  VEXILO_LOGI("after all this in GB the values are used : %s, avail %s sytem %s", summary.used.c_str(),
              summary.available.c_str(), summary.system.c_str());
  VEXILO_LOGI("string to be diaplyed is %s", summary.available.c_str());
}

}  // namespace

StorageSummary MakeStorageSummary(int64_t total, int64_t used, int64_t system, bool nominal) {
  StorageSummary summary;
  summary.availableBytes = std::max<int64_t>(0, total - used);
  summary.used = GigabytesText(ConvertToGB(used));
  const std::string available = GigabytesText(ConvertToGB(summary.availableBytes));
  const long long percent = total > 0 ? static_cast<long long>(summary.availableBytes * 100 / total) : 0;
  VEXILO_LOGI("avail in double is %lld", percent);
  summary.percent = std::to_string(percent);
  VEXILO_LOGI("string in round val is %s", summary.percent.c_str());
  summary.available = AvailableLabel(available, summary.percent);
  VEXILO_LOGI("currently avpercent is %s", summary.available.c_str());
  summary.usedFraction = 1.0 - static_cast<double>(percent) / 100.0;
  VEXILO_LOGI("final value of prog bar is %f", summary.usedFraction);
  if (nominal) MakeNominal(used, system, summary);
  return summary;
}

int64_t SystemPartOfBar(int64_t width, int64_t total, int64_t system) {
  VEXILO_LOGI("total system size comes out to be %lld", static_cast<long long>(system + total));
  return system > 0 && total >= 0 ? width * system / (system + total) : 0;
}

}  // namespace QUVA
