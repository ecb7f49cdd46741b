// What files tell of the network: /sys/class/net (sysfs-class-net), /proc/net (proc(5)), /etc/resolv.conf.

#include <arpa/inet.h>
#include <linux/if.h>
#include <linux/if_arp.h>

#include <algorithm>
#include <charconv>
#include <cstring>

#include "trevlin/collectors/network_state.h"
#include "trevlin/collectors/readings.h"

namespace trevlin {

namespace {

using connection::Address;

constexpr std::string_view kInterfaces = "/sys/class/net";
constexpr unsigned int kRouteUp = 1;  // RTF_UP; RTF_REJECT below
constexpr unsigned int kRouteRejects = 0x200;
constexpr unsigned int kUnusableAddress = 0x48;  // IFA_F_TENTATIVE, IFA_F_DADFAILED

std::optional<uint32_t> ParseHex(std::string_view text) {
  uint32_t number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number, 16);
  return error == std::errc() && end == text.data() + text.size() ? std::optional(number) : std::nullopt;
}

/// 32 digits, in network order.
std::optional<Address> ParseAddress6(std::string_view digits) {
  Address address{AF_INET6, {}};
  if (digits.size() != 32) return std::nullopt;
  for (size_t i = 0; i < address.bytes.size(); ++i) {
    const auto byte = ParseHex(digits.substr(2 * i, 2));
    if (!byte) return std::nullopt;
    address.bytes[i] = static_cast<uint8_t>(*byte);
  }
  return address;
}

bool IsNone(const Address& address) {
  return std::all_of(address.bytes.begin(), address.bytes.end(), [](uint8_t byte) { return byte == 0; });
}

/// A line of /proc/net/route. Addresses are as the (little-endian) machine holds them.
struct Route4 {
  std::string_view interface;
  uint32_t destination, gateway, flags, metric, mask;
};

std::vector<Route4> ParseRoutes4(std::string_view text) {
  std::vector<Route4> routes;
  for (const std::string_view line : SplitLines(text)) {
    const auto words = SplitWords(line);
    if (words.size() < 8) continue;
    const auto destination = ParseHex(words[1]), gateway = ParseHex(words[2]), flags = ParseHex(words[3]),
               mask = ParseHex(words[7]);
    const auto metric = ParseNumber(words[6]);
    if (!destination || !gateway || !flags || !mask || !metric || *metric < 0 || *metric > UINT32_MAX) continue;
    if ((*flags & kRouteUp) != 0 && (*flags & kRouteRejects) == 0)
      routes.push_back({words[0], *destination, *gateway, *flags, static_cast<uint32_t>(*metric), *mask});
  }
  return routes;
}

void AddDefaults4(const std::vector<Route4>& routes, std::vector<NetworkRoute>& defaults) {
  for (const Route4& route : routes) {
    if (route.destination != 0 || route.mask != 0) continue;
    Address gateway;
    if (route.gateway != 0) gateway.family = AF_INET;
    for (size_t i = 0; i < 4; ++i) gateway.bytes[i] = static_cast<uint8_t>(route.gateway >> (8 * i));
    defaults.push_back({std::string(route.interface), route.metric, gateway});
  }
}

/// /proc/net/ipv6_route: destination, its length, source, its length, gateway, metric, two counters, flags, interface.
void AddDefaults6(std::string_view text, std::vector<NetworkRoute>& defaults) {
  for (const std::string_view line : SplitLines(text)) {
    const auto words = SplitWords(line);
    if (words.size() != 10 || words[1] != "00" || words[9] == "lo") continue;
    const auto destination = ParseAddress6(words[0]), gateway = ParseAddress6(words[4]);
    const auto metric = ParseHex(words[5]), flags = ParseHex(words[8]);
    if (!destination || !IsNone(*destination) || !gateway || !metric || !flags || (*flags & kRouteUp) == 0 ||
        (*flags & kRouteRejects) != 0)
      continue;
    defaults.push_back({std::string(words[9]), *metric, IsNone(*gateway) ? Address{} : *gateway});
  }
}

/// The machine's own addresses, as Route4 holds them: what stands above a "/32 host LOCAL".
std::vector<uint32_t> ParseOwnAddresses4(std::string_view trie) {
  std::vector<uint32_t> addresses;
  uint32_t above = 0;
  for (const std::string_view line : SplitLines(trie)) {
    const auto words = SplitWords(line);
    if (words.size() == 2 && words[0] == "|--") {
      in_addr address{};
      above = inet_pton(AF_INET, std::string(words[1]).c_str(), &address) == 1 ? address.s_addr : 0;
    } else if (words.size() == 3 && words[0] == "/32" && words[2] == "LOCAL" && above != 0) {
      addresses.push_back(above);
    }
  }
  return addresses;
}

/// The interface of an own address: that of its network, else (a network of one) that of the default route.
std::string_view InterfaceOf(uint32_t address, const std::vector<Route4>& routes) {
  const Route4* best = nullptr;
  for (const Route4& route : routes)
    if ((address & route.mask) == route.destination && (route.gateway == 0 || route.mask == 0) &&
        (!best || ntohl(route.mask) > ntohl(best->mask)))
      best = &route;
  return best ? best->interface : std::string_view();
}

NetworkInterface* Find(std::vector<NetworkInterface>& interfaces, std::string_view name) {
  const auto found = std::find_if(interfaces.begin(), interfaces.end(),
                                  [name](const NetworkInterface& each) { return each.name == name; });
  return found == interfaces.end() ? nullptr : &*found;
}

void TakeAddresses4(std::string_view trie, const std::vector<Route4>& routes,
                    std::vector<NetworkInterface>& interfaces) {
  for (const uint32_t address : ParseOwnAddresses4(trie)) {
    if ((ntohl(address) >> 24) == 127) continue;
    NetworkInterface* interface = Find(interfaces, InterfaceOf(address, routes));
    if (!interface) continue;
    const bool isFallback = (ntohl(address) >> 16) == 0xA9FE;
    (isFallback ? interface->hasFallbackAddress : interface->hasAddress) = true;
  }
}

/// /proc/net/if_inet6: address, index, length of the network's part, scope (0 is global), flags, name.
void TakeAddresses6(std::string_view text, std::vector<NetworkInterface>& interfaces) {
  for (const std::string_view line : SplitLines(text)) {
    const auto words = SplitWords(line);
    if (words.size() != 6 || !ParseAddress6(words[0]) || ParseHex(words[3]) != 0u) continue;
    const auto flags = ParseHex(words[4]);
    NetworkInterface* interface = Find(interfaces, words[5]);
    if (interface && flags && (*flags & kUnusableAddress) == 0) interface->hasAddress = true;
  }
}

/// /proc/net/dev: "eth0: bytes packets errs …".
void TakeCounters(std::string_view text, std::vector<NetworkInterface>& interfaces) {
  for (const std::string_view line : SplitLines(text)) {
    const size_t colon = line.rfind(':');
    if (colon == line.npos) continue;
    const auto names = SplitWords(line.substr(0, colon));
    const auto numbers = SplitWords(line.substr(colon + 1));
    NetworkInterface* interface = names.size() == 1 ? Find(interfaces, names[0]) : nullptr;
    if (!interface || numbers.size() < 3) continue;
    interface->receivedPackets = ParseNumber(numbers[1]);
    interface->receiveErrors = ParseNumber(numbers[2]);
  }
}

/// The third number of a line of /proc/net/wireless ("wlan0: 0000   54.  -56.  -256 …"), in dBm. Drivers that count
/// from 0 to 255 mean 256 less; without a network it is no number of this world.
std::optional<double> ReadSignal(const Machine& machine, std::string_view interface) {
  const auto text = ReadText(machine, "/proc/net/wireless");
  for (const std::string_view line : SplitLines(text ? *text : std::string_view())) {
    const auto words = SplitWords(line);
    if (words.size() < 4 || words[0].size() != interface.size() + 1 || !words[0].starts_with(interface)) continue;
    std::string_view level = words[3];
    if (level.ends_with('.')) level.remove_suffix(1);
    auto dbm = ParseNumber(level);
    if (dbm && *dbm >= 64 && *dbm < 256) dbm = *dbm - 256;
    return dbm && *dbm > -130 && *dbm < 0 ? dbm : std::nullopt;
  }
  return std::nullopt;
}

/// The kernel gives no carrier of one that is switched off.
std::optional<bool> ReadCarrier(const Machine& machine, const std::string& folder) {
  if (const auto carrier = ReadNumber(machine, folder + "/carrier", 0, 1)) return *carrier != 0;
  const auto state = ReadLine(machine, folder + "/operstate");
  if (state == "up") return true;
  return state == "down" || state == "lowerlayerdown" || state == "notpresent" || state == "dormant"
             ? std::optional(false)
             : std::nullopt;
}

NetworkInterface ReadInterface(const Machine& machine, const std::string& name) {
  const std::string folder = std::string(kInterfaces) + "/" + name;
  NetworkInterface interface;
  interface.name = name;
  const auto type = ReadNumber(machine, folder + "/type");
  interface.isLoopback = type ? *type == ARPHRD_LOOPBACK : name == "lo";
  interface.isEthernet = type ? *type == ARPHRD_ETHER : false;
  const auto flags = ReadLine(machine, folder + "/flags");
  const auto bits = flags && flags->starts_with("0x") ? ParseHex(flags->substr(2)) : std::nullopt;
  interface.isPlumbing = bits && (*bits & IFF_NOARP) != 0;
  interface.carrier = ReadCarrier(machine, folder);
  return interface;
}

/// Whether a program of this machine takes questions at 127.0.0.1, which is asked where no server is named
/// (resolv.conf(5)). A line of /proc/net/udp: "0: 0100007F:0035 00000000:0000 07 …".
bool HasOwnNameServer(const Machine& machine) {
  constexpr std::string_view kAddresses[] = {"0100007F:0035", "00000000:0035", "00000000000000000000000000000000:0035"};
  for (const char* const file : {"/proc/net/udp", "/proc/net/udp6"}) {
    const auto text = ReadText(machine, file);
    for (const std::string_view line : SplitLines(text ? *text : std::string_view())) {
      const auto words = SplitWords(line);
      if (words.size() > 1 && IsOneOf(kAddresses, words[1])) return true;
    }
  }
  return false;
}

/// Their folders.
std::vector<std::string> WirelessRadios(const Machine& machine) {
  std::vector<std::string> folders;
  for (const std::string& name : ListNames(machine, "/sys/class/rfkill"))
    if (ReadLine(machine, "/sys/class/rfkill/" + name + "/type") == "wlan")
      folders.push_back("/sys/class/rfkill/" + name);
  return folders;
}

}  // namespace

