// The widget set as a whole: what it follows while a window lives.

#include <cstdio>
#include <cstdlib>
#include <string>
#include <utility>

#include "appfw/ui_app.h"
#include "dlog.h"
#include "flux/flux_core.h"
#include "flux/flux_keys.h"
#include "flux/flux_surface.h"
#include "flux_resources.h"
#include "set_names.h"
#include "vconf.h"

int FLUX_EVENT_HIGH_CONTRAST_CHANGED = 0;
int FLUX_EVENT_ENLARGE_CHANGED = 0;
int FLUX_EVENT_SCREEN_READER_CHANGED = 0;

namespace flux {

namespace {

/// Of pictures that are not shown now, in KiB: all icons fit, the frames of an animation do not, which are shown once.
constexpr int kImageCacheSize = 4096;

Evas_Object* g_window = nullptr;

bool IsOn(const char* key) {
  int value = 0;
  return vconf_get_int(key, &value) == 0 && value != 0;
}

void OnHighContrast(keynode_t*, void*) {
  SetHighContrast(IsOn(set_names::kHighContrastKey));
  ecore_event_add(FLUX_EVENT_HIGH_CONTRAST_CHANGED, nullptr, nullptr, nullptr);
}

void OnEnlarge(keynode_t*, void*) {
  ecore_event_add(FLUX_EVENT_ENLARGE_CHANGED, nullptr, nullptr, nullptr);
}

/// What says what the viewer is at: the popup that the focus is in, else what has it. Null for nothing.
Widget* SpeakerOf(Evas_Object* focused) {
  for (const Evas_Object* at = focused; at; at = elm_object_parent_widget_get(at))
    if (Widget* const widget = Widget::Of(at); widget && widget->SpeaksForContent()) return widget;
  return Widget::Of(focused);
}

void OnScreenReader(keynode_t*, void*) {
  const bool on = IsOn(set_names::kScreenReaderKey);
  if (!on) elm_flux_access_say("");
  elm_config_access_set(on);
  ecore_event_add(FLUX_EVENT_SCREEN_READER_CHANGED, nullptr, nullptr, nullptr);
  if (Widget* const speaker = SpeakerOf(elm_object_focused_object_get(g_window)); on && speaker) speaker->SpeakSoon();
}

struct FollowedKey {
  const char* key;
  vconf_callback_fn changed;
};
constexpr FollowedKey kFollowedKeys[] = {{set_names::kHighContrastKey, OnHighContrast},
                                         {set_names::kEnlargeKey, OnEnlarge},
                                         {set_names::kScreenReaderKey, OnScreenReader}};

void TakeWindowSize() {
  int width = 0, height = 0;
  evas_object_geometry_get(g_window, nullptr, nullptr, &width, &height);
  if (IsTurnedUpright(g_window)) std::swap(width, height);
  setResourceScreenHeight(height);
  SetWindowSize(width, height);
}

/// The toolkit announces a change of its scale or its direction as a change of the theme, to every widget on its own.
/// This one stands for all: once they all know, they are fitted anew.
void FollowToolkit(Evas_Object* window) {
  static Ecore_Job* pending = nullptr;
  Evas_Object* listener = elm_layout_add(window);
  elm_layout_theme_set(listener, "frame", "base", "pad_small");
  const auto changed = [](void*, Evas_Object*, void*) {
    if (!pending)
      pending = ecore_job_add(
          [](void*) {
            pending = nullptr;
            RestyleAll();
          },
          nullptr);
  };
  evas_object_smart_callback_add(listener, "theme,changed", changed, nullptr);
  const auto gone = [](void*, Evas*, Evas_Object*, void*) {
    if (pending) ecore_job_del(pending);
    pending = nullptr;
  };
  evas_object_event_callback_add(listener, EVAS_CALLBACK_DEL, gone, nullptr);
}

/// A set's application covers the screen. On a desktop VEXILO_WINDOW, "1280x720", gives it a window of that size.
void ChooseSize(Evas_Object* window) {
  const char* wanted = std::getenv("VEXILO_WINDOW");
  int width = 0, height = 0, length = 0;
  const bool isSize = wanted && std::sscanf(wanted, "%dx%d%n", &width, &height, &length) == 2 && !wanted[length] &&
                      width > 0 && height > 0;
  if (wanted && *wanted && !isSize)
    __dlog_print(LOG_ID_APPS, DLOG_ERROR, kTag, "VEXILO_WINDOW=\"%s\" is no size like 1280x720: full screen", wanted);
  if (!isSize) {
    elm_win_screen_size_get(window, nullptr, nullptr, &width, &height);
    elm_win_fullscreen_set(window, EINA_TRUE);
  }
  evas_object_resize(window, width, height);
}

void BringToFront() {
  elm_win_iconified_set(g_window, EINA_FALSE);
  elm_win_raise(g_window);
  elm_win_activate(g_window);
}

void FollowWindow(Evas_Object* window) {
  const auto on = [window](const char* event, Evas_Smart_Cb callback) {
    evas_object_smart_callback_add(window, event, callback, nullptr);
  };
  const Evas_Smart_Cb hidden = [](void*, Evas_Object*, void*) { app_framework::PauseApplication(); };
  on("iconified", hidden);
  on("withdrawn", hidden);
  on("normal", [](void*, Evas_Object*, void*) { app_framework::ResumeApplication(); });
  on("delete,request", [](void*, Evas_Object*, void*) { elm_exit(); });
  evas_object_event_callback_add(
      window, EVAS_CALLBACK_RESIZE, [](void*, Evas*, Evas_Object*, void*) { TakeWindowSize(); }, nullptr);
  const auto gone = [](void*, Evas*, Evas_Object*, void*) {
    for (const FollowedKey& followed : kFollowedKeys) vconf_ignore_key_changed(followed.key, followed.changed);
    g_window = nullptr;
    app_framework::SetBringToFront(nullptr);
  };
  evas_object_event_callback_add(window, EVAS_CALLBACK_DEL, gone, nullptr);
}

}  // namespace

}  // namespace flux

