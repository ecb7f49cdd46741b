// The player, with GStreamer.

#include <gst/app/gstappsink.h>
#include <gst/gst.h>
#include <gst/pbutils/pbutils.h>
#include <gst/video/video.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstring>
#include <deque>
#include <mutex>
#include <string_view>
#include <utility>

#include "base/glib_handle.h"
#include "formats.h"
#include "gst_handle.h"
#include "sound/sound_server.h"
#include "video_player.h"

namespace tools {

namespace {

// A frame that is later than this is left out.
constexpr gint64 kMaxLateness = 20 * GST_MSECOND;
// Frames that wait to be drawn: so much may one drawing take longer than the next.
constexpr size_t kMostDue = 2;
// Pictures as nearly all decoders make them, and as the canvas has them in memory.
constexpr const char* kDecodedFormat = "I420";
constexpr GstVideoFormat kPaintedFormat =
    G_BYTE_ORDER == G_LITTLE_ENDIAN ? GST_VIDEO_FORMAT_BGRx : GST_VIDEO_FORMAT_xRGB;
// What is compared and painted at once, in pixels. Both are even, as two pixels in each direction share a color.
constexpr int kBlockWidth = 128, kBlockHeight = 16;
constexpr std::chrono::seconds kServerLimit{1};
// By preference; a sound server's first.
constexpr const char* kSoundOutputs[] = {"pulsesink", "alsasink"};

/// Turns a block of a decoded picture into pixels. One thread at a time.
class BlockPainter {
 public:
  explicit BlockPainter(GstVideoInfo decoded) {
    decoded.width = kBlockWidth, decoded.height = kBlockHeight;
    gst_video_info_set_format(&m_painted, kPaintedFormat, kBlockWidth, kBlockHeight);
    m_painted.fps_n = decoded.fps_n, m_painted.fps_d = decoded.fps_d;  // it converts no rates
    m_converter.reset(gst_video_converter_new(&decoded, &m_painted, nullptr));
  }
  /// The block of `frame` that begins at `x`, `y`, at its place in `pixels`, which are as wide as the frame.
  void Paint(const GstVideoFrame& frame, int x, int y, uint32_t* pixels) const {
    GstVideoFrame block = frame, painted{};
    block.info.width = kBlockWidth, block.info.height = kBlockHeight;
    for (guint plane = 0; plane < GST_VIDEO_FRAME_N_PLANES(&frame); ++plane) block.data[plane] = At(frame, plane, x, y);
    painted.info = m_painted;
    painted.info.stride[0] = frame.info.width * static_cast<int>(sizeof *pixels);
    painted.data[0] = pixels + static_cast<ptrdiff_t>(y) * frame.info.width + x;
    gst_video_converter_frame(m_converter.get(), &block, &painted);
  }
  static bool Differ(const GstVideoFrame& one, const GstVideoFrame& other, int x, int y) {
    for (guint plane = 0; plane < GST_VIDEO_FRAME_N_PLANES(&one); ++plane) {
      const auto width = static_cast<size_t>(GST_VIDEO_FRAME_COMP_WIDTH(&one, plane) * kBlockWidth / one.info.width);
      const int height = GST_VIDEO_FRAME_COMP_HEIGHT(&one, plane) * kBlockHeight / one.info.height;
      const uint8_t* line = At(one, plane, x, y);
      const uint8_t* otherLine = At(other, plane, x, y);
      for (int i = 0; i < height; ++i) {
        if (std::memcmp(line, otherLine, width) != 0) return true;
        line += one.info.stride[plane], otherLine += other.info.stride[plane];
      }
    }
    return false;
  }

 private:
  /// Where a plane has the color of a pixel.
  static uint8_t* At(const GstVideoFrame& frame, guint plane, int x, int y) {
    const int share = plane == 0 ? 1 : 2;
    return static_cast<uint8_t*>(frame.data[plane]) + static_cast<ptrdiff_t>(y / share) * frame.info.stride[plane] +
           x / share;
  }

