// Restarting services, the time service, and stopping the machine's off timer, against services that the test plays on
// a bus of its own.

#include "service_control.h"

#include "clock_control.h"
#include "idle_off.h"
#include "scheduled_off.h"
#include "support/captured_machine.h"
#include "support/files.h"
#include "support/test.h"
#include "support/test_bus.h"
#include "trevlin/collectors/collectors.h"

namespace {

struct Service {
  std::string state;
  std::string stateAfterRestart = "active";
  bool isForbidden = false;
  bool endsAtOnce = false;  ///< and is started again
  std::chrono::milliseconds runs = 1min;
};

/// Answers for systemd.
class Manager {
 public:
  void Play(const std::map<std::string, Service>& services) {
    const std::lock_guard lock(m_mutex);
    m_services = services;
    m_restarted.clear();
    m_begin = std::chrono::steady_clock::now();
  }
  std::vector<std::string> Restarted() {
    const std::lock_guard lock(m_mutex);
    return m_restarted;
  }

  GDBusMessage* Answer(GDBusMessage* call) {
    const std::lock_guard lock(m_mutex);
    const std::string_view member = g_dbus_message_get_member(call);
    return member == "RestartUnit"           ? Restart(call)
           : member == "Get"                 ? TellStart(call)
           : member == "ListUnitsByPatterns" ? ListUnits(call, Instances())
                                             : ListUnits(call, Named(call));
  }

 private:
  GDBusMessage* Restart(GDBusMessage* call) {
    EXPECT_TRUE(g_dbus_message_get_flags(call) & G_DBUS_MESSAGE_FLAGS_ALLOW_INTERACTIVE_AUTHORIZATION);
    const char* name;
    g_variant_get(g_dbus_message_get_body(call), "(&s&s)", &name, nullptr);
    Service& service = m_services.at(name);
    if (service.isForbidden)
      return g_dbus_message_new_method_error_literal(call, "org.freedesktop.DBus.Error.AccessDenied", "Not permitted");
    m_restarted.push_back(name);
    service.state = service.stateAfterRestart;
    return Reply(call, g_variant_new("(o)", "/org/freedesktop/systemd1/job/1"));
  }

  GDBusMessage* TellStart(GDBusMessage* call) {
    const auto number = static_cast<size_t>(std::atoi(g_dbus_message_get_path(call) + std::strlen("/unit/")));
    const Service& service = std::next(m_services.begin(), static_cast<long>(number))->second;
    const auto now = std::chrono::steady_clock::now();
    if (service.endsAtOnce) m_begin = now;
    const auto began = m_begin - service.runs;
    return Reply(call, g_variant_new("(v)", g_variant_new_uint64(static_cast<guint64>(began.time_since_epoch() /
                                                                                      std::chrono::microseconds(1)))));
  }

  /// Whatever the pattern is.
  std::vector<std::string> Instances() const {
    std::vector<std::string> names;
    for (const auto& [name, service] : m_services)
      if (service.state == "failed" && name.starts_with("c@")) names.push_back(name);
    return names;
  }

  static std::vector<std::string> Named(GDBusMessage* call) {
    std::vector<std::string> all;
    GVariantIter* names;
    g_variant_get(g_dbus_message_get_body(call), "(as)", &names);
    for (const char* name; g_variant_iter_next(names, "&s", &name);) all.emplace_back(name);
    g_variant_iter_free(names);
    return all;
  }

  GDBusMessage* ListUnits(GDBusMessage* call, const std::vector<std::string>& names) {
    GVariantBuilder units;
    g_variant_builder_init(&units, G_VARIANT_TYPE("a(ssssssouso)"));
    for (const std::string& name : names) {
      const auto at = m_services.find(name);
      const bool here = at != m_services.end();
      const std::string state = here ? at->second.state : "inactive";
      const std::string path = "/unit/" + std::to_string(std::distance(m_services.begin(), at));
      g_variant_builder_add(&units, "(ssssssouso)", name.c_str(), "", here ? "loaded" : "not-found",
                            state == "auto-restart" ? "activating" : state.c_str(), state.c_str(), "", path.c_str(), 0u,
                            "", "/");
      // A service that is on its way has arrived when it is asked for again.
      if (state == "activating") at->second.state = "active";
    }
    return Reply(call, g_variant_new("(a(ssssssouso))", &units));
  }

