#include <glib.h>
#include <json/reader.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>
#include <optional>

#include "QUVA_DBManager.h"
#include "RemainingStore.h"
#include "base/atomic_file.h"
#include "base/sqlite_handle.h"
#include "c_handle.h"
#include "command.h"
#include "set_paths.h"
#include "system_path.h"
#include "titles.h"
#include "trevlin/trevlin_database.h"

namespace vexiloctl {

namespace {

constexpr int kLockWaitMilliseconds = 2000;
constexpr char kNoText[] = "(no text)";

[[noreturn]] void Fail(const std::string& path, const std::string& reason) {
  throw Failure(path + ": " + reason);
}

/// The state of the regular file at the set's path; nothing when there is none.
std::optional<struct stat> Look(const std::string& path) {
  struct stat status {};
  if (lstat(SystemPath(path).c_str(), &status) != 0) {
    if (errno == ENOENT) return std::nullopt;
    Fail(path, std::strerror(errno));
  }
  if (S_ISLNK(status.st_mode)) Fail(path, "it is a symbolic link, which is not followed");
  if (!S_ISREG(status.st_mode)) Fail(path, "it is not a regular file");
  return status;
}

/// The file's whole lines; none when it is missing. What follows the last line feed is being written, or was torn.
std::vector<std::string> ReadLines(const std::string& path) {
  std::string content;
  if (!Look(path)) return {};
  if (!ReadWholeFile(SystemPath(path), content, Links::kRefuse)) Fail(path, WhyUnread(errno));
  std::vector<std::string> lines;
  size_t start = 0;
  for (size_t end; (end = content.find('\n', start)) != std::string::npos; start = end + 1)
    lines.push_back(content.substr(start, end - start));
  return lines;
}

// ---- remaining

using RemainingRow = std::vector<std::string>;

SqliteDb OpenToRead(const char* path) {
  sqlite3* handle = nullptr;
  // Writable, where it can be: what a writer that died has left half-done is taken back first.
  const int result =
      sqlite3_open_v2(SystemPath(path).c_str(), &handle, SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOFOLLOW, nullptr);
  SqliteDb db(handle);
  if (result != SQLITE_OK) Fail(path, handle ? sqlite3_errmsg(handle) : sqlite3_errstr(result));
  sqlite3_limit(handle, SQLITE_LIMIT_LENGTH, QUVA::kMostTextBytes);
  sqlite3_busy_timeout(handle, kLockWaitMilliseconds);
  return db;
}

std::vector<RemainingRow> ReadRemaining() {
  const char* path = set_paths::kRemainingDb;
  if (!Look(path)) return {};
  const SqliteDb db = OpenToRead(path);
  const std::string name = QUVA::kRemainingTable;
  const SqliteStatement table = PrepareStatement(db.get(), "SELECT 1 FROM sqlite_master WHERE name = '" + name + "'");
  const int hasTable = table ? sqlite3_step(table.get()) : SQLITE_ERROR;
  if (hasTable == SQLITE_DONE) return {};
  if (hasTable != SQLITE_ROW) Fail(path, sqlite3_errmsg(db.get()));

  std::string query;
  for (const std::string& column : QUVA::RemainingColumnNames())
    query.append(query.empty() ? "SELECT " : ", ").append(column);
  const SqliteStatement select = PrepareStatement(db.get(), query.append(" FROM " + name + " ORDER BY rowid"));
  if (!select) Fail(path, sqlite3_errmsg(db.get()));
  std::vector<RemainingRow> rows;
  int step;
  while ((step = sqlite3_step(select.get())) == SQLITE_ROW) {
    if (rows.size() == QUVA::kMostRows) {
      Complain(std::string(path) + ": the first " + std::to_string(rows.size()) + " rows are listed, there are more");
      return rows;
    }
    RemainingRow& row = rows.emplace_back();
    for (size_t i = 0; i < QUVA::RemainingColumnNames().size(); ++i)
      row.emplace_back(ColumnText(select.get(), static_cast<int>(i)));
  }
  if (step != SQLITE_DONE) Fail(path, sqlite3_errmsg(db.get()));
  return rows;
}

const std::string& Cell(const RemainingRow& row, const std::string& column) {
  const auto& columns = QUVA::RemainingColumnNames();
  return row[static_cast<size_t>(std::find(columns.begin(), columns.end(), column) - columns.begin())];
}

// ---- events

/// "2031-05-07T19:04:59.123Z" as local time in the form of all other times.
std::string LocalTime(const std::string& time) {
  const std::unique_ptr<GDateTime, CRelease<&g_date_time_unref>> utc(
      g_date_time_new_from_iso8601(time.c_str(), nullptr));
  if (!utc) return time;
  const std::unique_ptr<GDateTime, CRelease<&g_date_time_unref>> local(g_date_time_to_local(utc.get()));
  const std::unique_ptr<char, CRelease<&g_free>> text(g_date_time_format(local.get(), "%Y-%m-%dT%H:%M:%S"));
  return text.get();
}

/// The value of a key in a description "{chip_id=…;select_item=…;…}"; empty where it is "NULL" or missing.
std::string Fact(const std::string& description, const std::string& key) {
  const size_t found = description.find(";" + key + "=");
  if (found == std::string::npos) return "";
  const size_t start = found + key.size() + 2;
  const std::string value = description.substr(start, description.find_first_of(";}", start) - start);
  return value == "NULL" ? "" : value;
}

std::optional<Json::Value> ParseEvent(const std::string& line) {
  static const std::unique_ptr<Json::CharReader> reader(Json::CharReaderBuilder().newCharReader());
  Json::Value event;
  if (!reader->parse(line.data(), line.data() + line.size(), &event, nullptr) || !event.isObject()) return std::nullopt;
  for (const char* field : {"time", "event", "category", "description"})
    if (!event[field].isString()) return std::nullopt;
  return event;
}

// ---- result

// That nothing was found says nothing when the engine's history cannot be read.
void CheckDatabases() {
  trevlin::Database database(trevlin::Database::Access::kReadOnly);
  std::vector<_DTInfDBRecord> transitions;
  _DTSolDBRecord solution;
  if (database.Transitions(1, DT_TRANSITION_TYPE_TRUE, transitions) == TREVLIN_ERROR_DATABASE ||
      database.NewestSolution(1, solution) == TREVLIN_ERROR_DATABASE)
    throw Failure("the diagnosis had nothing to go by: " + database.LastError());
}

struct ResultFile {
  std::string path;
  struct stat status;
};

std::vector<ResultFile> ResultFiles() {
  std::vector<ResultFile> files;
  for (const char* path : {set_paths::kQGuideResult, set_paths::kQGuideBackgroundResult})
    if (const auto status = Look(path)) files.push_back({path, *status});
  std::stable_sort(files.begin(), files.end(), [](const ResultFile& a, const ResultFile& b) {
    return std::pair(a.status.st_mtim.tv_sec, a.status.st_mtim.tv_nsec) >
           std::pair(b.status.st_mtim.tv_sec, b.status.st_mtim.tv_nsec);
  });
  return files;
}

}  // namespace

void RemainingList(const Arguments& arguments) {
  const std::vector<RemainingRow> rows = ReadRemaining();
  const Titles titles;
  Listing listing(arguments.json, {"TIME", "CODE", "FIXED", "SOURCE", "FOR", "TITLE"});
  for (const RemainingRow& row : rows) {
    const std::string title = titles.OfMessage(Cell(row, QUVA::Column::sid_issue));
    listing.Add(
        [&] {
          Json::Value object;
          for (size_t i = 0; i < row.size(); ++i) object[QUVA::RemainingColumnNames()[i]] = row[i];
          object["title"] = title;
          return object;
        },
        [&]() -> std::vector<std::string> {
          return {Cell(row, QUVA::Column::last_time),
                  Cell(row, QUVA::Column::issue_code),
                  Cell(row, QUVA::Column::is_fix) == "0" ? "no" : "yes",
                  Cell(row, QUVA::Column::source),
                  Cell(row, QUVA::Column::view_authority),
                  title};
        });
  }
  listing.Print();
}

void Events(const Arguments& arguments) {
  Table table({"TIME", "EVENT", "CATEGORY", "ITEM", "STATUS", "ISSUES"});
  const std::string log = set_paths::kEventLog;
  for (const std::string& path : {log + ".1", log}) {
    const std::vector<std::string> lines = ReadLines(path);
    for (size_t i = 0; i < lines.size(); ++i) {
      const auto event = ParseEvent(lines[i]);
      if (!event) {
        // The logger goes on in a new line after one that was torn.
        Complain(path + ": line " + std::to_string(i + 1) + " is not an event; it is left out");
      } else if (arguments.json) {
        Print(lines[i] + "\n");
      } else {
        const std::string description = (*event)["description"].asString();
        table.Add({LocalTime((*event)["time"].asString()), (*event)["event"].asString(),
                   (*event)["category"].asString(), Fact(description, "select_item"), Fact(description, "status"),
                   Fact(description, "issue_count")});
      }
    }
  }
  if (!arguments.json) table.Print();
}

void Result(const Arguments& arguments) {
  const std::vector<ResultFile> files = ResultFiles();
  if (files.empty())
    throw Failure(std::string("there is no result: neither ") + set_paths::kQGuideResult + " nor " +
                  set_paths::kQGuideBackgroundResult);
  const Titles titles;
  const auto title = [&](const std::string& code) {
    const std::string text = titles.OfIssue(code);
    return text.empty() ? std::string(kNoText) : text;
  };
  for (const ResultFile& file : files) {
    const bool newest = &file == &files.front();
    const std::string time = vexiloctl::LocalTime(file.status.st_mtim.tv_sec);
    if (arguments.json) {
      Json::Value object;
      object["file"] = file.path;
      object["time"] = time;
      object["issues"] = Json::arrayValue;
      for (const std::string& code : ReadLines(file.path)) {
        Json::Value issue;
        issue["issue_code"] = code;
        issue["title"] = title(code);
        object["issues"].append(issue);
      }
      Print(JsonLine(object));
      continue;
    }
    Print(file.path + "  " + time + (newest ? "\n" : "  (older)\n"));
    if (!newest) continue;
    const std::vector<std::string> codes = ReadLines(file.path);
    if (codes.empty()) Print("  no issue found\n");
    if (codes.empty()) CheckDatabases();
    for (const std::string& code : codes) Print("  " + Visible(code) + "  " + Visible(title(code)) + "\n");
  }
}

}  // namespace vexiloctl
