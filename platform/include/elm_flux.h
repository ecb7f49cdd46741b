#pragma once
/// @file
/// The set's widget set: what every application's screens are made of, on Elementary. One look for the whole set, in
/// which text size, high contrast, right-to-left order and the screen reader work without the application's doing.
///
/// Sizes are in layout units. A screen is 240 x 135 units, whatever its pixels; on one of another shape the units fit
/// the smaller side. Widgets are Evas objects: shown when made, owned by the layout they are packed into (or by
/// `parent` until then), deleted with it or with evas_object_del(). A hidden one takes no room.
///
/// Texts are UTF-8 and are set with elm_object_text_set(), or elm_object_part_text_set() where a widget names parts;
/// they are plain texts, without markup. elm_object_disabled_set(), elm_object_focus_set(), evas_object_hide() and
/// _show() do what they always do. Widgets that take the focus show it by themselves and call "focused", "unfocused"
/// and "clicked" (evas_object_smart_callback_add()); they speak when they get it while the screen reader is on.
///
/// Every function that makes a widget returns null when the toolkit cannot make it. Thread rule: main loop thread, but
/// for elm_flux_access_say().

#include <Elementary.h>

#include <functional>
#include <string>
#include <vector>

// ---- the set as a whole

/// Prepares the widget set for `window`: loads the theme (a line in the log and Elementary's own look where it cannot
/// be loaded), gives it the whole screen, follows its size, its visibility (the application is paused and resumed with
/// it), its closing (which ends the main loop), and the set's high-contrast, enlarge and screen-reader settings. Again
/// for another window once the first is deleted; false for null and for a second one before.
bool elm_flux_init(Evas_Object* window);
/// Whether the widget set turns the window itself when the set is hung upright. On until switched off.
void elm_flux_rotation_handling_set(Evas_Object* window, bool enabled);
/// The grid that a new window shows behind its content.
void elm_flux_background_grid_hide(Evas_Object* window);

/// Ecore events, without data: the user's high-contrast, enlarge or screen-reader setting has changed. The widgets have
/// changed already or will with the next elm_config_scale_set(); the one that has the focus is spoken after the event.
extern int FLUX_EVENT_HIGH_CONTRAST_CHANGED;
extern int FLUX_EVENT_ENLARGE_CHANGED;
extern int FLUX_EVENT_SCREEN_READER_CHANGED;

/// The scale (elm_config_scale_set()) at which texts have their plain size.
inline constexpr double FLUX_SCALE_NORMAL = 2.0;
inline constexpr double FLUX_SCALE_ENLARGED = 2.4;

/// Pixels of so many units at present, and units of so many pixels.
int elm_flux_unit_to_px(double units);
double elm_flux_px_to_unit(int pixels);

/// The last frames that were drawn late: how often, since the start, a frame of an image box was replaced before it was
/// drawn. For measuring.
unsigned int elm_flux_missed_frames();

/// Whether the press that is being handled comes from a key that is held down. Widgets are not clicked by those.
bool elm_flux_key_is_repeated();

// ---- layouts

/// How a layout lays out what is packed into it.
enum FluxLayoutType {
  FLUX_LAYOUT_VERTICAL = 1,    ///< below one another
  FLUX_LAYOUT_HORIZONTAL = 2,  ///< beside one another, from the side where reading begins
  FLUX_LAYOUT_STACK = 3,       ///< on top of one another, the last one topmost
};

/// Where in a free area something goes. Left and right change places in right-to-left order.
enum FluxAlign {
  FLUX_ALIGN_TOP_LEFT = 1,
  FLUX_ALIGN_TOP = 2,
  FLUX_ALIGN_TOP_RIGHT = 3,
  FLUX_ALIGN_LEFT = 4,
  FLUX_ALIGN_CENTER = 5,
  FLUX_ALIGN_RIGHT = 6,
  FLUX_ALIGN_BOTTOM_LEFT = 7,
  FLUX_ALIGN_BOTTOM = 8,
  FLUX_ALIGN_BOTTOM_RIGHT = 9,
};

