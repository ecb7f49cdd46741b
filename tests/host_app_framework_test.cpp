#include <fcntl.h>
#include <gio/gio.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>

#include <filesystem>
#include <fstream>
#include <optional>
#include <sstream>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "app_framework.h"
#include "c_handle.h"
#include "set_paths.h"
#include "support/process.h"
#include "system_path.h"

namespace {

using std::chrono::seconds;
using testing::HasSubstr;

std::string ReadFile(const std::string& path) {
  std::ostringstream content;
  content << std::ifstream(path).rdbuf();
  return content.str();
}

void WriteFile(const std::string& path, const std::string& content, mode_t mode = 0644) {
  std::ofstream(path) << content;
  chmod(path.c_str(), mode);
}

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
    for (const auto& entry : std::filesystem::directory_iterator(SystemPath("/tmp")))
      EXPECT_THAT(entry.path().filename(), testing::Not(testing::StartsWith("vexilo-"))) << "a private folder stays";
  }

  static ChildProcess Start(std::vector<std::string> arguments, const ProcessOptions& options = {}) {
    arguments.insert(arguments.begin(), APP_PROBE);
    return ChildProcess(arguments, options);
  }

  /// A session bus for what is started from now on.
  void StartBus() {
    m_bus.emplace(std::vector<std::string>{"dbus-daemon", "--session", "--nofork", "--nopidfile", "--print-address"});
    setenv("DBUS_SESSION_BUS_ADDRESS", m_bus->ReadLine().value_or("none").c_str(), 1);
  }

  static void ExpectLines(ChildProcess& process, const std::vector<std::string>& lines) {
    for (const std::string& line : lines) EXPECT_EQ(process.ReadLine(seconds(60)).value_or("(nothing)"), line);
  }

  /// Ends by itself with the code and wrote these lines, and nothing on standard error.
  static void ExpectEnd(ChildProcess& process, const std::vector<std::string>& lines, int code = 0) {
    ExpectLines(process, lines);
    const ProcessResult result = process.Wait(seconds(60));
    EXPECT_EQ(result.exitCode, code) << (result.timedOut ? "killed" : "");
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.err, "");
  }

  static std::string Log() { return ReadFile(SystemPath(set_paths::kLogFile)); }

  static void WriteEntry(const std::string& id, const std::string& keys) {
    WriteFile(SystemPath(std::string(set_paths::kDesktopEntries) + "/" + id + ".desktop"),
              "[Desktop Entry]\nType=Application\nName=A name\nIcon=icon\n" + keys + "\n");
  }

  std::optional<ChildProcess> m_bus;
};

TEST_F(HostAppFramework, RequestsKeepNamedTextsAndRefuseWhatCannotTravel) {
  app_control_h request = nullptr;
  ASSERT_EQ(app_control_create(&request), APP_CONTROL_ERROR_NONE);
  for (const auto& [key, value, result] :
       std::vector<std::tuple<const char*, const char*, int>>{{"a", "1", APP_CONTROL_ERROR_NONE},
                                                              {"a", "2", APP_CONTROL_ERROR_NONE},
                                                              {"b", "", APP_CONTROL_ERROR_NONE},
                                                              {"", "x", APP_CONTROL_ERROR_INVALID_PARAMETER},
                                                              {"k=", "x", APP_CONTROL_ERROR_INVALID_PARAMETER},
                                                              {nullptr, "x", APP_CONTROL_ERROR_INVALID_PARAMETER},
                                                              {"c", nullptr, APP_CONTROL_ERROR_INVALID_PARAMETER}})
    EXPECT_EQ(app_control_add_extra_data(request, key, value), result) << (key ? key : "null");
  char* value = nullptr;
  EXPECT_EQ(app_control_get_extra_data(request, "c", &value), APP_CONTROL_ERROR_KEY_NOT_FOUND);
  EXPECT_EQ(value, nullptr);
  ASSERT_EQ(app_control_get_extra_data(request, "a", &value), APP_CONTROL_ERROR_NONE);
  EXPECT_STREQ(CText(value).get(), "2");
  EXPECT_EQ(app_control_send_launch_request(request, nullptr, nullptr), APP_CONTROL_ERROR_INVALID_PARAMETER);
  EXPECT_EQ(app_control_get_extra_data(request, "a", nullptr), APP_CONTROL_ERROR_INVALID_PARAMETER);
  EXPECT_EQ(app_control_create(nullptr), APP_CONTROL_ERROR_INVALID_PARAMETER);
  EXPECT_EQ(app_control_set_app_id(nullptr, "x"), APP_CONTROL_ERROR_INVALID_PARAMETER);
  EXPECT_EQ(app_control_set_operation(request, nullptr), APP_CONTROL_ERROR_INVALID_PARAMETER);
  app_control_destroy(request);
}

