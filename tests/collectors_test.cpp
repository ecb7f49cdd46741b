// The facts of machines that are made of files, and of this one.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/stat.h>

#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <set>
#include <variant>

#include "base/glib_handle.h"
#include "base/session_bus.h"
#include "set_paths.h"
#include "support/captured_machine.h"
#include "support/process.h"
#include "trevlin/collectors/collectors.h"
#include "trevlin/collectors/readings.h"

namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using trevlin::Facts;

Facts CollectAll(const CapturedMachine& machine) {
  Facts facts;
  for (const auto& collector : trevlin::MakeCollectors()) facts.merge(machine.Collect(*collector));
  return facts;
}

/// `expected`: "fact=value" between blanks; "?" for unknown, numbers to a hundredth.
void Expect(const Facts& facts, const std::string& expected) {
  for (const std::string_view word : trevlin::SplitWords(expected)) {
    const size_t equals = word.find('=');
    const auto found = facts.find(word.substr(0, equals));
    std::string value = "?";
    if (found != facts.end()) {
      if (const auto* number = std::get_if<double>(&found->second))
        value = testing::PrintToString(std::round(*number * 100) / 100);
      else if (const auto* truth = std::get_if<bool>(&found->second))
        value = *truth ? "true" : "false";
      else
        value = std::get<std::string>(found->second);
    }
    EXPECT_EQ(value, word.substr(equals + 1)) << word;
  }
}

const Files kTvBox = {
    {"/proc/uptime", "259200.00 900000.00\n"},
    {"/proc/sys/kernel/random/boot_id", "box\n"},
    {"/proc/meminfo",
     "MemTotal:        2048000 kB\nMemFree:           10000 kB\nMemAvailable:     204800 kB\n"
     "SwapCached:         5120 kB\nSwapTotal:        102400 kB\nSwapFree:          46080 kB\n"},
    {"/proc/vmstat", "nr_free_pages 2500\noom_kill 7\n"},
    {"/proc/loadavg", "8.40 2.00 0.50 3/300 4242\n"},
    {"/proc/stat", "cpu  1 2 3\ncpu0 1 2 3\ncpu1 1 2 3\ncpu2 1 2 3\ncpu3 1 2 3\nintr 1 0 2\n"},
    {"/proc/self/mountinfo",
     "21 1 179:2 / / ro,relatime - squashfs /dev/mmcblk0p2 ro\n"
     "22 21 179:5 / /opt rw,noatime shared:3 - ext4 /dev/mmcblk0p5 ro,errors=remount-ro\n"},
    {"/etc/fstab", "# the box\n/dev/mmcblk0p2 / squashfs ro 0 0\n/dev/mmcblk0p5 /opt ext4 noatime 0 2\n"},
    {"/etc/localtime", "TZif2"},
    {"/sys/fs/ext4/mmcblk0p5/errors_count", "3\n"},
    {"/sys/fs/ext4/features/lazy_itable_init", "supported\n"},
    {"/sys/block/mmcblk0/device/life_time", "0x03 0x0a\n"},
    {"/sys/block/mmcblk0/device/pre_eol_info", "0x02\n"},
    {"/sys/block/mmcblk1/device/type", "SD\n"},
    {"/sys/class/thermal/thermal_zone0/type", "soc_thermal\n"},
    {"/sys/class/thermal/thermal_zone0/temp", "71500\n"},
    {"/sys/class/thermal/thermal_zone1/type", "gpu_thermal\n"},
    {"/sys/class/thermal/thermal_zone1/temp", "99000\n"},
    {"/sys/class/thermal/thermal_zone2/type", "ddr_thermal\n"},
    {"/sys/class/thermal/thermal_zone2/temp", "-273200\n"},
    {"/sys/class/thermal/cooling_device0/type", "cpufreq-cpu0\n"},
    {"/sys/class/thermal/cooling_device0/cur_state", "2\n"},
    {"/sys/class/watchdog/watchdog0/bootstatus", "32\n"},
};

