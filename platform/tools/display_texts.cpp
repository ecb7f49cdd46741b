#include "display_texts.h"

#include <algorithm>
#include <cmath>
#include <iterator>
#include <string_view>
#include <utility>

#include "Texts.h"

namespace tools {

namespace {

using display::Connector;
using display::Edid;
using display::Mode;
using QUVA::GetText;
using QUVA::GetTextWith;

constexpr char kOn[] = "TV_SID_VEXILO_STATE_ON";
constexpr char kOff[] = "TV_SID_VEXILO_STATE_OFF";
constexpr char kNotPossible[] = "TV_SID_VEXILO_NOT_POSSIBLE";
constexpr char kCan[] = "TV_SID_VEXILO_MIX_DISPLAY_CAN";
// Numbers with signs between them keep their order in texts that read from right to left (U+200E).
constexpr char kLeftToRight[] = "\u200E";

/// "59.94": as many decimals as it takes, two at most.
std::string Digits(double number) {
  std::string digits = QUVA::RoundValue(number);
  while (digits.ends_with('0')) digits.pop_back();
  if (digits.ends_with('.')) digits.pop_back();
  return digits;
}

std::string SizeText(const Mode& mode) {
  return kLeftToRight + std::to_string(mode.size.width) + " × " + std::to_string(mode.size.height);
}

std::string RateText(const Mode& mode) {
  const std::string rate = kLeftToRight + Digits(mode.rate) + " Hz";
  return mode.isInterlaced ? rate + ", " + GetText("TV_SID_VEXILO_DISPLAY_INTERLACED") : rate;
}

std::string ModeText(const Mode& mode) {
  return mode.rate > 0 ? SizeText(mode) + ", " + RateText(mode) : SizeText(mode);
}

Edid EdidOf(const Connector& connector) {
  return display::ReadEdid(connector.edid.value_or(""));
}

/// Of those that it can, as "HDR10, HLG".
std::string HdrNames(const Edid& edid) {
  std::string names = edid.showsHdr10 ? "HDR10" : "";
  if (edid.showsHlg) names += names.empty() ? "HLG" : ", HLG";
  return names;
}

/// Rows of a page.
class Rows {
 public:
  /// Leaves out what is not known.
  void Add(const char* sid, const std::string& value) {
    if (!value.empty()) m_facts.push_back({GetText(sid), value, true});
  }
  void AddTitle(std::string title, std::string value) { m_facts.push_back({std::move(title), std::move(value)}); }
  std::vector<Fact> Take() { return std::move(m_facts); }

