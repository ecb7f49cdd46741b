#include "SafeFile.h"

#include <fcntl.h>
#include <unistd.h>

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
  // A link that leads nowhere does not resolve, and one can be planted meanwhile: neither is followed.
  FdHandle fd(open(full.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC, 0666));
  FileHandle file(fd ? fdopen(fd.get(), "w") : nullptr);
  if (!file) return false;
  fd.release();
  const bool written = std::fwrite(content.data(), 1, content.size(), file.get()) == content.size();
  if (std::fclose(file.release()) == 0 && written) return true;
  // A request that is not whole must not be taken for one.
  const int reason = errno;
  unlink(full.c_str());
  errno = reason;
  return false;
}

}  // namespace QUVA