Evas_Object* elm_flux_layout_add(Evas_Object* parent, FluxLayoutType type, FluxAlign align);
/// The root of a window fills it and stands still when the window turns.
void elm_flux_layout_root_set(Evas_Object* layout, bool root);
void elm_flux_layout_pack(Evas_Object* layout, Evas_Object* child);
/// Deletes every child.
void elm_flux_layout_clear(Evas_Object* layout);
void elm_flux_layout_padding_set(Evas_Object* layout, double left, double top, double right, double bottom);
/// The room between two children.
void elm_flux_layout_gap_set(Evas_Object* layout, double units);
/// Lays out at once what would be laid out before the next frame.
void elm_flux_layout_render(Evas_Object* layout);

/// The size of any widget; 0 for what its content needs.
void elm_flux_size_set(Evas_Object* widget, double width, double height);
void elm_flux_min_size_set(Evas_Object* widget, double width, double height);
/// Whether the widget takes what its layout has left, in the direction of the layout and across, but for a direction in
/// which it has a size. A text that does so needs no width of its own: it is broken or shortened to what there is.
void elm_flux_expand_set(Evas_Object* widget, bool expand);

// ---- surfaces

/// The application's background: the whole window, with the root layout as its content.
Evas_Object* elm_flux_bg_add(Evas_Object* window);
void elm_flux_bg_content_set(Evas_Object* bg, Evas_Object* root);
/// Zooms the background and what it holds about its centre by `zoom`, then turns it about its centre by `degrees`
/// clockwise (a multiple of 90), and keeps it so when the window moves or is resized.
void elm_flux_bg_transform(Evas_Object* bg, double zoom, int degrees);

enum FluxPlateType {
  FLUX_PLATE_PANEL = 0,   ///< a raised area
  FLUX_PLATE_SUNKEN = 1,  ///< an area within one
  FLUX_PLATE_LIGHT = 2,   ///< a light area for dark texts
  FLUX_PLATE_SIDE = 3,    ///< the panel beside a page's content ("CC_BG210")
};
enum FluxPlateState { FLUX_PLATE_NORMAL = 0, FLUX_PLATE_DIMMED = 1 };

/// An area with a colour of its own. It holds one child: elm_object_content_set().
Evas_Object* elm_flux_plate_add(Evas_Object* parent, FluxPlateType type, bool radius, FluxPlateState state);

enum FluxHeaderStyle { FLUX_HEADER_ONE_LINE = 0, FLUX_HEADER_TWO_LINES = 1 };

/// A title header, across its parent. It holds one child, the row of its texts: elm_object_content_set().
Evas_Object* elm_flux_header_add(Evas_Object* parent, FluxHeaderStyle style);
void elm_flux_header_plate_set(Evas_Object* header, bool enabled);

// ---- texts and images

/// Sizes of texts, from the largest to the smallest that is readable from three metres.
enum FluxTextSize {
  FLUX_TEXT_HERO = 1,      ///< 80 px of 1080
  FLUX_TEXT_DISPLAY = 2,   ///< 64
  FLUX_TEXT_TITLE = 3,     ///< 54
  FLUX_TEXT_SUBTITLE = 5,  ///< 44
  FLUX_TEXT_LARGE = 7,     ///< 40
  FLUX_TEXT_BODY = 9,      ///< 36
  FLUX_TEXT_ROW = 11,      ///< 34
  FLUX_TEXT_DETAIL = 13,   ///< 30
  FLUX_TEXT_SMALL = 15,    ///< 26
};

/// The families of the set; the number is the weight.
inline constexpr char FLUX_FONT_400[] = "TorneloPlume_400";
inline constexpr char FLUX_FONT_600[] = "TorneloPlume_600";
inline constexpr char FLUX_FONT_700[] = "TorneloPlume_700";

