#include "base/program.h"

#include <fcntl.h>
#include <spawn.h>
#include <unistd.h>

// The header of glibc 2.36 does not say itself that it declares C functions.
extern "C" {
#include <sys/pidfd.h>
}

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
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
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

}  // namespace

FdHandle StartProgram(std::vector<std::string> argv, int input, int output) {
  const SpawnRules rules(input, output);
  std::vector<char*> arguments;
  for (std::string& argument : argv) arguments.push_back(argument.data());
  arguments.push_back(nullptr);
  pid_t pid = -1;
  const int error = posix_spawnp(&pid, arguments[0], &rules.files, &rules.attributes, arguments.data(), environ);
  errno = error;
  return FdHandle(error == 0 ? pidfd_open(pid, 0) : -1);
}
