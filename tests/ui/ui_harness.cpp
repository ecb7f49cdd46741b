#include "ui/ui_harness.h"

#include <Ecore_Evas.h>

#include <cstdlib>
#include <filesystem>
#include <ostream>

#include "c_handle.h"
#include "elm_flux.h"
#include "set_paths.h"
#include "system_path.h"
#include "ui/fast_clock.h"

namespace fs = std::filesystem;

UiHarness::UiHarness(int width, int height, Theme theme) {
  Prepare(theme);
  elm_config_scale_set(FLUX_SCALE_NORMAL);
  m_window = elm_win_util_standard_add("test", "test");
  ecore_animator_source_set(ECORE_ANIMATOR_SOURCE_CUSTOM);
  evas_object_resize(m_window, width, height);
  elm_flux_init(m_window);
  evas_object_show(m_window);
  Settle();
  HandFocus();
  Settle();
}

UiHarness::UiHarness(const std::function<Evas_Object*()>& makeWindow) {
  Prepare(Theme::kInstalled);
  m_window = makeWindow();
  ecore_animator_source_set(ECORE_ANIMATOR_SOURCE_CUSTOM);
  // What moves from the start would keep it from settling for long.
  int drawn = 0;
  const auto count = [](void* data, Evas*, void*) { ++*static_cast<int*>(data); };
  evas_event_callback_add(Canvas(), EVAS_CALLBACK_RENDER_POST, count, &drawn);
  PumpUntil([&] { return drawn > 0; });
  evas_event_callback_del_full(Canvas(), EVAS_CALLBACK_RENDER_POST, count, &drawn);
  HandFocus();
}

void UiHarness::Prepare(Theme theme) {
  if (theme == Theme::kInstalled) {
    const fs::path target = SystemPath(set_paths::kFluxTheme);
    fs::create_directories(target.parent_path());
    fs::copy_file(FLUX_THEME, target, fs::copy_options::overwrite_existing);
  }
  setenv("ELM_ENGINE", "buffer", 1);
  m_toolkit = std::make_unique<app_framework::Toolkit>(0, nullptr);
  elm_policy_set(ELM_POLICY_QUIT, ELM_POLICY_QUIT_NONE);
}

// Without a window system nobody hands the focus to the window.
void UiHarness::HandFocus() {
  ecore_evas_focus_set(Engine(), EINA_FALSE);
  ecore_evas_focus_set(Engine(), EINA_TRUE);
}

UiHarness::~UiHarness() {
  evas_object_del(m_window);
  ecore_main_loop_iterate();
}

Evas_Object* UiHarness::Root() {
  Evas_Object* root = elm_flux_layout_add(m_window, FLUX_LAYOUT_VERTICAL, FLUX_ALIGN_TOP_LEFT);
  elm_flux_layout_root_set(root, true);
  elm_win_resize_object_add(m_window, root);
  return root;
}

namespace {

constexpr std::chrono::milliseconds kLook{10};
constexpr double kFrame = 0.05;  // seconds; what moves is drawn no more often, as that is most of the work

void TickAnimators() {
  static double next = 0;
  if (ecore_loop_time_get() < next) return;
  next = ecore_loop_time_get() + kFrame;
  ecore_animator_custom_tick();
}

/// Nothing is left to be done: time goes on to the next frame.
Eina_Bool SkipTime(void*) {
  fast_clock::Skip(kLook);
  return ECORE_CALLBACK_RENEW;
}

}  // namespace

bool UiHarness::PumpUntil(const std::function<bool()>& condition, double seconds) {
  const double end = ecore_time_get() + seconds;
  while (!condition()) {
    if (ecore_time_get() > end) return false;
    const auto quit = [](void*) -> Eina_Bool {
      TickAnimators();
      ecore_main_loop_quit();
      return ECORE_CALLBACK_CANCEL;
    };
    ecore_timer_add(std::chrono::duration<double>(kLook).count(), quit, nullptr);
    Ecore_Idler* const idler = ecore_idler_add(SkipTime, nullptr);
    ecore_main_loop_begin();
    ecore_idler_del(idler);
  }
  return true;
}

void UiHarness::Settle() {
  // Quiet for longer than a frame lasts; a frame that was begun may take longer to be drawn.
  constexpr int kQuietLooks = 6;
  struct Frames {
    int begun = 0, drawn = 0;
  } frames;
  const auto begun = [](void* data, Evas*, void*) { ++static_cast<Frames*>(data)->begun; };
  const auto drawn = [](void* data, Evas*, void*) { ++static_cast<Frames*>(data)->drawn; };
  evas_event_callback_add(Canvas(), EVAS_CALLBACK_RENDER_PRE, begun, &frames);
  evas_event_callback_add(Canvas(), EVAS_CALLBACK_RENDER_POST, drawn, &frames);
  int before = -1, quiet = 0;
  PumpUntil(
      [&] {
        quiet = frames.begun == before && frames.drawn >= frames.begun ? quiet + 1 : 0;
        before = frames.begun;
        return quiet >= kQuietLooks;
      },
      2.0);
  evas_event_callback_del_full(Canvas(), EVAS_CALLBACK_RENDER_PRE, begun, &frames);
  evas_event_callback_del_full(Canvas(), EVAS_CALLBACK_RENDER_POST, drawn, &frames);
}