/// One line, ended by an ellipsis where it is too long; in `align` of its size. Texts mirror: left is where reading
/// begins.
Evas_Object* elm_flux_text_add(Evas_Object* parent);
void elm_flux_text_font_set(Evas_Object* text, const char* family);
/// "#RRGGBB" or "#RRGGBBAA". The widget set keeps it readable: a dark colour anywhere but on a light plate, or a light
/// one on it, is drawn in the surface's own text colour, as transparent as it was. In high contrast all texts are
/// white, or black on a light plate, and none is transparent; the accent stays.
void elm_flux_text_color_set(Evas_Object* text, const char* color);
void elm_flux_text_size_set(Evas_Object* text, FluxTextSize size);
void elm_flux_text_align_set(Evas_Object* text, FluxAlign align);
/// Lets it have so many lines, broken between words; 1 for no break, 0 for as many as its height holds.
void elm_flux_text_lines_set(Evas_Object* text, int lines);

/// Shows an image file, as large as it fits its size, never distorted.
Evas_Object* elm_flux_image_add(Evas_Object* parent);
/// False, with a line in the log for the first time of each file, when it cannot be shown; the box then stays as it
/// was.
bool elm_flux_image_file_set(Evas_Object* image, const std::string& file);
/// Draws the file in one colour, by its shape. Empty for its own colours.
void elm_flux_image_tint_set(Evas_Object* image, const char* color);
/// Whether its file is on the screen by now; true for what cannot be seen at all.
bool elm_flux_image_is_shown(const Evas_Object* image);

// ---- what takes the focus

enum FluxButtonStyle {
  FLUX_BUTTON_PLAIN = 0,   ///< text alone
  FLUX_BUTTON_ACCENT = 1,  ///< the one that a screen proposes
  FLUX_BUTTON_TILE = 2,    ///< an icon above a text
  FLUX_BUTTON_CHECK = 3,   ///< a check box before a text
};

/// "clicked". Its text is shrunk, then broken, then ended by an ellipsis where it is too long.
Evas_Object* elm_flux_button_add(Evas_Object* parent, FluxButtonStyle style);
void elm_flux_button_icon_set(Evas_Object* button, const std::string& file);

/// The mark of a FLUX_BUTTON_CHECK. It is set by the application, on "clicked".
void elm_flux_button_check_set(Evas_Object* button, bool checked);
bool elm_flux_button_check_get(const Evas_Object* button);

/// What the screen reader says of a widget: by default its text. `info` is called on every focus and is
/// kept by the widget.
void elm_flux_access_info_set(Evas_Object* widget, std::function<std::string()> info);
/// Announces: speaks after what was announced before; what widgets say on a focus waits for it. An empty text ends what
/// is spoken and drops what waits. Silent, with a line in the log, where the machine has no speech. Any thread. Says
/// nothing while elm_config_access_get() is off.
void elm_flux_access_say(const char* text);

// ---- progress

enum FluxProgressStyle {
  FLUX_PROGRESS_BAR = 0,
  FLUX_PROGRESS_TWO_PART = 1,  ///< a bar with a text for each side: parts "text3" (left) and "text4" (right). It does
                               ///< not mirror: whoever mirrors inverts it and changes the texts
  FLUX_PROGRESS_CIRCLE = 5,    ///< runs round, for what has no end that is known
};

Evas_Object* elm_flux_progress_add(Evas_Object* parent, FluxProgressStyle style);
/// 0.0 to 1.0. `unit` formats the percentage, as "%.0f%%"; null for none.
void elm_flux_progress_value_set(Evas_Object* progress, double value);
void elm_flux_progress_unit_set(Evas_Object* progress, const char* unit);
void elm_flux_progress_inverted_set(Evas_Object* progress, bool inverted);
void elm_flux_progress_pulse(Evas_Object* progress, bool run);
/// The colour of the part that is done: "#RRGGBB".
void elm_flux_progress_color_set(Evas_Object* progress, const char* color);

// ---- lists and grids

/// What a list asks for when it draws a row: the text of a part of row `index`, "" for none.
using FluxTextOf = std::function<std::string(int index, const std::string& part)>;

/// The style of a row of one line: "MainText" where reading begins, "SubText1" at the other end.
inline constexpr char FLUX_ROW_SINGLE_LINE_03[] = "C_TextTile_SingleLine_03";
/// A row with an icon (part "icon", a file), "main.text", "sub.text1" and a check box.
inline constexpr char FLUX_ROW_CHECK[] = "C_IconCheckTile_TwoLine_01";

