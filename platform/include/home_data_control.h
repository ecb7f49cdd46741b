#pragma once
/// @file
/// The content platform's data: which legal notices ("disclaimer items") it knows for this set.
///
/// Thread rule: callable from any thread. Calls wait for nobody.

#include <string>

class CHomeDataControlAPI {
 public:
  /// Lives to the end of the process.
  static CHomeDataControlAPI* GetInstance();

  /// Whether the notice `item` ("service_request") exists for the kind of device ("TV").
  bool IsDisclaimerItemExist(const std::string& item, const std::string& device);

 private:
  CHomeDataControlAPI() = default;
};
