#include "CMenuTimeUtil.h"

#include <cstdio>
#include <cstring>
#include <iterator>

#include "SettingsKeys.h"
#include "VexiloLog.h"
#include "c_handle.h"
#include "vconf.h"

namespace QUVA {

// clang-format off
const std::map<system_info_language_e, std::pair<std::string, std::string>> languageInfoMap = {
    {0, {"SID_SETUP_LANGUAGE_KOREAN", "ko_KR.utf8"}},
    {1, {"SID_SETUP_LANGUAGE_ENGLISH", "en_US.utf8"}},
    {2, {"SID_SETUP_LANGUAGE_SPANISH", "es_MX.utf8"}},
    {3, {"SID_SETUP_LANGUAGE_FRENCH", "fr_CA.utf8"}},
    {4, {"SID_SETUP_LANGUAGE_PORTUGUESE", "pt_BR.utf8"}},
    {5, {"SID_SETUP_LANGUAGE_BULGARIAN", "bg_BG.utf8"}},
    {6, {"SID_SETUP_LANGUAGE_CROATIAN", "hr_HR.utf8"}},
    {7, {"SID_SETUP_LANGUAGE_CZECH", "cs_CZ.utf8"}},
    {8, {"SID_SETUP_LANGUAGE_DANISH", "da_DK.utf8"}},
    {9, {"SID_SETUP_LANGUAGE_DUTCH", "nl_NL.utf8"}},
    {10, {"SID_SETUP_LANGUAGE_FINNISH", "fi_FI.utf8"}},
    {11, {"SID_SETUP_LANGUAGE_FRENCH", "fr_FR.utf8"}},
    {12, {"SID_SETUP_LANGUAGE_GERMAN", "de_DE.utf8"}},
    {13, {"SID_SETUP_LANGUAGE_GREEK", "el_GR.utf8"}},
    {14, {"SID_SETUP_LANGUAGE_HUNGARIAN", "hu_HU.utf8"}},
    {15, {"SID_SETUP_LANGUAGE_ITALIAN", "it_IT.utf8"}},
    {16, {"SID_SETUP_LANGUAGE_NORWEGIAN", "nn_NO.utf8"}},
    {17, {"SID_SETUP_LANGUAGE_ENGLISH", "en_GB.utf8"}},
    {18, {"SID_SETUP_LANGUAGE_POLISH", "pl_PL.utf8"}},
    {19, {"SID_SETUP_LANGUAGE_PORTUGUESE", "pt_PT.utf8"}},
    {20, {"SID_SETUP_LANGUAGE_ROMANIAN", "ro_RO.utf8"}},
    {21, {"SID_SETUP_LANGUAGE_RUSSIAN", "ru_RU.utf8"}},
    {22, {"SID_SETUP_LANGUAGE_SERBIAN", "sr_RS.utf8"}},
    {23, {"SID_SETUP_LANGUAGE_SLOVAK", "sk_SK.utf8"}},
    {24, {"SID_SETUP_LANGUAGE_SPANISH", "es_ES.utf8"}},
    {25, {"SID_SETUP_LANGUAGE_SWEDISH", "sv_SE.utf8"}},
    {26, {"SID_SETUP_LANGUAGE_TURKISH", "tr_TR.utf8"}},
    {27, {"IDS_TXT_SIMPLECHINESE", "zh_CN.utf8"}},
    {28, {"IDS_TXT_TRADITIONALCHINESE", "zh_HK.utf8"}},
    {29, {"TV_SID_SETUP_LANGUAGE_TPE", "zh_TW.utf8"}},
    {30, {"SID_SETUP_LANGUAGE_JAPANESE", "ja_JP.utf8"}},
    {31, {"COM_SID_SETUP_LANGUAGES_MAORI", "mi_NZ.utf8"}},
    {32, {"SID_SETUP_LANGUAGE_DEVANAGRI", "hi_IN.utf8"}},
    {33, {"SID_SETUP_LANGUAGE_ESTONIAN", "et_EE.utf8"}},
    {34, {"SID_SETUP_LANGUAGE_LATVIAN", "lv_LV.utf8"}},
    {35, {"SID_SETUP_LANGUAGE_LITHUANIAN", "lt_LT.utf8"}},
    {36, {"SID_SETUP_LANGUAGE_ARABIC", "ar_AE.utf8"}},
    {37, {"SID_SETUP_LANGUAGE_FARSI", "fa_IR.utf8"}},
    {38, {"SID_SETUP_LANGUAGE_THA", "th_TH.utf8"}},
    {39, {"SID_SETUP_LANGUAGE_HEB", "he_IL.utf8"}},
    {40, {"SID_SETUP_LANGUAGE_INDONESIAN", "id_ID.utf8"}},
    {41, {"SID_SETUP_LANGUAGE_VIETNAMESE", "vi_VN.utf8"}},
    {42, {"SID_SETUP_LANGUAGE_URDU", "ur_PK.utf8"}},
    {43, {"SID_SETUP_LANGUAGE_AFRIKAANS", "af_ZA.utf8"}},
    {44, {"SID_SETUP_LANGUAGE_ZULU", "zu_ZA.utf8"}},
    {45, {"SID_SETUP_LANGUAGE_XHOSA", "xh_ZA.utf8"}},
    {46, {"SID_SETUP_LANGUAGE_YORUBA", "yo_NG.utf8"}},
    {47, {"SID_SETUP_LANGUAGE_IGBO", "ig_NG.utf8"}},
    {48, {"SID_SETUP_LANGUAGE_HAUSA", "ha_NG.utf8"}},
    {49, {"SID_SETUP_LANGUAGE_SWAHILI", "sw_KE.utf8"}},
    {50, {"SID_SETUP_LANGUAGE_AMHARIC", "am_ET.utf8"}},
    {51, {"SID_SETUP_LANGUAGE_TAMIL", "ta_IN.utf8"}},
    {52, {"SID_SETUP_LANGUAGE_SLOVENE", "sl_SI.utf8"}},
    {53, {"SID_SETUP_LANGUAGE_ALBANIAN", "sq_AL.utf8"}},
    {54, {"SID_SETUP_LANGUAGE_UKRAINIAN", "uk_UA.utf8"}},
    {55, {"SID_SETUP_LANGUAGE_KAZAKH", "kk_KZ.utf8"}},
    {56, {"SID_SETUP_LANGUAGE_MACEDONIAN", "mk_MK.utf8"}},
    {57, {"SID_SETUP_LANGUAGE_MALAY", "ms_MY.utf8"}},
    {58, {"COM_SID_SETUP_LANGUAGES_UZBEK", "uz_UZ.utf8@cyrillic"}},
    {59, {"COM_SID_SETUP_LANGUAGES_AZERBAIJAN", "az_AZ.utf8"}},
    {60, {"COM_SID_SETUP_LANGUAGES_MONGOLIA", "mn_MN.utf8"}},
    {61, {"COM_SID_SETUP_LANGUAGES_BOSNIAN", "bs_BA.utf8"}},
    {62, {"COM_SID_SETUP_LANGUAGES_BENGALI", "bn_IN.utf8"}},
    {63, {"COM_SID_SETUP_LANGUAGES_TELUGU", "te_IN.utf8"}},
    {64, {"COM_SID_SETUP_LANGUAGES_MARATHI", "mr_IN.utf8"}},
    {65, {"COM_SID_SETUP_LANGUAGES_KONKANI", "kok_IN.utf8"}},
    {66, {"COM_SID_SETUP_LANGUAGES_GUJARATI", "gu_IN.utf8"}},
    {67, {"COM_SID_SETUP_LANGUAGES_KANNADA", "kn_IN.utf8"}},
    {68, {"COM_SID_SETUP_LANGUAGES_MALAYALAM", "ml_IN.utf8"}},
    {69, {"COM_SID_SETUP_LANGUAGES_ORIYA", "or_IN.utf8"}},
    {70, {"COM_SID_SETUP_LANGUAGES_PUNJABI", "pa_PK.utf8"}},
    {71, {"COM_SID_SETUP_LANGUAGES_ASSMESE", "as_IN.utf8"}},
    {72, {"SID_SETUP_LANGUAGE_SORANI", "ckb_IQ.utf8"}},
    {73, {"SID_SETUP_LANGUAGE_KURMANJI", "ku_TR.utf8"}},
    {74, {"COM_SID_SETUP_LANGUAGES_BHILODI", "bh_IN.utf8"}},
    {75, {"COM_SID_SETUP_LANGUAGES_KASHMIRI", "ks_IN.utf8"}},
    {76, {"COM_SID_SETUP_LANGUAGES_MAITHILI", "mai_IN.utf8"}},
    {77, {"COM_SID_SETUP_LANGUAGES_MANIPURI", "mni_IN.utf8"}},
    {78, {"COM_SID_SETUP_LANGUAGES_NEPALI", "ne_NP.utf8"}},
    {79, {"COM_SID_SETUP_LANGUAGES_SANTALI", "sat_IN.utf8"}},
    {80, {"COM_SID_SETUP_LANGUAGES_SANSKRIT", "sa_IN.utf8"}},
    {81, {"COM_SID_SETUP_LANGUAGES_SINDHI", "sd_IN.utf8"}},
    {82, {"COM_SID_SETUP_LANGUAGES_TULU", "tu_IN.utf8"}},
    {83, {"SID_SETUP_LANGUAGE_ARMENIAN", "hy_AM.utf8"}},
    {84, {"SID_SETUP_LANGUAGE_GEORGIAN", "ka_GE.utf8"}},
    {85, {"SID_SETUP_LANGUAGE_BURMESE", "my_MM.utf8"}},
    {86, {"SID_SETUP_LANGUAGE_KHMER", "km_KH.utf8"}},
    {87, {"SID_SETUP_LANGUAGE_TAGALOG", "tl_PH.utf8"}},
};
// clang-format on

namespace {

constexpr char kUnknownLocale[] = "UNKNOWN";

/// Languages that decide alone, whatever the region: Korean, Chinese (Hong Kong, simplified, Taiwan), Japanese.
constexpr struct {
  system_info_language_e language;
  int timeFormat;
} kLanguageFormats[] = {{0, 0}, {28, 3}, {27, 3}, {29, 3}, {30, 5}};

/// By region kind, which counts from 1.
constexpr int kRegionFormats[] = {1, 1, 4, 2, 4, 4, 2, 2, 2, 4, 2, 2, 4, 4, 4, 5, 4,
                                  4, 2, 4, 4, 2, 2, 4, 4, 4, 4, 4, 4, 2, 2, 2, 2, 2};
constexpr int kOtherRegionsFormat = 1;

}  // namespace

int CMenuTimeUtil::GetRegionKind() {
  int kind = 0;
  if (system_info_get_value_int(SYSTEM_INFO_KEY_REGION_KIND, &kind) != SYSTEM_INFO_ERROR_NONE) {
    VEXILO_LOGE("system_info_get_value_int(SYSTEM_INFO_KEY_REGION_KIND) returned error");
    return kUnknownRegion;
  }
  VEXILO_LOGD("region kind : %d", kind);
  return kind;
}

void CMenuTimeUtil::GetLanguageLocale(char* languageLocale, system_info_language_e language) {
  if (!languageLocale) {
    VEXILO_LOGE("languageLocale == NULL");
    return;
  }
  VEXILO_LOGD("langauge : %d", language);
  const auto found = languageInfoMap.find(language);
  const char* const locale = found == languageInfoMap.end() ? kUnknownLocale : found->second.second.c_str();
  std::snprintf(languageLocale, kLocaleSize, "%s", locale);
  VEXILO_LOGD("langauge : %d,languageLocale:%s", language, languageLocale);
}

int CMenuTimeUtil::GetCurrentLanguage(char** languageLocale) {
  *languageLocale = vconf_get_str(kMenuLanguageKey);
  if (!*languageLocale) {
    VEXILO_LOGE("*languageLocale==NULL");
    return -1;
  }
  VEXILO_LOGD("languageLocale = %s", *languageLocale);
  return 0;
}

int CMenuTimeUtil::GetTimeFormatType() {
  char* text = nullptr;
  GetCurrentLanguage(&text);
  const CText current(text);
  VEXILO_LOGD("pCurrentLocale[%s]", current ? current.get() : "(null)");
  for (const auto& [language, timeFormat] : kLanguageFormats) {
    char locale[kLocaleSize];
    GetLanguageLocale(locale, language);
    if (current && std::strncmp(current.get(), locale, kLocaleSize) == 0) return timeFormat;
  }
  const int region = GetRegionKind();
  VEXILO_LOGD("nRegionKind[%d]", region);
  const bool known = region >= 1 && region <= static_cast<int>(std::size(kRegionFormats));
  return known ? kRegionFormats[region - 1] : kOtherRegionsFormat;
}

}  // namespace QUVA
