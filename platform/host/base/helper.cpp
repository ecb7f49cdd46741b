#include "base/helper.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "base/program.h"
#include "c_handle.h"
#include "system_path.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::string_view kDone = "done", kFailed = "failed ";
constexpr std::chrono::seconds kEndPatience{2};
constexpr size_t kMaxLine = 4096;
constexpr long kMaxErrno = 4095;

/// Lines that come through a pipe.
class Lines {
 public:
  explicit Lines(int from) : m_from(from) {}

  /// False at the end of the pipe or of the time.
  bool Next(std::string& line, Clock::time_point deadline) {
    size_t end;
    while ((end = m_bytes.find('\n')) == std::string::npos)
      if (m_bytes.size() > kMaxLine || !More(deadline)) return false;
    line = m_bytes.substr(0, end);
    m_bytes.erase(0, end + 1);
    return true;
  }

 private:
  bool More(Clock::time_point deadline) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now()).count();
    pollfd readable{m_from, POLLIN, 0};
    const int ready = poll(&readable, 1, static_cast<int>(std::max<long long>(left, 0)));
    if (ready < 0 && errno == EINTR) return true;
    char bytes[512];
    const ssize_t size = ready > 0 ? read(m_from, bytes, sizeof bytes) : 0;
    if (size > 0) m_bytes.append(bytes, static_cast<size_t>(size));
    return size > 0;
  }

  const int m_from;
  std::string m_bytes;
};

/// "N REASON".
HelperProblem ReadFailure(const std::string& words) {
  char* rest = nullptr;
  const long error = std::strtol(words.c_str(), &rest, 10);
  if (rest == words.c_str() || *rest != ' ' || error < 0 || error > kMaxErrno) return {words};
  return {rest + 1, static_cast<int>(error)};
}

}  // namespace

HelperEnd RunHelper(const char* program, std::vector<std::string> arguments, int input, std::chrono::milliseconds limit,
                    const std::function<void(const std::string&)>& onLine, HelperProblem& problem) {
  const auto deadline = Clock::now() + limit;
  arguments.insert(arguments.begin(), SystemPath(program));
  int ends[2] = {-1, -1};
  Program process;
  if (pipe2(ends, O_CLOEXEC) == 0) process = StartProgram(std::move(arguments), input, ends[1]);
  const FdHandle output(ends[0]);
  const int reason = errno;
  FdHandle(ends[1]).reset();
  if (!process.handle) {
    problem.text = std::string(program) + ": " + std::strerror(reason);
    return HelperEnd::kNotStarted;
  }
  Lines lines(output.get());
  for (std::string line; lines.Next(line, deadline);) {
    if (line != kDone && !line.starts_with(kFailed)) {
      if (onLine) onLine(line);
      continue;
    }
    HasEnded(process, kEndPatience);
    EndProgram(process);
    if (line == kDone) return HelperEnd::kDone;
    problem = ReadFailure(line.substr(kFailed.size()));
    return HelperEnd::kFailed;
  }
  const bool late = Clock::now() >= deadline;
  EndProgram(process);
  problem.text =
      std::string(program) +
      (late ? " was ended: it took longer than " +
                  std::to_string(std::chrono::duration_cast<std::chrono::seconds>(limit).count()) + " seconds"
            : " ended under way");
  return HelperEnd::kLost;
}
