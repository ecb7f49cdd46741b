#include "tools.h"

#include <algorithm>
#include <iterator>

#include "AppIds.h"

namespace tools {

namespace {

using namespace QUVA::app_ids;

constexpr Tool kTools[] = {
    {"picture", kPictureTest, "SID_PICTURE_TEST", "Picture Test", "picture-test", OpenPictureTest},
    {"hdmi", kHdmiTroubleshooting, "TV_SID_CONNECTION_HDMI_TROUBLSHOOTING", "HDMI Troubleshooting",
     kHdmiTroubleshooting, OpenHdmiTroubleshooting},
    {"signal", kSignalPages, "SID_SIGNAL_INFORMATION_KR_17", "Signal Information", "SignalInfo", OpenSignalInformation},
    {"modules", kModulesTest, "TV_SID_OOBE_CAJUL_MLED_INSTALL_TEST", "MLED Installation Test", kModulesTest,
     OpenModulesTest},
    {"sound", kSoundTest, "SID_SOUND_TEST", "Sound Test", "sound-test", OpenSoundTest},
    {"video", kVideoTest, "TV_SID_CARE_VIDEO_TEST", "Video Test", "video-test", OpenVideoTest},
    {"connection", kHomedeckConnectionTest, "COM_SID_HOME_DECK_CONNECTION_TEST", "Homedeck Connection Test",
     kHomedeckConnectionTest, OpenConnectionTest},
    {"reset", kHomedeckReset, "COM_TV_SID_RESET_HOME_DECK_KR_KOR", "Reset Homedeck", "HomedeckReset",
     OpenHomeDeckReset},
};

}  // namespace

const Tool* FindTool(std::string_view name) {
  const auto* const tool =
      std::find_if(std::begin(kTools), std::end(kTools), [name](const Tool& each) { return name == each.name; });
  return tool == std::end(kTools) ? nullptr : tool;
}

std::string ToolNames() {
  std::string names;
  for (const Tool& tool : kTools) names += (names.empty() ? "" : " ") + std::string(tool.name);
  return names;
}

}  // namespace tools
