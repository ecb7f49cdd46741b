#include "system_info.h"

#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/sysmacros.h>

#include <algorithm>
#include <cinttypes>
#include <climits>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/atomic_file.h"
#include "base/folder.h"
#include "dlog.h"
#include "log_tags.h"
#include "set_paths.h"
#include "sysinfo/set_profile.h"
#include "system_path.h"

namespace {

constexpr const char* kTag = log_tags::kSystemInfo;

// --- Facts of the machine --------------------------------------------------------------------------------------------
// Read below the set root like all else: a root of one's own has none, unless its owner puts some there.

using TextFact = std::optional<std::string> (*)();
using NumberFact = std::optional<int> (*)();

/// The first line, without blanks around it, of a file of the kernel; nothing when it is empty or what makers of boards
/// leave in the place of a value.
std::optional<std::string> FirstLine(const char* path) {
  constexpr std::string_view kFillers[] = {"None",
                                           "Default string",
                                           "To Be Filled By O.E.M.",
                                           "To be filled by O.E.M.",
                                           "Not Specified",
                                           "System Product Name",
                                           "System Serial Number",
                                           "Not Applicable",
                                           "0"};
  std::string text;
  if (!ReadWholeFile(SystemPath(path), text, Links::kFollow, kMostNoted)) return std::nullopt;
  text.resize(std::min(text.size(), text.find_first_of(std::string_view("\n\0", 2))));
  text.erase(0, text.find_first_not_of(" \t"));
  text.resize(text.find_last_not_of(" \t\r") + 1);
  if (text.empty() || std::find(std::begin(kFillers), std::end(kFillers), text) != std::end(kFillers))
    return std::nullopt;
  return text;
}

std::optional<std::string> MachineSerial() {
  for (const char* path :
       {"/sys/class/dmi/id/product_serial", "/sys/class/dmi/id/board_serial", "/proc/device-tree/serial-number"})
    if (auto line = FirstLine(path)) return line;
  return std::nullopt;
}

std::optional<std::string> MachineModel() {
  const auto line = FirstLine("/sys/class/dmi/id/product_name");
  return line ? line : FirstLine("/proc/device-tree/model");
}

std::optional<int> NumberOfTuners() {
  return static_cast<int>(std::ranges::count_if(EntriesOf(SystemPath("/dev/dvb")), [](const auto& entry) {
    return entry.filename().string().starts_with("adapter");
  }));
}

/// The size in bytes of the disk that a block device is on: that of a partition is the folder above its own
/// (Documentation/ABI/testing/sysfs-block of the kernel). A mapping of one device is on that one's; one of several is
/// as large as it makes itself. `device` is its folder below /sys/devices.
std::optional<uint64_t> DiskSize(std::filesystem::path device, int mappings = 8) {
  std::error_code error;
  if (std::filesystem::exists(device / "partition", error)) device = device.parent_path();
  const auto mapped = EntriesOf(device / "slaves");
  if (mapped.size() == 1 && mappings > 0) {
    const auto below = std::filesystem::canonical(mapped.front(), error);
    if (const auto size = error ? std::nullopt : DiskSize(below, mappings - 1)) return size;
  }
  constexpr uint64_t kSector = 512;  // whatever the disk's own are
  uint64_t sectors = 0;
  std::string text;
  if (!ReadWholeFile(device / "size", text, Links::kFollow, kMostNoted) ||
      std::sscanf(text.c_str(), "%" SCNu64, &sectors) != 1 || sectors == 0)
    return std::nullopt;
  return sectors * kSector;
}

/// Of the disk of the user partition, else of its file system.
std::optional<uint64_t> StorageSize() {
  const std::string path = SystemPath(set_paths::kUserPartition);
  struct stat status {};
  struct statvfs partition {};
  if (stat(path.c_str(), &status) != 0 || statvfs(path.c_str(), &partition) != 0) return std::nullopt;
  const std::string number = std::to_string(major(status.st_dev)) + ":" + std::to_string(minor(status.st_dev));
  std::error_code error;
  const auto device = std::filesystem::canonical(SystemPath("/sys/dev/block/" + number), error);
  const auto disk = error ? std::nullopt : DiskSize(device);
  return disk ? *disk : uint64_t{partition.f_blocks} * partition.f_frsize;
}

/// 0 to 4 for storage of up to 4, 8, 16, 32, 64 GiB.
std::optional<int> FlashSizeIndex() {
  const std::optional<uint64_t> size = StorageSize();
  for (int index = 0; size && index <= 4; ++index)
    if (*size <= uint64_t{4} << (30 + index)) return index;
  return std::nullopt;
}

struct Resolution {
  int width = 0;
  int height = 0;
};

/// The preferred mode of the largest screen that is connected.
std::optional<Resolution> PanelResolution() {
  Resolution largest;
  const std::string folder = "/sys/class/drm";
  for (const std::filesystem::path& entry : EntriesOf(SystemPath(folder))) {
    const std::string connector = folder + "/" + entry.filename().string();
    if (FirstLine((connector + "/status").c_str()) != "connected") continue;
    const auto mode = FirstLine((connector + "/modes").c_str());
    Resolution panel;
    if (mode && std::sscanf(mode->c_str(), "%5dx%5d", &panel.width, &panel.height) == 2 &&
        panel.width * panel.height > largest.width * largest.height)
      largest = panel;
  }
  return largest.width > 0 ? std::optional(largest) : std::nullopt;
}

std::optional<int> PanelWidth() {
  const auto panel = PanelResolution();
  return panel ? std::optional(panel->width) : std::nullopt;
}

std::optional<int> PanelHeight() {
  const auto panel = PanelResolution();
  return panel ? std::optional(panel->height) : std::nullopt;
}

// --- Keys ------------------------------------------------------------------------------------------------------------

constexpr char kSetGroup[] = "set";
constexpr char kFeatureGroup[] = "feature";
constexpr char kFeaturePrefix[] = "com.tornelo/featureconf/";

struct TextKey {
  system_info_key_e key;
  const char* name;
  TextFact fact;
};
constexpr TextKey kTextKeys[] = {
    {SYSTEM_INFO_KEY_SW_MODEL, "sw_model", nullptr},
    {SYSTEM_INFO_KEY_MODEL_NAME, "model_name", MachineModel},
    {SYSTEM_INFO_KEY_SERIAL_NUMBER, "serial_number", MachineSerial},
    {SYSTEM_INFO_KEY_LOCAL_SET, "local_set", nullptr},
};

struct NumberKey {
  system_info_key_e key;
  const char* name;
  int least;
  int most;
  NumberFact fact;
};
constexpr NumberKey kNumberKeys[] = {
    {SYSTEM_INFO_KEY_REGION_KIND, "region_kind", 1, 34, nullptr},
    {SYSTEM_INFO_KEY_NUM_OF_TUNER, "num_of_tuner", 0, INT_MAX, NumberOfTuners},
};

struct NumberFeature {
  const char* name;
  NumberFact fact;
};
constexpr NumberFeature kFeatureFacts[] = {
    {"flash_size", FlashSizeIndex},
    {"panel_resolution_width", PanelWidth},
    {"panel_resolution_height", PanelHeight},
};

template <typename Key, size_t count>
const Key* Find(const Key (&keys)[count], system_info_key_e key) {
  const auto* found = std::find_if(keys, keys + count, [key](const Key& each) { return each.key == key; });
  return found == keys + count ? nullptr : found;
}

/// The feature's name in the profile; null when the key is none of a feature.
const char* FeatureName(const char* key) {
  constexpr size_t kLength = sizeof kFeaturePrefix - 1;
  return std::strncmp(key, kFeaturePrefix, kLength) == 0 && key[kLength] ? key + kLength : nullptr;
}

int Give(const std::string& text, char** value) {
  *value = strdup(text.c_str());
  return SYSTEM_INFO_ERROR_NONE;
}

/// What the profile says of a feature, as the error it comes to.
template <typename Value>
int AskFeature(const char* key, Value* value,
               set_profile::Answer (*ask)(const char* group, const char* key, Value& value)) {
  if (!key || !value) return SYSTEM_INFO_ERROR_INVALID_PARAMETER;
  const char* const name = FeatureName(key);
  if (!name) return SYSTEM_INFO_ERROR_NO_DATA;
  switch (ask(kFeatureGroup, name, *value)) {
    case set_profile::Answer::kValue:
      return SYSTEM_INFO_ERROR_NONE;
    case set_profile::Answer::kWrong:
      return SYSTEM_INFO_ERROR_INVALID_PARAMETER;
    case set_profile::Answer::kNone:
      break;
  }
  return SYSTEM_INFO_ERROR_NO_DATA;
}

}  // namespace

