// The facts of machines that are made of files, and of this one.

#include <sys/mount.h>
#include <sys/wait.h>

#include "base/glib_handle.h"
#include "set_paths.h"
#include "support/captured_machine.h"
#include "support/files.h"
#include "support/test_bus.h"
#include "trevlin/collectors/collectors.h"
#include "trevlin/collectors/readings.h"
#include "trevlin/collectors/young_services.h"

namespace {

using trevlin::Facts;

/// All facts of a machine. What a collector gives it must have described.
Facts CollectAll(const trevlin::Machine& machine) {
  Facts all;
  for (const auto& collector : trevlin::MakeCollectors()) {
    Facts facts;
    collector->Collect(machine, facts);
    for (const auto& fact : collector->Describe()) {
      EXPECT_TRUE(fact.name.starts_with(std::string(collector->Name()) + ".")) << fact.name;
      // A value's type is at its kind's place behind that of the unknown.
      if (auto known = facts.extract(std::string(fact.name)); known && known.mapped().index() != 0) {
        EXPECT_EQ(known.mapped().index(), static_cast<size_t>(fact.kind) + 1) << fact.name;
        all.insert(std::move(known));
      }
    }
    EXPECT_TRUE(facts.empty()) << facts.begin()->first << " is not described";
  }
  return all;
}

/// `expected`: as FactsOf() reads it.
void Expect(const Facts& facts, const std::string& expected) {
  for (const auto& [name, value] : FactsOf(expected)) {
    const auto found = facts.find(name);
    EXPECT_EQ(Told(found == facts.end() ? trevlin::FactValue() : found->second), Told(value)) << name;
  }
}

const Files kTvBox = With(
    Sys("fs/ext4/mmcblk0p5/errors_count=3 fs/ext4/features/lazy_itable_init=supported "
        "block/mmcblk0/device/pre_eol_info=0x02 block/mmcblk1/device/type=SD "
        "class/thermal/thermal_zone0/type=soc_thermal class/thermal/thermal_zone0/temp=71500 "
        "class/thermal/thermal_zone0/trip_point_0_type=passive class/thermal/thermal_zone0/trip_point_0_temp=80000 "
        "class/thermal/thermal_zone0/trip_point_1_type=critical class/thermal/thermal_zone0/trip_point_1_temp=105000 "
        "class/thermal/thermal_zone1/type=gpu_thermal class/thermal/thermal_zone1/temp=99000 "
        "class/thermal/thermal_zone2/type=ddr_thermal class/thermal/thermal_zone2/temp=-273200 "
        "class/thermal/cooling_device0/type=cpufreq-cpu0 class/thermal/cooling_device0/cur_state=2 "
        "class/watchdog/watchdog0/bootstatus=32"),
    {
        {"/proc/uptime", "259200.00 900000.00\n"},
        {"/proc/cpuinfo", "processor\t: 0\nFeatures\t: fp asimd\n"},
        {"/proc/sys/kernel/random/boot_id", "box\n"},
        {"/proc/meminfo",
         "MemTotal:        2048000 kB\nMemFree:           10000 kB\nMemAvailable:     204800 kB\n"
         "SwapCached:         5120 kB\nSwapTotal:        102400 kB\nSwapFree:          46080 kB\n"},
        {"/proc/vmstat", "nr_free_pages 2500\noom_kill 7\n"},
        {"/sys/fs/cgroup/cgroup.controllers", "memory pids\n"},
        {"/proc/loadavg", "8.40 2.00 0.50 3/300 4242\n"},
        {"/proc/stat", "cpu  1 2 3\ncpu0 1 2 3\ncpu1 1 2 3\ncpu2 1 2 3\ncpu3 1 2 3\nintr 1 0 2\n"},
        {"/proc/self/mountinfo",
         "21 1 179:2 / / ro,relatime - squashfs /dev/mmcblk0p2 ro\n"
         "22 21 179:5 / /opt rw,noatime shared:3 - ext4 /dev/mmcblk0p5 ro,errors=remount-ro\n"},
        {"/etc/fstab", "# the box\n/dev/mmcblk0p2 / squashfs ro 0 0\n/dev/mmcblk0p5 /opt ext4 noatime 0 2\n"},
        {"/etc/localtime", "TZif2"},
        {"/sys/block/mmcblk0/device/life_time", "0x03 0x0a\n"},
    });

const Files kPc =
    With(Sys("class/hwmon/hwmon0/name=coretemp class/hwmon/hwmon0/temp1_input=48000 "
             "class/hwmon/hwmon0/temp2_input=52000 class/hwmon/hwmon0/temp2_crit=90000 class/hwmon/hwmon1/name=nvme "
             "class/hwmon/hwmon1/temp1_input=80000 class/thermal/thermal_zone0/type=acpitz "
             "class/thermal/thermal_zone0/temp=0 class/thermal/cooling_device0/type=Processor "
             "class/thermal/cooling_device0/cur_state=0 class/thermal/cooling_device1/type=Fan "
             "class/thermal/cooling_device1/cur_state=1 class/power_supply/hid-mouse/type=Battery "
             "class/power_supply/hid-mouse/scope=Device class/power_supply/hid-mouse/capacity=4 "
             "class/power_supply/hid-mouse/status=Discharging class/watchdog/watchdog0/bootstatus=0"),
         {
             {"/proc/uptime", "3600.00 10000.00\n"},
             {"/proc/meminfo", "MemTotal: 16000000 kB\nMemAvailable: 8000000 kB\nSwapTotal: 0 kB\nSwapFree: 0 kB\n"},
             {"/proc/vmstat", "oom_kill_disable 9\noom_kill 2\n"},
             {"/sys/fs/cgroup/cgroup.controllers", "memory pids\n"},
             {"/proc/pressure/memory",
              "some avg10=9.00 avg60=12.34 avg300=1.00 total=5\nfull avg10=0.00 avg60=0.00 avg300=0.00 total=1\n"},
             {"/proc/pressure/cpu", "some avg10=0.00 avg60=0.50 avg300=0.00 total=5\n"},
             {"/proc/self/mountinfo",
              "30 1 0:25 /@ / rw,relatime shared:1 - btrfs /dev/nvme0n1p2 rw,space_cache\n"
              "31 30 0:25 /@opt /opt ro,relatime shared:2 - btrfs /dev/nvme0n1p2 rw,space_cache\n"},
             {"/etc/fstab", "UUID=1 / btrfs defaults 0 0\nUUID=1 /opt btrfs defaults 0 0\n"},
         });

const Files kBoard = With(
    Sys("bus/platform/drivers/raspberrypi-firmware/soc:firmware/get_throttled=50005 "
        "class/hwmon/hwmon0/name=cpu_thermal "
        "class/hwmon/hwmon0/temp1_input=83 class/hwmon/hwmon1/name=rpi_volt class/hwmon/hwmon1/in0_lcrit_alarm=0 "
        "class/power_supply/BAT0/type=Battery class/power_supply/BAT0/capacity=9 "
        "class/power_supply/BAT0/status=Discharging class/power_supply/AC/type=Mains class/power_supply/AC/online=0"),
    {
        {"/run/systemd/timesync/synchronized", ""},
        {"/etc/hostname", "board\n"},
    });

TEST(Collectors, TellWhatEachMachineGives) {
  const struct {
    const char* name;
    const Files& files;
    const char* expected;
  } kMachines[] = {
      {"TV box", kTvBox,
       "memory.available_percent=10 memory.available_mib=200 memory.swap_used_percent=50 "
       "memory.pressure_some_avg60=? memory.oom_kills_recent=? cpu.load_per_core=2.1 cpu.load5_per_core=0.5 "
       "cpu.temperature=71.5 cpu.temperature_margin=33.5 cpu.throttled=yes storage.read_only=yes "
       "storage.system_read_only_error=yes "
       "storage.fs_errors=3 storage.wear_percent=100 storage.pre_eol=yes storage.free_percent=? power.uptime_days=3 "
       "power.watchdog_reset=yes power.undervoltage=? power.on_battery_low=? clock.zone=yes clock.synchronised=? "
       "services.crashes_week=? services.failed=? machine.kind=hardware"},
      {"PC after its memory ran out", kPc,
       "memory.available_percent=50 memory.swap_used_percent=? memory.pressure_some_avg60=12.34 "
       "cpu.pressure_some_avg60=0.5 memory.oom_kills_recent=2 cpu.load_per_core=? cpu.temperature=52 "
       "cpu.temperature_margin=38 "
       "cpu.throttled=no storage.read_only=no storage.system_read_only_error=no storage.fs_errors=? "
       "storage.wear_percent=? storage.pre_eol=? power.watchdog_reset=no power.on_battery_low=? clock.zone=no"},
      {"board with too little voltage, on a battery", kBoard,
       "cpu.temperature=83 cpu.throttled=no power.undervoltage=yes power.undervoltage_since_start=yes "
       "power.on_battery_low=yes "
       "clock.synchronised=yes clock.zone=no power.uptime_days=? storage.read_only=?"},
      {"virtual machine made of a container's image",
       {{"/.dockerenv", ""},
        {"/proc/self/mounts", "proc /proc proc rw 0 0\n/dev/vda / ext4 rw,relatime 0 0\n"},
        {"/proc/loadavg", "0.50 0.40 0.30 1/80 99\n"},
        {"/proc/stat", "cpu  1\ncpu0 1\ncpu1 1\n"},
        {"/proc/cpuinfo", "processor\t: 0\nflags\t\t: fpu hypervisor\n"}},
       "machine.kind=vm cpu.load_per_core=0.25 cpu.temperature=? cpu.throttled=? power.undervoltage=? "
       "power.watchdog_reset=? "
       "clock.zone=? storage.system_read_only_error=? memory.available_mib=?"},
      {"hot board", Sys("devices/platform/soc/firmware/get_throttled=4"), "cpu.throttled=yes power.undervoltage=no"},
      {"fans that go by more than the temperature",
       Sys("class/hwmon/hwmon0/name=k10temp class/hwmon/hwmon0/temp1_input=96000 class/hwmon/hwmon0/temp1_label=Tctl "
           "class/hwmon/hwmon0/temp2_input=69000 class/hwmon/hwmon0/temp2_label=Tdie "
           "class/hwmon/hwmon0/temp2_crit=255000"),
       "cpu.temperature=69 cpu.temperature_margin=31"},
      {"UFS, and a disk of another machine in a USB case",
       Sys("class/scsi_host/host0/health_descriptor/eol_info=0x02 "
           "class/scsi_host/host0/health_descriptor/life_time_estimation_a=0x01 "
           "class/scsi_host/host0/health_descriptor/life_time_estimation_b=0x04 "
           "class/scsi_host/host0/device/type=0 block/sda/removable=0 block/sda/sda1/partition=1 "
           "block/sdb/removable=1 block/sdb/sdb1/partition=1 fs/ext4/sda1/errors_count=2 "
           "fs/ext4/sdb1/errors_count=40"),
       "storage.pre_eol=yes storage.wear_percent=40 storage.fs_errors=2"},
      {"container on a disk of subvolumes, as Btrfs has them",
       {{"/.dockerenv", ""},
        {"/proc/self/mounts", "/dev/sda2 / btrfs rw,subvol=/x 0 0\n/dev/sda2 /etc/hostname btrfs rw,subvol=/@ 0 0\n"},
        {"/proc/cpuinfo", "processor\t: 0\n"}},
       "machine.kind=container"},
      {"container, whose machine ran out of memory",
       {{"/.dockerenv", ""},
        {"/proc/self/mounts", "overlay / overlay rw,relatime 0 0\n/dev/vda /etc/hosts ext4 rw 0 0\n"},
        {"/proc/uptime", "3600 1"},
        {"/proc/vmstat", "oom_kill 2\n"},
        {"/sys/fs/cgroup/memory.events", "oom 1\noom_kill 0\n"}},
       "machine.kind=container memory.oom_kills_recent=0"},
      {"memory ran out within the limits of groups, one of which is gone again, as those of containers are",
       {{"/proc/uptime", "3600 1"},
        {"/proc/vmstat", "oom_kill 7\n"},
        {"/sys/fs/cgroup/cgroup.controllers", "memory pids\n"},
        {"/sys/fs/cgroup/system.slice/memory.events", "max 9\noom 5\noom_kill 2\noom_group_kill 0\n"},
        {"/sys/fs/cgroup/machine.slice/memory.events", "oom 1\noom_kill 5\noom_group_kill 1\n"}},
       "memory.oom_kills_recent=0"},
      {"it ran out on the machine, too, where that ended programs of a group",
       {{"/proc/uptime", "3600 1"},
        {"/proc/vmstat", "oom_kill 6\n"},
        {"/sys/fs/cgroup/cgroup.controllers", "memory pids\n"},
        {"/sys/fs/cgroup/system.slice/memory.events", "oom 0\noom_kill 2\n"},
        {"/sys/fs/cgroup/user.slice/memory.events", "oom 1\noom_kill 3\noom_group_kill 0\n"}},
       "memory.oom_kills_recent=5"},
      {"the older kind of groups, of which only the log tells",
       {{"/proc/uptime", "100000 1"},
        {"/proc/vmstat", "oom_kill 3\n"},
        {"/sys/fs/cgroup/memory/cgroup.procs", ""},
        {"/dev/kmsg",
         "6,1,1000000,-;Out of memory: Killed process 5 (old) total-vm:9kB\n"
         "6,2,99000000000,-;Memory cgroup out of memory: Killed process 6 (limited) total-vm:9kB\n"
         "6,3,99000000000,-;Out of memory: Killed process 7 (new) total-vm:9kB\n"}},
       "memory.oom_kills_recent=1"},
      {"the same, whose log is not for this user",
       {{"/proc/uptime", "3600 1"}, {"/proc/vmstat", "oom_kill 3\n"}},
       "memory.oom_kills_recent=?"},
      {"container without a service manager",
       {{"/proc/1/environ", "PATH=/bin\0container=podman\0"s}},
       "machine.kind=container"},
  };
  for (const auto& each : kMachines) {
    SCOPED_TRACE(each.name);
    Expect(CollectAll(CapturedMachine(each.files).Get()), each.expected);
    fs::remove_all(SystemPath(set_paths::kHostRun) + "/trevlin");
  }
}

TEST(Collectors, TellNothingOfFilesThatMakeNoSense) {
  // Facts of the set, and of what is there or not.
  const std::set<std::string> kAlways = {"clock.zone",         "clock.synchronised",  "packages.broken",
                                         "packages.cache_mib", "packages.unfinished", "set.tuners"};
  const std::string contents[] = {
      "",      "\n\n", std::string(5000, '\0'),   "\xff\xfe\x80 \x01",        "99999999999999999999999999999999999",
      "nan\n", "-7e9", std::string(1000000, '9'), "some avg60 - - - - - -\n",
  };
  for (const std::string& content : contents) {
    SCOPED_TRACE(content.substr(0, 40));
    for (Files files : {kTvBox, kPc, kBoard}) {
      for (auto& [path, original] : files) original = content;
      for (const auto& [name, value] : CollectAll(CapturedMachine(files).Get()))
        EXPECT_TRUE(kAlways.contains(name)) << name;
    }
  }
}

TEST(Collectors, TellAFileSystemThatFailedFromOneThatOnlyReads) {
  const struct {
    const char* name;
    const char* mounts;
    const char* fstab;
    const char* readOnly;
    const char* error;
  } kCases[] = {
      {"writable", "22 1 8:1 / / rw - ext4 /dev/sda1 rw", "/dev/sda1 / ext4 defaults 0 1", "no", "no"},
      {"came so after boot", "22 1 8:1 / / ro - ext4 /dev/sda1 ro", "/dev/sda1 / ext4 defaults 0 1", "yes", "no"},
      {"after an error", "22 1 8:1 / / rw - ext4 /dev/sda1 ro", "", "yes", "yes"},
      {"newer kernels' way", "22 1 8:1 / / rw - ext4 /dev/sda1 rw,emergency_ro", "", "yes", "yes"},
      {"image", "22 1 7:0 / / ro - squashfs /dev/loop0 ro", "", "no", "no"},
      {"bind mount of a system that only reads",
       "22 1 8:1 / / ro - ext4 /dev/sda1 ro\n23 22 8:1 /x /etc/hosts rw - ext4 /dev/sda1 ro", "", "no", "no"},
      {"only another disk", "22 1 8:1 / / rw - ext4 /dev/sda1 rw\n23 22 8:2 / /my\\040data rw - xfs /dev/sda2 ro", "",
       "no", "yes"},
      {"the last mount at a point counts",
       "22 1 8:1 / /opt rw - ext4 /dev/sda1 ro\n23 22 0:9 / /opt rw - overlay overlay rw", "", "no", "yes"},
  };
  for (const auto& each : kCases) {
    SCOPED_TRACE(each.name);
    const CapturedMachine machine({{"/proc/self/mountinfo", each.mounts}, {"/etc/fstab", each.fstab}});
    const Facts facts = machine.Collect(*trevlin::MakeStorageCollector());
    EXPECT_EQ(Told(facts.at("storage.read_only")), each.readOnly);
    EXPECT_EQ(Told(facts.at("storage.system_read_only_error")), each.error);
  }
}

TEST(Collectors, TellWhichMediumAFileSystemFailedOn) {
  const std::string system = "22 1 8:1 / / rw - ext4 /dev/sda1 rw\n23 22 8:17 / /media/x rw - ";
  const Files disks =
      Sys("block/sda/sda1/partition=1 block/sda/removable=0 block/sdb/sdb1/partition=1 block/sdb/removable=1 "
          "block/mmcblk1/device/type=SD block/mmcblk1/mmcblk1p1/partition=1 block/loop0/removable=0 "
          "block/dm-0/removable=0 block/dm-0/slaves/sdb1/partition=1 block/dm-1/slaves/loop0/size=1");
  const struct {
    const char* name;
    std::string mounts;
    const char* errors;
    const char* expected;  // of the machine's own, errors recorded there, of what can be taken out
  } kCases[] = {
      {"own disk", system + "xfs /dev/sda1 ro", "sda1", "yes 3 no"},
      {"stick", system + "ext4 /dev/sdb1 ro", "sdb1", "no ? yes"},
      {"stick whose errors are of another time", system + "ext4 /dev/sdb1 rw", "sdb1", "no ? yes"},
      {"encrypted stick", system + "ext4 /dev/dm-0 rw,emergency_ro", "dm-0", "no ? yes"},
      {"stick of a camera", system + "vfat /dev/sdb1 ro", "none", "no 3 yes"},
      {"card", system + "exfat /dev/mmcblk1p1 ro", "none", "no 3 yes"},
      {"image", system + "ext4 /dev/loop0 ro", "loop0", "no ? no"},
      {"encrypted image", system + "ext4 /dev/dm-1 rw,shutdown", "dm-1", "no ? no"},
      {"stick that the machine was started from", "22 1 8:17 / / rw - ext4 /dev/sdb1 ro", "sdb1", "yes 3 no"},
      {"image that holds the system", "22 1 7:0 / / rw - ext4 /dev/loop0 ro", "loop0", "yes 3 no"},
  };
  for (const auto& each : kCases) {
    const CapturedMachine machine(With(disks, {{"/proc/self/mountinfo", each.mounts},
                                               {"/sys/fs/ext4/" + std::string(each.errors) + "/errors_count", "3\n"}}));
    Facts facts = machine.Collect(*trevlin::MakeStorageCollector());
    EXPECT_EQ(Told(facts["storage.system_read_only_error"]) + " " + Told(facts["storage.fs_errors"]) + " " +
                  Told(facts["storage.removable_error"]),
              each.expected)
        << each.name;
  }
}

/// Two of them on images: what is mounted somewhere is nobody's disk, what is mounted at /opt holds the user data.
TEST(Storage, HasFailedWhereAFileSystemReallyDid) {
  if (unshare(CLONE_NEWNS) != 0 || mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0)
    GTEST_SKIP() << "no mounts of its own: " << std::strerror(errno);
  const struct {
    const char* make;
    const char* fail;  // $1: the mount point, $2: the device
  } kKinds[] = {
      {"mkfs.ext4 -q -F -e remount-ro", "echo test > /sys/fs/ext4/$2/trigger_fs_error"},
      {"mkfs.xfs -q -f", "xfs_io -x -c shutdown $1"},
  };
  const std::string image = SystemPath("/image");
  const auto told = [] {
    Facts facts;
    trevlin::MakeStorageCollector()->Collect({}, facts);
    return Told(facts["storage.read_only"]) + " " + Told(facts["storage.system_read_only_error"]) + " " +
           Told(facts["storage.removable_error"]);
  };
  const std::string before = told();
  bool isOneMade = false;
  for (const auto& kind : kKinds)
    for (const std::string place : {"/image-of-a-disk", set_paths::kUserPartition}) {
      const std::string point = SystemPath(place);
      fs::create_directories(point);
      std::ofstream(image).close();
      fs::resize_file(image, 400 << 20);
      // Not with a kernel or tools that have no such file system.
      if (std::system((kind.make + (" " + image + " && mount -o loop ") + image + " " + point).c_str()) != 0) continue;
      isOneMade = true;
      EXPECT_EQ(told(), before) << kind.make << place;
      EXPECT_EQ(
          std::system(("set " + point + " $(basename $(findmnt -no SOURCE " + point + ")); " + kind.fail).c_str()), 0);
      EXPECT_EQ(told(), place == set_paths::kUserPartition ? "yes yes no" : before) << kind.make << place;
      umount(point.c_str());
      EXPECT_EQ(told(), before) << kind.make << place;
    }
  if (!isOneMade) GTEST_SKIP() << "neither ext4 nor xfs can be mounted from an image";
}

TEST(Storage, CountsTheErrorsOfEachMedium) {
  const Files disks =
      Sys("block/sda/removable=0 block/sda/device/model=Zephon block/sdb/removable=1 block/sdb/device/model=Stick "
          "block/loop0/removable=0 block/sr0/removable=1 block/mmcblk1/device/type=SD block/mmcblk1/device/name=SD32G "
          "block/mmcblk0rpmb/removable=0");
  const auto error = [](const std::string& disk, const std::string& op) {
    return "3,9,9,-;I/O error, dev " + disk + ", sector 2048" + op + " flags 0x0 phys_seg 1\n SUBSYSTEM=block\n";
  };
  const std::string read = " op 0x0:(READ)", attached = "6,9,9,-;sd 2:0:0:0: [sdb] Attached SCSI removable disk\n";
  const struct {
    std::string log;
    const char* expected;  // own, removable, names of both
  } kCases[] = {
      {"", "0 0 ? ?"},
      {error("sda", read) + error("sda", " op 0x1:(WRITE)") + error("sda", ""), "3 0 Zephon (sda) ?"},
      {error("sda", " op 0x3:(DISCARD)") + error("sr0", read) + error("loop0", read) + error("sdc", read) +
           error("mmcblk0rpmb", read),
       "0 0 ? ?"},
      {"2,1,1,-;blk_update_request: critical medium error, dev sdb, sector 1 op 0x0:(READ) flags 0x0\n",
       "0 1 ? Stick (sdb)"},
      {error("sdb", read) + attached, "0 0 ? ?"},
      {attached + error("sdb", read) + error("mmcblk1", read), "0 2 ? SD32G (mmcblk1), Stick (sdb)"},
      {error("sdb", read) + "6,9,9,-;sdb: detected capacity change from 0 to 62333952\n", "0 0 ? ?"},
      {error("sda", read) + "6,9,9,-;sda: detected capacity change from 62333952 to 0\n", "1 0 Zephon (sda) ?"},
      {error("mmcblk1", read) + "6,9,9,-;mmcblk1: mmc1:0001 SD32G 29.7 GiB\n", "0 0 ? ?"},
  };
  const auto told = [](Facts facts) {
    return Told(facts["storage.io_errors"]) + " " + Told(facts["storage.removable_io_errors"]) + " " +
           Told(facts["storage.faulty_disks"]) + " " + Told(facts["storage.removable_faulty_disks"]);
  };
  for (const auto& each : kCases) {
    const CapturedMachine machine(With(disks, {{"/dev/kmsg", each.log}}));
    EXPECT_EQ(told(machine.Collect(*trevlin::MakeStorageCollector())), each.expected) << each.log;
  }
  const CapturedMachine marked(With(
      disks, {{"/sys/block/sdb/sdb1/partition", "1\n"}, {"/sys/fs/ext4/sdb1/errors_count", "7\n"}, {"/dev/kmsg", ""}}));
  EXPECT_EQ(told(marked.Collect(*trevlin::MakeStorageCollector())), "0 0 ? Stick (sdb)") << "by its file system";
  const CapturedMachine worn(With(disks, {{"/sys/block/mmcblk0/device/pre_eol_info", "0x02\n"},
                                          {"/sys/block/mmcblk0/device/name", "T32G\n"},
                                          {"/dev/kmsg", error("sdb", read)}}));
  EXPECT_EQ(Told(worn.Collect(*trevlin::MakeStorageCollector())["storage.failing_disks"]), "T32G (mmcblk0)");
  // Where the log may not be read: what the disk counts, but for the few of each ten minutes.
  const CapturedMachine silent(disks);
  const std::pair<std::string, const char*> kCounts[] = {
      {"0x5", "0 0 ? ?"}, {"0x8", "0 0 ? ?"}, {"0x1f", "26 0 Zephon (sda) ?"}};
  EXPECT_EQ(told(silent.Collect(*trevlin::MakeStorageCollector())), "? ? ? ?");
  for (int second = 7000; const auto& [count, expected] : kCounts) {
    silent.Write(
        {{"/sys/block/sda/device/ioerr_cnt", count + "\n"}, {"/proc/uptime", std::to_string(second += 60) + " 1\n"}});
    EXPECT_EQ(told(silent.Collect(*trevlin::MakeStorageCollector())), expected) << count;
  }
}

/// The user data lies on an image, which gets lost beneath it.
TEST(Storage, HasErrorsWhereReadingReallyFails) {
  if (unshare(CLONE_NEWNS) != 0 || mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0)
    GTEST_SKIP() << "no mounts of its own: " << std::strerror(errno);
  const std::string image = SystemPath("/image"), point = SystemPath(set_paths::kUserPartition);
  fs::create_directories(point);
  std::ofstream(image).close();
  fs::resize_file(image, 64 << 20);
  if (std::system(("mkfs.ext4 -q -F " + image + " && mount -o loop " + image + " " + point).c_str()) != 0)
    GTEST_SKIP() << "ext4 cannot be mounted from an image";
  const auto collector = trevlin::MakeStorageCollector();
  const auto errors = [&] {
    Facts facts;
    collector->Collect({}, facts);
    const auto* const count = std::get_if<double>(&facts["storage.io_errors"]);
    return count ? *count : -1;
  };
  const double before = errors();  // an earlier image may have had the same device
  EXPECT_GE(before, 0);
  fs::resize_file(image, 1 << 20);
  // Apart, as the kernel logs some ten of them at once at the most.
  const std::string read = "dd if=$(findmnt -no SOURCE " + point + ") of=/dev/null bs=4k count=1 iflag=direct skip=";
  for (const char* place : {"9000", "11000", "13000"}) EXPECT_NE(std::system((read + place + " 2>&1").c_str()), 0);
  EXPECT_GE(errors(), before + 3);
  umount2(point.c_str(), MNT_DETACH);
}

TEST(Storage, HasNoSpaceToTellOfWhereItOnlyReads) {
  if (unshare(CLONE_NEWNS) != 0 || mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0)
    GTEST_SKIP() << "no mounts of its own: " << std::strerror(errno);
  const std::string point = SystemPath(set_paths::kUserPartition);
  fs::create_directories(point);
  for (const auto& [options, isTold] : {std::pair("size=9m", true), {"remount,bind,ro", true}, {"remount,ro", false}}) {
    ASSERT_EQ(std::system(("mount -t tmpfs -o "s + options + " none " + point).c_str()), 0);
    Facts facts;
    trevlin::MakeStorageCollector()->Collect({}, facts);
    for (const char* fact : {"storage.free_percent", "storage.free_mib", "storage.inodes_free_percent"})
      EXPECT_EQ(facts.contains(fact), isTold) << fact << " " << options;
  }
}

TEST(Storage, TellsWhichOtherPlaceIsAlmostFull) {
  if (unshare(CLONE_NEWNS) != 0 || mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0)
    GTEST_SKIP() << "no mounts of its own: " << std::strerror(errno);
  const struct {
    const char* what;
    const char* point;
    int mib, leftMib;
    const char* then;
    bool isTold;
  } kCases[] = {
      {"almost full", "/home", 1200, 60, "true", true},
      {"enough left", "/home", 1200, 200, "true", false},
      {"read-only", "/home", 1200, 60, "mount -o remount,ro /home", false},
      {"of the user data", "/home", 1200, 60, "mount --bind /home \"$VEXILO_ROOT/opt\"", false},
      {"small", "/home", 300, 10, "true", false},
      {"small, of the boot loader", "/boot", 300, 10, "true", true},
  };
  for (const auto& each : kCases) {
    const std::string image = SystemPath("/image");
    fs::create_directories(SystemPath(set_paths::kUserPartition));
    std::ofstream(image).close();
    fs::resize_file(image, uintmax_t(each.mib) << 20);
    if (std::system(("mkfs.ext4 -q -F -m 0 " + image + " && mount -o loop " + image + " " + each.point).c_str()) != 0)
      GTEST_SKIP() << "ext4 cannot be mounted from an image";
    const std::string fill = "fallocate -l $(( $(df --output=avail -B1M " + std::string(each.point) + " | tail -1) - " +
                             std::to_string(each.leftMib) + " ))M " + each.point + "/file && ";
    EXPECT_EQ(std::system((fill + each.then).c_str()), 0);
    Facts facts;
    trevlin::MakeStorageCollector()->Collect({}, facts);
    const auto* const room = std::get_if<double>(&facts["storage.system_room_percent"]);
    EXPECT_EQ(room && *room < 100 && Told(facts["storage.system_fullest"]) == each.point, each.isTold) << each.what;
    umount(SystemPath(set_paths::kUserPartition).c_str());
    umount(each.point);
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
      {"first, long after the start", "a", 10000, 50, kNothing},    {"has risen", "a", 10100, 53, 3},
      {"nothing new within the window", "a", 10950, 53, 0},         {"began again at 0", "a", 11000, 2, 2},
      {"long unseen, nobody knows when", "a", 50000, 70, kNothing}, {"long unseen, but as it was", "a", 90000, 70, 0},
      {"another start, within the window", "b", 60, 4, 4},          {"another one, later", "c", 5000, 4, kNothing},
  };
  const CapturedMachine machine({});
  for (const auto& step : kSteps) {
    SCOPED_TRACE(step.what);
    machine.Write({{"/proc/uptime", std::to_string(step.seconds) + " 1\n"},
                   {"/proc/sys/kernel/random/boot_id", std::string(step.boot) + "\n"}});
    const auto rise = RiseWithin(machine.Get(), "counter", step.value, 600s);
    EXPECT_EQ(rise, step.rise);
  }
  const std::string kept = set_paths::kHostRun + std::string("/trevlin/counter");
  for (int second = 0; second < 5000; second += 10) {
    machine.Write({{"/proc/uptime", std::to_string(9000 + second)}});
    RiseWithin(machine.Get(), "counter", second, 600s);
  }
  EXPECT_LT(ReadFile(kept).size(), 1000u);
  WriteFile(kept, "c\ngarbage here\n");
  EXPECT_EQ(RiseWithin(machine.Get(), "counter", 5, 600s), std::nullopt);
}

TEST(Readings, AreNotKeptWithoutTheLock) {
  const std::string kept = set_paths::kHostRun + std::string("/trevlin/");
  WriteFile(kept + "readings.lock", "");
  const FdHandle lock(open(SystemPath(kept + "readings.lock").c_str(), O_RDONLY | O_CLOEXEC));
  ASSERT_EQ(flock(lock.get(), LOCK_EX), 0);
  const CapturedMachine machine(Files{{"/proc/uptime", "60 1\n"}});
  EXPECT_EQ(RiseWithin(machine.Get(), "locked", 4, 600s), 4);
  EXPECT_FALSE(Exists(kept + "locked"));
}

TEST(Cpu, IsThrottledByTheTimeOfACore) {
  const struct {
    const char* what;
    int seconds;
    const char* files;
    const char* throttled;
  } kSteps[] = {
      {"first", 10000, "cpu0=90000 cpu1=70000", "?"},
      {"short bursts", 10200, "cpu0=110000 cpu1=71000", "no"},
      {"a core goes", 10300, "cpu0=110000", "no"},
      {"and is back", 10400, "cpu0=110000 cpu1=71000", "no"},
      {"5 % of ten minutes", 10500, "cpu0=110000 cpu1=101000", "yes"},
  };
  for (const auto& step : kSteps) {
    Files files = {{"/proc/uptime", std::to_string(step.seconds) + " 1\n"}};
    for (const auto& [core, time] : FactsOf(step.files))
      files["/sys/devices/system/cpu/" + core + "/thermal_throttle/core_throttle_total_time_ms"] = Told(time) + "\n";
    EXPECT_EQ(Told(CapturedMachine(files).Collect(*trevlin::MakeCpuCollector())["cpu.throttled"]), step.throttled)
        << step.what;
  }
}

TEST(Memory, ThatRanOutInALimitedGroupOfThisMachineIsNotTold) {
  const fs::path older = "/sys/fs/cgroup/memory";
  const bool isOlder = fs::exists(older);
  const fs::path top = (isOlder ? older : "/sys/fs/cgroup") / ("vexilo-test-" + std::to_string(getpid()));
  const fs::path group = top / "limited";
  std::error_code refused;
  if (geteuid() != 0 || !fs::create_directory(top, refused)) GTEST_SKIP() << "only root may make a control group here";
  if (!isOlder) std::ofstream(top / "cgroup.subtree_control") << "+memory";
  fs::create_directory(group);
  const auto collector = trevlin::MakeMemoryCollector();
  const auto kills = [&] {
    Facts facts;
    collector->Collect({}, facts);
    return Told(facts["memory.oom_kills_recent"]);
  };
  const std::string before = kills();
  std::ofstream(group / (isOlder ? "memory.limit_in_bytes" : "memory.max")) << "16M";
  const pid_t child = fork();
  if (child == 0) {
    std::ofstream(group / "cgroup.procs") << getpid() << std::flush;
    std::vector<std::string> memory;
    for (int i = 0; i < 256; ++i) memory.emplace_back(1 << 20, 'x');
    _exit(0);
  }
  int status = 0;
  EXPECT_EQ(waitpid(child, &status, 0), child);
  EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL) << "the kernel ends it";
  EXPECT_EQ(kills(), before);
  EXPECT_TRUE(fs::remove(group));
  EXPECT_EQ(kills(), before) << "when the group is gone with its counter";
  fs::remove(top);
}

