// vexilo-setd: the set's task manager and log collector. docs/setd.md is its manual.

#include <fcntl.h>
#include <glib-unix.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <exception>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "base/atomic_file.h"
#include "base/glib_handle.h"
#include "base/state.h"
#include "set_paths.h"
#include "setd/background_runs.h"
#include "setd/jobs.h"
#include "setd/log_collector.h"
#include "setd/setd_log.h"
#include "setd/start_mark.h"
#include "setd/task_manager.h"
#include "system_path.h"

namespace setd {

namespace {

enum ExitCode { kDone = 0, kFailed = 1, kUsage = 2 };

constexpr char kHelp[] =
    "Usage: vexilo-setd [--once]\n\n"
    "Serves the maintenance requests in /tmp/tager, collects the error reports asked for in /tmp/kov_NDF, and "
    "diagnoses\n"
    "the set every few minutes, until SIGTERM. Paths are below the set root, the environment variable VEXILO_ROOT.\n\n"
    "  --once   serve what is there, then end; fails when something could not be served\n"
    "  --help   this text\n\n"
    "Exit codes: 0 done, 1 failed, 2 wrong usage\n";

int Complain(ExitCode code, const std::string& problem) {
  std::fprintf(stderr, "vexilo-setd: %s\n", problem.c_str());
  return code;
}

/// Takes a name of the kernel's for this root, which nobody can remove as a lock file can be. False when another
/// process has it.
bool TakeName(FdHandle& holder) {
  const std::string root(SystemRoot());
  const GText hash(g_compute_checksum_for_string(G_CHECKSUM_SHA256, root.c_str(), static_cast<gssize>(root.size())));
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  // A first byte of 0 makes it a name without a file.
  const int length = std::snprintf(address.sun_path + 1, sizeof address.sun_path - 1, "vexilo-setd-%s", hash.get());
  holder.reset(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  const auto size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + 1 + static_cast<size_t>(length));
  return bind(holder.get(), reinterpret_cast<const sockaddr*>(&address), size) == 0 || errno != EADDRINUSE;
}

/// Holds the one place that there is for a daemon in each root, for as long as the process lives.
bool TakePlace(FdHandle& place, std::string& problem) {
  const std::string name = set_paths::kDaemonLock;
  const std::string path = SystemPath(name);
  const auto fail = [&](const std::string& reason) {
    problem = name + ": " + reason;
    return false;
  };
  TidyState();
  if (!MakeFolders(SystemPath(set_paths::kHostRun))) return fail(std::strerror(errno));
  place.reset(open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600));
  if (!place) return fail(std::strerror(errno));
  if (flock(place.get(), LOCK_EX | LOCK_NB) != 0) {
    std::string pid;
    if (errno != EWOULDBLOCK) return fail(std::strerror(errno));
    ReadWholeFile(path, pid);
    return fail("vexilo-setd runs already, process " + pid.substr(0, pid.find('\n')));
  }
  const std::string pid = std::to_string(getpid()) + "\n";
  if (ftruncate(place.get(), 0) != 0 || write(place.get(), pid.data(), pid.size()) < 0)
    Log(DLOG_WARN, name + " does not name this process: " + std::strerror(errno));
  return true;
}

int Serve(bool once) {
  GMainLoop* loop = g_main_loop_new(nullptr, FALSE);
  const auto quit = [](void* held) -> gboolean {
    g_main_loop_quit(static_cast<GMainLoop*>(held));
    return G_SOURCE_CONTINUE;
  };
  g_unix_signal_add(SIGTERM, quit, loop);
  g_unix_signal_add(SIGINT, quit, loop);
  size_t failures = 0;
  std::optional<StartMark> mark;
  if (!once) mark.emplace();
  {
    // What the jobs call back goes last.
    std::unique_ptr<Jobs> jobs = std::make_unique<Jobs>();
    TaskManager tasks(*jobs);
    LogCollector collector(*jobs);
    std::optional<BackgroundRuns> diagnoses;
    if (!once) diagnoses.emplace();
    tasks.Start();
    collector.Start();
    Log(DLOG_INFO, "vexilo-setd serves this set");
    if (once)
      jobs->OnChange([&] {
        if (jobs->IsSettled()) g_main_loop_quit(loop);
      });
    if (!once || !jobs->IsSettled()) g_main_loop_run(loop);
    failures = jobs->Failures();
    jobs.reset();
  }
  g_main_loop_unref(loop);
  Log(DLOG_INFO, "vexilo-setd has ended");
  if (!once || failures == 0) return kDone;
  return Complain(kFailed, std::to_string(failures) + " requests could not be served; the log tells why");
}

int Main(int argc, char** argv) {
  bool once = false;
  for (int i = 1; i < argc; ++i) {
    const std::string_view word = argv[i];
    if (word == "--help" || word == "-h") {
      const bool printed = std::fputs(kHelp, stdout) >= 0 && std::fflush(stdout) == 0;
      return printed ? kDone : Complain(kFailed, std::string("standard output: ") + std::strerror(errno));
    }
    if (word != "--once")
      return Complain(kUsage, "unknown argument \"" + std::string(word) + "\"\nTry 'vexilo-setd --help'.");
    once = true;
  }
  std::signal(SIGPIPE, SIG_IGN);
  // A file that may not grow is a failure like a full disk, no reason to end.
  std::signal(SIGXFSZ, SIG_IGN);
  try {
    FdHandle name, place;
    std::string problem;
    if (!TakePlace(place, problem)) return Complain(kFailed, problem);
    if (!TakeName(name)) return Complain(kFailed, "vexilo-setd runs already; its lock file was removed");
    return Serve(once);
  } catch (const std::exception& error) {
    return Complain(kFailed, error.what());
  }
}

}  // namespace

}  // namespace setd

int main(int argc, char** argv) {
  return setd::Main(argc, argv);
}
