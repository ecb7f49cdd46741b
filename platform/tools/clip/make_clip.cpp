// make_clip FILE: makes the clip of the video test, of moving bars, a scrolling text, and flashes with a beep each, as
// Ogg with Theora and Vorbis. Part of the build.

#include <cairo.h>
#include <gst/app/gstappsrc.h>
#include <gst/gst.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "../video/gst_handle.h"
#include "clip.h"

namespace {

using namespace clip;

struct Yuv {
  uint8_t y, u, v;
};

constexpr Yuv kGround = {30, 128, 128};
constexpr Yuv kTrack = {48, 128, 128};
constexpr Yuv kWhite = {235, 128, 128};
constexpr Yuv kAccent = {180, 62, 84};
// The eight bars at 75 %, as ITU-R BT.601 has them.
constexpr Yuv kBars[] = {{180, 128, 128}, {162, 44, 142}, {131, 156, 44}, {112, 72, 58},
                         {84, 184, 198},  {65, 100, 212}, {35, 212, 114}, {16, 128, 128}};
constexpr int kBarCount = static_cast<int>(std::size(kBars));
constexpr int kBarWidth = kWidth / kBarCount;

// From the top, in lines.
constexpr int kBarsEnd = 300;
constexpr int kTrackTop = 340, kTrackEnd = 700;
constexpr int kTextTop = 736, kTextHeight = 96;
constexpr int kTextStep = 8;                         // pixels a frame
constexpr int kTextWidth = kFrames * kTextStep;      // round once in the clip
constexpr int kCounterLeft = 96, kCounterTop = 364;  // the frame's number
constexpr int kDigitWidth = 60, kDigitHeight = 96;
constexpr char kText[] = "VEXILO   0123456789   ABCDEFGHIJKLMNOPQRSTUVWXYZ   ";

constexpr int kRate = 48000;  // samples a second
constexpr int kChannels = 2;
constexpr double kBeepHertz = 1000, kBeepLevel = 0.4, kBeepFade = 0.005;  // of full scale; seconds

using Surface = std::unique_ptr<cairo_surface_t, CRelease<&cairo_surface_destroy>>;
using Context = std::unique_ptr<cairo_t, CRelease<&cairo_destroy>>;

[[noreturn]] void Fail(const std::string& what) {
  std::fprintf(stderr, "make_clip: %s\n", what.c_str());
  std::exit(EXIT_FAILURE);
}

// ---- the picture

/// How much of each pixel is letter, 0 to 255.
struct Letters {
  int width, height;
  std::vector<uint8_t> shares;
  uint8_t At(int x, int y) const {
    return shares[static_cast<size_t>(y) * static_cast<size_t>(width) + static_cast<size_t>(x)];
  }
};

/// The text in one line, again and again until the width is full.
Letters Write(const std::string& text, int width, int height, bool repeats) {
  const Surface surface(cairo_image_surface_create(CAIRO_FORMAT_A8, width, height));
  const Context context(cairo_create(surface.get()));
  cairo_select_font_face(context.get(), "sans-serif", CAIRO_FONT_SLANT_NORMAL, CAIRO_FONT_WEIGHT_BOLD);
  cairo_set_font_size(context.get(), height * 0.8);
  cairo_text_extents_t extents;
  cairo_text_extents(context.get(), text.c_str(), &extents);
  if (extents.x_advance <= 0) Fail("no font to write with");
  // As often as it fits, spread so that the end meets the beginning.
  const int times = repeats ? std::max(1, static_cast<int>(width / extents.x_advance)) : 1;
  for (int i = 0; i < times; ++i) {
    cairo_move_to(context.get(), static_cast<double>(width) * i / times, height * 0.78);
    cairo_show_text(context.get(), text.c_str());
  }
  cairo_surface_flush(surface.get());
  Letters letters{width, height, {}};
  const int stride = cairo_image_surface_get_stride(surface.get());
  for (int y = 0; y < height; ++y) {
    const uint8_t* const line = cairo_image_surface_get_data(surface.get()) + y * stride;
    letters.shares.insert(letters.shares.end(), line, line + width);
  }
  return letters;
}

/// A picture as I420: all of Y, then U and V of a quarter of its size.
class Picture {
 public:
  explicit Picture(uint8_t* bytes) : m_y(bytes), m_u(bytes + kWidth * kHeight), m_v(m_u + kWidth * kHeight / 4) {}

