#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <string_view>

#include "flux_resources.h"
#include "set_paths.h"
#include "settings/menu_language.h"
#include "system_path.h"

namespace {

constexpr int kPlainLines = 1080;
constexpr char kLargeEdition[] = "uhd/";

std::atomic<int> g_screenLines = kPlainLines;

bool Exists(const std::string& path) {
  return access(path.c_str(), F_OK) == 0;
}

/// The languages whose usual script runs from right to left; Punjabi's does in Pakistan.
constexpr std::array<std::string_view, 13> kRightToLeft = {"ar",    "ckb", "dv", "fa", "he", "iw", "ks",
                                                           "pa_PK", "ps",  "sd", "ug", "ur", "yi"};

/// Where `text` begins to be longer than `limit` bytes, moved back to a character's beginning.
size_t CutAt(const std::string& text, size_t limit) {
  if (text.size() <= limit) return text.size();
  while (limit > 0 && (static_cast<unsigned char>(text[limit]) & 0xC0) == 0x80) --limit;
  return limit;
}

}  // namespace

std::string getResourcePath(const std::string& file) {
  const std::string folder = SystemPath(set_paths::kResourceDir) + "/";
  if (g_screenLines > kPlainLines) {
    const std::string large = folder + kLargeEdition + file;
    // The beginning of the names of frames is no file; its folder tells whether there are frames.
    const bool isSeries = file.ends_with('_');
    if (Exists(isSeries ? large.substr(0, large.rfind('/')) : large)) return large;
  }
  return folder + file;
}

std::string getCommonResourcePath(const std::string& file) {
  return SystemPath(set_paths::kCommonImagesDir) + "/" + file + (file.ends_with(".9") ? ".png" : "");
}

void setResourceScreenHeight(int lines) {
  g_screenLines = lines;
}

int ua_UI_orientation_get() {
  // Some of these languages are written in Latin letters or Devanagari too; the catalogue's language then says so.
  const std::string language = LanguageOfTexts();
  if (language.ends_with("@latin") || language.ends_with("@devanagari")) return 0;
  const auto isRightToLeft = [](const std::string& name) {
    return std::count(kRightToLeft.begin(), kRightToLeft.end(), name) > 0;
  };
  return isRightToLeft(language) || isRightToLeft(LanguageOfLocale(language));
}

std::string CStringUtil::CombinateStrings(const std::string& format, const std::string& value, size_t limit) {
  std::string text = format;
  size_t at = std::string::npos;
  size_t length = 0;
  for (const std::string_view placeholder : {"%s", "%d", "%u", "<<A>>"}) {
    const size_t found = format.find(placeholder);
    if (found < at) {
      at = found;
      length = placeholder.size();
    }
  }
  if (at != std::string::npos) text.replace(at, length, value);
  text.resize(CutAt(text, limit));
  return text;
}
