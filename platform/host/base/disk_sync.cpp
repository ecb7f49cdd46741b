#include "base/disk_sync.h"

#include <fcntl.h>

#include <cerrno>
#include <cstring>
#include <filesystem>

#include "dlog.h"
#include "log_tags.h"
#include "system_path.h"

DiskSync& DiskSync::OfProcess() {
  static auto& sync = *new DiskSync;
  return sync;
}

void DiskSync::Add(const std::string& path, int fd) {
  FdHandle file(fcntl(fd, F_DUPFD_CLOEXEC, 0));
  if (!file) return;
  const std::lock_guard guard(m_lock);
  const bool isFirst = m_files.insert_or_assign(path, std::move(file)).second;
  if (isFirst) m_queue.Add(path);
}

void DiskSync::AddFolderOf(const std::string& path) {
  const std::string folder = std::filesystem::path(path).parent_path();
  const FdHandle handle(open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (handle) Add(folder, handle.get());
}

void DiskSync::SyncFirst(const std::string& path) {
  FdHandle file;
  {
    const std::lock_guard guard(m_lock);
    const auto found = m_files.find(path);
    file = std::move(found->second);
    m_files.erase(found);
  }
  // Some file systems cannot flush a folder.
  if (fdatasync(file.get()) == 0 || errno == EINVAL || errno == ENOTSUP) return;
  __dlog_print(LOG_ID_APPS, DLOG_ERROR, log_tags::kWriter, "a power cut may take what was written to %s: %s",
               NameOnSet(path).data(), std::strerror(errno));
}
