#include "IssueFilters.h"

#include <algorithm>
#include <iterator>

#include "DeviceQueries.h"

namespace QUVA {

namespace {

constexpr char kViewUser[] = "USER";
constexpr int kTunerSource = 0;
constexpr int kDigitalChannels[] = {2, 4, 7};

bool IsDigital(int channel) {
  return std::find(std::begin(kDigitalChannels), std::end(kDigitalChannels), channel) != std::end(kDigitalChannels);
}

}  // namespace

bool IsForViewers(std::string_view viewAuthority) {
  return viewAuthority == kViewUser;
}

bool AppliesToSource(std::string_view source) {
  const int channel = GetChannelType();
  const int current = GetCurrentSourceInfo();
  if (source == "DTV") return current == kTunerSource && IsDigital(channel);
  if (source == "HDMI") return IsHdmiForIssues(current);
  return true;
}

bool IsShown(const MapToDBTable& row) {
  return AppliesToSource(row.source) && IsForViewers(row.view_authority);
}

}  // namespace QUVA
