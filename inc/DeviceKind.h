#pragma once
/// @file
/// Texts that speak of the set itself come in variants for what the set is.

#include <string>

namespace QUVA {

enum DeviceKind { DEVICE_KIND_TV, DEVICE_KIND_SCREEN, DEVICE_KIND_PROJECTOR };

/// What the set is; a television when it does not say. Any thread.
DeviceKind GetDeviceKind();

/// The variant for this set of a message id that stands in a solution; the id itself where there is none. Any thread.
std::string SidForDevice(const std::string& sid);

}  // namespace QUVA
