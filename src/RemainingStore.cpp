#include "RemainingStore.h"

#include <climits>
#include <cstdlib>
#include <list>
#include <variant>

#include "QUVA_DBManager.h"
#include "VexiloLog.h"
#include "set_paths.h"

namespace QUVA {

namespace {

// What of a row a column of the table holds; all are stored as texts.
struct StoredField {
  const std::string& column;
  std::variant<std::string MapToDBTable::*, int32_t MapToDBTable::*> field;

  std::string Get(const MapToDBTable& row) const {
    if (const auto* text = std::get_if<std::string MapToDBTable::*>(&field)) return row.**text;
    return std::to_string(row.*std::get<int32_t MapToDBTable::*>(field));
  }
  void Set(MapToDBTable& row, const std::string& value) const {
    if (const auto* text = std::get_if<std::string MapToDBTable::*>(&field))
      row.** text = value;
    else
      row.*std::get<int32_t MapToDBTable::*>(field) = NumberOf(value);
  }
};

// In the table's order.
const StoredField kFields[] = {
    {Column::idx, &MapToDBTable::index},
    {Column::issue_code, &MapToDBTable::issue_code},
    {Column::is_fix, &MapToDBTable::is_fix},
    {Column::last_time, &MapToDBTable::last_time},
    {Column::sol_type, &MapToDBTable::sol_type},
    {Column::sid_issue, &MapToDBTable::sid_issue},
    {Column::sid_sol, &MapToDBTable::sid_sol},
    {Column::sid_button1, &MapToDBTable::sid_button1},
    {Column::sid_button2, &MapToDBTable::sid_button2},
    {Column::action, &MapToDBTable::action},
    {Column::toast1, &MapToDBTable::toast1},
    {Column::toast2, &MapToDBTable::toast2},
    {Column::source, &MapToDBTable::source},
    {Column::view_authority, &MapToDBTable::view_authority},
};
constexpr size_t kFieldCount = std::size(kFields);

// Opens the database for as long as it lives.
class RemainingDb {
 public:
  RemainingDb() { m_manager->OpenDB(DB_REMAINING); }
  ~RemainingDb() { m_manager->CloseDB(); }
  RemainingDb(const RemainingDb&) = delete;
  RemainingDb& operator=(const RemainingDb&) = delete;
  TCDBManager* operator->() const { return m_manager; }

 private:
  TCDBManager* m_manager = TCDBManager::GetInstance();
};

std::string Doubled(const std::string& text, char quote) {
  std::string out;
  out.reserve(text.size());
  for (const char c : text) out.append(c == quote ? 2 : 1, c);
  return out;
}

// The values for an INSERT statement, which puts each between double quotes.
std::list<std::string> ToValues(const MapToDBTable& row) {
  std::list<std::string> values;
  for (const StoredField& field : kFields) {
    const std::string value = field.Get(row);
    if (value.find('"') != std::string::npos)
      VEXILO_LOGE("%s of issue %s holds a double quote: [%s]", field.column.c_str(), row.issue_code.c_str(),
                  value.c_str());
    values.push_back(Doubled(value, '"'));
  }
  return values;
}

MapToDBTable RowAt(const RemainingColumns& columns, size_t i) {
  MapToDBTable row;
  for (size_t c = 0; c < kFieldCount; ++c) kFields[c].Set(row, columns[c][i]);
  return row;
}

void LogRow(const MapToDBTable& row) {
  for (const StoredField& field : kFields)
    VEXILO_LOGD("mdt.%s : %s", &field == kFields ? "index" : field.column.c_str(), field.Get(row).c_str());
}

bool Clear(const RemainingDb& db) {
  VEXILO_LOGI("ClearRemainingProblems");
  return db->FlushDB(DB_REMAINING);
}

// False when none of it may count.
bool Replace(const RemainingDb& db, const std::vector<MapToDBTable>& rows) {
  if (!Clear(db)) return false;
  for (size_t i = 0; i < rows.size(); ++i) {
    if (db->SetDB(kRemainingTable, ToValues(rows[i]))) continue;
    VEXILO_LOGE("issue %s, row %zu of %zu, is not kept", rows[i].issue_code.c_str(), i + 1, rows.size());
    if (!db->IsChanging()) return false;
  }
  return true;
}

}  // namespace

const std::vector<std::string>& RemainingColumnNames() {
  static const auto* names = [] {
    auto* list = new std::vector<std::string>;
    for (const StoredField& field : kFields) list->push_back(field.column);
    return list;
  }();
  return *names;
}

bool SaveRemaining(const std::vector<MapToDBTable>& rows) {
  const RemainingDb db;
  // The process may end in the middle: the rows of the last scan go when those of this one are there.
  if (db->BeginChanges() && Replace(db, rows) && db->EndChanges()) return true;
  VEXILO_LOGE("%s: the issues are not saved, those of the last scan stay", set_paths::kRemainingDb);
  return false;
}

RemainingColumns ReadRemaining() {
  RemainingColumns columns(kFieldCount);
  const RemainingDb db;
  db->GetRows(DB_REMAINING, RemainingColumnNames(), columns);
  return columns;
}

bool ToRows(const RemainingColumns& columns, std::vector<MapToDBTable>& rows) {
  const std::vector<std::string>& indexes = columns[0];
  // Where not all are looked at, how many there are is not known.
  const long most = indexes.size() < kMostRows ? static_cast<long>(indexes.size()) : LONG_MAX;
  for (size_t i = 0; i < indexes.size(); ++i) {
    const long index = std::strtol(indexes[i].c_str(), nullptr, 10);
    // An index that equals the number of rows has always been taken.
    if (index < 0 || index > most) {
      VEXILO_LOGE("remaining problem %zu of %zu has the index %s: not loaded", i + 1, indexes.size(),
                  indexes[i].c_str());
      return false;
    }
    rows.push_back(RowAt(columns, i));
    LogRow(rows.back());
  }
  return true;
}

void ClearRemaining() {
  Clear(RemainingDb());
}

void DeleteRemaining(const std::string& issueCode) {
  RemainingDb()->DeleteDB(Doubled(issueCode, '\''));
}

void DeleteRemaining(const std::vector<std::string>& issueCodes) {
  std::vector<std::string> codes;
  for (const std::string& code : issueCodes) codes.push_back(Doubled(code, '\''));
  RemainingDb()->DeleteDB(codes);
}

}  // namespace QUVA
