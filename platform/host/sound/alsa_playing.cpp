// On ALSA's default card, where no sound server runs.

#include <array>
#include <memory>

// Some headers of the library do not say themselves that they declare C functions.
extern "C" {
#include <alsa/asoundlib.h>
}

#include "c_handle.h"
#include "sound/alsa_mixer.h"
#include "sound/playing.h"

namespace sound {

namespace {

constexpr unsigned kLatency = 200'000;  // microseconds
constexpr int kPatience = 3000;         // milliseconds
constexpr size_t kAtOnce = kRate / 50;  // frames

using Card = std::unique_ptr<snd_pcm_t, CRelease<&snd_pcm_close>>;

}  // namespace

bool PlayOnAlsa(const Playing& playing, std::string& problem) {
  const QuietAlsa quiet;
  const auto fail = [&problem](long error) { return problem = snd_strerror(static_cast<int>(error)), false; };
  snd_pcm_t* opened = nullptr;
  if (const int error = snd_pcm_open(&opened, "default", SND_PCM_STREAM_PLAYBACK, SND_PCM_NONBLOCK); error < 0)
    return fail(error);
  const Card card(opened);
  if (const int error =
          snd_pcm_set_params(opened, SND_PCM_FORMAT_S16, SND_PCM_ACCESS_RW_INTERLEAVED, kChannels, kRate, 1, kLatency);
      error < 0)
    return fail(error);
  std::array<int16_t, kAtOnce * kChannels> samples;
  while (!*playing.stop) {
    const size_t frames = playing.next(samples.data(), kAtOnce);
    if (frames == 0) break;
    for (size_t done = 0; done < frames;) {
      if (snd_pcm_wait(opened, kPatience) == 0) return problem = "the output takes nothing", false;
      const int16_t* const rest = samples.data() + done * kChannels;
      const snd_pcm_sframes_t taken = snd_pcm_writei(opened, rest, frames - done);
      if (taken == -EAGAIN) continue;
      if (taken < 0) {
        if (const int error = snd_pcm_recover(opened, static_cast<int>(taken), 1); error < 0) return fail(error);
        continue;
      }
      playing.heard(rest, static_cast<size_t>(taken));
      done += static_cast<size_t>(taken);
    }
  }
  snd_pcm_nonblock(opened, 0);
  if (!*playing.stop) snd_pcm_drain(opened);
  return true;
}

}  // namespace sound
