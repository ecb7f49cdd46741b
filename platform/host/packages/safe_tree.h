#pragma once
/// @file
/// Measuring and emptying folders that an application filled, and that may hold anything.
///
/// Everything goes by descriptors from the folder that is named: a symbolic link is removed or counted as itself and
/// never followed, a mount point inside is neither entered nor removed, and what belongs to another user than the
/// folder that is named is left alone, with everything below it. Nothing outside that folder is ever touched.
///
/// Thread rule: callable from any thread. Calls block for as long as the walk takes. Paths are of the set.

#include <atomic>
#include <cstdint>
#include <functional>
#include <string>

namespace packages {

struct TreeResult {
  int64_t bytes = 0;  ///< as the file system counts them (allocated blocks), a hard-linked file once
  int64_t files = 0;  ///< files, links and folders
  int kept = 0;       ///< entries that were left alone or could not be removed
  int error = 0;      ///< errno of the first failure, 0 when there was none; ENOENT when the folder is not there
};

/// What everything in the folder takes, the folder itself included.
TreeResult MeasureTree(const std::string& folder);

/// Removes what is in the folder; the folder stays. `bytes` and `files` are what was removed.
/// `onProgress`, where set, is called with the bytes removed so far.
TreeResult EmptyTree(const std::string& folder, const std::function<void(int64_t)>& onProgress = {});

/// The same, and removes the folder when nothing was kept in it.
TreeResult RemoveTree(const std::string& folder, const std::function<void(int64_t)>& onProgress = {});

}  // namespace packages
