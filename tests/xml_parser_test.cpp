// The solution map's parser and its companions.

#include "QUVA_XMLParser.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "set_paths.h"
#include "system_path.h"

namespace {

using QUVA::QUVA_Solution;
using QUVA::QUVA_SolutionMap;
using QUVA::TCParserDataBuffer;
using QUVA::TCXMLParser;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Pair;

using Attributes = TCXMLParser::TCAttributes;

std::string Log() {
  std::ifstream file(SystemPath(set_paths::kLogFile));
  return {std::istreambuf_iterator<char>(file), {}};
}

std::vector<std::string> Codes(const QUVA_SolutionMap& map) {
  std::vector<std::string> codes;
  for (const QUVA_Solution& solution : map.solutions) codes.push_back(solution.issue_code);
  return codes;
}

// ---- documents

constexpr char kWholeMap[] = R"(<?xml version="1.0"?>
<solution_map>
  <sminfo version="7"/>
  <sm cnt="2">
    <solution issue_code="17" sol_code="c" sol_type="t" sol_name="n" sid_issue="i" sid_sol="s" sid_button1="b1"
              sid_button2="b2" reboot="r" is_fg_bg="fg" action="a" toast1="t1" toast2="t2" source="HDMI"
              view_authority="USER">
      <sol_val param_type="one" param_value="1 &amp; &quot;more&quot;"/>
      <sol_val param_value="2" param_type="two"/>
    </solution>
    <solution issue_code="2040"><sol_val/></solution>
  </sm>
</solution_map>)";

TEST(XmlParser, EveryAttributeArrivesInItsField) {
  QUVA_SolutionMap map;
  ASSERT_TRUE(TCXMLParser().Parse(kWholeMap, map));
  EXPECT_EQ(map.version, 7u);
  EXPECT_EQ(map.count, 2u);
  ASSERT_THAT(Codes(map), ElementsAre("17", "2040"));
  const QUVA_Solution& full = map.solutions[0];
  EXPECT_EQ(
      std::vector({full.sol_code, full.sol_type, full.sol_name, full.sid_issue, full.sid_sol, full.sid_button1,
                   full.sid_button2, full.reboot, full.is_fg_bg, full.action, full.toast1, full.toast2, full.source,
                   full.view_authority}),
      std::vector<std::string>({"c", "t", "n", "i", "s", "b1", "b2", "r", "fg", "a", "t1", "t2", "HDMI", "USER"}));
  EXPECT_THAT(full.sol_values, ElementsAre(Pair("one", "1 & \"more\""), Pair("two", "2")));

  const QUVA_Solution& bare = map.solutions[1];
  for (const std::string& text :
       {bare.sol_code, bare.sol_type, bare.sol_name, bare.sid_issue, bare.sid_sol, bare.sid_button1, bare.sid_button2,
        bare.reboot, bare.is_fg_bg, bare.action, bare.toast1, bare.toast2, bare.source, bare.view_authority})
    EXPECT_EQ(text, "");
  EXPECT_THAT(bare.sol_values, ElementsAre(Pair("", "")));
}

TEST(XmlParser, DocumentsThatAreAccepted) {
  const struct {
    const char* name;
    const char* text;
    std::vector<std::string> codes;
    uint32_t version;
    uint32_t count;
  } cases[] = {
      {"empty", "", {}, 0, 0},
      {"only a root", "<a/>", {}, 0, 0},
      {"mixed case",
       "<A><SMInfo VERSION='3'/><SM Cnt='4'><SOLUTION Issue_Code='1'/><Solution ISSUE_CODE='2'/></SM></A>",
       {"1", "2"},
       3,
       4},
      {"a name twice in different case", "<a><solution Issue_Code='1' issue_code='2'/></a>", {"2"}, 0, 0},
      {"equal codes in order", "<a><solution issue_code='5'/><solution issue_code='5'/></a>", {"5", "5"}, 0, 0},
      {"root never closed", "<a><sm cnt='9'><solution issue_code='1'/>", {"1"}, 0, 9},
      {"ends within a tag", "<a><solution issue_code='1'/><solution issue_co", {"1"}, 0, 0},
      {"text between tags",
       "<a>sm<sm cnt='1'>99</sm><![CDATA[<solution issue_code='0'/>]]><solution issue_code='1'>2</solution></a>",
       {"1"},
       0,
       1},
      {"any root, any nesting",
       "<solution issue_code='1'><sminfo version='2'><sm cnt='3'/></sminfo></solution>",
       {"1"},
       2,
       3},
      {"tags that only begin alike",
       "<a><sms cnt='1'/><solutions issue_code='1'/><sm_info version='1'/></a>",
       {},
       0,
       0},
      {"commented out", "<a><!-- <solution issue_code='1'/> --><solution issue_code='2'/></a>", {"2"}, 0, 0},
      {"count is not the length", "<sm cnt='4294967295'><solution issue_code='1'/></sm>", {"1"}, 0, 4294967295u},
  };
  for (const auto& each : cases) {
    SCOPED_TRACE(each.name);
    QUVA_SolutionMap map;
    EXPECT_TRUE(TCXMLParser().Parse(each.text, map));
    EXPECT_EQ(Codes(map), each.codes);
    EXPECT_EQ(map.version, each.version);
    EXPECT_EQ(map.count, each.count);
  }
}

