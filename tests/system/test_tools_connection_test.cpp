// The connection test in networks that are broken, one step after the other: namespaces, cables, a router and servers
// of the test's own.

#include <fcntl.h>
#include <linux/if_tun.h>
#include <net/if.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/syscall.h>
#include <sys/timex.h>

#include "connection_run.h"
#include "support/small_network.h"
#include "support/usage_events.h"
#include "ui/test_tool_fixture.h"

namespace {

using namespace tools;
using testing::HasSubstr;

constexpr char kReached[] = "HTTP/1.1 204 No Content\r\n\r\n", kSignIn[] = "HTTP/1.1 200 OK\r\n\r\n",
               kOutOfOrder[] = "HTTP/1.1 503 Service Unavailable\r\n\r\n";
constexpr char kSynchronised[] = "/run/systemd/timesync/synchronized";
constexpr char kGone[] = "ip addr del 192.168.7.1/24 dev lan0", kBack[] = "ip addr add 192.168.7.1/24 dev lan0";

bool IsKernelClockSynchronised() {
  timex clock{};
  return adjtimex(&clock) != TIME_ERROR && (clock.status & STA_UNSYNC) == 0;
}

/// "ppf.w 10000002": passed, unknown (-), failed, waiting (.); and the issue.
std::string Outcome() {
  ConnectionRun run;
  while (run.Begin()) run.Ask();
  std::string text;
  for (const ConnectionRow& row : run.Rows()) {
    text += ".rp-f"[static_cast<size_t>(row.state)];
    EXPECT_EQ(row.took > 0ms, row.state != StepState::kWaiting);
  }
  return text + (run.Failed() ? " " + std::to_string(run.Failed()->issue) : "");
}

class Connection : public ToolPages {
 protected:
  void SetUp() override {
    if (!m_network.IsMade()) GTEST_SKIP() << "not root: no network of the test's own";
    // A machine with a clock of its own, which a time service keeps right.
    for (const auto& [file, content] :
         {std::pair("/proc/cpuinfo", "processor\t: 0\nflags\t\t: fpu\n"), {"/proc/uptime", "99999.00 99999.00\n"}}) {
      WriteHostFile(SystemPath("/machine") + file, content);
      Shell("mount --bind " + SystemPath("/machine") + file + " " + file);
    }
    Shell("mount -t tmpfs tmpfs /run");
    WriteHostFile(kSynchronised, "");
    SmallNetwork::SetResolver("nameserver 192.168.7.1\n");
    m_network.AtRouter("ip addr add 10.7.7.7/32 dev lo");
    m_network.AtRouter([this] {
      m_names = std::make_unique<PlayedNameServer>(
          "0.0.0.0", [this](const PlayedQuestion& question) -> std::optional<uint8_t> {
            if (question.name.empty() || question.name == "localhost") return uint8_t{0};
            return m_isCutOff ? std::nullopt : std::optional<uint8_t>(3);  // there is no such name
          });
    });
    Play(m_shop, "10.7.7.7", kReached);
    WriteFile(set_paths::kSetProfile,
              "[connection]\nservices=The shop http://10.7.7.7/shop;;nonsense;News ftp://x;Again http://10.7.7.7\n");
  }

  void Play(std::unique_ptr<PlayedWebServer>& server, const char* address, const char* answer) {
    server.reset();
    m_network.AtRouter([&] { server = std::make_unique<PlayedWebServer>(address, answer); });
  }

