// Numbers, sizes, dates and languages as texts.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <clocale>
#include <fstream>
#include <functional>
#include <set>
#include <string>

#include "CMenuTimeUtil.h"
#include "CUtils.h"
#include "c_handle.h"
#include "set_paths.h"
#include "system_path.h"
#include "vconf.h"

namespace {

using QUVA::CMenuTimeUtil;
using QUVA::CUtils;
using QUVA::languageInfoMap;

constexpr int64_t kKiB = 1024;
constexpr int64_t kMiB = kKiB * 1024;
constexpr int64_t kGiB = kMiB * 1024;

std::string Locale(int language) {
  char locale[CMenuTimeUtil::kLocaleSize] = "untouched";
  CMenuTimeUtil::GetLanguageLocale(locale, language);
  return locale;
}

/// Time format and order of dates for a menu language ("" for none) and a region ("" for none).
std::string Dates(const char* locale, const std::string& region) {
  if (*locale) vconf_set_str("db/menu_widget/language", locale);
  if (!region.empty()) std::ofstream(SystemPath(set_paths::kSetProfile)) << "[set]\nregion_kind=" << region << "\n";
  return std::to_string(CMenuTimeUtil::GetTimeFormatType()) + " " + CUtils::m_GetDateFormat();
}

struct Case {
  const char* name;
  std::function<std::string()> text;
  const char* expected;
};
void PrintTo(const Case& each, std::ostream* out) {
  *out << each.name;
}

class Formatting : public testing::TestWithParam<Case> {};

TEST_P(Formatting, GivesTheText) {
  EXPECT_EQ(GetParam().text(), GetParam().expected);
}

const Case kCases[] = {
    {"RoundsToNearest", [] { return CUtils::m_RoundValue(0.125); }, "0.12"},
    {"RoundsTheBinaryValue", [] { return CUtils::m_RoundValue(2.675); }, "2.67"},
    {"RoundsNothingLarge", [] { return CUtils::m_RoundValue(1e15); }, "1000000000000000.00"},
    {"NumberNegative", [] { return CUtils::m_GetStringOfNumber(-12); }, "-12"},
    {"NumberWithoutGrouping", [] { return CUtils::m_GetStringOfNumber(1000); }, "1000"},
    {"NumberLeast", [] { return CUtils::m_GetStringOfNumber(INT32_MIN); }, "-2147483648"},
    {"Bytes0", [] { return CUtils::m_ConvertBytes(0); }, "0.00B"},
    {"Bytes512", [] { return CUtils::m_ConvertBytes(512); }, "512.00B"},
    {"Bytes1023", [] { return CUtils::m_ConvertBytes(1023); }, "1023.00B"},
    {"Bytes1024", [] { return CUtils::m_ConvertBytes(kKiB); }, "1.00KB"},
    {"Bytes1536", [] { return CUtils::m_ConvertBytes(1536); }, "1.50KB"},
    {"BytesBelowMiB", [] { return CUtils::m_ConvertBytes(kMiB - 1); }, "1024.00KB"},
    {"BytesMiB", [] { return CUtils::m_ConvertBytes(kMiB); }, "1.00MB"},
    {"BytesBelowGiB", [] { return CUtils::m_ConvertBytes(kGiB - 1); }, "1024.00MB"},
    {"BytesGiB", [] { return CUtils::m_ConvertBytes(kGiB); }, "1.00GB"},
    {"BytesOneAndAHalfGiB", [] { return CUtils::m_ConvertBytes(1610612736); }, "1.50GB"},
    {"BytesTiB", [] { return CUtils::m_ConvertBytes(kGiB * 1024); }, "1024.00GB"},
    {"BytesNegative", [] { return CUtils::m_ConvertBytes(-5); }, "-5.00B"},
    {"Gigabytes", [] { return CUtils::convertToString(3.5); }, "3.50GB"},
    {"GigabytesNearlyNone", [] { return CUtils::convertToString(0.004); }, "0.00GB"},
    {"ToGB", [] { return std::to_string(CUtils::m_ConvertToGB(1610612736)); }, "1.500000"},
    {"ToGBNone", [] { return std::to_string(CUtils::m_ConvertToGB(0)); }, "0.000000"},
    {"ToGBRounds", [] { return std::to_string(CUtils::m_ConvertToGB(kGiB / 3)); }, "0.330000"},
    {"ToGBNegative", [] { return std::to_string(CUtils::m_ConvertToGB(-kGiB)); }, "-1.000000"},
    {"DatesKorean", [] { return Dates("ko_KR.utf8", "2"); }, "0 YMD"},
    {"DatesHongKong", [] { return Dates("zh_HK.utf8", "2"); }, "3 YMD"},
    {"DatesSimplifiedChinese", [] { return Dates("zh_CN.utf8", "2"); }, "3 YMD"},
    {"DatesTaiwan", [] { return Dates("zh_TW.utf8", "16"); }, "3 YMD"},
    {"DatesJapanese", [] { return Dates("ja_JP.utf8", "2"); }, "5 YMD"},
    {"DatesOtherLocaleOfKorean", [] { return Dates("ko_KR", "3"); }, "4 DMY"},
    {"DatesRegion1", [] { return Dates("en_US.utf8", "1"); }, "1 MDY"},
    {"DatesRegion4", [] { return Dates("en_US.utf8", "4"); }, "2 DMY"},
    {"DatesRegion16", [] { return Dates("en_US.utf8", "16"); }, "5 YMD"},
    {"DatesRegion34", [] { return Dates("en_US.utf8", "34"); }, "2 DMY"},
    {"DatesRegion35", [] { return Dates("en_US.utf8", "35"); }, "1 MDY"},
    {"DatesNoRegion", [] { return Dates("en_US.utf8", ""); }, "1 MDY"},
    {"DatesNoLanguage", [] { return Dates("", "16"); }, "5 YMD"},
    {"RegionUnknown", [] { return std::to_string(CMenuTimeUtil::GetRegionKind()); }, "-1"},
    {"LocaleFirst", [] { return Locale(0); }, "ko_KR.utf8"},
    {"LocaleWithModifier", [] { return Locale(58); }, "uz_UZ.utf8@cyrillic"},
    {"LocaleLast", [] { return Locale(87); }, "tl_PH.utf8"},
    {"LocaleOfNoLanguage", [] { return Locale(88); }, "UNKNOWN"},
    {"LocaleBelowAll", [] { return Locale(-1); }, "UNKNOWN"},
};
INSTANTIATE_TEST_SUITE_P(Of, Formatting, testing::ValuesIn(kCases),
                         [](const auto& each) { return std::string(each.param.name); });

TEST(Locale, GigabytesLeaveTheNumericLocaleAtC) {
  ASSERT_STREQ(std::setlocale(LC_NUMERIC, "C.UTF-8"), "C.UTF-8");
  CUtils::m_ConvertToGB(1);
  EXPECT_STREQ(std::setlocale(LC_NUMERIC, nullptr), "C");
}

TEST(Languages, AreEightyEightWithLocalesOfTheirOwn) {
  EXPECT_EQ(languageInfoMap.size(), 88u);
  EXPECT_EQ(languageInfoMap.begin()->first, 0);
  EXPECT_EQ(languageInfoMap.rbegin()->first, 87);
  std::set<std::string> locales, names;
  for (const auto& [key, language] : languageInfoMap) {
    EXPECT_THAT(language.second, testing::MatchesRegex("[a-z]{2,3}_[A-Z]{2}\\.utf8(@cyrillic)?"));
    names.insert(language.first);
    locales.insert(language.second);
  }
  EXPECT_EQ(locales.size(), 88u);
  EXPECT_EQ(names.size(), 84u) << "English, French, Spanish and Portuguese have two variants each";
}

TEST(Languages, TheCurrentOneIsTheMenusOrNone) {
  char* text = nullptr;
  EXPECT_EQ(CMenuTimeUtil::GetCurrentLanguage(&text), -1);
  EXPECT_EQ(text, nullptr);
  vconf_set_str("db/menu_widget/language", "de_DE.utf8");
  EXPECT_EQ(CMenuTimeUtil::GetCurrentLanguage(&text), 0);
  EXPECT_STREQ(CText(text).get(), "de_DE.utf8");
  CMenuTimeUtil::GetLanguageLocale(nullptr, 0);
}

}  // namespace
