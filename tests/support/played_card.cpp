// A sound card's controls, played below the ALSA library: the descriptions (ELD) of the screens at its four plugs. That
// at 3 has sent one, that at 7 none; at 8 there is room for one, as other drivers have it; 9 does not tell.

#include <algorithm>
#include <cstring>
#include <iterator>

// Some headers of the library do not say themselves that they declare C functions.
extern "C" {
#include <alsa/asoundlib.h>
#include <alsa/control_external.h>
}

namespace {

constexpr unsigned kRoom = 84;  // bytes of a description

constexpr struct {
  unsigned device, size;
  unsigned char version;  // in the upper five bits
} kPlugs[] = {{3, kRoom, 0x10}, {7, 0, 0}, {8, kRoom, 0}};

int CountAll(snd_ctl_ext_t*) {
  return std::size(kPlugs);
}

int Name(snd_ctl_ext_t*, unsigned number, snd_ctl_elem_id_t* id) {
  snd_ctl_elem_id_set_interface(id, SND_CTL_ELEM_IFACE_PCM);
  snd_ctl_elem_id_set_device(id, kPlugs[number].device);
  snd_ctl_elem_id_set_name(id, "ELD");
  return 0;
}

snd_ctl_ext_key_t Find(snd_ctl_ext_t*, const snd_ctl_elem_id_t* id) {
  for (snd_ctl_ext_key_t i = 0; i < std::size(kPlugs); ++i)
    if (snd_ctl_elem_id_get_interface(id) == SND_CTL_ELEM_IFACE_PCM &&
        snd_ctl_elem_id_get_device(id) == kPlugs[i].device && std::strcmp(snd_ctl_elem_id_get_name(id), "ELD") == 0)
      return i;
  return SND_CTL_EXT_KEY_NOT_FOUND;
}

int Describe(snd_ctl_ext_t*, snd_ctl_ext_key_t key, int* type, unsigned* access, unsigned* count) {
  *type = SND_CTL_ELEM_TYPE_BYTES;
  *access = SND_CTL_EXT_ACCESS_READ;
  *count = kPlugs[key].size;
  return 0;
}

int Read(snd_ctl_ext_t*, snd_ctl_ext_key_t key, unsigned char* data, size_t room) {
  std::fill_n(data, std::min<size_t>(room, kRoom), 0);
  data[0] = kPlugs[key].version;
  return 0;
}

const snd_ctl_ext_callback_t kCalls = [] {
  snd_ctl_ext_callback_t calls{};
  calls.elem_count = CountAll;
  calls.elem_list = Name;
  calls.find_elem = Find;
  calls.get_attribute = Describe;
  calls.read_bytes = Read;
  return calls;
}();

}  // namespace

extern "C" {

SND_CTL_PLUGIN_DEFINE_FUNC(played) {
  static snd_ctl_ext_t card;
  card = {};
  card.version = SND_CTL_EXT_VERSION;
  card.callback = &kCalls;
  card.poll_fd = -1;
  const int error = snd_ctl_ext_create(&card, name, mode);
  *handlep = card.handle;
  return error;
}

SND_CTL_PLUGIN_SYMBOL(played)
}
