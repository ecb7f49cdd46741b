#pragma once

#include <atomic>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "QUVA_Records.h"
#include "trevlin_engine.h"

namespace QUVA {

/// Turns what the engine inferred into result rows, keeps the unresolved ones across runs, and writes the result lists.
/// Thread rule: the list operations and the remaining-problems operations are callable from any thread and serialise
/// themselves; resolution (GetInferenceResult() to CleanDiagResult()) belongs to whoever runs one of them.
class QUVA_DiagResultManager {
 public:
  /// Created on first use, never destroyed.
  static QUVA_DiagResultManager* GetInstance();

  QUVA_DiagResultManager(const QUVA_DiagResultManager&) = delete;
  QUVA_DiagResultManager& operator=(const QUVA_DiagResultManager&) = delete;

  // ---- who takes the rows

  /// Called on whichever thread makes the list, while the manager is locked: it copies, and asks the manager for
  /// nothing.
  using RowListener = std::function<void(std::vector<MapToDBTable>)>;
  /// Takes the rows of CreateErrorList().
  void SetScanListener(RowListener listener);
  /// Takes the rows of CompareRemaining().
  void SetRemainingListener(RowListener listener);

  // ---- resolution

  /// Appends a row to the table for every solution of the map whose issue is true now and was not solved since.
  /// The number of rows found.
  int GetInferenceResult();
  /// Decides one issue from its transitions to true (newest first) and its solution record, and appends its row.
  bool FindErrorCodeInDB(QUVA_Solution& solution, std::vector<_DTInfDBRecord>& trueList, _DTSolDBRecord& solRecord);
  /// Whether the time `a` is later than `b`; times sort as text.
  bool CompareTime(const std::string& a, const std::string& b);
  /// Whether rows of this view authority are shown.
  bool CheckViewType(const char* viewAuthority);
  /// Whether rows of this source apply to the input source and channel that are showing.
  bool CheckSourceType(const char* source);
  /// Empties the table.
  void CleanDiagResult();
  /// The local time, "2024-03-07T09:05:00".
  std::string GetCurrentTime();
  /// Split a comma-separated line into a record. The number of fields that the line had.
  int TokenString(std::string& line, QUVA_InferenceDB& out);
  int TokenString(std::string& line, QUVA_SolutionDB& out);

  // ---- remaining problems: 1 for success or something found, 0 otherwise

  /// Replaces the stored rows by those rows of the table that are shown here and now; all of them or, with 0, none.
  int SaveRemainingProblems();
  /// Replaces the table by the stored rows. 0 as well when a stored index is not possible.
  int LoadRemainingProblems();
  /// Appends a copy of the table to `out`.
  int GetRemainingTable(std::vector<MapToDBTable>& out);
  /// Deletes the stored on-demand issues that have cleared since.
  int GetInferenceResult_Remaining();
  /// That, and hands over what is left.
  void CompareRemaining();
  void ClearRemainingProblems();
  /// Deletes the rows of one issue from the stored remaining problems. False, with a line in the log, when they stay.
  bool DeleteRemainingDBColumn(std::string issueCode);

  // ---- result lists: 1 when the list was handed over or the file holds it (none is a list, too), 0 otherwise

  /// Resolves, stores the remaining problems and hands over the rows that are shown. 0 when nothing was found, and none
  /// are handed over.
  int CreateErrorList();
  /// Resolves and writes the issue codes, a line each, to the QGuide result file.
  int CreateQGuideErrList();
  int openQGuideForWrite(const char* path);

 private:
  QUVA_DiagResultManager() = default;

  std::vector<MapToDBTable> m_shownRows();
  void m_handOver(const RowListener& listener, std::vector<MapToDBTable> rows);
  std::vector<MapToDBTable> m_remainingRows();

  std::vector<MapToDBTable> m_table;
  std::mutex m_listenerMutex;  ///< of its own: who sets one waits for no list operation
  RowListener m_scanListener;
  RowListener m_remainingListener;

  static std::atomic<QUVA_DiagResultManager*> m_pInstance;
  /// Guards the creation and the table; taken after the diagnosis manager's. List operations use each other.
  static std::recursive_mutex m_TVDRMmutex;
};

}  // namespace QUVA