  SmallNetwork m_network;
  std::atomic<bool> m_isCutOff{false};
  std::unique_ptr<PlayedNameServer> m_names;
  std::unique_ptr<PlayedWebServer> m_page, m_shop;
};

/// The kernel takes a moment to see a cable go or come.
std::string OutcomeOnceItIs(const std::string& wanted) {
  std::string outcome;
  for (int i = 0; i < 4 && (outcome = Outcome()) != wanted; ++i) std::this_thread::sleep_for(500ms);
  return outcome;
}

TEST_F(Connection, EndsAtEachStepThatIsBrokenAndSaysWhy) {
  const auto resolver = [](const char* text) { return [text] { SmallNetwork::SetResolver(text); }; };
  const auto router = [this](const char* command) { return [this, command] { m_network.AtRouter(command); }; };
  const auto readdress = [] {
    Shell("ip addr flush dev eth0; ip addr add 192.168.7.2/24 dev eth0; ip route add default via 192.168.7.1");
  };
  const auto heal = resolver("nameserver 192.168.7.1\n");
  const std::string profile = ReadFile(set_paths::kSetProfile);
  const struct {
    const char* outcome;
    std::function<void()> breaks, heals;
  } faults[] = {
      {"f....... 10000001", router("ip link set lan0 down"), router("ip link set lan0 up")},
      {"pf...... 10000005", [] { Shell("ip addr flush dev eth0"); }, readdress},
      {"pf...... 10000006", [] { Shell("ip addr flush dev eth0; ip addr add 169.254.3.4/16 dev eth0"); }, readdress},
      {"ppf..... 10000007", [] { Shell("ip route del default"); },
       [] { Shell("ip route add default via 192.168.7.1"); }},
      {"ppf..... 10000002", router(kGone), router(kBack)},
      {"pppf.... 10000008", resolver("search home\n"), heal},
      {"pppf.... 10000003", resolver("nameserver 127.0.0.9\n"), heal},
      {"ppp-f... 10000011", [this] { m_isCutOff = true; }, [this] { m_isCutOff = false; }},
      {"ppppf... 10000012",
       [this, profile] {
         Play(m_page, "192.168.7.1", kSignIn);
         WriteFile(set_paths::kSetProfile, profile + "[network]\nprobe_page=http://192.168.7.1/204\n");
       },
       [this] { Play(m_page, "192.168.7.1", kReached); }},
      {IsKernelClockSynchronised() ? "pppppppp" : "pppppf.. 10060002", [] { fs::remove(kSynchronised); },
       [] { WriteHostFile(kSynchronised, ""); }},
      {"ppppppf. 0", [this] { Play(m_shop, "10.7.7.7", kOutOfOrder); }, [this] { Play(m_shop, "10.7.7.7", kReached); }},
      {"f....... 10000014", [] { Shell("ip link del eth0"); },
       [this] {
         m_network.Plug("eth0", "lan0", "192.168.7.2", "192.168.7.1");
         Shell("ip route add default via 192.168.7.1");
       }},
  };
  EXPECT_EQ(Outcome(), "pppppppp");
  for (const auto& fault : faults) {
    SCOPED_TRACE(fault.outcome);
    fault.breaks();
    EXPECT_EQ(OutcomeOnceItIs(fault.outcome), fault.outcome);
    fault.heals();
    EXPECT_EQ(OutcomeOnceItIs("pppppppp"), "pppppppp");
  }
  EXPECT_THAT(Log(), HasSubstr("[connection] services: \"nonsense\" is not NAME http://HOST"));
  EXPECT_THAT(Log(), HasSubstr("http://10.7.7.7/shop does not work: it answers 503"));

  WriteFile(set_paths::kSetProfile, profile + "[network]\nprobe_zone=\n");
  const size_t asked = m_names->Asked().size();
  m_network.SetNeighbour("reachable");
  EXPECT_EQ(Outcome(), "pppppp") << "nothing is asked of the Internet, but the services that the owner lists";
  EXPECT_EQ(m_names->Asked().size(), asked);
}

// Who may not have the kernel ask again cannot tell a router that is gone until nothing comes through it.
TEST_F(Connection, WhatComesLaterTellsOfASilentRouter) {
  const PlayedNameServer silent("127.0.0.1", [](const PlayedQuestion&) { return std::nullopt; });
  SmallNetwork::SetResolver("nameserver 127.0.0.1\n");
  Shell("echo '1 0' > /proc/sys/net/ipv4/ping_group_range");
  m_network.SetNeighbour("stale");
  m_network.AtRouter(kGone);
  std::thread([] {
    ASSERT_EQ(syscall(SYS_setresuid, 65534, 65534, 65534), 0);  // of this thread alone
    EXPECT_EQ(Outcome(), "ppf..... 10000002");
  }).join();
}

/// A dialled connection to the router, over neither a cable nor a wireless network: what goes in at one end comes out
/// at the other.
class Modem {
 public:
  explicit Modem(SmallNetwork& network) {
    m_ends[0] = Open("ip addr add 192.168.8.2 peer 192.168.8.1 dev modem0");
    network.AtRouter([this] { m_ends[1] = Open("ip addr add 192.168.8.1 peer 192.168.8.2 dev modem0"); });
    m_carries = std::jthread([this](const std::stop_token& stop) {
      char packet[2000];
      for (pollfd ready[] = {{m_ends[0].get(), POLLIN, 0}, {m_ends[1].get(), POLLIN, 0}}; !stop.stop_requested();) {
        poll(ready, 2, 50);
        for (size_t i = 0; i < 2; ++i) {
          const ssize_t size = read(ready[i].fd, packet, sizeof packet);
          if (size <= 0) continue;  // nothing is there
          EXPECT_EQ(write(ready[1 - i].fd, packet, static_cast<size_t>(size)), size);
        }
      }
    });
  }

 private:
  static FdHandle Open(const char* address) {
    FdHandle end(open("/dev/net/tun", O_RDWR | O_CLOEXEC | O_NONBLOCK));
    ifreq request{};
    strcpy(request.ifr_name, "modem0");
    request.ifr_flags = IFF_TUN | IFF_NO_PI;
    EXPECT_EQ(ioctl(end.get(), TUNSETIFF, &request), 0) << strerror(errno);
    Shell(address);
    Shell("ip link set modem0 up");
    return end;
  }

