#pragma once

#include <cstdint>
#include <string>

namespace QUVA {

/// How the storage is used, as texts and as what a bar shows.
struct StorageSummary {
  std::string used;            ///< "5.40GB"
  std::string available;       ///< with its share: "2.60GB(32%)"
  std::string system;          ///< of the nominal form alone
  std::string percent;         ///< the available share in whole percent, cut off
  double usedFraction = 1.0;   ///< 0.0 to 1.0
  int64_t availableBytes = 0;  ///< never below 0
};

/// The regional variant whose sets show the parts of the nominal capacity.
inline constexpr char kNominalLocalSet[] = "CHI_DTV";

/// Sizes in bytes: of the user partition, what is used of it, and what the system takes. In the nominal form the parts
/// add up to the capacity that the set is sold with (4, 8, 16, 32 or 64 GB), the system's growing as needed; where it
/// would be less than nothing, as on a larger disk, it is nothing. Any thread.
StorageSummary MakeStorageSummary(int64_t total, int64_t used, int64_t system, bool nominal);

/// The width of the system's part of a bar of `width` units, a whole number.
int64_t SystemPartOfBar(int64_t width, int64_t total, int64_t system);

}  // namespace QUVA
