#include "sound/screen_sound.h"

#include <memory>
#include <string>

// Some headers of the library do not say themselves that they declare C functions.
extern "C" {
#include <alsa/asoundlib.h>
}

#include "c_handle.h"
#include "sound/alsa_mixer.h"

namespace sound {

namespace {

constexpr char kDescription[] = "ELD";
constexpr int kVersionShift = 3;  // in the first byte; what has come has one, what is only room for it is zero

}  // namespace

std::optional<bool> PlaysSound(const CardDevice& output) {
  const QuietAlsa quiet;
  snd_ctl_t* opened = nullptr;
  if (snd_ctl_open(&opened, ("hw:" + std::to_string(output.card)).c_str(), SND_CTL_READONLY) < 0) return std::nullopt;
  const std::unique_ptr<snd_ctl_t, CRelease<&snd_ctl_close>> card(opened);
  snd_ctl_elem_info_t* info = nullptr;
  snd_ctl_elem_info_alloca(&info);
  snd_ctl_elem_info_set_interface(info, SND_CTL_ELEM_IFACE_PCM);
  snd_ctl_elem_info_set_device(info, static_cast<unsigned>(output.device));
  snd_ctl_elem_info_set_name(info, kDescription);
  if (snd_ctl_elem_info(opened, info) < 0 || snd_ctl_elem_info_get_type(info) != SND_CTL_ELEM_TYPE_BYTES)
    return std::nullopt;
  if (snd_ctl_elem_info_get_count(info) == 0) return false;
  snd_ctl_elem_id_t* id = nullptr;
  snd_ctl_elem_id_alloca(&id);
  snd_ctl_elem_info_get_id(info, id);
  snd_ctl_elem_value_t* value = nullptr;
  snd_ctl_elem_value_alloca(&value);
  snd_ctl_elem_value_set_id(value, id);
  if (snd_ctl_elem_read(opened, value) < 0) return std::nullopt;
  return snd_ctl_elem_value_get_byte(value, 0) >> kVersionShift != 0;
}

}  // namespace sound
