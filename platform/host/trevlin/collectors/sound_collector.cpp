#include <algorithm>
#include <memory>

// Some headers of the library do not say themselves that they declare C functions.
extern "C" {
#include <alsa/asoundlib.h>
}

#include "c_handle.h"
#include "sound_output.h"
#include "trevlin/collectors/collectors.h"
#include "trevlin/collectors/readings.h"

namespace trevlin {

namespace {

using namespace std::chrono_literals;

constexpr std::string_view kFolder = "/proc/asound";

/// What carries the volume of the whole, best first.
constexpr const char* kVolumes[] = {"Master", "PCM", "HDMI", "Speaker", "Headphone", "Digital"};

using Mixer = std::unique_ptr<snd_mixer_t, CRelease<&snd_mixer_close>>;

/// The lines of /proc/asound/cards that begin with a number; each card has a second line that does not.
std::optional<double> CountCards(const Machine& machine) {
  const auto text = ReadText(machine, std::string(kFolder) + "/cards");
  if (!text) return std::nullopt;
  int cards = 0;
  for (const std::string_view line : SplitLines(*text)) {
    const auto words = SplitWords(line);
    if (words.size() >= 2 && ParseNumber(words[0]) && words[1].starts_with('[')) ++cards;
  }
  return cards;
}

/// Whether a screen or receiver that plays sound is at the other end of a digital output: its description (ELD) came.
std::optional<bool> HasHdmiOutput(const Machine& machine) {
  std::optional<bool> result;
  for (const std::string& card : ListNames(machine, kFolder)) {
    if (!card.starts_with("card") || card == "cards") continue;
    const std::string folder = std::string(kFolder) + "/" + card;
    for (const std::string& name : ListNames(machine, folder)) {
      const auto text = name.starts_with("eld#") ? ReadText(machine, folder + "/" + name) : std::nullopt;
      const auto valid = text ? FindNumber(*text, "eld_valid") : std::nullopt;
      if (valid) result = result.value_or(false) || *valid == 1;
    }
  }
  return result;
}

/// The library tells of each missing card on the standard error output, which is the program's.
class QuietLibrary {
 public:
  QuietLibrary() : m_before(snd_lib_error_set_local(&Ignore)) {}
  ~QuietLibrary() { snd_lib_error_set_local(m_before); }
  QuietLibrary(const QuietLibrary&) = delete;
  QuietLibrary& operator=(const QuietLibrary&) = delete;

 private:
  static void Ignore(const char*, int, const char*, int, const char*, va_list) {}
  const snd_local_error_handler_t m_before;
};

Mixer OpenMixer() {
  snd_mixer_t* opened = nullptr;
  if (snd_mixer_open(&opened, 0) != 0) return nullptr;
  Mixer mixer(opened);
  const bool works = snd_mixer_attach(opened, "default") == 0 &&
                     snd_mixer_selem_register(opened, nullptr, nullptr) == 0 && snd_mixer_load(opened) == 0;
  return works ? std::move(mixer) : nullptr;
}

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

/// The loudest channel's.
std::optional<double> VolumePercent(snd_mixer_elem_t* element) {
  long least = 0, most = 0;
  if (snd_mixer_selem_get_playback_volume_range(element, &least, &most) != 0 || most <= least) return std::nullopt;
  std::optional<long> loudest;
  ForEachChannel(element, [&](snd_mixer_selem_channel_id_t channel) {
    long volume = 0;
    if (snd_mixer_selem_get_playback_volume(element, channel, &volume) == 0)
      loudest = std::max(loudest.value_or(volume), volume);
  });
  if (!loudest) return std::nullopt;
  return static_cast<double>(std::clamp(*loudest, least, most) - least) / static_cast<double>(most - least) * 100;
}

/// By its switch, on all channels. Without a switch it cannot be muted.
std::optional<bool> IsMuted(snd_mixer_elem_t* element) {
  if (!snd_mixer_selem_has_playback_switch(element)) return false;
  std::optional<bool> muted;
  ForEachChannel(element, [&](snd_mixer_selem_channel_id_t channel) {
    int isOn = 0;
    if (snd_mixer_selem_get_playback_switch(element, channel, &isOn) == 0) muted = muted.value_or(true) && isOn == 0;
  });
  return muted;
}

void AddMixerFacts(Facts& facts) {
  const QuietLibrary quiet;
  const Mixer mixer = OpenMixer();
  snd_mixer_elem_t* volume = mixer ? FindVolume(mixer.get()) : nullptr;
  if (!volume) return;
  AddFact(facts, "sound.volume_percent", VolumePercent(volume));
  AddFact(facts, "sound.muted", IsMuted(volume));
}

/// Takes a program's start, so it is for machines where there is something to find.
void AddOutputFact(Facts& facts) {
  const SoundOutput output = AskSoundOutput();
  AddFact(facts, "sound.elsewhere", output.isElsewhere);
  if (output.hasServer && !output.isElsewhere) AddUnknown(facts, "sound.elsewhere");
}

class SoundCollector final : public Collector {
 public:
  std::string_view Name() const override { return "sound"; }
  std::chrono::milliseconds Period() const override { return 30s; }
  std::chrono::milliseconds Deadline() const override { return 2s; }

  std::vector<FactDescription> Describe() const override {
    using enum FactKind;
    return {
        {"sound.cards", kNumber, "", "sound cards; none is known where the kernel has no sound at all"},
        {"sound.muted", kTruth, "", "the default card is switched off"},
        {"sound.volume_percent", kNumber, "%", "of the default card, of its loudest channel"},
        {"sound.hdmi_output", kTruth, "", "a screen or receiver that plays sound is at a digital output"},
        {"sound.elsewhere", kTruth, "", "sound goes to an output with nothing at it, while a screen could play it"},
    };
  }

  void Collect(const Machine& machine, Facts& facts) override {
    const auto cards = CountCards(machine);
    AddFact(facts, "sound.cards", cards);
    const auto hasScreen = HasHdmiOutput(machine);
    AddFact(facts, "sound.hdmi_output", hasScreen);
    if (machine.IsCaptured()) return;
    if (hasScreen == true) AddOutputFact(facts);
    if (cards.value_or(0) > 0) AddMixerFacts(facts);
  }
};

}  // namespace

std::unique_ptr<Collector> MakeSoundCollector() {
  return std::make_unique<SoundCollector>();
}

}  // namespace trevlin
