#pragma once
/// @file
/// Other programs, started from any thread.

#include <string>
#include <vector>

#include "c_handle.h"

/// Starts argv[0], which is looked for in PATH when it has no '/', with this process's environment and with signals as
/// they are at first. It reads `input`, and writes to `output` where that is given; its other output and its errors go
/// nowhere, and it gets no other file. Returns its pidfd, or none with errno.
///
/// Thread rule: callable from any thread. The toolkit takes away the status of every child that it sees end, so nobody
/// should depend on one.
FdHandle StartProgram(std::vector<std::string> argv, int input, int output = -1);
