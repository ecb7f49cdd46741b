// Shows lists, a grid, a popup and what else is made of items, for people who change the look:
//   flux_gallery_lists [size=1280x720 picture=FILE] [contrast] [rtl] [enlarged] [popup|long]
//   [focus=list|checks|grid|box] [keys=Down,Down,…]
// With a size and a file it draws on a canvas in memory, presses the keys and saves a picture, else it opens a window.

#include <cstdio>
#include <cstring>
#include <sstream>
#include <string>
#include <string_view>

#include "elm_flux.h"
#include "flux/flux_core.h"
#include "ui/ui_harness.h"

namespace {

struct Options {
  bool contrast = false, arabic = false, enlarged = false, popup = false, isLong = false;
  int width = 1920, height = 1080;
  std::string picture, focus = "list", keys;
};

Options OptionsOf(int argc, char** argv) {
  Options options;
  for (int i = 1; i < argc; ++i) {
    const std::string word = argv[i];
    options.contrast |= word == "contrast";
    options.arabic |= word == "rtl";
    options.enlarged |= word == "enlarged";
    options.popup |= word == "popup" || word == "long";
    options.isLong |= word == "long";
    std::sscanf(argv[i], "size=%dx%d", &options.width, &options.height);
    if (word.starts_with("picture=")) options.picture = word.substr(std::strlen("picture="));
    if (word.starts_with("focus=")) options.focus = word.substr(std::strlen("focus="));
    if (word.starts_with("keys=")) options.keys = word.substr(std::strlen("keys="));
  }
  return options;
}

class Page {
 public:
  Page(Evas_Object* window, const Options& options) : m_window(window), m_options(options) {
    Evas_Object* bg = elm_flux_bg_add(window);
    Evas_Object* root = elm_flux_layout_add(bg, FLUX_LAYOUT_HORIZONTAL, FLUX_ALIGN_TOP_LEFT);
    elm_flux_layout_root_set(root, true);
    elm_flux_bg_content_set(bg, root);
    elm_flux_layout_padding_set(root, 9, 8, 9, 8);
    elm_flux_layout_gap_set(root, 4);
    AddLists(AddColumn(root, 92));
    AddCards(AddColumn(root, 126));
    if (options.popup)
      ShowPopup();
    else
      elm_flux_toast_add(window, Say("The problem has been solved.", "Das Problem wurde behoben.", "تم حل المشكلة."),
                         60);
    elm_object_focus_set(options.focus == "checks" ? m_checks
                         : options.focus == "grid" ? m_grid
                         : options.focus == "box"  ? m_box
                                                   : m_list,
                         true);
  }

 private:
  std::string Say(const char* english, const char* german, const char* arabic) const {
    return m_options.arabic ? arabic : m_options.enlarged ? german : english;
  }

  static Evas_Object* AddColumn(Evas_Object* root, double width) {
    Evas_Object* column = elm_flux_layout_add(root, FLUX_LAYOUT_VERTICAL, FLUX_ALIGN_TOP_LEFT);
    elm_flux_size_set(column, width, 118);
    elm_flux_layout_gap_set(column, 3);
    elm_flux_layout_pack(root, column);
    return column;
  }

  void AddLists(Evas_Object* column) {
    m_list = elm_flux_list_add(column, FLUX_ROW_SINGLE_LINE_03);
    elm_flux_size_set(m_list, 92, 56);
    elm_flux_list_text_set(m_list, [this](int index, const std::string& part) {
      if (part == "SubText1") return std::string(index == 1 ? "" : "21/11/2026");
      if (index == 2)
        return Say("A rather long text of an issue that does not fit its row at all, and goes on and on",
                   "Ein ziemlich langer Text eines Problems, der gar nicht in die Zeile passt und weitergeht",
                   "نص طويل جدًا لمشكلة لا يتسع لها السطر على الإطلاق ويستمر في الامتداد إلى ما بعد نهاية السطر");
      return Say("Network is not connected", "Netzwerk ist nicht verbunden", "الشبكة غير متصلة");
    });
    elm_flux_list_append(m_list, 12);
    elm_flux_layout_pack(column, m_list);
    m_checks = elm_flux_list_add(column, FLUX_ROW_CHECK);
    elm_flux_size_set(m_checks, 92, 56);
    elm_flux_list_text_set(m_checks, [this](int index, const std::string& part) {
      if (part == "icon") return std::string(GALLERY_ICON);
      if (part == "sub.text1") return std::string(index % 2 ? "214.5 MB" : "1.2 GB");
      return Say("Web browser", "Webbrowser", "متصفح الويب");
    });
    elm_flux_list_append(m_checks, 8);
    elm_flux_list_checks_show(m_checks, true);
    for (const int index : {0, 2}) elm_flux_list_check_set(m_checks, index, true);
    elm_flux_layout_pack(column, m_checks);
  }

