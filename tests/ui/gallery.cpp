// Shows every widget in all its states, for people who change the look:
//   flux_gallery [contrast] [rtl] [enlarged] [upright] [size=1280x720 picture=FILE]
// With a size and a file it draws on a canvas in memory and saves a picture, else it opens a window.

#include <cstdio>
#include <cstring>
#include <functional>
#include <string>

#include "elm_flux.h"
#include "flux/flux_core.h"
#include "ui/ui_harness.h"

namespace {

Evas_Object* Row(Evas_Object* parent, double gap) {
  Evas_Object* row = elm_flux_layout_add(parent, FLUX_LAYOUT_HORIZONTAL, FLUX_ALIGN_LEFT);
  elm_flux_layout_gap_set(row, gap);
  elm_flux_layout_pack(parent, row);
  return row;
}

Evas_Object* Text(Evas_Object* parent, const char* text, FluxTextSize size, const char* colour, const char* font) {
  Evas_Object* object = elm_flux_text_add(parent);
  elm_object_text_set(object, text);
  elm_flux_text_size_set(object, size);
  elm_flux_text_color_set(object, colour);
  elm_flux_text_font_set(object, font);
  elm_flux_layout_pack(parent, object);
  return object;
}

Evas_Object* Button(Evas_Object* parent, FluxButtonStyle style, const char* text, double width, double height) {
  Evas_Object* button = elm_flux_button_add(parent, style);
  elm_object_text_set(button, text);
  elm_flux_size_set(button, width, height);
  elm_flux_layout_pack(parent, button);
  return button;
}

void Header(Evas_Object* page, bool arabic) {
  Evas_Object* header = elm_flux_header_add(page, FLUX_HEADER_ONE_LINE);
  elm_flux_size_set(header, 240, 15);
  elm_flux_layout_pack(page, header);
  Evas_Object* row = elm_flux_layout_add(header, FLUX_LAYOUT_VERTICAL, FLUX_ALIGN_LEFT);
  elm_flux_layout_padding_set(row, 11, 0, 11, 0);
  elm_object_content_set(header, row);
  Text(row, arabic ? "العناية بالجهاز" : "Device Care & Storage <1>", FLUX_TEXT_TITLE, "#FFFFFF", FLUX_FONT_600);
}

void Buttons(Evas_Object* body) {
  Evas_Object* row = Row(body, 4);
  Evas_Object* first = Button(row, FLUX_BUTTON_PLAIN, "Focused", 32, 10);
  Button(row, FLUX_BUTTON_PLAIN, "Plain", 32, 10);
  Button(row, FLUX_BUTTON_ACCENT, "Accent", 32, 10);
  elm_object_disabled_set(Button(row, FLUX_BUTTON_PLAIN, "Disabled", 32, 10), EINA_TRUE);
  Button(row, FLUX_BUTTON_PLAIN, "Selbstdiagnose starten", 32, 10);
  Button(row, FLUX_BUTTON_PLAIN, "Datenschutzeinstellungen zurücksetzen und neu starten", 32, 11);
  elm_object_focus_set(first, EINA_TRUE);
}

void Tiles(Evas_Object* body) {
  Evas_Object* row = Row(body, 4);
  const char* texts[] = {"Start", "Manage Storage", "Self diagnosis", "التشخيص الذاتي", "Fehlerbericht senden"};
  for (const char* text : texts) {
    Evas_Object* tile = Button(row, FLUX_BUTTON_TILE, text, 40, 22);
    elm_flux_button_icon_set(tile, GALLERY_ICON);
  }
}

void PlateWith(Evas_Object* row, FluxPlateType type, bool radius, FluxPlateState state, const char* name) {
  Evas_Object* plate = elm_flux_plate_add(row, type, radius, state);
  elm_flux_size_set(plate, 40, 24);
  elm_flux_layout_pack(row, plate);
  Evas_Object* column = elm_flux_layout_add(plate, FLUX_LAYOUT_VERTICAL, FLUX_ALIGN_LEFT);
  elm_flux_layout_padding_set(column, 3, 1, 3, 1);
  elm_object_content_set(plate, column);
  Text(column, name, FLUX_TEXT_BODY, "#F2F7FC", FLUX_FONT_600);
  Text(column, "262626AF", FLUX_TEXT_DETAIL, "#262626AF", FLUX_FONT_400);
  Text(column, "Accent", FLUX_TEXT_DETAIL, "#89E413", FLUX_FONT_700);
}

void Plates(Evas_Object* body) {
  Evas_Object* row = Row(body, 4);
  PlateWith(row, FLUX_PLATE_PANEL, true, FLUX_PLATE_NORMAL, "Panel");
  PlateWith(row, FLUX_PLATE_SUNKEN, true, FLUX_PLATE_NORMAL, "Sunken");
  PlateWith(row, FLUX_PLATE_LIGHT, true, FLUX_PLATE_NORMAL, "Light");
  PlateWith(row, FLUX_PLATE_SIDE, false, FLUX_PLATE_NORMAL, "Side, square");
  PlateWith(row, FLUX_PLATE_PANEL, true, FLUX_PLATE_DIMMED, "Dimmed");
}

void Texts(Evas_Object* body) {
  Evas_Object* row = Row(body, 4);
  const char* sentence =
      "No problems were found. A sentence that does not fit one line is broken between words and ends in an ellipsis "
      "where its box is full; nothing of it is ever drawn outside.";
  const int lines[] = {1, 2, 0};
  for (const int count : lines) {
    Evas_Object* text = Text(row, sentence, FLUX_TEXT_DETAIL, "#9EAEC4", FLUX_FONT_400);
    elm_flux_size_set(text, 64, 18);
    elm_flux_text_lines_set(text, count);
    elm_flux_text_align_set(text, FLUX_ALIGN_TOP_LEFT);
  }
}

void Progresses(Evas_Object* body) {
  Evas_Object* row = Row(body, 6);
  const double values[] = {0.0, 0.4, 0.3};
  for (const double value : values) {
    Evas_Object* bar = elm_flux_progress_add(row, FLUX_PROGRESS_BAR);
    elm_flux_size_set(bar, 40, 5);
    elm_flux_progress_value_set(bar, value);
    elm_flux_progress_unit_set(bar, value > 0 ? "%.0f%%" : nullptr);
    elm_flux_progress_inverted_set(bar, value == 0.3);
    elm_flux_layout_pack(row, bar);
  }
  Evas_Object* bar = elm_flux_progress_add(row, FLUX_PROGRESS_BAR);
  elm_flux_size_set(bar, 40, 5);
  elm_flux_progress_pulse(bar, true);
  elm_flux_layout_pack(row, bar);
  Evas_Object* circle = elm_flux_progress_add(row, FLUX_PROGRESS_CIRCLE);
  elm_flux_size_set(circle, 15, 15);
  elm_flux_progress_pulse(circle, true);
  elm_flux_layout_pack(row, circle);
  Evas_Object* image = elm_flux_image_add(row);
  elm_flux_size_set(image, 12, 12);
  elm_flux_image_file_set(image, GALLERY_ICON);
  elm_flux_image_tint_set(image, "#89E413");
  elm_flux_layout_pack(row, image);
}

void ShowGallery(Evas_Object* window, bool arabic, bool upright) {
  Evas_Object* bg = elm_flux_bg_add(window);
  Evas_Object* page = elm_flux_layout_add(bg, FLUX_LAYOUT_VERTICAL, FLUX_ALIGN_TOP);
  elm_flux_layout_root_set(page, true);
  elm_flux_bg_content_set(bg, page);
  evas_object_show(bg);
  Header(page, arabic);
  Evas_Object* body = elm_flux_layout_add(page, FLUX_LAYOUT_VERTICAL, FLUX_ALIGN_TOP_LEFT);
  elm_flux_layout_padding_set(body, 11, 4, 11, 4);
  elm_flux_layout_gap_set(body, 4);
  elm_flux_expand_set(body, true);
  elm_flux_layout_pack(page, body);
  Buttons(body);
  Tiles(body);
  Plates(body);
  Texts(body);
  Progresses(body);
  if (upright) elm_flux_bg_transform(bg, 0.5625, 270);
}

struct Options {
  bool contrast = false, arabic = false, enlarged = false, upright = false;
  int width = 0, height = 0;
  std::string picture;
};

Options OptionsOf(int argc, char** argv) {
  Options options;
  for (int i = 1; i < argc; ++i) {
    const std::string word = argv[i];
    options.contrast |= word == "contrast";
    options.arabic |= word == "rtl";
    options.enlarged |= word == "enlarged";
    options.upright |= word == "upright";
    std::sscanf(argv[i], "size=%dx%d", &options.width, &options.height);
    if (word.starts_with("picture=")) options.picture = word.substr(std::strlen("picture="));
  }
  return options;
}

void Show(Evas_Object* window, const Options& options) {
  flux::SetHighContrast(options.contrast);
  elm_config_mirrored_set(options.arabic);
  elm_config_scale_set(options.enlarged ? FLUX_SCALE_ENLARGED : FLUX_SCALE_NORMAL);
  ShowGallery(window, options.arabic, options.upright);
}

}  // namespace

int main(int argc, char** argv) {
  const Options options = OptionsOf(argc, argv);
  if (!options.picture.empty()) {
    UiHarness harness(options.width, options.height);
    Show(harness.Window(), options);
    harness.Settle();
    return harness.SavePicture(options.picture) ? 0 : 1;
  }
  app_framework::ToolkitEnvironment environment;
  app_framework::Toolkit toolkit(argc, argv);
  if (!toolkit) return 1;
  Evas_Object* window = elm_win_util_standard_add("flux_gallery", "flux_gallery");
  elm_flux_init(window);
  Show(window, options);
  evas_object_show(window);
  elm_run();
  return 0;
}
