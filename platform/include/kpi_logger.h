#pragma once
/// @file
/// The set's log of usage events.
///
/// Thread rule: callable from any thread.

#include <string>

namespace KPILogFramework {

class CLogger {
 public:
  /// The logger of this process; lives to its end.
  static CLogger* GetInstance();

  /// Hands over one event and returns when it is stored: 1, or a negative error number when it could not be.
  /// The texts may hold any bytes.
  int AddEventLogSync(const std::string& service, const std::string& event, const std::string& category,
                      const std::string& description);

 private:
  CLogger() = default;
};

}  // namespace KPILogFramework
