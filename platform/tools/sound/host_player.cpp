// The player: on the session's sound server, else on ALSA.

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdlib>

#include "sound/alsa_mixer.h"
#include "sound/playing.h"
#include "sound/sound_server.h"
#include "sound_player.h"
#include "trevlin/collectors/sound_facts.h"
#include "trouble.h"

namespace tools {

namespace {

constexpr std::chrono::milliseconds kServerLimit{2000};
const trevlin::Machine kMachine{};  // this one

/// The one that sound goes to; nothing where it leads nowhere.
std::optional<sound::Sink> DefaultSink(sound::Server& server) {
  const auto outputs = server.List();
  const sound::Sink* const sink = outputs ? outputs->Default() : nullptr;
  return sink ? std::optional(*sink) : std::nullopt;
}

/// Whether the screen at this output plays sound. Where its card does not tell which is which, whether any does.
std::optional<bool> IsHeard(const sound::Sink& sink) {
  if (const auto told = sink.device ? sound::PlaysSound(*sink.device) : std::nullopt) return told;
  return trevlin::HasHdmiOutput(kMachine);
}

class HostPlayer final : public SoundPlayer {
 public:
  SoundOutputState Look() override;
  bool Unmute(std::string& problem) override;
  bool Play(Tone tone, std::string& problem) override;
  void Stop() override { m_stop = true; }
  SoundLevels TakeLevels() override { return {m_left.exchange(0) / kFullScale, m_right.exchange(0) / kFullScale}; }

 private:
  static constexpr double kFullScale = INT16_MAX;

  void Hear(const int16_t* samples, size_t frames);

  std::atomic<bool> m_stop{false};
  std::atomic<int> m_left{0}, m_right{0};
};

SoundOutputState HostPlayer::Look() {
  SoundOutputState state;
  sound::Server server(kServerLimit);
  if (server.IsConnected()) {
    const auto sink = DefaultSink(server);
    if (!sink) return state;
    state = {SoundTrouble::kNone, sink->title, "", sink->volumePercent, sink->isMuted};
    for (const sound::Port& port : sink->ports)
      if (port.name == sink->activePort) state.port = port.title;
    state.trouble = TroubleOf(state, &*sink, IsHeard);
    return state;
  }
  if (trevlin::CountCards(kMachine).value_or(0) == 0) return state;
  const sound::AlsaMixer mixer;
  state = {SoundTrouble::kNone, sound::DefaultCardTitle(), "", mixer.VolumePercent(), mixer.IsMuted()};
  state.trouble = TroubleOf(state, nullptr, IsHeard);
  return state;
}

bool HostPlayer::Unmute(std::string& problem) {
  sound::Server server(kServerLimit);
  if (!server.IsConnected())
    return sound::AlsaMixer().Unmute() || (problem = "its mixer cannot be changed (ALSA)", false);
  const auto sink = DefaultSink(server);
  if (sink && server.SetMuted(sink->name, false)) return true;
  problem = server.Problem();
  return false;
}

bool HostPlayer::Play(Tone tone, std::string& problem) {
  m_stop = false;
  ToneSource source(tone);
  const sound::Playing playing{
      [&source](int16_t* samples, size_t frames) { return source.Fill(samples, frames); },
      [this](const int16_t* samples, size_t frames) { Hear(samples, frames); },
      &m_stop,
  };
  sound::Server server(kServerLimit);
  if (!server.IsConnected()) return sound::PlayOnAlsa(playing, problem);
  const auto sink = DefaultSink(server);
  if (sink) return sound::PlayOnServer(*sink, playing, problem);
  problem = server.Problem().empty() ? "there is no output" : server.Problem();
  return false;
}

void HostPlayer::Hear(const int16_t* samples, size_t frames) {
  int left = m_left, right = m_right;
  for (size_t i = 0; i < frames; ++i) {
    left = std::max(left, std::abs(int{samples[i * sound::kChannels]}));
    right = std::max(right, std::abs(int{samples[i * sound::kChannels + 1]}));
  }
  m_left = left;
  m_right = right;
}

}  // namespace

}  // namespace tools

extern "C" tools::SoundPlayer* vexilo_make_sound_player() {
  return new tools::HostPlayer;
}
