#pragma once
/// @file
/// Other programs, started from any thread.

#include <sys/types.h>

#include <chrono>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "c_handle.h"

/// A program that was started. With what it starts itself it is in a process group of its own.
struct Program {
  FdHandle handle{};  ///< its pidfd; none when it was not started
  pid_t pid = -1;
};

/// Starts argv[0], which is looked for in PATH when it has no '/', with this process's environment and with signals as
/// they are at first. It reads `input`, and writes to `output` where that is given; its other output and its errors go
/// nowhere, and it gets no other file. Without a handle errno tells why it was not started.
///
/// Thread rule: callable from any thread. The toolkit takes away the status of every child that it sees end, so nobody
/// should depend on one.
Program StartProgram(std::vector<std::string> argv, int input, int output = -1);

/// Whether it has ended, which is waited for for as long as `patience`.
bool HasEnded(const Program& program, std::chrono::milliseconds patience);

/// The hard end: SIGKILL for the program, unless it has ended, and for its process group. Takes away its status.
/// Returns after 300 ms also when the kernel cannot end it. The exit code, or -1 when it is not known.
int EndProgram(const Program& program);

enum class ProgramEnd {
  kDone,        ///< with exit code 0
  kFailed,      ///< with another, or by a signal
  kNotStarted,  ///< errno tells why
  kLate,        ///< it was made to end after the limit
  kStopped,     ///< it was made to end because of `stop`
};

/// Runs a program as StartProgram() does, without input, and hands over what it writes. It is made to end after
/// `limit`, or when `stop` (asked twenty times a second) is true: with SIGTERM, 200 ms later with SIGKILL, which all
/// the programs that it has started, in its process group, get after its own end too. Returns half a second later at
/// the latest, also when the kernel cannot end it then. Callable from any thread of a process without the toolkit.
ProgramEnd RunProgram(std::vector<std::string> argv, std::chrono::milliseconds limit, const std::function<bool()>& stop,
                      const std::function<void(std::string_view)>& onOutput);
