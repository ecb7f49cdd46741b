// The solution map's parser and its companions.

#include "QUVA_XMLParser.h"

#include "support/files.h"

namespace {

using QUVA::QUVA_Solution;
using QUVA::QUVA_SolutionMap;
using QUVA::TCXMLParser;
using testing::Pair;
using Texts = std::vector<std::string>;

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
      {"no numbers", "<a><sminfo version='none'/><sm cnt='none'/><sminfo version=''/><sm/></a>", {}},
      {"numbers that go on", "<a><sminfo version=' 2.5'/><sm cnt='4294967295 solutions'/></a>", {}, 2, 4294967295u},
      {"mixed case",
       "<A><SMInfo VERSION='3'/><SM Cnt='4'><SOLUTION Issue_Code='1'/><Solution ISSUE_CODE='2'/></SM></A>",
       {"1", "2"},
       3,
       4},
      {"a name twice but for its case", "<a><solution Issue_Code='1' issue_code='2'/></a>", {"2"}},
      {"equal codes in order", "<a><solution issue_code='5'/><solution issue_code='5'/></a>", {"5", "5"}},
      {"ends within a tag", "<a><sm cnt='9'><solution issue_code='1'/><solution issue_co", {"1"}, 11, 9},
      {"text between tags",
       "<a>sm<sm>99</sm><![CDATA[<solution/>]]><!-- <solution/> --><solution>2</solution></a>",
       {""}},
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
      {"<a><solution issue_code='1' issue_code='2'/></a>", {}, "line: 1, col: 28"},
      {"<a><solution issue_code='1'/></a><a/>", {"1"}, "line: 1, col: 33"},
  };
  for (const auto& each : cases) {
    SCOPED_TRACE(each.text);
    const size_t before = Log().size();
    QUVA_SolutionMap map{0, 0, std::vector<QUVA_Solution>(3)};
    EXPECT_FALSE(TCXMLParser().Parse(each.text, map));
    EXPECT_EQ(Codes(map), each.codes);
    EXPECT_THAT(Log().substr(before), AllOf(HasSubstr("Error while parsing xml: "), HasSubstr(each.place)));
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
}

}  // namespace
