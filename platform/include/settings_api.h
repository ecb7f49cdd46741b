#pragma once
/// @file
/// The set's settings menu: entries can be taken out of use while an application shows that they make no sense with.
///
/// Thread rule: main thread.

#include <string>

class SettingsAPI {
 public:
  static SettingsAPI& Get();

  /// Takes `item` out of use for as long as `owner` (an application id) has not enabled it again.
  /// 0 for success, -1 when it could not be recorded. Doing it twice is no failure.
  int DisableItem(const std::string& item, const std::string& owner);
  int EnableItem(const std::string& item, const std::string& owner);

 private:
  SettingsAPI() = default;
};
