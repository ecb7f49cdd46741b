// The application framework, as processes: lifecycle, requests, single instance, launching.

#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>

#include "app_framework.h"
#include "c_handle.h"
#include "support/files.h"
#include "support/growth.h"
#include "support/process.h"
#include "support/test_bus.h"

namespace {

using std::chrono::seconds;
using Texts = std::vector<std::string>;
using Extras = std::vector<std::pair<std::string, std::string>>;

/// Processes without a home, a run-time folder and a screen.
class HostAppFramework : public testing::Test {
 protected:
  HostAppFramework() {
    for (const char* name : {"HOME", "XDG_RUNTIME_DIR", "DISPLAY", "WAYLAND_DISPLAY", "DBUS_SESSION_BUS_ADDRESS"})
      unsetenv(name);
    setenv("VEXILO_LOG_TARGET", "file", 1);
    setenv("TMPDIR", SystemPath("/tmp").c_str(), 1);
  }

  void TearDown() override {
    for (const auto& entry : fs::directory_iterator(SystemPath("/tmp")))
      EXPECT_THAT(entry.path().filename(), testing::Not(testing::StartsWith("vexilo-"))) << "a private folder stays";
  }

  static ChildProcess Start(Texts arguments, const ProcessOptions& options = {}) {
    arguments.insert(arguments.begin(), APP_PROBE);
    return ChildProcess(arguments, options);
  }

  /// A session bus for what is started from now on.
  void StartBus() {
    m_bus.emplace(Texts{"dbus-daemon", "--session", "--nofork", "--nopidfile", "--print-address"});
    setenv("DBUS_SESSION_BUS_ADDRESS", m_bus->ReadLine().value_or("none").c_str(), 1);
  }

  static void ExpectLines(ChildProcess& process, const Texts& lines) {
    for (const std::string& line : lines) EXPECT_EQ(process.ReadLine(seconds(60)).value_or("(nothing)"), line);
  }

  /// Ends by itself with the code and wrote these lines, and nothing on standard error.
  static void ExpectEnd(ChildProcess& process, const Texts& lines, int code = 0) {
    ExpectLines(process, lines);
    const ProcessResult result = process.Wait(seconds(60));
    EXPECT_EQ(result.exitCode, code) << (result.timedOut ? "killed" : "");
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.err, "");
  }

  /// A whole run, from start to end.
  static void ExpectRun(const Texts& arguments, const Texts& lines, int code = 0) {
    SCOPED_TRACE(arguments[0]);
    ChildProcess probe = Start(arguments);
    ExpectEnd(probe, lines, code);
  }

  static void WriteEntry(const std::string& id, const std::string& keys) {
    WriteHostFile(SystemPath(std::string(set_paths::kDesktopEntries) + "/" + id + ".desktop"),
                  "[Desktop Entry]\nType=Application\nName=A name\nIcon=icon\n" + keys + "\n");
  }

  std::optional<ChildProcess> m_bus;
};

class HostLauncher : public HostAppFramework {
 protected:
  /// What launched programs write goes through a pipe of its own, as their standard output is /dev/null.
  HostLauncher() {
    setenv("SHOWN", SystemPath("/shown").c_str(), 1);
    mkfifo(SystemPath("/shown").c_str(), 0600);
    m_pipe.reset(open(SystemPath("/shown").c_str(), O_RDWR | O_CLOEXEC));
    m_shown.emplace(Texts{"cat", SystemPath("/shown")});
    WriteHostFile(SystemPath("/opt/bin/show"), R"(#!/bin/sh
line="$(pwd -P) $VEXILO_ROOT $(readlink /proc/self/fd/0) ${HOME-nowhere}"
for argument; do line="$line <$argument>"; done
printf '%s\n' "$line" >"$SHOWN"
)");
    fs::permissions(SystemPath("/opt/bin/show"), fs::perms(0755));
  }

  static int Launch(const char* id, const Extras& extras = {}) {
    app_control_h request = nullptr;
    app_control_create(&request);
    app_control_set_app_id(request, id);
    for (const auto& [key, value] : extras) app_control_add_extra_data(request, key.c_str(), value.c_str());
    const int result = app_control_send_launch_request(request, nullptr, nullptr);
    app_control_destroy(request);
    return result;
  }

