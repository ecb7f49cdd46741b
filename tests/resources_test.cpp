// Where images come from, which fonts texts are in, and how they are put together.

#include <fontconfig/fontconfig.h>

#include "flux_resources.h"
#include "support/files.h"

namespace {

TEST(Resources, EditionForTheScreenIsTakenWhereItHasTheFile) {
  const std::string folder = SystemPath("/usr/apps/com.tornelo.TVVexilo/res/");
  WriteHostFile(folder + "uhd/Motion/good/good _59.png");
  const std::tuple<int, const char*, const char*> cases[] = {
      {1080, "Motion/good/good _59.png", "Motion/good/good _59.png"},
      {2160, "Motion/good/good _59.png", "uhd/Motion/good/good _59.png"},
      {1081, "Motion/good/good _", "uhd/Motion/good/good _"},
      {2160, "Motion/good/good _60.png", "Motion/good/good _60.png"}};
  for (const auto& [lines, file, found] : cases) {
    setResourceScreenHeight(lines);
    EXPECT_EQ(getResourcePath(file), folder + found) << lines;
  }
  EXPECT_EQ(getCommonResourcePath("default.9"), SystemPath("/usr/share/vexilo-flux/images/default.9.png"));
  EXPECT_EQ(getCommonResourcePath("a.svg"), SystemPath("/usr/share/vexilo-flux/images/a.svg"));
}

TEST(Resources, FontRulesGiveWeightsAndTheMenuLanguagesCharacters) {
  const struct {
    const char *wanted, *font;
    int weight;
  } cases[] = {
      {"TorneloPlume_400:lang=en", "Inter", FC_WEIGHT_REGULAR},
      {"TorneloPlume_600:lang=de", "Inter", FC_WEIGHT_SEMIBOLD},
      {"TorneloPlume_700:lang=zh-cn", "Noto Sans CJK SC", FC_WEIGHT_BOLD},
      {"TorneloPlume_700:lang=hi", "Noto Sans Devanagari UI", FC_WEIGHT_BOLD},
  };
  setenv("FONTCONFIG_FILE", VEXILO_SOURCE_DIR "/res/fonts/fonts.conf", 1);
  FcConfig* const config = FcInitLoadConfigAndFonts();
  for (const auto& each : cases) {
    FcPattern* const wanted = FcNameParse(reinterpret_cast<const FcChar8*>(each.wanted));
    FcConfigSubstitute(config, wanted, FcMatchPattern);
    FcDefaultSubstitute(wanted);
    FcResult result;
    FcFontSet* const fonts = FcFontSort(config, wanted, FcTrue, nullptr, &result);
    // The first CJK font is the one that draws such a character; else the first of all, which gives lines their height.
    const bool cjk = std::string(each.font).find("CJK") != std::string::npos;
    FcChar8* family = nullptr;
    int weight = 0;
    for (int i = 0; i < fonts->nfont; ++i) {
      FcPatternGetString(fonts->fonts[i], FC_FAMILY, 0, &family);
      FcPatternGetInteger(fonts->fonts[i], FC_WEIGHT, 0, &weight);
      if (!cjk || std::string(reinterpret_cast<char*>(family)).find("CJK") != std::string::npos) break;
    }
    EXPECT_STREQ(reinterpret_cast<char*>(family), each.font) << each.wanted;
    EXPECT_EQ(weight, each.weight) << each.wanted;
    FcFontSetDestroy(fonts);
    FcPatternDestroy(wanted);
  }
  FcConfigDestroy(config);
}

TEST(Resources, PlaceholdersAreFilledAndLongTextsCutBetweenCharacters) {
  const std::tuple<const char*, const char*, size_t, const char*> cases[] = {
      {"Remaining issues (%u)", "3", 1023, "Remaining issues (3)"},
      {"%d von %s", "2", 1023, "2 von %s"},
      {"<<A>> %s", "x", 1023, "x %s"},
      {"%s!", "é한", 4, "é"},
      {"%s!", "é한", 5, "é한"},
      {"%s", "한", 2, ""},
  };
  for (const auto& [format, value, limit, text] : cases)
    EXPECT_EQ(CStringUtil::CombinateStrings(format, value, limit), text);
}

}  // namespace
