#pragma once
/// @file
/// A clock that skips the time in which a test would only wait. The toolkit's time, std::chrono::steady_clock and what
/// waits for them (sleep_for(), wait_for(), poll()) go by it in the whole program.
///
/// Real time goes on in it as well, so that what works is no faster than it is, and nothing is skipped meanwhile: on a
/// busy machine a test takes longer, but sees the same.

#include <chrono>

namespace fast_clock {

/// Goes on by `most`, or to where the first of those who sleep has slept enough. While another thread works or is to
/// wake up nothing is skipped, and it gets a moment. Of the main loop's thread, when that is idle.
void Skip(std::chrono::nanoseconds most);

}  // namespace fast_clock