TEST(Services, CountCrashesOfTheLastWeek) {
  using std::chrono::hours;
  const std::string dumps = "/var/lib/systemd/coredump/core.";
  const std::tuple<std::string, hours> files[] = {
      {dumps + "player.1000.0f0f.77.1700000000000000.zst", 100h},
      {"/var/crash/_usr_bin_browser.1000.crash", 0h},
      {"/var/cores/tv-tuner-12.core", 90h},
      {"/var/cores/tv-tuner-17.core", 1h},
  };
  const CapturedMachine machine(Files{{"/proc/sys/kernel/core_pattern", "/var/cores/%e-%p.core\n"}});
  for (const auto& [path, age] : files) {
    machine.Write({{path, "x"}});
    fs::last_write_time(machine.Get().Path(path), fs::file_time_type::clock::now() - age);
  }
  const auto services = trevlin::MakeServicesCollector();
  Expect(machine.Collect(*services), "services.crashes_week=2 services.crash_name=tv-tuner");
  machine.Remove("/var/crash/_usr_bin_browser.1000.crash");
  machine.Remove("/var/cores");
  Expect(machine.Collect(*services), "services.crashes_week=1 services.crash_name=player");
  machine.Remove("/var/lib/systemd/coredump");
  Expect(machine.Collect(*services), "services.crashes_week=? services.crash_name=?");
  const std::tuple<const char*, const char*, const char*> patterns[] = {
      {"core", "", "?"},
      {"%e.core", "", "?"},
      {"|/usr/bin/keeper %p", "", "?"},
      {"|/lib/systemd/systemd-coredump %P", "", "0"},
      {"|/lib/systemd/systemd-coredump %P", "[Coredump]\n#Storage=none\nStorage = journal\n", "?"},
      {"|/usr/share/apport/apport -p%p", "", "0"},
      {"/var/cores/core", "", "0"},
  };
  for (const char* folder : {"/var/lib/systemd/coredump/none", "/var/crash/none", "/var/cores/none"})
    machine.Write({{folder, "x"}});
  for (const auto& [pattern, configuration, crashes] : patterns) {
    machine.Write({{"/proc/sys/kernel/core_pattern", pattern}, {"/etc/systemd/coredump.conf", configuration}});
    EXPECT_EQ(Told(machine.Collect(*services)["services.crashes_week"]), crashes) << pattern << configuration;
  }
  machine.Write({{"/proc/sys/kernel/core_pattern", "core"}, {dumps + "player.1000.0f0f.78.1700000000000000.zst", "x"}});
  Expect(machine.Collect(*services), "services.crashes_week=1 services.crash_name=player");
}

