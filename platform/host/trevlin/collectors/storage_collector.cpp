#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <set>

#include "base/bus.h"
#include "set_paths.h"
#include "system_path.h"
#include "trevlin/collectors/collectors.h"
#include "trevlin/collectors/kernel_log.h"
#include "trevlin/collectors/readings.h"

namespace trevlin {

namespace {

using namespace std::chrono_literals;

constexpr double kMib = 1 << 20;
constexpr double kFullPercent = 97, kFullMib = 1024;
constexpr char kBlock[] = "/sys/block/";

/// A tenth should stay free, of a large disk 2 GiB.
constexpr double kRoomPercent = 10, kRoomMib = 2048;
/// Where the system and people's files are, and from what size on: smaller ones are made to be full.
constexpr struct {
  const char* path;
  double leastMib;
} kSystemPlaces[] = {{"/", 1024}, {"/var", 1024}, {"/home", 1024}, {"/boot", 200}};

/// A line of /proc/self/mountinfo; the kernel's Documentation/filesystems/proc.rst has the format.
struct Mount {
  std::string device;  // "254:0"
  std::string point;
  std::string type;
  std::string source;
  bool isReadOnly = false;            // the mount itself
  bool isFileSystemReadOnly = false;  // all mounts of the file system
  bool hasGivenUp = false;            // the file system, after an error
  std::string block;                  // "sda1": what the kernel calls the device; empty where none is known
};

/// Blanks and the like stand as "\040" in the kernel's and fstab's lists.
std::string Decode(std::string_view text) {
  const auto isOctal = [](char c) { return c >= '0' && c <= '7'; };
  std::string decoded;
  for (size_t i = 0; i < text.size(); ++i) {
    const bool isCode = text[i] == '\\' && i + 3 < text.size() && text[i + 1] <= '3' && isOctal(text[i + 1]) &&
                        isOctal(text[i + 2]) && isOctal(text[i + 3]);
    decoded +=
        isCode ? static_cast<char>((text[i + 1] - '0') * 64 + (text[i + 2] - '0') * 8 + text[i + 3] - '0') : text[i];
    if (isCode) i += 3;
  }
  return decoded;
}

bool HasOption(std::string_view options, std::string_view option) {
  return (',' + std::string(options) + ',').find(',' + std::string(option) + ',') != std::string::npos;
}

std::optional<Mount> ParseMount(std::string_view line) {
  // "22 27 0:21 /root /point rw,relatime shared:1 - type source super,options"
  const auto words = SplitWords(line);
  const auto dash = std::find(words.begin() + std::min<ptrdiff_t>(6, std::ssize(words)), words.end(), "-");
  if (words.end() - dash < 4) return std::nullopt;
  Mount mount;
  mount.device = words[2];
  mount.point = Decode(words[4]);
  mount.type = dash[1];
  mount.source = Decode(dash[2]);
  mount.isReadOnly = HasOption(words[5], "ro");
  mount.isFileSystemReadOnly = HasOption(dash[3], "ro");
  mount.hasGivenUp = HasOption(dash[3], "emergency_ro") || HasOption(dash[3], "shutdown");
  return mount;
}

bool IsDiskFileSystem(const Mount& mount) {
  static const std::set<std::string_view> kTypes = {"ext2", "ext3", "ext4", "xfs", "btrfs", "f2fs", "vfat", "exfat"};
  return kTypes.contains(mount.type) && mount.source.starts_with("/dev/");
}

/// An XFS that has shut itself down is listed as if nothing were: it only answers no more.
bool AnswersWithAnError(const Machine& machine, const Mount& mount) {
  struct stat status {};
  return !machine.IsCaptured() && IsDiskFileSystem(mount) && stat(mount.point.c_str(), &status) != 0 && errno == EIO;
}

/// By its number, as a source may be "/dev/root"; by its source where it has none of its own (btrfs).
std::string BlockOf(const Machine& machine, const Mount& mount) {
  if (!mount.source.starts_with("/dev/")) return "";
  for (const std::string& path : {"/sys/dev/block/" + mount.device, mount.source})
    if (const CText real(realpath(machine.Path(path).c_str(), nullptr)); real)
      return std::filesystem::path(real.get()).filename();
  return std::filesystem::path(mount.source).filename();
}

std::vector<Mount> ReadMounts(const Machine& machine) {
  std::vector<Mount> mounts;
  const std::string list = ReadText(machine, "/proc/self/mountinfo").value_or("");
  for (const std::string_view line : SplitLines(list)) {
    auto mount = ParseMount(line);
    if (!mount) continue;
    mount->block = BlockOf(machine, *mount);
    mount->hasGivenUp = mount->hasGivenUp || AnswersWithAnError(machine, *mount);
    mounts.push_back(std::move(*mount));
  }
  return mounts;
}

/// The mount that a path lies on: the longest point above it, and of several at one point the last.
const Mount* MountOf(const std::vector<Mount>& mounts, const std::string& path) {
  const Mount* found = nullptr;
  for (const Mount& mount : mounts) {
    const bool isAbove = mount.point == "/" || path == mount.point || path.starts_with(mount.point + "/");
    if (isAbove && (!found || mount.point.size() >= found->point.size())) found = &mount;
  }
  return found;
}

/// The options of a mount point in /etc/fstab.
std::optional<std::string> WantedOptions(const Machine& machine, const std::string& point) {
  const std::string list = ReadText(machine, "/etc/fstab").value_or("");
  for (const std::string_view line : SplitLines(list)) {
    const auto words = SplitWords(line);
    if (words.size() >= 4 && !words[0].starts_with('#') && Decode(words[1]) == point) return std::string(words[3]);
  }
  return std::nullopt;
}

/// Whether the kernel made a file system read-only that was mounted to be written: the mount itself still is, and no
/// mount of it was asked to be read-only.
bool HasFailed(const Mount& mount, const std::vector<Mount>& all) {
  if (mount.hasGivenUp) return true;
  return !mount.isReadOnly && mount.isFileSystemReadOnly &&
         std::none_of(all.begin(), all.end(),
                      [&](const Mount& other) { return other.device == mount.device && other.isReadOnly; });
}

/// What the file systems lie on: the machine's own disks, those that can be taken out, and what is no disk at all, as
/// an image that is mounted. What holds the system or the user data is the machine's own whatever it is: one that was
/// started from a stick needs that.
class Media {
 public:
  Media(const Machine& machine, const std::vector<Mount>& mounts, const Mount* data) : m_machine(machine) {
    for (const Mount* needed : {data, MountOf(mounts, "/")})
      if (needed && !needed->block.empty()) m_needed.merge(DisksOf(needed->block));
  }