TEST(XmlParser, AMalformedDocumentIsRefusedAndKeepsWhatCameBefore) {
  const struct {
    const char* text;
    std::vector<std::string> codes;
    const char* place;
  } cases[] = {
      {"no xml at all", {}, "line: 1, col: 0"},
      {"<a>\n<solution issue_code='1'/>\n<b></a>", {"1"}, "line: 3, col: 5"},
      {"<a><solution issue_code='1'/><solution issue_code=2/></a>", {"1"}, "line: 1, col: 50"},
      {"<a><solution issue_code='1' issue_code='2'/></a>", {}, "line: 1, col: 28"},
      {"<a><solution issue_code='&nothing;'/></a>", {}, "line: 1, col: "},
      {"<a><solution issue_code='1'/></a><a/>", {"1"}, "line: 1, col: 33"},
      {"<a><solution issue_code='1'/>\xff</a>", {"1"}, "line: 1, col: 29"},
  };
  for (const auto& each : cases) {
    SCOPED_TRACE(each.text);
    const size_t before = Log().size();
    QUVA_SolutionMap map;
    EXPECT_FALSE(TCXMLParser().Parse(each.text, map));
    EXPECT_EQ(Codes(map), each.codes);
    const std::string lines = Log().substr(before);
    EXPECT_THAT(lines, HasSubstr("Error while parsing xml: "));
    EXPECT_THAT(lines, HasSubstr(each.place));
    EXPECT_THAT(lines, HasSubstr("Parsing failed."));
  }
}

TEST(XmlParser, OnlyTheListIsEmptiedBeforeParsing) {
  for (const char* text : {"", "<a>text</a>", "<a><sminfo/><sm/></a>",
                           "<a><sminfo version='none'/><sm cnt='none'/><sminfo version=''/><sm cnt=''/></a>"}) {
    SCOPED_TRACE(text);
    QUVA_SolutionMap map{11, 12, std::vector<QUVA_Solution>(3)};
    EXPECT_TRUE(TCXMLParser().Parse(text, map));
    EXPECT_EQ(map.version, 11u);
    EXPECT_EQ(map.count, 12u);
    EXPECT_THAT(map.solutions, IsEmpty());
  }
  QUVA_SolutionMap map{11, 12, std::vector<QUVA_Solution>(3)};
  EXPECT_FALSE(TCXMLParser().Parse("<<", map));
  EXPECT_THAT(map.solutions, IsEmpty());
}

TEST(XmlParser, NumbersAreScannedToWhereTheyEnd) {
  QUVA_SolutionMap map;
  EXPECT_TRUE(TCXMLParser().Parse("<a><sminfo version=' 12.5'/><sm cnt='34 solutions'/></a>", map));
  EXPECT_EQ(map.version, 12u);
  EXPECT_EQ(map.count, 34u);
}

TEST(XmlParser, AParameterBeforeAnySolutionIsOutOfRange) {
  const TCXMLParser parser;
  QUVA_SolutionMap map{0, 0, std::vector<QUVA_Solution>(1)};
  EXPECT_THROW(parser.Parse("<a><sm cnt='1'/><sol_val param_type='t'/><solution issue_code='1'/></a>", map),
               std::out_of_range);
  EXPECT_EQ(map.count, 1u);
  EXPECT_THAT(map.solutions, IsEmpty()) << "nothing after the tag is read";
  EXPECT_TRUE(parser.Parse("<a><solution issue_code='1'/><sol_val param_type='t'/></a>", map));
  EXPECT_THAT(Codes(map), ElementsAre("1"));
}

