// The voice, with stand-ins for the programs that speak.

#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>

#include "c_handle.h"
#include "speech/voice.h"
#include "support/files.h"
#include "vconf.h"

namespace {

const std::string kHeard = SystemPath("/tmp/heard");

/// Waits until what was heard is just this.
void ExpectHeard(const std::string& text) {
  EXPECT_TRUE(Until([&] { return ReadHostFile(kHeard) == text; })) << ReadHostFile(kHeard);
}

void Announce(const std::string& text) {
  speech::Say(text, speech::Kind::kAnnouncement);
}
void Focus(const std::string& text) {
  speech::Say(text, speech::Kind::kFocus);
}

/// An espeak-ng that writes down what it is asked, and speaks without end when the text begins with "long", or until
/// there is a file when it begins with "wait".
constexpr char kEspeak[] = R"(#!/bin/bash
text=$(</dev/stdin)
echo "$* | $text" >>"$HEARD"
[[ $text = fail* ]] && exit 1
[[ $text = long* ]] && exec sleep infinity
[[ $text = wait* ]] || exit 0
until [[ -e $HEARD.on ]]; do sleep 0.02; done
)";

class Speech : public testing::Test {
 protected:
  Speech() {
    unsetenv("SPEECHD_ADDRESS");
    setenv("XDG_RUNTIME_DIR", SystemPath("/tmp").c_str(), 1);
    setenv("VEXILO_LOG_TARGET", "file", 1);
    setenv("HEARD", kHeard.c_str(), 1);
    WriteHostFile(SystemPath("/tmp/bin/espeak-ng"), kEspeak);
    fs::permissions(SystemPath("/tmp/bin/espeak-ng"), fs::perms(0755));
    setenv("PATH", (SystemPath("/tmp/bin") + ":/usr/bin:/bin").c_str(), 1);
  }
  static void SetLanguage(const char* locale) { ASSERT_EQ(vconf_set_str("db/menu_widget/language", locale), 0); }
};

TEST_F(Speech, AnnouncementsAreSpokenInTurnAndTheFocusAfterThemAndNoProcessIsLeft) {
  constexpr char kAsked[] = "-v en-us --stdin | ";
  Announce("wait; $(touch /tmp/x) \"one\"\nline");
  std::string heard = kAsked + "wait; $(touch /tmp/x) \"one\"\nline\n"s;
  ExpectHeard(heard);
  Focus("row 1");
  Announce("two");
  Announce("two");  // it waits already
  Focus("long row 2");
  WriteHostFile(kHeard + ".on", "");
  ExpectHeard(heard += kAsked + "two\n"s + kAsked + "long row 2\n");
  Focus("long row 3");
  ExpectHeard(heard += kAsked + "long row 3\n"s);
  Announce("long three");
  ExpectHeard(heard += kAsked + "long three\n"s);
  Announce("four");
  Focus("row 4");
  Announce("");
  Announce("long five");
  ExpectHeard(heard += kAsked + "long five\n"s);
  Announce("");
  // Each that was cut off has ended, or its process would be here still.
  EXPECT_TRUE(Until([] { return waitpid(-1, nullptr, WNOHANG) < 0 && errno == ECHILD; }));
}

TEST_F(Speech, VoiceFollowsTheMenuLanguage) {
  const std::pair<const char*, const char*> cases[] = {{"de_DE.utf8", "de"},       {"pt_BR.utf8", "pt-br"},
                                                       {"zh_CN.utf8", "cmn"},      {"en_GB", "en-gb"},
                                                       {"sr_RS.utf8@latin", "sr"}, {"fr_FR.utf8", "fr-fr"}};
  std::string heard;
  for (const auto& [locale, voice] : cases) {
    SetLanguage(locale);
    Announce("text");
    ExpectHeard(heard += std::string("-v ") + voice + " --stdin | text\n");
  }
}

TEST_F(Speech, SaysOnceThatThereIsNoSpeech) {
  setenv("PATH", "/nonexistent", 1);
  SetLanguage("no locale");  // which it says for each text that it takes up
  for (int i = 1; i <= 3; ++i) {
    Focus("text");
    EXPECT_TRUE(Until([i] { return Count(Log(), "is no locale") == i; })) << Log();
  }
  EXPECT_EQ(Count(Log(), "no speech: speech-dispatcher does not run, and espeak-ng is not installed"), 1);
}

TEST_F(Speech, SaysThatTheProgramFails) {
  Announce("fail");
  EXPECT_TRUE(Until([] { return Count(Log(), "espeak-ng failed") == 1; })) << Log();
}

TEST_F(Speech, PrefersSpeechDispatcherAndOutlivesIt) {
  SetLanguage("pt_BR.utf8");
  sockaddr_un address = {AF_UNIX, ""};
  SystemPath("/tmp/speechd.sock").copy(address.sun_path, sizeof address.sun_path - 1);
  setenv("SPEECHD_ADDRESS", (std::string("unix_socket:") + address.sun_path).c_str(), 1);
  {
    const FdHandle listener(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    ASSERT_EQ(bind(listener.get(), reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    ASSERT_EQ(listen(listener.get(), 1), 0);
    Announce("Hello\n.dot");
    Focus("Row");
    const FdHandle client(accept(listener.get(), nullptr, nullptr));
    for (const std::string request :
         {"SET SELF CLIENT_NAME vexilo:vexilo:main\r\n", "SET SELF PRIORITY MESSAGE\r\n", "SET SELF LANGUAGE pt-BR\r\n",
          "SPEAK\r\n", "Hello\r\n..dot\r\n.\r\n", "SET SELF PRIORITY TEXT\r\n", "SET SELF LANGUAGE pt-BR\r\n",
          "SPEAK\r\n", "Row\r\n.\r\n"}) {
      std::string received(request.size(), ' ');
      recv(client.get(), received.data(), received.size(), MSG_WAITALL);
      ASSERT_EQ(received, request);
      if (request != "Row\r\n.\r\n") send(client.get(), "200 OK\r\n", 8, MSG_NOSIGNAL);
    }
  }
  fs::remove(address.sun_path);
  // It hung up in the middle of that, and is gone: the text is not lost.
  ExpectHeard("-v pt-br --stdin | Row\n");
}

}  // namespace
