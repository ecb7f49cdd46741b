#pragma once
/// @file
/// A small network for tests: this machine in a network namespace of its own, a router in another, name servers and
/// web servers that the test plays. Nothing of it leaves the test.

#include <arpa/inet.h>
#include <poll.h>
#include <sys/socket.h>

#include "c_handle.h"
#include "support/files.h"
#include "support/test.h"

/// Runs a command of a shell; a failing one fails the test.
inline void Shell(const std::string& command) {
  EXPECT_EQ(std::system(command.c_str()), 0) << command;
}

/// The namespaces of network and mounts of this thread, and of all that it starts from now on, become the test's own.
/// IsMade() is false where this user may not do that.
class SmallNetwork {
 public:
  /// With an interface eth0, 192.168.7.2, whose other end is the router 192.168.7.1, and a default route there.
  SmallNetwork() {
    if (unshare(CLONE_NEWNET | CLONE_NEWNS) != 0) return;
    m_router = OpenNamespace();
    m_isMade = unshare(CLONE_NEWNET) == 0;
    if (!m_isMade) return;
    m_machine = OpenNamespace();
    Shell("mount --make-rprivate / && mount -t sysfs sysfs /sys");
    Shell(kBegin);
    AtRouter(kBegin);
    Plug("eth0", "lan0", "192.168.7.2", "192.168.7.1");
    Shell("ip route add default via 192.168.7.1");
  }
  SmallNetwork(const SmallNetwork&) = delete;
  SmallNetwork& operator=(const SmallNetwork&) = delete;

  bool IsMade() const { return m_isMade; }

  /// A cable between an interface of the machine and one of the router.
  void Plug(const std::string& here, const std::string& there, const std::string& ours, const std::string& theirs) {
    Shell("ip link add " + here + " type veth peer name " + there);
    const std::string router = "/proc/" + std::to_string(getpid()) + "/fd/" + std::to_string(m_router.get());
    Shell("ip link set " + there + " netns " + router);
    Shell("ip addr add " + ours + "/24 dev " + here + " && ip link set " + here + " up");
    AtRouter("ip addr add " + theirs + "/24 dev " + there + " && ip link set " + there + " up");
    AwaitAddresses();
  }

  /// Runs a command where the router is.
  void AtRouter(const std::string& command) {
    At(m_router, [&] { Shell(command); });
  }
  /// Does something where the router is, on this thread.
  void AtRouter(const std::function<void()>& what) { At(m_router, what); }

  /// The kernel's neighbour entry of the router, with its true hardware address, in that state ("stale"); "none": it is
  /// forgotten.
  void SetNeighbour(const std::string& state) {
    Shell("ip neigh flush dev eth0");
    if (state == "none") return;
    std::string address;
    AtRouter([&] { address = ReadHostLine("ip -o link show lan0 | sed 's/.*ether \\([^ ]*\\).*/\\1/'"); });
    Shell("ip neigh replace 192.168.7.1 dev eth0 lladdr " + address + " nud " + state);
  }

  /// What /etc/resolv.conf says from now on.
  static void SetResolver(const std::string& text) {
    static const std::string file = SystemPath("/resolv.conf");
    const bool isNew = !fs::exists(file);
    WriteHostFile(file, text);
    if (isNew) Shell("mount --bind " + file + " " + fs::canonical("/etc/resolv.conf").string());
  }

 private:
  /// Nobody else is there whose address it could be.
  static constexpr char kBegin[] = "ip link set lo up && echo 0 > /proc/sys/net/ipv6/conf/default/accept_dad";

  static FdHandle OpenNamespace() { return FdHandle(open("/proc/thread-self/ns/net", O_RDONLY | O_CLOEXEC)); }

  static std::string ReadHostLine(const std::string& command) {
    const std::unique_ptr<FILE, int (*)(FILE*)> pipe(popen(command.c_str(), "r"), pclose);
    char line[256] = "";
    if (!fgets(line, sizeof line, pipe.get())) ADD_FAILURE() << command;
    return std::string(line, strcspn(line, "\n"));
  }

  void At(const FdHandle& place, const std::function<void()>& what) {
    ASSERT_EQ(setns(place.get(), CLONE_NEWNET), 0);
    what();
    ASSERT_EQ(setns(m_machine.get(), CLONE_NEWNET), 0);
  }

  /// Addresses of IPv6 are good only after the kernel has looked whether another has them.
  static void AwaitAddresses() {
    ASSERT_TRUE(Until([] { return std::system("ip -6 addr show tentative | grep -q inet6") != 0; }));
  }

  bool m_isMade = false;
  FdHandle m_router, m_machine;
};

/// A question to a played name server.
struct PlayedQuestion {
  std::string name;  ///< "a.b", "" for the root
  int nth;           ///< the how manieth for this name, from 0
};

