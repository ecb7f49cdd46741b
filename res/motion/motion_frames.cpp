// Draws the motion frames of the application's screens: motion_frames FOLDER makes FOLDER/Motion for screens of 1080
// lines and FOLDER/uhd/Motion for larger ones. What the pictures are for, and how to replace them: docs/resources.md.
//
// All is drawn in the coordinates of a picture of 320 x 320 with the origin in its middle.

#include <cairo.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <functional>
#include <future>
#include <iterator>
#include <memory>
#include <numbers>
#include <optional>
#include <string>
#include <vector>

namespace {

constexpr int kFrames = 60;
constexpr double kCanvas = 320;
constexpr double kRingRadius = 122;
constexpr double kRingWidth = 21;
constexpr double kBoldRingWidth = 30;  // in high contrast
constexpr double kTurn = 2 * std::numbers::pi;

template <auto Release>
struct CairoRelease {
  template <typename T>
  void operator()(T* handle) const {
    Release(handle);
  }
};
using Surface = std::unique_ptr<cairo_surface_t, CairoRelease<&cairo_surface_destroy>>;
using Context = std::unique_ptr<cairo_t, CairoRelease<&cairo_destroy>>;
using Pattern = std::unique_ptr<cairo_pattern_t, CairoRelease<&cairo_pattern_destroy>>;

struct Color {
  double red, green, blue;
};
constexpr Color kAccent{137 / 255.0, 228 / 255.0, 19 / 255.0};
constexpr Color kTeal{38 / 255.0, 178 / 255.0, 165 / 255.0};
constexpr Color kSky{92 / 255.0, 200 / 255.0, 250 / 255.0};
constexpr Color kDeepTeal{30 / 255.0, 140 / 255.0, 170 / 255.0};
constexpr Color kAmber{255 / 255.0, 182 / 255.0, 46 / 255.0};
constexpr Color kRed{244 / 255.0, 73 / 255.0, 66 / 255.0};
constexpr Color kWhite{1, 1, 1};
constexpr Color kBlack{0, 0, 0};
constexpr Color kYellowGreen{206 / 255.0, 255 / 255.0, 0};

Color Mix(const Color& from, const Color& to, double part) {
  const auto mix = [part](double a, double b) { return a + (b - a) * part; };
  return {mix(from.red, to.red), mix(from.green, to.green), mix(from.blue, to.blue)};
}

void SetColor(cairo_t* cr, const Color& color, double alpha = 1) {
  cairo_set_source_rgba(cr, color.red, color.green, color.blue, alpha);
}

// ---- time

/// How far a step that lasts from `begin` to `end` has come at `time`: 0 to 1.
double Step(double time, double begin, double end) {
  return std::clamp((time - begin) / (end - begin), 0.0, 1.0);
}
double EaseInOut(double part) {
  return part * part * (3 - 2 * part);
}
double EaseOut(double part) {
  return 1 - std::pow(1 - part, 3);
}
/// Rises once and falls back to 0, slower.
double Swell(double part) {
  return std::sin(std::numbers::pi * std::sqrt(part));
}

// ---- surfaces

Surface MakeSurface(int pixels) {
  return Surface(cairo_image_surface_create(CAIRO_FORMAT_ARGB32, pixels, pixels));
}

/// A context on `surface` in our coordinates.
Context MakeContext(const Surface& surface) {
  Context context(cairo_create(surface.get()));
  const double scale = cairo_image_surface_get_width(surface.get()) / kCanvas;
  cairo_scale(context.get(), scale, scale);
  cairo_translate(context.get(), kCanvas / 2, kCanvas / 2);
  cairo_set_line_cap(context.get(), CAIRO_LINE_CAP_ROUND);
  cairo_set_line_join(context.get(), CAIRO_LINE_JOIN_ROUND);
  return context;
}

/// Makes `surface` the source, over the whole picture.
void SetSource(cairo_t* cr, const Surface& surface) {
  const Pattern pattern(cairo_pattern_create_for_surface(surface.get()));
  const double scale = cairo_image_surface_get_width(surface.get()) / kCanvas;
  cairo_matrix_t matrix;
  cairo_matrix_init_scale(&matrix, scale, scale);
  cairo_matrix_translate(&matrix, kCanvas / 2, kCanvas / 2);
  cairo_pattern_set_matrix(pattern.get(), &matrix);
  cairo_pattern_set_filter(pattern.get(), CAIRO_FILTER_BILINEAR);
  cairo_set_source(cr, pattern.get());
}

/// Averages each byte with those `radius` before and after it on its line; `step` is from one pixel to the next.
void BlurLine(uint8_t* line, int pixels, int step, int radius) {
  std::vector<uint8_t> before(pixels);
  for (int i = 0; i < pixels; ++i) before[i] = line[i * step];
  const auto at = [&](int i) { return i < 0 || i >= pixels ? 0 : int{before[i]}; };
  int sum = 0;
  for (int i = -radius; i < radius; ++i) sum += at(i);
  for (int i = 0; i < pixels; ++i) {
    sum += at(i + radius);
    line[i * step] = static_cast<uint8_t>(sum / (2 * radius + 1));
    sum -= at(i - radius);
  }
}

/// Three averages in both directions, which is nearly a Gaussian blur.
void Blur(const Surface& surface, int radius) {
  cairo_surface_flush(surface.get());
  uint8_t* const data = cairo_image_surface_get_data(surface.get());
  const int pixels = cairo_image_surface_get_width(surface.get());
  const int stride = cairo_image_surface_get_stride(surface.get());
  for (int pass = 0; pass < 3; ++pass)
    for (int line = 0; line < pixels; ++line)
      for (int channel = 0; channel < 4; ++channel) {
        BlurLine(data + line * stride + channel, pixels, 4, radius);
        BlurLine(data + line * 4 + channel, pixels, stride, radius);
      }
  cairo_surface_mark_dirty(surface.get());
}

/// Paints what `draw` draws as a soft shine.
void PaintGlow(cairo_t* cr, double strength, const std::function<void(cairo_t*)>& draw) {
  constexpr int kPixels = 160;
  const Surface small = MakeSurface(kPixels);
  draw(MakeContext(small).get());
  Blur(small, 3);
  SetSource(cr, small);
  cairo_paint_with_alpha(cr, strength);
}

/// A picture of `pixels` whose colour goes round the middle, from `first` at the top to `second` at the bottom and
/// back, so that a full ring has no seam.
Surface MakeSweep(int pixels, const Color& first, const Color& second) {
  Surface surface = MakeSurface(pixels);
  uint8_t* const data = cairo_image_surface_get_data(surface.get());
  const int stride = cairo_image_surface_get_stride(surface.get());
  for (int y = 0; y < pixels; ++y) {
    auto* const line = reinterpret_cast<uint32_t*>(data + y * stride);
    for (int x = 0; x < pixels; ++x) {
      const double angle = std::atan2(x + 0.5 - pixels / 2.0, pixels / 2.0 - y - 0.5);
      const Color color = Mix(first, second, 0.5 - 0.5 * std::cos(angle));
      const auto byte = [](double part) { return static_cast<uint32_t>(std::lround(part * 255)); };
      line[x] = 0xFF000000U | byte(color.red) << 16 | byte(color.green) << 8 | byte(color.blue);
    }
  }
  cairo_surface_mark_dirty(surface.get());
  return surface;
}

// ---- shapes

struct Point {
  double x, y;
};
using Line = std::vector<Point>;

const Line kCheckMarkLine = {{-50, 3}, {-15, 38}, {52, -36}};
const Line kStem = {{0, -58}, {0, 16}};
constexpr Point kDot{0, 54};

Line MakeWave() {
  Line wave;
  for (int i = 0; i <= 96; ++i) {
    const double part = i / 96.0;
    wave.push_back({-60 + 120 * part, -25 * std::sin(kTurn * part)});
  }
  return wave;
}
const Line kWaveLine = MakeWave();

/// Draws the first `part` of a line, by its length.
void StrokeLine(cairo_t* cr, const Line& line, double part, double width) {
  if (part <= 0) return;
  double length = 0;
  for (size_t i = 1; i < line.size(); ++i) length += std::hypot(line[i].x - line[i - 1].x, line[i].y - line[i - 1].y);
  double left = length * part;
  cairo_move_to(cr, line[0].x, line[0].y);
  for (size_t i = 1; i < line.size() && left > 0; ++i) {
    const double x = line[i].x - line[i - 1].x;
    const double y = line[i].y - line[i - 1].y;
    const double portion = std::min(1.0, left / std::hypot(x, y));
    cairo_line_to(cr, line[i - 1].x + x * portion, line[i - 1].y + y * portion);
    left -= std::hypot(x, y);
  }
  cairo_set_line_width(cr, width);
  cairo_stroke(cr);
}

void FillCircle(cairo_t* cr, const Point& center, double radius) {
  if (radius <= 0) return;
  cairo_arc(cr, center.x, center.y, radius, 0, kTurn);
  cairo_fill(cr);
}

/// The first `part` of the ring, clockwise from the top.
void StrokeRing(cairo_t* cr, double part, double width) {
  if (part <= 0) return;
  cairo_new_path(cr);
  cairo_arc(cr, 0, 0, kRingRadius, -kTurn / 4, -kTurn / 4 + kTurn * part);
  if (part >= 1) cairo_close_path(cr);
  cairo_set_line_width(cr, width);
  cairo_stroke(cr);
}

// ---- pictures

enum class Symbol { kNone, kCheckMark, kWave, kExclamation };

/// Draws the first `part` of a symbol, in the colour that is set.
void DrawSymbol(cairo_t* cr, Symbol symbol, double part, double width) {
  switch (symbol) {
    case Symbol::kNone:
      break;
    case Symbol::kCheckMark:
      StrokeLine(cr, kCheckMarkLine, part, width);
      break;
    case Symbol::kWave:
      StrokeLine(cr, kWaveLine, part, width * 0.9);
      break;
    case Symbol::kExclamation:
      StrokeLine(cr, kStem, Step(part, 0, 0.7), width);
      FillCircle(cr, kDot, width * 0.58 * EaseOut(Step(part, 0.7, 1)));
      break;
  }
}

/// One moment of a picture.
struct Moment {
  double ring = 0;    ///< how much of the ring is there
  double symbol = 0;  ///< how much of the symbol
  double swell = 0;   ///< how far the symbol and the shine have risen above their rest
  double head = 0;    ///< how bright the ring's end shines
};

struct Style {
  Color first, second;  ///< of the ring
  Color symbolColor;
  Symbol symbol;
  bool highContrast = false;
  bool filled = false;  ///< in high contrast: the ring fills, and the symbol is cut out of it
};

/// A picture that moves, in one size.
class Picture {
 public:
  Picture(const Style& style, int pixels) : m_style(style), m_sweep(MakeSweep(pixels, style.first, style.second)) {}

