#pragma once
/// @file
/// What is inside a request.

#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "app_framework.h"

namespace app_framework {

/// A request's named texts, in the order in which they were added; names are unique.
using Extras = std::vector<std::pair<std::string, std::string>>;

/// Whether it can be the name of one: not empty, and without '=', as extras travel as arguments "key=value".
bool IsExtraKey(std::string_view key);

/// Adds the text, or replaces it in its place.
void SetExtra(Extras& extras, std::string key, std::string value);

}  // namespace app_framework

struct app_control_s {
  std::string operation = APP_CONTROL_OPERATION_DEFAULT;
  std::string appId;
  app_framework::Extras extras;
  bool startedStandIn = false;
};
