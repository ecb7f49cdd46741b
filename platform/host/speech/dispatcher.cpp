#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <cstdlib>
#include <cstring>
#include <string_view>

#include "settings/menu_language.h"
#include "speech/speaker.h"

namespace speech {

namespace {

constexpr int kReplyMilliseconds = 2000;
constexpr std::string_view kUnixScheme = "unix_socket:";
constexpr char kSocketName[] = "/speech-dispatcher/speechd.sock";

std::string SocketPath() {
  const char* const address = std::getenv("SPEECHD_ADDRESS");
  if (address) return std::string_view(address).starts_with(kUnixScheme) ? address + kUnixScheme.size() : "";
  const char* const runtime = std::getenv("XDG_RUNTIME_DIR");
  return runtime ? std::string(runtime) + kSocketName : "";
}

/// "pt_BR.utf8" as the protocol names languages: "pt-BR".
std::string LanguageTag(const std::string& locale) {
  std::string tag = locale.substr(0, locale.find_first_of(".@"));
  if (const size_t at = tag.find('_'); at != std::string::npos) tag[at] = '-';
  return tag;
}

/// The text as the protocol sends it: lines end in CR LF, a dot that begins one is doubled, a dot alone ends it all.
std::string Message(const std::string& text) {
  std::string message;
  bool lineBegins = true;
  for (const char each : text) {
    if (each == '\r') continue;
    if (lineBegins && each == '.') message += '.';
    message += each == '\n' ? "\r\n" : std::string(1, each);
    lineBegins = each == '\n';
  }
  return message + "\r\n.";
}

}  // namespace

bool Dispatcher::Connect() {
  const std::string path = SocketPath();
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  if (path.empty() || path.size() >= sizeof address.sun_path) return false;
  std::memcpy(address.sun_path, path.c_str(), path.size());
  m_received.clear();
  m_socket.reset(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  if (connect(m_socket.get(), reinterpret_cast<sockaddr*>(&address), sizeof address) == 0 &&
      Ask("SET SELF CLIENT_NAME vexilo:vexilo:main"))
    return true;
  m_socket.reset();
  return false;
}

std::string Dispatcher::ReadReply() {
  // Lines that are continued have a '-' after their number; the last one has a blank.
  for (;;) {
    const size_t end = m_received.find("\r\n");
    if (end != std::string::npos) {
      const std::string line = m_received.substr(0, end);
      m_received.erase(0, end + 2);
      if (line.size() < 4 || line[3] != '-') return line;
      continue;
    }
    char bytes[512];
    pollfd readable{m_socket.get(), POLLIN, 0};
    if (poll(&readable, 1, kReplyMilliseconds) <= 0) return "";
    const ssize_t count = recv(m_socket.get(), bytes, sizeof bytes, 0);
    if (count <= 0) return "";
    m_received.append(bytes, static_cast<size_t>(count));
  }
}

bool Dispatcher::Ask(const std::string& command) {
  const std::string line = command + "\r\n";
  for (size_t sent = 0; sent < line.size();) {
    pollfd writable{m_socket.get(), POLLOUT, 0};
    if (poll(&writable, 1, kReplyMilliseconds) <= 0) return false;
    const ssize_t count = send(m_socket.get(), line.data() + sent, line.size() - sent, MSG_NOSIGNAL | MSG_DONTWAIT);
    if (count <= 0) return false;
    sent += static_cast<size_t>(count);
  }
  return ReadReply().starts_with('2');  // 2xx: done
}

bool Dispatcher::Say(const std::string& text, Kind kind, const std::string& locale) {
  // Messages are spoken one after the other; texts wait for them, and a text cancels the one before it.
  const std::string priority = kind == Kind::kAnnouncement ? "MESSAGE" : "TEXT";
  // A connection that was lost since the last text is made anew once.
  for (const bool fresh : {false, true}) {
    if ((fresh || !m_socket) && !Connect()) return false;
    if (Ask("SET SELF PRIORITY " + priority) && Ask("SET SELF LANGUAGE " + LanguageTag(locale)) && Ask("SPEAK") &&
        Ask(Message(text)))
      return true;
    m_socket.reset();
  }
  return false;
}

void Dispatcher::Cancel() {
  if (m_socket && !Ask("CANCEL SELF")) m_socket.reset();
}

}  // namespace speech