  /// `block`: "sda1", "dm-0", or the disk itself.
  bool IsRemovable(const std::string& block) const {
    return Is(block, [this](const std::string& disk) { return CanBeTakenOut(disk); });
  }
  bool IsOwn(const std::string& block) const {
    return !IsRemovable(block) && !Is(block, [](const std::string& disk) {
      return disk.starts_with("loop") || disk.starts_with("ram") || disk.starts_with("zram");
    });
  }

  /// Those below it, where it is made of others (encrypted, of several); itself where the machine does not list it.
  std::set<std::string> DisksOf(const std::string& block) const {
    std::set<std::string> disks;
    for (const std::string& disk : ListNames(m_machine, kBlock)) {
      if (block != disk && !(block.starts_with(disk) && Exists(m_machine, kBlock + disk + "/" + block))) continue;
      for (const std::string& part : ListNames(m_machine, kBlock + disk + "/slaves")) disks.merge(DisksOf(part));
      if (disks.empty()) disks.insert(disk);
      break;
    }
    return disks.empty() ? std::set{block} : disks;
  }

 private:
  template <typename Test>
  bool Is(const std::string& block, const Test& test) const {
    const std::set<std::string> disks = DisksOf(block);
    return std::any_of(disks.begin(), disks.end(),
                       [&](const std::string& disk) { return !m_needed.contains(disk) && test(disk); });
  }

