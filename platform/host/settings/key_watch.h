#pragma once
/// @file
/// Which settings keys were set, by any process.

#include <filesystem>
#include <string>
#include <vector>

#include "folder_events.h"

namespace settings {

/// Watches one of the two folders of settings_store.h; while it is not there, the nearest one above that is, for its
/// coming.
/// Thread rule: an object belongs to one thread.
class KeyWatch {
 public:
  /// `setPath`: the folder on the set.
  explicit KeyWatch(const char* setPath);

  /// Makes the folder where it can. False with errno when nothing can be watched.
  bool Open();
  /// Readable when Take() has something; -1 before Open().
  int Fd() const { return m_events.Fd(); }
  /// Whether the key's file is one of the folder's.
  bool Holds(const std::string& key) const;

  /// Takes what has come, without waiting: the keys that were set go to `set`, each once. True when other keys of the
  /// folder may have been set too, because events were lost or because the folder was not there all the time.
  bool Take(std::vector<std::string>& set);

 private:
  void Place();
  bool NextIsThere(const std::filesystem::path& above) const;

  const char* m_setPath;
  std::filesystem::path m_folder;
  FolderEvents m_events;
  bool m_onFolder = false;
};

}  // namespace settings
