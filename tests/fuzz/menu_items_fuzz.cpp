#include "QUVA_MenuItemParser.h"
#include "fuzz.h"
#include "fuzz_files.h"
#include "set_paths.h"

void FuzzOne(std::string_view bytes) {
  WriteFile(set_paths::kMenuItems, bytes);
  auto& parser = *QUVA::MenuItemParser::GetInstance();
  parser.ParseJson(set_paths::kMenuItems);
  parser.GetCheckerFnPtrs();
  for (const char* item : {"video-test", "sound-test", "sct"}) {
    Promise(parser.GetEnableCheck(item) == 0 && parser.GetVisibleCheck(item) == 0, "there is no checker to say yes");
    parser.GetEnableKey(item);
  }
}
