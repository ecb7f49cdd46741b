// Settings keys: how they lie on the disk, what bad files do, and who is told of changes.

#include <glib.h>
#include <gtest/gtest.h>
#include <libintl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <climits>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <limits>
#include <sstream>
#include <thread>
#include <vector>

#include "c_handle.h"
#include "set_paths.h"
#include "settings/menu_language.h"
#include "settings/settings_store.h"
#include "system_path.h"
#include "vconf.h"

namespace {

namespace fs = std::filesystem;

fs::path SettingsDir() {
  return SystemPath(set_paths::kSettingsDir);
}

void WriteRaw(const fs::path& file, const std::string& content) {
  fs::create_directories(file.parent_path());
  std::ofstream(file, std::ios::binary) << content;
}

std::string ReadRaw(const fs::path& file) {
  std::stringstream content;
  content << std::ifstream(file, std::ios::binary).rdbuf();
  return content.str();
}

/// Runs `work` in a process of its own, which must end well.
pid_t Fork(const std::function<void()>& work) {
  const pid_t child = fork();
  if (child != 0) return child;
  work();
  _exit(testing::Test::HasFailure() ? 1 : 0);
}

void ExpectEndsWell(pid_t child) {
  int status = -1;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  EXPECT_EQ(status, 0);
}

/// Turns the main context until `done`; false after ten seconds.
bool TurnUntil(const std::function<bool()>& done) {
  bool late = false;
  const auto onLimit = [](void* flag) -> gboolean {
    *static_cast<bool*>(flag) = true;
    return G_SOURCE_REMOVE;
  };
  const guint limit = g_timeout_add_seconds(10, onLimit, &late);
  while (!late && !done()) g_main_context_iteration(nullptr, TRUE);
  if (!late) g_source_remove(limit);
  return !late;
}

TEST(SettingsValues, ComeBackAsTheyWereSetAndOnlyAsTheirType) {
  for (const int value : {0, -1, INT_MAX, INT_MIN}) {
    int read = 5;
    ASSERT_EQ(vconf_set_int("db/test/value", value), 0);
    EXPECT_EQ(vconf_get_int("db/test/value", &read), 0);
    EXPECT_EQ(read, value);
  }
  using Limits = std::numeric_limits<double>;
  for (const double value : {0.1, -0.0, Limits::max(), Limits::denorm_min(), Limits::infinity(), Limits::quiet_NaN()}) {
    double read = 5;
    ASSERT_EQ(vconf_set_dbl("db/test/value", value), 0);
    EXPECT_EQ(vconf_get_dbl("db/test/value", &read), 0);
    EXPECT_TRUE(std::isnan(value) ? std::isnan(read) : read == value && std::signbit(read) == std::signbit(value));
  }
  for (const std::string& value :
       {std::string(), std::string("a\n\nb\n"), std::string("{\"id\" : \"é\"}\xff"), std::string(65536, 'x')}) {
    ASSERT_EQ(vconf_set_str("memory/test/value", value.c_str()), 0);
    const CText read(vconf_get_str("memory/test/value"));
    ASSERT_TRUE(read);
    EXPECT_EQ(read.get(), value);
  }
  EXPECT_EQ(vconf_set_str("memory/test/value", std::string(65537, 'x').c_str()), -1);
  EXPECT_EQ(std::strlen(CText(vconf_get_str("memory/test/value")).get()), 65536u);

  ASSERT_EQ(vconf_set_bool("db/test/value", 7), 0);
  int number = 5;
  double fraction = 5;
  EXPECT_EQ(vconf_get_int("db/test/value", &number), -1);
  EXPECT_EQ(vconf_get_dbl("db/test/value", &fraction), -1);
  EXPECT_EQ(vconf_get_str("db/test/value"), nullptr);
  EXPECT_EQ(vconf_get_bool("db/test/never", &number), -1);
  EXPECT_EQ(number, 5);
  EXPECT_EQ(fraction, 5);
  EXPECT_EQ(vconf_get_bool("db/test/value", &number), 0);
  EXPECT_EQ(number, 1);
}

TEST(SettingsKeys, HaveOneFileEachAndBadOnesHaveNone) {
  const std::string longest = "db/" + std::string(147, 'k');
  const struct {
    std::string key;
    std::string file;  // empty: no key
  } kCases[] = {
      {"db/vexilo/db_reset", "db%2Fvexilo%2Fdb_reset"},
      {"a", "a"},
      {"a.b-c_d/..e", "a.b-c_d%2F..e"},
      {"100%/2F", "100%25%2F2F"},
      {"~#?*\"'\\", "%7E%23%3F%2A%22%27%5C"},
      {longest, "db%2F" + std::string(147, 'k')},
      {longest + "k", ""},
      {std::string(83, '%'), ""},
      {"", ""},
      {"/a", ""},
      {"a/", ""},
      {"a//b", ""},
      {".", ""},
      {"a/../b", ""},
      {"a b", ""},
      {"a\tb", ""},
      {"\xC3\xA9", ""},
      {std::string("a\0b", 3), ""},
  };
  for (const auto& [key, file] : kCases) {
    SCOPED_TRACE(key);
    std::string error;
    EXPECT_EQ(settings::KeyProblem(key) == nullptr, !file.empty());
    EXPECT_EQ(settings::Write(key, 7, error), !file.empty());
    EXPECT_EQ(error.empty(), !file.empty());
    if (file.empty()) continue;
    EXPECT_EQ(ReadRaw(SettingsDir() / file), "int\n7");
    EXPECT_EQ(settings::KeyOfFileName(file), key);
  }
  for (const char* file : {"db%2Fx#a1B2c3", "db%2fx", "%61", "a%", "a%2", "a%G0", "", "..", "a b", "a%2F%2Fb"})
    EXPECT_EQ(settings::KeyOfFileName(file), "") << file;
  ASSERT_EQ(vconf_set_int("memory/x", 1), 0);
  EXPECT_TRUE(fs::exists(SystemPath(set_paths::kVolatileSettingsDir) + "/memory%2Fx"));
}

TEST(SettingsFiles, DamageIsToldWithTheKeyAndMendedBySetting) {
  const std::string damaged[] = {"",
                                 "int",
                                 "int\n",
                                 "int\n12x",
                                 "int\n99999999999",
                                 "int\n 1",
                                 "Int\n1",
                                 "bool\n1",
                                 "double\n,5",
                                 "float\n1.5",
                                 "\n",
                                 std::string("string\na\0b", 10)};
  for (const std::string& content : damaged) {
    SCOPED_TRACE(content);
    WriteRaw(SettingsDir() / "db%2Fdamaged", content);
    settings::Value value = 5;
    std::string error;
    EXPECT_EQ(settings::Read("db/damaged", value, error), settings::ReadResult::kFailed);
    EXPECT_NE(error.find("\"db/damaged\""), std::string::npos) << error;
    EXPECT_EQ(error.find(SystemRoot()), std::string::npos) << error;
    EXPECT_EQ(value, settings::Value(5));
    ASSERT_EQ(vconf_set_int("db/damaged", 8), 0);
    EXPECT_EQ(settings::Read("db/damaged", value, error), settings::ReadResult::kOk);
    EXPECT_EQ(value, settings::Value(8));
  }
}

TEST(SettingsFiles, PlantedLinksAndPipesAreNotFollowed) {
  const fs::path victim = SystemPath("/etc/victim");
  WriteRaw(victim, "int\n4");
  ASSERT_EQ(vconf_set_int("db/other", 1), 0);
  fs::create_symlink(victim, SettingsDir() / "db%2Flink");
  ASSERT_EQ(mkfifo((SettingsDir() / "db%2Fpipe").c_str(), 0644), 0);
  for (const char* key : {"db/link", "db/pipe"}) {
    int value = 5;
    EXPECT_EQ(vconf_get_int(key, &value), -1) << key;
    EXPECT_EQ(value, 5);
    EXPECT_EQ(vconf_set_int(key, 6), 0) << key;
    EXPECT_EQ(vconf_get_int(key, &value), 0);
    EXPECT_EQ(value, 6);
  }
  EXPECT_EQ(ReadRaw(victim), "int\n4");
}

TEST(SettingsFiles, WhatIsThereIsNotWrittenAgainAndFailureLeavesNothing) {
  struct stat before;
  struct stat after;
  const std::string file = SettingsDir() / "db%2Fsame";
  ASSERT_EQ(vconf_set_str("db/same", "x"), 0);
  ASSERT_EQ(stat(file.c_str(), &before), 0);
  ASSERT_EQ(vconf_set_str("db/same", "x"), 0);
  ASSERT_EQ(stat(file.c_str(), &after), 0);
  EXPECT_EQ(before.st_ino, after.st_ino);
  EXPECT_EQ(after.st_mode & 0777, 0644u);

  fs::create_directory(SettingsDir() / "db%2Fblocked");
  EXPECT_EQ(vconf_set_int("db/blocked", 1), -1);
  for (const auto& entry : fs::directory_iterator(SettingsDir()))
    EXPECT_EQ(entry.path().string().find('#'), std::string::npos) << entry.path();
}

TEST(SettingsFiles, ConcurrentWritersNeverGiveATornValue) {
  constexpr int kRounds = 60;
  const auto write = [](char letter) {
    for (int i = 0; i < kRounds; ++i)
      EXPECT_EQ(vconf_set_str("memory/contended", std::string(9000 + 100 * i, letter).c_str()), 0);
  };
  write('x');
  const pid_t children[] = {Fork([&] { write('a'); }), Fork([&] { write('b'); })};
  std::atomic<bool> done{false};
  std::vector<std::thread> threads;
  for (const char letter : {'c', 'd'}) threads.emplace_back(write, letter);
  std::thread reader([&done] {
    do {
      const CText read(vconf_get_str("memory/contended"));
      ASSERT_TRUE(read);
      const std::string text = read.get();
      ASSERT_GE(text.size(), 9000u);
      ASSERT_EQ(text.find_first_not_of(text[0]), std::string::npos);
      ASSERT_EQ(text.size() % 100, 0u);
    } while (!done);
  });
  for (std::thread& thread : threads) thread.join();
  for (const pid_t child : children) ExpectEndsWell(child);
  done = true;
  reader.join();
  EXPECT_EQ(std::distance(fs::directory_iterator(SystemPath(set_paths::kVolatileSettingsDir)), {}), 1);
}

/// What the callbacks below saw, in order.
std::vector<std::string>& Seen() {
  static std::vector<std::string> seen;
  return seen;
}

void Note(keynode_t* node, void* userData) {
  const char* text = vconf_keynode_get_str(node);
  Seen().push_back(std::string(static_cast<const char*>(userData)) + ":" + vconf_keynode_get_name(node) + ":" +
                   std::to_string(vconf_keynode_get_type(node)) + ":" +
                   (text ? text : std::to_string(vconf_keynode_get_int(node) + vconf_keynode_get_bool(node))));
}

TEST(SettingsChanges, OfAnyProcessReachTheCallback) {
  char a[] = "A";
  ASSERT_EQ(vconf_notify_key_changed("db/a", Note, a), 0);
  EXPECT_EQ(vconf_notify_key_changed("db/a", Note, a), -1) << "registered twice";
  EXPECT_EQ(vconf_notify_key_changed("db//a", Note, a), -1);
  ASSERT_EQ(vconf_notify_key_changed("memory/a", Note, a), 0);
  ASSERT_EQ(vconf_set_int("db/b", 1), 0);
  ASSERT_EQ(vconf_set_int("db/a", 3), 0);
  ASSERT_TRUE(TurnUntil([] { return !Seen().empty(); }));
  EXPECT_EQ(Seen(), std::vector<std::string>{"A:db/a:41:3"});
  ASSERT_EQ(vconf_set_int("db/a", 3), 0);  // no change, so nothing before what comes next
  ExpectEndsWell(Fork([] { vconf_set_str("memory/a", "from afar"); }));
  ASSERT_TRUE(TurnUntil([] { return Seen().size() > 1; }));
  EXPECT_EQ(Seen()[1], "A:memory/a:40:from afar");

  ASSERT_EQ(vconf_ignore_key_changed("db/a", Note), 0);
  EXPECT_EQ(vconf_ignore_key_changed("db/a", Note), -1);
  ASSERT_EQ(vconf_set_int("db/a", 4), 0);
  ASSERT_EQ(vconf_set_str("memory/a", "last"), 0);
  ASSERT_TRUE(TurnUntil([] { return Seen().back() == "A:memory/a:40:last"; }));
  EXPECT_EQ(Seen().size(), 3u);
}

void NoteAndRearrange(keynode_t* node, void* userData) {
  Note(node, userData);
  EXPECT_EQ(vconf_ignore_key_changed("db/a", NoteAndRearrange), 0);
  EXPECT_EQ(vconf_ignore_key_changed("db/a", Note), 0);
  EXPECT_EQ(vconf_notify_key_changed("db/next", Note, userData), 0);
  EXPECT_EQ(vconf_set_bool("db/next", 1), 0);
}

TEST(SettingsChanges, ACallbackMayEndItselfAndOthersAndSetKeys) {
  char first[] = "first";
  char second[] = "second";
  ASSERT_EQ(vconf_notify_key_changed("db/a", NoteAndRearrange, first), 0);
  ASSERT_EQ(vconf_notify_key_changed("db/a", Note, second), 0);
  ASSERT_EQ(vconf_set_int("db/a", 1), 0);
  ASSERT_TRUE(TurnUntil([] { return Seen().size() >= 2; }));
  EXPECT_EQ(Seen(), (std::vector<std::string>{"first:db/a:41:1", "first:db/next:43:1"}));
}

TEST(SettingsChanges, OutliveTheFolder) {
  char a[] = "A";
  ASSERT_EQ(vconf_notify_key_changed("memory/a", Note, a), 0);
  for (int round = 1; round <= 3; ++round) {
    ASSERT_EQ(vconf_set_int("memory/a", round), 0);
    const std::string wanted = "A:memory/a:41:" + std::to_string(round);
    ASSERT_TRUE(TurnUntil([&] { return !Seen().empty() && Seen().back() == wanted; })) << round;
    fs::remove_all(SystemPath(round == 1 ? set_paths::kVolatileSettingsDir : set_paths::kHostRun));
    if (round == 2)  // seen gone before it returns, too
      while (g_main_context_iteration(nullptr, FALSE)) continue;
  }
  EXPECT_FALSE(fs::exists(SystemPath(set_paths::kHostRun))) << "watching makes no folders";
}

/// A catalogue with one text.
std::string Catalogue(const std::string& id, const std::string& text) {
  const auto idSize = static_cast<uint32_t>(id.size());
  const auto textSize = static_cast<uint32_t>(text.size());
  const uint32_t head[] = {0x950412de, 0, 1, 28, 36, 0, 0, idSize, 44, textSize, 44 + idSize + 1};
  return std::string(reinterpret_cast<const char*>(head), sizeof head) + id + '\0' + text + '\0';
}

TEST(MenuLanguage, FindsTextsWithoutTheLocale) {
  const fs::path folder = SystemPath("/locale");
  for (const char* language : {"de", "en", "sr@latin"})
    WriteRaw(folder / language / "LC_MESSAGES/test.mo", Catalogue("ID", std::string("text in ") + language));
  bindtextdomain("test", folder.c_str());
  ApplyMenuLanguage();
  EXPECT_STREQ(dgettext("test", "ID"), "text in en") << "not set";
  const struct {
    const char* setting;
    const char* text;
  } kCases[] = {{"de_DE.utf8", "text in de"}, {"sr_RS.utf8@latin", "text in sr@latin"},
                {"xx_XX.utf8", "text in en"}, {"de", "text in de"},
                {"../de", "text in en"},      {"", "text in en"}};
  for (const auto& [setting, text] : kCases) {
    ASSERT_EQ(vconf_set_str("db/menu_widget/language", setting), 0);
    ApplyMenuLanguage();
    EXPECT_STREQ(dgettext("test", "ID"), text) << setting;
  }
}

}  // namespace
