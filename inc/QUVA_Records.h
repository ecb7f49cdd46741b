#pragma once
/// @file
/// The records that carry a diagnosis from the knowledge base to the screens, and how their texts are read. All are
/// values that own their texts. Thread rule: any thread.

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace QUVA {

/// One solution of the solution map; the fields are the attributes of its element, empty when absent.
struct QUVA_Solution {
  std::string issue_code;  ///< decimal number; the key into the engine's databases
  std::string sol_code;
  std::string sol_type;
  std::string sol_name;
  std::vector<std::pair<std::string, std::string>> sol_values;  ///< (param_type, param_value), in document order
  std::string sid_issue;                                        ///< message id of the issue's title
  std::string sid_sol;                                          ///< message id of the solution's description
  std::string sid_button1;
  std::string sid_button2;
  std::string reboot;
  std::string is_fg_bg;  ///< kBackgroundSolution: handled in the background and never shown
  std::string action;    ///< which button applies the solution: "1" or "2"
  std::string toast1;
  std::string toast2;
  std::string source;          ///< "DTV", "HDMI", or anything else for everywhere
  std::string view_authority;  ///< only "USER" is shown
};

inline constexpr char kBackgroundSolution[] = "bg";

/// The whole map as read.
struct QUVA_SolutionMap {
  uint32_t version = 0;
  uint32_t count = 0;  ///< as the map declares it, not the length of the list
  std::vector<QUVA_Solution> solutions;
};

/// A snapshot of the stored map.
struct TSCurrentQUVAMap {
  uint32_t version = 0;
  uint32_t count = 0;
  std::vector<QUVA_Solution> solutions;
};

/// A result row: an issue that was found, with what its solution says.
struct MapToDBTable {
  int32_t index = -1;  ///< -1 while the row is being resolved, 1 once the issue matched
  std::string issue_code;
  int32_t is_fix = -1;    ///< 0 for a freshly found issue, -1 while unresolved
  std::string last_time;  ///< time of the newest transition to true, as the engine writes it
  std::string sol_type;
  std::string sol_name;
  std::string sid_issue;
  std::string sid_sol;
  std::string sid_button1;
  std::string sid_button2;
  std::string action;
  std::string toast1;
  std::string toast2;
  std::string source;
  std::string view_authority;
};

/// An inference or solution record written as one comma-separated line, split into fields.
struct QUVA_InferenceDB {
  int32_t issue_code = 0;
  int32_t tr_type = 0;
  int32_t status = 0;
  std::string detail;
  std::string last_update_time;
};
struct QUVA_SolutionDB {
  int32_t issue_code = 0;
  int32_t sol_code = 0;
  int32_t type = 0;
  int32_t is_apply = 0;
  std::string register_time;
};

/// The decimal number that a text begins with, in 32 bits; 0 where there is none. Issue codes are read so.
int32_t NumberOf(const std::string& text);
/// Whether the time `a` is later than `b`; the engine's times sort as text, byte by byte.
bool IsLater(const std::string& a, const std::string& b);
/// Split a comma-separated line into a record, in the order of its fields. The number of fields that the line had.
int SplitRecord(const std::string& line, QUVA_InferenceDB& out);
int SplitRecord(const std::string& line, QUVA_SolutionDB& out);

}  // namespace QUVA
