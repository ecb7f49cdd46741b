#pragma once
/// @file
/// Which result rows a viewer sees here and now. Thread rule: any thread.

#include <string_view>

#include "QUVA_Records.h"

namespace QUVA {

/// Whether rows of this view authority are for viewers.
bool IsForViewers(std::string_view viewAuthority);
/// Whether rows of this source apply to the input source and the channel that are showing.
bool AppliesToSource(std::string_view source);
/// Both.
bool IsShown(const MapToDBTable& row);

}  // namespace QUVA
