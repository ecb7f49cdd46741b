#include "sound/screen_output.h"

#include <thread>

namespace sound {

namespace {

using Clock = std::chrono::steady_clock;

constexpr auto kTakenUp = std::chrono::seconds(2);
constexpr auto kPoll = std::chrono::milliseconds(50);

bool LeadsNowhere(const Outputs& outputs) {
  const Sink* const sink = outputs.Default();
  return !sink || sink->IsUnplugged();
}

}  // namespace

std::optional<WayToScreen> FindWayToScreen(const Outputs& outputs) {
  if (!LeadsNowhere(outputs)) return std::nullopt;
  for (const Sink& sink : outputs.sinks)
    if (sink.leadsToScreen && !sink.IsUnplugged()) return WayToScreen{sink.name};
  // The sound server knows of no screen there unless the plug tells.
  for (const IdlePort& idle : outputs.idlePorts)
    if (idle.port.leadsToScreen && idle.port.plugged == Plugged::kYes) return WayToScreen{"", idle.card, idle.profile};
  return std::nullopt;
}

bool TakeWayToScreen(Server& server, std::string& problem) {
  auto outputs = server.List();
  auto way = outputs ? FindWayToScreen(*outputs) : std::nullopt;
  if (way && !way->profile.empty() && server.SetProfile(way->card, way->profile)) {
    // Its sink comes a moment later, and may be made the default one by the server itself.
    for (const auto end = Clock::now() + kTakenUp; way && way->sink.empty() && Clock::now() < end;) {
      std::this_thread::sleep_for(kPoll);
      outputs = server.List();
      if (outputs) way = FindWayToScreen(*outputs);
    }
  }
  if (way && !way->sink.empty() && server.SetDefault(way->sink)) outputs = server.List();
  if (outputs && !FindWayToScreen(*outputs)) return true;
  problem = server.Problem().empty() ? "the sound still goes elsewhere" : server.Problem();
  return false;
}

}  // namespace sound
