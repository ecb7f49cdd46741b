#include "setd/scrubber.h"

#include "fuzz.h"

/// The first part is a private text, the rest what it is taken out of.
void FuzzOne(std::string_view bytes) {
  const std::string secret(TakePart(bytes).substr(0, 32)), text(bytes);
  setd::Scrubber scrubber({{"user", "annegret"}, {"ssid", secret.empty() ? "Home" : secret}});
  scrubber.Learn(text);
  const auto clean = scrubber.Clean(text + " annegret ");
  Promise(!clean || clean->find(" annegret ") == std::string::npos, "a private word is gone");
}