bool elm_flux_init(Evas_Object* window) {
  using namespace flux;
  if (!window || g_window) {
    __dlog_print(LOG_ID_APPS, DLOG_ERROR, kTag, window ? "one window at a time" : "no window to draw in");
    return false;
  }
  g_window = window;
  app_framework::SetBringToFront(BringToFront);
  if (!FLUX_EVENT_HIGH_CONTRAST_CHANGED) {
    FLUX_EVENT_HIGH_CONTRAST_CHANGED = ecore_event_type_new();
    FLUX_EVENT_ENLARGE_CHANGED = ecore_event_type_new();
    FLUX_EVENT_SCREEN_READER_CHANGED = ecore_event_type_new();
    FollowKeys();
  }
  elm_config_cache_image_cache_size_set(kImageCacheSize);
  SetZoom(1.0);
  SetHighContrast(IsOn(set_names::kHighContrastKey));
  elm_config_access_set(IsOn(set_names::kScreenReaderKey));
  // The theme's widgets show the focus themselves; the toolkit would draw its own over them from the first key on.
  const bool hasTheme = LoadTheme();
  elm_config_window_auto_focus_enable_set(!hasTheme);
  elm_win_focus_highlight_enabled_set(window, !hasTheme);
  ChooseSize(window);
  TakeWindowSize();
  FollowToolkit(window);
  FollowWindow(window);
  for (const FollowedKey& followed : kFollowedKeys)
    if (vconf_notify_key_changed(followed.key, followed.changed, nullptr) != 0)
      __dlog_print(LOG_ID_APPS, DLOG_ERROR, kTag, "changes of %s are not followed", followed.key);
  return true;
}

/// The application turns what it draws by itself, with elm_flux_bg_transform(); there is nothing else that turns.
void elm_flux_rotation_handling_set(Evas_Object*, bool) {}

/// A window of this widget set never shows a grid.
void elm_flux_background_grid_hide(Evas_Object*) {}
