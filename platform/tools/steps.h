#pragma once
/// @file
/// What a tool has done on a worker, one step after the other.
///
/// Thread rule: main loop thread.

#include <deque>
#include <functional>

#include "CScreenJob.h"

namespace tools {

class Steps {
 public:
  /// Runs `work` on a worker when all that was asked for before is done, then `end` on the main loop.
  void Run(
      std::function<void()> work, std::function<void()> end = [] {});

 private:
  struct Step {
    std::function<void()> work, end;
  };
  void RunNext();

  std::deque<Step> m_steps;
  QUVA::CScreenJob m_job;
};

}  // namespace tools
