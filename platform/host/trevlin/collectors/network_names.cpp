#include <arpa/inet.h>
#include <arpa/nameser.h>
#include <netdb.h>
#include <poll.h>
#include <resolv.h>
#include <sys/random.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "c_handle.h"
#include "dlog.h"
#include "log_tags.h"
#include "set_paths.h"
#include "trevlin/collectors/network_probe.h"

namespace trevlin {

namespace {

using Clock = std::chrono::steady_clock;
using connection::Address;
using namespace std::chrono_literals;
using Milliseconds = std::chrono::duration<double, std::milli>;
using Bytes = std::vector<unsigned char>;

constexpr const char* kTag = log_tags::kTrevlin;
constexpr auto kAgain = 300ms;  // until a silent server is asked again
constexpr auto kGrace = 300ms;  // for the root, after the name
constexpr size_t kTries = 7;
// An identifier says which question of a server is answered: the first twelve bits are a server's, the others its
// questions'.
constexpr uint16_t kQuestions = 0xF, kLocalHost = 8, kRoot = 9;

/// res_state; the resolver's own is for threads that live long.
class Resolver {
 public:
  Resolver() : m_ready(res_ninit(&m_state) == 0) {}
  ~Resolver() {
    if (m_ready) res_nclose(&m_state);
  }
  Resolver(const Resolver&) = delete;
  Resolver& operator=(const Resolver&) = delete;

  explicit operator bool() const { return m_ready; }

  /// A question as it is sent, with any identifier; empty when there can be no such name.
  Bytes Question(const std::string& name, ns_type type) {
    Bytes question(NS_PACKETSZ);
    const int size = res_nmkquery(&m_state, ns_o_query, name.c_str(), ns_c_in, type, nullptr, 0, nullptr,
                                  question.data(), static_cast<int>(question.size()));
    question.resize(static_cast<size_t>(std::max(size, 0)));
    return question;
  }

  std::vector<sockaddr_storage> Servers() const {
    std::vector<sockaddr_storage> servers;
    for (int i = 0; i < m_state.nscount; ++i) {
      sockaddr_storage& server = servers.emplace_back();
      const sockaddr_in& server4 = m_state.nsaddr_list[i];
      const sockaddr_in6* server6 = m_state._u._ext.nsaddrs[i];
      if (server4.sin_family == AF_INET)
        std::memcpy(&server, &server4, sizeof server4);
      else if (server6)
        std::memcpy(&server, server6, sizeof *server6);
    }
    return servers;
  }

  /// What it waits for a server.
  std::chrono::seconds Limit() const { return std::chrono::seconds(std::max(m_state.retrans, 1)); }

 private:
  struct __res_state m_state {};
  const bool m_ready;
};

uint64_t Random() {
  uint64_t number = 0;
  if (getrandom(&number, sizeof number, GRND_NONBLOCK) != sizeof number)
    number = static_cast<uint64_t>(Clock::now().time_since_epoch().count());
  return number;
}

std::string RandomLabel() {
  char label[17];
  std::snprintf(label, sizeof label, "%016llx", static_cast<unsigned long long>(Random()));
  return label;
}

Address AddressOf(const sockaddr_storage& server) {
  Address address{server.ss_family, {}};
  if (server.ss_family == AF_INET)
    std::memcpy(address.bytes.data(), &reinterpret_cast<const sockaddr_in&>(server).sin_addr, 4);
  else
    std::memcpy(address.bytes.data(), &reinterpret_cast<const sockaddr_in6&>(server).sin6_addr, 16);
  return address;
}

/// What is asked of each server: the name; what a server of this network knows by itself (RFC 6761); the root.
struct Questions {
  Bytes name, localHost, root;
};

/// One server, and what it has said.
class Server {
 public:
  explicit Server(const sockaddr_storage& address)
      : m_address(AddressOf(address)),
        m_identifier(static_cast<uint16_t>(Random() & ~uint64_t{kQuestions})),
        m_fd(socket(address.ss_family, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)) {
    const socklen_t size = address.ss_family == AF_INET ? sizeof(sockaddr_in) : sizeof(sockaddr_in6);
    if (m_fd && connect(m_fd.get(), reinterpret_cast<const sockaddr*>(&address), size) != 0) m_fd.reset();
  }

  int Fd() const { return m_fd.get(); }
  const Address& Where() const { return m_address; }
  bool WasHeard() const { return m_wasHeard; }
  bool HasAnswered() const { return m_answered.has_value(); }
  bool DeniesRoot() const { return m_rootCode == ns_r_nxdomain; }

  /// No more is to come of it that anybody waits for.
  bool IsSettled(Clock::time_point now) const {
    if (!m_answered) return m_hasFailed || !m_fd;
    return m_rootCode || now >= m_answeredAt + kGrace;
  }

  /// How long one waits for the answer to the try `round`, or that it will not come; with the time limit, that one
  /// waits for nothing.
  struct Wait {
    bool isAnswered;
    Milliseconds time;
  };
  Wait WaitFor(size_t round, Milliseconds limit) const {
    if (m_answered == round) return {true, m_answeredAt - m_sentAt[round]};
    return {false, !m_answered && IsSettled(Clock::now()) ? Milliseconds(0) : limit};
  }

