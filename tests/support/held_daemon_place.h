#pragma once
/// @file
/// The daemon's place, held by a process of its own: a process does not see its own lock.

#include <unistd.h>

#include <csignal>
#include <string>

#include "base/daemon_lock.h"
#include "support/fork.h"

/// While it lives, the set has a daemon, whose requests the test takes.
class HeldDaemonPlace {
 public:
  HeldDaemonPlace() {
    int ends[2];
    EXPECT_EQ(pipe(ends), 0);
    m_child = Fork([&] {
      DaemonPlace place;
      std::string problem;
      const char taken = place.Take(problem) ? 'y' : 'n';
      EXPECT_EQ(write(ends[1], &taken, 1), 1);
      pause();
    });
    char taken = 0;
    EXPECT_EQ(read(ends[0], &taken, 1), 1);
    EXPECT_EQ(taken, 'y');
    close(ends[0]), close(ends[1]);
  }
  HeldDaemonPlace(const HeldDaemonPlace&) = delete;
  HeldDaemonPlace& operator=(const HeldDaemonPlace&) = delete;
  ~HeldDaemonPlace() {
    kill(m_child, SIGKILL);
    waitpid(m_child, nullptr, 0);
  }

 private:
  pid_t m_child;
};