  static GDBusMessage* Reply(GDBusMessage* call, GVariant* body) {
    GDBusMessage* reply = g_dbus_message_new_method_reply(call);
    g_dbus_message_set_body(reply, body);
    return reply;
  }

  std::mutex m_mutex;
  std::chrono::steady_clock::time_point m_begin;
  std::map<std::string, Service> m_services;
  std::vector<std::string> m_restarted;
};

TEST(ServiceControl, RestartsWhatHasFailedAndTellsHowItWent) {
  const struct {
    std::map<std::string, Service> services;
    std::vector<std::string> restarted;
    const char* problem;
    const char* command = "";
  } cases[] = {
      {{{"a.service", {"failed"}}, {"b.service", {"active"}}}, {"a.service"}, ""},
      {{{"a.service", {"failed"}}, {"b.service", {"failed", "activating"}}}, {"a.service", "b.service"}, ""},
      {{{"a.service", {"inactive"}}, {"b.service", {"active"}}}, {}, ""},
      {{{"a.service", {"inactive"}}}, {}, "cannot restart a.service: neither it nor another"},
      {{}, {}, "cannot restart a.service: neither it nor another"},
      {{{"a.service", {"active"}}, {"c@x.service", {"failed"}}, {"c@y.service", {"active"}}}, {"c@x.service"}, ""},
      {{{"b.service", {"failed", "failed"}}}, {"b.service"}, "b.service: it does not start: failed"},
      {{{"b.service", {"auto-restart"}}}, {"b.service"}, ""},
      {{{"b.service", {"failed", "auto-restart"}}}, {"b.service"}, "b.service: it does not start: auto-restart"},
      {{{"b.service", {"failed", "active", false, true, 0s}}}, {"b.service"}, "b.service: it ends again and again"},
      {{{"a.service", {"active", "", false, true, 0s}}}, {}, "a.service: it ends again and again"},
      {{{"a.service", {"failed", "active", true}}, {"b.service", {"failed", "active", true}}},
       {},
       "a.service: GDBus.Error:org.freedesktop.DBus.Error.",
       "systemctl restart a.service b.service"},
  };
  const TestBus bus, session;
  setenv("DBUS_SYSTEM_BUS_ADDRESS", bus.Address(), 1);
  setenv("DBUS_SESSION_BUS_ADDRESS", session.Address(), 1);
  Manager machine, user;
  const auto play = [](const TestBus& on, Manager& manager) {
    return PlayedService(on, "org.freedesktop.systemd1", [&](GDBusMessage* call) { return manager.Answer(call); });
  };
  const PlayedService systemd = play(bus, machine), own = play(session, user);
  FixProblem problem;
  for (const auto& expected : cases) {
    machine.Play(expected.services);
    EXPECT_EQ(RestartFailedServices({"a.service", "b.service", "c@.service"}, ServicesOf::kMachine, problem),
              *expected.problem == '\0')
        << problem.reason;
    EXPECT_THAT(problem.reason, HasSubstr(expected.problem));
    EXPECT_EQ(problem.command, expected.command);
    EXPECT_EQ(machine.Restarted(), expected.restarted);
  }
  user.Play({{"a.service", {"failed", "active", false, false, 9s}}});
  const auto begin = std::chrono::steady_clock::now();
  EXPECT_TRUE(RestartFailedServices({"a.service"}, ServicesOf::kUser, problem)) << problem.reason;
  EXPECT_EQ(user.Restarted(), std::vector<std::string>{"a.service"});
  EXPECT_GE(std::chrono::steady_clock::now() - begin, 900ms) << "it is done when it has run for ten seconds";
}

TEST(ServiceControl, TellsWhenNobodyCanBeAskedAndRefusesBadNames) {
  FixProblem problem;
  setenv("DBUS_SYSTEM_BUS_ADDRESS", "unix:path=/nowhere/at/all", 1);
  EXPECT_FALSE(RestartFailedServices({"a.service"}, ServicesOf::kMachine, problem));
  EXPECT_THAT(problem.reason, HasSubstr("cannot restart a.service: "));
  const TestBus bus;
  setenv("DBUS_SYSTEM_BUS_ADDRESS", bus.Address(), 1);
  EXPECT_FALSE(RestartFailedServices({"a.service"}, ServicesOf::kMachine, problem))
      << "nobody has the service manager's name";
  for (const char* name : {"", "a", "a.target", "../a.service", "a service.service", "-a.service"}) {
    EXPECT_FALSE(RestartFailedServices({name}, ServicesOf::kMachine, problem));
    EXPECT_THAT(problem.reason, HasSubstr("it is no name of a service")) << name;
  }
}

TEST(ScheduledOff, IsToldAndStopped) {
  const struct {
    const char* scheduled;
    bool isForbidden;
    std::optional<bool> told;
    std::vector<std::string> calls;
    const char* problem;
  } cases[] = {
      {"('poweroff', uint64 1900000000000000)", false, true, {"CancelScheduledShutdown"}, ""},
      {"('halt', uint64 1900000000000000)",
       true,
       true,
       {"CancelScheduledShutdown"},
       "shutdown that is scheduled: org.freedesktop.login1: GDBus"},
      {"('reboot', uint64 1900000000000000)", false, false, {}, ""},
      {"('', uint64 0)", false, false, {}, ""},
      {"'poweroff'",
       true,
       {},
       {"CancelScheduledShutdown"},
       "shutdown that is scheduled: org.freedesktop.login1: GDBus"},
  };
  const TestBus bus;
  setenv("DBUS_SYSTEM_BUS_ADDRESS", bus.Address(), 1);
  FixProblem problem;
  EXPECT_FALSE(AskScheduledOff().hasLogind);
  EXPECT_TRUE(CancelScheduledOff(problem)) << problem.reason;
  for (const auto& expected : cases) {
    std::mutex mutex;
    std::string scheduled = expected.scheduled;
    std::vector<std::string> calls;
    const PlayedService logind(bus, "org.freedesktop.login1", [&](GDBusMessage* call) {
      const std::lock_guard lock(mutex);
      GDBusMessage* const reply = g_dbus_message_new_method_reply(call);
      const std::string member = g_dbus_message_get_member(call);
      if (member == "Get") {
        g_dbus_message_set_body(reply, g_variant_new_parsed(("(<" + scheduled + ">,)").c_str()));
        return reply;
      }
      calls.push_back(member);
      if (expected.isForbidden) {
        g_object_unref(reply);
        return g_dbus_message_new_method_error_literal(call, "org.freedesktop.DBus.Error.AccessDenied",
                                                       "Not permitted");
      }
      scheduled = "('', uint64 0)";
      g_dbus_message_set_body(reply, g_variant_new("(b)", TRUE));
      return reply;
    });
    EXPECT_EQ(AskScheduledOff().isSet, expected.told) << expected.scheduled;
    problem = {};
    EXPECT_EQ(CancelScheduledOff(problem), *expected.problem == '\0') << expected.scheduled << problem.reason;
    EXPECT_THAT(problem.reason, HasSubstr(expected.problem));
    const std::lock_guard lock(mutex);
    EXPECT_EQ(calls, expected.calls) << expected.scheduled;
  }
}

TEST(ClockControl, IsMissedWhereATimeServiceIsThereAndNoneRuns) {
  const std::pair<std::map<std::string, Service>, const char*> cases[] = {
      {{}, "no"},
      {{{"chrony.service", {"inactive"}}}, "yes"},
      {{{"chrony.service", {"inactive"}}, {"ntp.service", {"active"}}}, "no"},
      {{{"chrony.service", {"activating"}}}, "no"},
      {{{"chrony.service", {"failed"}}}, "no"},
      {{{"ptp4l.service", {"inactive"}}}, "no"},
  };
  const TestBus bus;
  setenv("DBUS_SYSTEM_BUS_ADDRESS", bus.Address(), 1);
  Manager manager;
  const PlayedService systemd(bus, "org.freedesktop.systemd1",
                              [&](GDBusMessage* call) { return manager.Answer(call); });
  for (const auto& [services, expected] : cases) {
    manager.Play(services);
    trevlin::Facts facts;
    trevlin::MakeClockCollector()->Collect({}, facts);
    EXPECT_EQ(Told(facts["clock.time_service_off"]), expected);
  }
}

TEST(ClockControl, StartsTheTimeServiceAndTellsHowItWent) {
  const struct {
    const char* installed;  // by timedate1
    bool isForbidden;
    const char* stateAfter;  // of the service
    const char* problem;
  } cases[] = {
      {"true", false, "activating", ""},
      {"true", false, "active", ""},
      {"false", false, "active", "time service on: no time service is installed"},
      {"true", true, "active", "org.freedesktop.timedate1: GDBus.Error:org.freedesktop.DBus.Error.AccessDenied"},
      {"'x'", false, "active", "time service on: nothing on this"},
  };
  const TestBus bus;
  setenv("DBUS_SYSTEM_BUS_ADDRESS", bus.Address(), 1);
  FixProblem problem;
  EXPECT_FALSE(SynchroniseClock(problem));
  EXPECT_THAT(problem.reason, HasSubstr("time service on: nothing on this machine"));
  for (const auto& expected : cases) {
    std::atomic<bool> isOn = false;
    Manager manager;
    manager.Play({{"chrony.service", {"inactive"}}});
    const PlayedService systemd(bus, "org.freedesktop.systemd1",
                                [&](GDBusMessage* call) { return manager.Answer(call); });
    const PlayedService timedate(bus, "org.freedesktop.timedate1", [&](GDBusMessage* call) {
      if (g_str_equal(g_dbus_message_get_member(call), "SetNTP")) {
        if (expected.isForbidden)
          return g_dbus_message_new_method_error_literal(call, "org.freedesktop.DBus.Error.AccessDenied", "Not so");
        EXPECT_TRUE(g_variant_equal(g_dbus_message_get_body(call), g_variant_new_parsed("(true, false)")));
        isOn = true;
        manager.Play({{"chrony.service", {expected.stateAfter}}});
        return g_dbus_message_new_method_reply(call);
      }
      const char* property;
      g_variant_get(g_dbus_message_get_body(call), "(&s&s)", nullptr, &property);
      GDBusMessage* const reply = g_dbus_message_new_method_reply(call);
      const std::string value = g_str_equal(property, "NTP") ? isOn ? "true" : "false" : expected.installed;
      g_dbus_message_set_body(reply, g_variant_new_parsed(("(<" + value + ">,)").c_str()));
      return reply;
    });
    EXPECT_EQ(SynchroniseClock(problem), *expected.problem == '\0') << problem.reason;
    EXPECT_THAT(problem.reason, HasSubstr(expected.problem));
    EXPECT_EQ(isOn, *expected.problem == '\0') << expected.problem;
  }
}

// The settings are those of a real desktop's schema, in a file; logind takes up what stands in its folder.
class IdleMachine : public testing::Test {
 protected:
  void SetUp() override {
    if (unshare(CLONE_NEWNS) != 0 || mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
        mount("none", "/etc", "tmpfs", 0, nullptr) != 0)
      GTEST_SKIP() << "not root: no /etc of the test's own";
    const std::string folder = SystemPath("/schemas");
    WriteHostFile(folder + "/power.gschema.xml", kSchema);
    ASSERT_EQ(std::system(("glib-compile-schemas " + folder).c_str()), 0);
    setenv("GSETTINGS_SCHEMA_DIR", folder.c_str(), 1);
    setenv("GSETTINGS_BACKEND", "keyfile", 1);
    setenv("XDG_CONFIG_HOME", SystemPath("/settings").c_str(), 1);
    setenv("DBUS_SYSTEM_BUS_ADDRESS", m_bus.Address(), 1);
    setenv("DBUS_SESSION_BUS_ADDRESS", m_bus.Address(), 1);
  }