const Files kPc = {
    {"/proc/uptime", "3600.00 10000.00\n"},
    {"/proc/meminfo", "MemTotal: 16000000 kB\nMemAvailable: 8000000 kB\nSwapTotal: 0 kB\nSwapFree: 0 kB\n"},
    {"/proc/vmstat", "oom_kill_disable 9\noom_kill 2\n"},
    {"/proc/pressure/memory",
     "some avg10=9.00 avg60=12.34 avg300=1.00 total=5\nfull avg10=0.00 avg60=0.00 avg300=0.00 total=1\n"},
    {"/proc/pressure/cpu", "some avg10=0.00 avg60=0.50 avg300=0.00 total=5\n"},
    {"/proc/self/mountinfo",
     "30 1 0:25 /@ / rw,relatime shared:1 - btrfs /dev/nvme0n1p2 rw,space_cache\n"
     "31 30 0:25 /@opt /opt ro,relatime shared:2 - btrfs /dev/nvme0n1p2 rw,space_cache\n"},
    {"/etc/fstab", "UUID=1 / btrfs defaults 0 0\nUUID=1 /opt btrfs defaults 0 0\n"},
    {"/sys/class/hwmon/hwmon0/name", "coretemp\n"},
    {"/sys/class/hwmon/hwmon0/temp1_input", "48000\n"},
    {"/sys/class/hwmon/hwmon0/temp2_input", "52000\n"},
    {"/sys/class/hwmon/hwmon0/temp2_crit", "100000\n"},
    {"/sys/class/hwmon/hwmon1/name", "nvme\n"},
    {"/sys/class/hwmon/hwmon1/temp1_input", "80000\n"},
    {"/sys/class/thermal/thermal_zone0/type", "acpitz\n"},
    {"/sys/class/thermal/thermal_zone0/temp", "0\n"},
    {"/sys/class/thermal/cooling_device0/type", "Processor\n"},
    {"/sys/class/thermal/cooling_device0/cur_state", "0\n"},
    {"/sys/class/thermal/cooling_device1/type", "Fan\n"},
    {"/sys/class/thermal/cooling_device1/cur_state", "1\n"},
    {"/sys/class/power_supply/hid-mouse/type", "Battery\n"},
    {"/sys/class/power_supply/hid-mouse/scope", "Device\n"},
    {"/sys/class/power_supply/hid-mouse/capacity", "4\n"},
    {"/sys/class/power_supply/hid-mouse/status", "Discharging\n"},
    {"/sys/class/watchdog/watchdog0/bootstatus", "0\n"},
};

const Files kBoard = {
    {"/sys/devices/platform/soc/soc:firmware/get_throttled", "50005\n"},
    {"/sys/class/hwmon/hwmon0/name", "cpu_thermal\n"},
    {"/sys/class/hwmon/hwmon0/temp1_input", "83\n"},
    {"/sys/class/hwmon/hwmon1/name", "rpi_volt\n"},
    {"/sys/class/hwmon/hwmon1/in0_lcrit_alarm", "0\n"},
    {"/sys/class/power_supply/BAT0/type", "Battery\n"},
    {"/sys/class/power_supply/BAT0/capacity", "9\n"},
    {"/sys/class/power_supply/BAT0/status", "Discharging\n"},
    {"/sys/class/power_supply/AC/type", "Mains\n"},
    {"/sys/class/power_supply/AC/online", "0\n"},
    {"/run/systemd/timesync/synchronized", ""},
    {"/etc/hostname", "board\n"},
};