  /// Disks behind USB and cards in a slot say that they are fixed.
  bool CanBeTakenOut(const std::string& disk) const {
    const CText device(realpath(m_machine.Path(kBlock + disk).c_str(), nullptr));
    return ReadNumber(m_machine, kBlock + disk + "/removable") == 1 ||
           (device && std::string_view(device.get()).find("/usb") != std::string_view::npos) ||
           ReadLine(m_machine, kBlock + disk + "/device/type") == "SD";
  }

  const Machine& m_machine;
  std::set<std::string> m_needed;
};

double FreeMib(const struct statvfs& disk) {
  return static_cast<double>(disk.f_bavail) * static_cast<double>(disk.f_frsize) / kMib;
}

/// What people without privileges may still write, of what they see as all.
std::optional<double> FreePercent(const struct statvfs& disk) {
  if (disk.f_blocks == 0 || disk.f_bfree > disk.f_blocks || disk.f_bavail > disk.f_bfree) return std::nullopt;
  const auto used = static_cast<double>(disk.f_blocks - disk.f_bfree), free = static_cast<double>(disk.f_bavail);
  return used + free > 0 ? std::optional(free / (used + free) * 100) : std::nullopt;
}

double SizeMib(const struct statvfs& disk) {
  return static_cast<double>(disk.f_blocks) * static_cast<double>(disk.f_frsize) / kMib;
}

/// Small partitions (of a boot loader, with a driver) are made to be full.
bool IsFull(const struct statvfs& disk) {
  const auto percent = FreePercent(disk);
  return percent && *percent < 100 - kFullPercent && FreeMib(disk) < kFullMib && SizeMib(disk) >= kFullMib;
}

/// Whether a drive, by the interfaces that the disk service (UDisks2) gives it, says that it is about to fail; unknown
/// where it was not asked, and of USB cases.
std::optional<bool> IsFailing(GVariant* interfaces) {
  const auto find = [interfaces](const char* name) {
    return GVariantHandle(g_variant_lookup_value(interfaces, name, G_VARIANT_TYPE("a{sv}")));
  };
  const GVariantHandle drive = find("org.freedesktop.UDisks2.Drive");
  const char* bus = "";
  if (!drive || (g_variant_lookup(drive.get(), "ConnectionBus", "&s", &bus) && std::string_view(bus) == "usb"))
    return std::nullopt;
  const GVariantHandle ata = find("org.freedesktop.UDisks2.Drive.Ata");
  const GVariantHandle nvme = find("org.freedesktop.UDisks2.NVMe.Controller");
  guint64 askedAt = 0;
  GVariant* const told = ata ? ata.get() : nvme.get();
  if (!told || !g_variant_lookup(told, "SmartUpdated", "t", &askedAt) || askedAt == 0) return std::nullopt;
  gboolean isFailing = FALSE;
  if (ata)
    return g_variant_lookup(told, "SmartFailing", "b", &isFailing) ? std::optional(isFailing != FALSE) : std::nullopt;
  const GVariantHandle warnings(g_variant_lookup_value(told, "SmartCriticalWarning", G_VARIANT_TYPE("as")));
  if (!warnings) return std::nullopt;
  // The others tell of heat and of memory beside the cells.
  for (gsize i = 0; i < g_variant_n_children(warnings.get()); ++i) {
    const GVariantHandle warning(g_variant_get_child_value(warnings.get(), i));
    const std::string_view name = g_variant_get_string(warning.get(), nullptr);
    if (name == "spare" || name == "degraded" || name == "readonly") return true;
  }
  return false;
}

/// Adds the models of those that are to `failing`. False where the disk service is there and does not answer.
bool LookForFailingDrives(std::set<std::string>& failing, std::optional<bool>& any) {
  constexpr BusMethod kObjects = {"org.freedesktop.UDisks2", "/org/freedesktop/UDisks2",
                                  "org.freedesktop.DBus.ObjectManager", "GetManagedObjects", "(a{oa{sa{sv}}})"};
  bool isThere = false;
  const GVariantHandle reply = AskSystemBus(kObjects, nullptr, &isThere);
  if (!reply) return !isThere;
  const GVariantHandle objects(g_variant_get_child_value(reply.get(), 0));
  for (gsize i = 0; i < g_variant_n_children(objects.get()); ++i) {
    const GVariantHandle object(g_variant_get_child_value(objects.get(), i));
    const GVariantHandle interfaces(g_variant_get_child_value(object.get(), 1));
    const auto isFailing = IsFailing(interfaces.get());
    if (!isFailing) continue;
    any = any.value_or(false) || *isFailing;
    const GVariantHandle drive(
        g_variant_lookup_value(interfaces.get(), "org.freedesktop.UDisks2.Drive", G_VARIANT_TYPE("a{sv}")));
    const char* model = "";
    if (*isFailing && drive && g_variant_lookup(drive.get(), "Model", "&s", &model) && *model) failing.insert(model);
  }
  return true;
}

/// The errors of reading and writing that the kernel's log has of each disk since it was attached, or has its medium.
class ErrorLog {
 public:
  /// Reads on. False where the log may not be read.
  bool Read(const Machine& machine) {
    if (machine.IsCaptured()) m_errors.clear();
    return m_log.Read(machine, [this](const LogRecord& record) { Add(record.text); });
  }

