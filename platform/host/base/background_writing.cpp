#include "base/background_writing.h"

#include <pthread.h>

#include <atomic>
#include <chrono>
#include <cstdlib>

#include "base/disk_sync.h"
#include "base/writer_thread.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::seconds kEndPatience(2);

constinit std::atomic<bool> g_isOn{false};

std::chrono::milliseconds Until(Clock::time_point end) {
  return std::chrono::ceil<std::chrono::milliseconds>(end - Clock::now());
}

}  // namespace

void BeginBackgroundWriting() {
  static const bool isRegistered = [] {
    pthread_atfork(nullptr, nullptr, [] { g_isOn = false; });
    return std::atexit(EndBackgroundWriting) == 0;
  }();
  g_isOn = isRegistered;
}

void EndBackgroundWriting() {
  if (!g_isOn) return;
  const Clock::time_point end = Clock::now() + kEndPatience;
  WriterThread::OfProcess().Flush(Until(end));
  g_isOn = false;
  WriterThread::OfProcess().Flush(Until(end));  // what came meanwhile
  DiskSync::OfProcess().Flush(Until(end));
}

bool IsWritingInBackground() {
  return g_isOn;
}
