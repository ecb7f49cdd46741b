#include "tv/frontends.h"

#include <fcntl.h>
#include <linux/dvb/frontend.h>
#include <sys/ioctl.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <tuple>

#include "base/folder.h"
#include "c_handle.h"

namespace tv {

namespace {

using Ask = std::function<int(unsigned long request, void* argument)>;

/// A measure of the whole channel; the first of them. Nothing where the driver has none at present.
const dtv_stats* FirstOf(const dtv_property& property) {
  const dtv_fe_stats& stats = property.u.st;
  return stats.len > 0 && stats.len <= MAX_DTV_STATS && stats.stat[0].scale != FE_SCALE_NOT_AVAILABLE ? &stats.stat[0]
                                                                                                      : nullptr;
}

std::optional<Level> LevelOf(const dtv_property& property) {
  const dtv_stats* const stat = FirstOf(property);
  if (stat && stat->scale == FE_SCALE_DECIBEL) return Level{static_cast<double>(stat->svalue) / 1000.0, false};
  if (stat && stat->scale == FE_SCALE_RELATIVE) return Level{static_cast<double>(stat->uvalue) * 100.0 / 65535.0, true};
  return std::nullopt;
}

std::optional<uint64_t> CountOf(const dtv_property& property) {
  const dtv_stats* const stat = FirstOf(property);
  return stat && stat->scale == FE_SCALE_COUNTER ? std::optional<uint64_t>(stat->uvalue) : std::nullopt;
}

void TakeMeasures(const Ask& ask, Frontend& frontend) {
  dtv_property measures[3]{};
  measures[0].cmd = DTV_STAT_SIGNAL_STRENGTH;
  measures[1].cmd = DTV_STAT_CNR;
  measures[2].cmd = DTV_STAT_POST_ERROR_BIT_COUNT;
  dtv_properties all{};
  all.num = 3;
  all.props = measures;
  if (ask(FE_GET_PROPERTY, &all) != 0) return;
  frontend.strength = LevelOf(measures[0]);
  frontend.quality = LevelOf(measures[1]);
  frontend.bitErrors = CountOf(measures[2]);
}

/// "adapter0", "adapter"
std::optional<int> NumberIn(const std::filesystem::path& path, const char* prefix) {
  int number = 0, end = 0;
  const std::string name = path.filename();
  const std::string form = std::string(prefix) + "%4d%n";
  const bool isOne =
      std::sscanf(name.c_str(), form.c_str(), &number, &end) == 1 && end == static_cast<int>(name.size());
  return isOne && number >= 0 ? std::optional(number) : std::nullopt;
}

}  // namespace

Frontend ReadFrontend(const Ask& ask) {
  Frontend frontend;
  dvb_frontend_info info{};
  if (ask(FE_GET_INFO, &info) == 0) frontend.name.assign(info.name, strnlen(info.name, sizeof info.name));
  fe_status status{};
  if (ask(FE_READ_STATUS, &status) == 0) {
    frontend.isLocked = (status & FE_HAS_LOCK) != 0;
    frontend.hasSignal = (status & FE_HAS_SIGNAL) != 0;
  }
  TakeMeasures(ask, frontend);
  return frontend;
}

std::vector<Frontend> ReadFrontends() {
  std::vector<Frontend> found;
  for (const auto& folder : EntriesOf("/dev/dvb")) {
    const auto adapter = NumberIn(folder, "adapter");
    if (!adapter) continue;
    for (const auto& file : EntriesOf(folder)) {
      const auto number = NumberIn(file, "frontend");
      const FdHandle device(number ? open(file.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC) : -1);
      if (!device) continue;
      found.push_back(
          ReadFrontend([&](unsigned long request, void* argument) { return ioctl(device.get(), request, argument); }));
      std::tie(found.back().adapter, found.back().number) = std::tuple(*adapter, *number);
    }
  }
  const auto place = [](const Frontend& each) { return std::tuple(each.adapter, each.number); };
  std::sort(found.begin(), found.end(), [&](const Frontend& a, const Frontend& b) { return place(a) < place(b); });
  return found;
}

}  // namespace tv
