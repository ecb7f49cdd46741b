#include "tones.h"

#include <algorithm>
#include <cmath>
#include <iterator>

#include "sound/playing.h"

namespace tools {

namespace {

constexpr double kLevel = 0.25;     // of full scale
constexpr double kFade = 0.01;      // seconds, at both ends
constexpr double kToneTime = 2.0;   // seconds
constexpr double kSweepTime = 6.0;  // seconds
constexpr double kBeat = 0.3;       // seconds
constexpr double kDecay = 3.0;      // a second, of a note

struct Note {
  int pitch;  // half tones from A of 440 Hz
  int beats;
};
constexpr Note kMelody[] = {{3, 1}, {7, 1},  {10, 1}, {15, 2}, {14, 1}, {10, 2},
                            {8, 1}, {12, 1}, {10, 1}, {7, 1},  {3, 3}};

double MelodyTime() {
  int beats = 0;
  for (const Note& note : kMelody) beats += note.beats;
  return beats * kBeat;
}

double LengthOf(Tone tone) {
  return tone == Tone::kSweep ? kSweepTime : tone == Tone::kMelody ? MelodyTime() : kToneTime;
}

double Sine(double hertz, double second) {
  return std::sin(2 * M_PI * hertz * second);
}

/// From the lowest to the highest pitch, as many octaves in each second.
double SweepAt(double second) {
  const double growth = std::log(kHighestHertz / kLowestHertz) / kSweepTime;
  return std::sin(2 * M_PI * kLowestHertz * std::expm1(growth * second) / growth);
}

/// A plucked note and its first overtones.
double MelodyAt(double second) {
  double begin = 0;
  for (const Note& note : kMelody) {
    const double length = note.beats * kBeat, since = second - begin;
    begin += length;
    if (since >= length) continue;
    const double hertz = 440 * std::exp2(note.pitch / 12.0);
    const double edge = std::clamp(std::min(since, length - since) / kFade, 0.0, 1.0);
    return edge * std::exp(-kDecay * since) *
           (Sine(hertz, since) + 0.4 * Sine(2 * hertz, since) + 0.2 * Sine(3 * hertz, since));
  }
  return 0;
}

struct Sides {
  double left, right;
};

Sides At(Tone tone, double second) {
  switch (tone) {
    case Tone::kLeft:
      return {Sine(kLeftHertz, second), 0};
    case Tone::kRight:
      return {0, Sine(kRightHertz, second)};
    case Tone::kBoth:
      return {Sine(kLeftHertz, second), Sine(kRightHertz, second)};
    case Tone::kSweep:
      return {SweepAt(second), SweepAt(second)};
    case Tone::kMelody:
      return {MelodyAt(second), MelodyAt(second)};
  }
  return {0, 0};
}

int16_t SampleOf(double value) {
  return static_cast<int16_t>(std::lround(std::clamp(value, -1.0, 1.0) * INT16_MAX));
}

}  // namespace

size_t ToneSource::Fill(int16_t* samples, size_t frames) {
  const double length = LengthOf(m_tone);
  const auto all = static_cast<size_t>(length * sound::kRate);
  frames = std::min(frames, all - m_at);
  for (size_t i = 0; i < frames; ++i, ++m_at) {
    const double second = static_cast<double>(m_at) / sound::kRate;
    const double edge = kLevel * std::clamp(std::min(second, length - second) / kFade, 0.0, 1.0);
    const Sides sides = At(m_tone, second);
    *samples++ = SampleOf(edge * sides.left);
    *samples++ = SampleOf(edge * sides.right);
  }
  return frames;
}

}  // namespace tools
