// Shows the widgets in the states that no screen has all of, on one page, for people who change the look:
//   flux_gallery [contrast] [rtl] [enlarged] [upright] [size=1280x720 picture=FILE]
// With a file it draws on a canvas in memory and saves a picture, else it opens a window.

#include <algorithm>
#include <cstdio>
#include <string>
#include <vector>

#include "elm_flux.h"
#include "flux/flux_core.h"
#include "ui/ui_harness.h"

namespace {

Evas_Object* Pack(Evas_Object* parent, Evas_Object* widget, double width = 0, double height = 0) {
  elm_flux_size_set(widget, width, height);
  elm_flux_layout_pack(parent, widget);
  return widget;
}

Evas_Object* Layout(Evas_Object* parent, FluxLayoutType type, double gap) {
  Evas_Object* layout = elm_flux_layout_add(parent, type, FLUX_ALIGN_TOP_LEFT);
  elm_flux_layout_gap_set(layout, gap);
  elm_flux_layout_pack(parent, layout);
  return layout;
}

Evas_Object* Text(Evas_Object* parent, const char* text, FluxTextSize size, const char* colour, const char* font) {
  Evas_Object* object = elm_flux_text_add(parent);
  elm_object_text_set(object, text);
  elm_flux_text_size_set(object, size);
  elm_flux_text_color_set(object, colour);
  elm_flux_text_font_set(object, font);
  return Pack(parent, object);
}

Evas_Object* Button(Evas_Object* parent, FluxButtonStyle style, const char* text, double width, double height) {
  Evas_Object* button = elm_flux_button_add(parent, style);
  elm_object_text_set(button, text);
  return Pack(parent, button, width, height);
}

Evas_Object* Progress(Evas_Object* parent, FluxProgressStyle style, double width, double height, double value) {
  Evas_Object* progress = elm_flux_progress_add(parent, style);
  elm_flux_progress_value_set(progress, value);
  if (value > 0) elm_flux_progress_unit_set(progress, "%.0f%%");
  elm_flux_progress_pulse(progress, value < 0);
  return Pack(parent, progress, width, height);
}

void AddButtons(Evas_Object* body) {
  Evas_Object* buttons = Layout(body, FLUX_LAYOUT_HORIZONTAL, 4);
  elm_object_focus_set(Button(buttons, FLUX_BUTTON_PLAIN, "Focused", 32, 10), EINA_TRUE);
  for (const char* text : {"Plain", "Selbstdiagnose starten"}) Button(buttons, FLUX_BUTTON_PLAIN, text, 32, 10);
  Button(buttons, FLUX_BUTTON_ACCENT, "Accent", 32, 10);
  elm_object_disabled_set(Button(buttons, FLUX_BUTTON_PLAIN, "Disabled", 32, 10), EINA_TRUE);
  Button(buttons, FLUX_BUTTON_PLAIN, "Datenschutzeinstellungen zurücksetzen und neu starten", 32, 11);
  Evas_Object* tiles = Layout(body, FLUX_LAYOUT_HORIZONTAL, 4);
  for (const char* text : {"Start", "Manage Storage", "Self diagnosis", "التشخيص الذاتي", "Fehlerbericht senden"})
    elm_flux_button_icon_set(Button(tiles, FLUX_BUTTON_TILE, text, 40, 22), GALLERY_ICON);
}

void AddPlates(Evas_Object* body) {
  const struct {
    const char* name;
    FluxPlateType type;
    bool radius;
    FluxPlateState state;
  } plates[] = {{"Panel", FLUX_PLATE_PANEL, true, FLUX_PLATE_NORMAL},
                {"Sunken", FLUX_PLATE_SUNKEN, true, FLUX_PLATE_NORMAL},
                {"Light", FLUX_PLATE_LIGHT, true, FLUX_PLATE_NORMAL},
                {"Side, square", FLUX_PLATE_SIDE, false, FLUX_PLATE_NORMAL},
                {"Dimmed", FLUX_PLATE_PANEL, true, FLUX_PLATE_DIMMED}};
  Evas_Object* row = Layout(body, FLUX_LAYOUT_HORIZONTAL, 4);
  for (const auto& each : plates) {
    Evas_Object* plate = Pack(row, elm_flux_plate_add(row, each.type, each.radius, each.state), 40, 24);
    Evas_Object* column = elm_flux_layout_add(plate, FLUX_LAYOUT_VERTICAL, FLUX_ALIGN_LEFT);
    elm_flux_layout_padding_set(column, 3, 1, 3, 1);
    elm_object_content_set(plate, column);
    Text(column, each.name, FLUX_TEXT_BODY, "#F2F7FC", FLUX_FONT_600);
    Text(column, "262626AF", FLUX_TEXT_DETAIL, "#262626AF", FLUX_FONT_400);
    Text(column, "Accent", FLUX_TEXT_DETAIL, "#89E413", FLUX_FONT_700);
  }
}

void AddProgresses(Evas_Object* body) {
  Evas_Object* row = Layout(body, FLUX_LAYOUT_HORIZONTAL, 6);
  for (const double value : {0.0, 0.4, -1.0}) Progress(row, FLUX_PROGRESS_BAR, 26, 5, value);
  elm_flux_progress_inverted_set(Progress(row, FLUX_PROGRESS_BAR, 26, 5, 0.3), true);
  Progress(row, FLUX_PROGRESS_CIRCLE, 15, 15, -1);
  Evas_Object* image = Pack(row, elm_flux_image_add(row), 12, 12);
  elm_flux_image_file_set(image, GALLERY_ICON);
  elm_flux_image_tint_set(image, "#89E413");
  Evas_Object* parts = Progress(row, FLUX_PROGRESS_TWO_PART, 50, 0, 0.68);
  elm_object_part_text_set(parts, "text3", "5.4 GB");
  elm_object_part_text_set(parts, "text4", "2.6(32%)");
}

void AddChecks(Evas_Object* row) {
  Evas_Object* list = Pack(row, elm_flux_list_add(row, FLUX_ROW_CHECK), 92, 36);
  elm_flux_list_text_set(list, [](int index, const std::string& part) -> std::string {
    if (part == "icon") return GALLERY_ICON;
    return part == "sub.text1" ? "1.2 GB" : index % 2 ? "متصفح الويب" : "Web browser";
  });
  elm_flux_list_append(list, 8);
  elm_flux_list_checks_show(list, true);
  elm_flux_list_check_set(list, 0, true);
}

void AddCards(Evas_Object* row) {
  Evas_Object* grid = Pack(row, elm_flux_grid_add(row, 4), 120, 36);
  std::vector<FluxCard> cards;
  for (const char* label : {"Picture test", "HDMI-Fehlerbehebung", "استكشاف أخطاء HDMI وإصلاحها", "Signal information"})
    cards.push_back({GALLERY_ICON, label, cards.size() != 1});
  elm_flux_grid_cards_set(grid, cards);
}

void Show(Evas_Object* window, const std::vector<std::string>& words) {
  const auto has = [&](const char* word) { return std::ranges::find(words, word) != words.end(); };
  flux::SetHighContrast(has("contrast"));
  elm_config_mirrored_set(has("rtl"));
  elm_config_scale_set(has("enlarged") ? FLUX_SCALE_ENLARGED : FLUX_SCALE_NORMAL);
  Evas_Object* bg = elm_flux_bg_add(window);
  Evas_Object* page = elm_flux_layout_add(bg, FLUX_LAYOUT_VERTICAL, FLUX_ALIGN_TOP_LEFT);
  elm_flux_layout_root_set(page, true);
  elm_flux_layout_padding_set(page, 11, 6, 11, 4);
  elm_flux_layout_gap_set(page, 4);
  elm_flux_bg_content_set(bg, page);
  evas_object_show(bg);
  AddButtons(page);
  AddPlates(page);
  AddProgresses(page);
  Evas_Object* items = Layout(page, FLUX_LAYOUT_HORIZONTAL, 4);
  AddChecks(items);
  AddCards(items);
  if (has("upright")) elm_flux_bg_transform(bg, 0.5625, 270);
}

int SavePicture(const std::vector<std::string>& words, const std::string& file) {
  int width = 1920, height = 1080;
  for (const std::string& word : words) std::sscanf(word.c_str(), "size=%dx%d", &width, &height);
  UiHarness harness(width, height);
  Show(harness.Window(), words);
  harness.PumpUntil([] { return false; }, 0.6);  // until what moves has come to rest
  return harness.SavePicture(file) ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
  const std::vector<std::string> words(argv + 1, argv + argc);
  for (const std::string& word : words)
    if (word.starts_with("picture=")) return SavePicture(words, word.substr(8));
  app_framework::ToolkitEnvironment environment;
  app_framework::Toolkit toolkit(argc, argv);
  if (!toolkit) return 1;
  Evas_Object* window = elm_win_util_standard_add("flux_gallery", "flux_gallery");
  elm_win_autodel_set(window, EINA_TRUE);
  elm_flux_init(window);
  Show(window, words);
  evas_object_show(window);
  elm_run();
  return 0;
}
