#pragma once
/// @file
/// The applications that this one launches, by their ids.

namespace QUVA::app_ids {

inline constexpr char kPictureTest[] = "org.varno.picture-test";
inline constexpr char kVideoTest[] = "com.tornelo.video-test";
inline constexpr char kSoundTest[] = "org.varno.sound-test";
inline constexpr char kHomedeckReset[] = "org.varno.homedeck-reset";
inline constexpr char kHomedeckConnectionTest[] = "org.varno.homedeck-connection-test";
inline constexpr char kModulesTest[] = "org.varno.mled-installation-test";
inline constexpr char kHdmiTroubleshooting[] = "com.tornelo.tv.hdmi-troubleshooting";
inline constexpr char kSignalPages[] = "com.tornelo.tv.broadcastingmenu";
inline constexpr char kMenu[] = "org.varno.menu";
inline constexpr char kWizard[] = "org.varno.wizard";
inline constexpr char kHotelMenu[] = "org.varno.ep-hotel-factory";
inline constexpr char kRequestSupport[] = "org.varno.request-support";
inline constexpr char kNetworkSetting[] = "org.varno.NetworkSetting-Varno";

}  // namespace QUVA::app_ids
