// The solution map's parser and its companions.

#include "QUVA_XMLParser.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>
#include <vector>

#include "set_paths.h"
#include "system_path.h"

namespace {

using QUVA::QUVA_Solution;
using QUVA::QUVA_SolutionMap;
using QUVA::TCXMLParser;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Pair;
using Texts = std::vector<std::string>;

std::string Log() {
  std::ifstream file(SystemPath(set_paths::kLogFile));
  return {std::istreambuf_iterator<char>(file), {}};
}

Texts Codes(const QUVA_SolutionMap& map) {
  Texts codes;
  for (const QUVA_Solution& solution : map.solutions) codes.push_back(solution.issue_code);
  return codes;
}

Texts OtherTexts(const QUVA_Solution& s) {
  return {s.sol_code, s.sol_type, s.sol_name, s.sid_issue, s.sid_sol, s.sid_button1, s.sid_button2,
          s.reboot,   s.is_fg_bg, s.action,   s.toast1,    s.toast2,  s.source,      s.view_authority};
}

TEST(XmlParser, EveryAttributeArrivesInItsField) {
  QUVA_SolutionMap map;
  ASSERT_TRUE(TCXMLParser().Parse(R"(<map>
    <solution issue_code="17" sol_code="c" sol_type="t" sol_name="n" sid_issue="i" sid_sol="s" sid_button1="b1"
              sid_button2="b2" reboot="r" is_fg_bg="fg" action="a" toast1="t1" toast2="t2" source="HDMI"
              view_authority="USER">
      <any><sol_val param_type="one" param_value="1 &amp; &quot;more&quot;"/></any>
      <SOL_VAL PARAM_VALUE="2" Param_Type="two"/>
    </solution>
    <solution issue_code="2040"><sol_val/></solution>)",
                                  map));
  ASSERT_THAT(Codes(map), ElementsAre("17", "2040"));
  EXPECT_EQ(OtherTexts(map.solutions[0]),
            Texts({"c", "t", "n", "i", "s", "b1", "b2", "r", "fg", "a", "t1", "t2", "HDMI", "USER"}));
  EXPECT_THAT(map.solutions[0].sol_values, ElementsAre(Pair("one", "1 & \"more\""), Pair("two", "2")));
  EXPECT_EQ(OtherTexts(map.solutions[1]), Texts(14));
  EXPECT_THAT(map.solutions[1].sol_values, ElementsAre(Pair("", "")));
}

TEST(XmlParser, DocumentsThatAreAccepted) {
  const struct {
    const char* name;
    const char* text;
    Texts codes;
    uint32_t version = 11;  // as before
    uint32_t count = 12;
  } cases[] = {
      {"empty", "", {}},
      {"no attributes", "<a><sminfo/><sm/></a>", {}},
      {"no numbers", "<a><sminfo version='none'/><sm cnt='none'/><sminfo version=''/><sm cnt=''/></a>", {}},
      {"numbers that go on", "<a><sminfo version=' 2.5'/><sm cnt='4294967295 solutions'/></a>", {}, 2, 4294967295u},
      {"mixed case",
       "<A><SMInfo VERSION='3'/><SM Cnt='4'><SOLUTION Issue_Code='1'/><Solution ISSUE_CODE='2'/></SM></A>",
       {"1", "2"},
       3,
       4},
      {"a name twice but for its case", "<a><solution Issue_Code='1' issue_code='2'/></a>", {"2"}},
      {"equal codes in order", "<a><solution issue_code='5'/><solution issue_code='5'/></a>", {"5", "5"}},
      {"root never closed", "<a><sm cnt='9'><solution issue_code='1'/>", {"1"}, 11, 9},
      {"ends within a tag", "<a><solution issue_code='1'/><solution issue_co", {"1"}},
      {"text between tags",
       "<a>sm<sm>99</sm><![CDATA[<solution/>]]><!-- <solution/> --><solution>2</solution></a>",
       {""}},
      {"any nesting", "<solution issue_code='1'><sminfo version='2'><sm cnt='3'/></sminfo></solution>", {"1"}, 2, 3},
      {"other tags", "<a><sms cnt='1'/><solutions issue_code='1'/><sm_info version='1'/></a>", {}},
  };
  for (const auto& each : cases) {
    SCOPED_TRACE(each.name);
    QUVA_SolutionMap map{11, 12, std::vector<QUVA_Solution>(3)};
    EXPECT_TRUE(TCXMLParser().Parse(each.text, map));
    EXPECT_EQ(Codes(map), each.codes);
    EXPECT_EQ(map.version, each.version);
    EXPECT_EQ(map.count, each.count);
  }
}

