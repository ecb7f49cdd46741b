#include "home_data_control.h"

#include <sstream>

#include "sysinfo/set_profile.h"

// A host has no content platform to ask: the set's profile says what it would know.

CHomeDataControlAPI* CHomeDataControlAPI::GetInstance() {
  static CHomeDataControlAPI& instance = *new CHomeDataControlAPI;
  return &instance;
}

bool CHomeDataControlAPI::IsDisclaimerItemExist(const std::string& item, const std::string& device) {
  std::string items;
  if (item.empty() || device != "TV" ||
      set_profile::Text("home", "disclaimer_items", items) != set_profile::Answer::kValue)
    return false;
  std::istringstream list(items);
  for (std::string known; std::getline(list, known, ';');) {
    known.erase(0, known.find_first_not_of(" \t"));
    known.erase(known.find_last_not_of(" \t") + 1);
    if (known == item) return true;
  }
  return false;
}
