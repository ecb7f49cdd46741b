#include <gio/gio.h>
#include <poll.h>
#include <sys/socket.h>

#include <cerrno>
#include <charconv>
#include <cstring>

#include "base/glib_handle.h"
#include "c_handle.h"
#include "dlog.h"
#include "log_tags.h"
#include "set_paths.h"
#include "trevlin/collectors/network_probe.h"

namespace trevlin {

namespace {

using Clock = std::chrono::steady_clock;
using ContextHandle = std::unique_ptr<GMainContext, CRelease<&g_main_context_unref>>;

constexpr const char* kTag = log_tags::kTrevlin;
constexpr uint16_t kHttpPort = 80;
constexpr std::string_view kVersion = "HTTP/1.";
constexpr size_t kStatusLine = std::string_view("HTTP/1.1 204").size(), kStatusCode = 3;
constexpr int kNoContent = 204;

/// Of "http://HOST[:PORT]/PATH".
struct Url {
  std::string host, authority, path;
  uint16_t port = kHttpPort;
};

std::optional<Url> ParseUrl(const std::string& text) {
  GErrorHandle error;
  const std::unique_ptr<GUri, CRelease<&g_uri_unref>> uri(
      g_uri_parse(text.c_str(), static_cast<GUriFlags>(G_URI_FLAGS_ENCODED), error.Out()));
  const char* const host = uri ? g_uri_get_host(uri.get()) : nullptr;
  const bool isPlain = text.find_first_of("\r\n \t") == text.npos;
  if (!host || !*host || !isPlain || g_strcmp0(g_uri_get_scheme(uri.get()), "http") != 0) return std::nullopt;
  Url url{host, host, g_uri_get_path(uri.get())};
  if (url.host.find(':') != url.host.npos) url.authority = "[" + url.host + "]";
  if (const int port = g_uri_get_port(uri.get()); port > 0) {
    url.port = static_cast<uint16_t>(port);
    url.authority += ":" + std::to_string(port);
  }
  if (url.path.empty()) url.path = "/";
  if (const char* const query = g_uri_get_query(uri.get())) url.path += "?" + std::string(query);
  return url;
}

/// A connection on its way.
struct Attempt {
  GObjectHandle<GSocketConnection> connection;
  bool isFound = false;  // the host has an address
  bool done = false;
};

void OnEvent(GSocketClient*, GSocketClientEvent event, GSocketConnectable*, GIOStream*, void* data) {
  if (event == G_SOCKET_CLIENT_CONNECTING) static_cast<Attempt*>(data)->isFound = true;
}

void OnConnected(GObject* client, GAsyncResult* result, void* data) {
  auto* attempt = static_cast<Attempt*>(data);
  attempt->connection.reset(g_socket_client_connect_to_host_finish(G_SOCKET_CLIENT(client), result, nullptr));
  attempt->done = true;
}

gboolean OnLimit(void* cancellable) {
  g_cancellable_cancel(static_cast<GCancellable*>(cancellable));
  return G_SOURCE_REMOVE;
}

/// Looks the host up and connects to the first of its addresses that answers, in a main loop of its own.
void ConnectTo(const Url& url, std::chrono::milliseconds limit, Attempt& attempt) {
  const ContextHandle context(g_main_context_new());
  g_main_context_push_thread_default(context.get());
  {
    const GObjectHandle<GCancellable> cancellable(g_cancellable_new());
    const GObjectHandle<GSocketClient> client(g_socket_client_new());
    g_socket_client_set_enable_proxy(client.get(), FALSE);
    g_signal_connect(client.get(), "event", G_CALLBACK(OnEvent), &attempt);
    GSource* const timer = g_timeout_source_new(static_cast<guint>(limit.count()));
    g_source_set_callback(timer, OnLimit, cancellable.get(), nullptr);
    g_source_attach(timer, context.get());
    g_socket_client_connect_to_host_async(client.get(), url.host.c_str(), url.port, cancellable.get(), OnConnected,
                                          &attempt);
    while (!attempt.done) g_main_context_iteration(context.get(), TRUE);
    g_source_destroy(timer);
    g_source_unref(timer);
  }
  g_main_context_pop_thread_default(context.get());
}

/// The beginning of what `fd` says until `end`.
std::string ReadStatusLine(int fd, Clock::time_point end) {
  std::string line;
  while (line.size() < kStatusLine) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(end - Clock::now()).count();
    pollfd wait{fd, POLLIN, 0};
    if (left <= 0 || poll(&wait, 1, static_cast<int>(left)) == 0) break;
    char bytes[kStatusLine];
    const ssize_t got = recv(fd, bytes, sizeof bytes, MSG_DONTWAIT);
    if (got < 0 && (errno == EINTR || errno == EAGAIN)) continue;
    if (got <= 0) break;
    line.append(bytes, static_cast<size_t>(got));
  }
  return line;
}

/// The status of the answer.
std::optional<int> Get(int fd, const Url& url, Clock::time_point end) {
  const std::string request = "GET " + url.path + " HTTP/1.1\r\nHost: " + url.authority +
                              "\r\nUser-Agent: Vexilo\r\nCache-Control: no-cache\r\nConnection: close\r\n\r\n";
  if (send(fd, request.data(), request.size(), MSG_NOSIGNAL) != static_cast<ssize_t>(request.size()))
    return std::nullopt;
  const std::string line = ReadStatusLine(fd, end);
  if (line.size() < kStatusLine || !line.starts_with(kVersion)) return std::nullopt;
  int status = 0;
  const char* const code = line.data() + kStatusLine - kStatusCode;
  const auto [stopped, error] = std::from_chars(code, code + kStatusCode, status);
  // What says HTTP and no number is somebody all the same.
  return stopped == code + kStatusCode ? status : 0;
}

}  // namespace

bool IsWebAddress(const std::string& url) {
  return ParseUrl(url).has_value();
}

WebAnswer AskWeb(const std::string& text, std::chrono::milliseconds patience) {
  const auto end = Clock::now() + patience;
  const auto url = ParseUrl(text);
  if (!url) return {};
  Attempt attempt;
  ConnectTo(*url, patience, attempt);
  if (!attempt.connection) return {.isFound = attempt.isFound};
  return {true, Get(g_socket_get_fd(g_socket_connection_get_socket(attempt.connection.get())), *url, end)};
}

PageAnswer AskPage(const std::string& url, std::chrono::milliseconds patience) {
  if (!IsWebAddress(url)) {
    __dlog_print(LOG_ID_APPS, DLOG_ERROR, kTag, "%s: [network] probe_page: \"%s\" is not http://HOST[:PORT]/PATH",
                 set_paths::kSetProfile, url.c_str());
    return PageAnswer::kUnknown;
  }
  const WebAnswer answer = AskWeb(url, patience);
  if (!answer.isFound) return PageAnswer::kUnknown;
  if (!answer.status) return PageAnswer::kSilent;
  return answer.status == kNoContent ? PageAnswer::kReached : PageAnswer::kOther;
}

}  // namespace trevlin
