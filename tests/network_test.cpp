// What the engine tells of networks that are broken: namespaces, cables, a router and servers of the test's own.

#include <sys/syscall.h>

#include <deque>

#include "support/captured_machine.h"
#include "support/small_network.h"
#include "trevlin/collectors/collectors.h"
#include "trevlin/rules_file.h"

namespace {

using namespace trevlin;

constexpr uint8_t kThere = 0, kServerFails = 2, kNoSuchName = 3;

/// What the collector tells of this machine, of the facts that are named: "default_route=yes name_delay_ms=".
std::string Told(const std::vector<std::string>& names) {
  Facts facts;
  MakeNetworkCollector()->Collect(Machine{}, facts);
  std::string all;
  for (const std::string& name : names) {
    const auto fact = facts.find("network." + name);
    all += (all.empty() ? "" : " ") + name + "=" + (fact == facts.end() ? "" : ::Told(fact->second));
  }
  return all;
}

class Network : public testing::Test {
 protected:
  void SetUp() override {
    if (!m_network.IsMade()) GTEST_SKIP() << "not root: no network of the test's own";
    SmallNetwork::SetResolver("nameserver 127.0.0.1\n");
  }

  /// Without the Internet the router still knows what it knows by itself.
  PlayedNameServer::Answer NamesOfRouter() {
    return [this](const PlayedQuestion& question) -> std::optional<uint8_t> {
      if (question.name.empty() || question.name == "localhost") return kThere;
      return m_isCutOff ? std::nullopt : std::optional(kNoSuchName);
    };
  }

  void PlayPage(const char* answer) {
    m_page.reset();
    m_network.AtRouter([&] { m_page = std::make_unique<PlayedWebServer>("192.168.7.1", answer); });
    WriteFile(set_paths::kSetProfile, "[network]\nprobe_page=http://192.168.7.1/204\n");
  }

