#pragma once
/// @file
/// Waiting for the disk in the place of those who have more to write.

#include <chrono>
#include <map>
#include <mutex>
#include <string>

#include "base/writer_thread.h"
#include "c_handle.h"

/// Flushes files to the disk on a thread of its own, in the order in which they are asked for. Forks as WriterThread.
///
/// Thread rule: callable from any thread.
class DiskSync {
 public:
  static DiskSync& OfProcess();
  DiskSync(const DiskSync&) = delete;
  DiskSync& operator=(const DiskSync&) = delete;

  /// Flushes the file or folder behind the descriptor, which is duplicated, soon. `path` names it, in the log too; an
  /// older one of that path that still waits is let go of: this one is it with more in it, or stands in its place.
  void Add(const std::string& path, int fd);
  /// As Add(), of the folder that holds `path`.
  void AddFolderOf(const std::string& path);

  /// Waits until what was added before the call is flushed, or has failed after a line in the log, for `limit` at most.
  /// False when it is not yet.
  bool Flush(std::chrono::milliseconds limit) { return m_queue.Flush(limit) == 0; }

 private:
  DiskSync() = default;
  void SyncFirst(const std::string& path);

  std::mutex m_lock;
  std::map<std::string, FdHandle> m_files;  ///< by path, each with an item in the queue
  WriterThread m_thread;
  WriteQueue<std::string> m_queue{m_thread, static_cast<size_t>(-1), [this](std::span<const std::string> waiting) {
                                    SyncFirst(waiting.front());
                                    return 1;
                                  }};
};
