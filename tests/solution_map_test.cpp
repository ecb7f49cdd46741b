// The solution map and the English texts as they ship: mistakes that an author of issues can make.

#include <expat.h>
#include <gtest/gtest.h>
#include <libintl.h>

#include <algorithm>
#include <charconv>
#include <clocale>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <memory>
#include <regex>
#include <set>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

namespace {

namespace fs = std::filesystem;

using Attributes = std::map<std::string, std::string>;

constexpr char kDomain[] = "com.tornelo.TVVexilo";
constexpr char kNoText[] = "NULL";

struct Solution {
  Attributes attributes;
  std::vector<Attributes> actions;
};

struct Map {
  int version = 0;
  int declaredCount = -1;
  std::vector<Solution> solutions;
  std::string error;
};

void OnElement(void* data, const char* name, const char** attributes) {
  Map& map = *static_cast<Map*>(data);
  Attributes values;
  for (; *attributes; attributes += 2) values[attributes[0]] = attributes[1];
  const std::string_view tag = name;
  if (tag == "sminfo") map.version = std::atoi(values["version"].c_str());
  if (tag == "sm") map.declaredCount = std::atoi(values["cnt"].c_str());
  if (tag == "solution") map.solutions.push_back({values, {}});
  if (tag == "sol_val") {
    if (map.solutions.empty())
      map.error = "sol_val before any solution";
    else
      map.solutions.back().actions.push_back(values);
  }
}

Map ReadShippedMap() {
  std::ifstream file(VEXILO_SOURCE_DIR "/platform/set/solutionmap.xml");
  const std::string text((std::istreambuf_iterator<char>(file)), {});
  const std::unique_ptr<std::remove_pointer_t<XML_Parser>, decltype(&XML_ParserFree)> parser(XML_ParserCreate(nullptr),
                                                                                             &XML_ParserFree);
  Map map;
  XML_SetUserData(parser.get(), &map);
  XML_SetStartElementHandler(parser.get(), OnElement);
  if (XML_Parse(parser.get(), text.data(), static_cast<int>(text.size()), XML_TRUE) != XML_STATUS_OK)
    map.error = std::string(XML_ErrorString(XML_GetErrorCode(parser.get()))) + " in line " +
                std::to_string(XML_GetCurrentLineNumber(parser.get()));
  return map;
}

class SolutionMap : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(m_map.error, "");
    ASSERT_GE(m_map.solutions.size(), 12U);
  }

  Map m_map = ReadShippedMap();
};

bool IsWholeNumber(const std::string& text) {
  int number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  return error == std::errc() && end == text.data() + text.size() && number > 0;
}

TEST_F(SolutionMap, DeclaresItsVersionAndTrueCount) {
  EXPECT_GE(m_map.version, 1);
  EXPECT_EQ(m_map.declaredCount, static_cast<int>(m_map.solutions.size()));
}

TEST_F(SolutionMap, CodesAreUniqueNumbers) {
  for (const char* code : {"issue_code", "sol_code"}) {
    std::set<std::string> seen;
    for (Solution& solution : m_map.solutions) {
      EXPECT_TRUE(IsWholeNumber(solution.attributes[code])) << code << ' ' << solution.attributes[code];
      EXPECT_TRUE(seen.insert(solution.attributes[code]).second)
          << code << ' ' << solution.attributes[code] << " twice";
    }
  }
}

TEST_F(SolutionMap, AttributesHaveTheValuesThatTheirReadersKnow) {
  const std::regex number("[1-9][0-9]*"), name("[a-z][a-z_]*"), id("[A-Z0-9_.]+"), truth("true|false");
  const std::map<std::string, std::regex> known = {
      {"issue_code", number},
      {"sol_code", number},
      {"sol_type", std::regex("[123]")},
      {"sol_name", name},
      {"sid_issue", id},
      {"sid_sol", id},
      {"sid_button1", id},
      {"sid_button2", id},
      {"reboot", truth},
      {"is_fg_bg", std::regex("fg|bg")},
      {"action", std::regex("[12]")},
      {"toast1", id},
      {"toast2", id},
      {"source", std::regex("|DTV|HDMI")},
      {"view_authority", std::regex("USER|SERVICE")},
  };
  for (const Solution& solution : m_map.solutions) {
    const std::string code = solution.attributes.at("issue_code");
    EXPECT_EQ(solution.attributes.size(), known.size()) << code;
    for (const auto& [attribute, value] : solution.attributes) {
      ASSERT_TRUE(known.contains(attribute)) << code << ' ' << attribute;
      EXPECT_TRUE(std::regex_match(value, known.at(attribute))) << code << ' ' << attribute << "=\"" << value << '"';
      if (attribute == "view_authority") continue;
      // A stored row ends where a value equals its last one.
      EXPECT_NE(value, solution.attributes.at("view_authority")) << code << ' ' << attribute;
    }
  }
}

TEST_F(SolutionMap, EveryTextIsInTheEnglishCatalogue) {
  setenv("LANGUAGE", "en", 1);
  ASSERT_TRUE(std::setlocale(LC_ALL, "C.UTF-8"));
  ASSERT_TRUE(bindtextdomain(kDomain, VEXILO_LOCALE_DIR));
  const auto text = [](const std::string& id) { return std::string(dgettext(kDomain, id.c_str())); };
  for (const Solution& solution : m_map.solutions) {
    const std::string code = solution.attributes.at("issue_code");
    for (const char* name : {"sid_issue", "sid_sol", "sid_button1", "sid_button2", "toast1", "toast2"}) {
      const std::string& id = solution.attributes.at(name);
      if (id == kNoText && std::string_view(name).starts_with("toast")) continue;
      EXPECT_NE(text(id), id) << code << ' ' << name << " has no text";
    }
    // The second toast text fills the place that the first leaves for it.
    const bool hasPlace = text(solution.attributes.at("toast1")).find("%s") != std::string::npos;
    EXPECT_EQ(hasPlace, solution.attributes.at("toast2") != kNoText) << code;
  }
}

