// The radio and the wireless network, against connection managers that the test plays, and radios of a captured /sys.

#include "wireless_control.h"

#include "support/files.h"
#include "support/test.h"
#include "support/test_bus.h"

namespace {

constexpr char kRadio[] = "/sys/class/rfkill/rfkill0/";

/// Mounts of this process alone.
class OwnMounts {
 public:
  OwnMounts()
      : m_areMade(unshare(CLONE_NEWNS) == 0 && mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
                  mount("none", "/sys", "tmpfs", 0, nullptr) == 0) {}
  bool AreMade() const { return m_areMade; }

 private:
  const bool m_areMade;
};

void PlantRadio(const char* soft, const char* hard) {
  WriteHostFile(kRadio + "type"s, "wlan\n");
  WriteHostFile(kRadio + "soft"s, soft);
  WriteHostFile(kRadio + "hard"s, hard);
}

/// A connection manager: what it is called and given, and whether it permits it.
class Manager {
 public:
  explicit Manager(bool permits, bool hasNetwork = true) : m_permits(permits), m_hasNetwork(hasNetwork) {}

  GDBusMessage* Answer(GDBusMessage* call) {
    const std::lock_guard lock(m_mutex);
    const std::string member = g_dbus_message_get_member(call);
    if (!m_permits) return g_dbus_message_new_method_error_literal(call, "org.test.Denied", "Not permitted");
    GVariant* const body = g_dbus_message_get_body(call);
    const std::string given = body ? std::unique_ptr<char, CRelease<&g_free>>(g_variant_print(body, FALSE)).get() : "";
    if (member != "Get" && !member.starts_with("Get")) m_calls.push_back(member + given);
    if (member == "Set" || member == "SetProperty") PlantRadio("0", "0");
    GDBusMessage* const reply = g_dbus_message_new_method_reply(call);
    if (GVariant* const value = ValueOf(member, given)) g_dbus_message_set_body(reply, value);
    return reply;
  }
  std::vector<std::string> Calls() {
    const std::lock_guard lock(m_mutex);
    return m_calls;
  }

 private:
  GVariant* ValueOf(const std::string& member, const std::string& given) const {
    const auto parsed = [](const char* text) { return g_variant_new_parsed(text); };
    if (member == "GetDevices") return parsed("([@o '/device/cable', '/device/radio'],)");
    if (member == "GetSettings")
      return parsed("({'connection': {'id': <'home'>}, '802-11-wireless': {'powersave': <uint32 0>, 'ssid': <'x'>}},)");
    if (member == "GetServices")
      return m_hasNetwork ? parsed(
                                "([(@o '/cable', {'Type': <'ethernet'>, 'State': <'online'>}),"
                                "  (@o '/far', {'Type': <'wifi'>, 'State': <'idle'>}),"
                                "  (@o '/near', {'Type': <'wifi'>, 'State': <'ready'>})],)")
                          : parsed("(@a(oa{sv}) [],)");
    if (member == "ActivateConnection") return parsed("(@o '/active/anew',)");
    if (member != "Get") return nullptr;
    if (given.find("DeviceType") != given.npos) return parsed(m_types++ % 2 == 0 ? "(<uint32 1>,)" : "(<uint32 2>,)");
    if (given.find("'ActiveConnection'") != given.npos)
      return parsed(m_hasNetwork ? "(<@o '/active'>,)" : "(<@o '/'>,)");
    if (given.find("'Connection'") != given.npos) return parsed("(<@o '/settings/1'>,)");
    return parsed(m_states++ < 2 ? "(<uint32 1>,)" : "(<uint32 2>,)");  // it takes a while
  }

  const bool m_permits, m_hasNetwork;
  mutable int m_types = 0, m_states = 0;
  std::mutex m_mutex;
  std::vector<std::string> m_calls;
};

class Wireless : public testing::Test {
 protected:
  void SetUp() override { setenv("DBUS_SYSTEM_BUS_ADDRESS", m_bus.Address(), 1); }