/// A list that scrolls with the focus, with a shadow where it goes on. Smart events, each with the row's number
/// (int*) as event information: "item,focused", "item,unfocused", "item,selected" (Enter or a click), "realized".
/// Whoever listens may delete the list, but not while a row is "realized". The images of the shadows are the theme's;
/// `top` and `bottom` replace them. Up in the first row and Down in the last leave the list; an empty one does not take
/// the focus. Rows are inset by 3 units on each side, in which the focused one glows.
Evas_Object* elm_flux_list_add(Evas_Object* parent, const char* rowStyle);
void elm_flux_list_text_set(Evas_Object* list, FluxTextOf textOf);
void elm_flux_list_shadows_set(Evas_Object* list, const std::string& top, const std::string& bottom);
/// Appends `count` rows.
void elm_flux_list_append(Evas_Object* list, int count);
/// Takes a row away; those after it move up by one, and the focus goes to the row that takes its place, or to the last.
void elm_flux_list_remove(Evas_Object* list, int index);
int elm_flux_list_count(const Evas_Object* list);
void elm_flux_list_focus_set(Evas_Object* list, int index);
/// The row with the focus, or that had it last; -1 for none.
int elm_flux_list_focus_get(const Evas_Object* list);
/// Asks for a row's texts again.
void elm_flux_list_update(Evas_Object* list, int index);
/// Whether rows show their check boxes. Rows are checked and unchecked by the application, on "item,selected".
void elm_flux_list_checks_show(Evas_Object* list, bool show);
void elm_flux_list_check_set(Evas_Object* list, int index, bool checked);
bool elm_flux_list_check_get(const Evas_Object* list, int index);

struct FluxCard {
  std::string icon;   ///< file
  std::string label;  ///< its text
  bool enabled = true;
};

/// A grid of cards, in rows of `columns`. A card that is not enabled looks so but takes the focus and clicks. Smart
/// events with the card's number (int*): "item,focused", "item,unfocused", "item,selected", and "item,moved" when it
/// got the focus from another by a key or the wheel; with the name of an arrow ("Left", const char*), before that:
/// "arrow" for the key that was pressed, "wheel" for the one that a turn of the wheel counts as. Cards share the grid's
/// size and are inset by 3 units on each side; a label has two lines. The focused card turns light and widens, in at
/// most 200 ms, at once while a key is held.
Evas_Object* elm_flux_grid_add(Evas_Object* parent, int columns);
void elm_flux_grid_cards_set(Evas_Object* grid, std::vector<FluxCard> cards);
void elm_flux_grid_focus_set(Evas_Object* grid, int index);

// ---- above a screen

/// The canvas layer (evas_object_layer_set()) of popups: what is made in it lies above the popups that are there, and
/// below those that are made later.
inline constexpr short FLUX_LAYER_POPUP = 1000;

/// A popup in the middle of its parent, with a title, a text of several lines and up to three buttons. The first
/// button has the focus when it is shown; the focus cannot leave it, and goes back to where it was when the popup is
/// deleted or hidden. One without a button that can be pressed takes the keys all the same. Up and Down scroll a text
/// that is too long for the screen. Its content can be replaced: elm_object_content_set(). elm_flux_size_set() is the
/// size of its panel. It covers its parent against clicks, does not dim what is behind it and does not close by itself.
Evas_Object* elm_flux_popup_add(Evas_Object* parent);
void elm_flux_popup_title_set(Evas_Object* popup, const std::string& title);
void elm_flux_popup_text_set(Evas_Object* popup, const std::string& text);
/// Returns the button; connect its "clicked". Null for a fourth.
Evas_Object* elm_flux_popup_button_add(Evas_Object* popup, const std::string& text);
void elm_flux_popup_focus_set(Evas_Object* popup, int button);

/// A short message in the header of the page that `parent` shows, above all else, speaking. Smart event "timeout" after
/// `seconds`; it stays until it is deleted. It does not take the focus.
Evas_Object* elm_flux_toast_add(Evas_Object* parent, const std::string& text, double seconds);
