#include "speech/voice.h"

#include <poll.h>
#include <sys/eventfd.h>

#include <array>
#include <mutex>
#include <optional>
#include <thread>

#include "c_handle.h"
#include "dlog.h"
#include "settings/menu_language.h"
#include "speech/speaker.h"

namespace speech {

namespace {

constexpr char kTag[] = "SPEECH";

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

  void Say(const std::string& text) {
    {
      const std::lock_guard lock(m_mutex);
      m_next = text;
    }
    Wake();
  }

 private:
  void Wake() { eventfd_write(m_wake.get(), 1); }
  void Run();
  void Speak(const std::string& text);
  void LogOnce(const char* what);

  std::mutex m_mutex;  // guards the two below
  std::optional<std::string> m_next;
  bool m_end = false;

  // For the thread alone.
  Dispatcher m_dispatcher;
  Espeak m_espeak;
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
    if (!events[0].revents) continue;
    eventfd_t count;
    eventfd_read(m_wake.get(), &count);
    std::optional<std::string> text;
    {
      const std::lock_guard lock(m_mutex);
      if (m_end) break;
      text.swap(m_next);
    }
    if (text) Speak(*text);
  }
  m_espeak.Cancel();
  m_dispatcher.Cancel();
}

void Voice::Speak(const std::string& text) {
  m_espeak.Cancel();
  if (text.empty()) return m_dispatcher.Cancel();
  const std::string locale = MenuLocale();
  if (m_dispatcher.Say(text, locale) || m_espeak.Say(text, locale)) return;
  LogOnce("no speech: speech-dispatcher does not run, and espeak-ng is not installed (package espeak-ng)");
}

void Voice::LogOnce(const char* what) {
  if (!m_logged) __dlog_print(LOG_ID_APPS, DLOG_WARN, kTag, "%s", what);
  m_logged = true;
}

}  // namespace

void Say(const std::string& text) {
  static Voice voice;
  voice.Say(text);
}

}  // namespace speech
