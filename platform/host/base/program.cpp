#include "base/program.h"

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

// The header of glibc 2.36 does not say itself that it declares C functions.
extern "C" {
#include <sys/pidfd.h>
}

#include <algorithm>
#include <cerrno>
#include <csignal>

namespace {

/// What a program gets that is started from a thread.
class SpawnRules {
 public:
  SpawnRules(int input, int output) {
    posix_spawn_file_actions_init(&files);
    posix_spawn_file_actions_adddup2(&files, input, STDIN_FILENO);
    if (output >= 0)
      posix_spawn_file_actions_adddup2(&files, output, STDOUT_FILENO);
    else
      posix_spawn_file_actions_addopen(&files, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    posix_spawn_file_actions_addopen(&files, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
    posix_spawn_file_actions_addclosefrom_np(&files, STDERR_FILENO + 1);
    posix_spawnattr_init(&attributes);
    sigset_t none;
    sigset_t usual;
    sigemptyset(&none);
    sigemptyset(&usual);
    for (const int number : {SIGTERM, SIGINT, SIGHUP, SIGPIPE, SIGCHLD}) sigaddset(&usual, number);
    posix_spawnattr_setsigmask(&attributes, &none);
    posix_spawnattr_setsigdefault(&attributes, &usual);
    // The number of its group is 0 in new attributes, which stands for its own.
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETPGROUP);
  }
  SpawnRules(const SpawnRules&) = delete;
  SpawnRules& operator=(const SpawnRules&) = delete;
  ~SpawnRules() {
    posix_spawn_file_actions_destroy(&files);
    posix_spawnattr_destroy(&attributes);
  }

  posix_spawn_file_actions_t files;
  posix_spawnattr_t attributes;
};

using Clock = std::chrono::steady_clock;
constexpr std::chrono::milliseconds kLook{50}, kGrace{200}, kLastPatience{300};

/// Hands over what is there, but no more than a pipe holds: its writer may be as fast. False at the end of the output.
bool Read(int from, const std::function<void(std::string_view)>& onOutput) {
  constexpr int kReads = 16;
  char bytes[4096];
  ssize_t size = 0;
  for (int i = 0; i < kReads && (size = read(from, bytes, sizeof bytes)) > 0; ++i)
    onOutput({bytes, static_cast<size_t>(size)});
  return size > 0 || (size < 0 && (errno == EAGAIN || errno == EINTR));
}

/// Until it has ended (kDone) or has to.
ProgramEnd Await(const Program& program, int output, Clock::time_point deadline, const std::function<bool()>& stop,
                 const std::function<void(std::string_view)>& onOutput) {
  pollfd fds[] = {{output, POLLIN, 0}, {program.handle.get(), POLLIN, 0}};
  for (;;) {
    if (stop()) return ProgramEnd::kStopped;
    if (Clock::now() >= deadline) return ProgramEnd::kLate;
    poll(fds, 2, static_cast<int>(kLook.count()));
    // In this order: what it wrote before its end is there by then.
    const bool hasEnded = fds[1].revents != 0;
    if (fds[0].fd >= 0 && !Read(output, onOutput)) fds[0].fd = -1;
    if (hasEnded) return ProgramEnd::kDone;
  }
}

}  // namespace

Program StartProgram(std::vector<std::string> argv, int input, int output) {
  const SpawnRules rules(input, output);
  std::vector<char*> arguments;
  for (std::string& argument : argv) arguments.push_back(argument.data());
  arguments.push_back(nullptr);
  Program program;
  errno = posix_spawnp(&program.pid, arguments[0], &rules.files, &rules.attributes, arguments.data(), environ);
  if (errno != 0) return program;
  program.handle.reset(pidfd_open(program.pid, 0));
  // What nobody can end or wait for must not go on.
  if (!program.handle) kill(program.pid, SIGKILL);
  return program;
}

bool HasEnded(const Program& program, std::chrono::milliseconds patience) {
  pollfd ended{program.handle.get(), POLLIN, 0};
  return poll(&ended, 1, static_cast<int>(patience.count())) > 0;
}

int EndProgram(const Program& program) {
  // Until its status is taken away it has its number, and so its group.
  if (pidfd_send_signal(program.handle.get(), SIGKILL, nullptr, 0) == 0) kill(-program.pid, SIGKILL);
  siginfo_t info{};
  if (!HasEnded(program, kLastPatience) ||
      waitid(P_PIDFD, static_cast<id_t>(program.handle.get()), &info, WEXITED) != 0)
    return -1;
  return info.si_code == CLD_EXITED ? info.si_status : -1;
}

ProgramEnd RunProgram(std::vector<std::string> argv, std::chrono::milliseconds limit, const std::function<bool()>& stop,
                      const std::function<void(std::string_view)>& onOutput) {
  int ends[2] = {-1, -1};
  if (pipe2(ends, O_CLOEXEC) != 0) return ProgramEnd::kNotStarted;
  const FdHandle output(ends[0]), nothing(open("/dev/null", O_RDONLY | O_CLOEXEC));
  FdHandle input(ends[1]);
  fcntl(output.get(), F_SETFL, O_NONBLOCK);
  const Program program = StartProgram(std::move(argv), nothing.get(), input.get());
  input.reset();
  if (!program.handle) return ProgramEnd::kNotStarted;
  const ProgramEnd end = Await(program, output.get(), Clock::now() + limit, stop, onOutput);
  if (end != ProgramEnd::kDone) {
    kill(-program.pid, SIGTERM);
    HasEnded(program, kGrace);
    Read(output.get(), onOutput);
  }
  const int exitCode = EndProgram(program);
  return end == ProgramEnd::kDone && exitCode != 0 ? ProgramEnd::kFailed : end;
}
