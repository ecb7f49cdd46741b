#pragma once
/// @file
/// What the content terms, to which the viewer consents or not, decide. Thread rule: any thread.

#include <string>

namespace QUVA {

/// Whether the viewer has consented to the content terms.
bool HasConsent();

/// Whether the viewer sees the application of that title among his own.
bool IsShownToViewer(const std::string& title, bool hasConsent);

}  // namespace QUVA