/// What a manager of services says: a unit's state, what it is doing, and how often it was restarted.
struct PlayedUnits {
  std::map<std::string, std::tuple<const char*, const char*, int>> units;
  std::mutex mutex;
  int asked = 0;

  GDBusMessage* Answer(GDBusMessage* call) {
    const std::lock_guard lock(mutex);
    GDBusMessage* const reply = g_dbus_message_new_method_reply(call);
    std::string body = "(<uint32 0>,)";
    if (g_dbus_message_get_member(call) == std::string_view("Get")) {
      ++asked;
      for (const auto& [name, unit] : units)
        if (std::string_view(g_dbus_message_get_path(call))
                .ends_with("/" + name.substr(0, name.find('.')) + "_2eservice"))
          body = "(<uint32 " + std::to_string(std::get<2>(unit)) + ">,)";
    } else {
      body = "@a(ssssssouso) [";
      for (const auto& [name, unit] : units)
        body += (body.ends_with('[') ? "('" : ", ('") + name + "', '', 'loaded', '" + std::get<0>(unit) + "', '" +
                std::get<1>(unit) + "', '', @o '/a', @u 0, '', @o '/')";
      body = "(" + body + "],)";
    }
    g_dbus_message_set_body(reply, g_variant_new_parsed(body.c_str()));
    return reply;
  }
};

