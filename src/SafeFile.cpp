#include "SafeFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "plain_text.h"
#include "system_path.h"

namespace QUVA {

bool IsPlainName(const std::string& name) {
  return !name.empty() && name.front() != '.' && IsPlain(name);
}

bool FileExists(const std::string& path) {
  return access(SystemPath(path).c_str(), F_OK) == 0;
}

bool IsLink(const std::string& path) {
  struct stat info {};
  errno = 0;
  if (lstat(SystemPath(path).c_str(), &info) == 0) return S_ISLNK(info.st_mode);
  if (errno == ENOENT) errno = 0;
  return false;
}

FileHandle OpenFileWithoutLinks(const std::string& path) {
  FdHandle fd(open(path.c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC, 0666));
  struct stat info {};
  if (!fd || fstat(fd.get(), &info) != 0) return nullptr;
  if (!S_ISREG(info.st_mode) || info.st_nlink > 1) {
    errno = S_ISREG(info.st_mode) ? EMLINK : EINVAL;
    return nullptr;
  }
  if (ftruncate(fd.get(), 0) != 0) return nullptr;
  FileHandle file(fdopen(fd.get(), "w+"));
  if (file) fd.release();
  return file;
}

bool HasNoLinks(const std::string& path) {
  const std::string full = SystemPath(path);
  const std::string folder = full.substr(0, full.rfind('/'));
  const CText resolved(realpath(folder.c_str(), nullptr));
  if (!resolved) return false;
  if (!IsLink(path) && folder == resolved.get()) return true;
  errno = ELOOP;
  return false;
}

bool CreateFileWithoutLinks(const std::string& path, std::string_view content) {
  if (!HasNoLinks(path)) return false;
  const std::string full = SystemPath(path);
  FileHandle file = OpenFileWithoutLinks(full);
  if (!file) return false;
  const bool written = std::fwrite(content.data(), 1, content.size(), file.get()) == content.size();
  if (std::fclose(file.release()) == 0 && written) return true;
  // A request that is not whole must not be taken for one.
  const int reason = errno;
  unlink(full.c_str());
  errno = reason;
  return false;
}

}  // namespace QUVA
