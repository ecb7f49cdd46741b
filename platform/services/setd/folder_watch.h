#pragma once
/// @file
/// Folders that other programs put files into.
///
/// Thread rule: the main thread, with the GLib default main loop.

#include <functional>
#include <string>

#include "folder_events.h"

namespace setd {

/// Makes the folder (a path of the set) where it is missing. False with a reason when it is not to be used then, as
/// exchange::MakeFolder() has it: a link or somebody else's folder could lead the daemon's work astray. The log has
/// what got another name. Any thread.
bool MakeOwnFolder(const std::string& folder, std::string& problem);

/// Adds a one-shot timer; returns its GLib source id.
unsigned AddTimer(unsigned milliseconds, std::function<void()> action);

/// Makes one folder, tells of every file that is in it or arrives, and makes it again when it is taken away.
class FolderWatch {
 public:
  using OnFile = std::function<void(const std::string& name)>;
  using OnMade = std::function<void()>;

  /// `folder` is a path of the set. `onFile` is called for a file that was written and closed or renamed into the
  /// folder, and for all there are after Start() and after the folder was made again; `onMade` before those.
  FolderWatch(const char* folder, OnFile onFile, OnMade onMade = {});
  ~FolderWatch();
  FolderWatch(const FolderWatch&) = delete;
  FolderWatch& operator=(const FolderWatch&) = delete;

  /// Again after Start(): looks for the folder at its path anew. What cannot be made or watched is in the log, and
  /// tried again every five seconds.
  void Start();

 private:
  void Establish();
  void Rescan();
  void TakeEvents();

  const char* m_folder;
  OnFile m_onFile;
  OnMade m_onMade;
  FolderEvents m_events;
  unsigned m_source = 0;
  unsigned m_retry = 0;
  unsigned m_retryMs;  ///< the next pause
  std::string m_logged;
};

}  // namespace setd
