// The solution map and the texts as they ship: mistakes that an author of issues or a translator can make.

#include <regex>

#include "QUVA_XMLParser.h"
#include "support/test.h"

namespace {

using QUVA::QUVA_Solution;
using Texts = std::map<std::string, std::string>;  // by id

const fs::path kSource = VEXILO_SOURCE_DIR;

size_t Count(const std::string& text, const std::regex& what) {
  return static_cast<size_t>(std::distance(std::sregex_iterator(text.begin(), text.end(), what), {}));
}

/// A catalogue as it is written.
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

const Texts kEnglish = ReadCatalogue(kSource / "res/locale/en.po");

/// The values that the readers of each attribute know.
const struct {
  const char* name;
  std::string QUVA_Solution::*field;
  std::regex value;
} kAttributes[] = {
    {"issue_code", &QUVA_Solution::issue_code, std::regex("[1-9][0-9]{0,8}")},
    {"sol_code", &QUVA_Solution::sol_code, std::regex("[1-9][0-9]{0,8}")},
    {"sol_type", &QUVA_Solution::sol_type, std::regex("[123]")},
    {"sol_name", &QUVA_Solution::sol_name, std::regex("[a-z][a-z_]*")},
    {"sid_issue", &QUVA_Solution::sid_issue, std::regex("[A-Z0-9_.]+")},
    {"sid_sol", &QUVA_Solution::sid_sol, std::regex("[A-Z0-9_.]+")},
    {"sid_button1", &QUVA_Solution::sid_button1, std::regex("[A-Z0-9_.]+")},
    {"sid_button2", &QUVA_Solution::sid_button2, std::regex("[A-Z0-9_.]+")},
    {"reboot", &QUVA_Solution::reboot, std::regex("true|false")},
    {"is_fg_bg", &QUVA_Solution::is_fg_bg, std::regex("fg|bg")},
    {"action", &QUVA_Solution::action, std::regex("[12]")},
    {"toast1", &QUVA_Solution::toast1, std::regex("[A-Z0-9_.]+")},
    {"toast2", &QUVA_Solution::toast2, std::regex("[A-Z0-9_.]+")},
    {"source", &QUVA_Solution::source, std::regex("|DTV|HDMI")},
    {"view_authority", &QUVA_Solution::view_authority, std::regex("USER|SERVICE")},
};

class SolutionMap : public testing::Test {
 protected:
  void SetUp() override {
    std::ifstream file(kSource / "platform/set/solutionmap.xml");
    m_text.assign(std::istreambuf_iterator<char>(file), {});
    ASSERT_TRUE(QUVA::TCXMLParser().Parse(m_text, m_map));
    ASSERT_GE(m_map.solutions.size(), 12U);
  }