  void Draw(cairo_t* cr, const Moment& moment) const {
    if (m_style.highContrast)
      DrawHighContrast(cr, moment);
    else
      DrawShining(cr, moment);
  }

 private:
  void DrawShining(cairo_t* cr, const Moment& moment) const {
    DrawGround(cr);
    PaintGlow(cr, 0.55 + 0.35 * moment.swell, [&](cairo_t* small) {
      SetSource(small, m_sweep);
      StrokeRing(small, moment.ring, kRingWidth + 4);
    });
    SetSource(cr, m_sweep);
    StrokeRing(cr, moment.ring, kRingWidth);
    DrawHead(cr, moment);
    if (m_style.symbol == Symbol::kNone) return;

    constexpr double kWidth = 20;
    // Where the symbol will be.
    cairo_push_group(cr);
    SetColor(cr, m_style.symbolColor);
    DrawSymbol(cr, m_style.symbol, 1, kWidth);
    cairo_pop_group_to_source(cr);
    cairo_paint_with_alpha(cr, 0.14);

    const double size = 1 + 0.07 * moment.swell;
    cairo_save(cr);
    cairo_scale(cr, size, size);
    PaintGlow(cr, 0.35 + 0.4 * moment.swell, [&](cairo_t* small) {
      SetColor(small, m_style.first);
      DrawSymbol(small, m_style.symbol, moment.symbol, kWidth + 4);
    });
    SetColor(cr, m_style.symbolColor);
    DrawSymbol(cr, m_style.symbol, moment.symbol, kWidth);
    cairo_restore(cr);
  }