  GstVideoInfo m_painted{};
  std::unique_ptr<GstVideoConverter, CRelease<&gst_video_converter_free>> m_converter;
};

class DecodedFrame final : public VideoFrame {
 public:
  /// Takes the sample over; of width 0 where it cannot be read or is smaller than a block.
  DecodedFrame(GstSample* sample, std::shared_ptr<const BlockPainter>& painter) : m_sample(sample) {
    GstVideoInfo info;
    if (!gst_video_info_from_caps(&info, gst_sample_get_caps(sample))) return;
    if (info.width < kBlockWidth || info.height < kBlockHeight) return;
    GstBuffer* const buffer = gst_sample_get_buffer(sample);
    if (!gst_video_frame_map(&m_frame, &info, buffer, GST_MAP_READ)) return;
    if (!painter) painter = std::make_shared<BlockPainter>(info);
    m_painter = painter;
    width = info.width;
    height = info.height;
    const guint64 at =
        gst_segment_to_stream_time(gst_sample_get_segment(sample), GST_FORMAT_TIME, GST_BUFFER_PTS(buffer));
    number = static_cast<int>(
        std::lround(static_cast<double>(at) / GST_SECOND * GST_VIDEO_INFO_FPS_N(&info) / GST_VIDEO_INFO_FPS_D(&info)));
  }
  ~DecodedFrame() override {
    if (width) gst_video_frame_unmap(&m_frame);
  }

  std::vector<VideoPart> Paint(uint32_t* pixels, const VideoFrame* before) const override;

 private:
  const GstSampleHandle m_sample;
  GstVideoFrame m_frame{};
  std::shared_ptr<const BlockPainter> m_painter;
};

std::vector<VideoPart> DecodedFrame::Paint(uint32_t* pixels, const VideoFrame* before) const {
  std::vector<VideoPart> parts;
  const auto* const shown = static_cast<const DecodedFrame*>(before);
  // The last blocks of lines and of columns begin earlier where the picture is no multiple of them.
  for (int top = 0; top < height; top += kBlockHeight) {
    const int y = std::min(top, height - kBlockHeight);
    int end = 0;  // of the part before
    for (int left = 0; left < width; left += kBlockWidth) {
      const int x = std::min(left, width - kBlockWidth);
      if (shown && !BlockPainter::Differ(m_frame, shown->m_frame, x, y)) continue;
      m_painter->Paint(m_frame, x, y, pixels);
      if (end > 0 && x <= end)
        parts.back().width = x + kBlockWidth - parts.back().x;
      else
        parts.push_back({x, y, kBlockWidth, kBlockHeight});
      end = x + kBlockWidth;
    }
  }
  return parts;
}

/// The first that can be opened; null for none, and where one would wait for a server that does not answer, as ALSA's
/// default may, too.
GstElement* OpenSoundOutput() {
  if (sound::Server(kServerLimit).IsSilent()) return nullptr;
  for (const char* name : kSoundOutputs) {
    GstElement* const output = gst_element_factory_make(name, nullptr);
    if (!output) continue;
    if (gst_element_set_state(output, GST_STATE_READY) == GST_STATE_CHANGE_SUCCESS) return output;
    gst_element_set_state(output, GST_STATE_NULL);
    gst_object_unref(output);
  }
  return nullptr;
}

class GstPlayer final : public VideoPlayer {
 public:
  GstPlayer() = default;
  ~GstPlayer() override { Stop(); }

  std::vector<VideoFormat> Formats() override {
    Begin();
    return FindFormats();
  }
  void Play(const std::string& file, std::function<void()> onChange) override;
  void Stop() override;
  std::shared_ptr<const VideoFrame> TakeFrame() override {
    const std::lock_guard lock(m_mutex);
    if (m_due.empty()) return nullptr;
    auto frame = std::move(m_due.front());
    m_due.pop_front();
    return frame;
  }
  Playback State() const override {
    const std::lock_guard lock(m_mutex);
    return m_state;
  }