class HostLauncher : public HostAppFramework {
 protected:
  /// What launched programs write goes through a pipe of its own, as their standard output is /dev/null.
  HostLauncher() {
    setenv("SHOWN", SystemPath("/shown").c_str(), 1);
    mkfifo(SystemPath("/shown").c_str(), 0600);
    m_pipe.reset(open(SystemPath("/shown").c_str(), O_RDWR | O_CLOEXEC));
    m_shown.emplace(std::vector<std::string>{"cat", SystemPath("/shown")});
    std::filesystem::create_directories(SystemPath("/opt/bin"));
    WriteFile(SystemPath("/opt/bin/show"),
              "#!/bin/sh\n"
              "line=\"$(pwd -P) $VEXILO_ROOT $(readlink /proc/self/fd/0) ${HOME-nowhere}\"\n"
              "for argument; do line=\"$line <$argument>\"; done\n"
              "printf '%s\\n' \"$line\" >\"$SHOWN\"\n",
              0755);
  }

  static int Launch(const char* id, const std::vector<std::pair<std::string, std::string>>& extras = {}) {
    app_control_h request = nullptr;
    app_control_create(&request);
    app_control_set_app_id(request, id);
    for (const auto& [key, value] : extras) app_control_add_extra_data(request, key.c_str(), value.c_str());
    const int result = app_control_send_launch_request(request, nullptr, nullptr);
    app_control_destroy(request);
    return result;
  }

  const std::string m_root{SystemRoot()};
  const std::string m_here = std::filesystem::canonical(".").string() + " " + m_root + " /dev/null nowhere";
  FdHandle m_pipe;
  std::optional<ChildProcess> m_shown;
};

TEST_F(HostLauncher, HandsOverEachArgumentAsItStands) {
  const std::string nasty = "$(touch /x) `y`; \"q\" 'p' \\ %f * \xc3\xbc";
  const struct {
    std::string keys;
    std::vector<std::pair<std::string, std::string>> extras;
    std::string line;
  } cases[] = {
      {"Exec=/opt/bin/show", {}, m_here},
      {"Exec=/opt/bin/show", {{"z", "1"}, {"a", "two words"}, {"z", "3"}}, m_here + " <z=3> <a=two words>"},
      {"Exec=/opt/bin/show %U", {{"k", nasty}}, m_here + " <k=" + nasty + ">"},
      {"Exec=/opt/bin/show \"a b\" \"\" x%%y -n%u %F %c %i",
       {},
       m_here + " <a b> <> <x%y> <-n> <A name> <--icon> <icon>"},
      {"Exec=/opt/bin/show \"\\\\$HOME\"\nTryExec=/opt/bin/show", {}, m_here + " <$HOME>"},
      {"Exec=/opt/bin/show\nPath=/opt/usr", {}, m_root + "/opt/usr " + m_root + " /dev/null nowhere"},
      {"Exec=sh " + m_root + "/opt/bin/show", {{"k", ""}}, m_here + " <k=>"},
  };
  for (const auto& expected : cases) {
    WriteEntry("org.example.show-1_a", expected.keys);
    EXPECT_EQ(Launch("org.example.show-1_a", expected.extras), APP_CONTROL_ERROR_NONE) << expected.keys;
    ExpectLines(*m_shown, {expected.line});
    siginfo_t child{};
    EXPECT_EQ(waitid(P_ALL, 0, &child, WEXITED | WNOHANG | WNOWAIT), 0);
    EXPECT_EQ(child.si_pid, 0) << "a child is left to be reaped";
  }
}