  const std::map<std::string, int>& Errors() const { return m_errors; }

 private:
  void Add(std::string_view text) {
    // "sd 2:0:0:0: [sdb] Attached SCSI disk", "mmcblk1: mmc1:0001 SD32G 29.7 GiB": another one of the same name.
    if (const size_t open = text.find('['), close = text.find("] Attached SCSI");
        close != std::string_view::npos && open < close)
      m_errors.erase(std::string(text.substr(open + 1, close - open - 1)));
    if (const size_t colon = text.find(": mmc"); text.starts_with("mmcblk") && colon != std::string_view::npos)
      m_errors.erase(std::string(text.substr(0, colon)));
    // "loop0: detected capacity change from 0 to 8192": another medium in it. One that fails changes to 0.
    if (const size_t colon = text.find(": detected capacity change from 0 to "); colon != std::string_view::npos)
      m_errors.erase(std::string(text.substr(0, colon)));
    // "I/O error, dev sda, sector 2048 op 0x0:(READ) flags 0x0"; what a disk need not understand is no fault of it.
    constexpr std::string_view kErrors[] = {"I/O error, dev ", "critical medium error, dev "};
    for (const std::string_view error : kErrors) {
      const size_t at = text.find(error);
      if (at == std::string_view::npos) continue;
      const std::string_view rest = text.substr(at + error.size());
      const size_t op = rest.find(" op ");
      const std::string_view what = op == std::string_view::npos ? "(READ)" : rest.substr(op);
      if (what.find("(READ)") != std::string_view::npos || what.find("(WRITE)") != std::string_view::npos)
        ++m_errors[std::string(rest.substr(0, rest.find(',')))];
      return;
    }
  }

  KernelLog m_log;
  std::map<std::string, int> m_errors;
};

class StorageCollector : public Collector {
 public:
  std::string_view Name() const override { return "storage"; }
  std::chrono::milliseconds Period() const override { return 10s; }
  // A disk that sleeps has to wake up.
  std::chrono::milliseconds Deadline() const override { return 2400ms; }
  std::vector<FactDescription> Describe() const override {
    return {
        {"storage.free_percent", FactKind::kNumber, "%", "free space of the user-data partition"},
        {"storage.free_mib", FactKind::kNumber, "MiB", "free space of the user-data partition"},
        {"storage.system_room_percent", FactKind::kNumber, "%",
         "free space where the system and people's files are, of what should be free there"},
        {"storage.system_fullest", FactKind::kText, "", "the place that tells of"},
        {"storage.inodes_free_percent", FactKind::kNumber, "%", "files that can still be made there, of all"},
        {"storage.read_only", FactKind::kTruth, "",
         "the user-data partition cannot be written, which nobody asked for"},
        {"storage.system_read_only_error", FactKind::kTruth, "",
         "a built-in disk can no longer be written after an error"},
        {"storage.fs_errors", FactKind::kNumber, "", "errors that file systems on built-in disks have recorded"},
        {"storage.io_errors", FactKind::kNumber, "",
         "reads and writes that failed on built-in disks since they were attached"},
        {"storage.removable_io_errors", FactKind::kNumber, "", "the same of removable disks"},
        {"storage.faulty_disks", FactKind::kText, "", "the model and place of built-in disks with such errors"},
        {"storage.removable_faulty_disks", FactKind::kText, "", "the same of removable disks"},
        {"storage.failing_disks", FactKind::kText, "", "the same of built-in disks that are about to fail"},
        {"storage.wear_percent", FactKind::kNumber, "%",
         "life that the built-in flash has used; 110 is beyond its end"},
        {"storage.pre_eol", FactKind::kTruth, "", "the built-in flash has nearly used up its spare blocks"},
        {"storage.smart_failing", FactKind::kTruth, "", "a built-in disk says that it is about to fail"},
        {"storage.removable_error", FactKind::kTruth, "",
         "a file system on a removable disk has failed or recorded errors"},
        {"storage.removable_full", FactKind::kTruth, "",
         "a removable disk is over 97 % full, with less than 1 GiB free"},
    };
  }