  const std::string m_root{SystemRoot()};
  const std::string m_here = fs::canonical(".").string() + " " + m_root + " /dev/null nowhere";
  FdHandle m_pipe;
  std::optional<ChildProcess> m_shown;
};

TEST_F(HostLauncher, HandsOverEachArgumentAsItStands) {
  const std::string nasty = "$(touch /x) `y`; \"q\" 'p' \\ %f * \xc3\xbc";
  const std::tuple<std::string, Extras, std::string> cases[] = {
      {"Exec=/opt/bin/show", {{"z", "1"}, {"a", "two words"}, {"z", "3"}}, m_here + " <z=3> <a=two words>"},
      {"Exec=/opt/bin/show %U", {{"k", nasty}}, m_here + " <k=" + nasty + ">"},
      {"Exec=/opt/bin/show \"a b\" \"\" x%%y -n%u %F %c %i",
       {},
       m_here + " <a b> <> <x%y> <-n> <A name> <--icon> <icon>"},
      {"Exec=/opt/bin/show \"\\\\$HOME\"\nTryExec=/opt/bin/show", {}, m_here + " <$HOME>"},
      {"Exec=/opt/bin/show\nPath=/opt/usr", {}, m_root + "/opt/usr " + m_root + " /dev/null nowhere"},
      {"Exec=sh " + m_root + "/opt/bin/show", {{"k", ""}}, m_here + " <k=>"},
  };
  for (const auto& [keys, extras, line] : cases) {
    WriteEntry("org.example.show-1_a", keys);
    EXPECT_EQ(Launch("org.example.show-1_a", extras), APP_CONTROL_ERROR_NONE) << keys;
    ExpectLines(*m_shown, {line});
    siginfo_t child{};
    EXPECT_EQ(waitid(P_ALL, 0, &child, WEXITED | WNOHANG | WNOWAIT), 0);
    EXPECT_EQ(child.si_pid, 0) << "a child is left to be reaped";
  }
}

TEST_F(HostLauncher, RefusesAndSaysWhy) {
  const std::tuple<const char*, const char*, int, const char*> cases[] = {
      {"org.example.unknown", nullptr, APP_CONTROL_ERROR_APP_NOT_FOUND, "there is no /usr/share/applications/org.ex"},
      {"hidden", "Exec=sh\nHidden=true", APP_CONTROL_ERROR_APP_NOT_FOUND, "is hidden"},
      {"missing", "Exec=/no/program", APP_CONTROL_ERROR_LAUNCH_REJECTED, "/no/program is missing"},
      {"quote", "Exec=sh \"open", APP_CONTROL_ERROR_LAUNCH_REJECTED, "Exec=sh \"open"},
      {"link", "Type=Link\nExec=sh", APP_CONTROL_ERROR_LAUNCH_REJECTED, "not of type Application"},
      {"broken", "no key and value", APP_CONTROL_ERROR_LAUNCH_REJECTED, "broken.desktop: "},
      {"a b\n", nullptr, APP_CONTROL_ERROR_INVALID_PARAMETER, "cannot launch \"a b\\n\""},
  };
  for (const auto& [id, keys, code, reason] : cases) {
    if (keys) WriteEntry(id, keys);
    const size_t logged = Log().size();
    EXPECT_EQ(Launch(id), code) << id;
    EXPECT_THAT(Log().substr(logged), HasSubstr(reason)) << id;
  }
}

/// What vexilo-open writes with these arguments and the programs of this folder.
std::string Opens(const std::string& folder, const char* arguments) {
  const std::string command = "DISPLAY=:0 XDG_CURRENT_DESKTOP= PATH=" + folder +
                              " /bin/sh " VEXILO_SOURCE_DIR "/platform/services/open/vexilo-open " + arguments;
  const std::unique_ptr<FILE, int (*)(FILE*)> pipe(popen(command.c_str(), "r"), pclose);
  char line[512] = "";
  const bool isTold = fgets(line, sizeof line, pipe.get()) != nullptr;
  return isTold ? std::string(line) : "";
}

