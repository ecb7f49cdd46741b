#include "trevlin/collectors/graphics_facts.h"

#include <sys/stat.h>

#include <algorithm>
#include <filesystem>
#include <iterator>
#include <set>
#include <utility>

#include "base/atomic_file.h"
#include "display/drawing.h"
#include "trevlin/collectors/install_folders.h"
#include "trevlin/collectors/readings.h"

namespace trevlin {

namespace {

struct Card {
  std::string maker;   // "8086"
  std::string model;   // "3E92"
  std::string driver;  // empty: none
};

/// Makers (PCI vendors) whose cards all draw by themselves.
constexpr std::string_view kDrawing[] = {"1002", "10DE", "8086"};
/// Makers of the remote consoles of servers.
constexpr std::string_view kConsoles[] = {"102B", "19E5", "1A03"};

/// A card that does not answer three times hangs.
constexpr int kMostUnanswered = 3;
/// Where the answer is kept, and how it begins.
constexpr char kAnswer[] = "graphics";
constexpr char kSoftware[] = "software\n", kCard[] = "card\n";
/// Drivers of the kernel that all graphics libraries know through EGL, so that these tell who draws.
constexpr std::string_view kToldByEgl[] = {"amdgpu",  "etnaviv", "i915", "lima",    "nouveau", "panfrost",
                                           "panthor", "radeon",  "v3d",  "vc4-drm", "xe"};

/// What drives the decoders (VA-API) of cards that have one.
constexpr struct {
  std::string_view kernel;
  std::string_view installed;
} kDecoders[] = {
    {"amdgpu", "radeonsi_drv_video.so"}, {"amdgpu", "r600_drv_video.so"}, {"i915", "iHD_drv_video.so"},
    {"i915", "i965_drv_video.so"},       {"radeon", "r600_drv_video.so"}, {"radeon", "radeonsi_drv_video.so"},
    {"xe", "iHD_drv_video.so"},
};
/// Cards that the kernel's driver i915 has, too, from before there were decoders with a driver (made until 2007).
constexpr std::string_view kBeforeDecoders[] = {"2562", "2572", "2582", "258A", "2592", "2772", "27A2", "27AE",
                                                "2972", "2982", "2992", "29A2", "29B2", "29C2", "29D2", "2A02",
                                                "2A12", "3577", "3582", "358E", "A001", "A011"};
/// Decoders of boards, as the kernel's drivers name them, and the part of GStreamer that uses them. The first take
/// whole streams, which the codec library that most players have can give them, too; the others take single frames.
struct BoardDecoder {
  std::string_view name;  // one that begins with '-' is the end of a name
  std::string_view plugin;
  bool takesStreams;
};
constexpr BoardDecoder kBoardDecoders[] = {
    {"bcm2835-codec-decode", "video4linux2", true},
    {"coda-video-decoder", "video4linux2", true},
    {"meson-video-decoder", "video4linux2", true},
    {"qcom-iris-decoder", "video4linux2", true},
    {"qcom-venus-decoder", "video4linux2", true},
    {"s5p-mfc-dec", "video4linux2", true},
    {"cedrus", "v4l2codecs", false},
    {"rkvdec", "v4l2codecs", false},
    {"rpi-hevc-dec", "v4l2codecs", false},
    {"rpivid", "v4l2codecs", false},
    {"-vpu-dec", "v4l2codecs", false},
    {"-vpu-g1-dec", "v4l2codecs", false},
    {"-vpu-g2-dec", "v4l2codecs", false},
};

/// What stands behind "KEY=" in a line.
std::string ValueOf(std::string_view text, std::string_view key) {
  for (const std::string_view line : SplitLines(text))
    if (line.starts_with(key)) return std::string(line.substr(key.size()));
  return "";
}

std::vector<Card> ReadCards(const Machine& machine) {
  std::vector<Card> cards;
  const std::string folder = "/sys/bus/pci/devices/";
  for (const std::string& name : ListNames(machine, folder)) {
    const std::string about = ReadText(machine, folder + name + "/uevent").value_or("");
    const std::string kind = ValueOf(about, "PCI_CLASS=");  // hexadecimal, without zeros before it: display is 3xxxx
    if (kind.size() != 5 || kind[0] != '3') continue;
    const std::string id = ValueOf(about, "PCI_ID=");  // "8086:3E92"
    if (id.size() == 9) cards.push_back({id.substr(0, 4), id.substr(5), ValueOf(about, "DRIVER=")});
  }
  return cards;
}

/// The device files for drawing of the cards that are driven.
std::vector<std::string> RenderNodes(const Machine& machine) {
  std::vector<std::string> nodes;
  for (const std::string& name : ListNames(machine, "/dev/dri"))
    if (name.starts_with("renderD")) nodes.push_back("/dev/dri/" + name);
  return nodes;
}

bool IsToldByEgl(const Machine& machine, const std::string& node) {
  const std::string about = "/sys/class/drm/" + node.substr(node.rfind('/') + 1) + "/device/uevent";
  return IsOneOf(kToldByEgl, ValueOf(ReadText(machine, about).value_or(""), "DRIVER="));
}

std::set<std::string> InstalledDecoders(const Machine& machine) {
  std::set<std::string> found;
  for (const std::string& folder : GraphicsDriverFolders(machine))
    for (std::string& name : ListNames(machine, folder)) found.insert(std::move(name));
  return found;
}

/// Another one after drivers were installed or removed.
std::string InstallState(const Machine& machine) {
  std::string state;
  for (const auto& folders : {LibraryFolders(machine), GraphicsDriverFolders(machine)})
    for (const std::string& folder : folders) {
      struct stat info {};
      if (stat(machine.Path(folder).c_str(), &info) != 0) continue;
      state += folder + " " + std::to_string(info.st_mtim.tv_sec) + "." + std::to_string(info.st_mtim.tv_nsec) + "\n";
    }
  return state;
}

/// Of those of `radeon` the ones with a decoder are 66xx to 68xx, and 94xx and later.
bool MayDecode(const Card& card) {
  if (card.driver == "radeon") return card.model.starts_with('6') || card.model.starts_with('9');
  return card.driver != "i915" || !IsOneOf(kBeforeDecoders, card.model);
}

/// Unknown without a card that has a decoder.
std::optional<bool> LacksDecoder(const Machine& machine, const std::vector<Card>& cards) {
  std::optional<bool> lacks;
  std::set<std::string> installed;
  for (const Card& card : cards)
    for (const auto& decoder : kDecoders) {
      if (decoder.kernel != card.driver || !MayDecode(card)) continue;
      if (!lacks) installed = InstalledDecoders(machine);
      lacks = lacks.value_or(true) && !installed.contains(std::string(decoder.installed));
    }
  return lacks;
}

/// Those of kBoardDecoders that the machine has.
std::vector<BoardDecoder> ReadBoardDecoders(const Machine& machine) {
  std::vector<BoardDecoder> found;
  const std::string devices = "/sys/class/video4linux/";
  for (const std::string& device : ListNames(machine, devices)) {
    const std::string name = ReadLine(machine, devices + device + "/name").value_or("");
    std::ranges::copy_if(kBoardDecoders, std::back_inserter(found), [&name](const BoardDecoder& each) {
      return each.name[0] == '-' ? name.ends_with(each.name) : name == each.name;
    });
  }
  return found;
}

bool IsInAny(const Machine& machine, const std::vector<std::string>& folders, const std::string& file) {
  return std::ranges::any_of(folders, [&](const std::string& folder) { return Exists(machine, folder + "/" + file); });
}

/// Its number changes from version to version.
bool HasCodecLibrary(const Machine& machine, const std::vector<std::string>& folders) {
  return std::ranges::any_of(folders, [&machine](const std::string& folder) {
    std::error_code failed;
    std::filesystem::directory_iterator file(machine.Path(folder), failed);
    while (file != end(file) && !file->path().filename().string().starts_with("libavcodec.so."))
      file.increment(failed);  // to the end after an error, too
    return file != end(file);
  });
}

/// Whether one has nothing installed that uses it. Unknown without such a decoder or GStreamer, and where only the
/// codec library may use it.
std::optional<bool> LacksBoardDecoder(const Machine& machine) {
  const std::vector<BoardDecoder> decoders = ReadBoardDecoders(machine);
  if (decoders.empty()) return std::nullopt;
  const std::vector<std::string> libraries = LibraryFolders(machine), plugins = PluginFolders(machine);
  if (!IsInAny(machine, libraries, "libgstreamer-1.0.so.0")) return std::nullopt;
  const bool hasLibrary = HasCodecLibrary(machine, libraries);
  std::optional<bool> lacks;
  for (const BoardDecoder& decoder : decoders) {
    const bool isUsed = (hasLibrary && decoder.takesStreams) ||
                        IsInAny(machine, plugins, "libgst" + std::string(decoder.plugin) + ".so");
    if (isUsed || !hasLibrary) lacks = lacks.value_or(false) || !isUsed;
  }
  return lacks;
}

/// What a process has found out in this state.
std::optional<bool> LoadAnswer(const std::string& state) {
  std::string text;
  if (!ReadWholeFile(SharedPath(kAnswer), text, Links::kRefuse, kMostNoted)) return std::nullopt;
  return text == kSoftware + state ? std::optional(true) : text == kCard + state ? std::optional(false) : std::nullopt;
}

void KeepAnswer(bool isSoftware, const std::string& state) {
  const std::string path = SharedPath(kAnswer);
  if (MakeFolders(path.substr(0, path.rfind('/'))))
    PublishFile(path, (isSoftware ? kSoftware : kCard) + state, Readers::kEverybody);
}

}  // namespace

void GraphicsReader::AddFacts(const Machine& machine, bool hasScreen, Facts& facts) {
  AddFact(facts, "display.board_decoder_missing", LacksBoardDecoder(machine));
  std::vector<Card> cards = ReadCards(machine);
  if (std::any_of(cards.begin(), cards.end(), [](const Card& card) { return IsOneOf(kConsoles, card.maker); })) return;
  std::erase_if(cards, [](const Card& card) { return !IsOneOf(kDrawing, card.maker); });
  const std::vector<std::string> nodes = RenderNodes(machine);
  if (!cards.empty()) {
    const bool isAnyDriven =
        std::any_of(cards.begin(), cards.end(), [](const Card& card) { return !card.driver.empty(); });
    facts["display.software_drawing"] = !isAnyDriven && nodes.empty();
    if (!nodes.empty()) AddFact(facts, "display.decoder_missing", LacksDecoder(machine, cards));
  }
  const auto isTold = [&machine](const std::string& node) { return IsToldByEgl(machine, node); };
  if (nodes.empty() || !hasScreen || machine.IsCaptured() || !std::all_of(nodes.begin(), nodes.end(), isTold)) return;
  AddUnknown(facts, "display.renderer_is_software");
  AddFact(facts, "display.renderer_is_software", AskWhoDraws(machine, nodes));
}

std::optional<bool> GraphicsReader::AskWhoDraws(const Machine& machine, const std::vector<std::string>& nodes) {
  std::string state = BootId(machine) + "\n" + InstallState(machine);
  for (const std::string& node : nodes) state += node + "\n";
  if (state != std::exchange(m_state, state)) {
    m_isSoftware = LoadAnswer(state);
    m_unanswered = 0;
  }
  if (m_isSoftware || m_unanswered == kMostUnanswered) return m_isSoftware;
  ++m_unanswered;
  m_isSoftware = display::IsDrawnBySoftware(nodes);
  if (m_isSoftware) KeepAnswer(*m_isSoftware, state);
  return m_isSoftware;
}

}  // namespace trevlin