int system_info_get_value_int(system_info_key_e key, int* value) {
  const NumberKey* number = Find(kNumberKeys, key);
  if (!number || !value) return SYSTEM_INFO_ERROR_INVALID_PARAMETER;
  int said = 0;
  if (set_profile::Int(kSetGroup, number->name, said) == set_profile::Answer::kValue) {
    if (said >= number->least && said <= number->most) {
      *value = said;
      return SYSTEM_INFO_ERROR_NONE;
    }
    __dlog_print(LOG_ID_APPS, DLOG_ERROR, kTag, "%s: [%s] %s: %d is not within %d to %d", set_paths::kSetProfile,
                 kSetGroup, number->name, said, number->least, number->most);
  }
  const std::optional<int> fact = number->fact ? number->fact() : std::nullopt;
  if (!fact) return SYSTEM_INFO_ERROR_NO_DATA;
  *value = *fact;
  return SYSTEM_INFO_ERROR_NONE;
}

int system_info_get_value_string(system_info_key_e key, char** value) {
  const TextKey* text = Find(kTextKeys, key);
  if (!text || !value) return SYSTEM_INFO_ERROR_INVALID_PARAMETER;
  std::string said;
  if (set_profile::Text(kSetGroup, text->name, said) == set_profile::Answer::kValue) return Give(said, value);
  const std::optional<std::string> fact = text->fact ? text->fact() : std::nullopt;
  return fact ? Give(*fact, value) : SYSTEM_INFO_ERROR_NO_DATA;
}

