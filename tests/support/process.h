#pragma once
/// @file
/// Runs programs for tests: bounded in time, with what they wrote captured.
///
/// A program gets the test's environment plus `options.env`, and nothing on its standard input. What it writes goes to
/// files in memory, so that nobody has to read meanwhile. It ends with its ChildProcess at the latest, and when the
/// thread that started it ends.

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

// The header of glibc 2.36 does not say itself that it declares C functions.
extern "C" {
#include <sys/pidfd.h>
}

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

#include "c_handle.h"

struct ProcessOptions {
  std::map<std::string, std::string> env{};  ///< added to the test's own
  std::chrono::milliseconds timeout{30000};  ///< of RunProcess()
  std::string output{};                      ///< a file that takes its standard output instead ("/dev/full")
};

struct ProcessResult {
  int exitCode = -1;      ///< -1 when a signal ended it; 127 when it could not be started (see `err`)
  int signal = 0;         ///< the signal that ended it, or 0
  bool timedOut = false;  ///< it was killed because it took too long
  std::string out{};
  std::string err{};
};

/// A program that runs beside the test. For one thread at a time.
class ChildProcess {
 public:
  using Clock = std::chrono::steady_clock;

  explicit ChildProcess(const std::vector<std::string>& argv, const ProcessOptions& options = {});
  ~ChildProcess() { Wait(std::chrono::milliseconds(0)); }
  ChildProcess(const ChildProcess&) = delete;
  ChildProcess& operator=(const ChildProcess&) = delete;

  pid_t Pid() const { return m_pid; }
  void Signal(int number) const { kill(m_pid, number); }

  /// The next line of its standard output without its line feed; nothing when none comes in time or it has ended.
  std::optional<std::string> ReadLine(std::chrono::milliseconds timeout = std::chrono::seconds(10));
  /// What it has written to standard error so far.
  std::string Errors() const { return Content(m_err, 0); }

  /// Waits for its end and returns how it ended and what ReadLine() has left. Kills it after `timeout`.
  ProcessResult Wait(std::chrono::milliseconds timeout = std::chrono::seconds(30));

 private:
  /// Several threads may write at once, to the end: a file in memory does not guard its position.
  static int MakeFile() {
    const int file = memfd_create("output", MFD_CLOEXEC);
    fcntl(file, F_SETFL, O_APPEND);
    return file;
  }
  [[noreturn]] void Become(char** argv, char** envp) const;
  static std::string Content(const FdHandle& file, off_t from);
  /// Waits until it has ended, `timeout` at most.
  bool HasEnded(std::chrono::milliseconds timeout) const {
    pollfd end{m_end.get(), POLLIN, 0};
    return poll(&end, 1, static_cast<int>(timeout.count())) > 0;
  }

  FdHandle m_out;
  FdHandle m_err;
  pid_t m_pid = -1;
  FdHandle m_end;    // readable when the process has ended
  off_t m_read = 0;  // bytes of its output
  ProcessResult m_result;
};

/// Runs a program to its end.
inline ProcessResult RunProcess(const std::vector<std::string>& argv, const ProcessOptions& options = {}) {
  return ChildProcess(argv, options).Wait(options.timeout);
}

/// What "du" counts, as a second opinion.
inline int64_t DiskUsage(const std::string& folder) {
  return std::stoll(RunProcess({"du", "-s", "-B1", folder}).out);
}

inline ChildProcess::ChildProcess(const std::vector<std::string>& argv, const ProcessOptions& options)
    : m_out(options.output.empty() ? MakeFile() : open(options.output.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0644)),
      m_err(MakeFile()) {
  std::map<std::string, std::string> env = options.env;
  for (char** entry = environ; *entry; ++entry) {
    const std::string_view text = *entry;
    const size_t equals = text.find('=');
    if (equals != text.npos) env.emplace(text.substr(0, equals), text.substr(equals + 1));
  }
  std::vector<std::string> entries;
  for (const auto& [name, value] : env) entries.push_back(name + "=" + value);
  // All is made before the fork: the child of a process with threads must not allocate.
  std::vector<char*> arguments, environment;
  for (const std::string& argument : argv) arguments.push_back(const_cast<char*>(argument.c_str()));
  for (const std::string& entry : entries) environment.push_back(const_cast<char*>(entry.c_str()));
  arguments.push_back(nullptr);
  environment.push_back(nullptr);
  int becomes[2] = {-1, -1};  // closes with the exec
  if (m_out && m_err && pipe2(becomes, O_CLOEXEC) == 0) m_pid = fork();
  if (m_pid == 0) Become(arguments.data(), environment.data());
  if (m_pid > 0) m_end.reset(pidfd_open(m_pid, 0));
  if (!m_end) throw std::system_error(errno, std::generic_category(), argv[0]);
  // From here on it is seen as the program that it is to be.
  FdHandle(becomes[1]).reset();
  const FdHandle exec(becomes[0]);
  for (char none; read(exec.get(), &none, 1) < 0 && errno == EINTR;) {
  }
}

inline void ChildProcess::Become(char** argv, char** envp) const {
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  dup2(open("/dev/null", O_RDONLY | O_CLOEXEC), STDIN_FILENO);
  dup2(m_out.get(), STDOUT_FILENO);
  dup2(m_err.get(), STDERR_FILENO);
  execvpe(argv[0], argv, envp);
  perror(argv[0]);
  _exit(127);
}

inline std::string ChildProcess::Content(const FdHandle& file, off_t from) {
  struct stat written {};
  fstat(file.get(), &written);
  std::string text(static_cast<size_t>(std::max(written.st_size, from) - from), '\0');
  const ssize_t size = pread(file.get(), text.data(), text.size(), from);
  text.resize(size > 0 ? static_cast<size_t>(size) : 0);
  return text;
}

inline std::optional<std::string> ChildProcess::ReadLine(std::chrono::milliseconds timeout) {
  constexpr std::chrono::milliseconds kLook{5};
  const Clock::time_point deadline = Clock::now() + timeout;
  for (bool last = false;; last = HasEnded(kLook) || Clock::now() > deadline) {
    std::string line = Content(m_out, m_read);
    if (const size_t end = line.find('\n'); end != std::string::npos) {
      m_read += static_cast<off_t>(end + 1);
      line.resize(end);
      return line;
    }
    if (last) return std::nullopt;
  }
}

inline ProcessResult ChildProcess::Wait(std::chrono::milliseconds timeout) {
  if (m_pid < 0) return m_result;
  m_result.timedOut = !HasEnded(timeout);
  if (m_result.timedOut) Signal(SIGKILL);
  int status = 0;
  waitpid(m_pid, &status, 0);
  m_pid = -1;
  if (WIFEXITED(status)) m_result.exitCode = WEXITSTATUS(status);
  if (WIFSIGNALED(status)) m_result.signal = WTERMSIG(status);
  m_result.out = Content(m_out, m_read);
  m_result.err = Content(m_err, 0);
  return m_result;
}