  void Ask(size_t round, const Questions& questions, Clock::time_point now) {
    if (m_answered || m_hasFailed || !m_fd) return;
    m_sentAt[round] = now;
    Send(questions.name, static_cast<uint16_t>(round));
    if (m_wasHeard) return;
    Send(questions.localHost, kLocalHost);
    Send(questions.root, kRoot);
  }

  void Receive(Clock::time_point now) {
    unsigned char message[NS_PACKETSZ];
    for (;;) {
      const ssize_t got = recv(m_fd.get(), message, sizeof message, MSG_DONTWAIT | MSG_TRUNC);
      if (got < 0 && errno == EINTR) continue;
      // Nobody is there, or no way leads there.
      if (got < 0 && errno != EAGAIN && !m_wasHeard) m_fd.reset();
      if (got < 0) return;
      if (got >= NS_HFIXEDSZ) Take(message, now);
    }
  }

 private:
  void Send(Bytes question, uint16_t number) {
    if (question.empty() || !m_fd) return;
    const auto identifier = static_cast<uint16_t>(m_identifier | number);
    question[0] = static_cast<unsigned char>(identifier >> 8);
    question[1] = static_cast<unsigned char>(identifier);
    const bool isSent = send(m_fd.get(), question.data(), question.size(), MSG_NOSIGNAL) >= 0;
    if (!isSent && errno != EAGAIN && errno != ENOBUFS) m_fd.reset();
  }

  void Take(const unsigned char* message, Clock::time_point now) {
    const auto identifier = static_cast<uint16_t>(message[0] << 8 | message[1]);
    const bool isReply = (message[2] & 0x80) != 0;
    if (!isReply || (identifier & ~kQuestions) != m_identifier) return;
    const int code = message[3] & 0xF, question = identifier & kQuestions;
    m_wasHeard = true;
    if (question == kRoot) m_rootCode = code;
    if (question >= static_cast<int>(kTries) || m_answered) return;
    if (code == ns_r_noerror || code == ns_r_nxdomain) {
      m_answered = question;
      m_answeredAt = now;
    } else {
      m_hasFailed = true;
    }
  }

  const Address m_address;
  const uint16_t m_identifier;
  FdHandle m_fd;
  bool m_wasHeard = false, m_hasFailed = false;
  std::optional<size_t> m_answered;  // which try
  std::optional<int> m_rootCode;
  Clock::time_point m_answeredAt{};
  std::array<Clock::time_point, kTries> m_sentAt{};
};

/// Nobody needs to wait for those behind the first that answers.
bool IsDecided(const std::vector<Server>& servers, Clock::time_point now) {
  for (const Server& each : servers) {
    if (!each.IsSettled(now)) return false;
    if (each.HasAnswered()) return true;
  }
  return true;
}

void Converse(std::vector<Server>& servers, const Questions& questions, std::chrono::milliseconds patience) {
  const auto start = Clock::now(), end = start + patience;
  size_t round = 0;
  auto due = start;
  for (auto now = start; now < end && !IsDecided(servers, now); now = Clock::now()) {
    if (round < kTries && now >= due) {
      for (Server& each : servers) each.Ask(round, questions, now);
      due = ++round < kTries ? std::min(end, due + kAgain) : end;
    }
    const bool isGrace = std::any_of(servers.begin(), servers.end(), [](auto& each) { return each.HasAnswered(); });
    const auto until = isGrace ? std::min(due, now + kGrace / 4) : due;
    std::vector<pollfd> waits;
    for (const Server& each : servers) waits.push_back({each.Fd(), POLLIN, 0});
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(until - now).count();
    if (poll(waits.data(), waits.size(), static_cast<int>(std::max<int64_t>(left, 0))) <= 0) continue;
    for (size_t i = 0; i < servers.size(); ++i)
      if (waits[i].revents != 0) servers[i].Receive(Clock::now());
  }
}

/// As the resolver goes about it: one server after the other, and round again.
std::optional<double> DelayOf(const std::vector<Server>& servers, Milliseconds limit) {
  Milliseconds delay{};
  for (size_t round = 0; round < kTries; ++round)
    for (const Server& each : servers) {
      const auto [isAnswered, time] = each.WaitFor(round, limit);
      delay += time;
      if (isAnswered) return delay.count();
    }
  return std::nullopt;
}

}  // namespace

NameAnswers AskNameServers(const std::string& zone, std::chrono::milliseconds patience) {
  NameAnswers answers;
  Resolver resolver;
  if (!resolver) return answers;
  const Questions questions{resolver.Question(RandomLabel() + "." + zone, ns_t_a),
                            resolver.Question("localhost", ns_t_a), resolver.Question("", ns_t_ns)};
  if (questions.name.empty()) {
    __dlog_print(LOG_ID_APPS, DLOG_ERROR, kTag, "%s: [network] probe_zone: \"%s\" is no zone of names",
                 set_paths::kSetProfile, zone.c_str());
    return answers;
  }
  std::vector<Server> servers;
  for (const sockaddr_storage& each : resolver.Servers()) servers.emplace_back(each);
  if (servers.empty()) return answers;
  Converse(servers, questions, patience);

  answers.resolve = false;
  for (const Server& each : servers) {
    if (each.WasHeard()) answers.heard.push_back(each.Where());
    if (!each.HasAnswered() || answers.resolve == true) continue;
    answers.resolve = true;
    answers.isInvented = each.DeniesRoot();
  }
  if (answers.resolve == true) answers.delayMs = DelayOf(servers, resolver.Limit());
  return answers;
}

}  // namespace trevlin
