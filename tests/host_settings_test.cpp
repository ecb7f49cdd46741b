// Settings keys: how they lie on the disk, what bad files do, and who is told of changes.

#include <glib.h>
#include <libintl.h>

#include <sys/resource.h>
#include <sys/syscall.h>

#include <limits>

#include "base/background_writing.h"
#include "c_handle.h"
#include "flux_resources.h"
#include "set_names.h"
#include "settings/menu_language.h"
#include "settings/settings_store.h"
#include "settings/text_catalogue.h"
#include "support/files.h"
#include "support/fork.h"
#include "vconf.h"

namespace {

std::atomic<std::chrono::milliseconds> g_slowDisk;

}  // namespace

// In the place of the C library's: a disk that takes its time.
extern "C" int fdatasync(int file) {
  std::this_thread::sleep_for(g_slowDisk.load());
  return static_cast<int>(syscall(SYS_fdatasync, file));
}
extern "C" int fsync(int file) {
  std::this_thread::sleep_for(g_slowDisk.load());
  return static_cast<int>(syscall(SYS_fsync, file));
}

namespace {

using Texts = std::vector<std::string>;

const fs::path kSettings = SystemPath(set_paths::kSettingsDir);

/// Whether the number that is stored is this one.
bool IsStored(const char* key, int wanted) {
  int value = wanted + 1;
  return vconf_get_int(key, &value) == 0 && value == wanted;
}

TEST(SettingsValues, ComeBackAsTheyWereSetAndOnlyAsTheirType) {
  using Limits = std::numeric_limits<double>;
  std::string error;
  settings::Value read;
  for (const settings::Value& value :
       std::vector<settings::Value>{0, INT_MAX, INT_MIN, true, false, 0.1, Limits::max(), Limits::denorm_min(), ""s,
                                    "a\n\nb\n"s, "{\"id\" : \"é\"}\xff"s, std::string(65536, 'x')}) {
    EXPECT_TRUE(settings::Write("db/test/value", value, error)) << error;
    EXPECT_EQ(settings::Read("db/test/value", read, error), settings::ReadResult::kOk) << error;
    EXPECT_EQ(read, value);
  }
  EXPECT_FALSE(settings::Write("db/test/value", std::string(65537, 'x'), error));
  EXPECT_EQ(CText(vconf_get_str("db/test/value")).get(), std::string(65536, 'x'));

  ASSERT_EQ(vconf_set_bool("db/test/value", 7), 0);
  int whole = 5;
  double fraction = 5;
  EXPECT_EQ(vconf_get_int("db/test/value", &whole), -1);
  EXPECT_EQ(vconf_get_dbl("db/test/value", &fraction), -1);
  EXPECT_EQ(vconf_get_str("db/test/value"), nullptr);
  EXPECT_EQ(vconf_get_bool("db/test/never", &whole), -1);
  EXPECT_TRUE(whole == 5 && fraction == 5) << "an output that is not had stays as it was";
  EXPECT_EQ(vconf_get_bool("db/test/value", &whole), 0);
  EXPECT_EQ(whole, 1);
}

TEST(SettingsKeys, HaveOneFileEachAndBadOnesHaveNone) {
  const std::string longest = "db/" + std::string(147, 'k');
  const std::pair<std::string, std::string> files[] = {{"db/vexilo/db_reset", "db%2Fvexilo%2Fdb_reset"},
                                                       {"a.b-c_d/..e", "a.b-c_d%2F..e"},
                                                       {"100%/2F", "100%25%2F2F"},
                                                       {longest, "db%2F" + std::string(147, 'k')}};
  std::string error;
  for (const auto& [key, file] : files) {
    SCOPED_TRACE(key);
    EXPECT_TRUE(settings::Write(key, 7, error)) << error;
    EXPECT_EQ(ReadHostFile(kSettings / file), "int\n7");
    EXPECT_EQ(settings::KeyOfFileName(file), key);
  }
  for (const std::string& key :
       Texts{longest + "k", std::string(83, '%'), "", "/a", "a/", "a//b", ".", "a/../b", "a b", "\xC3\xA9", "a\0b"s}) {
    error.clear();
    EXPECT_FALSE(settings::Write(key, 7, error)) << key;
    EXPECT_NE(error, "") << key;
  }
  for (const char* file : {"db%2Fx#a1B2c3", "db%2fx", "%61", "a%", "a%2", "a%G0", "", "..", "a b", "a%2F%2Fb"})
    EXPECT_EQ(settings::KeyOfFileName(file), "") << file;
  ASSERT_EQ(vconf_set_int("memory/x", 1), 0);
  EXPECT_TRUE(fs::exists(SystemPath(set_paths::kVolatileSettingsDir) + "/memory%2Fx"));
}

TEST(SettingsFiles, DamageIsToldWithTheKeyAndMendedBySetting) {
  for (const std::string& content : Texts{"", "int", "int\n", "int\n12x", "int\n99999999999", "int\n 1", "Int\n1",
                                          "bool\n1", "double\n,5", "\n", "string\na\0b"s}) {
    SCOPED_TRACE(content);
    WriteHostFile(kSettings / "db%2Fdamaged", content);
    settings::Value value = 5;
    std::string error;
    EXPECT_EQ(settings::Read("db/damaged", value, error), settings::ReadResult::kFailed);
    EXPECT_NE(error.find("\"db/damaged\""), std::string::npos) << error;
    EXPECT_EQ(error.find(SystemRoot()), std::string::npos) << error;
    EXPECT_EQ(value, settings::Value(5));
    ASSERT_EQ(vconf_set_int("db/damaged", 8), 0);
    EXPECT_TRUE(IsStored("db/damaged", 8));
  }
}

TEST(SettingsFiles, PlantedLinksAndPipesAreReplacedAndNotFollowed) {
  const fs::path victim = SystemPath("/etc/victim");
  WriteHostFile(victim, "int\n4");
  fs::create_directories(kSettings);
  fs::create_symlink(victim, kSettings / "db%2Flink");
  ASSERT_EQ(mkfifo((kSettings / "db%2Fpipe").c_str(), 0644), 0);
  for (const char* key : {"db/link", "db/pipe"}) {
    int value = 5;
    EXPECT_EQ(vconf_get_int(key, &value), -1) << key;
    EXPECT_EQ(value, 5);
    EXPECT_EQ(vconf_set_int(key, 6), 0) << key;
    EXPECT_TRUE(IsStored(key, 6));
  }
  EXPECT_EQ(ReadHostFile(victim), "int\n4");
}

TEST(SettingsFiles, WhatIsThereIsNotWrittenAgainAndFailureLeavesNothing) {
  const std::string file = kSettings / "db%2Fsame";
  ASSERT_EQ(vconf_set_str("db/same", "x"), 0);
  fs::permissions(file, fs::perms(0640));
  ASSERT_EQ(vconf_set_str("db/same", "x"), 0);
  EXPECT_EQ(fs::status(file).permissions(), fs::perms(0640)) << "it is the same file";
  ASSERT_EQ(vconf_set_str("db/same", "y"), 0);
  EXPECT_EQ(fs::status(file).permissions(), fs::perms(0600));

  fs::create_directory(kSettings / "db%2Fblocked");
  EXPECT_EQ(vconf_set_int("db/blocked", 1), -1);
  EXPECT_EQ(std::distance(fs::directory_iterator(kSettings), {}), 2) << "no file that is still to be published";
}

TEST(SettingsFiles, ConcurrentWritersNeverGiveATornValue) {
  const auto write = [](char letter) {
    for (int i = 0; i < 60; ++i)
      EXPECT_EQ(vconf_set_str("memory/contended", std::string(9000 + 100 * i, letter).c_str()), 0);
  };
  write('x');
  const pid_t children[] = {Fork([&] { write('a'); }), Fork([&] { write('b'); })};
  std::atomic<int> writing{2};
  std::vector<std::thread> threads;
  for (const char letter : {'c', 'd'})
    threads.emplace_back([&, letter] {
      write(letter);
      --writing;
    });
  do {
    const std::string text = CText(vconf_get_str("memory/contended")).get();
    EXPECT_EQ(text, std::string(text.size(), text.at(0)));
    EXPECT_EQ(text.size() % 100, 0u);
  } while (writing > 0 && !HasFailure());
  for (std::thread& thread : threads) thread.join();
  for (const pid_t child : children) ExpectEndsWell(child);
  EXPECT_EQ(std::distance(fs::directory_iterator(SystemPath(set_paths::kVolatileSettingsDir)), {}), 1);
}

TEST(SettingsInTheBackground, AreReadBackAtOnceAndWaitForNoDisk) {
  ASSERT_EQ(vconf_set_int("db/number", 1), 0);
  BeginBackgroundWriting();
  g_slowDisk = 4s;
  const auto start = std::chrono::steady_clock::now();
  for (int number = 2; number <= 500; ++number) {
    ASSERT_EQ(vconf_set_int("db/number", number), 0);
    ASSERT_TRUE(IsStored("db/number", number));
  }
  EXPECT_EQ(vconf_set_str("db/long", std::string(65537, 'x').c_str()), -1);
  fs::create_directory(kSettings / "db%2Fblocked");
  EXPECT_EQ(vconf_set_int("db/blocked", 1), -1);
  EXPECT_LT(std::chrono::steady_clock::now() - start, 200ms);
  EXPECT_TRUE(Until([] { return ReadHostFile(kSettings / "db%2Fnumber") == "int\n500"; }));
  EXPECT_LT(std::chrono::steady_clock::now() - start, 3s) << "others do not wait for the disk either";

  g_slowDisk = 0ms;
  std::signal(SIGXFSZ, SIG_IGN);
  rlimit limit{};
  getrlimit(RLIMIT_FSIZE, &limit);
  ASSERT_EQ(setrlimit(RLIMIT_FSIZE, std::array{rlimit{4000, limit.rlim_max}}.data()), 0);
  EXPECT_EQ(vconf_set_str("db/number", std::string(5000, 'x').c_str()), 0);
  EXPECT_TRUE(Until([] { return IsStored("db/number", 500); })) << "what could not be stored is not read for long";
  setrlimit(RLIMIT_FSIZE, &limit);
  ASSERT_EQ(vconf_set_int("db/number", 1), 0);
  EndBackgroundWriting();
  EXPECT_EQ(ReadHostFile(kSettings / "db%2Fnumber"), "int\n1");
  EXPECT_THAT(Log(), HasSubstr("settings key \"db/number\": cannot write "));
}

TEST(SettingsInTheBackground, AreStoredAtAnEndAndHalfASecondBeforeAKill) {
  for (const bool isKilled : {false, true}) {
    SCOPED_TRACE(isKilled);
    const pid_t child = Fork([&] {
      BeginBackgroundWriting();
      if (isKilled) g_slowDisk = 4s;
      for (int key = 0; key < 100; ++key) vconf_set_int(("db/key" + std::to_string(key)).c_str(), key + isKilled);
      if (!isKilled) std::exit(0);
      std::this_thread::sleep_for(500ms);
      std::raise(SIGKILL);
    });
    waitpid(child, nullptr, 0);
    for (int key = 0; key < 100; ++key) ASSERT_TRUE(IsStored(("db/key" + std::to_string(key)).c_str(), key + isKilled));
  }
}

/// Turns the main context until it holds; false after a minute.
bool TurnUntil(const std::function<bool()>& holds) {
  // Wakes it up, so that the end of the minute is seen.
  const guint tick = g_timeout_add(
      100, [](void*) -> gboolean { return G_SOURCE_CONTINUE; }, nullptr);
  const bool held = Until([&] { return holds() || (g_main_context_iteration(nullptr, TRUE), holds()); });
  g_source_remove(tick);
  return held;
}

/// What the callbacks below saw, in order.
Texts& Seen() {
  static Texts seen;
  return seen;
}

void Note(keynode_t* node, void* userData) {
  const char* text = vconf_keynode_get_str(node);
  Seen().push_back(std::string(static_cast<const char*>(userData)) + ":" + vconf_keynode_get_name(node) + ":" +
                   std::to_string(vconf_keynode_get_type(node)) + ":" +
                   (text ? text : std::to_string(vconf_keynode_get_int(node) + vconf_keynode_get_bool(node))));
}

void NoteAndRearrange(keynode_t* node, void* userData) {
  Note(node, userData);
  EXPECT_EQ(vconf_ignore_key_changed("db/a", NoteAndRearrange), 0);
  EXPECT_EQ(vconf_ignore_key_changed("db/a", Note), 0);
  EXPECT_EQ(vconf_notify_key_changed("db/next", Note, userData), 0);
  EXPECT_EQ(vconf_set_bool("db/next", 1), 0);
}

char g_a[] = "A";
char g_b[] = "B";

TEST(SettingsChanges, OfAnyProcessReachTheCallback) {
  ASSERT_EQ(vconf_notify_key_changed("db/a", Note, g_a), 0);
  EXPECT_EQ(vconf_notify_key_changed("db/a", Note, g_a), -1) << "registered twice";
  EXPECT_EQ(vconf_notify_key_changed("db//a", Note, g_a), -1);
  ASSERT_EQ(vconf_notify_key_changed("memory/a", Note, g_a), 0);
  ASSERT_EQ(vconf_set_int("db/b", 1), 0);
  ASSERT_EQ(vconf_set_int("db/a", 3), 0);
  ASSERT_TRUE(TurnUntil([] { return !Seen().empty(); }));
  EXPECT_EQ(Seen(), Texts{"A:db/a:41:3"});
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

TEST(SettingsChanges, ACallbackMayEndItselfAndOthersAndSetKeys) {
  ASSERT_EQ(vconf_notify_key_changed("db/a", NoteAndRearrange, g_a), 0);
  ASSERT_EQ(vconf_notify_key_changed("db/a", Note, g_b), 0);
  ASSERT_EQ(vconf_set_int("db/a", 1), 0);
  ASSERT_TRUE(TurnUntil([] { return Seen().size() >= 2; }));
  EXPECT_EQ(Seen(), (Texts{"A:db/a:41:1", "A:db/next:43:1"}));
}

TEST(SettingsChanges, OutliveTheFolder) {
  ASSERT_EQ(vconf_notify_key_changed("memory/a", Note, g_a), 0);
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

/// A catalogue that has nothing but its header, with its language.
std::string Catalogue(const std::string& language) {
  const std::string text = "Language: " + language + "\n";
  const uint32_t head[] = {0x950412de, 0, 1, 28, 36, 0, 0, 0, 44, static_cast<uint32_t>(text.size()), 45};
  return std::string(reinterpret_cast<const char*>(head), sizeof head) + '\0' + text + '\0';
}

/// A whole one with `count` texts, and a hash table of `hash` places.
std::string WholeCatalogue(uint32_t count, uint32_t hash) {
  const uint32_t texts = 28 + 16 * count + 4 * hash;
  std::vector<uint32_t> words = {0x950412de, 0, count, 28, 28 + 8 * count, hash, 28 + 16 * count};
  for (const uint32_t half : {0U, 4 * count})
    for (uint32_t i = 0; i < count; ++i) words.insert(words.end(), {3, texts + half + 4 * i});
  for (uint32_t i = 0; i < hash; ++i) words.push_back(i < count ? i + 1 : 0);
  std::string bytes(reinterpret_cast<const char*>(words.data()), 4 * words.size());
  for (const char* kind : {"id", "tx"})
    for (uint32_t i = 0; i < count; ++i) bytes += kind + std::string(1, static_cast<char>('a' + i)) + '\0';
  return bytes;
}

TEST(TextCatalogue, IsReadByTheLibraryWhenItIsWhole) {
  const std::string whole = WholeCatalogue(3, 5);
  const auto with = [&](size_t word, uint32_t value) {
    std::string bytes = whole;
    std::memcpy(bytes.data() + 4 * word, &value, sizeof value);
    return bytes;
  };
  std::string swapped = whole;
  for (size_t at = 0; at < 28 + 3 * 16 + 5 * 4; at += 4) std::reverse(swapped.begin() + at, swapped.begin() + at + 4);
  const std::pair<std::string, const char*> cases[] = {
      {whole, ""},
      {swapped, ""},
      {Catalogue("de"), ""},
      {WholeCatalogue(0, 0), ""},
      {"", "shorter than its head"},
      {whole.substr(0, 27), "shorter than its head"},
      {with(0, 1), "no catalogue"},
      {with(1, 1), "revision 1"},
      {with(2, 1000), "table of its texts"},
      {with(2, UINT32_MAX), "table of its texts"},
      {with(3, UINT32_MAX - 3), "table of its texts"},
      {with(4, 30), "table of its texts"},
      {with(7, UINT32_MAX), "text 1 does not end"},
      {with(10, UINT32_MAX), "text 2 does not end"},
      {with(15, 2), "text 2 does not end"},
      {whole.substr(0, whole.size() - 1), "text 3 does not end"},
      {with(8, 28 + 3 * 16 + 5 * 4 + 8), "text 2 is not in order"},
      {with(5, 1000003), "hash table does not end"},
      {with(5, 4), "no prime"},
      {with(19, 4), "leads to a text"},
      {WholeCatalogue(5, 5), "no empty place"},
  };
  for (const auto& [bytes, problem] : cases) {
    EXPECT_THAT(CatalogueProblem(bytes), HasSubstr(problem)) << testing::PrintToString(bytes);
    EXPECT_EQ(CatalogueProblem(bytes).empty(), *problem == '\0') << problem;
  }
}

TEST(MenuLanguage, IsEnglishWhereACatalogueIsDamaged) {
  bindtextdomain(set_names::kCareApplication, SystemPath(set_paths::kLocaleDir).c_str());
  const auto path = [](const std::string& language) {
    return set_paths::kLocaleDir + ("/" + language) + "/LC_MESSAGES/" + set_names::kCareApplication + ".mo";
  };
  WriteFile(path("en"), Catalogue("en"));
  // Where the library would look for what is searched for lies far beyond the end.
  std::string damaged = Catalogue("de");
  damaged[15] = '\x7f';
  WriteFile(path("de"), damaged);
  fs::create_directories(fs::path(SystemPath(path("fr"))).parent_path());
  ASSERT_EQ(mkfifo(SystemPath(path("fr")).c_str(), 0644), 0);
  for (const char* language : {"de", "fr"}) {
    ASSERT_EQ(vconf_set_str("db/menu_widget/language", (language + "_XX.utf8"s).c_str()), 0);
    ExpectEndsWell(Fork([] {
      ApplyMenuLanguage();
      EXPECT_EQ(LanguageOfTexts(), "en");
    }));
    EXPECT_THAT(Log(), HasSubstr("the texts are not in \"" + std::string(language) + "\": " + path(language) + ": "));
  }
  WriteFile(path("en"), "");
  ApplyMenuLanguage();
  EXPECT_STREQ(dgettext(set_names::kCareApplication, "SID"), "SID");
}

TEST(MenuLanguage, FindsTextsWithoutTheLocaleAndRunsAsTheTextsDo) {
  const fs::path folder = SystemPath("/locale");
  bindtextdomain(set_names::kCareApplication, folder.c_str());
  EXPECT_EQ(LanguageOfTexts(), "en") << "no catalogue";
  for (const char* language :
       {"de", "en", "sr@latin", "ar", "ks", "pa", "pa_PK", "sd", "sd@devanagari", "pt_BR", "zh_CN", "zh_TW"})
    WriteHostFile(folder / language / "LC_MESSAGES" / (std::string(set_names::kCareApplication) + ".mo"),
                  Catalogue(language));
  ApplyMenuLanguage();
  EXPECT_EQ(LanguageOfTexts(), "en") << "not set";
  const struct {
    const char *setting, *texts;
    int orientation;
  } cases[] = {{"de_DE.utf8", "de", 0},    {"de", "de", 0},           {"sr_RS.utf8@latin", "sr@latin", 0},
               {"xx_XX.utf8", "en", 0},    {"../de", "en", 0},        {"", "en", 0},
               {"ar_AE.utf8", "ar", 1},    {"ks_IN.utf8", "ks", 1},   {"pa_PK.utf8", "pa_PK", 1},
               {"pa_IN.utf8", "pa", 0},    {"sd_IN.utf8", "sd", 1},   {"sd_IN@devanagari", "sd@devanagari", 0},
               {"fa_IR.utf8", "en", 0},    {"he_IL.utf8", "en", 0},   {"pt_PT.utf8", "pt_BR", 0},
               {"zh_HK.utf8", "zh_TW", 0}, {"zh_CN.utf8", "zh_CN", 0}};
  for (const auto& [setting, texts, orientation] : cases) {
    ASSERT_EQ(vconf_set_str("db/menu_widget/language", setting), 0);
    ApplyMenuLanguage();
    EXPECT_EQ(LanguageOfTexts(), texts) << setting;
    EXPECT_EQ(ua_UI_orientation_get(), orientation) << setting;
  }
}

}  // namespace