TEST(Services, AskTheManagersForWhatFailsOrIsRestartedForEver) {
  const auto failed = [] {
    Facts facts;
    trevlin::MakeServicesCollector()->Collect({}, facts);
    return Told(facts["services.failed"]) + " " + Told(facts["services.failed_names"]) + ", " +
           Told(facts["services.user_failed_names"]);
  };
  for (const char* variable : {"DBUS_SYSTEM_BUS_ADDRESS", "DBUS_SESSION_BUS_ADDRESS"})
    setenv(variable, "unix:path=/nowhere/at/all", 1);
  EXPECT_EQ(failed(), "? ?, ?");
  const TestBus bus, session;
  setenv("DBUS_SYSTEM_BUS_ADDRESS", bus.Address(), 1);
  setenv("DBUS_SESSION_BUS_ADDRESS", session.Address(), 1);
  EXPECT_EQ(failed(), "? ?, ?");
  PlayedUnits machine, user;
  const PlayedService system(bus, "org.freedesktop.systemd1", [&](GDBusMessage* call) { return machine.Answer(call); });
  const PlayedService own(session, "org.freedesktop.systemd1", [&](GDBusMessage* call) { return user.Answer(call); });
  const struct {
    decltype(PlayedUnits::units) machine, user;
    const char* expected;
  } steps[] = {
      {{{"sound.service", {"failed", "failed", 0}}, {"net@eth0.service", {"failed", "failed", 0}}},
       {},
       "2 net@eth0.service sound.service, "},
      {{{"tuner.service", {"activating", "auto-restart", 1}}, {"disk.service", {"activating", "start", 9}}},
       {{"voice.service", {"activating", "auto-restart", 2}}},
       "0 , "},
      {{{"tuner.service", {"activating", "auto-restart", 4}}, {"disk.service", {"activating", "start", 19}}},
       {{"voice.service", {"activating", "auto-restart-queued", 5}}},
       "1 tuner.service, voice.service"},
      {{{"tuner.service", {"activating", "auto-restart", 5}}},
       {{"mixer.service", {"failed", "failed", 0}}},
       "1 tuner.service, mixer.service"},
      {{{"NetworkManager-wait-online.service", {"failed", "failed", 0}},
        {"systemd-networkd-wait-online@eth0.service", {"failed", "failed", 0}}},
       {},
       "0 , "},
      {{}, {}, "0 , "},
  };
  for (const auto& step : steps) {
    machine.units = step.machine;
    user.units = step.user;
    EXPECT_EQ(failed(), step.expected);
  }
  machine.asked = 0;
  for (int i = 0; i < 50; ++i)
    machine.units["loop" + std::to_string(i) + ".service"] = {"activating", "auto-restart", 9};
  EXPECT_EQ(failed(), "0 , ");
  EXPECT_LE(machine.asked, 8);
}

