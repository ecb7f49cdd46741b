// What the engine tells of networks that are broken: namespaces, cables, a router and servers of the test's own.

#include "support/captured_machine.h"
#include "support/small_network.h"
#include "trevlin/collectors/collectors.h"

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

  SmallNetwork m_network;
};

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
  EXPECT_EQ(Told({"default_route"}), "default_route=no") << "the cable is out";
}

}  // namespace