TEST_F(HostLauncher, RefusesAndSaysWhy) {
  WriteFile(SystemPath("/opt/plain"), "no program", 0644);
  const struct {
    const char* id;
    const char* keys;
    int code;
    const char* reason;
  } cases[] = {
      {"org.example.unknown", nullptr, APP_CONTROL_ERROR_APP_NOT_FOUND, "there is no /usr/share/applications/org.ex"},
      {"hidden", "Exec=sh\nHidden=true", APP_CONTROL_ERROR_APP_NOT_FOUND, "is hidden"},
      {"missing", "Exec=/no/program", APP_CONTROL_ERROR_LAUNCH_REJECTED, "/no/program is missing"},
      {"plain", "Exec=/opt/plain", APP_CONTROL_ERROR_LAUNCH_REJECTED, "cannot be executed"},
      {"relative", "Exec=opt/bin/show", APP_CONTROL_ERROR_LAUNCH_REJECTED, "opt/bin/show is missing"},
      {"needs", "Exec=sh\nTryExec=/no/tool", APP_CONTROL_ERROR_LAUNCH_REJECTED, "/no/tool"},
      {"noexec", "Terminal=false", APP_CONTROL_ERROR_LAUNCH_REJECTED, "has no Exec"},
      {"quote", "Exec=sh \"open", APP_CONTROL_ERROR_LAUNCH_REJECTED, "Exec=sh \"open"},
      {"code", "Exec=sh %y", APP_CONTROL_ERROR_LAUNCH_REJECTED, "unknown field code"},
      {"folder", "Exec=sh\nPath=/no/folder", APP_CONTROL_ERROR_LAUNCH_REJECTED, "/no/folder"},
      {"link", "Type=Link\nExec=sh", APP_CONTROL_ERROR_LAUNCH_REJECTED, "not of type Application"},
      {"broken", "no key and value", APP_CONTROL_ERROR_LAUNCH_REJECTED, "broken.desktop: "},
      {"../applications/hidden", nullptr, APP_CONTROL_ERROR_INVALID_PARAMETER, "letters, digits"},
      {"a b\n", nullptr, APP_CONTROL_ERROR_INVALID_PARAMETER, "cannot launch \"a b\\n\""},
      {"", nullptr, APP_CONTROL_ERROR_INVALID_PARAMETER, "cannot launch \"\""},
  };
  for (const auto& expected : cases) {
    if (expected.keys) WriteEntry(expected.id, expected.keys);
    const size_t logged = Log().size();
    EXPECT_EQ(Launch(expected.id), expected.code) << expected.id;
    EXPECT_THAT(Log().substr(logged), HasSubstr(expected.reason)) << expected.id;
  }
}

TEST_F(HostLauncher, KeepsTheToolkitsEnvironmentFromLaunchedApplications) {
  WriteEntry("org.example.show", "Exec=/opt/bin/show");
  ChildProcess probe = Start({"do=launch"});
  ExpectLines(*m_shown, {m_here});
  probe.Signal(SIGTERM);
  ExpectEnd(probe, {"create", "request <do=launch>", "launch 0", "done", "terminate"});
}