  std::string m_text;
  QUVA::QUVA_SolutionMap m_map;
};

TEST_F(SolutionMap, DeclaresItsVersionAndTrueCountAndHasUniqueCodes) {
  EXPECT_GE(m_map.version, 1U);
  EXPECT_EQ(m_map.count, m_map.solutions.size());
  for (const auto code : {&QUVA_Solution::issue_code, &QUVA_Solution::sol_code}) {
    std::set<std::string> seen;
    for (const QUVA_Solution& each : m_map.solutions) EXPECT_TRUE(seen.insert(each.*code).second) << each.*code;
  }
}

TEST_F(SolutionMap, AttributesHaveTheValuesThatTheirReadersKnow) {
  for (const auto& [name, field, value] : kAttributes) {
    EXPECT_EQ(Count(m_text, std::regex(std::string("\\s") + name + "=\"")), m_map.solutions.size()) << name;
    for (const QUVA_Solution& each : m_map.solutions) {
      EXPECT_TRUE(std::regex_match(each.*field, value)) << each.issue_code << ' ' << name << '=' << each.*field;
      if (field == &QUVA_Solution::view_authority) continue;
      EXPECT_NE(each.*field, each.view_authority) << each.issue_code << ": a stored row would end at " << name;
    }
  }
}

TEST_F(SolutionMap, EveryTextIsInTheEnglishCatalogue) {
  for (const QUVA_Solution& each : m_map.solutions) {
    for (const std::string& id : {each.sid_issue, each.sid_sol, each.sid_button1, each.sid_button2})
      EXPECT_TRUE(kEnglish.contains(id)) << each.issue_code << ' ' << id;
    for (const std::string& id : {each.toast1, each.toast2})
      EXPECT_TRUE(id == "NULL" || kEnglish.contains(id)) << each.issue_code << ' ' << id;
    // The second toast text fills the place that the first leaves for it.
    const auto toast = kEnglish.find(each.toast1);
    const bool hasPlace = toast != kEnglish.end() && toast->second.find("%s") != std::string::npos;
    EXPECT_EQ(hasPlace, each.toast2 != "NULL") << each.issue_code;
  }
}

TEST_F(SolutionMap, ActionsAreWellFormedAndFitTheSolutionType) {
  const std::map<std::string, std::regex> known = {
      {"launch", std::regex("[A-Za-z0-9._-]+( [A-Za-z0-9_.-]+=([^ %]|%20|%25)*)*")},
      {"setting", std::regex("(int [^ ]+ -?[0-9]+|bool [^ ]+ (true|false)|double [^ ]+ -?[0-9]+(\\.[0-9]+)?"
                             "|string [^ ]+ .*)")},
      {"memboost", std::regex("")},
      {"deepclean", std::regex("")},
      {"auto_power_off", std::regex("stop")},
      {"best_resolution", std::regex("[A-Za-z0-9._-]+( [A-Za-z0-9_.-]+=([^ %]|%20|%25)*)*")},
      {"clock", std::regex("synchronise")},
      {"off_timer", std::regex("stop")},
      {"sound_output", std::regex("screen")},
      {"updates", std::regex("automatic|refresh|repair")},
      {"wireless", std::regex("on|reconnect")},
      {"restart_user_service", std::regex("[a-z-]+\\.service( [a-z-]+\\.service)*")},
      {"restart_service", std::regex("[A-Za-z0-9@_-]+\\.service( [A-Za-z0-9@_-]+\\.service)*")}};
  for (const QUVA_Solution& each : m_map.solutions) {
    std::string typeOfActions = "3";
    for (const auto& [type, value] : each.sol_values) {
      ASSERT_TRUE(known.contains(type)) << each.issue_code << ' ' << type;
      EXPECT_TRUE(std::regex_match(value, known.at(type))) << each.issue_code << ' ' << type << " \"" << value << '"';
      typeOfActions = type == "launch" || typeOfActions == "2" ? "2" : "1";
    }
    EXPECT_EQ(each.sol_type, typeOfActions) << each.issue_code;
    // A settings key is the application's own memory: nothing on a machine reads it.
    const bool onlyRemembers = std::all_of(each.sol_values.begin(), each.sol_values.end(),
                                           [](const auto& action) { return action.first == "setting"; });
    EXPECT_TRUE(each.sol_values.empty() || !onlyRemembers || each.sol_name == "turn_on_auto_update") << each.issue_code;
  }
}

TEST(Texts, OfEveryIdInTheSourcesAreInTheEnglishCatalogue) {
  static const std::regex kId(R"re("((([A-Z.]+_)*SID|COM_LFD|IDS_TXT)_[A-Z0-9_]*[A-Z0-9])")re");
  size_t found = 0;
  for (const char* folder : {"src", "plugins", "platform"}) {
    for (const fs::path& path : fs::recursive_directory_iterator(kSource / folder)) {
      if (path.extension() != ".cpp" && path.extension() != ".h" && path.extension() != ".json") continue;
      std::ifstream file(path);
      for (std::string line; std::getline(file, line);)
        for (std::sregex_iterator at(line.begin(), line.end(), kId), end; at != end; ++at, ++found)
          EXPECT_TRUE(kEnglish.contains((*at)[1])) << path << " " << (*at)[1];
    }
  }
  EXPECT_GT(found, 90U);
  for (const char* id : {"USING_OFF_TIMER", "SELECT_SOUND_TEST", "TURN_ON_SW_AUTO_UPDATE",
                         "CARE_CAMAR_WHEN_APO_WILL_OFF_DO_WANT_CONTINUE_APO", "CHECK_INVISIBLE_CABLE_BACK_TV"})
    for (const char* device : {"TV_SID_", "PJT_SID_", "REP.DEVICE.SCREEN_SID_CCDEC_"})
      EXPECT_TRUE(kEnglish.contains(std::string(device) + id)) << device << id;
}

TEST(Texts, AreCompleteAndFitInEveryLanguage) {
  static const std::regex kPlace("%s"), kPercent("%");
  const auto letters = [](const std::string& text) {
    return std::count_if(text.begin(), text.end(), [](char byte) { return (byte & 0xC0) != 0x80; });
  };
  ASSERT_GE(kEnglish.size(), 300U);
  for (const fs::path& path : fs::directory_iterator(kSource / "res/locale")) {
    const Texts texts = ReadCatalogue(path);
    for (const auto& [id, text] : texts) EXPECT_TRUE(kEnglish.contains(id)) << path << " " << id;
    for (const auto& [id, model] : kEnglish) {
      ASSERT_TRUE(texts.contains(id)) << path << " " << id;
      const std::string& text = texts.at(id);
      EXPECT_FALSE(text.empty() || text.front() == ' ' || text.back() == ' ') << path << " " << id;
      EXPECT_EQ(Count(text, kPlace), Count(model, kPlace)) << path << " " << id;
      EXPECT_EQ(Count(text, kPercent), Count(text, kPlace)) << path << " " << id;
      EXPECT_LE(letters(text), letters(model) * 8 / 5 + 14) << path << " " << id;
      // A language is called by its own name everywhere.
      EXPECT_TRUE(text == model || id.find("SETUP_LANGUAGE") == std::string::npos) << path << " " << id;
    }
  }
}

}  // namespace
