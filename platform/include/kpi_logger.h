#pragma once
/// @file
/// The set's log of usage events.
///
/// Thread rule: callable from any thread.

#include <chrono>
#include <string>

namespace KPILogFramework {

class CLogger {
 public:
  /// The logger of this process; lives to its end.
  static CLogger* GetInstance();

  /// Hands over one event: 1, or a negative error number when it is refused, because what lies in the log's place is
  /// none or because too many wait already. The texts may hold any bytes. Does not wait: what was taken is stored in
  /// order, at once where nothing is in the way, else as soon as it goes; what cannot be stored is in the platform log.
  int AddEventLogSync(const std::string& service, const std::string& event, const std::string& category,
                      const std::string& description);

  /// Waits until what was handed over is stored or given up, for `limit` at most; false, with a line in the platform
  /// log, when some still waits then. Within that time it waits for the disk, too. An end by exit() or from main()
  /// waits for two seconds by itself; who ends with _exit() calls it before.
  bool Flush(std::chrono::milliseconds limit = std::chrono::seconds(2));

 private:
  CLogger() = default;
};

}  // namespace KPILogFramework
