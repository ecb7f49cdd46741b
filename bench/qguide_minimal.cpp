// qguide_minimal MAP INFERENCE_DB SOLUTION_DB RESULT: reads the map, asks the same prepared queries, writes the same
// file. It checks nothing and keeps nothing.

#include <expat.h>
#include <sqlite3.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

namespace {

std::vector<std::string> g_codes;

void CollectCode(void*, const char* name, const char** attributes) {
  if (std::strcmp(name, "solution") != 0) return;
  const char* code = "";
  bool background = false;
  for (; *attributes; attributes += 2) {
    if (std::strcmp(attributes[0], "issue_code") == 0) code = attributes[1];
    if (std::strcmp(attributes[0], "is_fg_bg") == 0) background = std::strcmp(attributes[1], "bg") == 0;
  }
  if (!background) g_codes.emplace_back(code);
}

sqlite3_stmt* Prepare(const char* path, const char* sql) {
  sqlite3* db = nullptr;
  sqlite3_stmt* statement = nullptr;
  sqlite3_open(path, &db);
  sqlite3_exec(db, "BEGIN", nullptr, nullptr, nullptr);
  sqlite3_prepare_v2(db, sql, -1, &statement, nullptr);
  return statement;
}

// Every matching transition is read, as the engine's interface gives them all; the newest is kept.
std::string NewestTransition(sqlite3_stmt* query, const std::string& code, int type) {
  std::string newest;
  sqlite3_bind_text(query, 1, code.c_str(), -1, SQLITE_STATIC);
  sqlite3_bind_int(query, 2, type);
  while (sqlite3_step(query) == SQLITE_ROW)
    if (newest.empty()) newest = reinterpret_cast<const char*>(sqlite3_column_text(query, 0));
  sqlite3_reset(query);
  return newest;
}

bool IsSolvedSince(sqlite3_stmt* query, const std::string& code, const std::string& time) {
  sqlite3_bind_text(query, 1, code.c_str(), -1, SQLITE_STATIC);
  bool solved = false;
  if (sqlite3_step(query) == SQLITE_ROW)
    solved = sqlite3_column_int(query, 1) != 0 && time <= reinterpret_cast<const char*>(sqlite3_column_text(query, 0));
  sqlite3_reset(query);
  return solved;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 5) return EXIT_FAILURE;
  std::ifstream map(argv[1], std::ios::binary);
  const std::string text{std::istreambuf_iterator<char>(map), {}};
  XML_Parser parser = XML_ParserCreate(nullptr);
  XML_SetElementHandler(parser, CollectCode, nullptr);
  XML_Parse(parser, text.data(), static_cast<int>(text.size()), XML_FALSE);
  XML_ParserFree(parser);

  sqlite3_stmt* transitions =
      Prepare(argv[2],
              "SELECT lastUpdatedTime FROM inferenceTBL WHERE issueCode=?1 AND TR=?2 ORDER BY lastUpdatedTime DESC, "
              "rowid DESC");
  sqlite3_stmt* solutions =
      Prepare(argv[3],
              "SELECT registerTime, isApply, solutionCode, type FROM solutionTBL WHERE issueCode=?1 ORDER BY "
              "registerTime DESC, rowid DESC LIMIT 1");
  FILE* result = std::fopen(argv[4], "w+");
  for (const std::string& code : g_codes) {
    const std::string since = NewestTransition(transitions, code, 1);
    if (since.empty() || NewestTransition(transitions, code, 0) > since) continue;
    if (!IsSolvedSince(solutions, code, since)) std::fprintf(result, "%s\n", code.c_str());
  }
  return std::fclose(result) == 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}
