// The small services of the host: log, usage events, system information, TV service, settings menu, screen saver.

#include <arpa/inet.h>
#include <gio/gio.h>
#include <gtest/gtest.h>
#include <json/json.h>
#include <net/if.h>
#include <net/route.h>
#include <sched.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <sstream>
#include <thread>

#include "c_handle.h"
#include "connection.h"
#include "dlog.h"
#include "home_data_control.h"
#include "kpi_logger.h"
#include "screen_saver.h"
#include "set_paths.h"
#include "settings_api.h"
#include "system_info.h"
#include "system_path.h"
#include "tv_service.h"
#include "vconf.h"

namespace {

namespace fs = std::filesystem;
using Lines = std::vector<std::string>;

std::string Read(const fs::path& file) {
  std::stringstream content;
  content << std::ifstream(file, std::ios::binary).rdbuf();
  return content.str();
}

Lines ReadLines(const fs::path& file) {
  Lines lines;
  std::ifstream in(file, std::ios::binary);
  for (std::string line; std::getline(in, line);) lines.push_back(line);
  return lines;
}

void Write(const std::string& setPath, const std::string& content) {
  const fs::path file = SystemPath(setPath);
  fs::create_directories(file.parent_path());
  std::ofstream(file, std::ios::binary | std::ios::trunc) << content;
}

const fs::path kLog = SystemPath(set_paths::kLogFile);
const fs::path kEvents = SystemPath(set_paths::kEventLog);

/// Runs `work` in a process whose log is new and set up by `environment`; returns what went to standard error.
std::string InNewProcess(const std::map<std::string, std::string>& environment, const std::function<void()>& work) {
  const fs::path errors = SystemPath("/tmp/stderr");
  const pid_t child = fork();
  if (child == 0) {
    for (const auto& [name, value] : environment) setenv(name.c_str(), value.c_str(), 1);
    if (!std::freopen(errors.c_str(), "w", stderr)) _exit(2);
    alarm(60);
    work();
    _exit(testing::Test::HasFailure() ? 1 : 0);
  }
  int status = -1;
  waitpid(child, &status, 0);
  EXPECT_EQ(status, 0);
  return Read(errors);
}

int Log(int priority, const std::string& message) {
  return __dlog_print(LOG_ID_APPS, priority, "Test", "%s", message.c_str());
}

// --- Log -------------------------------------------------------------------------------------------------------------

TEST(Log, WritesWhatLevelAndTargetLetThrough) {
  const struct {
    const char* level;
    const char* target;
    std::string onStderr;  // the letters of the lines
    std::string inFile;
    int complaints;
  } kCases[] = {{"verbose", "stderr,file", "VDIWEF", "VDIWEF", 0},
                {"debug", "file", "", "DIWEF", 0},
                {"info", "stderr", "IWEF", "", 0},
                {"warn", "", "WEF", "WEF", 0},
                {"error", "file,stderr", "EF", "EF", 0},
                {"fatal", "stderr", "F", "", 0},
                {"silent", "stderr", "", "", 0},
                {"", "stderr", "IWEF", "", 0},
                {"loud", "file", "", "IWEF", 1},
                {"error", "file,paper", "", "EF", 1},
                {"error", "paper", "EF", "EF", 1}};
  for (const auto& each : kCases) {
    SCOPED_TRACE(std::string(each.level) + " to " + each.target);
    fs::remove(kLog);
    const std::map<std::string, std::string> environment = {{"VEXILO_LOG_LEVEL", each.level},
                                                            {"VEXILO_LOG_TARGET", each.target}};
    const std::string errors = InNewProcess(environment, [&] {
      const std::string wanted = each.onStderr.empty() ? each.inFile : each.onStderr;
      for (int priority = DLOG_VERBOSE; priority <= DLOG_SILENT; ++priority) {
        const bool through = priority < DLOG_SILENT && wanted.find("VDIWEF"[priority - 2]) != std::string::npos;
        EXPECT_EQ(Log(priority, "x") > 0, through) << priority;
      }
    });
    const auto letters = [](const std::string& text) {
      std::string found;
      std::istringstream lines(text);
      for (std::string line; std::getline(lines, line);)
        if (g_regex_match_simple(R"(^\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{3} [VDIWEF] \d+ Test: x$)", line.c_str(),
                                 G_REGEX_DEFAULT, G_REGEX_MATCH_DEFAULT))
          found += line[24];
      return found;
    };
    EXPECT_EQ(letters(errors), each.onStderr);
    EXPECT_EQ(letters(Read(kLog)), each.inFile);
    EXPECT_EQ(std::count(errors.begin(), errors.end(), '\n'), static_cast<long>(each.onStderr.size()) + each.complaints)
        << errors;
  }
}

TEST(Log, MessagesCannotForgeLinesAndAreCutVisibly) {
  std::string longText;
  for (int i = 0; i < 3000; ++i) longText += "€";
  const struct {
    std::string message;
    std::string shown;
  } kCases[] = {
      {"plain \t é €\n", "plain \t é €"},
      {"a\n2031-01-01 00:00:00.000 F 1 Test: forged\r\n\n", "a\\n2031-01-01 00:00:00.000 F 1 Test: forged"},
      {"\x1b[2J\x7f\x01", "\\x1B[2J\\x7F\\x01"},
      {"\xff\xc3\xe2\x82 \xc2\x9b", "\\xFF\\xC3\\xE2\\x82 \\xC2\\x9B"},
      {"", ""},
  };
  setenv("VEXILO_LOG_TARGET", "file", 1);
  for (const auto& [message, shown] : kCases) {
    errno = ENOTTY;
    const int size = Log(DLOG_INFO, message);
    EXPECT_EQ(errno, ENOTTY);
    const std::string line = ReadLines(kLog).back();
    EXPECT_EQ(line.substr(line.find("Test: ") + 6), shown);
    EXPECT_EQ(static_cast<size_t>(size), line.size() + 1);
  }
  EXPECT_EQ(ReadLines(kLog).size(), std::size(kCases));
  for (size_t length = 8990; length <= 9000; ++length) {  // cuts at each place of a character
    Log(DLOG_INFO, std::string(9000 - length, 'x') + longText);
    const std::string line = ReadLines(kLog).back();
    EXPECT_LE(line.size() + 1, 4096u);
    EXPECT_GE(line.size() + 1, 4093u);
    EXPECT_TRUE(line.ends_with("€ [cut]")) << line.substr(4000);
  }
}

TEST(Log, RotatesWholeWithSeveralProcesses) {
  constexpr int kWriters = 4;
  constexpr int kLines = 4000;
  const std::string filling(400, '.');
  setenv("VEXILO_LOG_TARGET", "file", 1);
  pid_t writers[kWriters];
  for (int writer = 0; writer < kWriters; ++writer) {
    if ((writers[writer] = fork()) != 0) continue;
    for (int i = 1; i <= kLines; ++i)
      if (Log(DLOG_INFO, filling + std::to_string(writer) + "-" + std::to_string(i)) < 0) _exit(1);
    _exit(0);
  }
  for (const pid_t writer : writers) {
    int status = -1;
    waitpid(writer, &status, 0);
    EXPECT_EQ(status, 0);
  }
  const fs::path old = kLog.string() + ".1";
  EXPECT_GE(fs::file_size(old), 4u << 20);
  EXPECT_GT(fs::file_size(kLog), 0u);
  int next[kWriters] = {1, 1, 1, 1};
  for (const fs::path& file : {old, kLog}) {
    for (const std::string& line : ReadLines(file)) {
      const size_t text = line.find("Test: " + filling);
      ASSERT_NE(text, std::string::npos) << line;
      int writer = -1;
      int number = -1;
      int end = 0;
      ASSERT_EQ(std::sscanf(line.c_str() + text + 6 + filling.size(), "%d-%d%n", &writer, &number, &end), 2) << line;
      ASSERT_EQ(line.size(), text + 6 + filling.size() + static_cast<size_t>(end)) << line;
      ASSERT_EQ(number, next[writer]++) << "a line is lost or out of order";
    }
  }
  for (const int last : next) EXPECT_EQ(last, kLines + 1);
}

TEST(Log, GoesOnWhereTheFileCannotBeWritten) {
  Write("/etc/victim", "untouched");
  fs::create_directories(kLog.parent_path());
  fs::create_symlink(SystemPath("/etc/victim"), kLog);
  const std::string errors = InNewProcess({{"VEXILO_LOG_TARGET", "file"}}, [] {
    EXPECT_GT(Log(DLOG_INFO, "one"), 0);
    EXPECT_GT(Log(DLOG_INFO, "two"), 0);
  });
  EXPECT_EQ(Read(SystemPath("/etc/victim")), "untouched");
  EXPECT_NE(errors.find(set_paths::kLogFile), std::string::npos);
  EXPECT_EQ(errors.find(SystemRoot()), std::string::npos) << errors;
  EXPECT_EQ(std::count(errors.begin(), errors.end(), '\n'), 3) << errors;
}

TEST(Log, ForkedChildrenNeverHang) {
  setenv("VEXILO_LOG_TARGET", "file", 1);
  std::atomic<bool> done{false};
  static char text[4000];  // no allocation: that of a sanitizer may hang after a fork
  std::fill_n(text, sizeof text - 1, 'x');
  std::vector<std::thread> threads;
  for (int i = 0; i < 3; ++i)
    threads.emplace_back([&done] {
      while (!done) __dlog_print(LOG_ID_APPS, DLOG_INFO, "Test", "%s", text);
    });
  int status = 0;
  for (int i = 0; i < 60 && status == 0; ++i) {
    const pid_t child = fork();
    if (child == 0) {
      alarm(20);
      for (int line = 0; line < 20; ++line) __dlog_print(LOG_ID_APPS, DLOG_INFO, "Test", "%s", text);
      _exit(0);
    }
    waitpid(child, &status, 0);
  }
  EXPECT_EQ(status, 0);
  done = true;
  for (std::thread& thread : threads) thread.join();
}

// --- Usage events ----------------------------------------------------------------------------------------------------

int Store(const std::string& description) {
  return KPILogFramework::CLogger::GetInstance()->AddEventLogSync("23_vexilo", "VEXILO", "EV003", description);
}

Json::Value Parse(const std::string& line) {
  Json::Value value;
  std::istringstream(line) >> value;
  return value;
}

TEST(UsageEvents, HoldEveryByte) {
  std::string bytes;
  std::string asText;
  for (int byte = 0; byte < 256; ++byte) {
    bytes += static_cast<char>(byte);
    char character[6];
    asText.append(character, static_cast<size_t>(g_unichar_to_utf8(static_cast<gunichar>(byte), character)));
  }
  const std::string text = "user_time=\xff;\"é€😀\\\n\xe2\x82";
  ASSERT_EQ(Store(bytes), 1);
  ASSERT_EQ(Store(text), 1);
  const Lines lines = ReadLines(kEvents);
  ASSERT_EQ(lines.size(), 2u);
  EXPECT_EQ(Parse(lines[0])["description"].asString(), asText);
  const Json::Value event = Parse(lines[1]);
  EXPECT_EQ(event["description"].asString(), "user_time=ÿ;\"é€😀\\\nâ\xC2\x82");
  EXPECT_EQ(event["service"], "23_vexilo");
  EXPECT_EQ(event["event"], "VEXILO");
  EXPECT_EQ(event["category"], "EV003");
  EXPECT_TRUE(g_regex_match_simple(R"(^\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{3}Z$)", event["time"].asCString(),
                                   G_REGEX_DEFAULT, G_REGEX_MATCH_DEFAULT));
  EXPECT_EQ(event.size(), 5u);
}

TEST(UsageEvents, AreKeptWholeThroughRotationCrashesAndLinks) {
  const std::string filling(3000, 'x');
  pid_t writers[2];
  for (pid_t& writer : writers) {
    if ((writer = fork()) != 0) continue;
    for (int i = 0; i < 250; ++i)
      if (Store(filling) != 1) _exit(1);
    _exit(0);
  }
  for (const pid_t writer : writers) {
    int status = -1;
    waitpid(writer, &status, 0);
    EXPECT_EQ(status, 0);
  }
  const fs::path old = kEvents.string() + ".1";
  EXPECT_LE(fs::file_size(old), 1u << 20);
  EXPECT_GT(fs::file_size(old), (1u << 20) - 4000);
  Lines lines = ReadLines(old);
  for (const std::string& line : ReadLines(kEvents)) lines.push_back(line);
  EXPECT_EQ(lines.size(), 500u);
  for (const std::string& line : lines) ASSERT_EQ(Parse(line)["description"], filling);

  Write(set_paths::kEventLog, "{\"time\":\"20");  // a power cut left this
  ASSERT_EQ(Store("after"), 1);
  EXPECT_EQ(Parse(ReadLines(kEvents).back())["description"], "after");

  Write("/etc/victim", "untouched");
  fs::remove(kEvents);
  fs::create_symlink(SystemPath("/etc/victim"), kEvents);
  EXPECT_EQ(Store("x"), -ELOOP);
  EXPECT_EQ(Read(SystemPath("/etc/victim")), "untouched");
  fs::remove_all(kEvents.parent_path());
  EXPECT_EQ(Store("x"), 1) << "makes its folder";
}

// --- System information ----------------------------------------------------------------------------------------------

std::string TextOf(system_info_key_e key) {
  char* text = nullptr;
  const int result = system_info_get_value_string(key, &text);
  return result == 0 ? CText(text).get() : std::to_string(result);
}

int NumberOf(system_info_key_e key) {
  int value = 7777;
  const int result = system_info_get_value_int(key, &value);
  return result == 0 ? value : result;
}

int Feature(const std::string& name) {
  int value = 7777;
  const int result = system_info_get_custom_int(("com.tornelo/featureconf/" + name).c_str(), &value);
  return result == 0 ? value : result;
}

constexpr int kNoData = SYSTEM_INFO_ERROR_NO_DATA;
constexpr int kInvalid = SYSTEM_INFO_ERROR_INVALID_PARAMETER;

void PlantFacts() {
  Write("/sys/class/dmi/id/product_name", " Lounge PC 5 \n");
  Write("/sys/class/dmi/id/product_serial", "To Be Filled By O.E.M.\n");
  Write("/sys/class/dmi/id/board_serial", "B0-17\n");
  for (const char* receiver : {"/dev/dvb/adapter0", "/dev/dvb/adapter1"}) fs::create_directories(SystemPath(receiver));
  Write("/sys/class/drm/card0-HDMI-A-1/status", "disconnected\n");
  Write("/sys/class/drm/card0-HDMI-A-1/modes", "");
  Write("/sys/class/drm/card0-DP-1/status", "connected\n");
  Write("/sys/class/drm/card0-DP-1/modes", "7680x4320\n1920x1080\n");
  Write("/sys/class/drm/version", "drm 1.1.0\n");
}

TEST(SystemInformation, IsTheProfilesAndElseTheMachines) {
  EXPECT_EQ(TextOf(SYSTEM_INFO_KEY_MODEL_NAME), std::to_string(kNoData));
  EXPECT_EQ(NumberOf(SYSTEM_INFO_KEY_NUM_OF_TUNER), 0);
  EXPECT_EQ(Feature("panel_resolution_width"), kNoData);
  PlantFacts();
  const auto expectFacts = [] {
    EXPECT_EQ(TextOf(SYSTEM_INFO_KEY_MODEL_NAME), "Lounge PC 5");
    EXPECT_EQ(TextOf(SYSTEM_INFO_KEY_SERIAL_NUMBER), "B0-17");
    EXPECT_EQ(NumberOf(SYSTEM_INFO_KEY_NUM_OF_TUNER), 2);
    EXPECT_EQ(NumberOf(SYSTEM_INFO_KEY_REGION_KIND), kNoData);
    EXPECT_EQ(Feature("panel_resolution_width"), 7680);
    EXPECT_EQ(Feature("panel_resolution_height"), 4320);
  };
  expectFacts();
  Write(set_paths::kSetProfile,
        "# a comment\n[set]\nmodel_name= AB55 é \nserial_number=\nregion_kind=35\nnum_of_tuner=1\nlocal_set=KOR\n"
        "[feature]\nproduct.chipset=X1\nproduct.product_type=4\nflash_size=-1\nhdr=true\n");
  EXPECT_EQ(TextOf(SYSTEM_INFO_KEY_MODEL_NAME), "AB55 é");
  EXPECT_EQ(TextOf(SYSTEM_INFO_KEY_SERIAL_NUMBER), "");
  EXPECT_EQ(TextOf(SYSTEM_INFO_KEY_LOCAL_SET), "KOR");
  EXPECT_EQ(TextOf(SYSTEM_INFO_KEY_SW_MODEL), std::to_string(kNoData));
  EXPECT_EQ(TextOf(SYSTEM_INFO_KEY_REGION_KIND), std::to_string(kInvalid));
  EXPECT_EQ(NumberOf(SYSTEM_INFO_KEY_REGION_KIND), kNoData) << "beyond its range";
  EXPECT_EQ(NumberOf(SYSTEM_INFO_KEY_NUM_OF_TUNER), 1);
  EXPECT_EQ(NumberOf(SYSTEM_INFO_KEY_LOCAL_SET), kInvalid);
  EXPECT_EQ(Feature("product.product_type"), 4);
  EXPECT_EQ(Feature("flash_size"), -1);
  EXPECT_EQ(Feature("product.chipset"), kInvalid);
  EXPECT_EQ(Feature("none"), kNoData);
  bool hdr = false;
  EXPECT_EQ(system_info_get_custom_bool("com.tornelo/featureconf/hdr", &hdr), 0);
  EXPECT_TRUE(hdr);
  EXPECT_EQ(system_info_get_custom_bool("hdr", &hdr), kNoData);
  char* chipset = nullptr;
  ASSERT_EQ(system_info_get_custom_string("com.tornelo/featureconf/product.chipset", &chipset), 0);
  EXPECT_STREQ(CText(chipset).get(), "X1");
  EXPECT_EQ(system_info_get_custom_string("com.tornelo/featureconf/product.chipset", nullptr), kInvalid);
  EXPECT_EQ(system_info_get_custom_int(nullptr, nullptr), kInvalid);

  Write(set_paths::kSetProfile, "[set]\nmodel_name=Z\nregion kind 5\n");
  expectFacts();
  int told = 0;
  for (const std::string& line : ReadLines(kLog))
    if (line.find("/etc/vexilo/set.conf is malformed") != std::string::npos) {
      ++told;
      EXPECT_NE(line.find("line 3"), std::string::npos) << line;
      EXPECT_NE(line.find("region kind 5"), std::string::npos) << line;
    }
  EXPECT_EQ(told, 1);
}

// --- TV service and settings menu ------------------------------------------------------------------------------------

TEST(TvService, TellsWhatThePlayerSaysAndElseTheProfile) {
  EXPECT_EQ(TVServiceAPI::CreateSourceControl(2), nullptr);
  const auto control = TVServiceAPI::CreateSourceControl(1);
  const auto navigation = TVServiceAPI::CreateServiceNavigation(1);
  TCCriteriaHelper current;
  current.FetchCurrentService();
  int source = 99;
  std::vector<TCService> services(3);
  EXPECT_LE(control->GetCurrentSource(source), 0);
  EXPECT_LE(navigation->Fetch(current, services), 0);
  EXPECT_EQ(source, 99);
  Write(set_paths::kSetProfile, "[tv]\nsource=0\nchannel_type=4\n");
  EXPECT_EQ(control->GetCurrentSource(source), 1);
  EXPECT_EQ(source, 0);
  ASSERT_EQ(vconf_set_int("memory/tv/source", 14), 0);
  ASSERT_EQ(vconf_set_int("memory/tv/channel_type", 7), 0);
  EXPECT_EQ(control->GetCurrentSource(source), 1);
  EXPECT_EQ(source, 14);
  EXPECT_EQ(navigation->Fetch(current, services), 1);
  ASSERT_EQ(services.size(), 1u);
  EXPECT_EQ(services[0].channelType, 7);
  EXPECT_LE(navigation->Fetch(TCCriteriaHelper(), services), 0);
}

TEST(SettingsMenu, RemembersWhoDisabledWhat) {
  const char* const key = "memory/settings/disabled/sm-zoom-to-fill/com.tornelo.TVVexilo";
  int disabled = -1;
  EXPECT_EQ(SettingsAPI::Get().DisableItem("sm-zoom-to-fill", "com.tornelo.TVVexilo"), 0);
  EXPECT_EQ(vconf_get_bool(key, &disabled), 0);
  EXPECT_EQ(disabled, 1);
  EXPECT_EQ(SettingsAPI::Get().EnableItem("sm-zoom-to-fill", "com.tornelo.TVVexilo"), 0);
  EXPECT_EQ(vconf_get_bool(key, &disabled), 0);
  EXPECT_EQ(disabled, 0);
  EXPECT_EQ(SettingsAPI::Get().DisableItem("a/b", "c"), -1);
  EXPECT_EQ(SettingsAPI::Get().DisableItem("", "c"), -1);
}

// --- Connection and legal notices ------------------------------------------------------------------------------------

void SetAddress(sockaddr& to, const char* text) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  inet_pton(AF_INET, text, &address.sin_addr);
  std::memcpy(&to, &address, sizeof to);
}