void ReadHardware(const Machine& machine, NetworkInterface& interface) {
  constexpr std::string_view kLower = "lower_";
  const std::string folder = std::string(kInterfaces) + "/" + interface.name;
  const auto has = [&](const char* what) { return Exists(machine, folder + what); };
  interface.isWireless = has("/wireless") || has("/phy80211");
  interface.hasDevice = has("/device");
  interface.isPlumbing = interface.isPlumbing || has("/bridge") || has("/bonding") || has("/brport") || has("/master");
  for (const std::string& name : ListNames(machine, folder))
    if (name.starts_with(kLower)) interface.lowers.push_back(name.substr(kLower.size()));
  interface.speedMbit = ReadNumber(machine, folder + "/speed", 1, 1e7);  // -1 where there is none
  const auto duplex = ReadLine(machine, folder + "/duplex");
  if (duplex == "half" || duplex == "full") interface.halfDuplex = duplex == "half";
  interface.carrierLosses = ReadNumber(machine, folder + "/carrier_down_count", 0);
  if (interface.isWireless) interface.signalDbm = ReadSignal(machine, interface.name);
}

std::optional<bool> ReadHasNameServer(const Machine& machine) {
  const auto text = ReadText(machine, "/etc/resolv.conf");
  const auto lines = SplitLines(text ? *text : std::string_view());
  const bool isNamed = std::any_of(lines.begin(), lines.end(), [](std::string_view line) {
    const auto words = SplitWords(line);
    return words.size() >= 2 && words[0] == "nameserver";
  });
  if (isNamed || HasOwnNameServer(machine)) return true;
  return text ? std::optional(false) : std::nullopt;
}

