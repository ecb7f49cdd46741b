// What links the machine to the world and to the viewer: network, display, sound, input.

#include <arpa/inet.h>
#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/socket.h>

#include "base/netlink.h"
#include "support/captured_machine.h"
#include "support/edid_maker.h"
#include "support/test.h"
#include "trevlin/collectors/collectors.h"
#include "trevlin/collectors/display_facts.h"
#include "trevlin/collectors/network_state.h"

namespace {

using namespace trevlin;

/// "kind=wired link=yes speed=100", without the collector's name.
std::string Text(const Facts& facts) {
  std::string all;
  for (const auto& [name, value] : facts)
    all += (all.empty() ? "" : " ") + name.substr(name.find('.') + 1) + "=" + Told(value);
  return all;
}

struct Row {
  const char* what;
  Files files;
  std::string facts;
};

void ExpectFacts(std::unique_ptr<Collector> (*make)(), const std::vector<Row>& rows) {
  for (const Row& row : rows) EXPECT_EQ(Text(CapturedMachine(row.files).Collect(*make())), row.facts) << row.what;
}

// --- The kernel's answers --------------------------------------------------------------------------------------------

/// A message with so many zeros behind its header, without padding.
std::string Message(uint16_t type, uint32_t question, size_t body, uint32_t claimed = 0) {
  nlmsghdr header{};
  header.nlmsg_len = claimed ? claimed : static_cast<uint32_t>(sizeof header + body);
  header.nlmsg_type = type;
  header.nlmsg_seq = question;
  return std::string(reinterpret_cast<const char*>(&header), sizeof header) + std::string(body, '\0');
}

TEST(Netlink, NoDatagramIsReadBeyondItsEnd) {
  const std::string whole = Message(RTM_NEWLINK, 7, 16), done = Message(NLMSG_DONE, 7, 4);
  const struct {
    const char* what;
    std::string bytes;
    int visited;
    std::optional<int> result;
  } kRows[] = {
      {"two messages and the end", whole + whole + done, 2, 0},
      {"more to come", whole, 1, std::nullopt},
      {"an answer to somebody else's question", Message(RTM_NEWLINK, 6, 16) + done, 0, 0},
      {"no padding at the end", whole + Message(RTM_NEWLINK, 7, 1), 2, std::nullopt},
      {"longer than the datagram", whole + Message(RTM_NEWLINK, 7, 4, 4096), 1, std::nullopt},
      {"longer than any number", Message(RTM_NEWLINK, 7, 4, UINT32_MAX), 0, std::nullopt},
      {"shorter than its header", Message(RTM_NEWLINK, 7, 4, 15) + done, 0, std::nullopt},
      {"half a header", whole + std::string(8, '\1'), 1, std::nullopt},
      {"an error without its number", Message(NLMSG_ERROR, 7, 2), 0, EPROTO},
      {"nothing", "", 0, std::nullopt},
  };
  // Behind the last byte, but for padding, is a page that ends who reads it.
  const size_t page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
  auto* const pages =
      static_cast<std::byte*>(mmap(nullptr, 2 * page, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
  ASSERT_EQ(mprotect(pages + page, page, PROT_NONE), 0);
  for (const auto& [what, bytes, visited, result] : kRows) {
    std::byte* const from = pages + page - NLMSG_ALIGN(bytes.size());
    std::memcpy(from, bytes.data(), bytes.size());
    int count = 0;
    const auto visit = [&](const nlmsghdr&) { ++count; };
    EXPECT_EQ(netlink::VisitMessages({from, bytes.size()}, 7, visit), result) << what;
    EXPECT_EQ(count, visited) << what;
  }
  munmap(pages, 2 * page);
}

TEST(Netlink, WhatIsNotTheKernelsIsNoAnswer) {
  netlink::Socket socket(NETLINK_ROUTE);
  int links = 0;
  const auto count = [&](const nlmsghdr&) { ++links; };
  ASSERT_EQ(socket.Dump(RTM_GETLINK, ifinfomsg{}, count), 0);
  const int all = std::exchange(links, 0);
  ASSERT_GT(all, 0);
  // The first socket of a process has its id.
  const FdHandle stranger(::socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_ROUTE));
  sockaddr_nl to{};
  to.nl_family = AF_NETLINK;
  to.nl_pid = static_cast<uint32_t>(getpid());
  const std::string end = Message(NLMSG_DONE, 2, 4);
  if (sendto(stranger.get(), end.data(), end.size(), 0, reinterpret_cast<sockaddr*>(&to), sizeof to) < 0 &&
      errno == EPERM)
    GTEST_SKIP() << "only who administers the network may send to the sockets of others";
  EXPECT_EQ(socket.Dump(RTM_GETLINK, ifinfomsg{}, count), 0);
  EXPECT_EQ(links, all);
}

TEST(Netlink, EventsOfDevicesAreToldByTheirSubsystem) {
  const std::string event = "change@/devices/a\0ACTION=change\0SUBSYSTEM=drm\0HOTPLUG=1\0"s;
  EXPECT_TRUE(netlink::IsEventOf(event, "drm"));
  EXPECT_FALSE(netlink::IsEventOf(event, "dr"));
  EXPECT_FALSE(netlink::IsEventOf("change@/a\0DEVPATH=SUBSYSTEM=drm\0SUBSYSTEM=drm_dp\0SUBSYS"s, "drm"));

  netlink::DeviceEvents events;
  std::ofstream trigger("/sys/class/mem/null/uevent");
  if (!(trigger << "change" << std::flush)) GTEST_SKIP() << "only root has the kernel send events of devices";
  EXPECT_TRUE(events.Take("mem"));
  EXPECT_FALSE(events.Take("mem")) << "one is taken once";
}

// --- Network ---------------------------------------------------------------------------------------------------------

constexpr connection::Address kRouter{AF_INET, {192, 168, 1, 1}};

NetworkInterface Card(const char* name, bool carrier, bool address) {
  NetworkInterface card;
  card.name = name;
  card.isEthernet = card.hasDevice = true;
  card.carrier = carrier;
  card.hasAddress = address;
  return card;
}

NetworkInterface Wireless(bool carrier, bool address, double signal) {
  NetworkInterface card = Card("wlan0", carrier, address);
  card.isWireless = true;
  card.signalDbm = signal;
  return card;
}

NetworkInterface Virtual(const char* name, bool address, std::vector<std::string> lowers = {}, bool isPlumbing = true) {
  NetworkInterface made = Card(name, true, address);
  made.hasDevice = false;
  made.isPlumbing = isPlumbing;
  made.lowers = std::move(lowers);
  return made;
}

NetworkInterface Tunnel(const char* name) {
  NetworkInterface tunnel = Virtual(name, true, {}, false);
  tunnel.isEthernet = false;
  return tunnel;
}

TEST(Network, FactsFollowFromTheState) {
  NetworkInterface loopback = Virtual("lo", true);
  loopback.isLoopback = true;
  NetworkInterface slow = Card("eth1", true, false), unclear = Card("eth0", true, false);
  unclear.carrier.reset();
  slow.speedMbit = 10;
  slow.halfDuplex = true;
  const std::string kUp = "address=yes default_route=yes fallback_address=no interface=yes kind=wired link=yes";
  const auto expect = [](const char* what, std::vector<NetworkInterface> interfaces, std::vector<NetworkRoute> routes,
                         const std::string& expected, const std::string& gatewayBy) {
    NetworkState state;
    state.interfaces = std::move(interfaces);
    state.addressesKnown = true;
    state.defaultRoutes = std::move(routes);
    Facts facts;
    AddNetworkFacts(state, facts);
    EXPECT_EQ(Text(facts), expected) << what;
    const NetworkRoute* gateway = GatewayRoute(state);
    EXPECT_EQ(gateway ? gateway->interface : "", gatewayBy) << what;
  };
  expect("nothing", {loopback}, {}, "address=no default_route=no fallback_address=no interface=no link=no", "");
  expect("container", {loopback, Virtual("eth0", true, {}, false), Virtual("ifb0", false)}, {{"eth0", 0, kRouter}}, kUp,
         "eth0");
  expect("unplugged, with bridges between containers",
         {Card("eth0", false, false), Virtual("docker0", true, {"veth1"}), Virtual("veth1", false)}, {},
         "address=no default_route=no fallback_address=no interface=yes kind=wired link=no", "");
  expect("a bridge over two cards, one plugged in and below a VLAN",
         {Card("eth0", false, false), slow, Virtual("vlan7", false, {"eth1"}),
          Virtual("br0", true, {"br0", "eth0", "vlan7"})},
         {{"br0", 0, kRouter}},
         "address=yes default_route=yes fallback_address=no half_duplex=yes interface=yes kind=wired link=yes "
         "link_speed_mbit=10",
         "br0");
  expect("a tunnel carries all, and the router is still the wireless one's",
         {Card("eth0", false, false), Wireless(true, true, -75), Tunnel("tun0")},
         {{"wlan0", 600, kRouter}, {"tun0", 50, {AF_INET, {10, 8, 0, 1}}}},
         "address=yes default_route=yes fallback_address=no interface=yes kind=wireless link=yes "
         "wireless_quality_percent=50 wireless_signal_dbm=-75",
         "wlan0");
  expect("dialled over a card without an address", {Card("eth0", true, false), Tunnel("ppp0")}, {{"ppp0", 0, {}}}, kUp,
         "");
  expect("the cable is preferred to a weak wireless", {Wireless(true, true, -90), Card("eth0", true, true)},
         {{"wlan0", 600, kRouter}, {"eth0", 100, kRouter}}, kUp, "eth0");
  NetworkInterface both = Card("eth0", true, true);
  both.hasFallbackAddress = true;
  expect("an address of its own making beside a real one", {both}, {{"eth0", 0, kRouter}}, kUp, "eth0");
  expect("two, none connected", {Card("eth0", false, false), Wireless(false, false, -90)}, {},
         "address=no default_route=no fallback_address=no interface=yes link=no", "");
  expect("the carrier is not known", {unclear}, {},
         "address=no default_route=no fallback_address=no interface=yes kind=wired", "");
}

constexpr char kNoRoutes[] = "Iface\tDestination\tGateway\tFlags\tRefCnt\tUse\tMetric\tMask\tMTU\tWindow\tIRTT\n";
constexpr char kRoutes[] =
    "eth0\t00000000\t0101A8C0\t0003\t0\t0\t100\t00000000\t0\t0\t0\n"
    "eth0\t0001A8C0\t00000000\t0001\t0\t0\t100\t00FFFFFF\t0\t0\t0\n"
    "docker0\t000011AC\t00000000\t0001\t0\t0\t0\t0000FFFF\t0\t0\t0\n";

/// As /proc/net/fib_trie shows the machine's own address.
std::string Trie(const char* address) {
  return "Main:\n  +-- 0.0.0.0/0 3 0 5\n     |-- 127.0.0.1\n        /32 host LOCAL\n     |-- 192.168.1.0\n        /24 "
         "link UNICAST\n     |-- "s +
         address + "\n        /32 host LOCAL\n     |-- 172.17.0.1\n        /32 host LOCAL\n";
}

TEST(Network, IsReadFromACapturedTree) {
  const std::string net = "/sys/class/net/";
  const Files wired = With(
      Sys("class/net/bonding_masters= class/net/lo/type=772 class/net/docker0/type=1 "
          "class/net/docker0/bridge/stp_state=0 class/net/docker0/operstate=down class/net/eth0/type=1 "
          "class/net/eth0/carrier=1 class/net/eth0/speed=1000 class/net/eth0/duplex=full "
          "class/net/eth0/device/vendor=0x8086"),
      {
          {"/proc/uptime", "3000.00 100.00\n"},
          {"/proc/net/dev", "Inter-|\n face |bytes packets errs\n  eth0: 5000000 950 50 0 0 0 0 0 1 1 0 0 0 0 0 0\n"},
          {"/proc/net/route", kNoRoutes + ""s + kRoutes},
          {"/proc/net/fib_trie", Trie("192.168.1.10")},
          {"/etc/resolv.conf", "# made by hand\nsearch home\nnameserver 192.168.1.1\n"},
      });
  const Files wireless = With(
      Sys("class/net/wlan0/type=1 class/net/wlan0/operstate=up class/net/wlan0/speed=-1 "
          "class/net/wlan0/carrier_down_count=5 class/rfkill/rfkill0/type=wlan class/rfkill/rfkill0/soft=0 "
          "class/rfkill/rfkill0/hard=0 class/rfkill/rfkill1/type=bluetooth class/rfkill/rfkill1/soft=1"),
      {
          {"/proc/uptime", "3000.00 100.00\n"},
          {net + "wlan0/wireless/.", ""},
          {"/proc/net/wireless",
           "Inter-| sta-|   Quality        |\n face | tus | link level noise |\n"
           " wlan0: 0000   54.  -61.  -256        0      0      0      0      0        0\n"},
          {"/proc/net/route", kNoRoutes},
          {"/proc/net/if_inet6", "20010db8000000000000000000000002 03 40 00 00 wlan0\n"},
          {"/proc/net/ipv6_route",
           "00000000000000000000000000000000 00 00000000000000000000000000000000 00 fe800000000000000000000000000001 "
           "00000400 00000001 00000000 00000003 wlan0\n"
           "00000000000000000000000000000000 00 00000000000000000000000000000000 00 00000000000000000000000000000000 "
           "ffffffff 00000001 00000000 00200200 lo\n"},
          {"/etc/resolv.conf", "#nameserver 192.168.1.1\n"},
      });
  const std::string good = "fallback_address=no half_duplex=no interface=yes kind=wired link=yes link_speed_mbit=1000 ";
  ExpectFacts(
      MakeNetworkCollector,
      {
          {"nothing captured", {}, ""},
          {"wired", wired, "address=yes default_route=yes " + good + "name_server=yes receive_errors_percent=5"},
          {"the cable is out, and the routes are still there", With(wired, {{net + "eth0/carrier", "0\n"}}),
           "address=yes default_route=no fallback_address=no interface=yes kind=wired link=no name_server=yes "
           "receive_errors_percent=5"},
          {"wireless, IPv6 only", wireless,
           "address=yes default_route=yes fallback_address=no interface=yes kind=wireless link=yes name_server=no "
           "radio_off=no wireless_drops=5 wireless_quality_percent=70 wireless_signal_dbm=-61"},
          {"a tentative address, and a signal as older drivers give it",
           With(wireless, {{"/proc/net/if_inet6", "20010db8000000000000000000000002 03 40 00 40 wlan0\n"},
                           {"/proc/net/wireless", " wlan0: 0000 54 195 0\n"}}),
           "address=no default_route=yes fallback_address=no interface=yes kind=wireless link=yes name_server=no "
           "radio_off=no wireless_drops=5 wireless_quality_percent=70 wireless_signal_dbm=-61"},
          {"the radio is off, and a server of the machine is asked",
           With(wireless, {{"/sys/class/rfkill/rfkill0/soft", "1\n"},
                           {"/proc/net/udp", "   0: 0100007F:0035 00000000:0000 07 00000000:00000000\n"}}),
           "address=yes default_route=yes fallback_address=no interface=yes kind=wireless link=yes name_server=yes "
           "radio_off=yes wireless_drops=5 wireless_quality_percent=70 wireless_signal_dbm=-61"},
      });
}

TEST(Network, LivePartsAskTheKernel) {
  if (unshare(CLONE_NEWNET) != 0) GTEST_SKIP() << "no network namespace: " << std::strerror(errno);
  const Machine machine;
  Facts facts;
  NetworkState state = ReadLiveNetwork(machine);
  state.hasNameServer.reset();  // that is the machine's own
  AddNetworkFacts(state, facts);
  EXPECT_EQ(Text(facts), "address=no default_route=no fallback_address=no interface=no link=no");
  ASSERT_TRUE(state.interfaces && !state.interfaces->empty());
  EXPECT_TRUE(state.interfaces->front().isLoopback);
  EXPECT_EQ(state.interfaces->front().carrier, false);

  ifreq loopback{};
  std::strcpy(loopback.ifr_name, "lo");
  loopback.ifr_flags = IFF_UP | IFF_RUNNING;
  const FdHandle control(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  ASSERT_EQ(ioctl(control.get(), SIOCSIFFLAGS, &loopback), 0);
  EXPECT_EQ(ReadLiveNetwork(machine).interfaces->front().carrier, true);
}

// --- Display ---------------------------------------------------------------------------------------------------------

/// Of a screen that prefers `width` by `height`, with so many blocks to follow.
std::string MakeEdid(int width, int height, int extensions = 0) {
  std::string bytes = edid::FirstBlock(edid::Timing(1, width, height), extensions);
  for (int i = 0; i < extensions; ++i) bytes += edid::Summed("\x02\x03" + std::string(126, '\x11'));
  return bytes;
}

TEST(Display, EdidIsCheckedToItsEnd) {
  std::string badSum = MakeEdid(1920, 1080, 1), badBase = badSum, badHeader = MakeEdid(1920, 1080);
  badSum[200] ^= 1;
  badBase[100] ^= 1;
  std::swap(badHeader[0], badHeader[1]);  // the sum stays right
  const struct {
    const char* what;
    std::string bytes;
    bool isValid;
    std::optional<display::Resolution> preferred;
  } kScreens[] = {
      {"with extensions", MakeEdid(3840, 2160, 2), true, display::Resolution{3840, 2160}},
      {"a bad sum in the extension", badSum, true, display::Resolution{1920, 1080}},
      {"a bad sum in the first block", badBase, false, {}},
      {"a bad header", badHeader, false, {}},
      {"truncated in a block", MakeEdid(1920, 1080).substr(0, 100), false, {}},
  };
  for (const auto& screen : kScreens) {
    const display::Edid read = display::ReadEdid(screen.bytes);
    EXPECT_EQ(read.isValid, screen.isValid) << screen.what;
    EXPECT_EQ(read.preferred, screen.preferred) << screen.what;
  }
}

TEST(Display, FactsFollowFromTheConnectors) {
  const std::string hd = MakeEdid(1920, 1080);
  const struct {
    const char* what;
    std::vector<display::Connector> connectors;
    const char* facts;
  } kMachines[] = {
      {"below what the screen prefers",
       {{"HDMI-A-1", true, hd, {{1280, 720}}}},
       "connected=1 connectors=1 edid_present=yes edid_valid=yes mode=1280x720 mode_below_preferred=yes "
       "mode_pixels=921600"},
      {"one of two shows less",
       {{"DP-1", true, hd, {{3840, 2160}}}, {"DP-2", true, hd, {{800, 600}}}},
       "connected=2 connectors=2 edid_present=yes edid_valid=yes mode=3840x2160 mode_below_preferred=yes "
       "mode_pixels=8.2944e+06"},
      {"an adapter without a description",
       {{"HDMI-A-1", true, "", {{1024, 768}}}},
       "connected=1 connectors=1 edid_present=no mode=1024x768 mode_pixels=786432"},
  };
  for (const auto& machine : kMachines) {
    Facts facts;
    AddDisplayFacts(machine.connectors, facts);
    EXPECT_EQ(Text(facts), machine.facts) << machine.what;
  }
}

TEST(Display, IsReadFromACapturedTree) {
  const std::string drm = "/sys/class/drm/", hdmi = drm + "card0-HDMI-A-1/";
  std::string speaking = MakeEdid(3840, 2160, 1);
  speaking[128 + 3] |= 0x40;
  ExpectFacts(MakeDisplayCollector,
              {
                  {"no screen at all", {{drm + "card0/x", ""}, {drm + "renderD128/x", ""}}, "connected=0 connectors=0"},
                  {"a screen on one of two plugs",
                   {{hdmi + "status", "connected\n"},
                    {hdmi + "edid", MakeEdid(3840, 2160, 1)},
                    {hdmi + "modes", "3840x2160\n"},
                    {drm + "card0-DP-1/status", "disconnected\n"},
                    {drm + "card0-Writeback-1/status", "unknown\n"}},
                   "connected=1 connectors=2 edid_present=yes edid_valid=yes"},
                  {"a television and a screen without speakers",
                   {{hdmi + "status", "connected\n"},
                    {hdmi + "enabled", "enabled\n"},
                    {hdmi + "dpms", "On\n"},
                    {hdmi + "edid", speaking},
                    {drm + "card0-DP-1/status", "connected\n"},
                    {drm + "card0-DP-1/enabled", "enabled\n"},
                    {drm + "card0-DP-1/edid", MakeEdid(1920, 1080, 1)}},
                   "connected=2 connectors=2 edid_present=yes edid_valid=yes plays_sound=yes"},
                  {"a television that sleeps",
                   {{hdmi + "status", "connected\n"},
                    {hdmi + "enabled", "enabled\n"},
                    {hdmi + "dpms", "Off\n"},
                    {hdmi + "edid", speaking}},
                   "connected=1 connectors=1 edid_present=yes edid_valid=yes"},
                  {"a screen at an adapter that carries no sound",
                   {{hdmi + "status", "connected\n"},
                    {hdmi + "enabled", "enabled\n"},
                    {hdmi + "edid", speaking},
                    {drm + "card0/device/uevent", "DRIVER=evdi\n"}},
                   "connected=1 connectors=1 edid_present=yes edid_valid=yes"},
                  {"a server's remote console, and a virtual machine's window",
                   {{drm + "card0-VGA-1/status", "connected\n"},
                    {drm + "card0/device/uevent", "DRIVER=ast\nPCI_CLASS=30000\n"},
                    {drm + "card1-Virtual-1/status", "connected\n"},
                    {drm + "card2-VGA-1/status", "disconnected\n"},
                    {drm + "card2/device/uevent", "DRIVER=radeon\n"}},
                   "connected=0 connectors=1"},
              });
}

TEST(Display, TellsWhoDrawsAndDecodes) {
  const std::string pci = "/sys/bus/pci/devices/0000:00:02.0/uevent", render = "/dev/dri/renderD128";
  const auto card = [](const std::string& id, const std::string& driver) {
    return (driver.empty() ? "" : "DRIVER=" + driver + "\n") + "PCI_CLASS=30000\nPCI_ID=" + id + "\n";
  };
  const std::string bare = card("8086:3E92", ""), driven = card("8086:3E92", "i915"), other = "PCI_CLASS=40300\n";
  ExpectFacts(
      MakeDisplayCollector,
      {
          {"a card that nothing drives", {{pci, bare}, {"/dev/fb0", ""}}, "software_drawing=yes"},
          {"a second card that nothing drives",
           {{pci, card("10DE:1F82", "")}, {"/sys/bus/pci/devices/0000:01:00.0/uevent", driven}, {render, ""}},
           "decoder_missing=yes software_drawing=no"},
          {"a card that is given to a virtual machine", {{pci, card("1002:731F", "vfio-pci")}}, "software_drawing=no"},
          {"a server with a remote console",
           {{pci, bare}, {"/sys/bus/pci/devices/0000:03:00.0/uevent", card("1A03:2000", "ast")}},
           ""},
          {"a virtual machine", {{pci, card("1234:1111", "")}}, ""},
          {"a board", {{"/sys/bus/pci/devices/0000:00:00.0/uevent", other}, {render, ""}}, ""},
          {"the driver of another card's decoder",
           {{pci, driven}, {render, ""}, {"/usr/lib/x86_64-linux-gnu/dri/radeonsi_drv_video.so", ""}},
           "decoder_missing=yes software_drawing=no"},
          {"its driver below a folder of the architecture",
           {{pci, driven}, {render, ""}, {"/usr/lib/x86_64-linux-gnu/dri/iHD_drv_video.so", ""}},
           "decoder_missing=no software_drawing=no"},
          {"its driver in a folder for all",
           {{pci, card("1002:731F", "amdgpu")}, {render, ""}, {"/usr/lib64/dri-nonfree/radeonsi_drv_video.so", ""}},
           "decoder_missing=no software_drawing=no"},
          {"its driver in a folder of its interface",
           {{pci, driven}, {render, ""}, {"/usr/lib64/va/drivers/iHD_drv_video.so", ""}},
           "decoder_missing=no software_drawing=no"},
          {"older cards, before those with a decoder that it drives",
           {{pci, card("8086:27A2", "i915")},
            {"/sys/bus/pci/devices/0000:01:00.0/uevent", card("1002:71C5", "radeon")},
            {render, ""}},
           "software_drawing=no"},
          {"a later one of the same driver",
           {{pci, card("1002:68F9", "radeon")}, {render, ""}},
           "decoder_missing=yes software_drawing=no"},
          {"a container with its machine's /sys", {{pci, driven}}, "software_drawing=no"},
      });
}

TEST(Display, TellsWhetherABoardsDecoderIsUsed) {
  const std::string devices = "/sys/class/video4linux/", libraries = "/usr/lib/aarch64-linux-gnu/",
                    player = libraries + "libgstreamer-1.0.so.0", library = libraries + "libavcodec.so.61";
  const std::string forStreams = libraries + "gstreamer-1.0/libgstvideo4linux2.so",
                    forFrames = libraries + "gstreamer-1.0/libgstv4l2codecs.so";
  const std::pair<const std::string, std::string> streams = {devices + "video10/name", "bcm2835-codec-decode\n"},
                                                  frames = {devices + "video1/name", "rockchip,rk3399-vpu-dec\n"};
  const std::string lacks = "board_decoder_missing=yes", has = "board_decoder_missing=no";
  ExpectFacts(MakeDisplayCollector,
              {
                  {"nothing for either", {streams, frames, {player, ""}}, lacks},
                  {"streams with their plug-in", {streams, {player, ""}, {forStreams, ""}}, has},
                  {"streams with that of frames", {streams, {player, ""}, {forFrames, ""}}, lacks},
                  {"streams with the codec library", {streams, {player, ""}, {library, ""}}, has},
                  {"frames with their plug-in", {frames, {player, ""}, {forFrames, ""}}, has},
                  {"frames with that of streams", {frames, {player, ""}, {forStreams, ""}}, lacks},
                  {"frames with the codec library, which may use them", {frames, {player, ""}, {library, ""}}, ""},
                  {"one of two", {streams, frames, {player, ""}, {forStreams, ""}}, lacks},
                  {"one of two, the other perhaps", {streams, frames, {player, ""}, {library, ""}}, has},
                  {"without GStreamer", {streams, frames}, ""},
                  {"a camera and an encoder",
                   {{devices + "video0/name", "USB Camera\n"},
                    {devices + "video1/name", "rockchip,rk3399-vpu-enc\n"},
                    {player, ""}},
                   ""},
              });
}

// --- Devices ---------------------------------------------------------------------------------------------------------

TEST(Sound, IsReadFromACapturedTree) {
  const std::string cards = "/proc/asound/cards", plug = "/proc/asound/card1/eld#0.";
  const std::string two =
      " 0 [PCH   ]: HDA-Intel - HDA\n          HDA at 0xf7 irq 30\n 1 [HDMI  ]: HDA-Intel - HDMI\n          HDMI\n";
  const std::string away = "monitor_present\t\t0\neld_valid\t\t0\n", there = "monitor_present\t\t1\neld_valid\t\t1\n";
  ExpectFacts(
      MakeSoundCollector,
      {
          {"no card", {{cards, "--- no soundcards ---\n"}}, "cards=0"},
          {"a screen that plays", {{cards, two}, {plug + "0", away}, {plug + "1", there}}, "cards=2 hdmi_output=yes"},
          {"nobody at the digital output", {{plug + "0", away}, {plug + "1", "x"}}, "hdmi_output=no"},
      });
}

TEST(Input, RemotesAreKnownByTheirKeys) {
  const std::string keys = "/sys/class/input/event3/device/capabilities/key";
  ExpectFacts(MakeInputCollector,
              {
                  {"a mouse", {{keys, "1f0000 0 0 0 0\n"}}, "devices=1 remote=no"},
                  {"a keyboard",
                   {{keys, "402000000 3803078f800d001 feffffdfffefffff fffffffffffffffe\n"}},
                   "devices=1 remote=yes"},
                  {"OK instead of Enter", {{keys, "100000000 0 0 0 118000000000 0\n"}}, "devices=1 remote=yes"},
                  {"a touch screen",
                   {{keys, "400 0 0 0 0 0\n"}, {"/sys/class/input/event3/device/properties", "2\n"}},
                   "devices=1 remote=yes"},
                  {"no sense", {{keys, "ffff zz\n"}}, "devices=1"},
              });
}

TEST(Input, TheWeakestBatteryCounts) {
  const std::string power = "/sys/class/power_supply/", remote = power + "hidpp_battery_0/";
  const std::string keys = "device/input/input7/capabilities/key", navigating = "100000000 0 0 0 118000000000 0\n";
  const Files devices = {{remote + "scope", "Device\n"},
                         {remote + keys, navigating},
                         {remote + "model_name", "Wireless Remote\n"},
                         {remote + "capacity", "12\n"},
                         {power + "mouse/scope", "Device\n"},
                         {power + "mouse/" + keys, "1f0000 0 0 0 0\n"},
                         {power + "mouse/capacity", "4\n"},
                         {power + "headset/scope", "Device\n"},
                         {power + "headset/capacity", "5\n"},
                         {power + "keyboard/scope", "Device\n"},
                         {power + "keyboard/" + keys, navigating},
                         {power + "keyboard/capacity_level", "Normal\n"},
                         {power + "BAT0/capacity", "3\n"}};
  const char* const keyboard = "battery_charging=no battery_name=keyboard battery_percent=55";
  ExpectFacts(MakeInputCollector,
              {
                  {"not that of the machine, a mouse or a headset", devices,
                   "battery_charging=no battery_name=Wireless Remote battery_percent=12"},
                  {"one is being charged", With(devices, {{remote + "status", "Charging\n"}}), keyboard},
                  {"one is away", With(devices, {{remote + "online", "0\n"}}), keyboard},
                  {"no sense",
                   {{power + "a/scope", "Device"}, {power + "a/" + keys, navigating}, {power + "a/capacity", "900"}},
                   ""},
              });
}

}  // namespace
