// The least that a full-screen program of the toolkit does until it is seen: a window with a line of text where the
// application has its title. What the application's start is measured against.

#include <Efreet.h>
#include <Elementary.h>

#include <cstdlib>

namespace {

void AddText(Evas_Object* window, int x, int blue) {
  Evas_Object* const text = evas_object_text_add(evas_object_evas_get(window));
  evas_object_text_font_set(text, "Sans", 54);
  evas_object_text_text_set(text, "The quick brown fox jumps");
  evas_object_color_set(text, 255, 255, blue, 255);
  evas_object_move(text, x, 28);
  evas_object_show(text);
}

}  // namespace

int main(int argc, char** argv) {
  // No services of the machine, as the application has none.
  setenv("ECORE_NO_SYSTEM_MODULES", "1", 1);
  efreet_cache_disable();
  if (elm_init(argc, argv) <= 0) return EXIT_FAILURE;
  Evas_Object* const window = elm_win_util_standard_add("bare", "Bare");
  if (!window) return EXIT_FAILURE;
  // Letters of one colour have too few shades to be told from a plain picture.
  AddText(window, 80, 255);
  AddText(window, 1000, 0);
  elm_win_fullscreen_set(window, EINA_TRUE);
  evas_object_show(window);
  elm_run();
  return EXIT_SUCCESS;
}