TEST(Services, ThatRunForSecondsOnlyAreFoundByTheirProcess) {
  const std::string stat = " (a b) (c) S 1 2 3 4 5 6 7 8 9 10 11 12 13 14 15 16 17 18 ";
  const auto groups = "/sys/fs/cgroup/system.slice/"s, older = "/sys/fs/cgroup/systemd/system.slice/"s;
  const auto at = [](long seconds) { return std::to_string(seconds * sysconf(_SC_CLK_TCK)) + " 0\n"; };
  const Files processes = {{"/proc/uptime", "1000 1\n"},
                           {"/proc/7/stat", "7" + stat + at(100)},
                           {"/proc/8/stat", "8" + stat + at(990)},
                           {"/proc/9/stat", "9" + stat + at(995)}};
  const std::pair<Files, std::vector<std::string>> cases[] = {
      {{{groups + "old.service/cgroup.procs", "7\n9\n"},
        {groups + "new.service/cgroup.procs", "8\n7\n"},
        {groups + "newest.service/cgroup.procs", "9\n"},
        {groups + "a.mount/cgroup.procs", "9\n"},
        {groups + "gone.service/cgroup.procs", "10\n"},
        {groups + "empty.service/cgroup.procs", ""}},
       {"newest.service", "new.service"}},
      {{{older + "new.service/cgroup.procs", "8\n"}}, {"new.service"}},
      {{{groups + "system-net.slice/net@eth0.service/cgroup.procs", "8\n"},
        {groups + "new.service/cgroup.procs", "9\n"},
        {groups + "system-getty.slice/getty@tty1.service/cgroup.procs", "9\n"},
        {groups + "system-serial\\x2dgetty.slice/serial-getty@ttyS0.service/cgroup.procs", "9\n"}},
       {"new.service", "net@eth0.service"}},
      {{{older + "new.service/cgroup.procs", "8\n"}, {"/proc/uptime", "119 1\n"}}, {}},
  };
  for (const auto& [files, names] : cases)
    EXPECT_EQ(trevlin::YoungServices(CapturedMachine(With(processes, files)).Get(), "system.slice", 60s), names);
}

