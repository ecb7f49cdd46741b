// How the storage manager shows the use of the storage: the bar and its legend.

#include "CManageStorage.h"
#include "VexiloLog.h"
#include "flux_resources.h"
#include "system_info.h"

namespace QUVA {

namespace {

constexpr int64_t kBarUnits = 70;  // units, as all sizes here
constexpr double kBarHeight = 9;
constexpr double kNominalBarHeight = 5;
constexpr double kLegendTop = 2;
constexpr double kLegendGap = 1;
constexpr double kItemHeight = 6;
constexpr double kMarkWidth = 5;
constexpr double kMarkHeight = 3;
constexpr double kMarkGap = 2;

constexpr char kUnit[] = "%.0f%%";

const char* SystemColor() {
  return CUtils::Instance().m_GetHighContrast() ? kTextColor : kFaintTextColor;
}

double Grown(int enlarge) {
  return enlarge != 0 ? FLUX_SCALE_ENLARGED / FLUX_SCALE_NORMAL : 1.0;
}

}  // namespace

/// What a part of the bar stands for.
struct CManageStorage::LegendItem {
  const char* sid;
  const char* key;    ///< its name in the bar
  const char* color;  ///< null for the part that is left
  CWidget& value;     ///< the text box of its size, where the bar does not show it
};

void CManageStorage::m_SetProgressBar(int enlarge) {
  VEXILO_LOGI("value of Enlarge is %d", enlarge);
  m_localSet = GetSystemInfo(SYSTEM_INFO_KEY_LOCAL_SET);
  VEXILO_LOGI("Local set name is %s", m_localSet.c_str());
  if (!m_barArea) return;
  elm_flux_layout_clear(m_barArea);
  if (m_IsNominal()) {
    m_BuildNominalBar();
  } else {
    m_bar = elm_flux_progress_add(m_barArea, FLUX_PROGRESS_TWO_PART);
    elm_flux_size_set(m_bar, kBarUnits, kBarHeight * Grown(enlarge));
    elm_flux_layout_pack(m_barArea, m_bar);
  }
  elm_flux_progress_unit_set(m_bar, kUnit);
  elm_flux_progress_value_set(m_bar, 1.0);
  m_BuildLegend();
}

// The system's part and the user's, as wide as they are large.
void CManageStorage::m_BuildNominalBar() {
  const CGetData* const data = CGetData::GetInstance();
  const int64_t systemUnits = SystemPartOfBar(kBarUnits, data->m_GetTotalOptSize(), data->m_GetSystemUsedSize());
  Evas_Object* const row = AddLayout(m_barArea, FLUX_LAYOUT_HORIZONTAL, FLUX_ALIGN_LEFT, kBarUnits, kNominalBarHeight);
  if (systemUnits > 0) {
    Evas_Object* const system = elm_flux_progress_add(row, FLUX_PROGRESS_BAR);
    elm_flux_progress_color_set(system, SystemColor());
    elm_flux_progress_value_set(system, 1.0);
    elm_flux_size_set(system, static_cast<double>(systemUnits), kNominalBarHeight);
    elm_flux_layout_pack(row, system);
  }
  m_bar = elm_flux_progress_add(row, FLUX_PROGRESS_BAR);
  elm_flux_progress_color_set(m_bar, kAccentColor);
  elm_flux_size_set(m_bar, static_cast<double>(kBarUnits - systemUnits), kNominalBarHeight);
  elm_flux_layout_pack(row, m_bar);
}

void CManageStorage::m_BuildLegend() {
  const bool isNominal = m_IsNominal();
  Evas_Object* const legend =
      AddLayout(m_barArea, isNominal ? FLUX_LAYOUT_VERTICAL : FLUX_LAYOUT_HORIZONTAL, FLUX_ALIGN_LEFT, kBarUnits, 0);
  elm_flux_layout_padding_set(legend, 0, kLegendTop, 0, 0);
  elm_flux_layout_gap_set(legend, kLegendGap);
  for (const LegendItem& item : {LegendItem{"COM_SID_SYSTEM", "System", SystemColor(), m_systemText},
                                 LegendItem{"COM_SID_USED_KR_ING", "Used", kAccentColor, m_usedText},
                                 LegendItem{"TV_SID_AVAILABLE_EMPTY", "Available", nullptr, m_availableText}}) {
    if (&item.value == &m_systemText && !isNominal) continue;
    Evas_Object* const row = AddLayout(legend, FLUX_LAYOUT_HORIZONTAL, FLUX_ALIGN_LEFT, 0, 0);
    // The last one stands below its end of the bar.
    elm_flux_expand_set(row, isNominal || &item.value != &m_availableText);
    elm_flux_min_size_set(row, 0, kItemHeight);
    elm_flux_layout_gap_set(row, kMarkGap);
    // A piece of the bar itself.
    Evas_Object* const mark = elm_flux_progress_add(row, FLUX_PROGRESS_BAR);
    evas_object_name_set(mark, item.key);
    elm_flux_size_set(mark, kMarkWidth, kMarkHeight);
    if (item.color) elm_flux_progress_color_set(mark, item.color);
    elm_flux_progress_value_set(mark, item.color ? 1.0 : 0.0);
    elm_flux_layout_pack(row, mark);
    Evas_Object* const label = AddText(row, CUtils::m_GetText(item.sid), FLUX_FONT_400, kFaintTextColor,
                                       FLUX_TEXT_DETAIL, FLUX_ALIGN_LEFT, 0, 0);
    elm_flux_expand_set(label, isNominal);
    if (!isNominal) continue;
    item.value = AddText(row, "", FLUX_FONT_600, kTextColor, FLUX_TEXT_DETAIL, FLUX_ALIGN_RIGHT, 0, 0);
  }
}

void CManageStorage::m_SetUsedAvailableValues() {
  const CGetData* const data = CGetData::GetInstance();
  m_summary =
      MakeStorageSummary(data->m_GetTotalOptSize(), data->m_GetUsedSize(), data->m_GetSystemUsedSize(), m_IsNominal());
  if (!m_bar) return;
  if (m_IsNominal()) {
    elm_object_text_set(m_availableText, m_summary.available.c_str());
    elm_object_text_set(m_systemText, m_summary.system.c_str());
    elm_object_text_set(m_usedText, m_summary.used.c_str());
  } else {
    const bool mirrored = ua_UI_orientation_get() == 1;
    elm_flux_progress_inverted_set(m_bar, mirrored);
    elm_object_part_text_set(m_bar, mirrored ? "text4" : "text3", m_summary.used.c_str());
    elm_object_part_text_set(m_bar, mirrored ? "text3" : "text4", m_summary.available.c_str());
  }
  elm_flux_progress_value_set(m_bar, m_summary.usedFraction);
}

}  // namespace QUVA