  /// The disc and the ring's track.
  void DrawGround(cairo_t* cr) const {
    SetColor(cr, Mix(m_style.second, kBlack, 0.7), 0.3);
    FillCircle(cr, {0, 0}, kRingRadius - kRingWidth / 2);
    cairo_set_source_rgba(cr, 0.56, 0.68, 0.74, 0.17);
    StrokeRing(cr, 1, kRingWidth);
  }

  /// A light spot where the ring ends.
  void DrawHead(cairo_t* cr, const Moment& moment) const {
    if (moment.head <= 0) return;
    const double angle = -kTurn / 4 + kTurn * moment.ring;
    const Point at{kRingRadius * std::cos(angle), kRingRadius * std::sin(angle)};
    const double radius = kRingWidth * 0.8;
    const Pattern light(cairo_pattern_create_radial(at.x, at.y, 0, at.x, at.y, radius));
    cairo_pattern_add_color_stop_rgba(light.get(), 0, 1, 1, 1, 0.95 * moment.head);
    cairo_pattern_add_color_stop_rgba(light.get(), 0.35, 1, 1, 1, 0.6 * moment.head);
    cairo_pattern_add_color_stop_rgba(light.get(), 1, 1, 1, 1, 0);
    cairo_set_source(cr, light.get());
    FillCircle(cr, at, radius);
  }

