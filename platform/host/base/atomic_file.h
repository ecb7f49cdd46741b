#pragma once
/// @file
/// Files that others read: they appear and change whole, or grow at their end.
///
/// Thread rule: callable from any thread. Paths are of this machine (after SystemPath()).

#include <sys/types.h>

#include <cstdio>
#include <string>
#include <string_view>

#include "c_handle.h"

/// Makes the folder and those above it; what is the platform's state for its owner alone (base/state.h). True when it
/// is there afterwards; errno tells why not.
bool MakeFolders(const std::string& path);

/// Who may read a file.
enum class Readers { kOwner, kEverybody };

/// Writes `content` beside `path`, flushes it to the disk and renames it to `path`, 0600 or 0644. A symbolic
/// link at `path` is replaced, never followed. While it is written the file is called as `path` with '#' and six
/// characters appended, and its writer holds its lock (flock). On failure `path` is as it was, nothing is left beside
/// it, and errno tells why; only when the folder itself cannot be flushed is the new content there although this fails.
bool PublishFile(const std::string& path, std::string_view content, Readers readers = Readers::kOwner);

/// PublishFile() in steps, for those who have the disk waited for elsewhere.
class StagedFile {
 public:
  /// Writes `content` beside `path`; false with errno.
  bool Write(const std::string& path, std::string_view content, mode_t mode = 0600);
  /// Puts it in its place by `move`; false with errno. What is not published is removed.
  bool Publish(int (*move)(const char*, const char*) = std::rename);
  int Fd() const { return m_file.get(); }
  /// Where it is until then.
  const std::string& Path() const { return m_temporary; }

  StagedFile() = default;
  StagedFile(StagedFile&& other) noexcept = default;
  StagedFile& operator=(StagedFile&&) = delete;
  ~StagedFile();

 private:
  std::string m_path;
  std::string m_temporary;
  FdHandle m_lock;  ///< the file's until it has its name
  FdHandle m_file;  ///< none when there is nothing to be published
};

/// As PublishFile() for the owner, but never in another file's place: then false with EEXIST.
bool PublishPrivateFile(const std::string& path, std::string_view content);

/// Flushes the folder that holds `path`, so that a file that was made, renamed or removed in it outlives a power cut.
/// True where the file system cannot do that at all; else false with errno.
bool SyncFolderOf(const std::string& path);

/// What to do with a symbolic link at the end of a path.
enum class Links { kFollow, kRefuse };

/// What a file has at most, in bytes, where its reader does not say otherwise: more than any honest one, and no more
/// than every process can hold.
inline constexpr size_t kMostRead = 16 << 20;
/// That of files that are a line or a few: marks, ids, records, numbers of the kernel.
inline constexpr size_t kMostNoted = 64 << 10;

/// The whole file, or false with errno, `content` untouched. Regular files only (EINVAL for others), so it never waits
/// for a writer. A refused link is ELOOP. A file of more than `limit` bytes is EFBIG, and is not read in.
bool ReadWholeFile(const std::string& path, std::string& content, Links links = Links::kFollow,
                   size_t limit = kMostRead);

/// The reason, for people, of a failure of ReadWholeFile() with that limit: "it is larger than 64 KiB" for EFBIG.
std::string WhyUnread(int reason, size_t limit = kMostRead);

/// Opens a file that grows by appending, for reading too; makes it and its folder where they are not, for its owner
/// alone (0600), and takes away what more an earlier version permitted. Without a handle,
/// errno tells why: ELOOP for a symbolic link, which is not followed, EINVAL for what is no regular file.
FdHandle OpenToAppend(const std::string& path);
