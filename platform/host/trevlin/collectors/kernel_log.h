#pragma once
/// @file
/// The kernel's log, whose format is in the kernel's Documentation/ABI/testing/dev-kmsg: "3,1234,5678,-;text".
///
/// Thread rule: an object is used by one thread at a time.

#include <functional>
#include <string_view>

#include "c_handle.h"
#include "trevlin/facts.h"

namespace trevlin {

struct LogRecord {
  double seconds;         ///< after the machine's start, without those in which it slept; 0 where it is not told
  std::string_view text;  ///< its first line
};

class KernelLog {
 public:
  /// Calls `take` with each record that came since the last call, at first with all that are still there; of a captured
  /// machine with all each time. False where the log may not be read.
  bool Read(const Machine& machine, const std::function<void(const LogRecord&)>& take);

 private:
  FdHandle m_log;
};

}  // namespace trevlin