TEST(XmlParser, AParameterBelongsToTheSolutionBeforeItWhereverItStands) {
  QUVA_SolutionMap map;
  ASSERT_TRUE(
      TCXMLParser().Parse("<a><solution issue_code='1'/><b><sol_val param_type='x' param_value='1'/></b>"
                          "<solution issue_code='2'/><SOL_VAL Param_Type='y' PARAM_VALUE='2'/></a>",
                          map));
  ASSERT_EQ(map.solutions.size(), 2u);
  EXPECT_THAT(map.solutions[0].sol_values, ElementsAre(Pair("x", "1")));
  EXPECT_THAT(map.solutions[1].sol_values, ElementsAre(Pair("y", "2")));
}

TEST(XmlParser, OneParserServesManyThreads) {
  const TCXMLParser parser;
  std::vector<QUVA_SolutionMap> maps(4);
  std::vector<std::thread> threads;
  for (QUVA_SolutionMap& map : maps)
    threads.emplace_back([&] {
      for (int i = 0; i < 50; ++i) EXPECT_TRUE(parser.Parse(kWholeMap, map));
    });
  for (std::thread& thread : threads) thread.join();
  for (const QUVA_SolutionMap& map : maps) EXPECT_THAT(Codes(map), ElementsAre("17", "2040"));
}

TEST(XmlParser, CallbacksTakeNothingForNothing) {
  const TCXMLParser parser;
  QUVA_SolutionMap map;
  TCXMLParser::TCParseContext context;
  context.parser = &parser;
  context.map = &map;
  const char* none[] = {nullptr};
  const char* code[] = {"issue_code", "1", nullptr};
  TCXMLParser::m_StartXmlElement(nullptr, "solution", code);
  TCXMLParser::m_StartXmlElement(&context, nullptr, code);
  TCXMLParser::m_StartXmlElement(&context, "solution", nullptr);
  EXPECT_THAT(map.solutions, IsEmpty());
  EXPECT_EQ(context.currentElement, "");

  TCXMLParser::m_StartXmlElement(&context, "SOLUTION", code);
  EXPECT_THAT(Codes(map), ElementsAre("1"));
  EXPECT_EQ(context.currentElement, "solution");
  TCXMLParser::m_SetCharacterData(&context, "text", 4);
  TCXMLParser::m_SetCharacterData(&context, nullptr, 4);
  TCXMLParser::m_SetCharacterData(nullptr, "text", 4);
  EXPECT_THAT(Log(), HasSubstr("invalid parameters"));
  EXPECT_THAT(Codes(map), ElementsAre("1"));
  TCXMLParser::m_EndXmlElement(&context, "SOLUTION");
  EXPECT_EQ(context.currentElement, "");
  TCXMLParser::m_StartXmlElement(&context, "Unknown", none);
  EXPECT_EQ(context.currentElement, "unknown");
}

// ---- attributes

TEST(XmlAttributes, AMissingOneChangesNothing) {
  Attributes attributes;
  attributes.Insert("other", "1");
  std::string text = "old";
  int number = -7;
  unsigned int natural = 7;
  unsigned long long large = 77;
  double real = 7.5;
  bool yes = true;
  EXPECT_FALSE(attributes.GetValue("a", text) || attributes.GetValue("a", number) ||
               attributes.GetValue("a", natural) || attributes.GetValue("a", large) || attributes.GetValue("a", real) ||
               attributes.GetValue("a", yes));
  EXPECT_EQ(text, "old");
  EXPECT_EQ(number, -7);
  EXPECT_EQ(natural, 7u);
  EXPECT_EQ(large, 77u);
  EXPECT_EQ(real, 7.5);
  EXPECT_TRUE(yes);
  EXPECT_FALSE(attributes.HasAttrOfValue("a", ""));
}

TEST(XmlAttributes, NamesAreLowerCasedAndTheLastValueCounts) {
  Attributes attributes;
  for (const char* name : {"Beta", "ALPHA", "gamma", "alpha", "BETA"})
    attributes.Insert(name, std::string("<") + name + ">");
  for (const auto& [name, value] : {std::pair("alpha", "<alpha>"), {"beta", "<BETA>"}, {"gamma", "<gamma>"}}) {
    std::string text;
    EXPECT_TRUE(attributes.GetValue(name, text)) << name;
    EXPECT_EQ(text, value);
  }
}