 private:
  std::vector<Fact> m_facts;
};

// ---- connectors

std::string SoundText(const Edid& edid) {
  if (!edid.isValid) return "";
  if (!edid.playsSound) return GetText(kNotPossible);
  return edid.soundChannels > 2 ? GetTextWith("TV_SID_VEXILO_MIX_CHANNELS", std::to_string(edid.soundChannels))
                                : GetText("TV_SID_VEXILO_STEREO");
}

std::string ProtectionText(const std::optional<display::Protection>& protection) {
  if (!protection) return "";
  return GetText(*protection == display::Protection::kOn      ? kOn
                 : *protection == display::Protection::kAsked ? "TV_SID_VEXILO_PROTECTION_ASKED"
                                                              : kOff);
}

// ---- pictures

std::string DepthText(const std::optional<int>& bits) {
  return bits ? GetTextWith("TV_SID_VEXILO_MIX_BITS", std::to_string(*bits)) : "";
}

std::string HdrText(const Connector& connector, const Edid& edid) {
  using display::Brightness;
  const auto shown = connector.picture.brightness;
  if (shown == Brightness::kHdr10) return GetTextWith("TV_SID_VEXILO_MIX_ON_AS", "HDR10");
  if (shown == Brightness::kHlg) return GetTextWith("TV_SID_VEXILO_MIX_ON_AS", "HLG");
  if (!edid.isValid) return shown ? GetText(kOff) : "";
  const std::string names = HdrNames(edid);
  if (names.empty()) return GetText(kNotPossible);
  return shown ? GetTextWith("TV_SID_VEXILO_MIX_OFF_BUT_CAN", names) : GetTextWith(kCan, names);
}

std::string VaryingText(const Connector& connector, const Edid& edid) {
  const display::Picture& picture = connector.picture;
  const std::string range =
      edid.rates ? kLeftToRight + std::to_string(edid.rates->least) + "–" + std::to_string(edid.rates->most) + " Hz"
                 : "";
  if (picture.canVary == false) return GetText(kNotPossible);
  if (picture.canVary == true && picture.varies == true)
    return range.empty() ? GetText(kOn) : GetTextWith("TV_SID_VEXILO_MIX_ON_AS", range);
  if (picture.canVary == true && picture.varies == false && range.empty()) return GetText(kOff);
  if (range.empty()) return "";
  return GetTextWith(picture.varies == false ? "TV_SID_VEXILO_MIX_OFF_BUT_CAN" : kCan, range);
}

/// Panels that are no display of their own, and need not describe themselves.
bool IsBuiltIn(const Connector& connector) {
  constexpr std::string_view kPrefixes[] = {"eDP-", "LVDS-", "DSI-", "DPI-"};
  return std::any_of(std::begin(kPrefixes), std::end(kPrefixes),
                     [&](std::string_view prefix) { return connector.name.starts_with(prefix); });
}

bool IsSeen(const Connector& connector) {
  return connector.isConnected == true && (connector.mode || connector.isShowing);
}

// ---- tuners

std::string LevelText(const std::optional<tv::Level>& level, const char* unit) {
  if (!level) return "";
  const double step = level->isShare ? 1 : 10;
  return kLeftToRight + Digits(std::round(level->value * step) / step) + (level->isShare ? " %" : unit);
}

std::string ReceptionText(const tv::Frontend& frontend) {
  if (!frontend.isLocked) return "";
  return GetText(*frontend.isLocked   ? "TV_SID_VEXILO_TUNER_LOCKED"
                 : frontend.hasSignal ? "TV_SID_VEXILO_TUNER_NO_CHANNEL"
                                      : "TV_SID_VEXILO_TUNER_NO_SIGNAL");
}

}  // namespace

std::string TitleOf(const Connector& connector) {
  if (IsBuiltIn(connector)) return GetText("TV_SID_VEXILO_DISPLAY_BUILT_IN");
  constexpr std::pair<std::string_view, const char*> kTitles[] = {
      {"HDMI-", "HDMI"}, {"DP-", "DisplayPort"}, {"DVI-", "DVI"}, {"VGA-", "VGA"}};
  for (const auto& [prefix, title] : kTitles) {
    if (connector.name.starts_with(prefix))
      return std::string(title) + " " + connector.name.substr(connector.name.rfind('-') + 1);
  }
  return connector.name;
}

bool IsRecognized(const Connector& connector) {
  return connector.isConnected == true && (IsBuiltIn(connector) || EdidOf(connector).isValid);
}

std::string StateOf(const Connector& connector) {
  if (!connector.isConnected) return GetText("TV_SID_VEXILO_DISPLAY_UNKNOWN");
  if (!*connector.isConnected) return GetText("TV_SID_VEXILO_DISPLAY_NONE");
  const Edid edid = EdidOf(connector);
  if (edid.isValid && !edid.name.empty()) return edid.name;
  const bool isBroken = connector.edid && !IsRecognized(connector);
  return GetText(!isBroken                 ? "TV_SID_VEXILO_DISPLAY_CONNECTED"
                 : connector.edid->empty() ? "TV_SID_VEXILO_DISPLAY_NO_EDID"
                                           : "TV_SID_VEXILO_DISPLAY_BAD_EDID");
}

std::vector<Fact> ConnectorFacts(const std::vector<Connector>& connectors) {
  Rows rows;
  for (const Connector& each : connectors) {
    rows.AddTitle(TitleOf(each), StateOf(each));
    if (each.isConnected != true) continue;
    const Edid edid = EdidOf(each);
    auto best = each.picture.best ? each.picture.best : edid.Best();
    // What is in use is offered, be it that only another way than the EDID tells.
    if (each.mode && best && IsBetter(*each.mode, *best)) best = each.mode;
    rows.Add("TV_SID_VEXILO_DISPLAY_PICTURE", each.mode ? ModeText(*each.mode) : "");
    rows.Add("TV_SID_VEXILO_DISPLAY_BEST", best ? ModeText(*best) : "");
    rows.Add("TV_SID_VEXILO_DISPLAY_SOUND", SoundText(edid));
    rows.Add("TV_SID_VEXILO_DISPLAY_PROTECTION", ProtectionText(each.picture.protection));
  }
  return rows.Take();
}

std::vector<Fact> PictureFacts(const std::vector<Connector>& connectors) {
  Rows rows;
  for (const Connector& each : connectors) {
    if (!IsSeen(each)) continue;
    const Edid edid = EdidOf(each);
    rows.AddTitle(TitleOf(each), StateOf(each));
    rows.Add("TV_SID_VEXILO_SIGNAL_RESOLUTION", each.mode ? SizeText(*each.mode) : "");
    rows.Add("TV_SID_VEXILO_SIGNAL_RATE", each.mode && each.mode->rate > 0 ? RateText(*each.mode) : "");
    rows.Add("TV_SID_VEXILO_SIGNAL_DEPTH", DepthText(each.picture.mostBits));
    rows.Add("TV_SID_VEXILO_SIGNAL_FORMAT", each.picture.format);
    rows.Add("TV_SID_VEXILO_SIGNAL_COLORS", each.picture.colours);
    rows.Add("TV_SID_VEXILO_SIGNAL_HDR", HdrText(each, edid));
    rows.Add("TV_SID_VEXILO_SIGNAL_VARYING", VaryingText(each, edid));
  }
  return rows.Take();
}

std::vector<Fact> TunerFacts(const std::vector<tv::Frontend>& frontends) {
  Rows rows;
  for (size_t i = 0; i < frontends.size(); ++i) {
    const tv::Frontend& each = frontends[i];
    rows.AddTitle(GetTextWith("TV_SID_VEXILO_MIX_TUNER", std::to_string(i + 1)), each.name);
    rows.Add("TV_SID_VEXILO_TUNER_RECEPTION", ReceptionText(each));
    rows.Add("TV_SID_VEXILO_TUNER_STRENGTH", LevelText(each.strength, " dBm"));
    rows.Add("TV_SID_VEXILO_TUNER_QUALITY", LevelText(each.quality, " dB"));
    rows.Add("TV_SID_VEXILO_TUNER_ERRORS", each.bitErrors ? std::to_string(*each.bitErrors) : "");
  }
  return rows.Take();
}

}  // namespace tools