/// Adds or deletes a route by the loopback interface, with a gateway unless that is null.
bool Route(int socket, unsigned long request, const char* network, const char* mask, const char* gateway) {
  char interface[] = "lo";
  rtentry route{};
  SetAddress(route.rt_dst, network);
  SetAddress(route.rt_genmask, mask);
  if (gateway) SetAddress(route.rt_gateway, gateway);
  route.rt_dev = interface;
  route.rt_flags = static_cast<unsigned short>(RTF_UP | (gateway ? RTF_GATEWAY : 0));
  return ioctl(socket, request, &route) == 0;
}

bool BringLoopbackUp(int socket) {
  ifreq interface {};
  std::strcpy(interface.ifr_name, "lo");
  interface.ifr_flags = IFF_UP | IFF_RUNNING;
  return ioctl(socket, SIOCSIFFLAGS, &interface) == 0;
}

TEST(Connection, FollowsTheDefaultRouteWithoutAMainLoop) {
  if (unshare(CLONE_NEWNET) != 0) GTEST_SKIP() << "no network namespace: " << std::strerror(errno);
  connection_h connection = nullptr;
  ASSERT_EQ(connection_create(&connection), CONNECTION_ERROR_NONE);
  const auto isReachable = [connection] {
    bool reachable = false;
    EXPECT_EQ(connection_is_gateway_reachable(connection, &reachable), CONNECTION_ERROR_NONE);
    return reachable;
  };
  const FdHandle control(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  EXPECT_FALSE(isReachable());
  ASSERT_TRUE(BringLoopbackUp(control.get())) << std::strerror(errno);
  const struct {
    const char* what;
    unsigned long request;
    const char *network, *mask, *gateway;
    bool reachable;
  } kSteps[] = {
      {"a network, but no way out of it", SIOCADDRT, "10.9.9.0", "255.255.255.0", nullptr, false},
      {"a default route by nobody", SIOCADDRT, "0.0.0.0", "0.0.0.0", nullptr, false},
      {"", SIOCDELRT, "0.0.0.0", "0.0.0.0", nullptr, false},
      {"a gateway to another network", SIOCADDRT, "10.8.0.0", "255.255.0.0", "10.9.9.1", false},
      {"a gateway", SIOCADDRT, "0.0.0.0", "0.0.0.0", "10.9.9.1", true},
      {"it is gone", SIOCDELRT, "0.0.0.0", "0.0.0.0", "10.9.9.1", false},
  };
  for (const auto& step : kSteps) {
    ASSERT_TRUE(Route(control.get(), step.request, step.network, step.mask, step.gateway))
        << step.what << ": " << std::strerror(errno);
    EXPECT_EQ(isReachable(), step.reachable) << step.what;
  }
  EXPECT_EQ(connection_is_gateway_reachable(connection, nullptr), CONNECTION_ERROR_INVALID_PARAMETER);
  EXPECT_EQ(connection_destroy(connection), CONNECTION_ERROR_NONE);
  EXPECT_EQ(connection_create(nullptr), CONNECTION_ERROR_INVALID_PARAMETER);
  EXPECT_EQ(connection_destroy(nullptr), CONNECTION_ERROR_INVALID_PARAMETER);
}

TEST(LegalNotices, AreThoseOfTheProfile) {
  const auto exists = [](const char* item, const char* device = "TV") {
    return CHomeDataControlAPI::GetInstance()->IsDisclaimerItemExist(item, device);
  };
  EXPECT_FALSE(exists("service_request"));
  Write(set_paths::kSetProfile, "[home]\ndisclaimer_items=voice; service_request ;ads\n");
  for (const char* item : {"voice", "service_request", "ads"}) EXPECT_TRUE(exists(item)) << item;
  for (const char* item : {"", "service", "service_request_2", "voice; service_request"})
    EXPECT_FALSE(exists(item)) << item;
  EXPECT_FALSE(exists("voice", "FRIDGE"));
}

// --- Screen saver ----------------------------------------------------------------------------------------------------

/// A session's screen saver: counts what keeps it away, and answers or not. It works in GIO's thread for connections,
/// as the calls under test hold the main one.
class FakeSaver {
 public:
  explicit FakeSaver(const char* address)
      : m_bus(g_dbus_connection_new_for_address_sync(
            address,
            static_cast<GDBusConnectionFlags>(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                                              G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION),
            nullptr, nullptr, nullptr)) {
    g_dbus_connection_add_filter(m_bus, OnMessage, nullptr, nullptr);
    g_variant_unref(g_dbus_connection_call_sync(m_bus, "org.freedesktop.DBus", "/", "org.freedesktop.DBus",
                                                "RequestName", g_variant_new("(su)", "org.freedesktop.ScreenSaver", 0),
                                                nullptr, G_DBUS_CALL_FLAGS_NONE, -1, nullptr, nullptr));
  }
  ~FakeSaver() {
    g_dbus_connection_close_sync(m_bus, nullptr, nullptr);
    g_object_unref(m_bus);
  }

  static constinit inline std::atomic<bool> silent{false};
  static constinit inline std::atomic<int> kept{0};

 private:
  static GDBusMessage* OnMessage(GDBusConnection* bus, GDBusMessage* message, gboolean incoming, void*) {
    if (!incoming || g_strcmp0(g_dbus_message_get_interface(message), "org.freedesktop.ScreenSaver") != 0)
      return message;
    GDBusMessage* reply = g_dbus_message_new_method_reply(message);
    GVariant* body = g_dbus_message_get_body(message);
    if (g_strcmp0(g_dbus_message_get_member(message), "Inhibit") == 0) {
      ++kept;
      g_dbus_message_set_body(reply, g_variant_new("(u)", 4711));
    } else if (Cookie(body) == 4711) {
      --kept;
    }
    if (!silent) g_dbus_connection_send_message(bus, reply, G_DBUS_SEND_MESSAGE_FLAGS_NONE, nullptr, nullptr);
    g_object_unref(reply);
    g_object_unref(message);
    return nullptr;
  }

  static unsigned int Cookie(GVariant* body) {
    unsigned int cookie = 0;
    g_variant_get(body, "(u)", &cookie);
    return cookie;
  }

  GDBusConnection* m_bus;
};

int Activate() {
  return activateScreenSaver("org.varno.default-screensaver", 0, 60, 2, 2);
}

TEST(ScreenSaver, IsKeptAwayOnlyBetweenWithdrawalAndActivation) {
  unsetenv("DBUS_SESSION_BUS_ADDRESS");
  setenv("XDG_RUNTIME_DIR", SystemPath("/run").c_str(), 1);
  EXPECT_EQ(Activate(), -1) << "no bus";
  EXPECT_EQ(deactivateScreenSaver(), -1);
  GTestDBus* bus = g_test_dbus_new(G_TEST_DBUS_NONE);
  g_test_dbus_up(bus);
  EXPECT_EQ(Activate(), -1) << "no service";
  {
    FakeSaver saver(g_test_dbus_get_bus_address(bus));
    EXPECT_EQ(deactivateScreenSaver(), -1) << "not activated";
    EXPECT_EQ(Activate(), 0);
    EXPECT_EQ(saver.kept, 0);
    EXPECT_EQ(deactivateScreenSaver(), 0);
    EXPECT_EQ(saver.kept, 1);
    EXPECT_EQ(deactivateScreenSaver(), -1);
    EXPECT_EQ(Activate(), 0);
    EXPECT_EQ(saver.kept, 0);
    saver.silent = true;
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(deactivateScreenSaver(), -1) << "no answer";
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(5));
  }
  g_test_dbus_stop(bus);
  g_object_unref(bus);
}

}  // namespace
