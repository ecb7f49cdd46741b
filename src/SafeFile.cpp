#include "SafeFile.h"

#include <cerrno>
#include <cstdio>

#include "c_handle.h"
#include "system_path.h"

namespace QUVA {

bool CreateFileWithoutLinks(const std::string& path, std::string_view content) {
  const std::string full = SystemPath(path);
  const CText resolved(realpath(full.c_str(), nullptr));
  if (resolved && full != resolved.get()) {
    errno = ELOOP;
    return false;
  }
  if (!resolved && errno != ENOENT) return false;
  FileHandle file(std::fopen(full.c_str(), "w"));
  if (!file) return false;
  const bool written = std::fwrite(content.data(), 1, content.size(), file.get()) == content.size();
  return std::fclose(file.release()) == 0 && written;
}

}  // namespace QUVA
