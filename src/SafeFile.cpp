#include "SafeFile.h"

#include <sys/stat.h>

#include <cerrno>
#include <cstdio>

#include "c_handle.h"
#include "system_path.h"

namespace QUVA {

bool HasNoLinks(const std::string& path) {
  const std::string full = SystemPath(path);
  const std::string folder = full.substr(0, full.rfind('/'));
  const CText resolved(realpath(folder.c_str(), nullptr));
  if (!resolved) return false;
  struct stat info {};
  const bool isLink = lstat(full.c_str(), &info) == 0 && S_ISLNK(info.st_mode);
  if (!isLink && folder == resolved.get()) return true;
  errno = ELOOP;
  return false;
}

bool CreateFileWithoutLinks(const std::string& path, std::string_view content) {
  if (!HasNoLinks(path)) return false;
  FileHandle file(std::fopen(SystemPath(path).c_str(), "w"));
  if (!file) return false;
  const bool written = std::fwrite(content.data(), 1, content.size(), file.get()) == content.size();
  return std::fclose(file.release()) == 0 && written;
}

}  // namespace QUVA
