// Numbers, sizes, dates and languages as texts.

#include "CMenuTimeUtil.h"
#include "CUtils.h"
#include "StorageSummary.h"
#include "support/files.h"
#include "vconf.h"

namespace {

using QUVA::CMenuTimeUtil;
using QUVA::CUtils;
using QUVA::languageInfoMap;

constexpr int64_t kKiB = 1024;
constexpr int64_t kMiB = kKiB * 1024;
constexpr int64_t kGiB = kMiB * 1024;

TEST(Bytes, HaveTheUnitThatTheyReach) {
  const std::pair<int64_t, const char*> cases[] = {
      {0, "0.00B"},     {1023, "1023.00B"},         {kKiB, "1.00KB"}, {kMiB - 1, "1024.00KB"},
      {kMiB, "1.00MB"}, {kGiB - 1, "1024.00MB"},    {kGiB, "1.00GB"}, {kGiB * 3 / 2, "1.50GB"},
      {1536, "1.50KB"}, {kGiB * 1024, "1024.00GB"}, {-5, "-5.00B"},
  };
  for (const auto& [bytes, text] : cases) EXPECT_EQ(CUtils::m_ConvertBytes(bytes), text) << bytes;
}

TEST(StorageSummary, HasTheSharesOfThePartition) {
  const struct {
    int64_t total, used;
    const char *usedText, *available;
    double fraction;
  } rows[] = {{32000000000, 8000000000, "7.45GB", "22.35GB(75%)", 0.25},
              {1000, 1000, "0.00GB", "0.00GB(0%)", 1.0},
              {0, 0, "0.00GB", "0.00GB(0%)", 1.0},
              {300 * kGiB, 3 * kGiB, "3.00GB", "297.00GB(99%)", 0.01}};
  for (const auto& row : rows) {
    const auto summary = QUVA::MakeStorageSummary(row.total, row.used, 5 * kGiB, false);
    EXPECT_EQ(summary.used, row.usedText);
    EXPECT_EQ(summary.available, row.available);
    EXPECT_NEAR(summary.usedFraction, row.fraction, 1e-9);
  }
}

TEST(StorageSummary, AddsUpToTheNominalCapacity) {
  const struct {
    double used, available, system;
    const char *systemText, *availableText;
  } rows[] = {{5.2, 1.1, 0.9, "1.70GB", "1.10GB(13%)"},   // of 8
              {1.0, 1.0, 1.0, "2.00GB", "1.00GB(25%)"},   // of 4
              {1.0, 2.0, 1.0, "61.00GB", "2.00GB(3%)"},   // exactly 4 is in no smaller band
              {4.0, 3.0, 1.01, "1.00GB", "3.00GB(37%)"},  // 8.01 is 8 still
              {10.0, 10.0, 2.0, "12.00GB", "10.00GB(31%)"}, {100.0, 90.0, 2.0, "0.00GB", "90.00GB(140%)"}};
  for (const auto& row : rows) {
    const auto bytes = [](double gigabytes) { return static_cast<int64_t>(gigabytes * static_cast<double>(kGiB)); };
    const auto summary =
        QUVA::MakeStorageSummary(bytes(row.used) + bytes(row.available), bytes(row.used), bytes(row.system), true);
    EXPECT_EQ(summary.system, row.systemText);
    EXPECT_EQ(summary.available, row.availableText);
  }
  EXPECT_EQ(QUVA::SystemPartOfBar(70, 3 * kGiB, kGiB), 17);
  EXPECT_EQ(QUVA::SystemPartOfBar(70, kGiB, 0), 0);
  EXPECT_EQ(QUVA::SystemPartOfBar(70, 0, 0), 0);
}

TEST(Dates, HaveTheFormatAndOrderOfTheLanguageOrElseOfTheRegion) {
  const struct {
    const char* locale;
    const char* region;  ///< "" for none
    int format;
    const char* order;
  } cases[] = {
      {"", "", 1, "MDY"},
      {"", "16", 5, "YMD"},
      {"ko_KR.utf8", "2", 0, "YMD"},
      {"zh_HK.utf8", "2", 3, "YMD"},
      {"zh_CN.utf8", "2", 3, "YMD"},
      {"ja_JP.utf8", "2", 5, "YMD"},
      {"ko_KR", "3", 4, "DMY"},
      {"en_US.utf8", "1", 1, "MDY"},
      {"en_US.utf8", "34", 2, "DMY"},
      {"en_US.utf8", "35", 1, "MDY"},
  };
  for (const auto& [locale, region, format, order] : cases) {
    SCOPED_TRACE(std::string(locale) + " in region " + region);
    if (*locale) vconf_set_str("db/menu_widget/language", locale);
    if (*region) WriteFile(set_paths::kSetProfile, std::string("[set]\nregion_kind=") + region + "\n");
    EXPECT_EQ(CMenuTimeUtil::GetTimeFormatType(), format);
    EXPECT_STREQ(CUtils::m_GetDateFormat(), order);
  }
}

TEST(Languages, HaveEachALocaleOfItsOwn) {
  std::set<std::string> locales;
  for (const auto& [key, language] : languageInfoMap) {
    EXPECT_THAT(language.second, testing::MatchesRegex("[a-z]{2,3}_[A-Z]{2}\\.utf8(@cyrillic)?"));
    EXPECT_TRUE(locales.insert(language.second).second) << language.second;
  }
  const std::pair<int, const char*> cases[] = {
      {-1, "UNKNOWN"}, {0, "ko_KR.utf8"}, {58, "uz_UZ.utf8@cyrillic"}, {87, "tl_PH.utf8"}, {88, "UNKNOWN"}};
  for (const auto& [language, locale] : cases) {
    char text[CMenuTimeUtil::kLocaleSize] = "untouched";
    CMenuTimeUtil::GetLanguageLocale(text, language);
    EXPECT_STREQ(text, locale);
  }
}

}  // namespace