  void Collect(const Machine& machine, Facts& facts) override {
    const std::vector<Mount> mounts = ReadMounts(machine);
    const Mount* const data = MountOf(mounts, DataFolder(machine));
    if (!machine.IsCaptured()) {
      if (!data || !data->isFileSystemReadOnly) AddSpace(facts);
      AddSystemSpace(mounts, data, facts);
    }
    const Media media(machine, mounts, data);
    AddReadOnly(machine, mounts, data, facts);
    Disks disks;
    AddErrors(machine, mounts, media, disks, facts);
    AddFlashHealth(machine, disks.failing, facts);
    std::optional<bool> isFailing;
    std::set<std::string> models;
    if (!machine.IsCaptured() && !LookForFailingDrives(models, isFailing)) AddUnknown(facts, "storage.smart_failing");
    for (const std::string& model : models) disks.failing.insert(NameOfModel(machine, model));
    AddFact(facts, "storage.smart_failing", isFailing);
    AddInputOutputErrors(machine, media, disks, facts);
    AddNames(facts, "storage.faulty_disks", disks.faulty);
    AddNames(facts, "storage.removable_faulty_disks", disks.removable);
    AddNames(facts, "storage.failing_disks", disks.failing);
    if (!mounts.empty() && !machine.IsCaptured())
      facts["storage.removable_full"] = IsRemovableFull(machine, mounts, media);
  }

 private:
  /// By name: built-in ones and removable ones with errors, and built-in ones that say that they are about to fail.
  struct Disks {
    std::set<std::string> faulty, removable, failing;
  };

  static void AddNames(Facts& facts, std::string_view fact, const std::set<std::string>& disks) {
    std::string names;
    for (const std::string& disk : disks) names += (names.empty() ? "" : ", ") + disk;
    if (!names.empty()) facts.insert_or_assign(std::string(fact), FactValue(names));
  }

  static std::string DataFolder(const Machine& machine) {
    if (machine.IsCaptured()) return set_paths::kUserPartition;
    const std::string path = SystemPath(set_paths::kUserPartition);
    const CText real(realpath(path.c_str(), nullptr));
    return real ? real.get() : path;
  }

  static void AddSpace(Facts& facts) {
    struct statvfs disk {};
    if (statvfs(SystemPath(set_paths::kUserPartition).c_str(), &disk) != 0) return;
    if (const auto percent = FreePercent(disk)) {
      facts["storage.free_percent"] = *percent;
      facts["storage.free_mib"] = FreeMib(disk);
    }
    // Some file systems make inodes as they go, and tell 0.
    if (disk.f_files > 0 && disk.f_favail <= disk.f_files)
      facts["storage.inodes_free_percent"] =
          static_cast<double>(disk.f_favail) / static_cast<double>(disk.f_files) * 100;
  }

