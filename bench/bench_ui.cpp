// bench_ui PROGRAM BARE [starts|storage|turns|tools]: starts the application of the set root on the display, works it
// with keys and prints how long it takes to be seen, also as a multiple of what BARE takes, a program that shows no
// more than a window; what it holds in memory and how busy it keeps a processor. All is seen from outside: pixels of
// the screen, lines of its log, /proc. The display needs a window manager, and no other window. With "starts" it prints
// the time to the first frame alone, with "storage" what a list of a thousand applications takes. It answers the
// requests of the task manager itself. "turns" works the program with slow_disk.so before its libraries (its path is in
// the environment variable VEXILO_BENCH_PRELOAD), and prints the longest turn of its main loop. With "tools" PROGRAM is
// vexilo-test, and it prints the time to the first picture of each tool and what it then holds in memory.

#include <X11/Xlib.h>
#include <X11/Xutil.h>
#include <X11/extensions/XTest.h>
#include <X11/keysym.h>
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <set>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "set_paths.h"
#include "system_path.h"
#include "tests/support/task_manager.h"

namespace {

namespace fs = std::filesystem;

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;
using std::chrono::seconds;

constexpr int kStarts = 21;
constexpr int kHomes = 3;
constexpr int kLaps = 200;
constexpr int kTurnLaps = 3;
constexpr milliseconds kKeyTime{60};      // a hurried thumb
constexpr milliseconds kScreenTime{120};  // a glance at a screen
constexpr milliseconds kEmptyTime{300};
constexpr seconds kHomeAnimation{4};
constexpr seconds kMinute{60};
constexpr seconds kIdle{30};
constexpr seconds kLimit{60};
constexpr milliseconds kAnswerTime{20};  // of the task manager
constexpr int kApplications = 1000;
constexpr seconds kHeld{8};
constexpr milliseconds kRepeat{33};  // of a key that is held

[[noreturn]] void Fail(const std::string& what) {
  std::fprintf(stderr, "bench_ui: %s\n", what.c_str());
  std::exit(EXIT_FAILURE);
}

double Milliseconds(Clock::duration time) {
  return std::chrono::duration<double, std::milli>(time).count();
}

// ---- the screen

class SeenScreen {
 public:
  SeenScreen() : m_display(XOpenDisplay(nullptr)) {
    if (!m_display) Fail("no display");
  }

  /// The pixels of a line of the screen, `part` of its height from the top.
  std::vector<unsigned long> Line(double part) const {
    const int number = DefaultScreen(m_display);
    const auto width = static_cast<unsigned>(DisplayWidth(m_display, number));
    const int y = static_cast<int>(DisplayHeight(m_display, number) * part);
    XImage* const image = XGetImage(m_display, DefaultRootWindow(m_display), 0, y, width, 1, AllPlanes, ZPixmap);
    if (!image) Fail("the screen cannot be read");
    std::vector<unsigned long> pixels(width);
    for (unsigned x = 0; x < width; ++x) pixels[x] = XGetPixel(image, static_cast<int>(x), 0);
    XDestroyImage(image);
    return pixels;
  }

  /// The same of a column, `part` of the width from the left.
  std::vector<unsigned long> Column(double part) const {
    const int number = DefaultScreen(m_display);
    const auto height = static_cast<unsigned>(DisplayHeight(m_display, number));
    const int x = static_cast<int>(DisplayWidth(m_display, number) * part);
    XImage* const image = XGetImage(m_display, DefaultRootWindow(m_display), x, 0, 1, height, AllPlanes, ZPixmap);
    if (!image) Fail("the screen cannot be read");
    std::vector<unsigned long> pixels(height);
    for (unsigned y = 0; y < height; ++y) pixels[y] = XGetPixel(image, 0, static_cast<int>(y));
    XDestroyImage(image);
    return pixels;
  }

  void Press(KeySym key) const {
    const KeyCode code = XKeysymToKeycode(m_display, key);
    XTestFakeKeyEvent(m_display, code, True, CurrentTime);
    XTestFakeKeyEvent(m_display, code, False, CurrentTime);
    XFlush(m_display);
  }

