#pragma once
/// @file
/// Why something on the machine was not put in order.

#include <string>

struct FixProblem {
  std::string reason{};   ///< in English, for the log
  std::string command{};  ///< where this user is not permitted to do it: what an administrator can enter; else empty
};