  GDBusMessage* Answer(GDBusMessage* call) {
    const std::string member = g_dbus_message_get_member(call);
    GDBusMessage* const reply = g_dbus_message_new_method_reply(call);
    if (member == "Get") {
      g_dbus_message_set_body(reply, g_variant_new("(v)", g_variant_new_string(m_idleAction.load())));
    } else if (m_permits) {
      m_idleAction = "ignore";
    } else {
      g_object_unref(reply);
      return g_dbus_message_new_method_error_literal(call, "org.test.Denied", "Not permitted");
    }
    return reply;
  }

  static constexpr char kDropIn[] = "/etc/systemd/logind.conf.d/zz-vexilo-idle.conf";
  static constexpr char kSchema[] = R"(<schemalist>
    <enum id="action"><value nick="nothing" value="0"/><value nick="suspend" value="1"/>
      <value nick="shutdown" value="2"/><value nick="hibernate" value="3"/></enum>
    <schema id="org.gnome.settings-daemon.plugins.power" path="/org/gnome/power/">
      <key name="sleep-inactive-ac-type" enum="action"><default>'suspend'</default></key>
      <key name="sleep-inactive-ac-timeout" type="i"><default>1200</default></key>
    </schema></schemalist>)";
  const TestBus m_bus;
  std::atomic<const char*> m_idleAction = "ignore";
  std::atomic<bool> m_permits = true;
  FixProblem m_problem;
};

