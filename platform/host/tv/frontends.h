#pragma once
/// @file
/// The tuners of the machine: what the drivers of digital television tell of their reception (linux/dvb/frontend.h,
/// version 5). They are opened for reading, which disturbs nobody who watches. Any thread; takes milliseconds.

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace tv {

/// What a driver measures, in decibels or as a share of what it can.
struct Level {
  double value = 0;
  bool isShare = false;  ///< 0 to 100 percent
  bool operator==(const Level&) const = default;
};

/// Nothing is what the driver does not tell.
struct Frontend {
  int adapter = 0, number = 0;
  std::string name;                   ///< of the tuner; empty where the driver does not tell
  std::optional<bool> isLocked;       ///< it receives a channel
  bool hasSignal = false;             ///< it notices something, though it may not receive it
  std::optional<Level> strength;      ///< decibels are dBm
  std::optional<Level> quality;       ///< carrier to noise
  std::optional<uint64_t> bitErrors;  ///< that were left after correction, since the channel was tuned
  bool operator==(const Frontend&) const = default;
};

/// All below /dev/dvb that can be opened, in the order of their numbers.
std::vector<Frontend> ReadFrontends();

/// What one tells: `ask` is ioctl() on its device, 0 for success.
Frontend ReadFrontend(const std::function<int(unsigned long request, void* argument)>& ask);

}  // namespace tv
