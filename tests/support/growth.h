#pragma once
/// @file
/// How the time of some work grows with its size.

#include <ctime>

#include "support/test.h"

/// How many times as long `work` takes with four times the size, in the processor time of this thread: about 4 where
/// the time is in proportion to the size, 16 where it is in proportion to its square. Of several runs the shortest ones
/// count, so that what else the machine does does not.
inline double GrowthOf(const std::function<void(size_t)>& work, size_t size) {
  const auto secondsOf = [&](size_t each) {
    const auto now = [] {
      timespec used{};
      clock_gettime(CLOCK_THREAD_CPUTIME_ID, &used);
      return static_cast<double>(used.tv_sec) + static_cast<double>(used.tv_nsec) / 1e9;
    };
    const double start = now();
    work(each);
    return now() - start;
  };
  double one = 1e9, four = 1e9;
  for (int run = 0; run < 5; ++run) {
    one = std::min(one, secondsOf(size));
    four = std::min(four, secondsOf(4 * size));
  }
  return four / one;
}

/// The most that counts as linear.
inline constexpr double kLinear = 6;