 private:
  Display* const m_display;
};

constexpr double kTitleLine = 0.06;    // through the title's letters
constexpr double kEntriesLine = 0.80;  // through the entries of the home screen
constexpr double kRowsColumn = 0.46;   // through the icons of the list of applications

/// Letters have many shades on their edges; an empty screen or window has one colour.
bool HasLetters(const std::vector<unsigned long>& line) {
  return std::set<unsigned long>(line.begin(), line.end()).size() > 16;
}

// ---- the program

struct Memory {
  double rss = 0;  ///< MiB
  double pss = 0;
};

class Program {
 public:
  explicit Program(const char* file, const char* argument = nullptr) {
    std::array<int, 2> ends{};
    if (pipe2(ends.data(), O_CLOEXEC | O_NONBLOCK) != 0) Fail("no pipe");
    fcntl(ends[0], F_SETPIPE_SZ, 1 << 20);  // no line is lost between two looks
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, ends[1], STDERR_FILENO);
    std::string path = file;
    const std::array<char*, 3> argv = {path.data(), const_cast<char*>(argument), nullptr};
    m_start = Clock::now();
    if (posix_spawn(&m_pid, file, &actions, nullptr, argv.data(), environ) != 0) Fail(path + " does not start");
    posix_spawn_file_actions_destroy(&actions);
    close(ends[1]);
    m_log = ends[0];
  }
  Program(const Program&) = delete;
  Program& operator=(const Program&) = delete;
  ~Program() {
    kill(m_pid, SIGTERM);
    waitpid(m_pid, nullptr, 0);
    close(m_log);
  }

  Clock::duration Age() const { return Clock::now() - m_start; }

  /// Waits until `seen` is true and returns the time since the start, in milliseconds.
  template <typename Seen>
  double Await(const char* what, Seen seen) {
    const Clock::time_point end = Clock::now() + kLimit;
    while (!seen()) {
      CheckAlive();
      if (Clock::now() > end) FailWithLog(std::string(what) + " did not come");
      std::this_thread::sleep_for(milliseconds(1));
    }
    return Milliseconds(Age());
  }

  double AwaitLog(const char* text) {
    return Await(text, [&] { return Count(text) > 0; });
  }

  /// How often the log has said it.
  size_t Count(std::string_view text) {
    ReadLog();
    // Asked a thousand times a second, of a log of megabytes: from where it was looked for last.
    Seen& seen = m_seen[std::string(text)];
    for (size_t at = m_text.find(text, seen.upTo); at != std::string::npos; at = m_text.find(text, at + 1)) {
      ++seen.count;
      seen.upTo = at + 1;
    }
    seen.upTo = std::max(seen.upTo, m_text.size() - std::min(m_text.size(), text.size()));
    return seen.count;
  }

  /// The numbers behind each `text` of the log, added up.
  int Sum(std::string_view text) {
    int sum = 0;
    EachAfter(text, [&](const char* after) { sum += std::atoi(after); });
    return sum;
  }

  /// Calls `see` with what stands behind each `text` of the log.
  template <typename See>
  void EachAfter(std::string_view text, See see) {
    ReadLog();
    for (size_t at = m_text.find(text); at != std::string::npos; at = m_text.find(text, at + 1))
      see(m_text.c_str() + at + text.size());
  }

  /// Meanwhile the log is read, as a pipe holds little.
  void Rest(Clock::duration time) {
    for (const Clock::time_point end = Clock::now() + time; Clock::now() < end; ReadLog())
      std::this_thread::sleep_for(std::min<Clock::duration>(seconds(1), end - Clock::now()));
    CheckAlive();
  }

  Memory MemoryNow() const {
    std::ifstream file("/proc/" + std::to_string(m_pid) + "/smaps_rollup");
    Memory memory;
    for (std::string word; file >> word;) {
      if (word == "Rss:") file >> memory.rss;
      if (word == "Pss:") file >> memory.pss;
    }
    return {memory.rss / 1024, memory.pss / 1024};
  }

