#include "CScreen.h"

#include <utility>

#include "VexiloLog.h"

namespace QUVA {

namespace {

constexpr double kMinWidth = 40;  // units
constexpr double kMinHeight = 108;
constexpr double kSubtitleWidth = 218;
constexpr double kSubtitleHeight = 6;

}  // namespace

// ---- CScreen

CScreen::CScreen(std::function<void()> announce) {
  CUtils::Instance().ConnectScreenReaderChangeCB([this, announce = std::move(announce)] {
    // A popup above it speaks for itself.
    if (m_IsShown() && !CUtils::Instance().m_IsDimmed() && elm_config_access_get()) announce();
  });
}

bool CScreen::m_Build(const char* titleSid) {
  m_Clean();
  CUtils& utils = CUtils::Instance();
  Evas_Object* root = utils.m_pGetRootLayout();
  if (!root) {
    VEXILO_LOGI("RootLayout is being set again...");
    root = utils.m_pResetRootLayout();
  }
  if (!root) return false;
  // Across the screen and down it, whatever its shape becomes; the body takes what the header leaves.
  m_layout = AddLayout(root, FLUX_LAYOUT_VERTICAL, FLUX_ALIGN_TOP, 0, 0);
  elm_flux_expand_set(m_layout, true);
  elm_flux_min_size_set(m_layout, kMinWidth, kMinHeight);
  utils.m_pTitleHeader(m_layout, m_header, titleSid);
  m_body = AddLayout(m_layout, FLUX_LAYOUT_VERTICAL, FLUX_ALIGN_CENTER, 0, 0);
  elm_flux_expand_set(m_body, true);
  return true;
}

void CScreen::m_SetSubtitle(const std::string& text) {
  if (!m_layout) return;
  if (!m_subtitle)
    m_subtitle = AddText(m_header.row, "", FLUX_FONT_400, kFaintTextColor, FLUX_TEXT_DETAIL, FLUX_ALIGN_LEFT,
                         kSubtitleWidth, kSubtitleHeight);
  elm_object_text_set(m_subtitle, text.c_str());
}

void CScreen::m_Show() {
  if (m_layout) evas_object_show(m_layout);
}

void CScreen::m_Hide() {
  m_DismissToast();
  if (!m_layout) return;
  elm_flux_access_say("");  // what it still says is of no use on the next one
  evas_object_hide(m_layout);
}

void CScreen::m_Clean() {
  m_toast.m_Delete();
  if (m_layout) elm_flux_access_say("");
  m_layout.m_Delete();
}

// ---- the toast

void CScreen::m_ShowToast(const std::string& text, const _returnCBStruct& entry, std::function<void()> onTimeout,
                          double seconds) {
  m_DismissToast();
  CUtils& utils = CUtils::Instance();
  m_toast = elm_flux_toast_add(utils.m_pGetAppWindow(), text, seconds);
  if (!m_toast) return;
  utils.m_RegisterForReturnStack(entry, false);
  OnEvent(m_toast, "timeout", [onTimeout = std::move(onTimeout)](void*) { onTimeout(); });
}

void CScreen::m_DismissToast() {
  if (!m_toast) return;
  CUtils::Instance().m_DropFromReturnStack();
  m_toast.m_Delete();
}

// ---- widgets

Evas_Object* AddText(Evas_Object* parent, const std::string& text, const char* font, const char* color,
                     FluxTextSize size, FluxAlign align, double width, double height) {
  Evas_Object* const widget = elm_flux_text_add(parent);
  elm_flux_text_font_set(widget, font);
  elm_flux_text_color_set(widget, color);
  elm_flux_text_size_set(widget, size);
  elm_flux_text_align_set(widget, align);
  elm_flux_size_set(widget, width, height);
  elm_object_text_set(widget, text.c_str());
  elm_flux_layout_pack(parent, widget);
  return widget;
}

Evas_Object* AddImage(Evas_Object* parent, const std::string& file, double width, double height) {
  Evas_Object* const widget = elm_flux_image_add(parent);
  elm_flux_size_set(widget, width, height);
  elm_flux_image_file_set(widget, file);
  elm_flux_layout_pack(parent, widget);
  return widget;
}

Evas_Object* AddLayout(Evas_Object* parent, FluxLayoutType type, FluxAlign align, double width, double height) {
  Evas_Object* const widget = elm_flux_layout_add(parent, type, align);
  elm_flux_size_set(widget, width, height);
  elm_flux_layout_pack(parent, widget);
  return widget;
}

double Enlargement() {
  return CUtils::Instance().m_GetEnlarge() != 0 ? FLUX_SCALE_ENLARGED / FLUX_SCALE_NORMAL : 1.0;
}

}  // namespace QUVA