TEST(Collectors, TellWhatEachMachineGives) {
  const struct {
    const char* name;
    const Files& files;
    const char* expected;
  } kMachines[] = {
      {"TV box", kTvBox,
       "memory.available_percent=10 memory.available_mib=200 memory.swap_used_percent=50 "
       "memory.pressure_some_avg60=? memory.oom_kills_recent=? cpu.load_per_core=2.1 cpu.load5_per_core=0.5 "
       "cpu.temperature=71.5 cpu.throttled=true storage.read_only=true storage.system_read_only_error=true "
       "storage.fs_errors=3 storage.wear_percent=100 storage.pre_eol=true storage.free_percent=? power.uptime_days=3 "
       "power.watchdog_reset=true power.undervoltage=? power.on_battery_low=? clock.zone=true clock.synchronised=? "
       "services.crashes_week=? services.failed=?"},
      {"PC after its memory ran out", kPc,
       "memory.available_percent=50 memory.swap_used_percent=? memory.pressure_some_avg60=12.34 "
       "cpu.pressure_some_avg60=0.5 memory.oom_kills_recent=2 cpu.load_per_core=? cpu.temperature=52 "
       "cpu.throttled=false storage.read_only=false storage.system_read_only_error=false storage.fs_errors=? "
       "storage.wear_percent=? storage.pre_eol=? power.watchdog_reset=false power.on_battery_low=? clock.zone=false"},
      {"throttled board on a battery", kBoard,
       "cpu.temperature=83 cpu.throttled=true power.undervoltage=true power.on_battery_low=true "
       "clock.synchronised=true clock.zone=false power.uptime_days=? storage.read_only=?"},
      {"virtual machine",
       {{"/proc/loadavg", "0.50 0.40 0.30 1/80 99\n"}, {"/proc/stat", "cpu  1\ncpu0 1\ncpu1 1\n"}},
       "cpu.load_per_core=0.25 cpu.temperature=? cpu.throttled=? power.undervoltage=? power.watchdog_reset=? "
       "clock.zone=? storage.system_read_only_error=? memory.available_mib=?"},
  };
  for (const auto& each : kMachines) {
    SCOPED_TRACE(each.name);
    Expect(CollectAll(CapturedMachine(each.files)), each.expected);
    fs::remove_all(SystemPath(set_paths::kHostRun) + "/trevlin");
  }
}

TEST(Collectors, TellNothingOfFilesThatMakeNoSense) {
  // What remains are facts of the set, and of what is there or not.
  const std::set<std::string> kAlways = {"clock.zone",         "clock.synchronised",  "packages.broken",
                                         "packages.cache_mib", "packages.unfinished", "set.tuners"};
  std::set<std::string> mine;
  for (const auto make : {trevlin::MakeStorageCollector, trevlin::MakeMemoryCollector, trevlin::MakeCpuCollector,
                          trevlin::MakePowerCollector, trevlin::MakeClockCollector, trevlin::MakeServicesCollector})
    for (const auto& fact : make()->Describe()) mine.emplace(fact.name);
  const std::string contents[] = {"",
                                  "\n\n",
                                  std::string(5000, '\0'),
                                  "\xff\xfe\x80 \x01",
                                  "99999999999999999999999999999999999",
                                  "-7777777777777777777777",
                                  "nan",
                                  std::string(1000000, '9'),
                                  "some avg60 - - - - - -\n"};
  for (const std::string& content : contents) {
    SCOPED_TRACE(content.substr(0, 40));
    for (const Files& files : {kTvBox, kPc, kBoard}) {
      CapturedMachine machine(files);
      for (const auto& [path, original] : files) machine.Write({{path, content}});
      for (const auto& [name, value] : CollectAll(machine))
        EXPECT_TRUE(!mine.contains(name) || kAlways.contains(name)) << name;
    }
  }
}