  /// Time on processors, all threads that live, in milliseconds.
  double Busy() const {
    double nanoseconds = 0;
    for (const auto& task : std::filesystem::directory_iterator("/proc/" + std::to_string(m_pid) + "/task")) {
      double own = 0;
      std::ifstream(task.path() / "schedstat") >> own;
      nanoseconds += own;
    }
    return nanoseconds / 1e6;
  }

  /// utime and stime, in ticks of the clock.
  long Ticks() const {
    std::ifstream file("/proc/" + std::to_string(m_pid) + "/stat");
    std::string text;
    std::getline(file, text);
    long user = 0, system = 0;
    std::sscanf(text.c_str() + text.rfind(')') + 2, "%*c %*d %*d %*d %*d %*d %*u %*u %*u %*u %*u %ld %ld", &user,
                &system);
    return user + system;
  }

 private:
  void CheckAlive() {
    int status = 0;
    if (waitpid(m_pid, &status, WNOHANG) == 0) return;
    FailWithLog(WIFSIGNALED(status) ? "the program ended with signal " + std::to_string(WTERMSIG(status))
                                    : "the program ended with code " + std::to_string(WEXITSTATUS(status)));
  }

  [[noreturn]] void FailWithLog(const std::string& what) {
    constexpr size_t kEnd = 2000;
    ReadLog();
    Fail(what + "; its log ends with:\n" + m_text.substr(m_text.size() - std::min(m_text.size(), kEnd)));
  }

  void ReadLog() {
    std::array<char, 4096> part;
    for (ssize_t size; (size = read(m_log, part.data(), part.size())) > 0;) m_text.append(part.data(), size);
  }

  struct Seen {
    size_t count = 0;
    size_t upTo = 0;
  };

  pid_t m_pid = 0;
  std::map<std::string, Seen> m_seen;
  int m_log = -1;
  Clock::time_point m_start;
  std::string m_text;
};

// ---- the figures

double Median(std::vector<double> values) {
  std::nth_element(values.begin(), values.begin() + values.size() / 2, values.end());
  return values[values.size() / 2];
}

void Print(const char* what, const std::vector<double>& values, const char* unit) {
  std::printf("%-46s %7.1f %s (least %.1f, most %.1f, of %zu)\n", what, Median(values), unit,
              *std::min_element(values.begin(), values.end()), *std::max_element(values.begin(), values.end()),
              values.size());
  std::fflush(stdout);
}

void Print(const char* what, const Memory& memory) {
  std::printf("%-46s %7.1f MiB resident, %.1f proportional\n", what, memory.rss, memory.pss);
  std::fflush(stdout);
}

constexpr char kHomeLine[] = "Create Home Screen";
constexpr char kMissedLine[] = "frames missed: ";

double AwaitFirstFrame(Program& program, const SeenScreen& screen) {
  return program.Await("the first frame", [&] { return HasLetters(screen.Line(kTitleLine)); });
}

/// After an end; the window manager needs a moment too.
void AwaitEmptyScreen(const SeenScreen& screen) {
  std::this_thread::sleep_for(kEmptyTime);
  if (HasLetters(screen.Line(kTitleLine))) Fail("something else is on the screen");
}

double TimeToFirstFrame(const char* file, const SeenScreen& screen) {
  double time = 0;
  {
    Program program(file);
    time = AwaitFirstFrame(program, screen);
  }
  AwaitEmptyScreen(screen);
  return time;
}

/// In turn, so that what else the machine does is in both.
void MeasureStarts(const char* file, const char* bare, const SeenScreen& screen) {
  std::vector<double> times, bareTimes;
  for (int start = 0; start <= kStarts; ++start) {
    const double time = TimeToFirstFrame(file, screen);
    const double bareTime = TimeToFirstFrame(bare, screen);
    if (start == 0) continue;  // reads from the disk
    times.push_back(time);
    bareTimes.push_back(bareTime);
  }
  Print("start to first painted frame", times, "ms");
  Print("the same of a bare window of the toolkit", bareTimes, "ms");
  std::printf("%-46s %7.2f\n", "the first, as a multiple of the second", Median(times) / Median(bareTimes));
}

