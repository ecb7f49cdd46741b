#include "CMainView.h"

#include <clocale>
#include <cstring>
#include <utility>

#include "CLoadingScreen.h"
#include "SettingsKeys.h"
#include "VexiloLog.h"
#include "app_framework.h"
#include "c_handle.h"
#include "flux_resources.h"
#include "set_paths.h"

namespace QUVA {

namespace {

constexpr char kOrientationKey[] = "db/menu/onscreendisplay/display_orientation/onscreen_menu_orientation";
constexpr char kTitle[] = "Vexilo";
constexpr double kPortraitZoom = 0.5625;  // the landscape page as wide as the screen is when it hangs upright
constexpr int kPortraitDegrees = 270;

// Whether the set's menus stand upright: values 1 and 3.
bool IsMenuUpright() {
  int orientation = 0;
  return vconf_get_int(kOrientationKey, &orientation) == 0 && (orientation & ~2) == 1;
}

// Keys of a keyboard that mean Back as well, and the remote's own.
bool IsBack(const char* key) {
  for (const char* back : {"XF86Back", "Escape", "BackSpace"})
    if (std::strcmp(key, back) == 0) return true;
  return false;
}

// While the loading screen shows, nothing is on the stack, and going back means to leave.
void GoBack() {
  CUtils& utils = CUtils::Instance();
  const bool leaves = utils.m_GetReturnStackSize() == 0;
  utils.m_ExecuteReturn();
  if (leaves) utils.m_Leave();
}

void Turn() {
  CUtils& utils = CUtils::Instance();
  const bool portrait = utils.m_GetPortraitSignage();
  if (utils.m_pGetFluxBg())
    elm_flux_bg_transform(utils.m_pGetFluxBg(), portrait ? kPortraitZoom : 1.0, portrait ? kPortraitDegrees : 0);
}

}  // namespace

CMainView& CMainView::Instance() {
  static auto* instance = new CMainView;
  return *instance;
}

bool CMainView::initUI(char* launchFrom) {
  m_launchFrom = launchFrom;
  return m_OpenWindow(kTitle, [this] {
    CLoadingScreen::Instance()->m_StartLoading(CUtils::Instance().m_pGetRootLayout(), m_launchFrom);
  });
}

bool CMainView::m_OpenWindow(const char* title, std::function<void()> first) {
  VEXILO_LOGI("Create root layout");
  m_first = std::move(first);
  if (CUtils::m_GetText(kProductTitle) == kProductTitle)
    VEXILO_LOGE("No texts: no catalogue %s.mo in %s can be read. Message ids are shown instead.", kApplicationId,
                set_paths::kLocaleDir);
  CUtils& utils = CUtils::Instance();
  Evas_Object* const window = elm_win_util_standard_add(kApplicationId, title);
  if (!window) {
    VEXILO_LOGE("No window: there is no display that can be opened. Vexilo needs a screen (X11 or Wayland).");
    return false;
  }
  elm_flux_init(window);
  elm_flux_rotation_handling_set(window, false);
  m_FollowRotation();
  elm_flux_background_grid_hide(window);
  ecore_event_handler_add(ECORE_EVENT_KEY_DOWN, m_WindowKeyPress, this);
  utils.m_SetAppWindow(window);
  utils.m_SetHighContrast();
  utils.m_SetEnlarge();
  m_setBGImage();
  elm_config_mirrored_set(ua_UI_orientation_get() == 1);
  m_OnResize(this, nullptr, window, nullptr);
  evas_object_event_callback_add(window, EVAS_CALLBACK_RESIZE, m_OnResize, this);
  utils.m_pResetRootLayout();
  evas_object_show(window);
  ecore_idler_add(ApplyRotation, this);
  m_FollowSettings();
  return true;
}

void CMainView::m_setBGImage() {
  CUtils& utils = CUtils::Instance();
  Evas_Object* const background = elm_flux_bg_add(utils.m_pGetAppWindow());
  utils.m_SetFluxBg(background);
}

// ---- the window

void CMainView::m_OnResize(void*, Evas*, Evas_Object* window, void*) {
  int width = 0;
  int height = 0;
  evas_object_geometry_get(window, nullptr, nullptr, &width, &height);
  CUtils::Instance().m_SetScreenWidth(width);
  CUtils::Instance().m_SetScreenHeight(height);
  CUtils::Instance().m_FitDimBackground();
}

Eina_Bool CMainView::m_WindowKeyPress(void*, int, void* event) {
  const auto* const key = static_cast<const Ecore_Event_Key*>(event);
  if (!key || !key->keyname || !IsBack(key->keyname)) return ECORE_CALLBACK_PASS_ON;
  if (CUtils::Instance().m_GetKeyBlock())
    VEXILO_LOGI("Key blocked..");
  else if (!elm_flux_key_is_repeated())
    GoBack();
  return ECORE_CALLBACK_PASS_ON;
}

// ---- rotation

void CMainView::m_FollowRotation() {
  if (!CUtils::Instance().m_IsSignage()) return;
  CUtils::Instance().m_SetPortraitSignage(IsMenuUpright());
  if (vconf_notify_key_changed(kOrientationKey, m_RotationCallback, this) != 0)
    VEXILO_LOGE("Failed to register rotation callback");
}

void CMainView::m_RotationCallback(keynode_t*, void*) {
  CUtils::Instance().m_SetPortraitSignage(IsMenuUpright());
  Turn();
}

Eina_Bool ApplyRotation(void* data) {
  CUtils& utils = CUtils::Instance();
  if (utils.m_GetPortraitSignage()) {
    if (utils.m_pGetRootLayout()) evas_object_show(utils.m_pGetRootLayout());
    Turn();
  }
  static_cast<CMainView*>(data)->m_StartFirst();
  return ECORE_CALLBACK_CANCEL;
}

// ---- accessibility and language

void CMainView::m_FollowSettings() {
  ecore_event_handler_add(FLUX_EVENT_HIGH_CONTRAST_CHANGED, m_HighContrastCallback, this);
  ecore_event_handler_add(FLUX_EVENT_ENLARGE_CHANGED, m_EnlargeCallback, this);
  ecore_event_handler_add(FLUX_EVENT_SCREEN_READER_CHANGED, m_ScreenReaderCallback, this);
  if (vconf_notify_key_changed(kMenuLanguageKey, m_MenuLanguageCallback, this) != 0)
    VEXILO_LOGE("Failed to register the language callback");
}

Eina_Bool CMainView::m_HighContrastCallback(void*, int, void*) {
  VEXILO_LOGI("HighContrast vconf change callback triggered..");
  CUtils::Instance().m_SetHighContrast();
  CUtils::Instance().HighContrastChangeCB();
  return ECORE_CALLBACK_PASS_ON;
}

Eina_Bool CMainView::m_EnlargeCallback(void*, int, void*) {
  VEXILO_LOGI("enlarge change callback triggered ");
  CUtils::Instance().m_SetEnlarge();
  CUtils::Instance().EnlargeChangeCB();
  return ECORE_CALLBACK_PASS_ON;
}

Eina_Bool CMainView::m_ScreenReaderCallback(void*, int, void*) {
  CUtils::Instance().ScreenReaderChangeCB();
  return ECORE_CALLBACK_PASS_ON;
}

void CMainView::m_MenuLanguageCallback(keynode_t*, void*) {
  VEXILO_LOGI("Language change callback triggered..");
  const CText language(vconf_get_str(kMenuLanguageKey));
  if (!language) return;
  std::setlocale(LC_ALL, language.get());
  CUtils::Instance().LanguageChangeCB();
  ui_app_exit();
}

}  // namespace QUVA
