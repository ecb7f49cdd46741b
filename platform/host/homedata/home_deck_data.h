#pragma once
/// @file
/// What the content platform keeps on the set, and its reset, which is done as a whole or not at all.
///
/// A reset first sets aside: the web engine's store gets another name where it lies, and the files of the settings keys
/// go into set_paths::kHomeDeckReset, whose being there says that a reset is under way. Then that folder is renamed to
/// set_paths::kHomeDeckResetDone, which is the moment in which it is done, and what was set aside is removed. After a
/// kill or a power cut the next call, or the next application of the set that starts, finds either folder: it puts back
/// everything, or goes on removing.
///
/// Thread rule: callable from any thread, but waits for the disk.

#include <cstdint>
#include <functional>
#include <string>

namespace homedata {

/// The settings keys that are its own begin so.
inline constexpr char kHomeDeckKeys[] = "db/menu/home_deck/";

struct HomeDeckData {
  bool isConsentGiven = false;  ///< to the terms
  int settings = 0;             ///< the other settings keys
  int64_t cacheBytes = 0;       ///< what its web engine has stored, as the file system counts it

  bool IsEmpty() const { return !isConsentGiven && settings == 0 && cacheBytes == 0; }
};
HomeDeckData MeasureHomeDeck();

/// Puts right what an interrupted reset has left. Does nothing while one is going on. False with `problem` when
/// something could not be put back or removed; the next call tries again.
bool MendHomeDeckReset(std::string& problem);

/// The same at the start of a program, which waits for nobody: what is to be put back is there when it returns, and
/// what is to be removed goes on a thread of its own. What is wrong is in the log. For a look at two names where
/// nothing is.
void MendHomeDeckResetAtStart();

/// Resets it, after MendHomeDeckReset(); the web engine is ended first. `onProgress` gets 0 to 1, rising, at each step.
/// False with `problem`, which names what and why, and then everything is as it was.
bool ResetHomeDeck(const std::function<void(double)>& onProgress, std::string& problem);

}  // namespace homedata
