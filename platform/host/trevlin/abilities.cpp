#include "trevlin/abilities.h"

#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <string>
#include <utility>
#include <vector>

#include "machine_abilities.h"
#include "trevlin/collectors/collectors.h"
#include "trevlin/collectors/install_folders.h"
#include "trevlin/collectors/readings.h"

namespace trevlin {

namespace {

/// Of libgstNAME.so.
constexpr std::string_view kDecoders[] = {"aom",      "androidmedia", "dav1d", "de265",    "libav",        "msdk",
                                          "mpeg2dec", "nvcodec",      "omx",   "openh264", "qsv",          "svtav1",
                                          "theora",   "v4l2codecs",   "va",    "vaapi",    "video4linux2", "vpx"};
constexpr const char* kPluginVariables[] = {"GST_PLUGIN_PATH_1_0", "GST_PLUGIN_PATH", "GST_PLUGIN_SYSTEM_PATH_1_0",
                                            "GST_PLUGIN_SYSTEM_PATH"};

/// What the collector knows of a machine that it only looks at, as of a captured one.
int CountFact(const Machine& machine, std::unique_ptr<Collector> collector, std::string_view fact) {
  Facts facts;
  collector->Collect(machine.IsCaptured() ? machine : Machine{"/"}, facts);
  const auto found = facts.find(fact);
  const auto* const number = found == facts.end() ? nullptr : std::get_if<double>(&found->second);
  return number ? static_cast<int>(*number) : 0;
}

std::string Variable(const char* name) {
  const char* const value = std::getenv(name);
  return value ? value : "";
}

/// Where libpulse finds the server of the session, else that of the machine.
bool HasSoundServer(const Machine& machine) {
  const std::string runtime = Variable("XDG_RUNTIME_DIR"), folder = Variable("PULSE_RUNTIME_PATH");
  const std::string ours = runtime.empty() ? "/run/user/" + std::to_string(getuid()) : runtime;
  return !Variable("PULSE_SERVER").empty() || (!folder.empty() && Exists(machine, folder + "/native")) ||
         Exists(machine, ours + "/pulse/native") || Exists(machine, "/run/pulse/native");
}

int CountTuners(const Machine& machine) {
  return static_cast<int>(std::ranges::count_if(ListNames(machine, "/dev/dvb"),
                                                [](const std::string& name) { return name.starts_with("adapter"); }));
}

/// Where GStreamer looks; those that its variables name first.
std::vector<std::string> SearchedFolders(const Machine& machine) {
  std::vector<std::string> folders;
  for (const char* variable : kPluginVariables) {
    const std::string value = Variable(variable);
    for (size_t from = 0; from < value.size();) {
      const size_t end = std::min(value.find(':', from), value.size());
      folders.push_back(value.substr(from, end - from));
      from = end + 1;
    }
  }
  for (std::string& folder : PluginFolders(machine)) folders.push_back(std::move(folder));
  return folders;
}

bool IsDecoder(std::string_view file) {
  constexpr std::string_view kBegin = "libgst", kEnd = ".so";
  if (file.size() < kBegin.size() + kEnd.size() || !file.starts_with(kBegin) || !file.ends_with(kEnd)) return false;
  const auto name = file.substr(kBegin.size(), file.size() - kBegin.size() - kEnd.size());
  return std::ranges::find(kDecoders, name) != std::end(kDecoders);
}

int CountDecoders(const Machine& machine) {
  int64_t count = 0;
  for (const std::string& folder : SearchedFolders(machine))
    count += std::ranges::count_if(ListNames(machine, folder), IsDecoder);
  return static_cast<int>(count);
}

}  // namespace

std::optional<int> CountAbility(const Machine& machine, std::string_view name) {
  if (name == "sound")
    return CountFact(machine, MakeSoundCollector(), "sound.cards") + (HasSoundServer(machine) ? 1 : 0);
  if (name == "connectors") return CountFact(machine, MakeDisplayCollector(), "display.connectors");
  if (name == "tuners") return CountTuners(machine);
  if (name == "signal") return CountTuners(machine) + CountFact(machine, MakeDisplayCollector(), "display.connected");
  if (name == "video") return CountDecoders(machine);
  return std::nullopt;
}

}  // namespace trevlin

std::optional<int> CountMachineAbility(std::string_view name) {
  return trevlin::CountAbility({}, name);
}