TEST(Collectors, TellAFileSystemThatFailedFromOneThatOnlyReads) {
  const struct {
    const char* name;
    const char* mounts;
    const char* fstab;
    bool readOnly;
    bool error;
  } kCases[] = {
      {"writable", "22 1 8:1 / / rw - ext4 /dev/sda1 rw", "/dev/sda1 / ext4 defaults 0 1", false, false},
      {"asked for", "22 1 8:1 / / ro - ext4 /dev/sda1 ro", "/dev/sda1 / ext4 noatime,ro 0 1", false, false},
      {"came so after boot", "22 1 8:1 / / ro - ext4 /dev/sda1 ro", "/dev/sda1 / ext4 defaults 0 1", true, false},
      {"after an error", "22 1 8:1 / / rw - ext4 /dev/sda1 ro", "", true, true},
      {"newer kernels' way", "22 1 8:1 / / rw - ext4 /dev/sda1 rw,emergency_ro", "", true, true},
      {"sandbox", "22 1 8:1 / / ro - ext4 /dev/sda1 rw", "/dev/sda1 / ext4 defaults 0 1", false, false},
      {"image", "22 1 7:0 / / ro - squashfs /dev/loop0 ro", "", false, false},
      {"bind mount of a system that only reads",
       "22 1 8:1 / / ro - ext4 /dev/sda1 ro\n23 22 8:1 /x /etc/hosts rw - ext4 /dev/sda1 ro", "", false, false},
      {"only another disk", "22 1 8:1 / / rw - ext4 /dev/sda1 rw\n23 22 8:2 / /my\\040data rw - xfs /dev/sda2 ro", "",
       false, true},
      {"the last mount at a point counts",
       "22 1 8:1 / /opt rw - ext4 /dev/sda1 ro\n23 22 0:9 / /opt rw - overlay overlay rw", "", false, true},
  };
  const auto storage = trevlin::MakeStorageCollector();
  for (const auto& each : kCases) {
    SCOPED_TRACE(each.name);
    const CapturedMachine machine({{"/proc/self/mountinfo", each.mounts}, {"/etc/fstab", each.fstab}});
    const auto text = [](bool truth) { return truth ? "true" : "false"; };
    Expect(machine.Collect(*storage), std::string("storage.read_only=") + text(each.readOnly) +
                                          " storage.system_read_only_error=" + text(each.error));
  }
}

TEST(Readings, CountersRememberAndStartAnew) {
  constexpr auto kNothing = std::nullopt;
  const struct {
    const char* what;
    const char* boot;
    double seconds, value;
    std::optional<double> rise;
  } kSteps[] = {
      {"first, long after the start", "a", 10000, 50, kNothing},
      {"has risen", "a", 10100, 53, 3},
      {"seen in the window", "a", 10500, 53, 3},
      {"nothing new within the window", "a", 10950, 53, 0},
      {"began again at 0", "a", 11000, 2, 2},
      {"and again is kept", "a", 11001, 60, 60},
      {"long unseen, nobody knows when", "a", 50000, 70, kNothing},
      {"long unseen, but as it was", "a", 90000, 70, 0},
      {"another start, within the window", "b", 60, 4, 4},
      {"another one, later", "c", 5000, 4, kNothing},
      {"a clock that ran back", "c", 4000, 9, kNothing},
  };
  const CapturedMachine machine({});
  for (const auto& step : kSteps) {
    SCOPED_TRACE(step.what);
    machine.Write({{"/proc/uptime", std::to_string(step.seconds) + " 1\n"},
                   {"/proc/sys/kernel/random/boot_id", std::string(step.boot) + "\n"}});
    const auto rise = RiseWithin(machine.Get(), "counter", step.value, 600s);
    EXPECT_EQ(rise, step.rise);
  }
  const std::string kept = SystemPath(set_paths::kHostRun) + "/trevlin/counter";
  for (int second = 0; second < 5000; second += 10) {
    machine.Write({{"/proc/uptime", std::to_string(9000 + second)}});
    RiseWithin(machine.Get(), "counter", second, 600s);
  }
  EXPECT_LT(fs::file_size(kept), 1000u);
  std::ofstream(kept) << "c\ngarbage here\n";
  EXPECT_EQ(RiseWithin(machine.Get(), "counter", 5, 600s), std::nullopt);
}

