// The small services of the host: log, usage events, system information, TV service, settings menu, screen saver.

#include <arpa/inet.h>
#include <json/json.h>
#include <net/if.h>
#include <net/route.h>
#include <sys/ioctl.h>
#include <sys/resource.h>
#include <sys/syscall.h>

#include <regex>

#include "base/atomic_file.h"
#include "base/background_writing.h"
#include "c_handle.h"
#include "connection.h"
#include "dlog.h"
#include "home_data_control.h"
#include "kpi_logger.h"
#include "screen_saver.h"
#include "settings_api.h"
#include "support/files.h"
#include "support/fork.h"
#include "support/growth.h"
#include "support/test_bus.h"
#include "support/usage_events.h"
#include "system_info.h"
#include "tv_service.h"
#include "vconf.h"

namespace {

std::atomic<std::chrono::milliseconds> g_slowDisk;

}  // namespace

// In the place of the C library's: a disk that takes its time.
extern "C" int fdatasync(int file) {
  std::this_thread::sleep_for(g_slowDisk.load());
  return static_cast<int>(syscall(SYS_fdatasync, file));
}

namespace {

using Lines = std::vector<std::string>;

const fs::path kLog = SystemPath(set_paths::kLogFile);
const fs::path kEvents = SystemPath(set_paths::kEventLog);
const fs::path kVictim = SystemPath("/etc/victim");

Lines ReadLines(const fs::path& file) {
  Lines lines;
  std::ifstream in(file, std::ios::binary);
  for (std::string line; std::getline(in, line);) lines.push_back(line);
  return lines;
}

/// A link where `file` is to be, and what it leads to.
void PlantLink(const fs::path& file) {
  WriteHostFile(kVictim, "untouched");
  fs::create_directories(file.parent_path());
  fs::remove(file);
  fs::create_symlink(kVictim, file);
}

void WriteProfile(const std::string& text) {
  WriteHostFile(SystemPath(set_paths::kSetProfile), text);
}

// --- Files -----------------------------------------------------------------------------------------------------------

TEST(Files, AreReadUpToALimit) {
  const std::string path = SystemPath("/tmp/file");
  for (const size_t size : {0, 9, 10, 11, 5000}) {
    WriteHostFile(path, std::string(size, 'x'));
    std::string content = "untouched";
    errno = 0;
    EXPECT_EQ(ReadWholeFile(path, content, Links::kFollow, 10), size <= 10) << size;
    EXPECT_EQ(errno, size <= 10 ? 0 : EFBIG);
    EXPECT_EQ(content, size <= 10 ? std::string(size, 'x') : "untouched");
  }
  std::string content = "untouched";
  EXPECT_FALSE(ReadWholeFile("/proc/self/maps", content, Links::kFollow, 100)) << "which tells no size";
  EXPECT_EQ(errno, EFBIG);
  EXPECT_EQ(content, "untouched");
  EXPECT_EQ(WhyUnread(EFBIG, 100) + WhyUnread(EFBIG) + WhyUnread(ENOENT),
            "it is larger than 100 bytesit is larger than 16 MiBNo such file or directory");
}

// --- Log -------------------------------------------------------------------------------------------------------------

int LogLine(int priority, const std::string& message) {
  return __dlog_print(LOG_ID_APPS, priority, "Test", "%s", message.c_str());
}

/// Runs `work` in a process whose log is set up by the environment; returns what went to standard error.
std::string LogInNewProcess(const char* level, const char* target, const std::function<void()>& work) {
  const std::string errors = SystemPath("/tmp/stderr");
  ExpectEndsWell(Fork([&] {
    setenv("VEXILO_LOG_LEVEL", level, 1);
    setenv("VEXILO_LOG_TARGET", target, 1);
    ASSERT_TRUE(std::freopen(errors.c_str(), "w", stderr));
    work();
  }));
  return ReadHostFile(errors);
}

TEST(Log, WritesWhatLevelAndTargetLetThrough) {
  const std::string loud =
      "vexilo log: VEXILO_LOG_LEVEL: unknown word \"loud\"; known are "
      "verbose, debug, info, warn, error, fatal, silent\n";
  const std::string paper = "vexilo log: VEXILO_LOG_TARGET: unknown word \"paper\"; known are stderr, file, journal\n";
  const struct {
    const char *level, *target;
    std::string onStderr, inFile;
  } cases[] = {{"debug", "file", "", "DIWEF"},
               {"warn", "", "WEF", "WEF"},
               {"", "stderr", "IWEF", ""},
               {"loud", "file", loud, "IWEF"},
               {"error", "paper", paper + "EF", "EF"}};
  for (const auto& each : cases) {
    SCOPED_TRACE(std::string(each.level) + " to " + each.target);
    fs::remove(kLog);
    const std::string errors = LogInNewProcess(each.level, each.target, [] {
      for (int priority = DLOG_VERBOSE; priority <= DLOG_SILENT; ++priority) LogLine(priority, "x");
    });
    // Each well-formed line becomes its letter.
    const std::regex line(R"(\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{3} ([VDIWEF]) \d+ Test: x\n)");
    EXPECT_EQ(std::regex_replace(errors, line, "$1"), each.onStderr);
    EXPECT_EQ(std::regex_replace(ReadHostFile(kLog), line, "$1"), each.inFile);
  }
}

TEST(Log, MessagesCannotForgeLinesAndAreCutVisibly) {
  const std::pair<std::string, std::string> cases[] = {
      {"plain \t é €\n", "plain \t é €"},
      {"a\n2031-01-01 00:00:00.000 F 1 Test: forged\r\n\n", "a\\n2031-01-01 00:00:00.000 F 1 Test: forged"},
      {"\x1b[2J\x7f\x01", "\\x1B[2J\\x7F\\x01"},
      {"\xff\xc3\xe2\x82 \xc2\x9b", "\\xFF\\xC3\\xE2\\x82 \\xC2\\x9B"},
      {"", ""},
  };
  setenv("VEXILO_LOG_TARGET", "file", 1);
  for (const auto& [message, shown] : cases) {
    errno = ENOTTY;
    const int size = LogLine(DLOG_INFO, message);
    EXPECT_EQ(errno, ENOTTY);
    const std::string line = ReadLines(kLog).back();
    EXPECT_EQ(line.substr(line.find("Test: ") + 6), shown);
    EXPECT_EQ(static_cast<size_t>(size), line.size() + 1);
  }
  EXPECT_EQ(ReadLines(kLog).size(), std::size(cases));
  fs::remove(kLog);
  for (const char* text : {"one that notices it", "two"}) LogLine(DLOG_INFO, text);
  EXPECT_TRUE(ReadLines(kLog).back().ends_with("Test: two")) << "it goes on in a new file";
  std::string euros;
  for (int i = 0; i < 2000; ++i) euros += "€";
  for (const char* start : {"", "x", "xx"}) {  // cuts at each place of a character
    LogLine(DLOG_INFO, start + euros);
    const std::string line = ReadLines(kLog).back();
    EXPECT_LE(line.size() + 1, 4096u);
    EXPECT_GE(line.size() + 1, 4093u);
    EXPECT_TRUE(line.ends_with("€ [cut]")) << line.substr(4000);
  }
}

TEST(Log, RotatesWholeWithSeveralProcesses) {
  constexpr int kWriters = 4;
  constexpr int kLines = 4000;
  const auto text = [](int writer, int number) {
    return std::string(400, '.') + std::to_string(writer) + "-" + std::to_string(number);
  };
  setenv("VEXILO_LOG_TARGET", "file", 1);
  std::vector<pid_t> writers;
  for (int writer = 0; writer < kWriters; ++writer)
    writers.push_back(Fork([&] {
      for (int i = 1; i <= kLines; ++i) ASSERT_GT(LogLine(DLOG_INFO, text(writer, i)), 0);
    }));
  for (const pid_t writer : writers) ExpectEndsWell(writer);
  const fs::path old = kLog.string() + ".1";
  EXPECT_GE(fs::file_size(old), 4u << 20);
  EXPECT_GT(fs::file_size(kLog), 0u);
  int next[kWriters] = {1, 1, 1, 1};
  for (const fs::path& file : {old, kLog}) {
    for (const std::string& line : ReadLines(file)) {
      const int writer = line[line.rfind('.') + 1] - '0';
      ASSERT_TRUE(writer >= 0 && writer < kWriters) << line;
      ASSERT_TRUE(line.ends_with("Test: " + text(writer, next[writer]++))) << "lost, torn or out of order: " << line;
    }
  }
  for (const int last : next) EXPECT_EQ(last, kLines + 1);

  // A reader may hold the file for as long as he likes.
  const FdHandle reader(open(kLog.c_str(), O_RDONLY | O_CLOEXEC));
  ASSERT_EQ(flock(reader.get(), LOCK_SH), 0);
  for (int i = 0; i < 12000; ++i) LogLine(DLOG_INFO, text(1, i));
  EXPECT_LT(fs::file_size(kLog), 5u << 20);
}

/// The process's files may have that many bytes; what is beyond is as on a full disk.
void LimitFiles(rlim_t size) {
  rlimit limit{};
  getrlimit(RLIMIT_FSIZE, &limit);
  limit.rlim_cur = size;
  EXPECT_EQ(setrlimit(RLIMIT_FSIZE, &limit), 0);
}

TEST(Log, GoesOnWhenThereIsRoomAgainWithoutATornLine) {
  std::signal(SIGXFSZ, SIG_IGN);
  for (const bool inBackground : {false, true}) {
    SCOPED_TRACE(inBackground);
    fs::remove(kLog);
    const std::string errors = LogInNewProcess("info", "file", [&] {
      if (inBackground) BeginBackgroundWriting();
      const auto write = [](const std::string& text) {
        LogLine(DLOG_ERROR, text);  // an error's is waited for
      };
      write(std::string(3000, '.') + "first");  // standard error stays far from the limit
      LimitFiles(fs::file_size(kLog) + 20);
      write("one that does not fit");
      write("another one");
      LimitFiles(RLIM_INFINITY);
      write("next");
      EndBackgroundWriting();
    });
    const Lines lines = ReadLines(kLog);
    ASSERT_EQ(lines.size(), 3u);
    EXPECT_TRUE(lines[0].ends_with(".first"));
    EXPECT_TRUE(lines[1].ends_with("WRITER: 2 lines are missing here: No space left on device"));
    EXPECT_TRUE(lines[2].ends_with("Test: next"));
    EXPECT_EQ(Count(errors, "cannot write " + std::string(set_paths::kLogFile)), 1) << errors;
    EXPECT_EQ(Count(errors, "Test: "), 2) << "standard error stands in: " << errors;
  }
}

/// What a process that writes in the background and ends as `end` says has left in the log.
Lines LinesOfBackground(int count, const std::function<void()>& end) {
  fs::remove(kLog);
  const pid_t child = Fork([&] {
    setenv("VEXILO_LOG_TARGET", "file", 1);
    BeginBackgroundWriting();
    for (int i = 0; i < count; ++i) EXPECT_GT(LogLine(DLOG_INFO, std::to_string(i)), 0);
    end();
  });
  waitpid(child, nullptr, 0);
  return ReadLines(kLog);
}

TEST(Log, OfTheBackgroundLosesNothingAtAnEnd) {
  const std::pair<const char*, std::function<void()>> ends[] = {{"by exit()", [] { std::exit(0); }},
                                                                {"by _exit()",
                                                                 [] {
                                                                   EndBackgroundWriting();
                                                                   LogLine(DLOG_INFO, "1000");
                                                                   _exit(0);
                                                                 }},
                                                                {"after an error's line",
                                                                 [] {
                                                                   LogLine(DLOG_ERROR, "1000");
                                                                   std::raise(SIGKILL);
                                                                 }},
                                                                {"half a second later", [] {
                                                                   std::this_thread::sleep_for(500ms);
                                                                   std::raise(SIGKILL);
                                                                 }}};
  for (const auto& [what, end] : ends) {
    SCOPED_TRACE(what);
    const Lines lines = LinesOfBackground(1000, end);
    EXPECT_GE(lines.size(), 1000u);
    for (size_t i = 0; i < lines.size(); ++i) ASSERT_TRUE(lines[i].ends_with("Test: " + std::to_string(i))) << lines[i];
  }
}

TEST(Log, GoesOnWhereTheFileCannotBeWritten) {
  PlantLink(kLog);
  const std::string errors = LogInNewProcess("info", "file", [] {
    EXPECT_GT(LogLine(DLOG_INFO, "one"), 0);
    EXPECT_GT(LogLine(DLOG_INFO, "two"), 0);
  });
  EXPECT_EQ(ReadHostFile(kVictim), "untouched");
  EXPECT_THAT(errors, AllOf(HasSubstr(set_paths::kLogFile), Not(HasSubstr(std::string(SystemRoot())))));
  EXPECT_EQ(Count(errors, "\n"), 3) << errors;
}

void LogInForkedChildren() {
  std::atomic<bool> done{false};
  static char text[4000];  // no allocation: that of a sanitizer may hang after a fork
  std::fill_n(text, sizeof text - 1, 'x');
  std::vector<std::thread> threads;
  for (int i = 0; i < 3; ++i)
    threads.emplace_back([&done] {
      while (!done) __dlog_print(LOG_ID_APPS, DLOG_INFO, "Test", "%s", text);
    });
  for (int i = 0; i < 60 && !testing::Test::HasFailure(); ++i)
    ExpectEndsWell(Fork([] {
      for (int line = 0; line < 20; ++line) __dlog_print(LOG_ID_APPS, DLOG_INFO, "Test", "%s", text);
    }));
  done = true;
  for (std::thread& thread : threads) thread.join();
}

TEST(Log, ForkedChildrenNeverHang) {
  setenv("VEXILO_LOG_TARGET", "file", 1);
  LogInForkedChildren();
  BeginBackgroundWriting();
  LogInForkedChildren();
}

// --- Usage events ----------------------------------------------------------------------------------------------------

int Store(const std::string& description) {
  return KPILogFramework::CLogger::GetInstance()->AddEventLogSync("23_vexilo", "VEXILO", "EV003", description);
}

/// What is stored, event by event.
Lines EventLines() {
  StoredEvents();
  return ReadLines(kEvents);
}

Json::Value Parse(const std::string& line) {
  Json::Value value;
  std::istringstream(line) >> value;
  return value;
}

TEST(UsageEvents, HoldEveryByte) {
  ASSERT_EQ(Store("user_time=\xff;\"é€😀\\\n\0\x1f\x7f\x80\xe2\x82"s), 1);
  const Lines lines = EventLines();
  ASSERT_EQ(lines.size(), 1u);
  const Json::Value event = Parse(lines[0]);
  // What is part of no character is taken as Latin-1.
  EXPECT_EQ(event["description"].asString(), "user_time=ÿ;\"é€😀\\\n\0\x1f\x7f\xC2\x80â\xC2\x82"s);
  EXPECT_EQ(event["service"], "23_vexilo");
  EXPECT_EQ(event["event"], "VEXILO");
  EXPECT_EQ(event["category"], "EV003");
  EXPECT_TRUE(std::regex_match(event["time"].asString(), std::regex(R"(\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{3}Z)")));
  EXPECT_EQ(event.size(), 5u);
}

TEST(UsageEvents, AreKeptWholeThroughRotationCrashesAndLinks) {
  const std::string filling(3000, 'x');
  std::vector<pid_t> writers;
  for (int i = 0; i < 8; ++i)
    writers.push_back(Fork([&] {
      for (int event = 0; event < 62; ++event) ASSERT_EQ(Store(filling), 1);
      StoredEvents();
    }));
  for (const pid_t writer : writers) ExpectEndsWell(writer);
  const fs::path old = kEvents.string() + ".1";
  EXPECT_LE(fs::file_size(old), 1u << 20);
  EXPECT_GT(fs::file_size(old), (1u << 20) - 4000);
  Lines lines = ReadLines(old);
  for (const std::string& line : ReadLines(kEvents)) lines.push_back(line);
  EXPECT_EQ(lines.size(), 496u);
  for (const std::string& line : lines) ASSERT_EQ(Parse(line)["description"], filling);

  WriteHostFile(kEvents, "{\"time\":\"20");  // a power cut left this
  ASSERT_EQ(Store("after"), 1);
  EXPECT_EQ(Parse(EventLines().back())["description"], "after");

  PlantLink(kEvents);
  EXPECT_EQ(Store("x"), -ELOOP);
  EXPECT_EQ(ReadHostFile(kVictim), "untouched");
  fs::remove_all(kEvents.parent_path());
  EXPECT_EQ(Store("x"), 1);
  EXPECT_EQ(EventLines().size(), 1u) << "makes its folder";
}

/// The event log while another writer has its turn, for ever.
FdHandle LockEvents() {
  FdHandle file(open((kEvents.string() + ".lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600));
  EXPECT_EQ(flock(file.get(), LOCK_EX | LOCK_NB), 0);
  return file;
}

/// Stores events, which must not take as long as the disk does; how many were refused for being too many.
int StoreAtOnce(int from, int to) {
  int refused = 0;
  const auto start = std::chrono::steady_clock::now();
  for (int event = from; event < to; ++event) {
    const int result = Store(std::to_string(event));
    EXPECT_TRUE(result == 1 || result == -ENOBUFS) << result;
    refused += result != 1;
  }
  EXPECT_LT(std::chrono::steady_clock::now() - start, 500ms);
  return refused;
}

TEST(UsageEvents, NobodyWaitsForTheLockOrTheDiskAndNothingIsLost) {
  fs::create_directories(kEvents.parent_path());
  FdHandle lock = LockEvents();
  EXPECT_EQ(StoreAtOnce(0, 1000), 0);
  EXPECT_EQ(StoreAtOnce(1000, 1002), 2);
  EXPECT_FALSE(KPILogFramework::CLogger::GetInstance()->Flush(2s));
  lock.reset();
  EXPECT_EQ(EventLines().size(), 1000u);
  EXPECT_EQ(Count(Log(), "events wait: somebody holds the lock of " + std::string(set_paths::kEventLog)), 1);
  EXPECT_THAT(Log(), HasSubstr("is not in " + std::string(set_paths::kEventLog) + ": 1000 wait already; 2 dropped"));

  const FdHandle reader(open(kEvents.c_str(), O_RDONLY | O_CLOEXEC));
  ASSERT_EQ(flock(reader.get(), LOCK_SH | LOCK_NB), 0) << "no writer locks the file itself";
  g_slowDisk = 600ms;
  EXPECT_EQ(StoreAtOnce(1000, 1010), 0);
  const Lines lines = EventLines();
  ASSERT_EQ(lines.size(), 1010u);
  for (size_t i = 0; i < lines.size(); ++i) EXPECT_EQ(Parse(lines[i])["description"], std::to_string(i));
}

TEST(UsageEvents, OutliveAKillHalfASecondLaterOnASlowDisk) {
  const pid_t child = Fork([] {
    g_slowDisk = 4s;
    for (int event = 0; event < 4; ++event, std::this_thread::sleep_for(100ms)) Store(std::to_string(event));
    std::this_thread::sleep_for(400ms);
    std::raise(SIGKILL);
  });
  waitpid(child, nullptr, 0);
  EXPECT_EQ(ReadLines(kEvents).size(), 4u);
}

TEST(UsageEvents, AreStoredBeforeAProcessEndsWhichWaitsForNobodyForLong) {
  const auto sendAndEnd = [] {
    Store("last");
    std::exit(0);
  };
  ExpectEndsWell(Fork(sendAndEnd));
  EXPECT_EQ(ReadLines(kEvents).size(), 1u);
  const FdHandle lock = LockEvents();
  const auto start = std::chrono::steady_clock::now();
  ExpectEndsWell(Fork(sendAndEnd));
  EXPECT_LT(std::chrono::steady_clock::now() - start, 10s);
  EXPECT_THAT(Log(), HasSubstr("1 events wait for " + std::string(set_paths::kEventLog) + " for more than 2000 ms"));
}

// --- System information ----------------------------------------------------------------------------------------------

constexpr int kNoData = SYSTEM_INFO_ERROR_NO_DATA;
constexpr int kInvalid = SYSTEM_INFO_ERROR_INVALID_PARAMETER;

/// The value; else the error's number.
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

void ExpectFactsOfTheMachine() {
  EXPECT_EQ(TextOf(SYSTEM_INFO_KEY_MODEL_NAME), "Lounge PC 5");
  EXPECT_EQ(TextOf(SYSTEM_INFO_KEY_SERIAL_NUMBER), "B0-17");
  EXPECT_EQ(NumberOf(SYSTEM_INFO_KEY_NUM_OF_TUNER), 2);
  EXPECT_EQ(NumberOf(SYSTEM_INFO_KEY_REGION_KIND), kNoData);
  EXPECT_EQ(Feature("panel_resolution_width"), 7680);
  EXPECT_EQ(Feature("panel_resolution_height"), 4320);
}

TEST(SystemInformation, IsTheProfilesAndElseTheMachines) {
  EXPECT_EQ(TextOf(SYSTEM_INFO_KEY_MODEL_NAME), std::to_string(kNoData));
  EXPECT_EQ(NumberOf(SYSTEM_INFO_KEY_NUM_OF_TUNER), 0);
  EXPECT_EQ(Feature("panel_resolution_width"), kNoData);
  const std::string dmi = SystemPath("/sys/class/dmi/id/"), drm = SystemPath("/sys/class/drm/card0-");
  WriteHostFile(dmi + "product_name", " Lounge PC 5 \n");
  WriteHostFile(dmi + "product_serial", "To Be Filled By O.E.M.\n");
  WriteHostFile(dmi + "board_serial", "B0-17\n");
  for (const char* receiver : {"/dev/dvb/adapter0", "/dev/dvb/adapter1"}) fs::create_directories(SystemPath(receiver));
  WriteHostFile(drm + "HDMI-A-1/status", "disconnected\n");
  WriteHostFile(drm + "DP-1/status", "connected\n");
  WriteHostFile(drm + "DP-1/modes", "7680x4320\n1920x1080\n");
  ExpectFactsOfTheMachine();
  WriteProfile(
      "# a comment\n[set]\nmodel_name= AB55 é \nserial_number=\nregion_kind=35\nnum_of_tuner=1\n"
      "[feature]\nproduct.chipset=X1\nflash_size=-1\nhdr=true\n");
  EXPECT_EQ(TextOf(SYSTEM_INFO_KEY_MODEL_NAME), "AB55 é");
  EXPECT_EQ(TextOf(SYSTEM_INFO_KEY_SERIAL_NUMBER), "");
  EXPECT_EQ(TextOf(SYSTEM_INFO_KEY_REGION_KIND), std::to_string(kInvalid)) << "a number";
  EXPECT_EQ(NumberOf(SYSTEM_INFO_KEY_REGION_KIND), kNoData) << "beyond its range";
  EXPECT_EQ(NumberOf(SYSTEM_INFO_KEY_NUM_OF_TUNER), 1);
  EXPECT_EQ(Feature("flash_size"), -1);
  EXPECT_EQ(Feature("product.chipset"), kInvalid) << "a text";
  EXPECT_EQ(Feature("none"), kNoData);
  bool hdr = false;
  EXPECT_EQ(system_info_get_custom_bool("com.tornelo/featureconf/hdr", &hdr), 0);
  EXPECT_TRUE(hdr);
  EXPECT_EQ(system_info_get_custom_bool("hdr", &hdr), kNoData);

  WriteProfile("[set]\nmodel_name=Z\nregion kind 5\n");
  ExpectFactsOfTheMachine();
  EXPECT_EQ(Count(Log(), "/etc/vexilo/set.conf is malformed and not used: line 3: "), 1) << Log();

  const auto readMalformed = [](size_t lines) {
    std::string profile = "[set]\n";
    for (size_t i = 0; i < lines; ++i) profile += "key" + std::to_string(i) + "=1\n";
    WriteProfile(profile + "none\n");
    EXPECT_EQ(NumberOf(SYSTEM_INFO_KEY_REGION_KIND), kNoData);
    EXPECT_THAT(Log(), HasSubstr("not used: line " + std::to_string(lines + 2) + ": "));
  };
  EXPECT_LT(GrowthOf(readMalformed, 1000), kLinear);

  fs::resize_file(SystemPath(set_paths::kSetProfile), 8ULL << 40);
  ExpectFactsOfTheMachine();
  EXPECT_THAT(Log(), HasSubstr("no profile of the set: /etc/vexilo/set.conf: it is larger than 1 MiB\n"));
}

// --- What the profile and settings keys stand in for -----------------------------------------------------------------

TEST(TvService, TellsOfTheMainScreensChannelOnly) {
  EXPECT_EQ(TVServiceAPI::CreateSourceControl(2), nullptr);
  const auto navigation = TVServiceAPI::CreateServiceNavigation(1);
  std::vector<TCService> services;
  TCCriteriaHelper current;
  current.FetchCurrentService();
  EXPECT_LE(navigation->Fetch(current, services), 0) << "nobody says";
  WriteProfile("[tv]\nchannel_type=4\n");
  EXPECT_EQ(navigation->Fetch(current, services), 1);
  ASSERT_EQ(services.size(), 1u);
  EXPECT_EQ(services[0].channelType, 4);
  EXPECT_LE(navigation->Fetch(TCCriteriaHelper(), services), 0) << "a list of channels";
}

TEST(SettingsMenu, RemembersWhoDisabledWhat) {
  int disabled = -1;
  EXPECT_EQ(SettingsAPI::Get().DisableItem("item", "owner"), 0);
  EXPECT_EQ(vconf_get_bool("memory/settings/disabled/item/owner", &disabled), 0);
  EXPECT_EQ(disabled, 1);
  EXPECT_EQ(SettingsAPI::Get().EnableItem("a/b", "c"), -1);
}

TEST(LegalNotices, AreThoseOfTheProfile) {
  const auto exists = [](const char* item, const char* device = "TV") {
    return CHomeDataControlAPI::GetInstance()->IsDisclaimerItemExist(item, device);
  };
  WriteProfile("[home]\ndisclaimer_items=voice; service_request ;ads\n");
  for (const char* item : {"voice", "service_request", "ads"}) EXPECT_TRUE(exists(item)) << item;
  for (const char* item : {"", "service", "voice; service_request"}) EXPECT_FALSE(exists(item)) << item;
  EXPECT_FALSE(exists("voice", "FRIDGE"));
}

// --- Connection ------------------------------------------------------------------------------------------------------

sockaddr Address(const char* text) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  inet_pton(AF_INET, text, &address.sin_addr);
  return *reinterpret_cast<sockaddr*>(&address);
}

/// Adds or deletes a route by the loopback interface, with a gateway unless that is null.
bool Route(int socket, unsigned long request, const char* network, const char* mask, const char* gateway) {
  char interface[] = "lo";
  rtentry route{};
  route.rt_dst = Address(network);
  route.rt_genmask = Address(mask);
  if (gateway) route.rt_gateway = Address(gateway);
  route.rt_dev = interface;
  route.rt_flags = static_cast<unsigned short>(RTF_UP | (gateway ? RTF_GATEWAY : 0));
  return ioctl(socket, request, &route) == 0;
}

TEST(Connection, FollowsTheDefaultRouteWithoutAMainLoop) {
  if (unshare(CLONE_NEWNET) != 0) GTEST_SKIP() << "no network namespace: " << std::strerror(errno);
  connection_h connection = nullptr;
  ASSERT_EQ(connection_create(&connection), CONNECTION_ERROR_NONE);
  const FdHandle control(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  ifreq loopback{};
  std::strcpy(loopback.ifr_name, "lo");
  loopback.ifr_flags = IFF_UP | IFF_RUNNING;
  ASSERT_EQ(ioctl(control.get(), SIOCSIFFLAGS, &loopback), 0) << std::strerror(errno);
  const struct {
    const char* what;
    unsigned long request;
    const char *network, *mask, *gateway;
    bool reachable;
  } steps[] = {
      {"a network, but no way out of it", SIOCADDRT, "10.9.9.0", "255.255.255.0", nullptr, false},
      {"a default route by nobody", SIOCADDRT, "0.0.0.0", "0.0.0.0", nullptr, false},
      {"", SIOCDELRT, "0.0.0.0", "0.0.0.0", nullptr, false},
      {"a gateway to another network", SIOCADDRT, "10.8.0.0", "255.255.0.0", "10.9.9.1", false},
      {"a gateway", SIOCADDRT, "0.0.0.0", "0.0.0.0", "10.9.9.1", true},
      {"it is gone", SIOCDELRT, "0.0.0.0", "0.0.0.0", "10.9.9.1", false},
  };
  for (const auto& step : steps) {
    bool reachable = false;
    ASSERT_TRUE(Route(control.get(), step.request, step.network, step.mask, step.gateway)) << step.what;
    EXPECT_EQ(connection_is_gateway_reachable(connection, &reachable), CONNECTION_ERROR_NONE);
    EXPECT_EQ(reachable, step.reachable) << step.what;
  }
  EXPECT_EQ(connection_destroy(connection), CONNECTION_ERROR_NONE);
}

// --- Screen saver ----------------------------------------------------------------------------------------------------

bool IsActivated() {
  return activateScreenSaver("org.varno.default-screensaver", 0, 60, 2, 2) == 0;
}

TEST(ScreenSaver, IsKeptAwayOnlyBetweenWithdrawalAndActivation) {
  unsetenv("DBUS_SESSION_BUS_ADDRESS");
  setenv("XDG_RUNTIME_DIR", SystemPath("/run").c_str(), 1);
  EXPECT_FALSE(IsActivated()) << "no bus";
  const TestBus bus;
  EXPECT_FALSE(IsActivated()) << "no service";
  std::atomic<bool> isSilent{false};
  std::atomic<int> keptAway{0};
  const PlayedService saver(bus, "org.freedesktop.ScreenSaver", [&](GDBusMessage* call) -> GDBusMessage* {
    const std::string method = g_dbus_message_get_member(call);
    if (isSilent) return nullptr;
    GDBusMessage* const reply = g_dbus_message_new_method_reply(call);
    unsigned int cookie = 0;
    if (method == "Inhibit") {
      ++keptAway;
      g_dbus_message_set_body(reply, g_variant_new("(u)", 4711));
    } else if (method == "UnInhibit") {
      g_variant_get(g_dbus_message_get_body(call), "(u)", &cookie);
      if (cookie == 4711) --keptAway;
    }
    return reply;
  });
  EXPECT_EQ(deactivateScreenSaver(), -1) << "not activated";
  EXPECT_TRUE(Until(IsActivated)) << "a loaded machine may be too late for its patience";
  EXPECT_EQ(keptAway, 0);
  EXPECT_EQ(deactivateScreenSaver(), 0);
  EXPECT_EQ(keptAway, 1);
  EXPECT_EQ(deactivateScreenSaver(), -1);
  EXPECT_TRUE(Until(IsActivated));
  EXPECT_EQ(keptAway, 0);
  isSilent = true;
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(deactivateScreenSaver(), -1) << "no answer";
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(20)) << "less than the bus's patience";
}

}  // namespace