TEST(XmlParser, AMalformedDocumentIsRefusedAndKeepsWhatCameBefore) {
  const struct {
    const char* text;
    Texts codes;
    const char* place;
  } cases[] = {
      {"no xml at all", {}, "line: 1, col: 0"},
      {"<a>\n<solution issue_code='1'/>\n<b></a>", {"1"}, "line: 3, col: 5"},
      {"<a><solution issue_code='1'/><solution issue_code=2/></a>", {"1"}, "line: 1, col: 50"},
      {"<a><solution issue_code='1' issue_code='2'/></a>", {}, "line: 1, col: 28"},
      {"<a><solution issue_code='&nothing;'/></a>", {}, "line: 1, col: "},
      {"<a><solution issue_code='1'/></a><a/>", {"1"}, "line: 1, col: 33"},
  };
  for (const auto& each : cases) {
    SCOPED_TRACE(each.text);
    const size_t before = Log().size();
    QUVA_SolutionMap map{0, 0, std::vector<QUVA_Solution>(3)};
    EXPECT_FALSE(TCXMLParser().Parse(each.text, map));
    EXPECT_EQ(Codes(map), each.codes);
    const std::string lines = Log().substr(before);
    EXPECT_THAT(lines, HasSubstr("Error while parsing xml: "));
    EXPECT_THAT(lines, HasSubstr(each.place));
    EXPECT_THAT(lines, HasSubstr("Parsing failed."));
  }
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

TEST(XmlParser, CallbacksTakeNothingForNothing) {
  const TCXMLParser parser;
  QUVA_SolutionMap map;
  TCXMLParser::TCParseContext context;
  context.parser = &parser;
  context.map = &map;
  const char* code[] = {"issue_code", "1", nullptr};
  TCXMLParser::m_StartXmlElement(nullptr, "solution", code);
  TCXMLParser::m_StartXmlElement(&context, nullptr, code);
  TCXMLParser::m_StartXmlElement(&context, "solution", nullptr);
  EXPECT_THAT(map.solutions, IsEmpty());
  TCXMLParser::m_StartXmlElement(&context, "SOLUTION", code);
  EXPECT_EQ(context.currentElement, "solution");
  TCXMLParser::m_SetCharacterData(&context, "text", 4);
  TCXMLParser::m_SetCharacterData(&context, nullptr, 4);
  EXPECT_THAT(Log(), HasSubstr("invalid parameters"));
  EXPECT_THAT(Codes(map), ElementsAre("1"));
  TCXMLParser::m_EndXmlElement(&context, "SOLUTION");
  EXPECT_EQ(context.currentElement, "");
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
      {" 12", 12, 12, 12, true, 12, true},
      {"12 ", 12, 12, 12, false, kDouble, true},
      {"1.25", 1, 1, 1, true, 1.25, true},
      {"1.25x", 1, 1, 1, false, kDouble, true},
      {"-1", -1, 4294967295u, 4294967295u, true, -1, true},
      {"text", kInt, kUnsigned, 0, false, kDouble, true},
      {"FaLsE", kInt, kUnsigned, 0, false, kDouble, false},
      {"falsey", kInt, kUnsigned, 0, false, kDouble, true},
  };
  for (const bool missing : {false, true})
    for (const auto& each : cases) {
      SCOPED_TRACE(each.text + std::string(missing ? " of another" : ""));
      TCXMLParser::TCAttributes attributes;
      attributes.Insert(missing ? "b" : "A", each.text);
      std::string text = "old";
      int number = kInt;
      unsigned int natural = kUnsigned;
      unsigned long long large = ~0ULL;
      double real = kDouble;
      bool yes = !each.asBool;
      EXPECT_EQ(attributes.GetValue("a", text), !missing);
      EXPECT_EQ(text, missing ? "old" : each.text);
      EXPECT_EQ(attributes.GetValue("a", number), !missing);
      EXPECT_EQ(number, missing ? kInt : each.asInt);
      EXPECT_EQ(attributes.GetValue("a", natural), !missing);
      EXPECT_EQ(natural, missing ? kUnsigned : each.asUnsigned);
      EXPECT_EQ(attributes.GetValue("a", large), !missing);
      EXPECT_EQ(large, missing ? ~0ULL : each.asLarge);
      EXPECT_EQ(attributes.GetValue("a", real), !missing && each.isDouble);
      EXPECT_EQ(real, missing ? kDouble : each.asDouble);
      EXPECT_EQ(attributes.GetValue("a", yes), !missing);
      EXPECT_EQ(yes, missing != each.asBool);
    }
}

