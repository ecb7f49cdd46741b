// What libFuzzer calls.

#include <cstddef>
#include <cstdint>

#include "fuzz.h"

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  // Readers of files have them below it; without one these would be the machine's.
  if (std::getenv("VEXILO_ROOT")) return 0;
  std::fputs("VEXILO_ROOT is not set; scripts/fuzz runs this program.\n", stderr);
  std::exit(EXIT_FAILURE);
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  FuzzOne({reinterpret_cast<const char*>(data), size});
  return 0;
}