  FdHandle m_ends[2];
  std::jthread m_carries;
};

// As the engine sees it: what gets out otherwise lacks neither a cable nor an adapter.
TEST_F(Connection, AModemNeedsNoCable) {
  const Modem modem(m_network);
  SmallNetwork::SetResolver("nameserver 192.168.8.1\n");
  Shell("ip route replace default dev modem0");
  m_network.AtRouter("ip link set lan0 down");
  EXPECT_EQ(OutcomeOnceItIs("-p-ppppp"), "-p-ppppp");
  Shell("ip link del eth0");
  EXPECT_EQ(Outcome(), "-p-ppppp");
  SmallNetwork::SetResolver("nameserver 127.0.0.9\n");
  EXPECT_EQ(Outcome(), "fp-..... 10000014");
}

TEST_F(Connection, ThePageTellsOffersTheFixAndTestsAgain) {
  fs::create_directories(fs::path(SystemPath(set_paths::kParserPlugin)).parent_path());
  fs::copy(PARSER_PLUGIN, SystemPath(set_paths::kParserPlugin));
  WriteFile(set_paths::kSolutionMap, ReadHostFile(VEXILO_SOURCE_DIR "/platform/set/solutionmap.xml"));
  Shell("ip route del default");
  OpenTool("connection");
  ASSERT_TRUE(Soon([this] { return ShowsSid("TV_SID_VEXILO_NO_ROUTE_MSG"); })) << "as the list of issues tells it";
  const auto isTime = [](const Shown& each) { return each.text.ends_with(" ms"); };
  EXPECT_TRUE(
      Soon([&] { return ShowsSid("TV_SID_VEXILO_STEP_FAILED") && std::ranges::count_if(Texts(), isTime) == 2; }));
  EXPECT_THAT(StoredEvents(), HasSubstr("select_item=Homedeck Connection Test;status=Not connected;"));
  const auto isStillThere = [this](const std::string& problem) {
    return Shows(problem + ": " + QUVA::CUtils::m_GetText("TV_SID_VEXILO_STILL_THERE"));
  };
  Install("org.varno.NetworkSetting-Varno");
  Press("Return");
  ASSERT_TRUE(Soon([this] { return ShowsSid("TV_SID_VEXILO_OPENED"); }));
  EXPECT_TRUE(Utils().m_GetMultitaskingStatus()) << "it stays while it is not seen";
  EXPECT_EQ(Launched(), "org.varno.NetworkSetting-Varno");

  // The viewer comes back from there with nothing mended, then with half of it, and then goes on.
  const auto comeBack = [this] {
    evas_focus_out(m_ui->Canvas());
    evas_focus_in(m_ui->Canvas());
  };
  comeBack();
  ASSERT_TRUE(Soon([&] { return isStillThere(QUVA::CUtils::m_GetText("TV_SID_VEXILO_NO_ROUTE")); }));
  EXPECT_FALSE(ShowsSid("TV_SID_VEXILO_NO_ROUTE_MSG")) << "it is known already";
  Press("Return");  // test again
  ASSERT_TRUE(Soon([this] { return ShowsSid("TV_SID_VEXILO_NO_ROUTE_MSG"); }));
  Press("Return");
  ASSERT_TRUE(Soon([this] { return Utils().m_GetMultitaskingStatus(); }));
  JobsEnd();
  Shell("ip route add default via 192.168.7.1");
  m_isCutOff = true;
  comeBack();
  ASSERT_TRUE(Soon([this] { return ShowsSid("TV_SID_VEXILO_NO_INTERNET_MSG"); }));
  Press("Return");  // done: what the viewer does himself is tried at once
  ASSERT_TRUE(Soon([&] { return isStillThere(QUVA::CUtils::m_GetText("TV_SID_VEXILO_NO_INTERNET")); }));
  EXPECT_FALSE(ShowsSid("TV_SID_VEXILO_NO_INTERNET_MSG"));
  m_isCutOff = false;
  Press("Return");
  ASSERT_TRUE(Soon([this] { return ShowsSid("TV_SID_VEXILO_CONNECTION_WORKS"); }));
  EXPECT_TRUE(Soon([this] { return Shows("The shop") && !ShowsSid("TV_SID_VEXILO_STEP_FAILED"); }));
  EXPECT_THAT(StoredEvents(), HasSubstr("status=Connected;"));

  Play(m_shop, "10.7.7.7", kOutOfOrder);
  Press("Return");
  ASSERT_TRUE(Soon([this] { return ShowsSid("TV_SID_VEXILO_SERVICE_SILENT_MSG"); }));
  Press("Return");  // test again
  ASSERT_TRUE(Soon([&] { return isStillThere("The shop does not answer"); }));
  EXPECT_FALSE(ShowsSid("TV_SID_VEXILO_SERVICE_SILENT_MSG"));
  Press("Return");
  ASSERT_TRUE(Soon([this] { return ShowsSid("TV_SID_VEXILO_SERVICE_SILENT_MSG"); }));
  Press("XF86Back");
  EXPECT_EQ(g_loopEnds, 0);
  m_network.AtRouter(kGone);
  Press("Return XF86Back");
  EXPECT_EQ(g_loopEnds, 1) << "at once, while it waits for an answer";
}

}  // namespace
