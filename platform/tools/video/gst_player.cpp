// The player, with GStreamer.

#include <gst/app/gstappsink.h>
#include <gst/gst.h>
#include <gst/pbutils/pbutils.h>
#include <gst/video/video.h>

#include <cmath>
#include <deque>
#include <mutex>
#include <string_view>
#include <utility>

#include "base/glib_handle.h"
#include "formats.h"
#include "gst_handle.h"
#include "video_player.h"

namespace tools {

namespace {

// A frame that is later than this is left out.
constexpr gint64 kMaxLateness = 20 * GST_MSECOND;
// Frames that wait to be drawn: so much may one drawing take longer than the next.
constexpr size_t kMostDue = 2;
// Frames as the canvas has them in memory.
constexpr const char* kPixelFormat = G_BYTE_ORDER == G_LITTLE_ENDIAN ? "BGRx" : "xRGB";
// By preference; a sound server's first.
constexpr const char* kSoundOutputs[] = {"pulsesink", "alsasink"};

class MappedFrame final : public VideoFrame {
 public:
  /// Takes the sample over; without pixels where it cannot be read.
  explicit MappedFrame(GstSample* sample) : m_sample(sample) {
    GstVideoInfo info;
    if (!gst_video_info_from_caps(&info, gst_sample_get_caps(sample))) return;
    GstBuffer* const buffer = gst_sample_get_buffer(sample);
    if (!gst_video_frame_map(&m_frame, &info, buffer, GST_MAP_READ)) return;
    pixels = GST_VIDEO_FRAME_PLANE_DATA(&m_frame, 0);
    width = GST_VIDEO_INFO_WIDTH(&info);
    height = GST_VIDEO_INFO_HEIGHT(&info);
    const guint64 at =
        gst_segment_to_stream_time(gst_sample_get_segment(sample), GST_FORMAT_TIME, GST_BUFFER_PTS(buffer));
    number = static_cast<int>(
        std::lround(static_cast<double>(at) / GST_SECOND * GST_VIDEO_INFO_FPS_N(&info) / GST_VIDEO_INFO_FPS_D(&info)));
  }
  ~MappedFrame() override {
    if (pixels) gst_video_frame_unmap(&m_frame);
  }

 private:
  const GstSampleHandle m_sample;
  GstVideoFrame m_frame{};
};

/// The first that can be opened; null for none.
GstElement* OpenSoundOutput() {
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
  const GstCapsHandle caps(gst_caps_new_simple("video/x-raw", "format", G_TYPE_STRING, kPixelFormat, nullptr));
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
  auto frame = std::make_shared<MappedFrame>(sample);
  if (!frame->pixels) return GST_FLOW_ERROR;
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
