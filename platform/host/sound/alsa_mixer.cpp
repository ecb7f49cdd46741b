#include "sound/alsa_mixer.h"

#include <algorithm>

// Some headers of the library do not say themselves that they declare C functions.
extern "C" {
#include <alsa/asoundlib.h>
}

namespace sound {

namespace {

/// What carries the volume of the whole, best first.
constexpr const char* kVolumes[] = {"Master", "PCM", "HDMI", "Speaker", "Headphone", "Digital"};

void Ignore(const char*, int, const char*, int, const char*, va_list) {}

snd_mixer_elem_t* FindVolume(snd_mixer_t* mixer) {
  snd_mixer_selem_id_t* id = nullptr;
  snd_mixer_selem_id_alloca(&id);
  for (const char* name : kVolumes) {
    snd_mixer_selem_id_set_index(id, 0);
    snd_mixer_selem_id_set_name(id, name);
    snd_mixer_elem_t* element = snd_mixer_find_selem(mixer, id);
    if (element && snd_mixer_selem_has_playback_volume(element)) return element;
  }
  return nullptr;
}

/// Calls `take` for each channel that the element plays.
template <typename Take>
void ForEachChannel(snd_mixer_elem_t* element, Take take) {
  for (int i = 0; i <= SND_MIXER_SCHN_LAST; ++i) {
    const auto channel = static_cast<snd_mixer_selem_channel_id_t>(i);
    if (snd_mixer_selem_has_playback_channel(element, channel)) take(channel);
  }
}

}  // namespace

struct QuietAlsa::Before {
  snd_local_error_handler_t handler;
};

QuietAlsa::QuietAlsa() : m_before(new Before{snd_lib_error_set_local(&Ignore)}) {}

QuietAlsa::~QuietAlsa() {
  snd_lib_error_set_local(m_before->handler);
}

std::string DefaultCardTitle() {
  const QuietAlsa quiet;
  snd_ctl_t* card = nullptr;
  if (snd_ctl_open(&card, "default", 0) != 0) return "";
  snd_ctl_card_info_t* info = nullptr;
  snd_ctl_card_info_alloca(&info);
  const std::string title = snd_ctl_card_info(card, info) == 0 ? snd_ctl_card_info_get_name(info) : "";
  snd_ctl_close(card);
  return title;
}

AlsaMixer::AlsaMixer() {
  if (snd_mixer_open(&m_mixer, 0) != 0) {
    m_mixer = nullptr;
    return;
  }
  if (snd_mixer_attach(m_mixer, "default") == 0 && snd_mixer_selem_register(m_mixer, nullptr, nullptr) == 0 &&
      snd_mixer_load(m_mixer) == 0)
    m_volume = FindVolume(m_mixer);
}

AlsaMixer::~AlsaMixer() {
  if (m_mixer) snd_mixer_close(m_mixer);
}

std::optional<double> AlsaMixer::VolumePercent() const {
  long least = 0, most = 0;
  if (!m_volume || snd_mixer_selem_get_playback_volume_range(m_volume, &least, &most) != 0 || most <= least)
    return std::nullopt;
  std::optional<long> loudest;
  ForEachChannel(m_volume, [&](snd_mixer_selem_channel_id_t channel) {
    long volume = 0;
    if (snd_mixer_selem_get_playback_volume(m_volume, channel, &volume) == 0)
      loudest = std::max(loudest.value_or(volume), volume);
  });
  if (!loudest) return std::nullopt;
  return static_cast<double>(std::clamp(*loudest, least, most) - least) / static_cast<double>(most - least) * 100;
}

std::optional<bool> AlsaMixer::IsMuted() const {
  if (!m_volume) return std::nullopt;
  if (!snd_mixer_selem_has_playback_switch(m_volume)) return false;
  std::optional<bool> muted;
  ForEachChannel(m_volume, [&](snd_mixer_selem_channel_id_t channel) {
    int isOn = 0;
    if (snd_mixer_selem_get_playback_switch(m_volume, channel, &isOn) == 0) muted = muted.value_or(true) && isOn == 0;
  });
  return muted;
}

bool AlsaMixer::Unmute() {
  return m_volume && snd_mixer_selem_set_playback_switch_all(m_volume, 1) == 0;
}

}  // namespace sound