TEST_F(HostAppFramework, RunsFromCreateToTerminateWithTheRequestOfItsArguments) {
  const struct {
    std::vector<std::string> arguments;
    std::vector<std::string> lines;
    int code;
  } cases[] = {
      {{"do=exit", "bare", "=x", "a=b=c", "bad=\xff"}, {"create", "request <do=exit> <a=b=c>", "done", "terminate"}, 0},
      {{"at_create=exit"}, {"create", "terminate"}, 0},
      {{"at_create=fail"}, {"create"}, 1},
  };
  for (const auto& expected : cases) {
    SCOPED_TRACE(expected.arguments[0]);
    ChildProcess probe = Start(expected.arguments);
    ExpectEnd(probe, expected.lines, expected.code);
  }
  for (const char* ignored : {"\"bare\" ignored", "\"=x\" ignored", "\"bad=\\377\" ignored"})
    EXPECT_THAT(Log(), HasSubstr(ignored));
}

TEST_F(HostAppFramework, SignalsTerminateAlsoInANestedLoop) {
  const struct {
    const char* request;
    const char* lastLine;
    int signal;
    bool hardEnd;
  } cases[] = {{"x=1", "done", SIGTERM, true},
               {"x=1", "done", SIGINT, false},
               {"do=nest", "nested loop", SIGINT, true},
               {"do=nest", "nested loop", SIGTERM, false}};
  for (const auto& expected : cases) {
    SCOPED_TRACE(expected.request);
    ProcessOptions options;
    if (expected.hardEnd) options.env["PROBE_HARD_END"] = "1";
    ChildProcess probe = Start({expected.request}, options);
    ExpectLines(probe, {"create", "request <" + std::string(expected.request) + ">", expected.lastLine});
    probe.Signal(expected.signal);
    ExpectLines(probe, {"terminate"});
    const bool goesOn = !expected.hardEnd && std::string(expected.request) == "do=nest";
    if (goesOn) {
      probe.Signal(expected.signal);  // nothing is called twice
      probe.Signal(SIGUSR1);
    }
    ExpectEnd(probe, goesOn ? std::vector<std::string>{"nested loop ends", "done"} : std::vector<std::string>{});
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
  ChildProcess third = Start({"do=hide and show"});
  ExpectEnd(third, {});
  ExpectLines(first, {"request <do=hide and show>", "pause", "resume", "done"});
  ChildProcess last = Start({"do=exit"});
  ExpectEnd(last, {});
  ExpectEnd(first, {"request <do=exit>", "done", "terminate"});
}

TEST_F(HostAppFramework, AnInstanceThatIsEndingTakesNoRequests) {
  StartBus();
  ChildProcess first = Start({"do=exit and linger"});
  ExpectLines(first, {"create", "request <do=exit and linger>", "nested loop"});
  ChildProcess second = Start({"x=1"});
  ExpectLines(second, {"create", "request <x=1>", "done"});
  ChildProcess third = Start({"do=exit"});
  ExpectEnd(third, {});
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

enum class Owner { kDies, kEnds, kRefuses };

/// Called on GDBus's thread with what arrives at an owner that never takes a request.
GDBusMessage* Misbehave(GDBusConnection* connection, GDBusMessage* message, gboolean incoming, void* owner) {
  if (!incoming || g_strcmp0(g_dbus_message_get_member(message), "AppControl") != 0) return message;
  const auto how = static_cast<Owner>(GPOINTER_TO_INT(owner));
  if (how == Owner::kDies) {
    g_dbus_connection_close(connection, nullptr, nullptr, nullptr);
  } else {
    if (how == Owner::kEnds)
      g_dbus_connection_call(connection, "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
                             "ReleaseName", g_variant_new("(s)", InstanceName().c_str()), nullptr,
                             G_DBUS_CALL_FLAGS_NONE, -1, nullptr, nullptr, nullptr);
    GDBusMessage* const reply = g_dbus_message_new_method_error_literal(message, "org.example.No", "not now");
    g_dbus_connection_send_message(connection, reply, G_DBUS_SEND_MESSAGE_FLAGS_NONE, nullptr, nullptr);
    g_object_unref(reply);
  }
  g_object_unref(message);
  return nullptr;
}

TEST_F(HostAppFramework, BecomesTheInstanceWhenTheOldOneDoesNotTakeTheRequest) {
  StartBus();
  for (Owner how : {Owner::kDies, Owner::kEnds, Owner::kRefuses}) {
    GDBusConnection* const owner = g_dbus_connection_new_for_address_sync(
        std::getenv("DBUS_SESSION_BUS_ADDRESS"),
        static_cast<GDBusConnectionFlags>(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                                          G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION),
        nullptr, nullptr, nullptr);
    g_dbus_connection_add_filter(owner, Misbehave, GINT_TO_POINTER(static_cast<int>(how)), nullptr);
    g_variant_unref(g_dbus_connection_call_sync(
        owner, "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus", "RequestName",
        g_variant_new("(su)", InstanceName().c_str(), 4), nullptr, G_DBUS_CALL_FLAGS_NONE, -1, nullptr, nullptr));
    const size_t logged = Log().size();
    ChildProcess probe = Start({"do=exit"});
    ExpectEnd(probe, {"create", "request <do=exit>", "done", "terminate"});
    EXPECT_EQ(Log().find("forwarding between starts is off", logged) != std::string::npos, how == Owner::kRefuses);
    g_dbus_connection_close_sync(owner, nullptr, nullptr);
    g_object_unref(owner);
  }
}

TEST_F(HostAppFramework, RunsWithoutABusAndSaysOnceThatForwardingIsOff) {
  const std::string silent = SystemPath("/tmp/silent");  // takes connections and never answers
  const FdHandle listener(socket(AF_UNIX, SOCK_STREAM, 0));
  sockaddr_un address = {AF_UNIX, ""};
  silent.copy(address.sun_path, sizeof address.sun_path - 1);
  ASSERT_EQ(bind(listener.get(), reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
  ASSERT_EQ(listen(listener.get(), 5), 0);
  const struct {
    std::string bus;
    const char* reason;
  } cases[] = {{"", "off: there is no session bus"},
               {"autolaunch:", "off: there is no session bus"},
               {"nonsense", "off: "},
               {"unix:path=/no/bus", "off: "},
               {"unix:path=" + silent, "off: the bus does not answer"}};
  for (const auto& expected : cases) {
    const size_t logged = Log().size();
    SCOPED_TRACE(expected.bus);
    setenv("DBUS_SESSION_BUS_ADDRESS", expected.bus.c_str(), 1);
    ChildProcess probe = Start({"do=exit"});
    ExpectEnd(probe, {"create", "request <do=exit>", "done", "terminate"});
    const std::string lines = Log().substr(logged);
    EXPECT_THAT(lines, HasSubstr(expected.reason));
    EXPECT_EQ(lines.find("off: "), lines.rfind("off: "));
  }
  // A signal while it waits for the bus ends it at once; TearDown() sees what is left.
  ChildProcess waiting = Start({"x=1"});
  for (int connections = 0; connections < 2; ++connections) FdHandle(accept(listener.get(), nullptr, nullptr));
  waiting.Signal(SIGTERM);
  EXPECT_EQ(waiting.Wait().signal, SIGTERM);
}

/// How often the main thread of the process has run.
std::string Wakeups(pid_t process) {
  const std::string status = ReadFile("/proc/" + std::to_string(process) + "/status");
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
  EXPECT_TRUE(idlesForASecond() || idlesForASecond()) << "the first second may hold the end of the start";
  m_bus->Signal(SIGTERM);
  m_bus->Wait();
  EXPECT_TRUE(idlesForASecond() || idlesForASecond());
  EXPECT_THAT(Log(), HasSubstr("forwarding between starts is off"));
  probe.Signal(SIGTERM);
  ExpectEnd(probe, {"terminate"});
}

}  // namespace
