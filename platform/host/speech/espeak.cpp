#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
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

/// What a program gets that is started from a thread: the text to read, no other file, signals as they were at first.
class SpawnRules {
 public:
  explicit SpawnRules(int input) {
    posix_spawn_file_actions_init(&files);
    posix_spawn_file_actions_adddup2(&files, input, STDIN_FILENO);
    posix_spawn_file_actions_addopen(&files, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    posix_spawn_file_actions_addopen(&files, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
    posix_spawn_file_actions_addclosefrom_np(&files, STDERR_FILENO + 1);
    posix_spawnattr_init(&attributes);
    sigset_t none;
    sigset_t usual;
    sigemptyset(&none);
    sigemptyset(&usual);
    for (const int number : {SIGTERM, SIGINT, SIGHUP, SIGPIPE, SIGCHLD}) sigaddset(&usual, number);
    posix_spawnattr_setsigmask(&attributes, &none);
    posix_spawnattr_setsigdefault(&attributes, &usual);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
  }
  SpawnRules(const SpawnRules&) = delete;
  SpawnRules& operator=(const SpawnRules&) = delete;
  ~SpawnRules() {
    posix_spawn_file_actions_destroy(&files);
    posix_spawnattr_destroy(&attributes);
  }

  posix_spawn_file_actions_t files;
  posix_spawnattr_t attributes;
};

}  // namespace

bool Espeak::Say(const std::string& text, const std::string& locale) {
  Cancel();
  const FdHandle input = FileOf(text);
  if (!input) return false;
  const SpawnRules rules(input.get());
  std::string voice = VoiceOf(locale);
  std::string program = kProgram;
  std::string voiceOption = "-v";
  std::string inputOption = "--stdin";
  char* const argv[] = {program.data(), voiceOption.data(), voice.data(), inputOption.data(), nullptr};
  pid_t pid = -1;
  if (posix_spawnp(&pid, kProgram, &rules.files, &rules.attributes, argv, environ) != 0) return false;
  m_process.reset(pidfd_open(pid, 0));
  return true;
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
