#include "elm_flux.h"
#include "speech/voice.h"

void elm_flux_access_say(const char* text) {
  if (text && elm_config_access_get()) speech::Say(text);
}
