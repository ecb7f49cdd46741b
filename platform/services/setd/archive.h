#pragma once
/// @file
/// A compressed archive that is made in memory.
///
/// Thread rule: an object belongs to one thread at a time.

#include <archive.h>

#include <ctime>
#include <memory>
#include <string>
#include <string_view>

#include "c_handle.h"

namespace setd {

/// In hexadecimal digits.
std::string Sha256(std::string_view bytes);

class Archive {
 public:
  /// A tar archive, compressed with zstd where that is wanted and the library can, else with gzip.
  explicit Archive(bool isZstd = true);

  /// "tar.zst" or "tar.gz".
  const char* Suffix() const { return m_suffix; }

  /// Adds a file without owner, readable for everybody.
  void Add(const std::string& name, std::string_view content, time_t time);

  /// Ends the archive. False with a reason when any step of it failed; else `bytes` is the whole.
  bool Finish(std::string& bytes, std::string& problem);

 private:
  void Check(int result);

  std::string m_bytes;
  // Goes before the bytes, to which it writes its end even when it is given up.
  std::unique_ptr<archive, CRelease<&archive_write_free>> m_archive;
  const char* m_suffix = "tar.gz";
  std::string m_problem;
};

}  // namespace setd
