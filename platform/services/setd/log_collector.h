#pragma once
/// @file
/// The log collector, "kov": makes error reports of the trigger files of other programs. docs/setd.md has the protocol.
///
/// Thread rule: the main thread, with the GLib default main loop. The work is done on the threads of `jobs`.

#include <map>
#include <mutex>
#include <set>
#include <string>

#include "setd/folder_watch.h"
#include "setd/jobs.h"

namespace setd {

class LogCollector {
 public:
  /// `jobs` ends before this does.
  explicit LogCollector(Jobs& jobs);
  ~LogCollector();
  LogCollector(const LogCollector&) = delete;
  LogCollector& operator=(const LogCollector&) = delete;

  /// Collects for the triggers that are there, and for those that come. Those in the folder for after a restart are
  /// remembered in set_paths::kSetdState, and are due when this kernel is another than the one that saw them come.
  void Start();

 private:
  void Look(const std::string& folder, const std::string& trigger);
  void Prune();
  void LookAfterRestart(const std::string& trigger);
  void RememberKernel();
  void Collect(const std::string& folder, const std::string& trigger);
  bool MakeReportOf(const std::string& folder, const std::string& trigger, const StopFlag& stop);

  /// A report that was made and whose request could not be removed then.
  struct Collected {
    std::string identity;  // of what asked
    std::string report;    // its file name
  };
  std::string TakeCollected(const std::string& path, const std::string& identity);

  Jobs& m_jobs;
  std::string m_bootId;
  FolderWatch m_triggers;
  FolderWatch m_restartTriggers;
  unsigned int m_timer = 0;
  std::set<std::string> m_unknown;  // names that the log has
  std::mutex m_lock;
  std::map<std::string, Collected> m_collected;  // by what asked; guarded by m_lock
};

}  // namespace setd
