#include "bench_data.h"

#include <sqlite3.h>

#include <cstdio>

#include "set_paths.h"
#include "system_path.h"
#include "trevlin/trevlin_database.h"

namespace bench {

namespace {

std::string TimeOf(int step) {
  char text[32];
  std::snprintf(text, sizeof text, "2024-%02d-%02dT%02d:%02d:%02d", 1 + step / 2419200 % 12, 1 + step / 86400 % 28,
                step / 3600 % 24, step / 60 % 60, step % 60);
  return text;
}

void Bind(sqlite3_stmt* statement, int index, const std::string& text) {
  sqlite3_bind_text(statement, index, text.c_str(), -1, SQLITE_TRANSIENT);
}

bool Run(sqlite3* db, const char* sql) {
  if (sqlite3_exec(db, sql, nullptr, nullptr, nullptr) == SQLITE_OK) return true;
  std::fprintf(stderr, "bench data: %s\n", sqlite3_errmsg(db));
  return false;
}

// The engine itself makes the tables and the indexes; the rows are then added in one transaction.
template <typename AddRows>
bool Fill(const char* path, const char* insert, AddRows addRows) {
  sqlite3* raw = nullptr;
  sqlite3_open(SystemPath(path).c_str(), &raw);
  const SqliteDb db(raw);
  if (!Run(raw, "BEGIN")) return false;
  const SqliteStatement statement = PrepareStatement(raw, insert);
  if (!statement) return false;
  addRows(statement.get());
  return Run(raw, "COMMIT");
}

void Step(sqlite3_stmt* statement) {
  sqlite3_step(statement);
  sqlite3_reset(statement);
}

}  // namespace

std::string SolutionMap(int count) {
  std::string text = "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n<solutionmap>\n<sminfo version=\"1\"/>\n<sm cnt=\"" +
                     std::to_string(count) + "\"/>\n";
  for (int i = 0; i < count; ++i) {
    const std::string n = std::to_string(i);
    text += "<solution issue_code=\"" + std::to_string(kFirstIssue + i) + "\" sol_code=\"" + n +
            "\" sol_type=\"1\" sol_name=\"Solution of the issue number " + n + "\" sid_issue=\"TV_SID_ISSUE_TITLE_" +
            n + "\" sid_sol=\"TV_SID_ISSUE_SOLUTION_TEXT_" + n +
            "\" sid_button1=\"COM_SID_SOLVE_NOW\" sid_button2=\"COM_SID_CANCEL\" reboot=\"0\" is_fg_bg=\"fg\" "
            "action=\"1\" toast1=\"TV_SID_TOAST_TEXT_" +
            n +
            "\" toast2=\"NULL\" source=\"\" view_authority=\"USER\">\n  <sol_val param_type=\"memboost\" "
            "param_value=\"\"/>\n</solution>\n";
  }
  return text + "</solutionmap>\n";
}

bool FillDatabases(int issues, int transitions) {
  trevlin::Database engine(trevlin::Database::Access::kReadWrite);
  std::vector<trevlin::Transition> none;
  _DTSolDBRecord record;
  engine.AllTransitions(none);
  engine.NewestSolution(kFirstIssue, record);
  const bool inferences = Fill(set_paths::kInferenceDb, "INSERT INTO inferenceTBL VALUES (?1, ?1, ?2, ?3, 0)",
                               [issues, transitions](sqlite3_stmt* row) {
                                 const int rounds = transitions / issues;
                                 for (int i = 0; i < transitions; ++i) {
                                   const int issue = i % issues;
                                   const int roundsLeft = rounds - 1 - i / issues;
                                   Bind(row, 1, TimeOf(i));
                                   Bind(row, 2, std::to_string(kFirstIssue + issue));
                                   sqlite3_bind_int(row, 3, (roundsLeft + issue) % 2);
                                   Step(row);
                                 }
                               });
  return inferences && Fill(set_paths::kSolutionDb, "INSERT INTO solutionTBL VALUES (?1, ?2, '1', '1', 1)",
                            [issues, transitions](sqlite3_stmt* row) {
                              for (int issue = 1; issue < issues; issue += 10) {
                                Bind(row, 1, TimeOf(transitions));
                                Bind(row, 2, std::to_string(kFirstIssue + issue));
                                Step(row);
                              }
                            });
}

}  // namespace bench
