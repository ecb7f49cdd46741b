// The voice, with stand-ins for the programs that speak.

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <functional>
#include <sstream>
#include <thread>

#include "c_handle.h"
#include "speech/voice.h"
#include "system_path.h"
#include "vconf.h"

namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;

const std::string kHeard = SystemPath("/tmp/heard");

std::string Read(const std::string& file) {
  std::stringstream content;
  content << std::ifstream(file).rdbuf();
  return content.str();
}

bool Eventually(const std::function<bool()>& holds) {
  for (int i = 0; i < 1000 && !holds(); ++i) std::this_thread::sleep_for(10ms);
  return holds();
}

/// Waits until what was heard is just this.
void ExpectHeard(const std::string& text) {
  EXPECT_TRUE(Eventually([&] { return Read(kHeard) == text; })) << Read(kHeard);
}

/// An espeak-ng that writes down what it is asked, and speaks until it is stopped when the text begins with "long".
void InstallEspeak() {
  const fs::path program = SystemPath("/tmp/bin/espeak-ng");
  fs::create_directories(program.parent_path());
  std::ofstream(program) << "#!/bin/bash\n"
                            "trap 'echo cut >>"
                         << kHeard << "; exit 0' TERM\ntext=$(</dev/stdin)\necho \"$* | $text\" >>" << kHeard
                         << "\n[[ $text = fail* ]] && exit 1\n"
                            "[[ $text = long* ]] || exit 0\n"
                            "while :; do read -rt 0.02 <> <(:); done\n";
  fs::permissions(program, fs::perms(0755));
  setenv("PATH", (program.parent_path().string() + ":/usr/bin:/bin").c_str(), 1);
}

class Speech : public testing::Test {
 protected:
  Speech() {
    unsetenv("SPEECHD_ADDRESS");
    setenv("XDG_RUNTIME_DIR", SystemPath("/tmp").c_str(), 1);
    setenv("VEXILO_LOG_TARGET", "file", 1);
    InstallEspeak();
  }
  static std::string Log() { return Read(SystemPath("/var/lib/vexilo-host/log/vexilo.log")); }
  static void SetLanguage(const char* locale) { ASSERT_EQ(vconf_set_str("db/menu_widget/language", locale), 0); }
};

TEST_F(Speech, ALaterTextCutsAnEarlierOneOffAndNoProcessIsLeft) {
  speech::Say("long; $(touch /tmp/x) \"one\"\nline");
  std::string heard = "-v en-us --stdin | long; $(touch /tmp/x) \"one\"\nline\n";
  ExpectHeard(heard);
  speech::Say("long two");
  ExpectHeard(heard += "cut\n-v en-us --stdin | long two\n");
  speech::Say("");
  ExpectHeard(heard += "cut\n");
  EXPECT_TRUE(Eventually([] { return waitpid(-1, nullptr, WNOHANG) < 0 && errno == ECHILD; }));
}

TEST_F(Speech, VoiceFollowsTheMenuLanguage) {
  const std::pair<const char*, const char*> cases[] = {{"de_DE.utf8", "de"},       {"pt_BR.utf8", "pt-br"},
                                                       {"zh_CN.utf8", "cmn"},      {"en_GB", "en-gb"},
                                                       {"sr_RS.utf8@latin", "sr"}, {"fr_FR.utf8", "fr-fr"}};
  std::string heard;
  for (const auto& [locale, voice] : cases) {
    SetLanguage(locale);
    speech::Say("text");
    ExpectHeard(heard += std::string("-v ") + voice + " --stdin | text\n");
  }
}

TEST_F(Speech, SaysOnceThatThereIsNoSpeech) {
  setenv("PATH", "/nonexistent", 1);
  for (int i = 0; i < 3; ++i) {
    speech::Say("text");
    std::this_thread::sleep_for(50ms);
  }
  ASSERT_TRUE(Eventually([] { return !Log().empty(); }));
  EXPECT_NE(Log().find("no speech: speech-dispatcher does not run, and espeak-ng is not installed"), std::string::npos);
  EXPECT_EQ(Log().find('\n'), Log().size() - 1) << Log();
}

TEST_F(Speech, SaysThatTheProgramFails) {
  speech::Say("fail");
  EXPECT_TRUE(Eventually([] { return Log().find("espeak-ng failed") != std::string::npos; })) << Log();
}

/// A speech-dispatcher that takes one connection, answers each line, and hangs up after `lines` of them.
std::string ServeLines(const std::string& path, size_t lines) {
  const FdHandle listener(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  path.copy(address.sun_path, sizeof address.sun_path - 1);
  if (bind(listener.get(), reinterpret_cast<sockaddr*>(&address), sizeof address) || listen(listener.get(), 1))
    return "";
  setenv("SPEECHD_ADDRESS", ("unix_socket:" + path).c_str(), 1);
  speech::Say("Hello\n.dot");
  const FdHandle client(accept(listener.get(), nullptr, nullptr));
  std::string received;
  bool isText = false;
  for (size_t seen = 0; lines > 0;) {
    char bytes[256];
    const ssize_t count = read(client.get(), bytes, sizeof bytes);
    if (count <= 0) break;
    received.append(bytes, static_cast<size_t>(count));
    for (size_t end; lines > 0 && (end = received.find("\r\n", seen)) != std::string::npos; seen = end + 2) {
      const std::string line = received.substr(seen, end - seen);
      if (isText && line != ".") continue;
      isText = line == "SPEAK";
      const std::string reply = line == "." ? "225-17\r\n225 OK MESSAGE QUEUED\r\n" : "200 OK\r\n";
      if (--lines == 0) return received;
      EXPECT_EQ(send(client.get(), reply.data(), reply.size(), MSG_NOSIGNAL), static_cast<ssize_t>(reply.size()));
    }
  }
  return received;
}

TEST_F(Speech, PrefersSpeechDispatcherAndOutlivesIt) {
  SetLanguage("pt_BR.utf8");
  const std::string path = SystemPath("/tmp/speechd.sock");
  const std::string head =
      "SET SELF CLIENT_NAME vexilo:vexilo:main\r\nCANCEL SELF\r\nSET SELF LANGUAGE pt-BR\r\nSPEAK\r\n";
  EXPECT_EQ(ServeLines(path, 5), head + "Hello\r\n..dot\r\n.\r\n");
  fs::remove(path);
  // It hung up in the middle of that, and is gone: the text is not lost.
  ExpectHeard("-v pt-br --stdin | Hello\n.dot\n");
}

}  // namespace