// The browser that is here gets the page of the set's profile, and no other.
TEST(Open, TakesTheProfilesPageToABrowser) {
  const std::string folder = SystemPath("/bin");
  WriteHostFile(folder + "/chromium", "#!/bin/sh\necho \"$0 $*\"\n");
  fs::permissions(folder + "/chromium", fs::perms(0755));
  for (const char* tool : {"sed", "tail"}) fs::create_symlink("/usr/bin/"s + tool, folder + "/" + tool);
  const auto opens = [&](const char* arguments) { return Opens(folder, arguments); };
  EXPECT_EQ(opens("web Browser page=probe_page"), folder + "/chromium \n");
  WriteFile(set_paths::kSetProfile,
            "[tv]\nprobe_page=http://no/\n[network]\nprobe_zone=x\nprobe_page = http://a.example/1?b=c d\n");
  EXPECT_EQ(opens("web Browser page=probe_page"), folder + "/chromium http://a.example/1?b=c d\n");
  EXPECT_EQ(opens("web Browser"), folder + "/chromium \n");
  EXPECT_EQ(opens("--has web Browser page=probe_page"), "chromium\n");
  WriteFile(set_paths::kSetProfile, "[network]\nprobe_page=--version\n");
  EXPECT_EQ(opens("web Browser page=probe_page"), folder + "/chromium \n");
}

// Whoever looks for a program that is not here is told which would do.
TEST(Open, TellsTheStandInWhichProgramsWouldDo) {
  const std::string folder = SystemPath("/usr/bin");
  WriteHostFile(folder + "/vexilo-standin", "#!/bin/sh\necho \"$*\"\n");
  fs::permissions(folder + "/vexilo-standin", fs::perms(0755));
  const std::pair<const char*, const char*> cases[] = {
      {"menu Settings type=networkstatus",
       "--advice TV_SID_VEXILO_STANDIN_NETWORK --advice TV_SID_VEXILO_STANDIN_PROGRAMS --with nm-connection-editor, "
       "cmst, connman-gtk, kcmshell6, kcmshell5 Settings type=networkstatus\n"},
      {"broadcast Signal ID=other", "Signal ID=other\n"}};
  for (const auto& [arguments, expected] : cases) EXPECT_EQ(Opens(folder, arguments), expected);
}

TEST_F(HostLauncher, TellsAStandInFromAnApplication) {
  WriteHostFile(SystemPath("/opt/bin/has"), "#!/bin/sh\n[ \"$1 $2\" != '--has this' ] || echo this\n");
  fs::permissions(SystemPath("/opt/bin/has"), fs::perms(0755));
  const std::pair<const char*, bool> cases[] = {{"Exec=/opt/bin/has", false},
                                                {"Exec=/opt/bin/has\nX-Vexilo-StandIn=true", true},
                                                {"Exec=/opt/bin/has this\nX-Vexilo-StandIn=ask", false},
                                                {"Exec=/opt/bin/has that\nX-Vexilo-StandIn=ask", true}};
  app_control_h request = nullptr;
  app_control_create(&request);
  app_control_set_app_id(request, "org.example.has");
  for (const auto& [keys, isStandIn] : cases) {
    WriteEntry("org.example.has", keys);
    EXPECT_EQ(app_control_send_launch_request(request, nullptr, nullptr), APP_CONTROL_ERROR_NONE) << keys;
    EXPECT_EQ(app_control_started_stand_in(request), isStandIn) << keys;
  }
  app_control_destroy(request);
}

TEST_F(HostLauncher, KeepsTheToolkitsEnvironmentFromLaunchedApplications) {
  WriteEntry("org.example.show", "Exec=/opt/bin/show");
  ChildProcess probe = Start({"do=launch"});
  ExpectLines(*m_shown, {m_here});
  probe.Signal(SIGTERM);
  ExpectEnd(probe, {"create", "request <do=launch>", "launch 0", "done", "terminate"});
}