  /// What lies on the file system of the user data is told with that.
  static void AddSystemSpace(const std::vector<Mount>& mounts, const Mount* data, Facts& facts) {
    const auto fileSystem = [](const Mount& mount) { return mount.block.empty() ? mount.device : mount.block; };
    std::optional<double> least;
    for (const auto& place : kSystemPlaces) {
      const CText real(realpath(place.path, nullptr));
      const Mount* const mount = real ? MountOf(mounts, real.get()) : nullptr;
      if (!mount || !IsDiskFileSystem(*mount) || mount->isReadOnly || mount->isFileSystemReadOnly ||
          (data && fileSystem(*mount) == fileSystem(*data)))
        continue;
      struct statvfs disk {};
      if (statvfs(real.get(), &disk) != 0 || SizeMib(disk) < place.leastMib) continue;
      const auto percent = FreePercent(disk);
      if (!percent) continue;
      const double room = std::max(*percent / kRoomPercent, FreeMib(disk) / kRoomMib) * 100;
      if (least && room >= *least) continue;
      least = room;
      facts["storage.system_fullest"] = std::string(place.path);
    }
    AddFact(facts, "storage.system_room_percent", least);
  }

  static void AddReadOnly(const Machine& machine, const std::vector<Mount>& mounts, const Mount* data, Facts& facts) {
    if (data) {
      const auto wanted = WantedOptions(machine, data->point);
      // A mount that is read-only alone was made so, by a sandbox for one.
      facts["storage.read_only"] = wanted && !HasOption(*wanted, "ro")
                                       ? data->isFileSystemReadOnly || data->hasGivenUp
                                       : IsDiskFileSystem(*data) && HasFailed(*data, mounts) && !wanted;
    }
  }

  static void AddErrors(const Machine& machine, const std::vector<Mount>& mounts, const Media& media, Disks& disks,
                        Facts& facts) {
    const auto name = [&](const std::string& block) {
      if (!media.IsOwn(block) && !media.IsRemovable(block)) return;
      auto& names = media.IsRemovable(block) ? disks.removable : disks.faulty;
      for (const std::string& disk : media.DisksOf(block)) names.insert(NameOf(machine, disk));
    };
    bool hasOwnFailed = false, hasRemovableFailed = false;
    for (const Mount& mount : mounts) {
      if (!IsDiskFileSystem(mount) || !HasFailed(mount, mounts)) continue;
      hasOwnFailed = hasOwnFailed || media.IsOwn(mount.block);
      hasRemovableFailed = hasRemovableFailed || media.IsRemovable(mount.block);
      name(mount.block);
    }
    std::optional<double> errors;
    for (const std::string& block : ListNames(machine, "/sys/fs/ext4")) {
      const auto count = ReadNumber(machine, "/sys/fs/ext4/" + block + "/errors_count", 0);
      if (count && media.IsOwn(block)) errors = errors.value_or(0) + *count;
      hasRemovableFailed = hasRemovableFailed || (count.value_or(0) > 0 && media.IsRemovable(block));
      if (count.value_or(0) > 0) name(block);
    }
    AddFact(facts, "storage.fs_errors", errors);
    if (mounts.empty()) return;
    facts["storage.system_read_only_error"] = hasOwnFailed;
    facts["storage.removable_error"] = hasRemovableFailed;
  }

  /// JEDEC eMMC 5.0 and UFS 2.1 grade alike. Life: two kinds of cells, 1 for the first tenth to 11 for beyond the end;
  /// 0: not told. Spare blocks: 1 normal, 2 four fifths of them are used, 3 nine tenths.
  static void AddFlashHealth(const Machine& machine, std::set<std::string>& failing, Facts& facts) {
    std::optional<double> wear;
    std::optional<bool> preEol;
    const auto add = [&](const std::string& life, const std::string& spare) {
      for (const std::string_view word : SplitWords(life))
        if (const auto tenth = ParseNumber(word); tenth && *tenth >= 1 && *tenth <= 11)
          wear = std::max(wear.value_or(0), *tenth * 10);
      const auto state = ParseNumber(spare);
      if (!state || *state < 1 || *state > 3) return false;
      preEol = preEol.value_or(false) || *state >= 2;
      return *state >= 2;
    };
    const auto read = [&](const std::string& path) { return ReadLine(machine, path).value_or(""); };
    for (const std::string& name : ListNames(machine, kBlock))
      if (name.starts_with("mmcblk") &&
          add(read(kBlock + name + "/device/life_time"), read(kBlock + name + "/device/pre_eol_info")))
        failing.insert(NameOf(machine, name));
    constexpr char kHosts[] = "/sys/class/scsi_host/";
    for (const std::string& name : ListNames(machine, kHosts)) {
      const std::string health = kHosts + name + "/device/../health_descriptor/";
      add(read(health + "life_time_estimation_a") + " " + read(health + "life_time_estimation_b"),
          read(health + "eol_info"));
    }
    AddFact(facts, "storage.wear_percent", wear);
    AddFact(facts, "storage.pre_eol", preEol);
  }