  void AddCards(Evas_Object* column) {
    m_grid = elm_flux_grid_add(column, 4);
    elm_flux_size_set(m_grid, 126, 76);
    std::vector<FluxCard> cards;
    const std::string labels[] = {Say("Picture test", "Bildtest", "اختبار الصورة"),
                                  Say("Sound test", "Tontest", "اختبار الصوت"),
                                  Say("Video test", "Videotest", "اختبار الفيديو"),
                                  Say("HDMI troubleshooting", "HDMI-Fehlerbehebung", "استكشاف أخطاء HDMI وإصلاحها"),
                                  Say("Signal information", "Signalinformationen", "معلومات الإشارة"),
                                  Say("Smart hub connection test", "Smart-Hub-Verbindungstest", "اختبار الاتصال"),
                                  Say("Reset", "Zurücksetzen", "إعادة الضبط")};
    for (const std::string& label : labels) cards.push_back({GALLERY_ICON, label, cards.size() != 4});
    elm_flux_grid_cards_set(m_grid, cards);
    elm_flux_layout_pack(column, m_grid);
    m_box = elm_flux_check_add(column);
    elm_object_text_set(m_box, Say("Select all", "Alle auswählen", "تحديد الكل").c_str());
    elm_check_state_set(m_box, true);
    elm_flux_layout_pack(column, m_box);
    Evas_Object* bar = elm_flux_progress_add(column, FLUX_PROGRESS_TWO_PART);
    elm_flux_size_set(bar, 126, 0);
    elm_object_part_text_set(bar, "text3", "5.4 GB");
    elm_object_part_text_set(bar, "text4", "2.6(32%)");
    elm_flux_progress_unit_set(bar, "%.0f%%");
    elm_flux_progress_value_set(bar, 0.68);
    elm_flux_layout_pack(column, bar);
  }

  void ShowPopup() const {
    Evas_Object* popup = elm_flux_popup_add(m_window);
    elm_flux_popup_title_set(popup, Say("Network", "Netzwerk", "الشبكة"));
    std::string text = Say("The set has no connection to the network. Check the cable, then open the settings.",
                           "Das Gerät ist nicht mit dem Netzwerk verbunden. Prüfen Sie das Kabel und öffnen Sie "
                           "danach die Einstellungen.",
                           "الجهاز غير متصل بالشبكة. تحقق من الكبل ثم افتح الإعدادات.");
    for (int i = 0; m_options.isLong && i < 4; ++i) text += "\n" + text;
    elm_flux_popup_text_set(popup, text);
    elm_flux_popup_button_add(popup, Say("Clear cache", "Zwischenspeicher leeren", "مسح ذاكرة التخزين المؤقت"));
    elm_flux_popup_button_add(popup, Say("Clear data", "Anwendungsdaten löschen", "مسح البيانات"));
    elm_flux_popup_button_add(popup, Say("Close", "Schließen", "إغلاق"));
  }

  Evas_Object* m_window;
  Options m_options;
  Evas_Object* m_list = nullptr;
  Evas_Object* m_checks = nullptr;
  Evas_Object* m_grid = nullptr;
  Evas_Object* m_box = nullptr;
};

void TakeOver(const Options& options) {
  flux::SetHighContrast(options.contrast);
  elm_config_mirrored_set(options.arabic);
  elm_config_scale_set(options.enlarged ? FLUX_SCALE_ENLARGED : FLUX_SCALE_NORMAL);
}

int SavePicture(const Options& options) {
  UiHarness harness(options.width, options.height);
  TakeOver(options);
  const Page page(harness.Window(), options);
  harness.Settle();
  std::istringstream keys(options.keys);
  for (std::string key; std::getline(keys, key, ',');) harness.Key(key.c_str());
  harness.PumpUntil([] { return false; }, 0.6);  // until what moves has come to rest
  return harness.SavePicture(options.picture) ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
  const Options options = OptionsOf(argc, argv);
  if (!options.picture.empty()) return SavePicture(options);
  app_framework::ToolkitEnvironment environment;
  app_framework::Toolkit toolkit(argc, argv);
  if (!toolkit) return 1;
  Evas_Object* window = elm_win_util_standard_add("flux_gallery_lists", "flux_gallery_lists");
  elm_win_fullscreen_set(window, EINA_TRUE);
  elm_win_autodel_set(window, EINA_TRUE);
  elm_flux_init(window);
  TakeOver(options);
  const Page page(window, options);
  evas_object_show(window);
  elm_run();
  return 0;
}
