#pragma once
/// @file
/// Runs programs for tests: bounded in time, with what they wrote captured.
///
/// A program gets the test's environment plus `options.env`. It ends with its ChildProcess at the latest, and when the
/// thread that started it ends.

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

// The header of glibc 2.36 does not say itself that it declares C functions.
extern "C" {
#include <sys/pidfd.h>
}

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <map>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

#include "c_handle.h"

struct ProcessOptions {
  std::map<std::string, std::string> env{};  ///< added to the test's own
  std::string input{};                       ///< for its standard input, which then ends; at most 64 KiB
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
  ~ChildProcess();
  ChildProcess(const ChildProcess&) = delete;
  ChildProcess& operator=(const ChildProcess&) = delete;

  pid_t Pid() const { return m_pid; }
  void Signal(int number) const { kill(m_pid, number); }

  /// The next line of its standard output without its line feed; nothing when none comes in time or the output ends.
  std::optional<std::string> ReadLine(std::chrono::milliseconds timeout = std::chrono::seconds(10));

  /// Waits for its end and returns how it ended and what ReadLine() has left. Kills it after `timeout`.
  ProcessResult Wait(std::chrono::milliseconds timeout = std::chrono::seconds(30));

 private:
  [[noreturn]] static void Become(char** argv, char** envp, int in, int out, int err);
  static void Drain(FdHandle& from, std::string& into);
  enum class Event { kTimeout, kOutput, kEnd };
  Event Collect(Clock::time_point deadline);

  pid_t m_pid = -1;
  FdHandle m_end;  // readable when the process has ended
  FdHandle m_out;
  FdHandle m_err;
  ProcessResult m_result;
};

/// Runs a program to its end.
inline ProcessResult RunProcess(const std::vector<std::string>& argv, const ProcessOptions& options = {}) {
  return ChildProcess(argv, options).Wait(options.timeout);
}

inline ChildProcess::ChildProcess(const std::vector<std::string>& argv, const ProcessOptions& options) {
  const auto check = [](bool ok, const char* what) {
    if (!ok) throw std::system_error(errno, std::generic_category(), what);
  };
  FdHandle ends[4][2];  // the last one closes with the exec
  for (auto& pipeEnds : ends) {
    int fds[2];
    check(pipe2(fds, O_CLOEXEC) == 0, "pipe");
    pipeEnds[0].reset(fds[0]);
    pipeEnds[1].reset(fds[1]);
  }
  if (!options.output.empty()) {
    ends[1][1].reset(open(options.output.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0644));
    check(bool(ends[1][1]), options.output.c_str());
  }
  // Fits into the pipe, so nobody has to read meanwhile.
  if (options.input.size() > 65536) throw std::length_error("input of more than 64 KiB");
  check(write(ends[0][1].get(), options.input.data(), options.input.size()) == ssize_t(options.input.size()), "write");

  std::map<std::string, std::string> env;
  for (char** entry = environ; *entry; ++entry) {
    const std::string_view text = *entry;
    const size_t equals = text.find('=');
    if (equals != text.npos) env[std::string(text.substr(0, equals))] = text.substr(equals + 1);
  }
  for (const auto& [name, value] : options.env) env[name] = value;
  std::vector<std::string> entries;
  for (const auto& [name, value] : env) entries.push_back(name + "=" + value);

  // All is made before the fork: the child of a process with threads must not allocate.
  std::vector<char*> arguments, environment;
  for (const std::string& argument : argv) arguments.push_back(const_cast<char*>(argument.c_str()));
  for (const std::string& entry : entries) environment.push_back(const_cast<char*>(entry.c_str()));
  arguments.push_back(nullptr);
  environment.push_back(nullptr);
  m_pid = fork();
  check(m_pid >= 0, "fork");
  if (m_pid == 0) Become(arguments.data(), environment.data(), ends[0][0].get(), ends[1][1].get(), ends[2][1].get());
  m_end.reset(pidfd_open(m_pid, 0));
  check(bool(m_end), "pidfd_open");
  // From here on it is seen as the program that it is to be.
  ends[3][1].reset();
  for (char none; read(ends[3][0].get(), &none, 1) < 0 && errno == EINTR;) {
  }
  m_out = std::move(ends[1][0]);
  m_err = std::move(ends[2][0]);
  for (const FdHandle* fd : {&m_out, &m_err}) fcntl(fd->get(), F_SETFL, O_NONBLOCK);
}

inline ChildProcess::~ChildProcess() {
  if (m_pid > 0) Wait(std::chrono::milliseconds(0));
}

inline void ChildProcess::Become(char** argv, char** envp, int in, int out, int err) {
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  dup2(in, STDIN_FILENO);
  dup2(out, STDOUT_FILENO);
  dup2(err, STDERR_FILENO);
  execvpe(argv[0], argv, envp);
  perror(argv[0]);
  _exit(127);
}

inline void ChildProcess::Drain(FdHandle& from, std::string& into) {
  char bytes[65536];
  ssize_t count;
  while (from && (count = read(from.get(), bytes, sizeof bytes)) != 0) {
    if (count > 0)
      into.append(bytes, static_cast<size_t>(count));
    else if (errno != EINTR)
      break;
  }
  if (from && count == 0) from.reset();
}

/// Waits until something was written or the process has ended, and takes what there is.
inline ChildProcess::Event ChildProcess::Collect(Clock::time_point deadline) {
  pollfd fds[] = {{m_end.get(), POLLIN, 0}, {m_out.get(), POLLIN, 0}, {m_err.get(), POLLIN, 0}};
  const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now()).count();
  const int ready = poll(fds, std::size(fds), left > 0 ? static_cast<int>(left) : 0);
  Drain(m_out, m_result.out);
  Drain(m_err, m_result.err);
  if (ready == 0) return Event::kTimeout;
  return fds[0].revents != 0 ? Event::kEnd : Event::kOutput;
}

inline std::optional<std::string> ChildProcess::ReadLine(std::chrono::milliseconds timeout) {
  const Clock::time_point deadline = Clock::now() + timeout;
  size_t end;
  Event event = Event::kOutput;
  while ((end = m_result.out.find('\n')) == std::string::npos) {
    if (!m_out || event != Event::kOutput) return std::nullopt;
    event = Collect(deadline);
  }
  std::string line = m_result.out.substr(0, end);
  m_result.out.erase(0, end + 1);
  return line;
}

inline ProcessResult ChildProcess::Wait(std::chrono::milliseconds timeout) {
  const Clock::time_point deadline = Clock::now() + timeout;
  int status = 0;
  pid_t ended = 0;
  while (m_pid > 0 && (ended = waitpid(m_pid, &status, WNOHANG)) == 0) {
    if (Collect(deadline) != Event::kTimeout) continue;
    m_result.timedOut = true;
    Signal(SIGKILL);
    ended = waitpid(m_pid, &status, 0);
    break;
  }
  // What it left in the pipes; a program that it started may hold them open, so their end is not waited for.
  Drain(m_out, m_result.out);
  Drain(m_err, m_result.err);
  if (ended > 0) {
    m_pid = -1;
    if (WIFEXITED(status)) m_result.exitCode = WEXITSTATUS(status);
    if (WIFSIGNALED(status)) m_result.signal = WTERMSIG(status);
  }
  return m_result;
}