TEST_F(SolutionMap, ActionsAreWellFormedAndFitTheSolutionType) {
  const std::map<std::string, std::regex> known = {
      {"launch", std::regex("[A-Za-z0-9._-]+( [A-Za-z0-9_.-]+=([^ %]|%20|%25)*)*")},
      {"setting", std::regex("(int [^ ]+ -?[0-9]+|bool [^ ]+ (true|false)|double [^ ]+ -?[0-9]+(\\.[0-9]+)?"
                             "|string [^ ]+ .*)")},
      {"memboost", std::regex("")},
      {"deepclean", std::regex("")},
      {"restart_service", std::regex("[A-Za-z0-9@_-]+\\.service( [A-Za-z0-9@_-]+\\.service)*")}};
  for (const Solution& solution : m_map.solutions) {
    const std::string code = solution.attributes.at("issue_code");
    std::string typeOfActions = "3";
    for (const Attributes& action : solution.actions) {
      ASSERT_EQ(action.size(), 2U) << code;
      const std::string& type = action.at("param_type");
      ASSERT_TRUE(known.contains(type)) << code << ' ' << type;
      const std::string& value = action.at("param_value");
      EXPECT_TRUE(std::regex_match(value, known.at(type))) << code << ' ' << type << " \"" << value << '"';
      typeOfActions = type == "launch" || typeOfActions == "2" ? "2" : "1";
    }
    EXPECT_EQ(solution.attributes.at("sol_type"), typeOfActions) << code;
  }
}

// A catalogue as it is written: texts by id.
using Texts = std::map<std::string, std::string>;

Texts ReadCatalogue(const fs::path& path) {
  static const std::regex kLine(R"re((msgid |msgstr |)"(.*)")re");
  Texts texts;
  std::string id;
  bool isText = false;
  std::ifstream file(path);
  for (std::string line; std::getline(file, line);) {
    std::smatch part;
    if (!std::regex_match(line, part, kLine)) continue;
    if (part[1] == "msgid ") id.clear();
    if (part[1].length() > 0) isText = part[1] == "msgstr ";
    (isText ? texts[id] : id) += part[2];
  }
  texts.erase("");
  return texts;
}

Texts EnglishTexts() {
  return ReadCatalogue(VEXILO_SOURCE_DIR "/res/locale/en.po");
}

size_t Letters(const std::string& text) {
  return static_cast<size_t>(std::count_if(text.begin(), text.end(), [](char byte) { return (byte & 0xC0) != 0x80; }));
}

size_t Count(const std::string& text, const std::regex& what) {
  return static_cast<size_t>(std::distance(std::sregex_iterator(text.begin(), text.end(), what), {}));
}

TEST(Texts, OfEveryIdInTheSourcesAreInTheEnglishCatalogue) {
  static const std::regex kId(R"re("((([A-Z.]+_)*SID|COM_LFD|IDS_TXT)_[A-Z0-9_]*[A-Z0-9])")re");
  const Texts english = EnglishTexts();
  size_t found = 0;
  for (const char* folder : {"src", "plugins", "platform"}) {
    for (const fs::path& path : fs::recursive_directory_iterator(fs::path(VEXILO_SOURCE_DIR) / folder)) {
      if (path.extension() != ".cpp" && path.extension() != ".h" && path.extension() != ".json") continue;
      std::ifstream file(path);
      for (std::string line; std::getline(file, line);)
        for (std::sregex_iterator at(line.begin(), line.end(), kId), end; at != end; ++at, ++found)
          EXPECT_TRUE(english.contains((*at)[1])) << path << " " << (*at)[1];
    }
  }
  EXPECT_GT(found, 90U);
  for (const char* id : {"USING_OFF_TIMER", "SELECT_SOUND_TEST", "TURN_ON_SW_AUTO_UPDATE",
                         "CARE_CAMAR_WHEN_APO_WILL_OFF_DO_WANT_CONTINUE_APO", "CHECK_INVISIBLE_CABLE_BACK_TV"})
    for (const char* device : {"TV_SID_", "PJT_SID_", "REP.DEVICE.SCREEN_SID_CCDEC_"})
      EXPECT_TRUE(english.contains(std::string(device) + id)) << device << id;
}

TEST(Texts, AreCompleteAndFitInEveryLanguage) {
  static const std::regex kPlace("%s"), kPercent("%");
  const Texts english = EnglishTexts();
  ASSERT_GE(english.size(), 300U);
  for (const fs::path& path : fs::directory_iterator(VEXILO_SOURCE_DIR "/res/locale")) {
    const Texts texts = ReadCatalogue(path);
    for (const auto& [id, text] : texts) EXPECT_TRUE(english.contains(id)) << path << " " << id;
    for (const auto& [id, model] : english) {
      const auto at = texts.find(id);
      ASSERT_TRUE(at != texts.end()) << path << " " << id;
      const std::string& text = at->second;
      EXPECT_FALSE(text.empty() || text.front() == ' ' || text.back() == ' ') << path << " " << id;
      EXPECT_EQ(Count(text, kPlace), Count(model, kPlace)) << path << " " << id;
      EXPECT_EQ(Count(text, kPercent), Count(text, kPlace)) << path << " " << id;
      EXPECT_LE(Letters(text), Letters(model) * 8 / 5 + 14) << path << " " << id;
      // A language is called by its own name everywhere.
      EXPECT_TRUE(text == model || id.find("SETUP_LANGUAGE") == std::string::npos) << path << " " << id;
    }
  }
}

}  // namespace
