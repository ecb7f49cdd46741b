#include "RemainingStore.h"

#include <algorithm>
#include <chrono>
#include <climits>
#include <cstdlib>
#include <list>
#include <mutex>
#include <optional>
#include <system_error>
#include <thread>
#include <variant>

#include "QUVA_DBManager.h"
#include "VexiloLog.h"
#include "database_rescue.h"
#include "set_names.h"
#include "set_paths.h"
#include "vconf.h"

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

constexpr std::chrono::seconds kRetryPause(2);

// Guards all below and the one connection.
std::mutex& Mutex() {
  static auto* mutex = new std::mutex;
  return *mutex;
}
// What is to be stored, and cannot be yet. Until then it counts instead of what is stored.
auto& g_unsaved = *new std::optional<std::vector<MapToDBTable>>;
bool g_isRetrying = false;

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

// False where it stays as it is.
bool Renew() {
  std::string report;
  const DatabaseRescue rescue = RescueDatabase(set_paths::kRemainingDb, kRemainingTable, kRemainingColumns, report);
  if (!report.empty()) VEXILO_LOGE("%s", report.c_str());
  if (rescue == DatabaseRescue::kRenewed && vconf_set_bool(set_names::kDatabaseRenewedKey, true) != 0)
    VEXILO_LOGE("Setting %s failed", set_names::kDatabaseRenewedKey);
  return rescue != DatabaseRescue::kFailed;
}

// What `operation` gives with the database, or with the new one where it is found to be damaged.
template <typename Operation>
auto WithDb(Operation operation) {
  auto result = operation(RemainingDb());
  return TCDBManager::GetInstance()->IsDamaged() && Renew() ? operation(RemainingDb()) : result;
}

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

RemainingColumns ToColumns(const std::vector<MapToDBTable>& rows) {
  RemainingColumns columns(kFieldCount);
  for (const MapToDBTable& row : rows)
    for (size_t c = 0; c < kFieldCount; ++c) columns[c].push_back(kFields[c].Get(row));
  return columns;
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

bool Store(const std::vector<MapToDBTable>& rows) {
  // The process may end in the middle: the rows of the last scan go when those of this one are there.
  const bool isStored =
      WithDb([&](const RemainingDb& db) { return db->BeginChanges() && Replace(db, rows) && db->EndChanges(); });
  if (isStored) g_unsaved.reset();
  return isStored;
}

// Tries again and again, as long as the process lives: who reads the database may go.
void StoreLater() {
  for (bool isUnsaved = true; isUnsaved;) {
    std::this_thread::sleep_for(kRetryPause);
    const std::lock_guard lock(Mutex());
    if (g_unsaved && Store(*g_unsaved))
      VEXILO_LOGI("%s: the issues that were kept in memory are saved", set_paths::kRemainingDb);
    g_isRetrying = isUnsaved = g_unsaved.has_value();
  }
}

void KeepUnsaved(const std::vector<MapToDBTable>& rows) {
  g_unsaved = rows;
  if (g_isRetrying) return;
  try {
    std::thread(StoreLater).detach();
    g_isRetrying = true;
  } catch (const std::system_error& error) {
    VEXILO_LOGE("what is not saved is not tried again before the next scan: %s", error.what());
  }
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
  const std::lock_guard lock(Mutex());
  if (Store(rows)) return true;
  VEXILO_LOGE(
      "%s: the issues are not saved, those of the last scan stay; they are kept in memory until they can be saved",
      set_paths::kRemainingDb);
  KeepUnsaved(rows);
  return false;
}

RemainingColumns ReadRemaining() {
  const std::lock_guard lock(Mutex());
  if (g_unsaved) return ToColumns(*g_unsaved);
  return WithDb([](const RemainingDb& db) {
    RemainingColumns columns(kFieldCount);
    db->GetRows(DB_REMAINING, RemainingColumnNames(), columns);
    return columns;
  });
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
  const std::lock_guard lock(Mutex());
  if (g_unsaved) g_unsaved->clear();
  WithDb(Clear);
}

bool DeleteRemaining(const std::string& issueCode) {
  const std::lock_guard lock(Mutex());
  if (g_unsaved) std::erase_if(*g_unsaved, [&](const MapToDBTable& row) { return row.issue_code == issueCode; });
  const bool isDeleted = WithDb([&](const RemainingDb& db) { return db->DeleteDB(Doubled(issueCode, '\'')); }) != 0;
  return isDeleted || g_unsaved;  // what is kept in memory takes the place of all that is stored
}

void DeleteRemaining(const std::vector<std::string>& issueCodes) {
  std::vector<std::string> codes;
  for (const std::string& code : issueCodes) codes.push_back(Doubled(code, '\''));
  const std::lock_guard lock(Mutex());
  if (g_unsaved)
    std::erase_if(*g_unsaved, [&](const MapToDBTable& row) {
      return std::find(issueCodes.begin(), issueCodes.end(), row.issue_code) != issueCodes.end();
    });
  WithDb([&](const RemainingDb& db) { return db->DeleteDB(codes); });
}

}  // namespace QUVA