TEST(XmlAttributes, LargeNumbersSaturateAt32Bits) {
  for (const auto& [text, expected] : {std::pair("4294967294", 4294967294ULL),
                                       {"4294967296", 4294967295ULL},
                                       {"18446744073709551615", 4294967295ULL},
                                       {"99999999999999999999", 4294967295ULL}}) {
    TCXMLParser::TCAttributes attributes;
    attributes.Insert("a", text);
    unsigned long long value = 0;
    EXPECT_TRUE(attributes.GetValue("a", value));
    EXPECT_EQ(value, expected) << text;
  }
}

TEST(XmlAttributes, AreFoundByNameAndComparedInAnyCase) {
  TCXMLParser::TCAttributes attributes;
  for (const char* name : {"Beta", "ALPHA", "gamma", "alpha", "BETA"})
    attributes.Insert(name, std::string("<") + name + ">");
  for (const auto& [name, value] : {std::pair("alpha", "<alpha>"), {"beta", "<BETA>"}, {"gamma", "<gamma>"}}) {
    std::string text;
    EXPECT_TRUE(attributes.GetValue(name, text)) << name;
    EXPECT_EQ(text, value) << "the last one counts";
  }
  for (const auto& [value, expected] :
       {std::pair("<GammA>", true), {"<gamma", false}, {"<gamma>>", false}, {"", false}})
    EXPECT_EQ(attributes.HasAttrOfValue("gamma", value), expected) << value;
  EXPECT_FALSE(attributes.HasAttrOfValue("delta", ""));
}

TEST(XmlElements, HoldDataByTagAndTheCurrentElement) {
  TCXMLParser::TCElements elements;
  std::string text = "old";
  EXPECT_FALSE(elements.GetElementData("a", text));
  EXPECT_EQ(text, "old");
  for (const char* value : {"1", "3"}) elements.InsertElementData("a", value);
  elements.InsertElementData("b", "2");
  EXPECT_TRUE(elements.GetElementData("a", text));
  EXPECT_EQ(text, "3");
  elements.SetCurrentElement("b");
  elements.GetCurrentElement(text);
  EXPECT_EQ(text, "b");
}

TEST(XmlDataBuffer, KeepsEveryByteInOrder) {
  QUVA::TCParserDataBuffer buffer;
  std::string expected;
  for (int i = -3; i < 100; ++i) {
    const std::string piece(7, static_cast<char>(i));
    const int length = i < 7 ? i : i % 7;
    buffer.InsertData(piece.data(), length);
    if (length > 0) expected += piece.substr(0, static_cast<size_t>(length));
    ASSERT_EQ(std::string(buffer.GetData() ? buffer.GetData() : "", static_cast<size_t>(buffer.GetDataSize())),
              expected);
  }
  buffer.Clear();
  EXPECT_EQ(buffer.GetDataSize(), 0);
  buffer.InsertData("again", 5);
  EXPECT_EQ(std::string(buffer.GetData(), 5), "again");
}

}  // namespace