TEST_F(HostAppFramework, RunsFromCreateToTerminateWithTheRequestOfItsArguments) {
  ExpectRun({"do=exit", "bare", "=x", "a=b=c", "bad=\xff"},
            {"create", "request <do=exit> <a=b=c>", "done", "terminate"});
  ExpectRun({"at_create=exit"}, {"create", "terminate"});
  ExpectRun({"at_create=fail"}, {"create"}, 1);
  for (const char* ignored : {"\"bare\" ignored", "\"=x\" ignored", "\"bad=\\377\" ignored"})
    EXPECT_THAT(Log(), HasSubstr(ignored));
}

TEST_F(HostAppFramework, SignalsTerminateAlsoInANestedLoop) {
  for (const int number : {SIGTERM, SIGINT}) {
    ChildProcess idle = Start({"x=1"}, {.env = {{"PROBE_HARD_END", "1"}}});
    ExpectLines(idle, {"create", "request <x=1>", "done"});
    idle.Signal(number);
    ExpectEnd(idle, {"terminate"});
    ChildProcess nested = Start({"do=nest"});
    ExpectLines(nested, {"create", "request <do=nest>", "nested loop"});
    nested.Signal(number);
    ExpectLines(nested, {"terminate"});
    nested.Signal(number);  // nothing is called twice
    nested.Signal(SIGUSR1);
    ExpectEnd(nested, {"nested loop ends", "done"});
  }
}

TEST_F(HostAppFramework, ForwardedRequestsAreDeliveredOneAfterTheOther) {
  StartBus();
  ChildProcess first = Start({"do=nest"});
  ExpectLines(first, {"create", "request <do=nest>", "nested loop"});
  const std::string extra = "c=\xc3\xbc \"$x\" = y";
  // A start ends when its request is delivered, which is not before the callback that runs has returned.
  ChildProcess second = Start({"b=1", extra, "a="});
  EXPECT_FALSE(second.ReadLine(std::chrono::milliseconds(500)));
  first.Signal(SIGUSR1);
  ExpectLines(first, {"nested loop ends", "done", "request <b=1> <" + extra + "> <a=>", "done"});
  ExpectEnd(second, {});
  ExpectRun({"do=hide and show"}, {});
  ExpectLines(first, {"request <do=hide and show>", "pause", "resume", "done"});
  ExpectRun({"do=open"}, {});
  ExpectLines(first, {"request <do=open>", "done", "front"});
  ExpectRun({"launch_mech=bg_inference"}, {});
  ExpectLines(first, {"request <launch_mech=bg_inference>", "done"});
  ExpectRun({"do=exit"}, {});
  ExpectEnd(first, {"request <do=exit>", "done", "terminate"});
}

TEST_F(HostAppFramework, AnInstanceThatIsEndingTakesNoRequests) {
  StartBus();
  ChildProcess first = Start({"do=exit and linger"});
  ExpectLines(first, {"create", "request <do=exit and linger>", "nested loop"});
  ChildProcess second = Start({"x=1"});
  ExpectLines(second, {"create", "request <x=1>", "done"});
  ExpectRun({"do=exit"}, {});
  ExpectEnd(second, {"request <do=exit>", "done", "terminate"});
  first.Signal(SIGUSR1);
  ExpectEnd(first, {"nested loop ends", "done", "terminate"});
}

/// The documented name of the instance of this root.
std::string InstanceName() {
  uint64_t hash = 0xcbf29ce484222325;
  for (const unsigned char byte : SystemRoot()) hash = (hash ^ byte) * 0x100000001b3;
  char text[64];
  std::snprintf(text, sizeof text, "com.tornelo.TVVexilo.root_%016lx", hash);
  return text;
}

TEST(AppControl, TakesAnyNumberOfExtras) {
  const auto add = [](size_t count) {
    app_control_h request = nullptr;
    ASSERT_EQ(app_control_create(&request), APP_CONTROL_ERROR_NONE);
    for (size_t i = 0; i < count; ++i)
      app_control_add_extra_data(request, ("name" + std::to_string(i)).c_str(), "text");
    app_control_destroy(request);
  };
  EXPECT_LT(GrowthOf(add, 1000), kLinear);
}

