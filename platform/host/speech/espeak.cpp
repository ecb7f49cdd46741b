#include <poll.h>
#include <sys/mman.h>
#include <sys/wait.h>

// The header of glibc 2.36 does not say itself that it declares C functions.
extern "C" {
#include <sys/pidfd.h>
}

#include <algorithm>
#include <csignal>
#include <string_view>
#include <utility>

#include "base/program.h"
#include "settings/menu_language.h"
#include "speech/speaker.h"

namespace speech {

namespace {

constexpr char kProgram[] = "espeak-ng";
constexpr int kEndMilliseconds = 500;

/// espeak-ng's voice for a locale; most are called as the language is.
std::string VoiceOf(const std::string& locale) {
  // Of constants, since the voice's thread may speak while the process ends.
  static constexpr std::pair<std::string_view, const char*> kVoices[] = {
      {"en", "en-us"},  {"en_GB", "en-gb"}, {"fr", "fr-fr"},    {"no", "nb"},        {"iw", "he"},        {"zh", "cmn"},
      {"zh_HK", "yue"}, {"pt", "pt"},       {"pt_BR", "pt-br"}, {"es_MX", "es-419"}, {"es_US", "es-419"},
  };
  const std::string region = locale.substr(0, locale.find_first_of(".@"));
  const std::string language = LanguageOfLocale(locale);
  for (const std::string& name : {region, language})
    for (const auto& [of, voice] : kVoices)
      if (of == name) return voice;
  return language;
}

/// `text` as a file without a name, to be read from its beginning.
FdHandle FileOf(const std::string& text) {
  FdHandle file(memfd_create("speech", MFD_CLOEXEC));
  for (size_t written = 0; written < text.size();) {
    const ssize_t count = write(file.get(), text.data() + written, text.size() - written);
    if (count <= 0) return FdHandle();
    written += static_cast<size_t>(count);
  }
  lseek(file.get(), 0, SEEK_SET);
  return file;
}

}  // namespace

bool Espeak::Say(const std::string& text, const std::string& locale) {
  Cancel();
  const FdHandle input = FileOf(text);
  if (!input) return false;
  m_process = StartProgram({kProgram, "-v", VoiceOf(locale), "--stdin"}, input.get()).handle;
  return static_cast<bool>(m_process);
}

std::optional<int> Espeak::Collect() {
  siginfo_t info{};
  // The toolkit takes away every child of the process that it sees; then there is no status to be had.
  const bool known = m_process && waitid(P_PIDFD, static_cast<id_t>(m_process.get()), &info, WEXITED) == 0;
  m_process.reset();
  if (known && info.si_code == CLD_EXITED) return info.si_status;
  return std::nullopt;
}

void Espeak::Cancel() {
  if (!m_process) return;
  pidfd_send_signal(m_process.get(), SIGTERM, nullptr, 0);
  pollfd ended{m_process.get(), POLLIN, 0};
  if (poll(&ended, 1, kEndMilliseconds) == 0) pidfd_send_signal(m_process.get(), SIGKILL, nullptr, 0);
  Collect();
}

}  // namespace speech
