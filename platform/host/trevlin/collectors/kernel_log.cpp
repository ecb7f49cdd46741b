#include "trevlin/collectors/kernel_log.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

#include "trevlin/collectors/readings.h"

namespace trevlin {

namespace {

constexpr std::string_view kFile = "/dev/kmsg";

void TakeRecord(std::string_view record, const std::function<void(const LogRecord&)>& take) {
  const size_t semicolon = record.find(';');
  if (semicolon == std::string_view::npos) return;
  const std::string_view head = record.substr(0, semicolon);
  const size_t number = head.find(','), time = head.find(',', number + 1), flags = head.find(',', time + 1);
  const auto microseconds =
      flags == std::string_view::npos ? std::nullopt : ParseNumber(head.substr(time + 1, flags - time - 1));
  take({microseconds.value_or(0) / 1e6, record.substr(semicolon + 1, record.find('\n', semicolon) - semicolon - 1)});
}

}  // namespace

bool KernelLog::Read(const Machine& machine, const std::function<void(const LogRecord&)>& take) {
  if (machine.IsCaptured()) {
    const auto log = ReadText(machine, kFile);
    if (!log) return false;
    for (const std::string_view record : SplitLines(*log)) TakeRecord(record, take);
    return true;
  }
  if (!m_log) m_log = FdHandle(open(machine.Path(kFile).c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
  if (!m_log) return false;
  char record[8192];  // the kernel's longest
  for (;;) {
    const ssize_t size = read(m_log.get(), record, sizeof record);
    if (size > 0)
      TakeRecord({record, static_cast<size_t>(size)}, take);
    else if (size == 0 || (errno != EPIPE && errno != EINTR))  // EPIPE: some were overwritten before they were read
      return size == 0 || errno == EAGAIN;
  }
}

}  // namespace trevlin