TEST_F(IdleMachine, IsToldAndLeftOn) {
  EXPECT_FALSE(AskIdleOff().hasDecider);
  EXPECT_TRUE(StopIdleOff(m_problem)) << m_problem.reason;
  const auto answer = [this](GDBusMessage* call) { return Answer(call); };
  const PlayedService logind(m_bus, "org.freedesktop.login1", answer);
  const PlayedService systemd(m_bus, "org.freedesktop.systemd1", answer);
  for (const auto& [action, isOff] : {std::pair("ignore", false), {"suspend", false}, {"poweroff", true}}) {
    m_idleAction = action;
    EXPECT_EQ(AskIdleOff().isSet, isOff) << action;
  }
  m_permits = false;
  EXPECT_FALSE(StopIdleOff(m_problem));
  EXPECT_THAT(m_problem.reason, HasSubstr("stay on when nobody uses it: org.freedesktop.systemd1: "));
  EXPECT_FALSE(fs::exists(kDropIn)) << "what failed leaves nothing";
  m_permits = true;
  EXPECT_TRUE(StopIdleOff(m_problem)) << m_problem.reason;
  EXPECT_EQ(ReadHostFile(kDropIn), "[Login]\nIdleAction=ignore\n");
  EXPECT_EQ(AskIdleOff().isSet, false);

  const PlayedService desktop(m_bus, "org.gnome.SettingsDaemon.Power", answer);
  EXPECT_EQ(AskIdleOff().isSet, false) << "it sleeps";
  const GObjectHandle<GSettings> settings(g_settings_new("org.gnome.settings-daemon.plugins.power"));
  g_settings_set_string(settings.get(), "sleep-inactive-ac-type", "shutdown");
  EXPECT_EQ(AskIdleOff().isSet, true);
  g_settings_set_int(settings.get(), "sleep-inactive-ac-timeout", 0);
  EXPECT_EQ(AskIdleOff().isSet, false) << "never";
  g_settings_set_int(settings.get(), "sleep-inactive-ac-timeout", 600);
  EXPECT_TRUE(StopIdleOff(m_problem)) << m_problem.reason;
  EXPECT_EQ(AskIdleOff().isSet, false);
  EXPECT_EQ(GText(g_settings_get_string(settings.get(), "sleep-inactive-ac-type")).get(), "nothing"s);
}

}  // namespace
