#include "patterns.h"

#include <algorithm>
#include <cmath>
#include <iterator>

#include "Texts.h"

namespace tools {

namespace {

using QUVA::GetText;

constexpr Colour kBlack = Grey(0), kWhite = Grey(255), kMiddle = Grey(128);
constexpr char kSpotsSid[] = "TV_SID_VEXILO_TEST_LOOK_SPOTS";

/// Where part `index` of `count` equal parts of `length` begins.
int Part(int length, int index, int count) {
  return static_cast<int>(static_cast<int64_t>(length) * index / count);
}

/// Pixels of so many of a screen of 1080 lines.
int Scaled(const Bitmap& picture, double pixels) {
  return std::max(
      1, static_cast<int>(std::lround(pixels * std::min(picture.Width() / 1920.0, picture.Height() / 1080.0))));
}

// ---- bars and steps

void PaintBars(Bitmap& picture) {
  constexpr Colour kBars[] = {kWhite,           Rgb(255, 255, 0), Rgb(0, 255, 255), Rgb(0, 255, 0),
                              Rgb(255, 0, 255), Rgb(255, 0, 0),   Rgb(0, 0, 255),   kBlack};
  constexpr int kCount = static_cast<int>(std::size(kBars));
  const int width = picture.Width(), height = picture.Height(), lower = height * 3 / 4;
  for (int i = 0; i < kCount; ++i) picture.Fill(Part(width, i, kCount), 0, Part(width, i + 1, kCount), lower, kBars[i]);
  // A ramp of each primary: steps in it are bands that a good picture does not have.
  for (int row = 0; row < 4; ++row) {
    const int top = lower + Part(height - lower, row, 4), bottom = lower + Part(height - lower, row + 1, 4);
    for (int x = 0; x < width; ++x) {
      const int level = static_cast<int>(std::lround(255.0 * x / std::max(1, width - 1)));
      picture.Fill(x, top, x + 1, bottom,
                   row == 0   ? Grey(level)
                   : row == 1 ? Rgb(level, 0, 0)
                   : row == 2 ? Rgb(0, level, 0)
                              : Rgb(0, 0, level));
    }
  }
}

constexpr int kMarkedPairs[] = {0, 1, kGreySteps - 3, kGreySteps - 2};  // the left step of each

void PaintGreys(Bitmap& picture) {
  const int width = picture.Width(), height = picture.Height();
  picture.Fill(Grey(48));
  const int top = height / 4, bottom = height * 3 / 4;
  for (int i = 0; i < kGreySteps; ++i)
    picture.Fill(Part(width, i, kGreySteps), top, Part(width, i + 1, kGreySteps), bottom,
                 Grey(255 * i / (kGreySteps - 1)));
  // A bracket from the middle of one step to the middle of the next; the first of two above, the second below.
  const int thick = Scaled(picture, 4), long_ = Scaled(picture, 24), gap = Scaled(picture, 12);
  for (size_t i = 0; i < std::size(kMarkedPairs); ++i) {
    const int left = Part(width, 2 * kMarkedPairs[i] + 1, 2 * kGreySteps);
    const int right = Part(width, 2 * kMarkedPairs[i] + 3, 2 * kGreySteps);
    const bool isAbove = i % 2 == 0;
    const int line = isAbove ? top - gap - long_ : bottom + gap + long_ - thick;
    picture.Fill(left, line, right, line + thick, kWhite);
    const int from = isAbove ? line : bottom + gap, to = isAbove ? top - gap : line + thick;
    picture.Fill(left, from, left + thick, to, kWhite);
    picture.Fill(right - thick, from, right, to, kWhite);
  }
}

std::vector<Label> GreyLabels() {
  constexpr const char* kNames[] = {"A", "B", "C", "D"};
  std::vector<Label> labels;
  for (size_t i = 0; i < std::size(kMarkedPairs); ++i)
    labels.push_back({(kMarkedPairs[i] + 1.0) / kGreySteps, i % 2 == 0 ? 0.18 : 0.82, kNames[i], 4.5, kWhite});
  return labels;
}

// ---- geometry

void PaintGeometry(Bitmap& picture) {
  const int width = picture.Width(), height = picture.Height(), line = Scaled(picture, 2);
  picture.Fill(Grey(24));
  // Squares, as many as fit, from the middle outwards.
  const int side = Scaled(picture, 120);
  for (int x = width / 2 % side; x < width; x += side) picture.Fill(x, 0, x + line, height, Grey(72));
  for (int y = height / 2 % side; y < height; y += side) picture.Fill(0, y, width, y + line, Grey(72));
  const int radius = std::min(width, height) * 38 / 100;
  picture.Circle(width / 2, height / 2, radius, Scaled(picture, 4), kWhite);
  for (const int side_ : {-1, 1})
    for (const int level : {-1, 1})
      picture.Circle(width / 2 + side_ * (width * 40 / 100), height / 2 + level * (height * 34 / 100), radius / 4,
                     Scaled(picture, 3), kMiddle);
  for (int percent = 0; percent <= kOverscanFrames; ++percent) {
    const int across = Part(width, percent, 100), down = Part(height, percent, 100);
    picture.Frame(across, down, width - across, height - down, line,
                  percent == 0  ? kWhite
                  : percent % 2 ? Rgb(0x89, 0xE4, 0x13)
                                : Rgb(255, 176, 32));
  }
}

/// The number of each frame stands on it, one frame after the other along each edge.
std::vector<Label> GeometryLabels() {
  std::vector<Label> labels;
  for (int percent = 1; percent <= kOverscanFrames; ++percent) {
    const std::string text = std::to_string(percent) + "%";
    const double share = percent / 100.0, along = 0.2 + 0.1 * percent;
    labels.push_back({along, share + 0.005, text, 3, kWhite});
    labels.push_back({along, 1 - share - 0.005, text, 3, kWhite});
    labels.push_back({share + 0.005, along, text, 3, kWhite});
    labels.push_back({1 - share - 0.005, along, text, 3, kWhite});
  }
  return labels;
}

// ---- sharpness and text

/// Black and white lines, `period` pixels each; across when they stand.
void Grating(Bitmap& picture, int left, int top, int right, int bottom, int period, bool stands) {
  for (int y = top; y < bottom; ++y)
    for (int x = left; x < right; ++x)
      picture.Set(x, y, ((stands ? x - left : y - top) / period) % 2 ? kWhite : kBlack);
}

void PaintSharpness(Bitmap& picture) {
  const int width = picture.Width(), height = picture.Height();
  picture.Fill(kMiddle);
  // Lines of one to four pixels of the panel, standing above and lying below; in the middle single pixels.
  constexpr int kPeriods = 4;
  const int gap = width / 50, cell = (width - (kPeriods + 1) * gap) / kPeriods, tall = height * 26 / 100;
  for (int i = 0; i < kPeriods; ++i) {
    const int left = gap + i * (cell + gap);
    Grating(picture, left, height * 12 / 100, left + cell, height * 12 / 100 + tall, i + 1, true);
    Grating(picture, left, height * 62 / 100, left + cell, height * 62 / 100 + tall, i + 1, false);
  }
  for (int y = height * 44 / 100; y < height * 56 / 100; ++y)
    for (int x = gap; x < width - gap; ++x) picture.Set(x, y, (x + y) % 2 ? kWhite : kBlack);
}

void PaintTextGround(Bitmap& picture) {
  picture.Fill(kWhite);
  picture.Fill(0, picture.Height() / 2, picture.Width(), picture.Height(), kBlack);
}

/// The sizes of the set's largest, usual and smallest texts.
std::vector<Label> TextLabels() {
  constexpr double kSizes[] = {6.75, 4.5, 3.25};
  const std::string text = GetText("TV_SID_VEXILO_TEST_SAMPLE");
  std::vector<Label> labels;
  for (size_t i = 0; i < std::size(kSizes); ++i) {
    const double y = 0.14 + 0.12 * static_cast<double>(i);
    labels.push_back({0.5, y, text, kSizes[i], kBlack});
    labels.push_back({0.5, 0.5 + y, text, kSizes[i], kWhite});
  }
  return labels;
}

// ---- a scene

double Smooth(double from, double to, double at) {
  const double share = std::clamp((at - from) / (to - from), 0.0, 1.0);
  return share * share * (3 - 2 * share);
}

/// The same for the same numbers everywhere, from 0 to 1.
double Noise(int x, int y) {
  uint32_t hash = static_cast<uint32_t>(x) * 374761393u + static_cast<uint32_t>(y) * 668265263u;
  hash = (hash ^ (hash >> 13)) * 1274126177u;
  return (hash >> 8) / 16777216.0;
}

double SmoothNoise(double x, double y) {
  const int left = static_cast<int>(std::floor(x)), top = static_cast<int>(std::floor(y));
  const double across = Smooth(0, 1, x - left), down = Smooth(0, 1, y - top);
  return std::lerp(std::lerp(Noise(left, top), Noise(left + 1, top), across),
                   std::lerp(Noise(left, top + 1), Noise(left + 1, top + 1), across), down);
}

struct Light {
  double red, green, blue;
};

Light Mix(const Light& one, const Light& other, double share) {
  return {std::lerp(one.red, other.red, share), std::lerp(one.green, other.green, share),
          std::lerp(one.blue, other.blue, share)};
}

Colour ColourOf(const Light& light) {
  const auto level = [](double value) { return static_cast<int>(std::lround(255 * std::clamp(value, 0.0, 1.0))); };
  return Rgb(level(light.red), level(light.green), level(light.blue));
}

constexpr Light kZenith{0.16, 0.38, 0.72}, kHorizon{0.98, 0.80, 0.58}, kSun{1.0, 0.96, 0.82};
constexpr double kShore = 0.62;  // share of the height

/// Height of the hills of a range above the shore at `x`; the farther the flatter.
double Hill(double x, int range) {
  return (0.10 + 0.05 * range) * SmoothNoise(x * (2.5 + range), 7.0 * range) + 0.03 * SmoothNoise(x * 14, 3.0 * range);
}

/// x and y are shares of the height; y goes down.
Light Sky(double x, double y, double aspect) {
  Light light = Mix(kZenith, kHorizon, Smooth(0.0, kShore, y));
  const double distance = std::hypot(x - 0.68 * aspect, y - 0.36);
  light = Mix(light, kSun, 0.85 * (1 - Smooth(0.0, 0.42, distance)));
  if (distance < 0.045) light = kSun;
  const double cloud = 0.6 * SmoothNoise(x * 3, y * 11) + 0.4 * SmoothNoise(x * 9, y * 27);
  return Mix(light, {1.0, 0.97, 0.94}, 0.55 * Smooth(0.52, 0.8, cloud) * (1 - Smooth(0.1, 0.5, y)));
}

Light Above(double x, double y, double aspect) {
  Light light = Sky(x, y, aspect);
  constexpr Light kRanges[] = {{0.55, 0.58, 0.70}, {0.32, 0.42, 0.47}, {0.13, 0.27, 0.17}};
  for (int range = 0; range < 3; ++range) {
    const double crest = kShore - 0.16 + 0.05 * range - Hill(x + 3.1 * range, range);
    if (y <= crest) continue;
    const double grain = 0.82 + 0.36 * SmoothNoise(x * 60 * (range + 1), y * 60 * (range + 1));
    light = {kRanges[range].red * grain, kRanges[range].green * grain, kRanges[range].blue * grain};
  }
  return light;
}

/// The water shows what is above it, drawn out and darker.
Light Water(double x, double y, double aspect) {
  const double depth = y - kShore;
  const double wave = 0.012 * (SmoothNoise(x * 18, depth * 260) - 0.5) * (1 + 6 * depth);
  Light light =
      Mix(Above(x + wave, std::max(0.0, kShore - depth * 1.25 + wave), aspect), {0.05, 0.16, 0.24}, 0.35 + depth);
  const double glint = SmoothNoise(x * 90, depth * 420);
  return Mix(light, kSun, 0.5 * Smooth(0.86, 0.98, glint) * (1 - Smooth(0.1, 0.5, std::abs(x - 0.68 * aspect))));
}

/// Balls in tones of skin and fruit, lit from the sun's side. False beside them.
bool Balls(double x, double y, double aspect, Light& light) {
  constexpr struct {
    double x, radius;
    Light tone;
  } kBalls[] = {{0.14, 0.075, {0.94, 0.76, 0.65}}, {0.25, 0.065, {0.72, 0.50, 0.37}},
                {0.35, 0.06, {0.36, 0.22, 0.15}},  {0.44, 0.05, {0.86, 0.16, 0.12}},
                {0.52, 0.05, {0.97, 0.62, 0.08}},  {0.59, 0.045, {0.50, 0.68, 0.14}}};
  for (const auto& ball : kBalls) {
    const double across = (x - ball.x * aspect) / ball.radius, down = (y - (0.93 - ball.radius)) / ball.radius;
    const double reach = across * across + down * down;
    if (reach >= 1) continue;
    const double front = std::sqrt(1 - reach);
    const double lit = std::clamp(0.55 * across - 0.5 * down + 0.65 * front, 0.0, 1.0);
    light = Mix({ball.tone.red * 0.22, ball.tone.green * 0.22, ball.tone.blue * 0.24}, ball.tone, 0.15 + 0.85 * lit);
    light = Mix(light, {1, 1, 1}, 0.8 * Smooth(0.93, 1.0, lit));
    return true;
  }
  return false;
}

void PaintScene(Bitmap& picture) {
  const double height = picture.Height(), aspect = picture.Width() / height;
  for (int row = 0; row < picture.Height(); ++row) {
    for (int column = 0; column < picture.Width(); ++column) {
      const double x = (column + 0.5) / height, y = (row + 0.5) / height;
      Light light;
      if (y <= 0.78 || !Balls(x, y, aspect, light)) light = y < kShore ? Above(x, y, aspect) : Water(x, y, aspect);
      picture.Set(column, row, ColourOf(light));
    }
  }
}

Pattern Plain(const char* nameSid, Colour colour) {
  return {nameSid, kSpotsSid, [colour](Bitmap& picture) { picture.Fill(colour); }};
}

// ---- modules

Colour GroundOf(int column, int row) {
  return (column + row) % 2 ? Grey(40) : Grey(88);
}

/// Calls `paint` with the edges of each module.
template <class Paint>
void EachModule(const Bitmap& picture, ModuleGrid grid, Paint paint) {
  for (int row = 0; row < grid.rows; ++row)
    for (int column = 0; column < grid.columns; ++column)
      paint(column, row, Part(picture.Width(), column, grid.columns), Part(picture.Height(), row, grid.rows),
            Part(picture.Width(), column + 1, grid.columns), Part(picture.Height(), row + 1, grid.rows));
}

void PaintNumbersGround(Bitmap& picture, ModuleGrid grid) {
  EachModule(picture, grid, [&](int column, int row, int left, int top, int right, int bottom) {
    picture.Fill(left, top, right, bottom, GroundOf(column, row));
    picture.Frame(left, top, right, bottom, Scaled(picture, 2), kWhite);
  });
}

std::vector<Label> ModuleNumbers(ModuleGrid grid) {
  std::vector<Label> labels;
  // Of a module's room, 135 / rows units in height and 240 / columns in width, where a digit is two thirds as wide as
  // it is high.
  const auto digits = static_cast<double>(std::to_string(grid.rows * grid.columns).size());
  const double size = std::min({20.0, 60.0 / grid.rows, 240.0 / grid.columns / (0.7 * digits)});
  for (int row = 0; row < grid.rows; ++row)
    for (int column = 0; column < grid.columns; ++column)
      labels.push_back({(column + 0.5) / grid.columns, (row + 0.5) / grid.rows,
                        std::to_string(row * grid.columns + column + 1), size, kWhite});
  return labels;
}

/// One grey all over: a seam that is seen is one. A pixel's line on each side of it, in the module's own colour, tells
/// whether a module is shifted.
void PaintSeams(Bitmap& picture, ModuleGrid grid) {
  picture.Fill(kMiddle);
  EachModule(picture, grid, [&](int column, int row, int left, int top, int right, int bottom) {
    const Colour colour = (column + row) % 2 ? Rgb(255, 176, 32) : Rgb(0x89, 0xE4, 0x13);
    picture.Frame(left, top, right, bottom, 1, colour);
  });
}

void PaintCrosses(Bitmap& picture, ModuleGrid grid) {
  const int line = Scaled(picture, 2);
  EachModule(picture, grid, [&](int, int, int left, int top, int right, int bottom) {
    const int acrossMiddle = (left + right - line) / 2, downMiddle = (top + bottom - line) / 2;
    picture.Fill(acrossMiddle, top, acrossMiddle + line, bottom, kWhite);
    picture.Fill(left, downMiddle, right, downMiddle + line, kWhite);
    // Where four modules meet, a ring goes on from one to the other.
    if (right < picture.Width() && bottom < picture.Height())
      picture.Circle(right, bottom, std::min(right - left, bottom - top) / 6, line, Rgb(255, 176, 32));
    picture.Circle((left + right) / 2, (top + bottom) / 2, std::min(right - left, bottom - top) / 3, line,
                   Rgb(0x89, 0xE4, 0x13));
  });
}

}  // namespace

std::vector<Pattern> PicturePatterns() {
  return {
      {"TV_SID_VEXILO_TEST_BARS", "TV_SID_VEXILO_TEST_LOOK_BARS", PaintBars},
      {"TV_SID_VEXILO_TEST_GREYS", "TV_SID_VEXILO_TEST_LOOK_GREYS", PaintGreys, GreyLabels},
      {"TV_SID_VEXILO_TEST_GEOMETRY", "TV_SID_VEXILO_TEST_LOOK_GEOMETRY", PaintGeometry, GeometryLabels},
      Plain("TV_SID_VEXILO_TEST_WHITE", kWhite),
      Plain("TV_SID_VEXILO_TEST_BLACK", kBlack),
      Plain("TV_SID_VEXILO_TEST_GREY", kMiddle),
      Plain("TV_SID_VEXILO_TEST_RED", Rgb(255, 0, 0)),
      Plain("TV_SID_VEXILO_TEST_GREEN", Rgb(0, 255, 0)),
      Plain("TV_SID_VEXILO_TEST_BLUE", Rgb(0, 0, 255)),
      {"TV_SID_VEXILO_TEST_SHARPNESS", "TV_SID_VEXILO_TEST_LOOK_SHARPNESS", PaintSharpness},
      {"TV_SID_VEXILO_TEST_TEXT", "TV_SID_VEXILO_TEST_LOOK_TEXT", PaintTextGround, TextLabels},
      {"TV_SID_VEXILO_TEST_SCENE", "TV_SID_VEXILO_TEST_LOOK_SCENE", PaintScene},
  };
}

std::vector<Pattern> ModulePatterns(ModuleGrid grid) {
  const auto of = [grid](void (*paint)(Bitmap&, ModuleGrid)) {
    return [grid, paint](Bitmap& picture) { paint(picture, grid); };
  };
  return {
      {"TV_SID_VEXILO_TEST_NUMBERS", "TV_SID_VEXILO_TEST_LOOK_NUMBERS", of(PaintNumbersGround),
       [grid] { return ModuleNumbers(grid); }},
      {"TV_SID_VEXILO_TEST_SEAMS", "TV_SID_VEXILO_TEST_LOOK_SEAMS", of(PaintSeams)},
      {"TV_SID_VEXILO_TEST_CROSSES", "TV_SID_VEXILO_TEST_LOOK_CROSSES", of(PaintCrosses)},
      Plain("TV_SID_VEXILO_TEST_WHITE", kWhite),
      Plain("TV_SID_VEXILO_TEST_GREY", kMiddle),
      Plain("TV_SID_VEXILO_TEST_RED", Rgb(255, 0, 0)),
      Plain("TV_SID_VEXILO_TEST_GREEN", Rgb(0, 255, 0)),
      Plain("TV_SID_VEXILO_TEST_BLUE", Rgb(0, 0, 255)),
      Plain("TV_SID_VEXILO_TEST_BLACK", kBlack),
  };
}

}  // namespace tools
