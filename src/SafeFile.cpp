#include "SafeFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

#include "ownership.h"
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

bool ReadRegularFile(const std::string& path, size_t limit, bool mayBeLink, std::string& text, std::string& problem) {
  const FdHandle fd(
      open(SystemPath(path).c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC | (mayBeLink ? 0 : O_NOFOLLOW)));
  struct stat info {};
  const auto refuse = [&](const std::string& reason) {
    problem = reason;
    return false;
  };
  if (!fd || fstat(fd.get(), &info) != 0) return refuse(std::strerror(errno));
  if (S_ISDIR(info.st_mode)) return refuse(std::strerror(EISDIR));
  if (!S_ISREG(info.st_mode)) return refuse("it is not a regular file");
  std::string content;
  char block[1 << 14];
  ssize_t size = 0;
  // A size is no promise: it may grow, and one with holes has any.
  while (content.size() <= limit && (size = read(fd.get(), block, std::min(sizeof block, limit + 1))) > 0)
    content.append(block, static_cast<size_t>(size));
  if (size < 0) return refuse(std::strerror(errno));
  if (content.size() > limit) return refuse("it is larger than " + std::to_string(limit) + " bytes");
  text = std::move(content);
  return true;
}

namespace {

/// Empties it, for writing and reading.
FileHandle ToStream(FdHandle fd) {
  if (!fd || ftruncate(fd.get(), 0) != 0) return nullptr;
  FileHandle file(fdopen(fd.get(), "w+"));
  if (file) fd.release();
  return file;
}

}  // namespace

FileHandle OpenFileWithoutLinks(const std::string& path) {
  FdHandle fd(open(path.c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC, 0666));
  struct stat info {};
  if (!fd || fstat(fd.get(), &info) != 0) return nullptr;
  if (!S_ISREG(info.st_mode) || info.st_nlink > 1) {
    errno = S_ISREG(info.st_mode) ? EMLINK : EINVAL;
    return nullptr;
  }
  return ToStream(std::move(fd));
}

FileHandle OpenExchangeFile(const std::string& path) {
  return ToStream(exchange::OpenFile(path, O_RDWR | O_CREAT));
}

bool IsExchangeInOrder(const std::string& path) {
  if (exchange::OpenFile(path, O_PATH)) return true;
  const int reason = errno;
  std::string ignored;
  return reason == ENOENT && exchange::OpenFolder(path.substr(0, path.rfind('/')), ignored);
}

bool CreateFileWithoutLinks(const std::string& path, std::string_view content) {
  const std::string full = SystemPath(path);
  FileHandle file = OpenExchangeFile(path);
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
