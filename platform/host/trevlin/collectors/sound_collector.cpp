#include "sound/alsa_mixer.h"
#include "sound_output.h"
#include "trevlin/collectors/collectors.h"
#include "trevlin/collectors/readings.h"
#include "trevlin/collectors/sound_facts.h"

namespace trevlin {

namespace {

using namespace std::chrono_literals;

void AddMixerFacts(Facts& facts) {
  const sound::AlsaMixer mixer;
  AddFact(facts, "sound.volume_percent", mixer.VolumePercent());
  AddFact(facts, "sound.muted", mixer.IsMuted());
}

/// Takes a program's start, so it is for machines where there is something to find.
void AddOutputFact(Facts& facts) {
  const SoundOutput output = AskSoundOutput();
  AddFact(facts, "sound.elsewhere", output.isElsewhere);
  if ((output.hasServer || !output.hasSession) && !output.isElsewhere) AddUnknown(facts, "sound.elsewhere");
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
        {"sound.elsewhere", kTruth, "",
         "the sound of this session goes to an output with nothing at it, while there is one to a screen that is "
         "plugged "
         "in"},
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