constexpr double kToolLines[] = {0.04, kTitleLine, 0.08, 0.80};  // one of them goes through something on each page
constexpr int kToolStarts = 7;
constexpr seconds kToolTime{3};

bool IsEmpty(const SeenScreen& screen) {
  return std::ranges::none_of(kToolLines, [&](double line) { return HasLetters(screen.Line(line)); });
}

void MeasureTools(const char* file, const SeenScreen& screen) {
  for (const char* tool : {"picture", "sound", "video", "hdmi", "signal", "connection", "reset", "modules"}) {
    std::vector<double> times;
    Memory memory;
    for (int start = 0; start <= kToolStarts; ++start) {
      {
        Program program(file, tool);
        const double time = program.Await("the first picture", [&] { return !IsEmpty(screen); });
        if (start > 0) times.push_back(time);  // the first reads from the disk
        if (start == kToolStarts) {
          program.Rest(kToolTime);
          memory = program.MemoryNow();
        }
      }
      std::this_thread::sleep_for(kEmptyTime);
      if (!IsEmpty(screen)) Fail("something else is on the screen");
    }
    Print((std::string(tool) + ": start to first picture").c_str(), times, "ms");
    Print((std::string(tool) + ": then").c_str(), memory);
  }
}

/// To the home screen, and to the end of its own animation.
struct Way {
  std::vector<double> home, busy, missedLoading, missedBoth, busyHome;

  void Go(Program& program, const SeenScreen& screen) {
    const double first = AwaitFirstFrame(program, screen);
    const double busyBefore = program.Busy();
    const std::vector<unsigned long> loading = screen.Line(kEntriesLine);
    const double created = program.AwaitLog(kHomeLine);
    const double busyThen = program.Busy();
    missedLoading.push_back(program.Sum(kMissedLine));
    home.push_back(program.Await("the home screen", [&] { return screen.Line(kEntriesLine) != loading; }));
    busy.push_back(100 * (busyThen - busyBefore) / (created - first));
    program.Rest(kHomeAnimation);
    busyHome.push_back(100 * (program.Busy() - busyThen) / (Milliseconds(program.Age()) - created));
    missedBoth.push_back(program.Sum(kMissedLine));
  }
};

void MeasureIdle(Program& program) {
  const long ticks = program.Ticks();
  const double busy = program.Busy();
  program.Rest(kIdle);
  std::printf("%-46s %7ld ticks, %.1f ms, in %ld s\n", "processor while idle on the home screen",
              program.Ticks() - ticks, program.Busy() - busy, static_cast<long>(kIdle.count()));
}

constexpr char kPressedLine[] = " Button Pressed";
constexpr char kReturnedLine[] = "Home screen called after return";
constexpr char kListedLine[] = "app_list_handle_terminate_function called";

/// Opens each entry of the home screen and goes back. The focus is on the first entry, before and after. Back waits for
/// what it closes: on the home screen it would end the program.
void GoRound(Program& program, const SeenScreen& screen) {
  constexpr int kEntries = 3;
  const auto press = [&](KeySym key, const char* line, Clock::duration time) {
    const size_t before = program.Count(line);
    screen.Press(key);
    program.Await(line, [&] { return program.Count(line) > before; });
    program.Rest(time);
  };
  const auto move = [&](KeySym key) {
    screen.Press(key);
    program.Rest(kKeyTime);
  };
  for (int entry = 0; entry < kEntries; ++entry) {
    const size_t listed = program.Count(kListedLine);
    press(XK_Return, kPressedLine, kScreenTime);
    // While the list of applications is made, Back is blocked.
    if (entry == 0) program.Await("the list of applications", [&] { return program.Count(kListedLine) > listed; });
    press(XK_Escape, kReturnedLine, kScreenTime);
    if (entry + 1 < kEntries) move(XK_Right);
  }
  for (int entry = 1; entry < kEntries; ++entry) move(XK_Left);
}

