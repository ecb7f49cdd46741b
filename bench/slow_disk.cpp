// Loaded into a program before its libraries: a disk that takes its time, and how long the turns of the main loop are.
// VEXILO_BENCH_SYNC says how many milliseconds each flush to the disk takes. On standard error, a line for each turn of
// ten milliseconds or more, from the return of one wait for events to the next wait:
//
//     turn of the main loop: 37.2 ms, 1.3 ms of it waiting for a processor, 0.4 ms for something else
//
// and one for each flush on the main thread, which is what must not be.

#include <dlfcn.h>
#include <fcntl.h>
#include <glib.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

namespace {

constexpr double kToldFrom = 10;  // ms

/// Milliseconds.
double Now() {
  timespec time{};
  clock_gettime(CLOCK_MONOTONIC, &time);
  return static_cast<double>(time.tv_sec) * 1e3 + static_cast<double>(time.tv_nsec) / 1e6;
}

/// How long the main thread has been on a processor, and could have been while others were, in milliseconds.
struct Times {
  double busy = 0;
  double waited = 0;
};

Times TimesNow() {
  static const int file = open("/proc/thread-self/schedstat", O_RDONLY | O_CLOEXEC);
  char text[64] = "";
  Times times;
  if (pread(file, text, sizeof text - 1, 0) > 0) std::sscanf(text, "%lf %lf", &times.busy, &times.waited);
  return {times.busy / 1e6, times.waited / 1e6};
}

bool IsMainThread() {
  return getpid() == gettid();
}

double g_start = 0;  // of the turn; 0 before the first
Times g_before;      // then

void EndTurn() {
  if (g_start == 0) return;
  const double length = Now() - g_start;
  if (length < kToldFrom) return;
  const Times now = TimesNow();
  const double waited = now.waited - g_before.waited;
  char text[160];
  const int size = std::snprintf(
      text, sizeof text,
      "turn of the main loop: %.1f ms, %.1f ms of it waiting for a processor, %.1f ms for something else\n", length,
      waited, length - waited - (now.busy - g_before.busy));
  static_cast<void>(!write(STDERR_FILENO, text, static_cast<size_t>(size)));
}

void StartTurn() {
  g_start = Now();
  g_before = TimesNow();
}

/// GLib's own waits are in the middle of a turn: an answer on a bus, say.
bool IsOfGLib(const void* caller) {
  Dl_info info{};
  return dladdr(caller, &info) != 0 && info.dli_fname && std::strstr(info.dli_fname, "libglib-");
}

void Flush(const char* what) {
  static const char* const milliseconds = std::getenv("VEXILO_BENCH_SYNC");
  if (IsMainThread()) {
    char text[64];
    const int size = std::snprintf(text, sizeof text, "on the main thread: %s\n", what);
    static_cast<void>(!write(STDERR_FILENO, text, static_cast<size_t>(size)));
  }
  if (milliseconds) usleep(static_cast<useconds_t>(std::atoi(milliseconds)) * 1000);
}

}  // namespace

extern "C" {

gint g_poll(GPollFD* files, guint count, gint timeout) {
  static const auto next = reinterpret_cast<GPollFunc>(dlsym(RTLD_NEXT, "g_poll"));
  if (!IsMainThread() || IsOfGLib(__builtin_return_address(0))) return next(files, count, timeout);
  EndTurn();
  const int result = next(files, count, timeout);
  StartTurn();
  return result;
}

int fsync(int file) {
  Flush("fsync");
  return static_cast<int>(syscall(SYS_fsync, file));
}

int fdatasync(int file) {
  Flush("fdatasync");
  return static_cast<int>(syscall(SYS_fdatasync, file));
}

int sync_file_range(int file, off64_t from, off64_t length, unsigned flags) {
  Flush("sync_file_range");
  return static_cast<int>(syscall(SYS_sync_file_range, file, from, length, flags));
}
}
