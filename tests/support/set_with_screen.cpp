#include "support/set_with_screen.h"

#include <net/if.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <iostream>
#include <sstream>
#include <thread>
#include <utility>

#include "c_handle.h"
#include "support/files.h"
#include "vconf.h"

namespace {

using namespace std::chrono_literals;

constexpr char kApp[] = "/usr/apps/com.tornelo.TVVexilo/bin/vexilo";
constexpr char kSocketFolder[] = "/tmp/.X11-unix";

// What the engine would see of this machine: its hardware, its crashes, how busy it is.
constexpr const char* kHidden[] = {
    kSocketFolder, "/sys/class", "/sys/fs", "/dev/snd", "/dev/dri", "/var/crash", "/var/lib/systemd/coredump"};
constexpr struct {
  const char* file;
  const char* content;
} kHealthy[] = {
    {"/proc/loadavg", "0.10 0.10 0.10 1/100 1000\n"},
    {"/proc/meminfo", "MemTotal: 8000000 kB\nMemFree: 6000000 kB\nMemAvailable: 7000000 kB\n"},
};
constexpr size_t kLogTail = 6000;  // bytes that are shown

bool Unshare() {
  constexpr int kOwn = CLONE_NEWNET | CLONE_NEWNS;
  if (unshare(kOwn) == 0) return true;
  const auto uid = std::to_string(geteuid());
  const auto gid = std::to_string(getegid());
  if (unshare(kOwn | CLONE_NEWUSER) != 0) return false;
  WriteHostFile("/proc/self/setgroups", "deny");
  WriteHostFile("/proc/self/uid_map", uid + " " + uid + " 1");
  WriteHostFile("/proc/self/gid_map", gid + " " + gid + " 1");
  return true;
}

bool RaiseLoopback() {
  const FdHandle any(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  ifreq request{};
  std::strcpy(request.ifr_name, "lo");
  request.ifr_flags = IFF_UP | IFF_RUNNING;
  return ioctl(any.get(), SIOCSIFFLAGS, &request) == 0;
}

const std::map<std::string, std::string> kEnvironment{{"VEXILO_LOG_TARGET", "stderr"},
                                                      {"VEXILO_LOG_LEVEL", "debug"},
                                                      {"DBUS_SESSION_BUS_ADDRESS", ""},
                                                      {"DBUS_SYSTEM_BUS_ADDRESS", "unix:path=/nonexistent"},
                                                      {"ELM_ENGINE", ""}};

fs::path TasksOf(const ChildProcess& process) {
  return "/proc/" + std::to_string(process.Pid()) + "/task";
}

/// Runs xdotool.
void Do(std::vector<std::string> words) {
  words.insert(words.begin(), "xdotool");
  const ProcessResult result = RunProcess(words);
  if (result.exitCode != 0) throw std::runtime_error("xdotool: " + result.err);
}

}  // namespace

std::string LeaveTheMachine() {
  if (!Unshare())
    return std::string(
               "this test needs network and mount namespaces of its own (as root, or with unprivileged user "
               "namespaces): ") +
           std::strerror(errno);
  if (mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 || !RaiseLoopback()) return std::strerror(errno);
  fs::create_directories(kSocketFolder);
  for (const char* folder : kHidden)
    if (fs::exists(folder) && mount("none", folder, "tmpfs", 0, "mode=1777") != 0) return std::strerror(errno);
  fs::create_directories(SystemPath("/healthy"));
  for (const auto& [file, content] : kHealthy) {
    const std::string healthy = SystemPath("/healthy/") + fs::path(file).filename().string();
    WriteHostFile(healthy, content);
    if (mount(healthy.c_str(), file, nullptr, MS_BIND, nullptr) != 0) return std::strerror(errno);
  }
  return "";
}

// ---- the screen

Screen::Screen()
    : m_server({"Xvfb", "-displayfd", "1", "-screen", "0", "1280x720x24", "-nolisten", "tcp", "-noreset"}) {
  setenv("DISPLAY", (":" + m_server.ReadLine(30s).value_or("")).c_str(), 1);
  m_windowManager.emplace(std::vector<std::string>{"openbox"});
  const auto runs = [] {
    return RunProcess({"xprop", "-root", "_NET_SUPPORTING_WM_CHECK"}).out.find("window id") != std::string::npos;
  };
  if (!Until(runs))
    throw std::runtime_error("no screen; scripts/setup installs what it needs: " + m_server.Errors() +
                             m_windowManager->Errors());
  // The server tells its clients of a new keyboard with the first key, which may pass them meanwhile.
  Press({"Shift_L"});
}

void Screen::Press(const std::vector<std::string>& keys) const {
  std::vector<std::string> words{"key", "--clearmodifiers", "--delay", "200"};
  words.insert(words.end(), keys.begin(), keys.end());
  Do(words);
}

ChildProcess Screen::Repeat(const std::string& key, int count, std::chrono::milliseconds period) const {
  return ChildProcess(
      {"xdotool", "key", "--repeat", std::to_string(count), "--repeat-delay", std::to_string(period.count()), key});
}

void Screen::Minimize() const {
  Do({"search", "--onlyvisible", "--name", "^Vexilo$", "windowminimize"});
}

// ---- the application

RunningApp::RunningApp(const std::string& argument)
    : RunningApp(argument.empty() ? std::vector{SystemPath(kApp)} : std::vector{SystemPath(kApp), argument}) {}

RunningApp::RunningApp(const std::vector<std::string>& command) : m_process(command, {.env = kEnvironment}) {}

bool RunningApp::Says(const std::string& text, int times) {
  if (Until([&] { return Count(text) >= times; })) return true;
  const std::string log = Log();
  std::cerr << "no \"" << text << "\" in\n" << log.substr(log.size() - std::min(log.size(), kLogTail)) << std::endl;
  return false;
}

bool RunningApp::Sleeps() const {
  return std::ranges::all_of(fs::directory_iterator(TasksOf(m_process)), [](const fs::directory_entry& task) {
    const std::string stat = ReadHostFile(task.path() / "stat");
    return stat.empty() || stat.compare(stat.rfind(')'), 3, ") S") == 0;
  });
}

void RunningApp::Settle() const {
  size_t before = 0;
  for (int quiet = 0; quiet < 3; std::this_thread::sleep_for(100ms)) {
    const size_t now = Log().size();
    quiet = std::exchange(before, now) == now && Sleeps() ? quiet + 1 : 0;
  }
}

std::vector<RunningApp::Clock::time_point> RunningApp::TimesOf(const std::string& text) const {
  std::vector<Clock::time_point> times;
  std::istringstream lines(Log());
  for (std::string line; std::getline(lines, line);) {
    if (line.find(text) == std::string::npos) continue;
    tm time{};
    time.tm_isdst = -1;
    const char* const rest = strptime(line.c_str(), "%Y-%m-%d %H:%M:%S.", &time);
    if (!rest) continue;
    times.push_back(Clock::from_time_t(mktime(&time)) + std::chrono::milliseconds(std::atoi(rest)));
  }
  return times;
}

pid_t RunningApp::Thread(const std::string& name) const {
  for (const auto& task : fs::directory_iterator(TasksOf(m_process)))
    if (ReadHostFile(task.path() / "comm") == name + "\n") return std::stoi(task.path().filename());
  return 0;
}

// ---- the set

void InstallSet() {
  const ProcessResult installed = RunProcess({"cmake", "-P", VEXILO_BINARY_DIR "/cmake_install.cmake"},
                                             {.env = {{"DESTDIR", std::string(SystemRoot())}}, .timeout = 60s});
  if (installed.exitCode != 0) throw std::runtime_error("the set is not installed: " + installed.err);
  vconf_set_str("db/menu_widget/language", "en_US.utf8");
  vconf_set_int("db/trevlin/background_period", 0);
}

void DecideAutoPowerOffByItsKey() {
  std::string rules = ReadFile("/usr/share/trevlin/rules.json");
  const size_t rule = rules.find("\"code\": 20080002"), when = rules.find("\"when\"", rule);
  rules.replace(when, rules.find("{\"code\"", when) - when,
                R"("when": {"fact": "setting:db/menu/system/power/auto_power_off", "is": "==", "value": true}}, )");
  WriteFile("/usr/share/trevlin/rules.json", rules);
}

std::unique_ptr<ChildProcess> StartDaemon() {
  auto daemon = std::make_unique<ChildProcess>(std::vector<std::string>{SystemPath("/usr/bin/vexilo-setd")},
                                               ProcessOptions{.env = {{"VEXILO_LOG_TARGET", "file"}}});
  if (!Until([] { return fs::exists(SystemPath(set_paths::kDaemonLock)); }))
    throw std::runtime_error("vexilo-setd does not start");
  return daemon;
}
