#pragma once
/// @file
/// What is inside a request.

#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include "app_framework.h"

namespace app_framework {

/// A request's named texts, in the order in which they were added; names are unique. Another process may send any
/// number of them.
class Extras {
 public:
  /// Adds the text, or replaces it in its place.
  void Set(std::string key, std::string value);
  /// Null for a name that none has.
  const std::string* Find(const std::string& key) const;

  auto begin() const { return m_texts.begin(); }
  auto end() const { return m_texts.end(); }

 private:
  std::vector<std::pair<std::string, std::string>> m_texts;
  std::unordered_map<std::string, size_t> m_places;
};

/// Whether it can be the name of one: not empty, and without '=', as extras travel as arguments "key=value".
bool IsExtraKey(std::string_view key);

}  // namespace app_framework

struct app_control_s {
  std::string operation = APP_CONTROL_OPERATION_DEFAULT;
  std::string appId;
  app_framework::Extras extras;
  bool startedStandIn = false;
};
