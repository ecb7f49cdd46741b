// vexilo-setd: the set's task manager and log collector. docs/setd.md is its manual.

#include <glib-unix.h>
#include <signal.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <thread>

#include "base/daemon_lock.h"
#include "base/state.h"
#include "setd/background_runs.h"
#include "setd/jobs.h"
#include "setd/log_collector.h"
#include "setd/privileges.h"
#include "setd/setd_log.h"
#include "setd/start_mark.h"
#include "setd/task_manager.h"

namespace setd {

namespace {

enum ExitCode { kDone = 0, kFailed = 1, kUsage = 2 };

constexpr char kHelp[] =
    "Usage: vexilo-setd [--once | --pid]\n\n"
    "Serves the maintenance requests in /tmp/tager, collects the error reports asked for in /tmp/kov_NDF, and "
    "diagnoses\n"
    "the set every few minutes, until SIGTERM. Paths are below the set root, the environment variable VEXILO_ROOT.\n\n"
    "  --once   serve what is there, then end; fails when something could not be served\n"
    "  --pid    print the process id of the one that serves this set; fails when none does\n"
    "  --help   this text\n\n"
    "Exit codes: 0 done, 1 failed, 2 wrong usage\n";

int Complain(ExitCode code, const std::string& problem) {
  std::fprintf(stderr, "vexilo-setd: %s\n", problem.c_str());
  return code;
}

int TellProcess() {
  const auto process = DaemonProcess();
  if (!process) return Complain(kFailed, "none serves this set");
  const bool printed = std::printf("%d\n", *process) > 0 && std::fflush(stdout) == 0;
  return printed ? kDone : Complain(kFailed, std::string("standard output: ") + std::strerror(errno));
}

void AnswerAt(DaemonPlace& place) {
  if (place.Fd() < 0) return Log(DLOG_WARN, "other users cannot ask whether vexilo-setd runs: its name is taken");
  // Whoever asks as fast as they can gets in nobody's way.
  g_unix_fd_add_full(
      G_PRIORITY_LOW, place.Fd(), G_IO_IN,
      [](int, GIOCondition, void* held) -> gboolean {
        static_cast<DaemonPlace*>(held)->Answer();
        return G_SOURCE_CONTINUE;
      },
      &place, nullptr);
}

// Who asks for the end waits two seconds. An end in order has the first of them.
constexpr std::chrono::milliseconds kOrderlyEnd{1000}, kLongestEnd{1700};

sigset_t EndSignals() {
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, SIGTERM);
  sigaddset(&signals, SIGINT);
  return signals;
}

/// Has these signals end the main loop, and, since a disk or a program may hold any other thread, the process a while
/// later. They are blocked in all threads.
void EndOnSignal(GMainLoop* loop, ExitCode unfinished) {
  std::thread([loop, unfinished, signals = EndSignals()] {
    int number = 0;
    sigwait(&signals, &number);
    g_idle_add_full(
        G_PRIORITY_HIGH,
        [](void* held) -> gboolean {
          g_main_loop_quit(static_cast<GMainLoop*>(held));
          return G_SOURCE_REMOVE;
        },
        loop, nullptr);
    std::this_thread::sleep_for(kLongestEnd);
    _exit(unfinished);
  }).detach();
}

/// Whether all work has ended, told to stop, within the time for that.
bool EndWork(Jobs& jobs, std::optional<BackgroundRuns>& diagnoses) {
  const auto now = std::chrono::steady_clock::now();
  if (diagnoses) diagnoses->Stop(now);
  const bool ended = jobs.Stop(now + kOrderlyEnd);
  return (!diagnoses || diagnoses->Stop(now + kOrderlyEnd)) && ended;
}

int Serve(bool once) {
  GMainLoop* loop = g_main_loop_new(nullptr, FALSE);
  const ExitCode unfinished = once ? kFailed : kDone;
  EndOnSignal(loop, unfinished);
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
    mark.reset();
    if (!EndWork(*jobs, diagnoses)) {
      Log(DLOG_WARN, "vexilo-setd ends with work under way, which its next start does again");
      // The threads that are at it cannot be waited for; what else there is to write is written.
      std::exit(unfinished);
    }
    failures = jobs->Failures();
    jobs.reset();
  }
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
    if (word == "--pid") return TellProcess();
    if (word != "--once")
      return Complain(kUsage, "unknown argument \"" + std::string(word) + "\"\nTry 'vexilo-setd --help'.");
    once = true;
  }
  std::signal(SIGPIPE, SIG_IGN);
  // A file that may not grow is a failure like a full disk, no reason to end.
  std::signal(SIGXFSZ, SIG_IGN);
  try {
    DaemonPlace place;
    std::string problem;
    TidyState();
    if (!place.Take(problem)) return Complain(kFailed, problem);
    // Until here they end it at once: nothing has begun.
    const sigset_t ends = EndSignals();
    pthread_sigmask(SIG_BLOCK, &ends, nullptr);
    DropPrivileges();
    AnswerAt(place);
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