/// Answers at an address and port 53. What `answer` returns is the response code, after `delay`; nothing is silence.
class PlayedNameServer {
 public:
  using Answer = std::function<std::optional<uint8_t>(const PlayedQuestion& question)>;

  PlayedNameServer(const char* address, Answer answer, std::chrono::milliseconds delay = 0ms)
      : m_answer(std::move(answer)), m_delay(delay), m_socket(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
    m_address.sin_family = AF_INET;
    m_address.sin_port = htons(53);
    inet_pton(AF_INET, address, &m_address.sin_addr);
    EXPECT_EQ(bind(m_socket.get(), reinterpret_cast<sockaddr*>(&m_address), sizeof m_address), 0) << address;
    m_thread = std::thread([this] { Serve(); });
  }
  ~PlayedNameServer() {
    m_stop = true;
    m_thread.join();
  }
  PlayedNameServer(const PlayedNameServer&) = delete;

  /// The names that were asked for.
  std::vector<std::string> Asked() {
    const std::lock_guard lock(m_mutex);
    return m_asked;
  }

 private:
  void Serve() {
    unsigned char message[512];
    while (!m_stop) {
      pollfd wait{m_socket.get(), POLLIN, 0};
      if (poll(&wait, 1, 20) <= 0) continue;
      sockaddr_in from{};
      socklen_t size = sizeof from;
      const ssize_t got =
          recvfrom(m_socket.get(), message, sizeof message, 0, reinterpret_cast<sockaddr*>(&from), &size);
      if (got <= 12) continue;  // the header: identifier, flags with the response code, numbers of records
      const auto code = m_answer(Note(message, static_cast<size_t>(got)));
      if (!code) continue;
      std::this_thread::sleep_for(m_delay);
      message[2] |= 0x80;
      message[3] = static_cast<unsigned char>(0x80 | *code);
      sendto(m_socket.get(), message, static_cast<size_t>(got), 0, reinterpret_cast<sockaddr*>(&from), size);
    }
  }

  PlayedQuestion Note(const unsigned char* message, size_t size) {
    std::string name;
    for (size_t at = 12; at < size && message[at] != 0 && at + message[at] < size; at += 1 + message[at])
      name += (name.empty() ? "" : ".") + std::string(reinterpret_cast<const char*>(message + at + 1), message[at]);
    const std::lock_guard lock(m_mutex);
    const auto nth = std::count(m_asked.begin(), m_asked.end(), name);
    m_asked.push_back(name);
    return {name, static_cast<int>(nth)};
  }

  const Answer m_answer;
  const std::chrono::milliseconds m_delay;
  FdHandle m_socket;
  sockaddr_in m_address{};
  std::atomic<bool> m_stop{false};
  std::mutex m_mutex;
  std::vector<std::string> m_asked;
  std::thread m_thread;
};

/// Says the same to whoever connects to an address and port 80; nothing when it is empty.
class PlayedWebServer {
 public:
  PlayedWebServer(const char* address, std::string says)
      : m_says(std::move(says)), m_socket(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    sockaddr_in at{};
    at.sin_family = AF_INET;
    at.sin_port = htons(80);
    inet_pton(AF_INET, address, &at.sin_addr);
    const int yes = 1;
    setsockopt(m_socket.get(), SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
    EXPECT_EQ(bind(m_socket.get(), reinterpret_cast<sockaddr*>(&at), sizeof at), 0) << address;
    EXPECT_EQ(listen(m_socket.get(), 8), 0);
    m_thread = std::thread([this] { Serve(); });
  }
  ~PlayedWebServer() {
    m_stop = true;
    m_thread.join();
  }
  PlayedWebServer(const PlayedWebServer&) = delete;

  /// The last request.
  std::string Asked() {
    const std::lock_guard lock(m_mutex);
    return m_asked;
  }

 private:
  void Serve() {
    std::vector<FdHandle> callers;  // they are kept waiting, not hung up on
    while (!m_stop) {
      pollfd wait{m_socket.get(), POLLIN, 0};
      if (poll(&wait, 1, 20) <= 0) continue;
      FdHandle caller(accept(m_socket.get(), nullptr, nullptr));
      char request[1024];
      const ssize_t got = recv(caller.get(), request, sizeof request, 0);
      const std::lock_guard lock(m_mutex);
      m_asked.assign(request, static_cast<size_t>(std::max<ssize_t>(got, 0)));
      if (m_says.empty())
        callers.push_back(std::move(caller));
      else
        EXPECT_GT(send(caller.get(), m_says.data(), m_says.size(), MSG_NOSIGNAL), 0);
    }
  }

  const std::string m_says;
  FdHandle m_socket;
  std::atomic<bool> m_stop{false};
  std::mutex m_mutex;
  std::string m_asked;
  std::thread m_thread;
};