TEST(Clock, AsksSystemdForTheTimeService) {
  const TestBus bus;
  setenv("DBUS_SYSTEM_BUS_ADDRESS", bus.Address(), 1);
  std::string units, asked;
  const auto isOff = [] {
    Facts facts;
    trevlin::MakeClockCollector()->Collect({}, facts);
    return Told(facts["clock.time_service_off"]);
  };
  EXPECT_EQ(isOff(), "?");
  const PlayedService systemd(bus, "org.freedesktop.systemd1", [&](GDBusMessage* call) {
    asked = CText(g_variant_print(g_dbus_message_get_body(call), FALSE)).get();
    GDBusMessage* const reply = g_dbus_message_new_method_reply(call);
    g_dbus_message_set_body(reply, g_variant_new_parsed(("(@a(ssssssouso) [" + units + "],)").c_str()));
    return reply;
  });
  const auto unit = [](const std::string& state, int job = 0, const std::string& name = "x") {
    return "('" + name + ".service', '', " + state + ", '', '', '/a', " + std::to_string(job) + ", '', '/')";
  };
  const std::pair<std::string, const char*> kCases[] = {
      {unit("'loaded', 'inactive'"), "yes"},
      {unit("'loaded', 'inactive'") + ", " + unit("'loaded', 'active'"), "no"},
      {unit("'loaded', 'inactive'", 7), "no"},
      {unit("'loaded', 'activating'"), "no"},
      {unit("'loaded', 'inactive'", 0, "connman"), "no"},
      {unit("'loaded', 'failed'"), "no"},
      {unit("'masked', 'inactive'") + ", " + unit("'not-found', 'inactive'"), "no"},
  };
  for (const auto& [state, expected] : kCases) {
    units = state;
    EXPECT_EQ(isOff(), expected) << state;
  }
  EXPECT_THAT(asked, HasSubstr("'connman.service'")) << "it keeps the clock itself";
}

