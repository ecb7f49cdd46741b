#pragma once
/// @file
/// What a graphics card's device tells of its connectors, by the kernel's mode setting (libdrm). Any thread.

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "display/connector.h"

namespace display {

/// Fills mode and picture of those of `connectors` that are the card's ("card0") and that it knows. Asks for what the
/// kernel remembers. A card that may not be opened tells nothing.
void AskCard(const std::string& card, std::vector<Connector>& connectors);

/// A property of a connector or of what feeds it, as drivers name it: `value` as a number; `text`, its name where it is
/// one of a list; `blob`, its content where it has one.
struct Property {
  std::string_view name;
  uint64_t value = 0;
  std::string_view text{};
  std::string_view blob{};
};
/// Takes what `property` tells of the picture, if it does.
void TakeProperty(const Property& property, Picture& picture);

}  // namespace display