void MeasureUse(Program& program, const SeenScreen& screen) {
  screen.Press(XK_Down);
  program.Rest(kScreenTime);
  screen.Press(XK_Left);
  program.Rest(kScreenTime);
  for (int lap = 1; lap <= kLaps; ++lap) {
    GoRound(program, screen);
    if (lap % (kLaps / 4) != 0 && lap != 1) continue;
    Print(("after " + std::to_string(lap) + " rounds through all entries").c_str(), program.MemoryNow());
  }
}

void MeasureScan(Program& program, const SeenScreen& screen) {
  screen.Press(XK_Up);
  program.Rest(kScreenTime);
  const double before = program.Busy();
  screen.Press(XK_Return);
  const double start = program.AwaitLog("Start Vexilo...");
  const double end = program.AwaitLog("Start Vexilo Issue screen...");
  std::printf("%-46s %7.0f ms in %.1f s, %.0f %%\n", "processor during a scan", program.Busy() - before,
              (end - start) / 1000, 100 * (program.Busy() - before) / (end - start));
  Print("on the list of issues", program.MemoryNow());
}

/// Each with an icon of its own, as large as a set asks for.
void PlantApplications() {
  const fs::path packages = SystemPath(set_paths::kPackagesDir);
  const std::string icon = "tv.lumora.cinema/icons/304x304.png";
  for (int i = 0; i < kApplications; ++i) {
    const std::string id = "bench.app" + std::to_string(i);
    fs::create_directories(packages / id / "icons");
    fs::create_directories(packages / id / "data");
    fs::copy_file(packages / icon, packages / id / "icons/304x304.png", fs::copy_options::overwrite_existing);
    std::ofstream(packages / id / "data/file") << std::string(static_cast<size_t>(1000 + 50 * i), 'x');
    std::ofstream(packages / id / "manifest.json")
        << R"({"package_id": ")" << id << R"(", "app_id": ")" << id << R"(", "title": "Application )" << i << "\"}";
  }
  sync();  // what is written in the background is not to be measured
}

/// How many pictures a second the list draws while a key is held.
double PicturesWhileHeld(Program& program, const SeenScreen& screen) {
  const Clock::time_point start = Clock::now(), end = start + kHeld;
  std::vector<unsigned long> before;
  int pictures = -1;
  for (Clock::time_point next = start; Clock::now() < end;) {
    if (Clock::now() >= next) {
      screen.Press(XK_Down);
      next += kRepeat;
    }
    std::vector<unsigned long> now = screen.Column(kRowsColumn);
    if (now != before) {
      ++pictures;
      before = std::move(now);
    }
    std::this_thread::sleep_for(milliseconds(2));
  }
  program.Rest(kScreenTime);
  return pictures / std::chrono::duration<double>(kHeld).count();
}

void MeasureStorage(const char* file, const SeenScreen& screen) {
  PlantApplications();
  Program program(file);
  program.AwaitLog(kHomeLine);
  program.Rest(kHomeAnimation);
  screen.Press(XK_Down);
  program.Rest(kScreenTime);
  screen.Press(XK_Left);
  program.Rest(kScreenTime);
  const double pressed = Milliseconds(program.Age());
  screen.Press(XK_Return);
  program.Await("the list of applications", [&] { return program.Count(kListedLine) > 0; });
  const double shown = program.Await("its rows", [&] { return HasLetters(screen.Column(kRowsColumn)); });
  std::printf("%-46s %7.0f ms\n", "a list of a thousand applications", shown - pressed);
  Print("on it", program.MemoryNow());
  std::printf("%-46s %7.1f a second\n", "pictures while a key is held in it", PicturesWhileHeld(program, screen));
  Print("after that", program.MemoryNow());
}

void MeasureWholeUse(const char* file, const SeenScreen& screen) {
  Way way;
  for (int home = 1; home < kHomes; ++home) {
    {
      Program program(file);
      way.Go(program, screen);
    }
    AwaitEmptyScreen(screen);
  }
  Program program(file);
  way.Go(program, screen);
  Print("start to home screen, nothing to wait for", way.home, "ms");
  Print("processor during the loading animation", way.busy, "%");
  Print("processor during the animation of home", way.busyHome, "%");
  Print("frames missed of 60, loading", way.missedLoading, "");
  Print("frames missed of 120, loading and home", way.missedBoth, "");
  Print("on the home screen after the animation", program.MemoryNow());
  program.Rest(kMinute);
  Print("a minute later", program.MemoryNow());
  MeasureIdle(program);
  MeasureUse(program, screen);
  MeasureScan(program, screen);
}