TEST(Storage, AskTheDiskServiceForFailingDrives) {
  const auto ata = [](int updated, bool isFailing) {
    return "{'org.freedesktop.UDisks2.Drive': {'Model': <'Zephon'>}, 'org.freedesktop.UDisks2.Drive.Ata': "
           "{'SmartUpdated': <uint64 " +
           std::to_string(updated) + ">, 'SmartFailing': <" + (isFailing ? "true" : "false") + ">}}";
  };
  const auto nvme = [](const std::string& warnings) {
    return "{'org.freedesktop.UDisks2.Drive': {'ConnectionBus': <''>}, 'org.freedesktop.UDisks2.NVMe.Controller': "
           "{'SmartUpdated': <uint64 9>, 'SmartCriticalWarning': <@as [" +
           warnings + "]>}}";
  };
  const struct {
    std::string one, other;
    const char* failing;
  } kDrives[] = {
      {ata(9, false), ata(9, true), "yes"},
      {ata(0, true), "{'org.freedesktop.UDisks2.Block': {}}", "?"},
      {nvme("'temperature'"), ata(0, false), "no"},
      {nvme("'temperature', 'spare'"), ata(9, false), "yes"},
  };
  const TestBus bus;
  setenv("DBUS_SYSTEM_BUS_ADDRESS", bus.Address(), 1);
  std::string objects;
  const PlayedService disks(bus, "org.freedesktop.UDisks2", [&objects](GDBusMessage* call) {
    GDBusMessage* const reply = g_dbus_message_new_method_reply(call);
    g_dbus_message_set_body(reply, g_variant_new_parsed(objects.c_str()));
    return reply;
  });
  for (const auto& each : kDrives) {
    objects = "(@a{oa{sa{sv}}} {'/a': " + each.one + ", '/b': " + each.other + "},)";
    Facts facts;
    trevlin::MakeStorageCollector()->Collect({}, facts);
    EXPECT_EQ(Told(facts["storage.smart_failing"]), each.failing) << objects;
    const bool isNamed = Told(facts["storage.failing_disks"]).find("Zephon") != std::string::npos;
    EXPECT_EQ(isNamed, each.other == ata(9, true)) << objects;
  }
}

