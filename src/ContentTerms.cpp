#include "ContentTerms.h"

#include <algorithm>
#include <iterator>

#include "SettingsKeys.h"
#include "vconf.h"

namespace QUVA {

namespace {

constexpr int kConsentGiven = 1;
// Everyone may see these.
constexpr const char* kFreeTitles[] = {"e-Manual", "WebBrowser"};

}  // namespace

bool HasConsent() {
  int consent = 0;
  return vconf_get_int(kConsentKey, &consent) == 0 && consent == kConsentGiven;
}

bool IsShownToViewer(const std::string& title, bool hasConsent) {
  return hasConsent || std::find(std::begin(kFreeTitles), std::end(kFreeTitles), title) != std::end(kFreeTitles);
}

}  // namespace QUVA
