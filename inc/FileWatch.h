#pragma once

#include <chrono>
#include <string>

#include "folder_events.h"

namespace QUVA {

/// Waits for a file to come or go.
/// Thread rule: an object belongs to one thread.
class FileWatch {
 public:
  /// `path` is of the set; its folder need not exist.
  explicit FileWatch(const std::string& path);

  bool Exists() const;
  /// Blocks until the file is there (or, with `present` false, is not), at most for `limit`. Whether it came to that.
  /// Wakes at the change itself; where changes cannot be watched it looks once a second.
  bool WaitFor(bool present, std::chrono::milliseconds limit);

 private:
  void Pause(std::chrono::milliseconds limit);

  std::string m_path;  ///< of this machine
  FolderEvents m_folder;
};

}  // namespace QUVA