  void AddInputOutputErrors(const Machine& machine, const Media& media, Disks& disks, Facts& facts) {
    const bool isLogged = m_errorLog.Read(machine);
    double own = 0, removable = 0;
    bool isKnown = isLogged;
    for (const std::string& disk : ListNames(machine, kBlock)) {
      // Without a disc in them, and of the area that is only for who has its key, too.
      if (disk.starts_with("sr") || disk.starts_with("fd") || disk.ends_with("rpmb")) continue;
      const auto errors = isLogged ? LoggedErrors(disk) : CountedErrors(machine, disk);
      isKnown = isKnown || errors;
      if (errors.value_or(0) == 0) continue;
      const bool isRemovable = media.IsRemovable(disk), isOwn = media.IsOwn(disk);
      (isRemovable ? removable : own) += isRemovable || isOwn ? *errors : 0;
      if (isRemovable || isOwn) (isRemovable ? disks.removable : disks.faulty).insert(NameOf(machine, disk));
    }
    if (!isKnown) return;
    facts["storage.io_errors"] = own;
    facts["storage.removable_io_errors"] = removable;
  }

  std::optional<double> LoggedErrors(const std::string& disk) const {
    const auto found = m_errorLog.Errors().find(disk);
    return found == m_errorLog.Errors().end() ? 0 : found->second;
  }

  /// Where the log may not be read. Commands that a disk does not know count, too: those who ask for its health send
  /// some each ten minutes.
  static std::optional<double> CountedErrors(const Machine& machine, const std::string& disk) {
    constexpr double kUnknownCommands = 10;
    const std::string count = ReadLine(machine, kBlock + disk + "/device/ioerr_cnt").value_or("");  // "0x1f"
    if (!count.starts_with("0x") || count.size() < 3) return std::nullopt;
    const auto risen = RiseWithin(machine, "io_errors_" + disk, std::strtod(count.c_str(), nullptr), 600s);
    return risen.value_or(0) < kUnknownCommands ? 0 : risen;
  }

  /// "Zephon S2 (sda)"
  static std::string NameOf(const Machine& machine, const std::string& disk) {
    const std::string device = kBlock + disk + "/device/";
    const auto model = ReadLine(machine, device + "model");
    const std::string name = model ? *model : ReadLine(machine, device + "name").value_or("disk");
    return name + " (" + disk + ")";
  }

  /// With its place, where there is one of that model; the kernel has the first letters of long ones.
  static std::string NameOfModel(const Machine& machine, const std::string& model) {
    std::vector<std::string> places;
    for (const std::string& disk : ListNames(machine, kBlock)) {
      const auto known = ReadLine(machine, kBlock + disk + "/device/model");
      if (known && model.starts_with(*known)) places.push_back(disk);
    }
    return places.size() == 1 ? model + " (" + places.front() + ")" : model;
  }

  static bool IsRemovableFull(const Machine& machine, const std::vector<Mount>& mounts, const Media& media) {
    return std::any_of(mounts.begin(), mounts.end(), [&](const Mount& mount) {
      struct statvfs space {};
      return !mount.block.empty() && !mount.isReadOnly && !mount.isFileSystemReadOnly &&
             media.IsRemovable(mount.block) && statvfs(machine.Path(mount.point).c_str(), &space) == 0 && IsFull(space);
    });
  }

  ErrorLog m_errorLog;
};

}  // namespace

std::unique_ptr<Collector> MakeStorageCollector() {
  return std::make_unique<StorageCollector>();
}

}  // namespace trevlin