  void Fill(int left, int top, int right, int bottom, Yuv colour) {
    left = std::max(left, 0), right = std::min(right, kWidth);
    for (int y = top; left < right && y < bottom; ++y) std::fill_n(m_y + y * kWidth + left, right - left, colour.y);
    for (int y = top / 2; left < right && y < bottom / 2; ++y) {
      std::fill_n(m_u + y * kWidth / 2 + left / 2, (right - left) / 2, colour.u);
      std::fill_n(m_v + y * kWidth / 2 + left / 2, (right - left) / 2, colour.v);
    }
  }
  void Disc(int centreX, int centreY, int radius, Yuv colour) {
    for (int y = -radius; y < radius; y += 2) {
      const int half = static_cast<int>(std::sqrt(radius * radius - y * y)) / 2 * 2;
      Fill(centreX - half, centreY + y, centreX + half, centreY + y + 2, colour);
    }
  }
  /// The letters from column `from` on, which goes round, in white.
  void Put(const Letters& letters, int from, int left, int top, int width) {
    for (int y = 0; y < letters.height; ++y)
      for (int x = 0; x < width; ++x) {
        uint8_t& pixel = m_y[(top + y) * kWidth + left + x];
        pixel = static_cast<uint8_t>(pixel + (kWhite.y - pixel) * letters.At((from + x) % letters.width, y) / 255);
      }
  }