  void DrawHighContrast(cairo_t* cr, const Moment& moment) const {
    constexpr double kWidth = 26;
    constexpr double kThin = 4;
    SetColor(cr, kBlack);
    FillCircle(cr, {0, 0}, kRingRadius + kBoldRingWidth / 2 + kThin);
    SetColor(cr, kWhite);
    StrokeRing(cr, 1, kThin);
    DrawSymbol(cr, m_style.symbol, 1, kThin * 1.5);
    SetColor(cr, m_style.first);
    StrokeRing(cr, moment.ring, kBoldRingWidth);
    if (m_style.filled) FillCircle(cr, {0, 0}, kRingRadius * EaseInOut(Step(moment.symbol, 0, 0.5)));
    SetColor(cr, m_style.symbolColor);
    DrawSymbol(cr, m_style.symbol, m_style.filled ? Step(moment.symbol, 0.4, 1) : moment.symbol, kWidth);
  }

  const Style m_style;
  const Surface m_sweep;
};

/// The ring fills as the percentage does that is written in it.
Moment ProgressAt(int frame) {
  const double part = (frame + 1.0) / kFrames;
  return {.ring = part, .head = 1 - EaseInOut(Step(part, 0.9, 1))};
}

/// The ring closes, the symbol draws itself, swells a little and comes to rest.
Moment StateAt(int frame) {
  const double time = frame / (kFrames - 1.0);
  const double ring = EaseInOut(Step(time, 0, 0.5));
  return {.ring = ring,
          .symbol = EaseInOut(Step(time, 0.4, 0.76)),
          .swell = Swell(Step(time, 0.7, 1)),
          .head = ring > 0 ? 1 - EaseInOut(Step(ring, 0.85, 1)) : 0};
}

/// A set of frames: FOLDER/PREFIXn.png, n from 0 to 59.
struct Set {
  const char* folder;
  const char* prefix;
  int pixels;  ///< as large as it is shown on 1080 lines
  Style style;
  Moment (*momentAt)(int frame);
};

constexpr int kProgressPixels = 320;
constexpr int kSmallProgressPixels = 128;
constexpr int kStatePixels = 288;

constexpr Style kProgress{kAccent, kTeal, kWhite, Symbol::kNone};
constexpr Style kHighContrastProgress{kYellowGreen, kYellowGreen, kWhite, Symbol::kNone, true};

// The names are contracts with the screens, their oddities included: capitals in one set, a blank in another.
const Set kSets[] = {
    {"vexilo_progress", "vexilo_progress_", kProgressPixels, kProgress, ProgressAt},
    {"vexilo_progress/small", "vexilo_progress_", kSmallProgressPixels, kProgress, ProgressAt},
    {"vexilo_good", "vexilo_good_", kStatePixels, {kAccent, kTeal, {0.87, 1, 0.70}, Symbol::kCheckMark}, StateAt},
    {"vexilo_bad", "vexilo_bad_", kStatePixels, {kAmber, kRed, {1, 0.86, 0.62}, Symbol::kExclamation}, StateAt},
    {"Vexilo_normal", "Vexilo_normal_", kStatePixels, {kSky, kDeepTeal, {0.80, 0.95, 1}, Symbol::kWave}, StateAt},
    {"vexilo_highcontrast_progress", "vexilo_highcontrast_progress_", kProgressPixels, kHighContrastProgress,
     ProgressAt},
    {"vexilo_highcontrast_progress/small", "vexilo_highcontrast_progress_", kSmallProgressPixels, kHighContrastProgress,
     ProgressAt},
    {"vexilo_highcontrast_good",
     "vexilo_highcontrast_good _",
     kStatePixels,
     {kYellowGreen, kYellowGreen, kWhite, Symbol::kCheckMark, true},
     StateAt},
    {"vexilo_highcontrast_bad",
     "vexilo_highcontrast_bad_",
     kStatePixels,
     {kYellowGreen, kYellowGreen, kBlack, Symbol::kExclamation, true, true},
     StateAt},
    {"vexilo_highcontrast_normal",
     "Vexilo_highcontrast_normal_",
     kStatePixels,
     {kWhite, kWhite, kWhite, Symbol::kWave, true},
     StateAt},
};

/// The file that could not be written, if any.
std::optional<std::string> WriteSet(const Set& set, const std::filesystem::path& motion, int pixels) {
  const std::filesystem::path folder = motion / set.folder;
  std::filesystem::create_directories(folder);
  const Picture picture(set.style, pixels);
  for (int frame = 0; frame < kFrames; ++frame) {
    const Surface surface = MakeSurface(pixels);
    picture.Draw(MakeContext(surface).get(), set.momentAt(frame));
    const std::string file = folder / (set.prefix + std::to_string(frame) + ".png");
    const cairo_status_t status = cairo_surface_write_to_png(surface.get(), file.c_str());
    if (status != CAIRO_STATUS_SUCCESS) return file + ": " + cairo_status_to_string(status);
  }
  return std::nullopt;
}

/// Every second set, in both editions; false, after a message, when one could not be written.
bool WriteHalf(size_t half, const std::filesystem::path& folder) {
  for (size_t i = half; i < std::size(kSets); i += 2)
    for (const auto& [edition, scale] : {std::pair{"Motion", 1}, std::pair{"uhd/Motion", 2}})
      if (const auto failure = WriteSet(kSets[i], folder / edition, kSets[i].pixels * scale)) {
        std::fprintf(stderr, "motion_frames: %s\n", failure->c_str());
        return false;
      }
  return true;
}

}  // namespace

int main(int argc, char** argv) try {
  if (argc != 2) {
    std::fprintf(stderr, "usage: motion_frames FOLDER\n");
    return 2;
  }
  const std::filesystem::path folder = argv[1];
  std::vector<std::future<bool>> halves;
  for (const size_t half : {0, 1}) halves.push_back(std::async(std::launch::async, WriteHalf, half, folder));
  return std::ranges::count_if(halves, [](auto& each) { return !each.get(); }) > 0 ? 1 : 0;
} catch (const std::filesystem::filesystem_error& error) {
  std::fprintf(stderr, "motion_frames: %s\n", error.what());
  return 1;
}
