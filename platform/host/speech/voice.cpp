#include "speech/voice.h"

#include <poll.h>
#include <sys/eventfd.h>

#include <array>
#include <deque>
#include <mutex>
#include <optional>
#include <thread>
#include <utility>

#include "c_handle.h"
#include "dlog.h"
#include "log_tags.h"
#include "settings/menu_language.h"
#include "speech/speaker.h"

namespace speech {

namespace {

constexpr const char* kTag = log_tags::kSpeech;

/// A thread that speaks, from the first text to the end of the process.
class Voice {
 public:
  Voice() : m_wake(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)), m_thread([this] { Run(); }) {}
  ~Voice() {
    {
      const std::lock_guard lock(m_mutex);
      m_end = true;
    }
    Wake();
    m_thread.join();
  }

  void Say(const std::string& text, Kind kind) {
    {
      const std::lock_guard lock(m_mutex);
      if (text.empty()) {
        m_announcements.clear();
        m_focus.reset();
        m_cut = true;
      } else if (kind == Kind::kFocus) {
        m_focus = text;
      } else if (m_announcements.empty() || m_announcements.back() != text) {
        m_announcements.push_back(text);
      }
    }
    Wake();
  }

 private:
  struct Text {
    std::string text;  // empty to end what is spoken
    Kind kind;
  };

  void Wake() { eventfd_write(m_wake.get(), 1); }
  void Run();
  std::optional<Text> TakeNext();
  void Speak(const Text& next);
  void LogOnce(const char* what);

  std::mutex m_mutex;  // guards the four below
  std::deque<std::string> m_announcements;
  std::optional<std::string> m_focus;
  bool m_cut = false;
  bool m_end = false;

  // For the thread alone.
  Dispatcher m_dispatcher;
  Espeak m_espeak;
  Kind m_kind = Kind::kFocus;  // of what m_espeak speaks
  bool m_logged = false;

  const FdHandle m_wake;
  std::thread m_thread;  // last: it uses all the others
};

void Voice::Run() {
  for (;;) {
    std::array<pollfd, 2> events = {{{m_wake.get(), POLLIN, 0}, {m_espeak.Ended(), POLLIN, 0}}};
    poll(events.data(), events.size(), -1);
    if (events[1].revents && m_espeak.Collect().value_or(0) != 0)
      LogOnce("espeak-ng failed: it lacks the voice or a sound device");
    eventfd_t count;
    eventfd_read(m_wake.get(), &count);
    while (const std::optional<Text> next = TakeNext()) Speak(*next);
    const std::lock_guard lock(m_mutex);
    if (m_end) break;
  }
  m_espeak.Cancel();
  m_dispatcher.Cancel();
}

/// What is to be begun now. The dispatcher has an order of its own; espeak-ng speaks one text at a time.
std::optional<Voice::Text> Voice::TakeNext() {
  const std::lock_guard lock(m_mutex);
  if (std::exchange(m_cut, false)) return Text{};
  const bool isAnnouncing = m_espeak.Ended() >= 0 && m_kind == Kind::kAnnouncement;
  if (m_end || isAnnouncing) return std::nullopt;
  if (m_announcements.empty()) {
    std::optional<std::string> focus;
    focus.swap(m_focus);
    return focus ? std::optional(Text{*focus, Kind::kFocus}) : std::nullopt;
  }
  Text next{std::move(m_announcements.front()), Kind::kAnnouncement};
  m_announcements.pop_front();
  return next;
}

void Voice::Speak(const Text& next) {
  m_espeak.Cancel();
  if (next.text.empty()) return m_dispatcher.Cancel();
  m_kind = next.kind;
  const std::string locale = MenuLocale();
  if (m_dispatcher.Say(next.text, next.kind, locale) || m_espeak.Say(next.text, locale)) return;
  LogOnce("no speech: speech-dispatcher does not run, and espeak-ng is not installed (package espeak-ng)");
}

void Voice::LogOnce(const char* what) {
  if (!m_logged) __dlog_print(LOG_ID_APPS, DLOG_WARN, kTag, "%s", what);
  m_logged = true;
}

}  // namespace

void Say(const std::string& text, Kind kind) {
  static Voice voice;
  voice.Say(text, kind);
}

}  // namespace speech
