#pragma once
/// @file
/// The task manager, "tager": serves the maintenance requests of other programs. docs/setd.md has the protocol.
///
/// Thread rule: the main thread, with the GLib default main loop. The work is done on the threads of `jobs`.

#include <set>
#include <string>

#include "setd/folder_watch.h"
#include "setd/jobs.h"
#include "setd/request.h"

namespace setd {

/// Publishes what the storage of the web engine takes in set_paths::kCobaltSize. False with a line in the log when that
/// cannot be. Any thread.
bool PublishCobaltSize();

class TaskManager {
 public:
  /// `jobs` ends before this does.
  explicit TaskManager(Jobs& jobs);
  ~TaskManager();

  /// Serves the requests that are there, and those that come.
  void Start();

 private:
  void Look(const std::string& trigger, bool isFinal = false);
  void Serve(const Request& request);
  void Refuse(const std::string& trigger, const std::string& problem);
  void KeepCobaltSize();
  void SweepLater();

  Jobs& m_jobs;
  FolderWatch m_requests;
  FolderWatch m_folder;
  FolderWatch m_answers;
  FolderWatch m_results;            // of quick diagnoses, which are not this daemon's; it keeps their folder
  std::set<std::string> m_unknown;  // names that the log has
  unsigned m_cobaltTimer = 0;
  unsigned m_sweepTimer = 0;
};

}  // namespace setd