TEST(Services, CountCrashesOfTheLastWeek) {
  const std::string dumps = "/var/lib/systemd/coredump/";
  const CapturedMachine machine({{"/proc/sys/kernel/core_pattern", "/var/cores/%e-%p.core\n"},
                                 {dumps + "core.player.1000.0f0f.77.1700000000000000.zst", "x"},
                                 {dumps + "core.old.1000.0f0f.78.1600000000000000.zst", "x"},
                                 {"/var/crash/_usr_bin_browser.1000.crash", "x"},
                                 {"/var/crash/_usr_bin_browser.1000.upload", "x"},
                                 {"/var/cores/tuner-12.core", "x"},
                                 {"/var/cores/README", "x"}});
  const auto age = [&](const std::string& path, std::chrono::hours hours) {
    fs::last_write_time(machine.Get().Path(path), fs::file_time_type::clock::now() - hours);
  };
  age(dumps + "core.player.1000.0f0f.77.1700000000000000.zst", 100h);
  age(dumps + "core.old.1000.0f0f.78.1600000000000000.zst", 169h);
  age("/var/cores/tuner-12.core", 90h);
  const auto services = trevlin::MakeServicesCollector();
  Expect(machine.Collect(*services), "services.crashes_week=3 services.crash_name=browser");
  machine.Remove("/var/crash/_usr_bin_browser.1000.crash");
  machine.Remove("/var/cores");
  Expect(machine.Collect(*services), "services.crashes_week=1 services.crash_name=player");
}

GDBusMessage* AnswerAsSystemd(GDBusConnection* bus, GDBusMessage* message, gboolean incoming, void*) {
  if (!incoming || g_strcmp0(g_dbus_message_get_member(message), "ListUnitsFiltered") != 0) return message;
  GDBusMessage* const reply = g_dbus_message_new_method_reply(message);
  g_dbus_message_set_body(
      reply, g_variant_new_parsed("([('sound.service', '', '', 'failed', '', '', @o '/a', @u 0, '', @o '/'),"
                                  "  ('net.service', '', '', 'failed', '', '', @o '/b', @u 0, '', @o '/')],)"));
  g_dbus_connection_send_message(bus, reply, G_DBUS_SEND_MESSAGE_FLAGS_NONE, nullptr, nullptr);
  g_object_unref(reply);
  g_object_unref(message);
  return nullptr;
}

TEST(Services, AskSystemdForFailedUnits) {
  const auto services = trevlin::MakeServicesCollector();
  const auto collect = [&] {
    Facts facts;
    services->Collect({}, facts);
    return facts;
  };
  setenv("DBUS_SYSTEM_BUS_ADDRESS", "unix:path=/nowhere/at/all", 1);
  Expect(collect(), "services.failed=?");
  ChildProcess daemon({"dbus-daemon", "--session", "--nofork", "--nopidfile", "--print-address"});
  const std::string address = daemon.ReadLine().value();
  setenv("DBUS_SYSTEM_BUS_ADDRESS", address.c_str(), 1);
  Expect(collect(), "services.failed=?");
  GMainContext* const context = g_main_context_default();
  std::string problem;
  const auto owner = ConnectToBus(address, 5s, context, problem);
  ASSERT_TRUE(owner) << problem;
  g_dbus_connection_add_filter(owner.get(), AnswerAsSystemd, nullptr, nullptr);
  const GVariantHandle owned(g_dbus_connection_call_sync(
      owner.get(), "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus", "RequestName",
      g_variant_new("(su)", "org.freedesktop.systemd1", 0), nullptr, G_DBUS_CALL_FLAGS_NONE, 5000, nullptr, nullptr));
  Expect(collect(), "services.failed=2");
  EXPECT_EQ(collect()["services.failed_names"], trevlin::FactValue("net.service sound.service"));
}

