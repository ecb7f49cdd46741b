#pragma once
/// @file
/// What the application asks of the set. Nothing is remembered, and a failure is a line in the log. Thread rule: any
/// thread.

#include <string>

#include "system_info.h"

namespace QUVA {

/// A text of the set's profile; empty when the set does not say.
std::string GetSystemInfo(system_info_key_e key);

/// The channel type of the channel that is showing, -1 when there is none.
int GetChannelType();
/// The number of the input source that is showing, -1 when it cannot be read.
int GetCurrentSourceInfo();
// Which inputs are HDMI, by two rules that differ on purpose: 46 and 47 have an HDMI signal to check, but no issue of
// the source "HDMI" is about them.
/// Whether the signal check of this input is that of HDMI: 13 to 16, 38, 39, 46 and 47.
bool IsHdmiForSignalCheck(int source);
/// Whether issues of the source "HDMI" apply to this input: 13 to 16, 38 and 39.
bool IsHdmiForIssues(int source);
/// The software model, the chipset, the regional variant: empty when the set does not say.
std::string GetSwModel();
std::string GetChipSet();
std::string GetLocalSet();
/// The version of a panel of self-lit modules; 0 for other panels.
int GetOstravVersion();
/// What kind of product the set is; 0 when it does not say.
int GetTVProductType();
bool IsSignage();

}  // namespace QUVA
