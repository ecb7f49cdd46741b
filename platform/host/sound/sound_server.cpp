#include "sound/sound_server.h"

#include <pulse/pulseaudio.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <string_view>

#include "c_handle.h"

namespace sound {

namespace {

using Clock = std::chrono::steady_clock;
using Properties = std::unique_ptr<pa_proplist, CRelease<&pa_proplist_free>>;

constexpr char kClient[] = "Vexilo";
constexpr char kCard[] = "alsa.card", kDevice[] = "alsa.device";  // properties

std::string TextOf(const char* text) {
  return text ? text : "";
}

Plugged PluggedOf(int available) {
  return available == PA_PORT_AVAILABLE_YES  ? Plugged::kYes
         : available == PA_PORT_AVAILABLE_NO ? Plugged::kNo
                                             : Plugged::kUnknown;
}

/// Servers and cards that tell no type name these ports "hdmi-output-0".
template <typename Info>
Port PortOf(const Info& info) {
  Port port{TextOf(info.name), TextOf(info.description), PluggedOf(info.available),
            info.type == PA_DEVICE_PORT_TYPE_HDMI};
  port.leadsToScreen = port.leadsToScreen || port.name.starts_with("hdmi-output");
  return port;
}

bool HasPort(const Sink& sink, const std::string& name) {
  return std::any_of(sink.ports.begin(), sink.ports.end(), [&](const Port& port) { return port.name == name; });
}

std::optional<int> NumberOf(const pa_proplist* properties, const char* key) {
  const std::string text = TextOf(pa_proplist_gets(properties, key));
  int number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  return error == std::errc() && end == text.data() + text.size() ? std::optional(number) : std::nullopt;
}

Sink SinkOf(const pa_sink_info& info) {
  Sink sink{info.index,    info.card, TextOf(info.name), TextOf(info.description), TextOf(info.monitor_source_name),
            info.mute != 0};
  sink.volumePercent = 100.0 * pa_cvolume_max(&info.volume) / PA_VOLUME_NORM;
  for (uint32_t i = 0; i < info.n_ports; ++i) sink.ports.push_back(PortOf(*info.ports[i]));
  if (info.active_port) {
    const Port active = PortOf(*info.active_port);
    sink.activePort = active.name;
    sink.leadsToScreen = active.leadsToScreen;
  } else {
    const char* const profile = pa_proplist_gets(info.proplist, PA_PROP_DEVICE_PROFILE_NAME);
    sink.leadsToScreen = profile && std::string_view(profile).starts_with("hdmi");
  }
  const auto card = NumberOf(info.proplist, kCard), device = NumberOf(info.proplist, kDevice);
  if (card && device) sink.device = {*card, *device};
  return sink;
}

/// The ports of a card that play, each with its best profile that can be used.
std::vector<IdlePort> PortsOf(const pa_card_info& info) {
  std::vector<IdlePort> ports;
  for (uint32_t i = 0; i < info.n_ports; ++i) {
    const pa_card_port_info& port = *info.ports[i];
    if ((port.direction & PA_DIRECTION_OUTPUT) == 0) continue;
    const pa_card_profile_info2* best = nullptr;
    for (uint32_t j = 0; j < port.n_profiles; ++j) {
      const pa_card_profile_info2* const each = port.profiles2[j];
      if (each->available != 0 && each->n_sinks > 0 && (!best || each->priority > best->priority)) best = each;
    }
    if (best) ports.push_back({info.index, TextOf(info.name), TextOf(best->name), PortOf(port)});
  }
  return ports;
}

/// The answers of a list come one by one.
struct Taking {
  Outputs outputs;
  std::vector<uint32_t> streams;  ///< that play on `from`
  uint32_t from = PA_INVALID_INDEX;
  bool isDone = false;
  bool isSuccess = false;
};

void OnServer(pa_context*, const pa_server_info* info, void* data) {
  if (info) static_cast<Taking*>(data)->outputs.defaultSink = TextOf(info->default_sink_name);
}

void OnSink(pa_context*, const pa_sink_info* info, int end, void* data) {
  if (end == 0) static_cast<Taking*>(data)->outputs.sinks.push_back(SinkOf(*info));
}

void OnCard(pa_context*, const pa_card_info* info, int end, void* data) {
  if (end != 0) return;
  auto& idle = static_cast<Taking*>(data)->outputs.idlePorts;
  for (IdlePort& port : PortsOf(*info)) idle.push_back(std::move(port));
}

void OnStream(pa_context*, const pa_sink_input_info* info, int end, void* data) {
  auto* const taking = static_cast<Taking*>(data);
  if (end == 0 && info->sink == taking->from) taking->streams.push_back(info->index);
}

void OnSuccess(pa_context*, int isSuccess, void* data) {
  static_cast<Taking*>(data)->isSuccess = isSuccess != 0;
}

/// What servers have when no card plays: PulseAudio, PipeWire's session managers.
constexpr std::array<std::string_view, 2> kStandIns = {"auto_null", "dummy-output"};

}  // namespace

bool Sink::IsUnplugged() const {
  return !ports.empty() && std::ranges::all_of(ports, [](const Port& port) { return port.plugged == Plugged::kNo; });
}

const Sink* Outputs::Default() const {
  if (std::ranges::find(kStandIns, defaultSink) != kStandIns.end()) return nullptr;
  const auto found = std::ranges::find(sinks, defaultSink, &Sink::name);
  return found == sinks.end() ? nullptr : &*found;
}

struct Server::Loop {
  std::unique_ptr<pa_mainloop, CRelease<&pa_mainloop_free>> loop;
  std::unique_ptr<pa_context, CRelease<&pa_context_unref>> context;
};

Server::Server(std::chrono::milliseconds limit) : m_limit(limit), m_loop(std::make_unique<Loop>()) {
  m_loop->loop.reset(pa_mainloop_new());
  m_loop->context.reset(pa_context_new(pa_mainloop_get_api(m_loop->loop.get()), kClient));
  pa_context* const context = m_loop->context.get();
  if (pa_context_connect(context, nullptr, PA_CONTEXT_NOAUTOSPAWN, nullptr) < 0) {
    Fail();
    return;
  }
  const auto end = Clock::now() + m_limit;
  while (PA_CONTEXT_IS_GOOD(pa_context_get_state(context)) && !IsConnected())
    if (!Iterate(end)) return;
  if (!IsConnected()) Fail();
}

Server::~Server() {
  pa_context_disconnect(m_loop->context.get());
}

bool Server::IsConnected() const {
  return pa_context_get_state(m_loop->context.get()) == PA_CONTEXT_READY;
}

bool Server::Fail(const char* reason) {
  m_problem = reason ? reason : pa_strerror(pa_context_errno(m_loop->context.get()));
  return false;
}

/// One turn of the loop.
bool Server::Iterate(Clock::time_point end) {
  const auto left = std::chrono::duration_cast<std::chrono::microseconds>(end - Clock::now()).count();
  m_isSilent = left <= 0;
  if (m_isSilent) return Fail("no answer in time");
  pa_mainloop* const loop = m_loop->loop.get();
  const bool isWell = pa_mainloop_prepare(loop, static_cast<int>(left)) >= 0 && pa_mainloop_poll(loop) >= 0 &&
                      pa_mainloop_dispatch(loop) >= 0;
  return isWell || Fail();
}

/// Waits until it has been answered.
bool Server::Finish(pa_operation* operation) {
  if (!operation) return Fail();
  const std::unique_ptr<pa_operation, CRelease<&pa_operation_unref>> owned(operation);
  const auto end = Clock::now() + m_limit;
  while (pa_operation_get_state(operation) == PA_OPERATION_RUNNING)
    if (!Iterate(end)) {
      pa_operation_cancel(operation);
      return false;
    }
  return pa_operation_get_state(operation) == PA_OPERATION_DONE || Fail();
}

std::optional<Outputs> Server::List() {
  Taking taking;
  pa_context* const context = m_loop->context.get();
  if (!IsConnected() || !Finish(pa_context_get_server_info(context, &OnServer, &taking)) ||
      !Finish(pa_context_get_sink_info_list(context, &OnSink, &taking)) ||
      !Finish(pa_context_get_card_info_list(context, &OnCard, &taking)))
    return std::nullopt;
  const auto isInUse = [&](const IdlePort& idle) {
    return std::any_of(taking.outputs.sinks.begin(), taking.outputs.sinks.end(),
                       [&](const Sink& sink) { return sink.card == idle.cardIndex && HasPort(sink, idle.port.name); });
  };
  std::erase_if(taking.outputs.idlePorts, isInUse);
  return std::move(taking.outputs);
}

bool Server::SetDefault(const std::string& sink) {
  const auto before = List();
  if (!before) return false;
  Taking taking;
  pa_context* const context = m_loop->context.get();
  if (!Finish(pa_context_set_default_sink(context, sink.c_str(), &OnSuccess, &taking))) return false;
  if (!taking.isSuccess) return Fail();
  for (const Sink& each : before->sinks)
    if (each.name == before->defaultSink && each.name != sink) taking.from = each.index;
  if (taking.from == PA_INVALID_INDEX) return true;
  if (!Finish(pa_context_get_sink_input_info_list(context, &OnStream, &taking))) return false;
  // One that has ended meanwhile, or may not be moved, stays.
  for (const uint32_t stream : taking.streams)
    if (!Finish(pa_context_move_sink_input_by_name(context, stream, sink.c_str(), &OnSuccess, &taking))) return false;
  return true;
}

bool Server::SetMuted(const std::string& sink, bool isMuted) {
  Taking taking;
  pa_context* const context = m_loop->context.get();
  return Finish(pa_context_set_sink_mute_by_name(context, sink.c_str(), isMuted, &OnSuccess, &taking)) &&
         (taking.isSuccess || Fail());
}

bool Server::SetProfile(const std::string& card, const std::string& profile) {
  Taking taking;
  pa_context* const context = m_loop->context.get();
  return Finish(pa_context_set_card_profile_by_name(context, card.c_str(), profile.c_str(), &OnSuccess, &taking)) &&
         (taking.isSuccess || Fail());
}

}  // namespace sound
