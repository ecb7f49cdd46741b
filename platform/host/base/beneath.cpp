#include "base/beneath.h"

#include <fcntl.h>
#include <linux/openat2.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>

FdHandle OpenBeneath(int folder, const std::string& path, int flags) {
  open_how how{};
  // Without O_NONBLOCK a planted pipe would hold the caller for ever.
  how.flags = static_cast<unsigned>(flags | O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
  how.resolve = RESOLVE_BENEATH | RESOLVE_NO_MAGICLINKS;
  return FdHandle(static_cast<int>(syscall(SYS_openat2, folder, path.c_str(), &how, sizeof how)));
}

bool ReadBeneath(int folder, const std::string& path, size_t limit, std::string& content) {
  const FdHandle file = OpenBeneath(folder, path);
  struct stat status;
  if (!file || fstat(file.get(), &status) != 0) return false;
  errno = !S_ISREG(status.st_mode) ? EINVAL : static_cast<size_t>(status.st_size) > limit ? EFBIG : 0;
  if (errno != 0) return false;
  std::string bytes(static_cast<size_t>(status.st_size), '\0');
  size_t size = 0;
  while (size < bytes.size()) {
    const ssize_t count = read(file.get(), bytes.data() + size, bytes.size() - size);
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return false;
    if (count == 0) break;
    size += static_cast<size_t>(count);
  }
  bytes.resize(size);
  content = std::move(bytes);
  return true;
}