 private:
  static void Begin() {
    gst_init(nullptr, nullptr);
    gst_pb_utils_init();
  }
  bool Build(const std::string& file);
  void ConnectPictures();
  void ConnectSound();

  // On threads of GStreamer's.
  static GstFlowReturn OnSample(GstAppSink* sink, gpointer self);
  static GstBusSyncReply OnMessage(GstBus* bus, GstMessage* message, gpointer self);
  static void OnElement(GstBin* pipeline, GstBin* bin, GstElement* element, gpointer self);
  static GstPadProbeReturn OnDelivered(GstPad* pad, GstPadProbeInfo* info, gpointer self);
  void TakeMessage(GstMessage* message);
  /// Changes the state and tells.
  template <class Change>
  void Tell(Change change) {
    {
      const std::lock_guard lock(m_mutex);
      change(m_state);
    }
    m_onChange();
  }

  std::function<void()> m_onChange;
  GstHandle<GstElement> m_pipeline;
  std::shared_ptr<const BlockPainter> m_painter;  ///< of this clip; made with its first frame
  mutable std::mutex m_mutex;
  Playback m_state;                                     // guarded, as the next
  std::deque<std::shared_ptr<const VideoFrame>> m_due;  // and not taken
};

void GstPlayer::Play(const std::string& file, std::function<void()> onChange) {
  Stop();
  Begin();
  {
    const std::lock_guard lock(m_mutex);
    m_state = {};
    m_due.clear();
  }
  m_painter = nullptr;
  m_onChange = std::move(onChange);
  if (Build(file)) gst_element_set_state(m_pipeline.get(), GST_STATE_PLAYING);  // a failure is a message, too
}

void GstPlayer::Stop() {
  if (m_pipeline) gst_element_set_state(m_pipeline.get(), GST_STATE_NULL);
  m_pipeline = nullptr;
}

bool GstPlayer::Build(const std::string& file) {
  GErrorHandle error;
  m_pipeline.reset(
      gst_parse_launch("filesrc name=file ! decodebin name=decode "
                       "decode. ! videoconvert name=convert ! appsink name=pictures "
                       "decode. ! audioconvert ! audioresample name=sound",
                       error.Out()));
  if (error.Get() || !m_pipeline) return Tell([&](Playback& state) { state.error = error.Message(); }), false;
  const GstHandle<GstElement> source(gst_bin_get_by_name(GST_BIN(m_pipeline.get()), "file"));
  g_object_set(source.get(), "location", file.c_str(), nullptr);
  g_signal_connect(m_pipeline.get(), "deep-element-added", G_CALLBACK(OnElement), this);
  const GstHandle<GstBus> bus(gst_element_get_bus(m_pipeline.get()));
  gst_bus_set_sync_handler(bus.get(), OnMessage, this, nullptr);
  ConnectPictures();
  ConnectSound();
  return true;
}

void GstPlayer::ConnectPictures() {
  const GstHandle<GstElement> pictures(gst_bin_get_by_name(GST_BIN(m_pipeline.get()), "pictures"));
  const GstCapsHandle caps(gst_caps_new_simple("video/x-raw", "format", G_TYPE_STRING, kDecodedFormat, nullptr));
  g_object_set(pictures.get(), "caps", caps.get(), "qos", true, "max-lateness", kMaxLateness, "enable-last-sample",
               false, nullptr);
  GstAppSinkCallbacks callbacks{};
  callbacks.new_sample = OnSample;
  gst_app_sink_set_callbacks(GST_APP_SINK(pictures.get()), &callbacks, this, nullptr);
}

/// Without an output the sound goes nowhere, at its own pace.
void GstPlayer::ConnectSound() {
  GstElement* output = OpenSoundOutput();
  if (output) {
    const std::lock_guard lock(m_mutex);
    m_state.sound = GST_OBJECT_NAME(gst_element_get_factory(output));
  } else {
    output = gst_element_factory_make("fakesink", nullptr);
    g_object_set(output, "sync", true, nullptr);
  }
  const GstHandle<GstElement> sound(gst_bin_get_by_name(GST_BIN(m_pipeline.get()), "sound"));
  gst_bin_add(GST_BIN(m_pipeline.get()), output);
  gst_element_link(sound.get(), output);
}

// ---- on threads of GStreamer's

GstFlowReturn GstPlayer::OnSample(GstAppSink* sink, gpointer self) {
  auto* const player = static_cast<GstPlayer*>(self);
  GstSample* const sample = gst_app_sink_pull_sample(sink);
  if (!sample) return GST_FLOW_EOS;
  auto frame = std::make_shared<DecodedFrame>(sample, player->m_painter);
  if (!frame->width) return GST_FLOW_ERROR;
  {
    const std::lock_guard lock(player->m_mutex);
    player->m_due.push_back(std::move(frame));
    if (player->m_due.size() > kMostDue) player->m_due.pop_front();
  }
  player->m_onChange();
  return GST_FLOW_OK;
}

GstBusSyncReply GstPlayer::OnMessage(GstBus*, GstMessage* message, gpointer self) {
  static_cast<GstPlayer*>(self)->TakeMessage(message);
  gst_message_unref(message);
  return GST_BUS_DROP;
}

void GstPlayer::TakeMessage(GstMessage* message) {
  if (GST_MESSAGE_TYPE(message) == GST_MESSAGE_EOS) Tell([](Playback& state) { state.hasEnded = true; });
  std::string reason;
  if (gst_is_missing_plugin_message(message)) {
    reason = GText(gst_missing_plugin_message_get_description(message)).get();
  } else if (GST_MESSAGE_TYPE(message) == GST_MESSAGE_ERROR) {
    GErrorHandle error;
    gst_message_parse_error(message, error.Out(), nullptr);
    reason = error.Message();
  }
  // What came first says it best; the rest follows from it.
  if (!reason.empty()) Tell([&](Playback& state) { state.error = state.error.empty() ? reason : state.error; });
}

void GstPlayer::OnElement(GstBin*, GstBin*, GstElement* element, gpointer self) {
  GstElementFactory* const factory = gst_element_get_factory(element);
  constexpr GstElementFactoryListType kKind = GST_ELEMENT_FACTORY_TYPE_DECODER | GST_ELEMENT_FACTORY_TYPE_MEDIA_VIDEO;
  if (!factory || !gst_element_factory_list_is_type(factory, GST_ELEMENT_FACTORY_TYPE_DECODER) ||
      !gst_element_factory_list_is_type(factory, kKind))
    return;
  auto* const player = static_cast<GstPlayer*>(self);
  {
    const std::lock_guard lock(player->m_mutex);
    player->m_state.decoder = DescribeDecoder(factory);
  }
  const GstHandle<GstPad> pad(gst_element_get_static_pad(element, "sink"));
  if (pad) gst_pad_add_probe(pad.get(), GST_PAD_PROBE_TYPE_BUFFER, OnDelivered, self, nullptr);
}

GstPadProbeReturn GstPlayer::OnDelivered(GstPad*, GstPadProbeInfo* info, gpointer self) {
  auto* const player = static_cast<GstPlayer*>(self);
  const std::lock_guard lock(player->m_mutex);
  if (!GST_BUFFER_FLAG_IS_SET(gst_pad_probe_info_get_buffer(info), GST_BUFFER_FLAG_HEADER)) ++player->m_state.delivered;
  return GST_PAD_PROBE_OK;
}

}  // namespace

}  // namespace tools

extern "C" tools::VideoPlayer* vexilo_make_video_player() {
  return new tools::GstPlayer;
}
