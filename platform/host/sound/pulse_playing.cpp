// On the session's sound server, with its monitor recorded beside.

#include <pulse/pulseaudio.h>

#include <chrono>
#include <memory>

#include "c_handle.h"
#include "sound/playing.h"

namespace sound {

namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

constexpr char kClient[] = "Vexilo";
constexpr auto kPatience = 3s;
constexpr auto kTail = 150ms;  // of the monitor, when all has been played
constexpr pa_sample_spec kSpec = {PA_SAMPLE_S16NE, kRate, kChannels};
constexpr size_t kFrameBytes = sizeof(int16_t) * kChannels;
constexpr uint32_t kAhead = kRate / 10 * kFrameBytes;        // what the server has of us in advance
constexpr uint32_t kHeardAtOnce = kRate / 50 * kFrameBytes;  // how much the monitor gives at a time

class Run {
 public:
  Run(const Sink& sink, const Playing& playing) : m_sink(sink), m_playing(playing) {}
  ~Run();
  Run(const Run&) = delete;
  Run& operator=(const Run&) = delete;

  bool Play();
  const std::string& Problem() const { return m_problem; }

 private:
  using Stream = std::unique_ptr<pa_stream, CRelease<&pa_stream_unref>>;

  bool Connect();
  bool OpenMonitor();
  bool OpenOutput();
  Stream MakeStream(const char* name);
  /// Turns the loop until it holds.
  template <class Holds>
  bool Until(Holds holds);
  bool Fail(const char* reason = nullptr);
  static bool IsReady(const Stream& stream) { return pa_stream_get_state(stream.get()) == PA_STREAM_READY; }
  bool IsGood(const Stream& stream) const { return !stream || PA_STREAM_IS_GOOD(pa_stream_get_state(stream.get())); }
  static void OnRoom(pa_stream* stream, size_t bytes, void* self);
  static void OnDrained(pa_stream* stream, int success, void* self);
  static void OnHeard(pa_stream* stream, size_t bytes, void* self);

  const Sink& m_sink;
  const Playing& m_playing;
  std::unique_ptr<pa_mainloop, CRelease<&pa_mainloop_free>> m_loop{pa_mainloop_new()};
  std::unique_ptr<pa_context, CRelease<&pa_context_unref>> m_context{
      pa_context_new(pa_mainloop_get_api(m_loop.get()), kClient)};
  Stream m_output, m_monitor;
  Clock::time_point m_moved = Clock::now();  // when something last went on
  bool m_isFed = false, m_isDrained = false;
  std::string m_problem;
};

Run::~Run() {
  for (const Stream* stream : {&m_output, &m_monitor})
    if (*stream) pa_stream_disconnect(stream->get());
  pa_context_disconnect(m_context.get());
}

bool Run::Play() {
  if (!Connect() || !OpenMonitor() || !OpenOutput()) return false;
  if (!Until([this] { return m_isDrained || *m_playing.stop; })) return false;
  const auto end = Clock::now() + kTail;
  return Until([this, end] { return Clock::now() > end || *m_playing.stop; });
}

bool Run::Fail(const char* reason) {
  m_problem = reason ? reason : pa_strerror(pa_context_errno(m_context.get()));
  return false;
}

template <class Holds>
bool Run::Until(Holds holds) {
  m_moved = Clock::now();
  while (!holds()) {
    if (!PA_CONTEXT_IS_GOOD(pa_context_get_state(m_context.get())) || !IsGood(m_output) || !IsGood(m_monitor))
      return Fail();
    if (Clock::now() - m_moved > kPatience) return Fail("the output takes nothing");
    constexpr int kTurn = 20000;  // microseconds
    if (pa_mainloop_prepare(m_loop.get(), kTurn) < 0 || pa_mainloop_poll(m_loop.get()) < 0 ||
        pa_mainloop_dispatch(m_loop.get()) < 0)
      return Fail();
  }
  return true;
}

bool Run::Connect() {
  if (pa_context_connect(m_context.get(), nullptr, PA_CONTEXT_NOAUTOSPAWN, nullptr) < 0) return Fail();
  return Until([this] { return pa_context_get_state(m_context.get()) == PA_CONTEXT_READY; });
}

Run::Stream Run::MakeStream(const char* name) {
  return Stream(pa_stream_new(m_context.get(), name, &kSpec, nullptr));
}

/// It runs before anything is played, so that nothing is missed.
bool Run::OpenMonitor() {
  if (m_sink.monitor.empty()) return true;
  m_monitor = MakeStream("Level");
  pa_stream_set_read_callback(m_monitor.get(), OnHeard, this);
  const pa_buffer_attr attributes = {UINT32_MAX, UINT32_MAX, UINT32_MAX, UINT32_MAX, kHeardAtOnce};
  const auto flags = static_cast<pa_stream_flags_t>(PA_STREAM_ADJUST_LATENCY | PA_STREAM_DONT_MOVE);
  if (pa_stream_connect_record(m_monitor.get(), m_sink.monitor.c_str(), &attributes, flags) < 0) return Fail();
  return Until([this] { return IsReady(m_monitor); });
}

bool Run::OpenOutput() {
  m_output = MakeStream("Sound test");
  pa_stream_set_write_callback(m_output.get(), OnRoom, this);
  const pa_buffer_attr attributes = {UINT32_MAX, kAhead, UINT32_MAX, UINT32_MAX, UINT32_MAX};
  if (pa_stream_connect_playback(m_output.get(), m_sink.name.c_str(), &attributes, PA_STREAM_ADJUST_LATENCY, nullptr,
                                 nullptr) < 0)
    return Fail();
  return Until([this] { return IsReady(m_output); });
}

void Run::OnRoom(pa_stream* stream, size_t bytes, void* data) {
  auto* const self = static_cast<Run*>(data);
  if (self->m_isFed) return;
  self->m_moved = Clock::now();
  void* room = nullptr;
  if (pa_stream_begin_write(stream, &room, &bytes) < 0) return;
  const size_t frames = self->m_playing.next(static_cast<int16_t*>(room), bytes / kFrameBytes);
  if (frames > 0) {
    pa_stream_write(stream, room, frames * kFrameBytes, nullptr, 0, PA_SEEK_RELATIVE);
    return;
  }
  pa_stream_cancel_write(stream);
  self->m_isFed = true;
  if (pa_operation* const drain = pa_stream_drain(stream, OnDrained, self)) pa_operation_unref(drain);
}

void Run::OnDrained(pa_stream*, int, void* self) {
  static_cast<Run*>(self)->m_isDrained = true;
}

void Run::OnHeard(pa_stream* stream, size_t, void* data) {
  auto* const self = static_cast<Run*>(data);
  const void* samples = nullptr;
  for (size_t bytes = 0; pa_stream_peek(stream, &samples, &bytes) == 0 && bytes > 0; pa_stream_drop(stream))
    if (samples) self->m_playing.heard(static_cast<const int16_t*>(samples), bytes / kFrameBytes);
}

}  // namespace

bool PlayOnServer(const Sink& sink, const Playing& playing, std::string& problem) {
  Run run(sink, playing);
  const bool isPlayed = run.Play();
  problem = run.Problem();
  return isPlayed;
}

}  // namespace sound