TEST(SetFacts, TellPackagesProfileAndTheLastShutdown) {
  const std::string packages = set_paths::kPackagesDir;
  WriteFile(packages + "/good/manifest.json", R"({"package_id":"good","app_id":"good","title":"Good"})");
  WriteFile(packages + "/good/cache/file", std::string(3 << 20, 'c'));
  WriteFile(set_paths::kWebCacheDir + std::string("/good/file"), std::string(1 << 20, 'w'));
  WriteFile(packages + "/wrong/manifest.json", "{");
  fs::create_directories(SystemPath(packages + "/bare"));
  fs::create_directories(SystemPath(packages + "/.removing-gone"));
  WriteFile(packages + "/stray", "a file is no package");
  WriteFile(set_paths::kSetProfile, "[set]\nnum_of_tuner=2\n[tv]\nsource=13\n");
  WriteFile(set_paths::kLastShutdown, "now unclean\n");
  const CapturedMachine machine(Files{{"/proc/sys/kernel/random/boot_id", "now\n"}});
  const Facts facts = CollectAll(machine.Get());
  Expect(facts,
         "packages.broken=2 packages.broken_name=bare packages.unfinished=1 set.tuners=2 set.source=13 "
         "set.channel_type=? power.unclean_shutdown=yes");
  EXPECT_NEAR(std::get<double>(facts.at("packages.cache_mib")), 4, 0.1);
  EXPECT_TRUE(Exists(packages + "/.removing-gone")) << "looking changes nothing";
  machine.Write({{"/proc/sys/kernel/random/boot_id", "later\n"}});
  Expect(CollectAll(machine.Get()), "power.unclean_shutdown=?");
}

TEST(Collectors, KeepTheirWordOnThisMachine) {
  // Where there is neither a router nor a name server to ask.
  if (unshare(CLONE_NEWNET) != 0) GTEST_SKIP() << "no network namespace: " << std::strerror(errno);
  EXPECT_FALSE(CollectAll({}).empty());
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