TEST(SetFacts, TellPackagesProfileAndTheLastShutdown) {
  const std::string packages = SystemPath(set_paths::kPackagesDir);
  const auto write = [](const std::string& path, const std::string& content) {
    fs::create_directories(fs::path(path).parent_path());
    std::ofstream(path) << content;
  };
  write(packages + "/good/manifest.json", R"({"package_id":"good","app_id":"good","title":"Good"})");
  write(packages + "/good/cache/file", std::string(3 << 20, 'c'));
  write(SystemPath(set_paths::kWebCacheDir) + "/good/file", std::string(1 << 20, 'w'));
  write(packages + "/wrong/manifest.json", "{");
  fs::create_directories(packages + "/bare");
  fs::create_directories(packages + "/.removing-gone");
  write(packages + "/stray", "a file is no package");
  write(SystemPath(set_paths::kSetProfile), "[set]\nnum_of_tuner=2\n[tv]\nsource=13\n");
  write(SystemPath(set_paths::kLastShutdown), "now unclean\n");
  const CapturedMachine machine(Files{{"/proc/sys/kernel/random/boot_id", "now\n"}});
  const Facts facts = CollectAll(machine);
  Expect(facts,
         "packages.broken=2 packages.broken_name=bare packages.unfinished=1 set.tuners=2 set.source=13 "
         "set.channel_type=? power.unclean_shutdown=true");
  EXPECT_NEAR(std::get<double>(facts.at("packages.cache_mib")), 4, 0.1);
  EXPECT_TRUE(fs::exists(packages + "/.removing-gone")) << "looking changes nothing";
  machine.Write({{"/proc/sys/kernel/random/boot_id", "later\n"}});
  Expect(CollectAll(machine), "power.unclean_shutdown=?");
}

TEST(Collectors, KeepTheirWordOnThisMachine) {
  const bool isAlone = unshare(CLONE_NEWNET) == 0;  // where there is neither a router nor a name server to ask
  const std::map<trevlin::FactKind, size_t> kIndex = {
      {trevlin::FactKind::kTruth, 1}, {trevlin::FactKind::kNumber, 2}, {trevlin::FactKind::kText, 3}};
  for (const auto& collector : trevlin::MakeCollectors()) {
    SCOPED_TRACE(collector->Name());
    if (collector->Name() == "network" && !isAlone) continue;
    Facts facts;
    const auto start = std::chrono::steady_clock::now();
    collector->Collect({}, facts);
    EXPECT_LT(std::chrono::steady_clock::now() - start, collector->Deadline());
    for (const auto& fact : collector->Describe()) {
      EXPECT_TRUE(fact.name.starts_with(std::string(collector->Name()) + ".")) << fact.name;
      const auto found = facts.extract(std::string(fact.name));
      EXPECT_TRUE(!found || found.mapped().index() == kIndex.at(fact.kind)) << fact.name;
    }
    EXPECT_TRUE(facts.empty()) << facts.begin()->first << " is not described";
  }
}

TEST(FactsPage, SaysWhatTheCollectorsSay) {
  const char* const kKinds[] = {"truth", "number", "text"};
  std::set<std::string> rows, described;
  std::ifstream page(VEXILO_SOURCE_DIR "/docs/facts.md");
  // Without the last column, the source.
  for (std::string line; std::getline(page, line);)
    if (line.starts_with("| `")) rows.insert(line.substr(0, line.rfind(" | ", line.size() - 3)));
  for (const auto& collector : trevlin::MakeCollectors())
    for (const auto& fact : collector->Describe())
      described.insert("| `" + std::string(fact.name) + "` | " + kKinds[static_cast<int>(fact.kind)] + " | " +
                       std::string(fact.unit.empty() ? "–" : fact.unit) + " | " + std::string(fact.meaning));
  EXPECT_THAT(rows, testing::ContainerEq(described));
}

}  // namespace
