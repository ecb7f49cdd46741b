// What the machine's package system tells of updates, and what is done about it: on captured machines, against services
// that the test plays, and with the real dpkg on records of the test's own.

#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/un.h>

#include "scheduled_off.h"
#include "support/captured_machine.h"
#include "support/files.h"
#include "support/test_bus.h"
#include "trevlin/collectors/collectors.h"
#include "trevlin/collectors/readings.h"
#include "update_control.h"

namespace {

constexpr char kWhole[] =
    "Package: tea\nStatus: install ok installed\n\nPackage: cup\nStatus: deinstall ok config-files\n\n";

/// "name=value" of the facts asked for.
std::string Tell(trevlin::Facts facts, std::initializer_list<const char*> names) {
  std::string all;
  for (const char* name : names) all += (all.empty() ? "" : " ") + Told(facts[std::string("updates.") + name]);
  return all;
}

void Link(const CapturedMachine& machine, const std::string& path, const std::string& target) {
  machine.Write({{path, ""}});
  fs::remove(machine.Get().Path(path));
  fs::create_symlink(target, machine.Get().Path(path));
}

/// The line of /proc/locks for a lock on the file by a process.
std::string Lock(const CapturedMachine& machine, const std::string& path, const char* kind, int process = 77) {
  struct stat file {};
  stat(machine.Get().Path(path).c_str(), &file);
  char line[128];
  std::snprintf(line, sizeof line, "1: POSIX  ADVISORY  %s %d %02x:%02x:%lu 0 EOF\n", kind, process, major(file.st_dev),
                minor(file.st_dev), file.st_ino);
  return line;
}

TEST(Updates, TellWhatDpkgDidNotFinish) {
  const std::pair<std::string, const char*> kCases[] = {
      {kWhole, "0 ?"},
      {std::string(kWhole) + "Package: pot\nStatus: install ok half-configured\n", "1 pot"},
      {"Package: a\nStatus: install reinstreq installed\n\nPackage: b\nStatus: install ok unpacked\n", "2 a"},
      {"Package: a\nStatus: install ok triggers-pending\n", "1 a"},
      {"Package: a\nStatus: hold ok installed\n", "0 ?"},
  };
  const auto collector = trevlin::MakeUpdatesCollector();
  const CapturedMachine machine({{"/var/lib/dpkg/lock", ""},
                                 {"/var/lib/dpkg/lock-frontend", ""},
                                 {"/proc/77/comm", "apt-get\n"},
                                 {"/proc/78/comm", "dpkg\n"},
                                 {"/proc/uptime", "36100 1"}});
  const auto told = [&] {
    return Tell(machine.Collect(*collector), {"interrupted", "interrupted_name", "work_hours"});
  };
  EXPECT_EQ(told(), "? ? ?") << "no dpkg";
  for (const auto& [records, expected] : kCases) {
    machine.Write({{"/var/lib/dpkg/status", records}});
    EXPECT_EQ(told(), expected + std::string(" ?")) << records;
  }
  machine.Write({{"/var/lib/dpkg/updates/0003", "Package: a\n"}, {"/var/lib/dpkg/updates/tmp.i", ""}});
  EXPECT_EQ(told(), "1 ? ?");
  // While somebody works on it, nothing is interrupted; who only reads does not.
  const std::string stat =
      "77 (apt get) S 1 1 0 0 -1 0 0 0 0 0 0 0 0 0 20 0 1 0 " + std::to_string(100 * sysconf(_SC_CLK_TCK)) + " 1 2\n";
  machine.Write({{"/proc/77/stat", stat}, {"/proc/locks", Lock(machine, "/var/lib/dpkg/lock", "READ ")}});
  EXPECT_EQ(told(), "1 ? ?");
  machine.Write({{"/proc/locks", Lock(machine, "/var/lib/dpkg/lock", "WRITE")}});
  EXPECT_EQ(told(), "? ? 10");
  machine.Write({{"/proc/77/comm", "packagekitd\n"}});
  EXPECT_EQ(told(), "? ? ?") << "a daemon was there before";
  for (const char* program : {"synaptic", "aptitude"}) {
    machine.Write({{"/proc/77/comm", program}, {"/proc/78/stat", stat}});
    const std::string open = Lock(machine, "/var/lib/dpkg/lock-frontend", "WRITE");
    machine.Write({{"/proc/locks", open}});
    EXPECT_EQ(told(), "? ? 0") << program << " is open";
    machine.Write({{"/proc/locks", open + Lock(machine, "/var/lib/dpkg/lock", "WRITE", 78)}});
    EXPECT_EQ(told(), "? ? 10") << program << " installs";
  }
}

TEST(Updates, TellWhatTheMachineDoesByItself) {
  const std::string units = "/usr/lib/systemd/system/", links = "/etc/systemd/system/", daily = "apt-daily",
                    both = "apt-daily apt-daily-upgrade", settings = "/etc/apt/apt.conf.d/20auto-upgrades";
  const Files none, timers = {{units + "dnf-automatic.timer", ""}, {units + "dnf-automatic-install.timer", ""}};
  const auto apt = [&](const std::string& first, const std::string& later = "") {
    return Files{{"/usr/bin/unattended-upgrade", ""},
                 {"/run/systemd/system/x", ""},
                 {"/var/lib/apt/lists/x", ""},
                 {settings, first},
                 {"/etc/apt/apt.conf.d/99own", later}};
  };
  const std::string on = "APT::Periodic::Update-Package-Lists \"1\";\nAPT::Periodic::Unattended-Upgrade \"1\";\n";
  const std::string nested = "apt { periodic { Update-Package-Lists 1; /* x */ Unattended-Upgrade \"7d\"; }; };";
  const struct {
    const char* what;
    Files files;
    std::string enabled, masked;
    const char* expected;  // installs, refreshes
  } kCases[] = {
      {"nothing that could", none, "", "", "? ?"},
      {"on", apt(on), both, "", "yes yes"},
      {"written otherwise", apt(nested), both, "", "yes yes"},
      {"only lists", apt(on, "// \"1\"\nAPT::Periodic { Unattended-Upgrade \"0\"; };"), both, "", "no yes"},
      {"all off", apt(on, "APT::Periodic::Enable \"0\"; # no\n"), both, "", "no no"},
      {"without a timer", apt(on), daily, "", "no no"},
      {"with a masked one", apt(on), both, "apt-daily-upgrade", "no no"},
      {"never set up", apt(""), both, "", "no no"},
      {"in a backup", With(apt(""), {{settings + ".bak", on}}), both, "", "no no"},
      {"an image", With(apt(on), {{"/run/ostree-booted", ""}}), both, "", "? yes"},
      {"dnf that only fetches", timers, "dnf-automatic", "", "no ?"},
      {"dnf that installs", timers, "dnf-automatic-install", "", "yes ?"},
      {"dnf that is told to", With(timers, {{"/etc/dnf/automatic.conf", "[commands]\napply_updates = Yes\n"}}),
       "dnf-automatic", "", "yes ?"},
      {"dnf's lists", {{units + "dnf-makecache.timer", ""}}, "dnf-makecache", "", "? yes"},
  };
  const auto collector = trevlin::MakeUpdatesCollector();
  for (const auto& each : kCases) {
    const CapturedMachine machine(each.files);
    for (const std::string_view unit : trevlin::SplitWords(each.enabled))
      Link(machine, links + "timers.target.wants/" + std::string(unit) + ".timer", "/lib/systemd/system/x");
    if (!each.masked.empty()) Link(machine, links + each.masked + ".timer", "/dev/null");
    EXPECT_EQ(Tell(machine.Collect(*collector), {"automatic", "refresh_on"}), each.expected) << each.what;
  }
}

TEST(Updates, TellHowOldTheListsAreAndWhatFailedAtTheStart) {
  const CapturedMachine machine({{"/var/lib/apt/lists/x", ""}, {"/var/cache/libdnf5/y/repodata/repomd.xml", ""}});
  const auto collector = trevlin::MakeUpdatesCollector();
  const auto age = [&](const char* path, int days) {
    fs::last_write_time(machine.Get().Path(path), fs::file_time_type::clock::now() - std::chrono::hours(24 * days));
  };
  age("/var/lib/apt/lists", 90);
  age("/var/cache/libdnf5/y/repodata/repomd.xml", 40);
  auto facts = machine.Collect(*collector);
  EXPECT_NEAR(std::get<double>(facts.at("updates.list_age_days")), 40, 0.1);
  EXPECT_FALSE(facts.contains("updates.start_failed"));
  for (const auto& [success, told] : {std::pair("false", "yes"), std::pair("true", "no")}) {
    machine.Write({{"/var/lib/PackageKit/offline-update-competed",
                    "[PackageKit Offline Update Results]\nSuccess="s + success + "\nErrorCode=no-space-on-device\n"}});
    EXPECT_EQ(Tell(machine.Collect(*collector), {"start_failed"}), told);
  }
}

/// Folders of this process alone, empty.
bool HaveOwn(std::initializer_list<const char*> folders) {
  bool isDone = unshare(CLONE_NEWNS) == 0 && mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
  for (const char* folder : folders) isDone = isDone && mount("none", folder, "tmpfs", 0, nullptr) == 0;
  return isDone;
}

/// systemd's answer about two services.
std::string Units(const std::string& daily, const std::string& upgrade) {
  return "([('apt-daily.service', '', 'loaded', '" + daily + "', '', '', @o '/a', @u 0, '', @o '/'), " +
         "('apt-daily-upgrade.service', '', 'loaded', '" + upgrade + "', '', '', @o '/b', @u 0, '', @o '/')],)";
}

GDBusMessage* Reply(GDBusMessage* call, const char* values = nullptr) {
  GDBusMessage* const reply = g_dbus_message_new_method_reply(call);
  if (values) g_dbus_message_set_body(reply, g_variant_new_parsed(values));
  return reply;
}

// A bus that takes connections and answers nobody: nothing is told that could clear an issue.
TEST(Updates, StayOpenWhileTheBusIsSilent) {
  const std::string silent = SystemPath("/silent");
  const FdHandle listener(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  silent.copy(address.sun_path, sizeof address.sun_path - 1);
  ASSERT_EQ(bind(listener.get(), reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
  ASSERT_EQ(listen(listener.get(), 9), 0);
  const auto told = [] {
    trevlin::Facts updates, services, schedule;
    trevlin::MakeUpdatesCollector()->Collect({}, updates);
    trevlin::MakeServicesCollector()->Collect({}, services);
    trevlin::MakeScheduleCollector()->Collect({}, schedule);
    const auto tell = [](const trevlin::Facts& facts, const char* fact) {
      return std::string(!facts.contains(fact)                                    ? "absent"
                         : std::holds_alternative<std::monostate>(facts.at(fact)) ? "open"
                                                                                  : "told");
    };
    return tell(updates, "updates.work_hours") + " " + tell(services, "services.failed_names") + " " +
           tell(schedule, "schedule.off");
  };
  setenv("DBUS_SYSTEM_BUS_ADDRESS", ("unix:path=" + silent).c_str(), 1);
  EXPECT_EQ(told(), "open open open");
  FixProblem problem;
  EXPECT_FALSE(CancelScheduledOff(problem));
  EXPECT_THAT(problem.reason, HasSubstr("the bus does not answer"));
  setenv("DBUS_SYSTEM_BUS_ADDRESS", "unix:path=/nowhere", 1);
  EXPECT_EQ(told(), "told absent absent") << "a machine without systemd";
}

// The real dpkg with records of its own, and a package whose set-up fails while a file is missing.
TEST(UpdateControl, RepairsWhatDpkgReallyDidNotFinish) {
  if (std::system("dpkg-deb --version >/dev/null") != 0) GTEST_SKIP() << "no dpkg on this machine";
  if (geteuid() != 0 || !HaveOwn({"/var/lib", "/var/cache", "/var/log", "/etc/apt"}))
    GTEST_SKIP() << "not root: no folders of the test's own";
  setenv("DBUS_SYSTEM_BUS_ADDRESS", "unix:path=/nowhere/at/all", 1);
  const std::string work = SystemPath("/package"), cure = SystemPath("/cure");
  WriteHostFile(work + "/DEBIAN/control",
                "Package: teapot\nVersion: 1\nArchitecture: all\nMaintainer: M <m@example.org>\nDescription: d\n");
  WriteHostFile(work + "/DEBIAN/postinst", "#!/bin/sh\ntest -e " + cure + "\n");
  chmod((work + "/DEBIAN/postinst").c_str(), 0755);
  WriteHostFile("/var/lib/dpkg/status", "");
  fs::create_directories("/var/lib/dpkg/info");
  fs::create_directories("/var/lib/dpkg/updates");
  fs::create_directories("/var/lib/apt/lists/partial");
  fs::create_directories("/var/cache/apt/archives/partial");
  const std::string quiet = " >/dev/null 2>&1";
  ASSERT_EQ(std::system(("dpkg-deb -b " + work + " " + work + ".deb" + quiet).c_str()), 0);
  ASSERT_NE(std::system(("dpkg -i " + work + ".deb" + quiet).c_str()), 0);
  const auto collector = trevlin::MakeUpdatesCollector();
  const auto told = [&] {
    trevlin::Facts facts;
    collector->Collect({}, facts);
    return Tell(facts, {"interrupted", "interrupted_name"});
  };
  FixProblem problem;
  EXPECT_EQ(told(), "1 teapot");
  EXPECT_FALSE(RepairSoftware(problem));
  EXPECT_THAT(problem.reason, HasSubstr("teapot is still not whole; by hand: sudo dpkg --configure -a"));
  EXPECT_EQ(told(), "1 teapot");
  WriteHostFile(cure, "");
  const pid_t holder = fork();  // who asks does not see a lock of its own
  if (holder == 0) {
    const int lock = open("/var/lib/dpkg/lock", O_RDWR | O_CREAT | O_CLOEXEC, 0640);
    struct flock all {};
    all.l_type = F_WRLCK;
    fcntl(lock, F_SETLK, &all);
    for (;;) pause();
  }
  for (int i = 0; i < 100 && told() != "? ?"; ++i) std::this_thread::sleep_for(20ms);
  EXPECT_EQ(told(), "? ?");
  EXPECT_FALSE(RepairSoftware(problem));
  EXPECT_THAT(problem.reason, HasSubstr(" is at work on it"));
  kill(holder, SIGKILL);
  waitpid(holder, nullptr, 0);
  EXPECT_TRUE(RepairSoftware(problem)) << problem.reason;
  EXPECT_EQ(told(), "0 ?");
}

TEST(UpdateControl, FetchesTheListsAndHasFailedServicesTryAgain) {
  const struct {
    const char* what;
    guint32 exit;            // PackageKit's, 0: it refuses
    const char* afterwards;  // the service's state; null: systemd refuses to tell
    const char* problem;
  } kCases[] = {
      {"all is well", 1, "inactive", ""},
      {"the lists do not come", 2, "inactive", "cannot fetch updates: no network; by hand: sudo "},
      {"not permitted", 0, "inactive", "Not so; by hand: sudo "},
      {"systemd tells no more", 1, nullptr, "cannot fetch updates: GDBus.Error:org.test.Gone: Gone"},
      {"the service fails anew", 1, "failed", "cannot fetch updates: apt-daily.service fails again"},
  };
  if (!HaveOwn({"/var/lib", "/var/cache"}))
    GTEST_SKIP() << "not root: no folders of the test's own, and somebody's real work may be met";
  const std::string atStart = "/var/lib/PackageKit/offline-update-competed";
  const TestBus bus;
  setenv("DBUS_SYSTEM_BUS_ADDRESS", bus.Address(), 1);
  for (const auto& each : kCases) {
    std::atomic<bool> isStarted = false;
    const PlayedService kit(bus, "org.freedesktop.PackageKit", [&](GDBusMessage* call) {
      const std::string_view member = g_dbus_message_get_member(call);
      if (member == "CreateTransaction") return Reply(call, "(@o '/77',)");
      if (member == "ClearResults") fs::remove(atStart);
      if (member != "RefreshCache") return Reply(call);
      if (each.exit == 0) return g_dbus_message_new_method_error_literal(call, "org.test.Denied", "Not so");
      const char* const interface = "org.freedesktop.PackageKit.Transaction";
      if (each.exit == 2) kit.Emit("/77", interface, "ErrorCode", g_variant_new("(us)", 2u, "no network"));
      kit.Emit("/77", interface, "Finished", g_variant_new("(uu)", each.exit, 5u));
      return Reply(call);
    });
    const PlayedService systemd(bus, "org.freedesktop.systemd1", [&](GDBusMessage* call) {
      if (g_str_equal(g_dbus_message_get_member(call), "StartUnit")) {
        isStarted = true;
        return Reply(call, "(@o '/job',)");
      }
      if (isStarted && !each.afterwards) return g_dbus_message_new_method_error_literal(call, "org.test.Gone", "Gone");
      return Reply(call, Units(isStarted ? each.afterwards : "failed", "active").c_str());
    });
    WriteHostFile(atStart, "[PackageKit Offline Update Results]\nSuccess=false\n");
    FixProblem problem;
    EXPECT_EQ(RefreshUpdates(problem), *each.problem == '\0') << each.what << problem.reason;
    EXPECT_EQ(fs::exists(atStart), *each.problem != '\0') << each.what;
    EXPECT_THAT(problem.reason, HasSubstr(each.problem)) << each.what;
    EXPECT_EQ(isStarted, each.exit == 1) << each.what;
  }
}

/// Ten hours after the start of the machine, as this process sees it.
TEST(UpdateControl, TellsWhatHangsAndEndsItWhileItFetches) {
  if (unshare(CLONE_NEWTIME) != 0 || !HaveOwn({"/var/lib", "/var/cache"}))
    GTEST_SKIP() << "not root: no clock of the test's own";
  std::ofstream("/proc/self/timens_offsets") << "monotonic 36000 0\n";
  const pid_t later = fork();  // the clock is its children's
  if (later == 0) {
    const TestBus bus;
    setenv("DBUS_SYSTEM_BUS_ADDRESS", bus.Address(), 1);
    std::mutex mutex;
    std::vector<std::string> stopped;
    const PlayedService systemd(bus, "org.freedesktop.systemd1", [&](GDBusMessage* call) {
      const std::lock_guard lock(mutex);
      const std::string_view member = g_dbus_message_get_member(call);
      if (member == "Get") return Reply(call, "(<uint64 7>,)");
      if (member == "StopUnit") {
        const char* name;
        g_variant_get(g_dbus_message_get_body(call), "(&s&s)", &name, nullptr);
        stopped.emplace_back(name);
        return Reply(call, "(@o '/job',)");
      }
      return Reply(call, Units(stopped.empty() ? "activating" : "failed", "activating").c_str());
    });
    const PlayedService kit(bus, "org.freedesktop.PackageKit", [&](GDBusMessage* call) {
      return g_dbus_message_new_method_error_literal(call, "org.test.Denied", "Not so");
    });
    trevlin::Facts facts;
    trevlin::MakeUpdatesCollector()->Collect({}, facts);
    EXPECT_GE(std::get<double>(facts["updates.work_hours"]), 10);
    FixProblem problem;
    EXPECT_FALSE(RefreshUpdates(problem));
    EXPECT_THAT(problem.reason, HasSubstr("Not so"));
    EXPECT_THAT(stopped, testing::ElementsAre("apt-daily.service"));
    _exit(HasFailure() ? 1 : 0);
  }
  int status = -1;
  waitpid(later, &status, 0);
  EXPECT_EQ(status, 0);
}

TEST(UpdateControl, SwitchesOnWhatTheMachineReads) {
  const TestBus bus;
  setenv("DBUS_SYSTEM_BUS_ADDRESS", bus.Address(), 1);
  if (geteuid() != 0 || !HaveOwn({"/etc", "/run", "/usr/bin", "/usr/lib/systemd"}))
    GTEST_SKIP() << "not root: no folders of the test's own";
  fs::create_directories("/run/systemd/system");
  fs::create_directories("/etc/apt/apt.conf.d");
  bool isPermitted = false;
  std::mutex mutex;
  const PlayedService systemd(bus, "org.freedesktop.systemd1", [&](GDBusMessage* call) {
    const std::lock_guard lock(mutex);
    const std::string_view member = g_dbus_message_get_member(call);
    if (!isPermitted) return g_dbus_message_new_method_error_literal(call, "org.test.Denied", "Not so");
    if (member != "EnableUnitFiles") return Reply(call, member == "StartUnit" ? "(@o '/job',)" : nullptr);
    GVariantIter* names;
    g_variant_get(g_dbus_message_get_body(call), "(asbb)", &names, nullptr, nullptr);
    fs::create_directories("/etc/systemd/system/timers.target.wants");
    for (const char* name; g_variant_iter_next(names, "&s", &name);)
      fs::create_symlink("/lib/systemd/system/"s + name, "/etc/systemd/system/timers.target.wants/"s + name);
    g_variant_iter_free(names);
    return Reply(call, "(true, @a(sss) [])");
  });
  const auto permit = [&](bool permitted) {
    const std::lock_guard lock(mutex);
    isPermitted = permitted;
  };
  const auto told = [] {
    trevlin::Facts facts;
    trevlin::MakeUpdatesCollector()->Collect({}, facts);
    return Tell(facts, {"automatic"});
  };
  FixProblem problem;
  EXPECT_FALSE(SwitchAutomaticUpdatesOn(problem));
  EXPECT_THAT(problem.reason, HasSubstr("nothing on this machine installs them"));
  EXPECT_EQ(told(), "?");

  WriteHostFile("/usr/lib/systemd/system/dnf5-automatic.timer", "");
  WriteHostFile("/etc/dnf/automatic.conf", "# mine\n[commands]\napply_updates = no\nrandom_sleep = 9\n");
  EXPECT_EQ(told(), "no");
  EXPECT_FALSE(SwitchAutomaticUpdatesOn(problem));
  EXPECT_THAT(problem.reason, HasSubstr("Not so; by hand: sudo systemctl enable --now dnf5-automatic.timer"));
  permit(true);
  EXPECT_TRUE(SwitchAutomaticUpdatesOn(problem)) << problem.reason;
  EXPECT_EQ(told(), "yes");
  EXPECT_EQ(ReadHostFile("/etc/dnf/automatic.conf"), "# mine\n\n[commands]\napply_updates=yes\nrandom_sleep=9\n");

  WriteHostFile("/usr/bin/unattended-upgrade", "");
  const std::string settings = "/etc/apt/apt.conf.d/20auto-upgrades", later = "/etc/apt/apt.conf.d/99own";
  WriteHostFile(settings, "APT::Periodic::Unattended-Upgrade \"0\";\nAPT::Periodic::AutocleanInterval \"7\";\n");
  WriteHostFile(later, "APT::Periodic::Unattended-Upgrade \"0\";\n");
  EXPECT_EQ(told(), "no");
  EXPECT_FALSE(SwitchAutomaticUpdatesOn(problem));
  EXPECT_THAT(problem.reason, HasSubstr("another setting of the machine keeps them off"));
  fs::remove(later);
  EXPECT_TRUE(SwitchAutomaticUpdatesOn(problem)) << problem.reason;
  EXPECT_EQ(told(), "yes");
  EXPECT_EQ(ReadHostFile(settings),
            "APT::Periodic::AutocleanInterval \"7\";\nAPT::Periodic::Update-Package-Lists \"1\";\n"
            "APT::Periodic::Unattended-Upgrade \"1\";\n");
}

/// The desktop's setting, kept in a file, of an ordinary user without any other means.
TEST(UpdateControl, SwitchesTheDesktopsSettingOn) {
  const std::string schemas = SystemPath("/schemas"), store = SystemPath("/config");
  WriteHostFile(schemas + "/a.gschema.xml",
                "<schemalist><schema id='org.gnome.software' path='/a/'><key name='download-updates' type='b'>"
                "<default>false</default></key></schema></schemalist>");
  if (std::system(("glib-compile-schemas " + schemas).c_str()) != 0) GTEST_SKIP() << "no glib-compile-schemas";
  if (geteuid() != 0 || !HaveOwn({"/usr/bin", "/usr/lib/systemd"})) GTEST_SKIP() << "not root: no machine of its own";
  fs::create_directories(store);
  setenv("GSETTINGS_SCHEMA_DIR", schemas.c_str(), 1);
  setenv("GSETTINGS_BACKEND", "keyfile", 1);
  setenv("XDG_CONFIG_HOME", store.c_str(), 1);
  constexpr uid_t kUser = 12345;
  ASSERT_EQ(chown(store.c_str(), kUser, kUser), 0);
  fs::permissions(SystemPath(""), fs::perms::others_exec, fs::perm_options::add);
  ASSERT_EQ(setresuid(kUser, kUser, kUser), 0);
  const auto told = [] {
    trevlin::Facts facts;
    trevlin::MakeUpdatesCollector()->Collect({}, facts);
    return Tell(facts, {"automatic"});
  };
  FixProblem problem;
  EXPECT_EQ(told(), "no");
  EXPECT_TRUE(SwitchAutomaticUpdatesOn(problem)) << problem.reason;
  EXPECT_EQ(told(), "yes");
}

}  // namespace