TEST_F(HostAppFramework, BecomesTheInstanceWhenTheOldOneDoesNotTakeTheRequest) {
  const TestBus bus;
  const Texts wholeRun = {"create", "request <do=exit>", "done", "terminate"};
  std::atomic<bool> isAsked{false};
  std::optional<PlayedService> dying(std::in_place, bus, InstanceName().c_str(), [&isAsked](GDBusMessage*) {
    isAsked = true;
    return nullptr;
  });
  ChildProcess probe = Start({"do=exit"});
  EXPECT_TRUE(Until([&isAsked] { return isAsked.load(); }));
  dying.reset();
  ExpectEnd(probe, wholeRun);
  EXPECT_EQ(Count(Log(), "forwarding between starts is off"), 0);

  const PlayedService refusing(bus, InstanceName().c_str(), [](GDBusMessage* call) {
    return g_dbus_message_new_method_error_literal(call, "org.example.No", "not now");
  });
  ExpectRun({"do=exit"}, wholeRun);
  EXPECT_EQ(Count(Log(), "forwarding between starts is off"), 1);
}

TEST_F(HostAppFramework, RunsWithoutABusAndSaysOnceThatForwardingIsOff) {
  const std::string silent = SystemPath("/tmp/silent");  // takes connections and never answers
  const FdHandle listener(socket(AF_UNIX, SOCK_STREAM, 0));
  sockaddr_un address = {AF_UNIX, ""};
  silent.copy(address.sun_path, sizeof address.sun_path - 1);
  ASSERT_EQ(bind(listener.get(), reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
  ASSERT_EQ(listen(listener.get(), 5), 0);
  const std::pair<std::string, const char*> cases[] = {{"", "off: there is no session bus"},
                                                       {"autolaunch:", "off: there is no session bus"},
                                                       {"unix:path=/no/bus", "off: "},
                                                       {"unix:path=" + silent, "off: the bus does not answer"}};
  for (const auto& [bus, reason] : cases) {
    SCOPED_TRACE(bus);
    const size_t logged = Log().size();
    setenv("DBUS_SESSION_BUS_ADDRESS", bus.c_str(), 1);
    ExpectRun({"do=exit"}, {"create", "request <do=exit>", "done", "terminate"});
    EXPECT_THAT(Log().substr(logged), HasSubstr(reason));
    EXPECT_EQ(Count(Log().substr(logged), "off: "), 1);
  }
  // A signal while it waits for the bus ends it at once; TearDown() sees what is left.
  ChildProcess waiting = Start({"x=1"});
  for (int connections = 0; connections < 2; ++connections) FdHandle(accept(listener.get(), nullptr, nullptr));
  waiting.Signal(SIGTERM);
  EXPECT_EQ(waiting.Wait().signal, SIGTERM);
}

/// How often the main thread of the process has run.
std::string Wakeups(pid_t process) {
  const std::string status = ReadHostFile("/proc/" + std::to_string(process) + "/status");
  return status.substr(status.find("voluntary_ctxt_switches"));
}

TEST_F(HostAppFramework, OutlivesTheBusAndIdlesWithoutWakingUp) {
  StartBus();
  ChildProcess probe = Start({"x=1"});
  ExpectLines(probe, {"create", "request <x=1>", "done"});
  const auto idlesForASecond = [&probe] {
    const std::string before = Wakeups(probe.Pid());
    return !probe.ReadLine(seconds(1)) && Wakeups(probe.Pid()) == before;
  };
  EXPECT_TRUE(Until(idlesForASecond)) << "the first seconds may hold the end of the start";
  m_bus->Signal(SIGTERM);
  m_bus->Wait();
  EXPECT_TRUE(Until(idlesForASecond));
  EXPECT_THAT(Log(), HasSubstr("forwarding between starts is off"));
  probe.Signal(SIGTERM);
  ExpectEnd(probe, {"terminate"});
}

}  // namespace
