#pragma once

#include <string>

namespace setd {

/// Tells a set that lost its power or hung from one that was shut down in order.
///
/// While the daemon runs, "running" in set_paths::kSetdState holds the kernel's boot id. One of another kernel, at the
/// daemon's first start on this one, was left by a shutdown out of order. set_paths::kLastShutdown then tells for this
/// kernel: its boot id, a blank, and "clean" or "unclean".
///
/// Main thread. A file that cannot be written is in the log, and nothing else comes of it.
class StartMark {
 public:
  StartMark();
  ~StartMark();
  StartMark(const StartMark&) = delete;
  StartMark& operator=(const StartMark&) = delete;

 private:
  std::string m_path;  // empty when no mark was made
};

}  // namespace setd