  SmallNetwork m_network;
  std::atomic<bool> m_isCutOff{false};
  std::unique_ptr<PlayedWebServer> m_page;
};

/// The issues that the shipped rules find in this network, what others explain left out; "?" where some other issue of
/// the network could not be decided. What must hold in several runs is taken at its word.
std::string Issues() {
  FactKinds kinds;
  // Of the packets here no share can be told.
  Facts facts = FactsOf("machine.kind=hardware display.connected=1 network.receive_errors_percent=0");
  for (const auto& collector : MakeCollectors())
    for (const FactDescription& fact : collector->Describe()) {
      kinds.emplace(fact.name, fact.kind);
      if (collector->Name() == "network") facts.emplace(fact.name, Absent{});
    }
  Facts told;
  MakeNetworkCollector()->Collect(Machine{}, told);
  for (const auto& [name, value] : told) facts[name] = value;
  std::set<int> there, undecided;
  Explanations explanations;
  for (const Rule& rule : ParseRules(ReadHostFile(VEXILO_SOURCE_DIR "/platform/set/rules.json"), kinds).rules) {
    if (rule.code < 10000001 || rule.code > 10009999) continue;
    const Truth truth = DecideNow(rule, facts);
    if (truth == Truth::kTrue) there.insert(rule.code);
    if (truth == Truth::kUnknown) undecided.insert(rule.code);
    explanations[rule.code] = rule.explains;
  }
  for (const int code : Explained({there.begin(), there.end()}, explanations)) {
    there.erase(code);
    undecided.erase(code);
  }
  std::string all;
  for (const int code : there) all += " " + std::to_string(code);
  for (const int code : undecided) all += " " + std::to_string(code) + "?";
  return all;
}

/// The kernel takes a moment to see a cable go or come.
std::string IssuesOnceThey(const std::function<bool(const std::string&)>& are) {
  std::string issues;
  for (int i = 0; i < 4 && !are(issues = Issues()); ++i) std::this_thread::sleep_for(500ms);
  return issues;
}

constexpr char kOnlyItsOwn[] =
    "ip -6 route flush table main; ip route flush table main; ip route add 192.168.7.0/24 dev eth0";

TEST_F(Network, AWayOutIsFoundInWhicheverTableItIs) {
  const struct {
    const char* what;
    const char* routes;
    const char* told;
  } cases[] = {
      {"in another table", "ip route add default via 192.168.7.1 table 100 && ip rule add pref 7 table 100", "yes"},
      {"two halves", "ip route add 0.0.0.0/1 via 192.168.7.1 && ip route add 128.0.0.0/1 via 192.168.7.1", "yes"},
      {"halves of IPv6", "ip -6 route add ::/1 dev eth0 && ip -6 route add 8000::/1 dev eth0", "yes"},
      {"none", "true", "no"},
      {"only to its own network", "ip route add 10.0.0.0/8 via 192.168.7.1", "no"},
      {"a refusal", "ip route add unreachable default && ip -6 route add unreachable default", "no"},
  };
  for (const auto& each : cases) {
    SCOPED_TRACE(each.what);
    Shell("ip rule del pref 7 2>/dev/null; ip route flush table 100 2>/dev/null; true");
    Shell(kOnlyItsOwn);
    Shell(each.routes);
    EXPECT_EQ(Told({"default_route"}), "default_route="s + each.told);
  }
  Shell(kOnlyItsOwn);
  Shell("ip route add 0.0.0.0/1 via 192.168.7.1 && ip route add 128.0.0.0/1 via 192.168.7.1");
  m_network.AtRouter("ip link set lan0 down");
  EXPECT_TRUE(Until([] { return std::system("ip route | grep -q linkdown") == 0; }));
  EXPECT_EQ(Told({"default_route"}), "default_route=no") << "the cable is out";
}

/// A server that works: the labels below the zone are not there, the root is.
std::optional<uint8_t> Works(const PlayedQuestion& question) {
  return question.name.empty() || question.name == "localhost" ? kThere : kNoSuchName;
}

std::optional<uint8_t> IsSilent(const PlayedQuestion&) {
  return std::nullopt;
}

// What the router does: all; nothing but being found as a neighbour, by another that answers for it; nothing.
constexpr char kWell[] = "ip route del 192.168.7.1 dev sink 2>/dev/null; ip addr replace 192.168.7.1/24 dev lan0";
constexpr char kMute[] = "ip addr del 192.168.7.1/24 dev lan0; ip route add 192.168.7.1 dev sink";
constexpr char kSink[] =
    "echo 1 > /proc/sys/net/ipv4/ip_forward && ip link add sink type veth peer name hole && ip link set hole up &&"
    "ip link set sink up && ip neigh add 192.168.7.1 dev sink lladdr 02:00:00:00:00:02 nud permanent &&"
    "ip addr add 192.168.7.9/16 dev lan0 && echo 0 > /proc/sys/net/ipv4/neigh/lan0/proxy_delay && ip neigh add proxy "
    "192.168.7.1 dev lan0";
constexpr char kGone[] = "ip addr del 192.168.7.1/24 dev lan0";

// The machine's own server answers, so that nothing but the router is in question. No echo is permitted, as by default.
TEST_F(Network, ARouterThatIsGoneIsToldWhateverTheKernelRemembers) {
  const PlayedNameServer local("127.0.0.1", Works);
  m_network.AtRouter(kSink);
  for (const char* state : {"reachable", "stale", "delay", "failed", "none"}) {
    for (const auto& [router, told] : {std::pair(kWell, "yes"), {kMute, "yes"}, {kGone, "no"}}) {
      SCOPED_TRACE(state + " "s + router);
      m_network.AtRouter(kWell);
      m_network.SetNeighbour(state);
      m_network.AtRouter(router);
      EXPECT_EQ(Told({"gateway_reachable", "name_resolution"}), "gateway_reachable="s + told + " name_resolution=yes");
    }
  }
}

/// A server of this machine: without the Internet it knows itself.
std::optional<uint8_t> KnowsItself(const PlayedQuestion& question) {
  return question.name == "localhost" ? std::optional(kThere) : std::nullopt;
}

// Who may not have the kernel ask again cannot tell a router that is gone from one that answers nothing, unless the
// kernel asks, or nothing comes through.
TEST_F(Network, WithoutPrivilegeARouterIsToldAsFarAsItCanBe) {
  const struct {
    const char* state;
    const char* router;
    std::optional<uint8_t> (*names)(const PlayedQuestion&);
    bool mayEcho;
    const char* told;
  } cases[] = {
      {"stale", kWell, Works, false, "yes"},      // it refuses
      {"reachable", kWell, Works, false, "yes"},  // it refuses
      {"stale", kMute, Works, false, "?"},       {"stale", kGone, Works, false, "?"},
      {"stale", kGone, IsSilent, false, "no"},   {"stale", kGone, KnowsItself, false, "no"},
      {"stale", kGone, Works, true, "?"},        {"none", kMute, Works, false, "yes"},
      {"failed", kMute, Works, false, "yes"},    {"failed", kGone, Works, false, "no"},
  };
  m_network.AtRouter(kSink);
  for (const auto& each : cases) {
    SCOPED_TRACE(each.state + " "s + each.router + (each.mayEcho ? ", echo" : ""));
    const PlayedNameServer local("127.0.0.1", each.names);
    Shell("echo '"s + (each.mayEcho ? "0 2147483647" : "1 0") + "' > /proc/sys/net/ipv4/ping_group_range");
    m_network.AtRouter(kWell);
    m_network.SetNeighbour(each.state);
    m_network.AtRouter(each.router);
    std::thread([&each] {
      ASSERT_EQ(syscall(SYS_setresuid, 65534, 65534, 65534), 0);  // of this thread alone
      EXPECT_EQ(Told({"gateway_reachable"}), "gateway_reachable="s + each.told);
    }).join();
  }
}

// The kernel would ask by the first.
TEST_F(Network, TheRouterIsAskedByItsOwnLinkWhereTwoAreInOneNetwork) {
  const PlayedNameServer local("127.0.0.1", Works);
  m_network.Plug("eth1", "lan1", "192.168.7.3", "192.168.8.1");
  Shell("ip route replace default via 192.168.7.1 dev eth1");
  m_network.AtRouter("echo 8 > /proc/sys/net/ipv4/conf/lan1/arp_ignore; ip link set lan1 arp off");
  Shell("ip neigh replace 192.168.7.1 dev eth1 lladdr 02:00:00:00:00:01 nud stale");
  EXPECT_EQ(Told({"gateway_reachable"}), "gateway_reachable=no");
  Shell("ip route replace default via 192.168.7.1 dev eth0");
  EXPECT_EQ(Told({"gateway_reachable"}), "gateway_reachable=yes");
}

TEST_F(Network, OfIPv6AloneIsAskedInTheSameWay) {
  m_network.AtRouter("ip -6 addr add fe80::99/64 dev lan0");
  Shell("ip addr flush dev eth0; ip -6 addr add fe80::2/64 dev eth0; ip -6 addr add 2001:db8::2/64 dev eth0");
  Shell("ip -6 route add default via fe80::99 dev eth0");
  const PlayedNameServer local("127.0.0.1", Works);
  for (const char* state : {"none", "stale"}) {
    SCOPED_TRACE(state);
    m_network.AtRouter("ip -6 addr replace fe80::99/64 dev lan0");
    EXPECT_EQ(Issues(), "");
    if (state == "none"s) Shell("ip -6 neigh flush dev eth0");
    m_network.AtRouter("ip -6 addr del fe80::99/64 dev lan0");
    EXPECT_EQ(Issues(), " 10000002");
  }
}

TEST_F(Network, NamesAreAskedOfAllServersBesideEachOther) {
  const auto loses = [](int lost) {
    return [lost](const PlayedQuestion& question) { return question.nth < lost ? std::nullopt : Works(question); };
  };
  const auto says = [](uint8_t code) { return [code](const PlayedQuestion&) { return std::optional(code); }; };
  const struct {
    const char* what;
    std::vector<PlayedNameServer::Answer> servers;
    std::chrono::milliseconds delay;
    const char* resolves;
    double least, most;  // ms that a program waits
  } cases[] = {
      {"one that works", {Works}, 0ms, "yes", 0, 1000},
      {"one that answers late", {Works}, 1200ms, "yes", 1200, 1900},
      {"the first is silent", {IsSilent, Works}, 0ms, "yes", 5000, 6000},
      {"only the third works", {IsSilent, IsSilent, Works}, 0ms, "yes", 10000, 11000},
      {"the first cannot", {says(kServerFails), Works}, 0ms, "yes", 0, 1000},
      {"two of three questions are lost", {loses(2)}, 0ms, "yes", 10000, 11000},
      {"silence", {IsSilent, IsSilent}, 0ms, "no", -1, -1},
      {"it cannot", {says(kServerFails)}, 0ms, "no", -1, -1},
      {"nobody is there", {}, 0ms, "no", -1, -1},
  };
  for (const auto& each : cases) {
    SCOPED_TRACE(each.what);
    std::deque<PlayedNameServer> servers;
    std::string resolver = each.servers.empty() ? "nameserver 127.0.0.1\n" : "";
    for (const auto& answer : each.servers) {
      const std::string address = "127.0.0." + std::to_string(servers.size() + 1);
      servers.emplace_back(address.c_str(), answer, each.delay);
      resolver += "nameserver " + address + "\n";
    }
    SmallNetwork::SetResolver(resolver);
    const auto start = std::chrono::steady_clock::now();
    Facts facts;
    MakeNetworkCollector()->Collect(Machine{}, facts);
    EXPECT_LT(std::chrono::steady_clock::now() - start, 2400ms);
    EXPECT_EQ(::Told(facts["network.name_resolution"]), each.resolves);
    const auto* delay = std::get_if<double>(&facts["network.name_delay_ms"]);
    EXPECT_EQ(delay != nullptr, each.most > 0);
    if (!delay) continue;
    EXPECT_GE(*delay, each.least);
    EXPECT_LE(*delay, each.most);
  }
}

// The page of the owner tells for sure; the random label, the root, and what a server knows by itself tell the rest.
TEST_F(Network, TheInternetIsTheirsWhoseAnswersComeFromThere) {
  const auto always = [](uint8_t code) { return [code](const PlayedQuestion&) { return std::optional(code); }; };
  const auto fails = [](const PlayedQuestion& question) {
    return question.name == "localhost" ? kThere : kServerFails;
  };
  const std::string none, page = "http://192.168.7.1/204", named = "http://probe.tornelo.example/204";
  const std::string reached = "HTTP/1.1 204 No Content\r\n\r\n",
                    signIn = "HTTP/1.1 302 Found\r\nLocation: http://x/\r\n\r\n";
  const struct {
    const char* what;
    PlayedNameServer::Answer names;
    std::string page, answer, told;
  } cases[] = {
      {"names are new", Works, none, none, "yes sign_in_page= name_resolution=yes"},
      {"a server that works for all it knows", KnowsItself, none, none, "no sign_in_page= name_resolution=no"},
      {"a server that fails for the rest", fails, none, none, "no sign_in_page= name_resolution=no"},
      {"no such name, whatever it is", always(kNoSuchName), none, none, "no sign_in_page= name_resolution=yes"},
      {"silence", IsSilent, none, none, "? sign_in_page= name_resolution=no"},
      {"the page", Works, page, reached, "yes sign_in_page=no name_resolution=yes"},
      {"the page, without names", IsSilent, page, reached, "yes sign_in_page=no name_resolution=no"},
      {"a page to sign in", Works, page, signIn, "no sign_in_page=yes name_resolution=yes"},
      {"another page", always(kThere), page, "HTTP/1.0 200 OK\r\n\r\n", "no sign_in_page=yes name_resolution=yes"},
      {"nothing that a page says", Works, page, "SSH-2.0-x\r\n........", "no sign_in_page=no name_resolution=yes"},
      {"a page that says nothing", Works, page, none, "no sign_in_page=no name_resolution=yes"},
      {"a page that nobody finds", IsSilent, named, reached, "? sign_in_page=? name_resolution=no"},
      {"what is no page", Works, "ftp://x", reached, "yes sign_in_page=? name_resolution=yes"},
  };
  SmallNetwork::SetResolver("nameserver 192.168.7.1\n");
  for (const auto& each : cases) {
    SCOPED_TRACE(each.what);
    std::unique_ptr<PlayedNameServer> names;
    std::unique_ptr<PlayedWebServer> web;
    m_network.AtRouter([&] {
      names = std::make_unique<PlayedNameServer>("192.168.7.1", each.names);
      web = std::make_unique<PlayedWebServer>("192.168.7.1", each.answer);
    });
    WriteFile(set_paths::kSetProfile, "[network]\nprobe_page=" + each.page + "\n");
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(Told({"internet", "sign_in_page", "name_resolution"}), "internet=" + each.told);
    EXPECT_LT(std::chrono::steady_clock::now() - start, 2400ms);
    EXPECT_EQ(web->Asked().starts_with("GET /204 HTTP/1.1\r\nHost: 192.168.7.1\r\n"), each.page == page);
  }
  EXPECT_THAT(ReadFile(set_paths::kLogFile), HasSubstr("probe_page: \"ftp://x\" is not http://HOST"));
}

// Each fault is made, told, healed, and told no more.
TEST_F(Network, EachFaultIsOneIssueAndGoesWhenItIsHealed) {
  const struct {
    const char* what;
    std::function<void()> breaks, heals;
    const char* issues;
  } faults[] = {
      {"the cable is out", [this] { m_network.AtRouter("ip link set lan0 down"); },
       [this] { m_network.AtRouter("ip link set lan0 up"); }, " 10000001"},
      {"the router is gone", [this] { m_network.AtRouter("ip addr del 192.168.7.1/24 dev lan0"); },
       [this] { m_network.AtRouter("ip addr add 192.168.7.1/24 dev lan0"); }, " 10000002"},
      {"no address", [] { Shell("ip addr flush dev eth0"); },
       [] { Shell("ip addr add 192.168.7.2/24 dev eth0; ip route add default via 192.168.7.1"); }, " 10000005"},
      {"an address of its own making", [] { Shell("ip addr flush dev eth0; ip addr add 169.254.3.4/16 dev eth0"); },
       [] {
         Shell("ip addr flush dev eth0; ip addr add 192.168.7.2/24 dev eth0; ip route add default via 192.168.7.1");
       },
       " 10000006"},
      {"no way out", [] { Shell("ip route del default"); }, [] { Shell("ip route add default via 192.168.7.1"); },
       " 10000007"},
      {"no name server", [] { SmallNetwork::SetResolver("search home\n"); },
       [] { SmallNetwork::SetResolver("nameserver 192.168.7.1\n"); }, " 10000008"},
      {"a dead server of this machine", [] { SmallNetwork::SetResolver("nameserver 127.0.0.9\n"); },
       [] { SmallNetwork::SetResolver("nameserver 192.168.7.1\n"); }, " 10000003 10000011?"},
      {"the Internet is down, and the router's server knows itself", [this] { m_isCutOff = true; },
       [this] { m_isCutOff = false; }, " 10000011"},
      {"a page to sign in", [this] { PlayPage("HTTP/1.1 200 OK\r\n\r\n"); },
       [this] { PlayPage("HTTP/1.1 204 No Content\r\n\r\n"); }, " 10000012"},
      {"the first server is silent",
       [] { SmallNetwork::SetResolver("nameserver 127.0.0.8\nnameserver 192.168.7.1\n"); },
       [] { SmallNetwork::SetResolver("nameserver 192.168.7.1\n"); }, " 10000015"},
      {"no adapter", [] { Shell("ip link del eth0"); },
       [this] {
         m_network.Plug("eth0", "lan0", "192.168.7.2", "192.168.7.1");
         Shell("ip route add default via 192.168.7.1");
       },
       " 10000014"},
  };
  const PlayedNameServer silent("127.0.0.8", IsSilent);
  SmallNetwork::SetResolver("nameserver 192.168.7.1\n");
  for (const auto& fault : faults) {
    SCOPED_TRACE(fault.what);
    std::unique_ptr<PlayedNameServer> names;
    m_network.AtRouter([&] { names = std::make_unique<PlayedNameServer>("0.0.0.0", NamesOfRouter()); });
    fault.breaks();
    EXPECT_EQ(IssuesOnceThey([&](const std::string& issues) { return issues == fault.issues; }), fault.issues);
    fault.heals();
    EXPECT_EQ(IssuesOnceThey([](const std::string& issues) { return issues.empty(); }), "");
  }
}

TEST_F(Network, NobodyIsAskedWithoutALinkOrAgainstTheOwnersWish) {
  PlayedNameServer local("127.0.0.1", IsSilent);
  const auto reading = [] {
    const auto start = std::chrono::steady_clock::now();
    const std::string told = Told({"link", "gateway_reachable", "name_resolution", "internet", "internet_wanted"});
    EXPECT_LT(std::chrono::steady_clock::now() - start, 1s);
    return told;
  };
  WriteFile(set_paths::kSetProfile, "[network]\nprobe_zone=\nprobe_page=http://192.168.7.1/204\n");
  m_network.SetNeighbour("reachable");
  EXPECT_EQ(reading(), "link=yes gateway_reachable=yes name_resolution= internet= internet_wanted=no");
  m_network.SetNeighbour("stale");
  EXPECT_EQ(reading(), "link=yes gateway_reachable=? name_resolution= internet= internet_wanted=no");
  WriteFile(set_paths::kSetProfile, "");
  m_network.AtRouter("ip link set lan0 down");
  EXPECT_TRUE(Until([] { return std::system("ip route | grep -q linkdown") == 0; }));
  EXPECT_EQ(reading(), "link=no gateway_reachable= name_resolution= internet= internet_wanted=yes");
  EXPECT_THAT(local.Asked(), IsEmpty());
}

TEST_F(Network, EachNameIsAskedForOnceInTheOwnersZone) {
  PlayedNameServer local("127.0.0.1", Works);
  std::set<std::string> names;
  for (const std::string zone : {"probe.tornelo.example", "probe.tornelo.example", "mine.example"}) {
    WriteFile(set_paths::kSetProfile, zone.starts_with("mine") ? "[network]\nprobe_zone=" + zone + "\n" : "");
    EXPECT_EQ(Told({"name_resolution"}), "name_resolution=yes");
    const std::string name = local.Asked().at(names.size() * 3);
    EXPECT_TRUE(name.ends_with("." + zone) && names.insert(name).second) << name;
  }
  WriteFile(set_paths::kSetProfile, "[network]\nprobe_zone=a..b\n");
  EXPECT_EQ(Told({"name_resolution", "internet"}), "name_resolution=? internet=?");
  EXPECT_THAT(ReadFile(set_paths::kLogFile), HasSubstr("probe_zone: \"a..b\" is no zone of names"));
}

TEST_F(Network, AServerOfThisMachineNeedsNoLineThatNamesIt) {
  SmallNetwork::SetResolver("search home\n");
  EXPECT_EQ(Told({"name_server", "name_resolution"}), "name_server=no name_resolution=");
  const PlayedNameServer local("127.0.0.1", Works);
  EXPECT_EQ(Told({"name_server", "name_resolution"}), "name_server=yes name_resolution=yes");
}

}  // namespace
