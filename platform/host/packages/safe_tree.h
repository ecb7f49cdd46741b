#pragma once
/// @file
/// Measuring and emptying folders that an application filled, and that may hold anything.
///
/// Everything goes by descriptors from the folder that is named: a symbolic link is removed or counted as itself and
/// never followed, a mount point inside is neither entered nor removed, and what belongs to another user than the
/// folder that is named is left alone, with everything below it. Nothing outside that folder is ever touched, whatever
/// other processes rename meanwhile. The way to the folder, from the set root on, must be free of links, "." and "..".
///
/// A folder that lies in something that is not trusted either (the cache in its package) is named with `within`, a
/// folder above it: then that one's owner counts, and nothing on the way from there, the folder included, may be a
/// mount point or belong to somebody else (EBUSY, EACCES).
///
/// A tree may be of any depth and width: the walk uses a bounded number of descriptors and no stack.
///
/// Thread rule: callable from any thread. Calls block for as long as the walk takes. Paths are of the set.

#include <cstdint>
#include <ctime>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

namespace packages {

struct TreeResult {
  int64_t bytes = 0;  ///< as the file system counts them (allocated blocks), a hard-linked file once
  int64_t files = 0;  ///< files, links and folders
  int kept = 0;       ///< entries that were left alone or could not be removed, not counting the folders they lie in
  int error = 0;      ///< errno of the first failure, 0 when there was none; ENOENT when the folder is not there.
                      ///< Where something had to be left alone: EACCES for its owner, EBUSY for a mount point
};

/// Called with the bytes removed so far, after each removal.
using TreeProgress = std::function<void(int64_t)>;

/// What everything in the folder takes, the folder itself included. What would be left alone is not counted and is no
/// error; a folder that cannot be read is.
TreeResult MeasureTree(const std::string& folder, const std::string& within = {});

/// The same before RemoveTree(): folders of ours that their owner has shut or made read-only are opened up for him.
/// When `error` is not set, nothing that is there stands against the removal: what would be left alone is an error
/// here. A folder that is a mount point is EBUSY.
TreeResult PrepareTree(const std::string& folder, const std::string& within = {});

/// Asked before each removal; once it is true the walk ends with ECANCELED, and what has not gone stays as it is.
using TreeStop = std::function<bool()>;

/// What of a folder is to go. With `before` or `names` only regular files and links go; the rest stays as it is, is no
/// error and is not in `kept`.
struct TreeSelection {
  std::optional<time_t> before{};  ///< seconds since 1970: only what was last changed earlier
  bool countsUse = false;          ///< having been read, as the file system tells, counts like a change
  /// Only files of these names, `depth` folders below the one that is emptied; all folders stay then. Without names,
  /// folders as old as `before` go that are empty then.
  bool (*names)(int depth, std::string_view name) = nullptr;
  bool ownedByUs = false;  ///< only this process's user's files, whoever's the folder is: one where everybody may write
  TreeStop stop{};
};

/// What EmptyTree() with that selection would remove, and `stop` would not stop.
TreeResult MeasureSelection(const std::string& folder, const std::string& within, const TreeSelection& selection);

/// Removes what is in the folder; the folder stays. `bytes` and `files` are what was removed; a file that has further
/// hard links frees nothing.
TreeResult EmptyTree(const std::string& folder, const TreeProgress& onProgress = {}, const std::string& within = {},
                     const TreeSelection& selection = {});

/// Removes the folder with all in it, when nothing was kept there. A folder that is a mount point is not touched
/// (EBUSY).
TreeResult RemoveTree(const std::string& folder, const TreeProgress& onProgress = {}, const std::string& within = {},
                      const TreeStop& stop = {});

/// Gives the folder another name where it lies, a plain one that nothing has there (EEXIST); a mount point stays
/// (EBUSY). 0 or an errno.
int RenameTree(const std::string& folder, const std::string& name);

}  // namespace packages
