// Where images come from, which way texts run, and which fonts they are in.

#include <fontconfig/fontconfig.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "flux_resources.h"
#include "system_path.h"
#include "vconf.h"

namespace {

namespace fs = std::filesystem;

const std::string kRes = "/usr/apps/com.tornelo.TVVexilo/res/";

void Touch(const std::string& setPath) {
  const fs::path file = SystemPath(setPath);
  fs::create_directories(file.parent_path());
  std::ofstream(file) << "x";
}

TEST(Resources, EditionForTheScreenIsTakenWhereItHasTheFile) {
  Touch(kRes + "uhd/Motion/good/good _59.png");
  const struct {
    int lines;
    const char* file;
    const char* found;
  } cases[] = {
      {1080, "Motion/good/good _59.png", "Motion/good/good _59.png"},
      {2160, "Motion/good/good _59.png", "uhd/Motion/good/good _59.png"},
      {1081, "Motion/good/good _", "uhd/Motion/good/good _"},
      {2160, "Motion/bad/bad_", "Motion/bad/bad_"},
      {2160, "Motion/good/good _60.png", "Motion/good/good _60.png"},
      {2160, "quorin_HDMIcabletest.svg", "quorin_HDMIcabletest.svg"},
      {720, "Motion/good/good _59.png", "Motion/good/good _59.png"},
  };
  for (const auto& each : cases) {
    setResourceScreenHeight(each.lines);
    EXPECT_EQ(getResourcePath(each.file), SystemPath(kRes + each.found)) << each.lines;
  }
  EXPECT_EQ(getCommonResourcePath("i_img_header1line_default.9"),
            SystemPath("/usr/share/vexilo-flux/images/i_img_header1line_default.9.png"));
  EXPECT_EQ(getCommonResourcePath("a.svg"), SystemPath("/usr/share/vexilo-flux/images/a.svg"));
}

TEST(Resources, OrientationFollowsTheMenuLanguage) {
  EXPECT_EQ(ua_UI_orientation_get(), 0) << "not set";
  const std::pair<const char*, int> cases[] = {{"ar_AE.utf8", 1},
                                               {"he_IL", 1},
                                               {"fa", 1},
                                               {"ur_PK.UTF-8", 1},
                                               {"en_US.utf8", 0},
                                               {"arn_CL.utf8", 0},
                                               {"sd_IN@devanagari", 0},
                                               {"ckb_IQ.utf8", 1},
                                               {"", 0},
                                               {"ar AE", 0},
                                               {"sr_RS.utf8@latin", 0}};
  for (const auto& [language, orientation] : cases) {
    ASSERT_EQ(vconf_set_str("db/menu_widget/language", language), 0);
    EXPECT_EQ(ua_UI_orientation_get(), orientation) << language;
  }
}

TEST(Resources, FontRulesGiveWeightsAndTheMenuLanguagesCharacters) {
  const struct {
    const char *family, *language, *font;
    int weight;
  } cases[] = {
      {"TorneloPlume_400", "en", "Inter", FC_WEIGHT_REGULAR},
      {"TorneloPlume_600", "de", "Inter", FC_WEIGHT_SEMIBOLD},
      {"TorneloPlume_700", "zh-cn", "Noto Sans CJK SC", FC_WEIGHT_BOLD},
      {"TorneloPlume_400", "zh-tw", "Noto Sans CJK TC", FC_WEIGHT_REGULAR},
      {"TorneloPlume_400", "ja", "Noto Sans CJK JP", FC_WEIGHT_REGULAR},
      {"TorneloPlume_700", "ko", "Noto Sans CJK KR", FC_WEIGHT_BOLD},
      {"TorneloPlume_400", "ar", "Noto Sans Arabic UI", FC_WEIGHT_REGULAR},
      {"TorneloPlume_700", "hi", "Noto Sans Devanagari UI", FC_WEIGHT_BOLD},
  };
  setenv("FONTCONFIG_FILE", VEXILO_SOURCE_DIR "/res/fonts/fonts.conf", 1);
  FcConfig* const config = FcInitLoadConfigAndFonts();
  for (const auto& each : cases) {
    const std::string name = std::string(each.family) + ":lang=" + each.language;
    FcPattern* const wanted = FcNameParse(reinterpret_cast<const FcChar8*>(name.c_str()));
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
    EXPECT_STREQ(reinterpret_cast<char*>(family), each.font) << each.language;
    EXPECT_EQ(weight, each.weight) << each.family << " " << each.language;
    FcFontSetDestroy(fonts);
    FcPatternDestroy(wanted);
  }
  FcConfigDestroy(config);
}

TEST(Resources, PlaceholdersAreFilledAndLongTextsCutBetweenCharacters) {
  const struct {
    const char *format, *value;
    size_t limit;
    const char* text;
  } cases[] = {
      {"Remaining issues (%u)", "3", 1023, "Remaining issues (3)"},
      {"%d von %s", "2", 1023, "2 von %s"},
      {"100% %s", "%d", 1023, "100% %d"},
      {"<<A>> %s", "x", 1023, "x %s"},
      {"none 5%", "x", 1023, "none 5%"},
      {"%s", "", 1023, ""},
      {"%s!", "é한", 4, "é"},
      {"%s!", "é한", 5, "é한"},
      {"%s", "한", 2, ""},
  };
  for (const auto& each : cases)
    EXPECT_EQ(CStringUtil::CombinateStrings(each.format, each.value, each.limit), each.text);
}

}  // namespace