/// What slow_disk.so has said up to now.
struct Turns {
  double longest = 0;      ///< ms
  double undisturbed = 0;  ///< the longest without the time in which others had the processor
  double blocked = 0;      ///< the most that one waited for anything but a processor
  size_t flushes = 0;      ///< on the main thread
};

/// All screens, on a disk that takes `flush` milliseconds for each flush, while every answer of the machine is there.
Turns WorkAllScreens(const char* file, const SeenScreen& screen, const char* flush) {
  setenv("VEXILO_BENCH_SYNC", flush, 1);
  const char* const library = std::getenv("VEXILO_BENCH_PRELOAD");
  if (!library) Fail("VEXILO_BENCH_PRELOAD is not set");
  setenv("LD_PRELOAD", library, 1);
  Program program(file);
  unsetenv("LD_PRELOAD");
  program.AwaitLog(kHomeLine);
  program.Rest(kHomeAnimation);
  for (const KeySym key : {XK_Down, XK_Left, XK_Left}) {
    screen.Press(key);
    program.Rest(2 * kScreenTime);
  }
  for (int lap = 0; lap < kTurnLaps; ++lap) GoRound(program, screen);
  screen.Press(XK_Up);
  program.Rest(kScreenTime);
  screen.Press(XK_Return);
  program.AwaitLog("Start Vexilo Issue screen...");
  program.Rest(kHomeAnimation);
  Turns turns;
  turns.flushes = program.Count("on the main thread: f");
  program.EachAfter("turn of the main loop: ", [&](const char* text) {
    double length = 0, waited = 0, blocked = 0;
    std::sscanf(text, "%lf ms, %lf ms of it waiting for a processor, %lf", &length, &waited, &blocked);
    turns.blocked = std::max(turns.blocked, blocked);
    turns.longest = std::max(turns.longest, length);
    turns.undisturbed = std::max(turns.undisturbed, length - waited);
  });
  return turns;
}

void MeasureTurns(const char* file, const SeenScreen& screen) {
  for (const char* flush : {"0", "4000"}) {
    const Turns turns = WorkAllScreens(file, screen, flush);
    std::printf("%-46s %7.1f ms; %.1f without waits for a processor, %.1f of waits for something else; %zu flushes\n",
                (std::string("longest turn, a flush takes ") + flush + " ms").c_str(), turns.longest, turns.undisturbed,
                turns.blocked, turns.flushes);
    std::fflush(stdout);
    AwaitEmptyScreen(screen);
  }
}

}  // namespace

int main(int argc, char** argv) {
  const std::string_view only = argc == 4 ? argv[3] : "";
  constexpr std::string_view kParts[] = {"starts", "storage", "turns", "tools"};
  if (argc < 3 || argc > 4 || (argc == 4 && std::ranges::find(kParts, only) == std::end(kParts))) return EXIT_FAILURE;
  setenv("VEXILO_LOG_TARGET", "stderr", 1);
  setenv("VEXILO_LOG_LEVEL", "debug", 1);
  const SeenScreen screen;
  if (only == "tools") {
    MeasureTools(argv[1], screen);
    return EXIT_SUCCESS;
  }
  const TaskManagerStandIn taskManager(kAnswerTime, "300000|20000");
  if (only.empty() || only == "turns") MeasureTurns(argv[1], screen);
  if (only == "turns") return EXIT_SUCCESS;
  if (only != "storage") MeasureStarts(argv[1], argv[2], screen);
  if (only.empty()) MeasureWholeUse(argv[1], screen);
  if (only != "starts") {
    AwaitEmptyScreen(screen);
    MeasureStorage(argv[1], screen);
  }
  return EXIT_SUCCESS;
}