int system_info_get_custom_int(const char* key, int* value) {
  const int result = AskFeature(key, value, set_profile::Int);
  const char* const name = result == SYSTEM_INFO_ERROR_NO_DATA ? FeatureName(key) : nullptr;
  if (!name) return result;
  for (const NumberFeature& feature : kFeatureFacts) {
    if (std::strcmp(feature.name, name) != 0) continue;
    if (const auto fact = feature.fact()) {
      *value = *fact;
      return SYSTEM_INFO_ERROR_NONE;
    }
  }
  return result;
}

int system_info_get_custom_bool(const char* key, bool* value) {
  return AskFeature(key, value, set_profile::Bool);
}

int system_info_get_custom_string(const char* key, char** value) {
  std::string said;
  const int result = AskFeature(key, value ? &said : nullptr, set_profile::Text);
  return result == SYSTEM_INFO_ERROR_NONE ? Give(said, value) : result;
}

int system_info_get_storage_size(long long* bytes) {
  if (!bytes) return SYSTEM_INFO_ERROR_INVALID_PARAMETER;
  const std::optional<uint64_t> size = StorageSize();
  if (!size) return SYSTEM_INFO_ERROR_NO_DATA;
  *bytes = static_cast<long long>(*size);
  return SYSTEM_INFO_ERROR_NONE;
}
