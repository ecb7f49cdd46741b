#include "sysinfo/set_profile.h"

#include "fuzz.h"
#include "fuzz_files.h"
#include "set_paths.h"

void FuzzOne(std::string_view bytes) {
  WriteFile(set_paths::kSetProfile, bytes);
  std::string text;
  int number = 0;
  bool truth = false;
  for (const char* key : {"sw_model", "num_of_tuner", "disclaimer_items"}) {
    set_profile::Text("set", key, text);
    set_profile::Int("set", key, number);
    set_profile::Bool("set", key, truth);
  }
}