std::optional<bool> ReadRadioOff(const Machine& machine) {
  std::optional<bool> areOff;
  for (const std::string& folder : WirelessRadios(machine)) {
    const bool isOff = ReadNumber(machine, folder + "/soft") == 1 || ReadNumber(machine, folder + "/hard") == 1;
    areOff = areOff.value_or(true) && isOff;
  }
  return areOff;
}

bool IsRadioLocked(const Machine& machine) {
  const auto radios = WirelessRadios(machine);
  return std::any_of(radios.begin(), radios.end(),
                     [&](const std::string& folder) { return ReadNumber(machine, folder + "/hard") == 1; });
}

NetworkState ReadCapturedNetwork(const Machine& machine) {
  NetworkState state;
  state.hasNameServer = ReadHasNameServer(machine);
  const std::vector<std::string> names = ListNames(machine, kInterfaces);
  const auto routes = ReadText(machine, "/proc/net/route"), routes6 = ReadText(machine, "/proc/net/ipv6_route");
  const std::vector<Route4> routes4 = ParseRoutes4(routes ? *routes : std::string_view());
  if (routes || routes6) {
    state.defaultRoutes.emplace();
    AddDefaults4(routes4, *state.defaultRoutes);
    AddDefaults6(routes6 ? *routes6 : std::string_view(), *state.defaultRoutes);
  }
  if (names.empty()) return state;

  std::vector<NetworkInterface>& interfaces = state.interfaces.emplace();
  for (const std::string& name : names) {
    // bonding_masters is a file.
    if (!Exists(machine, std::string(kInterfaces) + "/" + name + "/.")) continue;
    interfaces.push_back(ReadInterface(machine, name));
    ReadHardware(machine, interfaces.back());
  }
  if (const auto counters = ReadText(machine, "/proc/net/dev")) TakeCounters(*counters, interfaces);
  const auto trie = ReadText(machine, "/proc/net/fib_trie"), addresses6 = ReadText(machine, "/proc/net/if_inet6");
  state.addressesKnown = trie || addresses6;
  if (trie) TakeAddresses4(*trie, routes4, interfaces);
  if (addresses6) TakeAddresses6(*addresses6, interfaces);
  // The file keeps the routes of an interface without a carrier.
  if (state.defaultRoutes)
    std::erase_if(*state.defaultRoutes, [&](const NetworkRoute& route) {
      const NetworkInterface* interface = Find(interfaces, route.interface);
      return interface && interface->carrier == false;
    });
  return state;
}

}  // namespace trevlin