 private:
  uint8_t *const m_y, *const m_u, *const m_v;
};

struct Writing {
  const Letters text = Write(kText, kTextWidth, kTextHeight, true);
  std::array<Letters, 10> digits{};
  Writing() {
    for (size_t i = 0; i < digits.size(); ++i)
      digits[i] = Write(std::string(1, static_cast<char>('0' + i)), kDigitWidth, kDigitHeight, false);
  }
};

void Draw(Picture& picture, const Writing& writing, int frame) {
  constexpr int kMiddle = kWidth / 2, kTrackMiddle = (kTrackTop + kTrackEnd) / 2;
  picture.Fill(0, 0, kWidth, kHeight, kGround);
  const int shift = frame * kWidth / kFrames;
  for (int i = 0; i <= kBarCount; ++i) {
    const int left = i * kBarWidth - shift % kBarWidth;
    picture.Fill(left, 0, left + kBarWidth, kBarsEnd, kBars[(i + shift / kBarWidth) % kBarCount]);
  }
  picture.Fill(0, kTrackTop, kWidth, kTrackEnd, kTrack);
  if (IsFlash(frame)) picture.Disc(kMiddle, kTrackMiddle, 140, kWhite);
  // The runner is on the mark when the flash begins.
  picture.Fill(kMiddle - 2, kTrackTop, kMiddle + 2, kTrackEnd, kAccent);
  const int runner = frame * kWidth / kFlashPeriod % kWidth;
  picture.Fill(runner - 12, kTrackTop, runner + 12, kTrackEnd, kWhite);
  for (int i = 0, rest = frame; i < 3; ++i, rest /= 10)
    picture.Put(writing.digits[static_cast<size_t>(rest % 10)], 0, kCounterLeft + (2 - i) * kDigitWidth, kCounterTop,
                kDigitWidth);
  picture.Put(writing.text, frame * kTextStep, 0, kTextTop, kWidth);
}

// ---- the sound

double BeepAt(int sample) {
  const double second = static_cast<double>(sample) / kRate;
  const int frame = static_cast<int>(second * kFramesPerSecond);
  if (!IsFlash(frame)) return 0;
  const double since = second - static_cast<double>(FlashOf(frame)) / kFramesPerSecond;
  const double left = static_cast<double>(kFlashFrames) / kFramesPerSecond - since;
  return kBeepLevel * std::clamp(std::min(since, left) / kBeepFade, 0.0, 1.0) * std::sin(2 * M_PI * kBeepHertz * since);
}

// ---- the file

GstBuffer* MakeBuffer(size_t size, GstClockTime at, GstClockTime length) {
  GstBuffer* const buffer = gst_buffer_new_allocate(nullptr, size, nullptr);
  GST_BUFFER_PTS(buffer) = at;
  GST_BUFFER_DURATION(buffer) = length;
  return buffer;
}

void PushSound(GstAppSrc* source) {
  constexpr int kSamples = kRate / kFramesPerSecond * kFrames;
  GstBuffer* const buffer = MakeBuffer(sizeof(int16_t) * kChannels * kSamples, 0, GST_SECOND * kSamples / kRate);
  GstMapInfo map;
  gst_buffer_map(buffer, &map, GST_MAP_WRITE);
  auto* const samples = reinterpret_cast<int16_t*>(map.data);
  for (int i = 0; i < kSamples; ++i)
    std::fill_n(samples + i * kChannels, kChannels, static_cast<int16_t>(std::lround(BeepAt(i) * INT16_MAX)));
  gst_buffer_unmap(buffer, &map);
  gst_app_src_push_buffer(source, buffer);
  gst_app_src_end_of_stream(source);
}

void PushPictures(GstAppSrc* source) {
  const Writing writing;
  for (int frame = 0; frame < kFrames; ++frame) {
    GstBuffer* const buffer =
        MakeBuffer(kWidth * kHeight * 3 / 2, GST_SECOND * static_cast<guint64>(frame) / kFramesPerSecond,
                   GST_SECOND / kFramesPerSecond);
    GstMapInfo map;
    gst_buffer_map(buffer, &map, GST_MAP_WRITE);
    Picture picture(map.data);
    Draw(picture, writing, frame);
    gst_buffer_unmap(buffer, &map);
    if (gst_app_src_push_buffer(source, buffer) != GST_FLOW_OK) return;  // the bus says why
  }
  gst_app_src_end_of_stream(source);
}

GstHandle<GstElement> Build(const std::string& file) {
  for (const char* name : {"appsrc", "theoraenc", "vorbisenc", "oggmux"})
    if (!GstHandle<GstElementFactory>(gst_element_factory_find(name)))
      Fail("the clip of the video test cannot be made: the GStreamer element \"" + std::string(name) +
           "\" is missing; Debian has it in gstreamer1.0-plugins-base");
  const std::string text =
      "oggmux name=mux ! filesink name=file "
      "appsrc name=pictures format=time block=true max-bytes=20000000 caps=video/x-raw,format=I420,width=" +
      std::to_string(kWidth) + ",height=" + std::to_string(kHeight) + ",framerate=" + std::to_string(kFramesPerSecond) +
      "/1,colorimetry=bt601 ! theoraenc quality=40 keyframe-force=60 speed-level=2 ! queue ! mux. "
      "appsrc name=sound format=time max-bytes=0 caps=audio/x-raw,format=S16LE,layout=interleaved,rate=" +
      std::to_string(kRate) + ",channels=" + std::to_string(kChannels) +
      " ! audioconvert ! vorbisenc quality=0.4 ! queue max-size-time=0 max-size-bytes=0 max-size-buffers=0 ! mux.";
  GError* error = nullptr;
  GstHandle<GstElement> pipeline(gst_parse_launch(text.c_str(), &error));
  if (error) Fail(error->message);
  const GstHandle<GstElement> sink(gst_bin_get_by_name(GST_BIN(pipeline.get()), "file"));
  g_object_set(sink.get(), "location", file.c_str(), nullptr);
  return pipeline;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) Fail("usage: make_clip FILE");
  gst_init(nullptr, nullptr);
  const GstHandle<GstElement> pipeline = Build(argv[1]);
  const GstHandle<GstElement> pictures(gst_bin_get_by_name(GST_BIN(pipeline.get()), "pictures"));
  const GstHandle<GstElement> sound(gst_bin_get_by_name(GST_BIN(pipeline.get()), "sound"));
  gst_element_set_state(pipeline.get(), GST_STATE_PLAYING);
  PushSound(GST_APP_SRC(sound.get()));
  PushPictures(GST_APP_SRC(pictures.get()));
  const GstHandle<GstBus> bus(gst_element_get_bus(pipeline.get()));
  const GstMessageHandle end(gst_bus_timed_pop_filtered(
      bus.get(), GST_CLOCK_TIME_NONE, static_cast<GstMessageType>(GST_MESSAGE_EOS | GST_MESSAGE_ERROR)));
  gst_element_set_state(pipeline.get(), GST_STATE_NULL);
  if (GST_MESSAGE_TYPE(end.get()) == GST_MESSAGE_EOS) return EXIT_SUCCESS;
  GError* error = nullptr;
  gst_message_parse_error(end.get(), &error, nullptr);
  std::remove(argv[1]);
  Fail(error->message);
}
