#include "CUtils.h"

#include <boost/signals2/signal.hpp>
#include <utility>

#include "CGetData.h"
#include "CScreenJob.h"
#include "QUVA_DiagManager.h"
#include "SettingsKeys.h"
#include "VexiloLog.h"
#include "flux_resources.h"
#include "set_names.h"
#include "vconf.h"

namespace QUVA {

namespace {

constexpr char kLoadingText[] = "COM_TV_SID_LOADING";

constexpr double kSayLoadingPeriod = 5.0;  // seconds
constexpr double kLoadingSize = 15;        // units, as all sizes here
constexpr double kHeaderHeight = 15;
constexpr double kTwoLineHeaderHeight = 25;
constexpr double kTitleWidth = 171;
constexpr double kTitleHeight = 15;
constexpr int kDimAlpha = 0xB2;

bool IsTwoLineTitle(const char* titleSid) {
  return std::string(titleSid) == kStorageTitle;
}

}  // namespace

struct CUtils::Signals {
  using Signal = boost::signals2::signal<void()>;

  Signal enlargeChanged;
  Signal highContrastChanged;
  Signal languageChanged;
  Signal screenReaderChanged;
};

CUtils::CUtils() : m_signals(std::make_unique<Signals>()) {}

CUtils& CUtils::Instance() {
  static auto* instance = new CUtils;
  return *instance;
}

// ---- the window

Evas_Object* CUtils::m_pResetRootLayout() {
  m_rootLayout.m_Delete();
  if (!m_fluxBg) return nullptr;
  Evas_Object* const root = elm_flux_layout_add(m_fluxBg, FLUX_LAYOUT_STACK, FLUX_ALIGN_CENTER);
  elm_flux_layout_root_set(root, true);
  elm_flux_expand_set(root, true);
  elm_flux_bg_content_set(m_fluxBg, root);
  elm_flux_layout_render(root);
  evas_object_show(root);
  m_SetRootLayout(root);
  return root;
}

double CUtils::m_GetFluxWidthOfScreen() {
  return elm_flux_px_to_unit(m_screenWidth);
}

void CUtils::m_SetExitFlag(int code) {
  QUVA_DiagManager::GetInstance()->SetExitFlag(code);
}

// ---- the Back key

void CUtils::m_RegisterForReturnStack(const _returnCBStruct& entry, bool replaceTop) {
  if (replaceTop) m_DropFromReturnStack();
  m_returnStack.push_back(entry);
}

void CUtils::m_DropFromReturnStack() {
  if (!m_returnStack.empty()) m_returnStack.pop_back();
}

void CUtils::m_ExecuteReturn() {
  if (m_returnStack.size() == 1) return m_Leave();
  VEXILO_LOGI("Executing Return sequence..");
  if (m_returnStack.empty()) {
    VEXILO_LOGI("Return Stack Empty..");
    return;
  }
  const _returnCBStruct top = m_returnStack.back();
  m_returnStack.pop_back();
  top.m_hide();
  if (m_returnStack.empty()) {
    VEXILO_LOGI("Return Stack Empty..");
    return;
  }
  // A copy: what it calls may change the stack.
  const auto showAfterReturn = m_returnStack.back().m_showAfterReturn;
  showAfterReturn();
}

void CUtils::m_Leave() {
  if (m_leave) return m_leave();
  int launchPoint = 0;
  // The line says the opposite of what happened; whoever reads the log knows it so.
  if (vconf_get_int(kLaunchPointKey, &launchPoint) == 0) VEXILO_LOGE("Failed to read vconf %s", kLaunchPointKey);
  if (launchPoint == LAUNCH_POINT_MENU) VEXILO_LOGI("Launching Menu after self-diagnosis gets enabled");
  if (launchPoint == LAUNCH_POINT_HOTEL_MENU) {
    VEXILO_LOGI("launch Hotel Menu");
    CGetData::GetInstance()->launch_hotel_menu();
  }
  elm_exit();
}

// ---- dimming

void CUtils::m_ShowDimBackground() {
  Evas* const canvas = m_appWindow ? evas_object_evas_get(m_appWindow) : nullptr;
  Evas_Object* const layer = canvas ? evas_object_rectangle_add(canvas) : nullptr;
  if (!layer) return;
  // Above the popups that are there.
  evas_object_layer_set(layer, FLUX_LAYER_POPUP);
  evas_object_color_set(layer, 0, 0, 0, kDimAlpha);
  evas_object_resize(layer, m_screenWidth, m_screenHeight);
  evas_object_show(layer);
  VEXILO_LOGI("dim layer of %d x %d, %p", m_screenWidth, m_screenHeight, static_cast<void*>(layer));
  m_dimLayers.push_back(layer);
}

void CUtils::m_FitDimBackground() {
  for (Evas_Object* const layer : m_dimLayers) evas_object_resize(layer, m_screenWidth, m_screenHeight);
}

void CUtils::m_HideDimBackground() {
  if (m_dimLayers.empty()) return;
  Evas_Object* const layer = m_dimLayers.back();
  m_dimLayers.pop_back();
  VEXILO_LOGI("hide bg called %p", static_cast<void*>(layer));
  evas_object_hide(layer);
  evas_object_del(layer);
}

// ---- the loading popup

void CUtils::m_CreateLoadingPopup(Evas_Object* parent) {
  VEXILO_LOGI("create loading.....");
  m_SpeakOfLoading();
  m_SetKeyBlock(true);
  m_loadingLayout.m_Delete();
  m_loadingLayout = elm_flux_layout_add(parent, FLUX_LAYOUT_STACK, FLUX_ALIGN_CENTER);
  elm_flux_expand_set(m_loadingLayout, true);
  elm_flux_layout_pack(parent, m_loadingLayout);
  m_loadingProgress = elm_flux_progress_add(m_loadingLayout, FLUX_PROGRESS_CIRCLE);
  elm_flux_size_set(m_loadingProgress, kLoadingSize, kLoadingSize);
  elm_flux_layout_pack(m_loadingLayout, m_loadingProgress);
  elm_flux_progress_pulse(m_loadingProgress, true);
}

void CUtils::m_SpeakOfLoading() {
  if (!elm_config_access_get() || m_loadingTimer) return;
  m_SayVoiceGuideText(m_GetText(kLoadingText));
  m_loadingTimer = ecore_timer_add(kSayLoadingPeriod, m_SayLoading, this);
}

Eina_Bool CUtils::m_SayLoading(void* self) {
  if (!elm_config_access_get()) {
    static_cast<CUtils*>(self)->m_loadingTimer = nullptr;
    return ECORE_CALLBACK_CANCEL;
  }
  VEXILO_LOGI("say loading");
  m_SayVoiceGuideText(m_GetText(kLoadingText));
  return ECORE_CALLBACK_RENEW;
}

void CUtils::m_StopLoadingPopup() {
  VEXILO_LOGI("stop loading ");
  m_DeleteLoadingPopup();
  m_SetKeyBlock(false);
}

void CUtils::m_DeleteLoadingPopup() {
  m_loadingLayout.m_Delete();
  if (m_loadingTimer) ecore_timer_del(m_loadingTimer);
  m_loadingTimer = nullptr;
}

// ---- titles, frames, buttons

Evas_Object* CUtils::m_pTitleHeader(Evas_Object* parent, TitleHeader& out, const char* titleSid) {
  VEXILO_LOGI("Inside Loading Title");
  const bool twoLines = IsTwoLineTitle(titleSid);
  out.header = elm_flux_header_add(parent, twoLines ? FLUX_HEADER_TWO_LINES : FLUX_HEADER_ONE_LINE);
  elm_flux_size_set(out.header, 0, twoLines ? kTwoLineHeaderHeight : kHeaderHeight);
  elm_flux_expand_set(out.header, true);
  elm_flux_header_plate_set(out.header, true);

  out.row = elm_flux_layout_add(out.header, FLUX_LAYOUT_VERTICAL, FLUX_ALIGN_LEFT);
  elm_flux_layout_padding_set(out.row, kPageMargin, 0, 0, 0);
  elm_object_content_set(out.header, out.row);

  out.text = elm_flux_text_add(out.row);
  elm_flux_size_set(out.text, kTitleWidth, kTitleHeight);
  elm_flux_text_font_set(out.text, FLUX_FONT_600);
  elm_flux_text_color_set(out.text, kTextColor);
  elm_flux_text_size_set(out.text, FLUX_TEXT_TITLE);
  elm_flux_text_align_set(out.text, FLUX_ALIGN_LEFT);
  elm_object_text_set(out.text, m_GetText(titleSid).c_str());
  elm_flux_layout_pack(out.row, out.text);

  elm_flux_layout_pack(parent, out.header);
  return out.header;
}

void CUtils::m_SetHeaderImage(Evas_Object* imageBox, Evas_Object* textBox, const char* titleSid) {
  const char* const image = IsTwoLineTitle(titleSid) ? "i_img_header2line_default.9" : "i_img_header1line_default.9";
  elm_flux_image_file_set(imageBox, getCommonResourcePath(image));
  elm_object_text_set(textBox, m_GetText(titleSid).c_str());
}

void CUtils::m_CreateBottomFrame(Evas_Object*& out, Evas_Object* parent, double width, double height) {
  out = elm_flux_plate_add(parent, FLUX_PLATE_PANEL, true, FLUX_PLATE_NORMAL);
  elm_flux_size_set(out, width, height);
  elm_flux_expand_set(out, true);
  elm_flux_layout_pack(parent, out);
}

void CUtils::m_CreateButton(Evas_Object*& out, Evas_Object* parent, const std::string& text, double width,
                            double height) {
  out = elm_flux_button_add(parent, FLUX_BUTTON_PLAIN);
  elm_object_text_set(out, text.c_str());
  elm_flux_size_set(out, width, height);
  elm_flux_layout_pack(parent, out);
}

Eina_Bool CUtils::OnIdle(void* object) {
  elm_object_focus_set(static_cast<Evas_Object*>(object), true);
  return ECORE_CALLBACK_CANCEL;
}

void CUtils::m_CleanObjects() {
  m_DeleteLoadingPopup();
  m_HideDimBackground();
}

// ---- accessibility

void CUtils::m_SetHighContrast() {
  int value = 0;
  vconf_get_int(set_names::kHighContrastKey, &value);
  m_highContrast = value;
}

void CUtils::m_SetEnlarge() {
  int value = 0;
  vconf_get_int(set_names::kEnlargeKey, &value);
  m_enlarge = value;
  elm_config_scale_set(value != 0 ? FLUX_SCALE_ENLARGED : FLUX_SCALE_NORMAL);
}

void CUtils::ConnectHighContrastChangeCB(const std::function<void()>& slot) {
  m_signals->highContrastChanged.connect(slot);
}

void CUtils::ConnectEnlargeChangeCB(const std::function<void()>& slot) {
  m_signals->enlargeChanged.connect(slot);
}

void CUtils::ConnectLangChangeCB(const std::function<void()>& slot) {
  m_signals->languageChanged.connect(slot);
}

void CUtils::ConnectScreenReaderChangeCB(const std::function<void()>& slot) {
  m_signals->screenReaderChanged.connect(slot);
}

void CUtils::HighContrastChangeCB() {
  VEXILO_LOGI("Total count of highcontrast callback slots: %zu", m_signals->highContrastChanged.num_slots());
  m_signals->highContrastChanged();
}

void CUtils::EnlargeChangeCB() {
  VEXILO_LOGI("Total count of Enlarge callback slots: %zu", m_signals->enlargeChanged.num_slots());
  m_signals->enlargeChanged();
}

void CUtils::LanguageChangeCB() {
  VEXILO_LOGI("Total count of language callback slots: %zu", m_signals->languageChanged.num_slots());
  m_signals->languageChanged();
}

void CUtils::ScreenReaderChangeCB() {
  if (m_loadingLayout) m_SpeakOfLoading();
  m_signals->screenReaderChanged();
}

void CUtils::m_SayVoiceGuideText(const std::string& text) {
  PostToMainLoop([text] { elm_flux_access_say(text.c_str()); });
}

}  // namespace QUVA
