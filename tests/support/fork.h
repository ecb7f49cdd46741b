#pragma once
/// @file
/// Work in a process of its own.

#include <sys/wait.h>

#include "support/test.h"

/// Runs `work` in a child, beside the test. It must end within a minute.
inline pid_t Fork(const std::function<void()>& work) {
  const pid_t child = fork();
  if (child != 0) return child;
  alarm(60);
  work();
  _exit(testing::Test::HasFailure() ? 1 : 0);
}

/// Waits for its end, which must be without a failure.
inline void ExpectEndsWell(pid_t child) {
  int status = -1;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  EXPECT_EQ(status, 0);
}
