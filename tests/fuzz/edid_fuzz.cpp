#include "fuzz.h"
#include "trevlin/collectors/display_facts.h"

void FuzzOne(std::string_view bytes) {
  const display::Edid edid = display::ReadEdid(bytes);
  Promise(edid.isValid || (!edid.preferred && edid.modes.empty() && edid.name.empty()), "only what is valid tells");
  Promise(!edid.preferred || edid.preferred->Area() > 0, "a resolution has pixels");
  for (const display::Mode& mode : edid.modes) {
    Promise(mode.size.Area() > 0 && mode.rate > 0, "a mode has pixels and a rate");
    Promise(!IsBetter(mode, *edid.Best()), "none is better than the best");
  }
  Promise(edid.soundChannels >= 0 && edid.soundChannels <= 8, "three bits tell the channels");
  Promise(!edid.rates || edid.rates->least < edid.rates->most, "a range of rates has room");
  trevlin::Facts facts;
  const display::Mode shown{{1920, 1080}};
  trevlin::AddDisplayFacts({{"HDMI-A-1", true, std::string(bytes), shown}}, facts);
}