TEST(XmlAttributes, ValuesAsEachType) {
  constexpr int kInt = -7;
  constexpr unsigned int kUnsigned = 7;
  constexpr double kDouble = 7.5;
  const struct {
    const char* text;
    int asInt;
    unsigned int asUnsigned;
    unsigned long long asLarge;
    bool isDouble;
    double asDouble;
    bool asBool;
  } cases[] = {
      {"0", 0, 0, 0, true, 0, false},
      {"00", 0, 0, 0, true, 0, true},
      {"12", 12, 12, 12, true, 12, true},
      {" 12", 12, 12, 12, true, 12, true},
      {"12 ", 12, 12, 12, false, kDouble, true},
      {"1.25", 1, 1, 1, true, 1.25, true},
      {"1e3", 1, 1, 1, true, 1000, true},
      {"1.25x", 1, 1, 1, false, kDouble, true},
      {"0x10", 0, 0, 0, true, 16, true},
      {"-1", -1, 4294967295u, 4294967295u, true, -1, true},
      {"text", kInt, kUnsigned, 0, false, kDouble, true},
      {"false", kInt, kUnsigned, 0, false, kDouble, false},
      {"FaLsE", kInt, kUnsigned, 0, false, kDouble, false},
      {"falsey", kInt, kUnsigned, 0, false, kDouble, true},
      {"no", kInt, kUnsigned, 0, false, kDouble, true},
      {"true", kInt, kUnsigned, 0, false, kDouble, true},
  };
  for (const auto& each : cases) {
    SCOPED_TRACE(each.text);
    Attributes attributes;
    attributes.Insert("a", each.text);
    int number = kInt;
    unsigned int natural = kUnsigned;
    unsigned long long large = ~0ULL;
    double real = kDouble;
    bool yes = !each.asBool;
    EXPECT_TRUE(attributes.GetValue("a", number));
    EXPECT_EQ(number, each.asInt);
    EXPECT_TRUE(attributes.GetValue("a", natural));
    EXPECT_EQ(natural, each.asUnsigned);
    EXPECT_TRUE(attributes.GetValue("a", large));
    EXPECT_EQ(large, each.asLarge);
    EXPECT_EQ(attributes.GetValue("a", real), each.isDouble);
    EXPECT_EQ(real, each.asDouble);
    EXPECT_TRUE(attributes.GetValue("a", yes));
    EXPECT_EQ(yes, each.asBool);
  }
}

TEST(XmlAttributes, LargeNumbersSaturateAt32Bits) {
  for (const auto& [text, expected] : {std::pair("4294967294", 4294967294ULL),
                                       {"4294967295", 4294967295ULL},
                                       {"4294967296", 4294967295ULL},
                                       {"18446744073709551615", 4294967295ULL},
                                       {"99999999999999999999999", 4294967295ULL}}) {
    Attributes attributes;
    attributes.Insert("a", text);
    unsigned long long value = 0;
    EXPECT_TRUE(attributes.GetValue("a", value));
    EXPECT_EQ(value, expected) << text;
  }
}

TEST(XmlAttributes, AreComparedInAnyCase) {
  Attributes attributes;
  attributes.Insert("Kind", "DTV");
  for (const auto& [value, expected] :
       {std::pair("DTV", true), {"dtv", true}, {"DtV", true}, {"DT", false}, {"DTVS", false}, {"", false}})
    EXPECT_EQ(attributes.HasAttrOfValue("kind", value), expected) << value;
}

// ---- elements and data

TEST(XmlElements, HoldDataByTagAndTheCurrentElement) {
  TCXMLParser::TCElements elements;
  std::string text = "old";
  EXPECT_FALSE(elements.GetElementData("a", text));
  EXPECT_EQ(text, "old");
  elements.GetCurrentElement(text);
  EXPECT_EQ(text, "");
  elements.InsertElementData("a", "1");
  elements.InsertElementData("b", "2");
  elements.InsertElementData("a", "3");
  EXPECT_TRUE(elements.GetElementData("a", text));
  EXPECT_EQ(text, "3");
  elements.SetCurrentElement("b");
  elements.GetCurrentElement(text);
  EXPECT_EQ(text, "b");
}

TEST(XmlDataBuffer, KeepsEveryByteInOrder) {
  TCParserDataBuffer buffer;
  EXPECT_EQ(buffer.GetDataSize(), 0);
  std::string expected;
  for (int i = 0; i < 100; ++i) {
    const std::string piece(static_cast<size_t>(i % 7), static_cast<char>(i));
    buffer.InsertData(piece.data(), static_cast<int>(piece.size()));
    expected += piece;
    ASSERT_EQ(std::string(buffer.GetData() ? buffer.GetData() : "", static_cast<size_t>(buffer.GetDataSize())),
              expected);
  }
  buffer.InsertData("x", 0);
  buffer.InsertData("x", -1);
  EXPECT_EQ(buffer.GetDataSize(), static_cast<int>(expected.size()));
  buffer.Clear();
  EXPECT_EQ(buffer.GetDataSize(), 0);
  buffer.InsertData("again", 5);
  EXPECT_EQ(std::string(buffer.GetData(), 5), "again");
}

}  // namespace