  TestBus m_bus;
  FixProblem m_problem;
};

TEST_F(Wireless, TheRadioIsSwitchedOnByWhoeverCan) {
  const OwnMounts mounts;
  if (!mounts.AreMade()) GTEST_SKIP() << "not root: no /sys of the test's own";
  EXPECT_FALSE(SwitchWirelessOn(m_problem));
  EXPECT_THAT(m_problem.reason, HasSubstr("wireless radio on: there is none"));
  PlantRadio("0", "0");
  EXPECT_TRUE(SwitchWirelessOn(m_problem)) << "it is on";
  for (const char* name : {"org.freedesktop.NetworkManager", "net.connman"}) {
    PlantRadio("1", "0");
    Manager manager(true);
    const PlayedService service(m_bus, name, [&](GDBusMessage* call) { return manager.Answer(call); });
    EXPECT_TRUE(SwitchWirelessOn(m_problem)) << m_problem.reason;
    EXPECT_THAT(manager.Calls(),
                ElementsAre(*name == 'o' ? "Set('org.freedesktop.NetworkManager', 'WirelessEnabled', <true>)"
                                         : "SetProperty('Powered', <true>)"));
  }
  PlantRadio("1", "0");
  Manager strict(false);
  const PlayedService service(m_bus, "net.connman", [&](GDBusMessage* call) { return strict.Answer(call); });
  ASSERT_EQ(mount("none", "/dev", "tmpfs", 0, nullptr), 0);
  EXPECT_FALSE(SwitchWirelessOn(m_problem));
  EXPECT_THAT(m_problem.reason,
              AllOf(HasSubstr("net.connman: "), HasSubstr("Not permitted"), HasSubstr("/dev/rfkill: No such")));
  WriteHostFile("/dev/rfkill", "");
  PlantRadio("1", "1");
  EXPECT_FALSE(SwitchWirelessOn(m_problem));
  EXPECT_THAT(m_problem.reason, HasSubstr("a switch of the device holds it off"));
  // Index 0, wireless, all of them, neither blocked (linux/rfkill.h).
  EXPECT_EQ(ReadHostFile("/dev/rfkill"), "\0\0\0\0\1\3\0\0"s);
}

TEST_F(Wireless, TheNetworkIsJoinedAnewWithoutSavingPower) {
  EXPECT_FALSE(ReconnectWireless(m_problem));
  EXPECT_THAT(m_problem.reason, HasSubstr("no connection manager has one in use"));
  {
    Manager manager(true, false);
    const PlayedService service(m_bus, "net.connman", [&](GDBusMessage* call) { return manager.Answer(call); });
    EXPECT_FALSE(ReconnectWireless(m_problem));
    EXPECT_THAT(manager.Calls(), IsEmpty());
  }
  {
    Manager manager(true);
    const PlayedService service(m_bus, "net.connman", [&](GDBusMessage* call) { return manager.Answer(call); });
    EXPECT_TRUE(ReconnectWireless(m_problem)) << m_problem.reason;
    EXPECT_THAT(manager.Calls(), ElementsAre("Disconnect", "Connect"));
  }
  {
    Manager manager(true);
    const PlayedService service(m_bus, "org.freedesktop.NetworkManager",
                                [&](GDBusMessage* call) { return manager.Answer(call); });
    EXPECT_TRUE(ReconnectWireless(m_problem)) << m_problem.reason;
    EXPECT_THAT(manager.Calls(), ElementsAre(AllOf(HasSubstr("Update("), HasSubstr("'powersave': <uint32 2>"),
                                                   HasSubstr("'id': <'home'>")),
                                             "ActivateConnection('/settings/1', '/device/radio', '/')"));
  }
  Manager strict(false);
  const PlayedService service(m_bus, "org.freedesktop.NetworkManager",
                              [&](GDBusMessage* call) { return strict.Answer(call); });
  EXPECT_FALSE(ReconnectWireless(m_problem));
  EXPECT_THAT(m_problem.reason, HasSubstr("Not permitted"));
}

}  // namespace