void UiHarness::FeedKey(const char* key) {
  evas_event_feed_key_down(Canvas(), key, key, nullptr, nullptr, m_time++, nullptr);
  evas_event_feed_key_up(Canvas(), key, key, nullptr, nullptr, m_time++, nullptr);
}

void UiHarness::Key(const char* key) {
  FeedKey(key);
  Settle();
}

void UiHarness::Hold(const char* key, int times) {
  const auto add = [&](int type) {
    auto* event = static_cast<Ecore_Event_Key*>(calloc(1, sizeof(Ecore_Event_Key)));
    event->keyname = event->key = key;
    event->timestamp = m_time += 20;
    ecore_event_add(type, event, nullptr, nullptr);
    Settle();
  };
  m_time += 10000;
  for (int i = 0; i < times; ++i) add(ECORE_EVENT_KEY_DOWN);
  add(ECORE_EVENT_KEY_UP);
}

void UiHarness::Wheel(Evas_Object* object, int steps) {
  const Geometry at = GeometryOf(object);
  evas_event_feed_mouse_in(Canvas(), m_time++, nullptr);
  evas_event_feed_mouse_move(Canvas(), at.x + at.width / 2, at.y + at.height / 2, m_time++, nullptr);
  for (int i = 0; i < std::abs(steps); ++i)
    evas_event_feed_mouse_wheel(Canvas(), 0, steps > 0 ? 1 : -1, m_time++, nullptr);
}

void UiHarness::Click(Evas_Object* object) {
  const Geometry at = GeometryOf(object);
  evas_event_feed_mouse_in(Canvas(), m_time++, nullptr);
  evas_event_feed_mouse_move(Canvas(), at.x + at.width / 2, at.y + at.height / 2, m_time++, nullptr);
  evas_event_feed_mouse_down(Canvas(), 1, EVAS_BUTTON_NONE, m_time++, nullptr);
  evas_event_feed_mouse_up(Canvas(), 1, EVAS_BUTTON_NONE, m_time++, nullptr);
  Settle();
}

void UiHarness::Resize(int width, int height) {
  Settle();  // a thread of the canvas may still be drawing into the memory that a resize frees
  evas_object_resize(m_window, width, height);
  Settle();
}

UiHarness::Geometry UiHarness::GeometryOf(const Evas_Object* object) {
  Geometry geometry{};
  evas_object_geometry_get(object, &geometry.x, &geometry.y, &geometry.width, &geometry.height);
  return geometry;
}

std::vector<Evas_Object*> UiHarness::MembersOf(Evas_Object* object) {
  std::vector<Evas_Object*> members;
  Eina_List* list = evas_object_smart_members_get(object);
  void* member = nullptr;
  EINA_LIST_FREE(list, member) members.push_back(static_cast<Evas_Object*>(member));
  return members;
}

std::string UiHarness::PlainText(Evas_Object* block) {
  const CText plain(evas_textblock_text_markup_to_utf8(nullptr, evas_object_textblock_text_markup_get(block)));
  return plain ? plain.get() : "";
}

void UiHarness::CountEvents(Evas_Object* widget, const char* event, int& count) {
  const auto add = [](void* data, Evas_Object*, void*) { ++*static_cast<int*>(data); };
  evas_object_smart_callback_add(widget, event, add, &count);
}

uint32_t UiHarness::Pixel(int x, int y) {
  int width = 0, height = 0;
  ecore_evas_geometry_get(Engine(), nullptr, nullptr, &width, &height);
  if (x < 0 || y < 0 || x >= width || y >= height) return 0;
  const auto* pixels = static_cast<const uint32_t*>(ecore_evas_buffer_pixels_get(Engine()));
  return pixels ? pixels[y * width + x] : 0;
}

std::vector<uint32_t> UiHarness::Pixels() {
  int width = 0, height = 0;
  ecore_evas_geometry_get(Engine(), nullptr, nullptr, &width, &height);
  const auto* pixels = static_cast<const uint32_t*>(ecore_evas_buffer_pixels_get(Engine()));
  return pixels ? std::vector(pixels, pixels + width * height) : std::vector<uint32_t>();
}

bool UiHarness::SavePicture(const std::string& file) {
  int width = 0, height = 0;
  ecore_evas_geometry_get(Engine(), nullptr, nullptr, &width, &height);
  const void* pixels = ecore_evas_buffer_pixels_get(Engine());
  Ecore_Evas* other = ecore_evas_buffer_new(1, 1);
  if (!pixels || !other) return false;
  Evas_Object* image = evas_object_image_add(ecore_evas_get(other));
  evas_object_image_size_set(image, width, height);
  evas_object_image_data_copy_set(image, const_cast<void*>(pixels));
  const bool saved = evas_object_image_save(image, file.c_str(), nullptr, "compress=6");
  ecore_evas_free(other);
  return saved;
}

std::ostream& operator<<(std::ostream& out, const UiHarness::Geometry& g) {
  return out << g.x << "," << g.y << " " << g.width << "x" << g.height;
}
