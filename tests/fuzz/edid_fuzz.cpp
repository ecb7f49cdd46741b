#include "fuzz.h"
#include "trevlin/collectors/display_facts.h"

void FuzzOne(std::string_view bytes) {
  const trevlin::Edid edid = trevlin::ReadEdid(bytes);
  Promise(edid.isValid || !edid.preferred, "only what is valid has a resolution");
  Promise(!edid.preferred || edid.preferred->Area() > 0, "a resolution has pixels");
  trevlin::Facts facts;
  trevlin::AddDisplayFacts({{"HDMI-A-1", true, std::string(bytes), trevlin::Resolution{1920, 1080}}}, facts);
}
