#pragma once
/// @file
/// "Trevlin", the set's diagnosis engine: it infers which issues (by code) are true, keeps the history of their
/// transitions and of the solutions that were applied.
///
/// Thread rule: every function is callable from any thread, the engine's own included. Inference callbacks are called
/// on the engine's one thread, one after the other. None of the functions throws. What a callback throws ends that
/// callback alone, with a line in the log.
///
/// Times are local times "YYYY-MM-DDTHH:MM:SS"; they sort as text.

#include <cstdint>
#include <string>
#include <vector>

/// Results of the queries. Every other value is an error: _INVALID for arguments that make no sense or a query before
/// CreateAPIInstance(), _DATABASE for a database that cannot be used; the reason is then in the platform log.
enum { TREVLIN_OK = 0, TREVLIN_ERROR_INVALID = 1, TREVLIN_ERROR_DATABASE = 2, TREVLIN_NO_MATCH = 4 };

enum { DT_TRANSITION_TYPE_FALSE = 0, DT_TRANSITION_TYPE_TRUE = 1 };

/// A transition of an issue.
struct _DTInfDBRecord {
  int32_t issueCode = 0;
  int32_t transitionType = 0;
  int32_t status = 0;
  std::string detail;
  std::string lastUpdateTime;
};

/// A solution that was applied or declined.
struct _DTSolDBRecord {
  int32_t issueCode = 0;
  int32_t solutionCode = 0;
  int32_t type = 5;
  int32_t isApply = 0;
  std::string registerTime;
};

/// What an inference signals besides having ended.
struct DTSignalData {
  int32_t kind = 0;
  std::string detail;
};

typedef void (*InferenceCallback)(unsigned int subscription, DTSignalData data);

/// Makes the engine ready in this process. Again is no failure. 0 for success, -1 when it cannot start.
int CreateAPIInstance();

/// Has `callback` called once, when the next inference has ended or after `wait` microseconds, whichever is first.
/// Returns at once: 0, or -1 when the engine was not made ready or `callback` is null. `subscription` is the number of
/// the subscription in this process, from 1. During the callback the queries all see one state of the databases.
int InferenceSubscribeOnce(unsigned long wait, InferenceCallback callback);

/// Whether the last inference of this process had nothing to go by: the rules file is there and cannot be read, or has
/// no rule that can be used. What it says of issues is then what is known from before. The log has the reason.
bool HasInferenceFailed();

/// Has one issue looked at again, after its solution was applied: a while later, as actions need time (ten seconds, or
/// those of the settings key "db/trevlin/recheck_delay"), on the engine's thread. An issue that is gone then becomes
/// false; one that is still there gets a solution record that says its solution is not applied. Both are left as they
/// are when this cannot be told, or the process ends before; the first inference of any process that finds the issue
/// two minutes later or after that then tells. Asking again before then puts it off. Returns at once: 0, or -1 when the
/// engine was not made ready or the code is below 1.
int RecheckIssue(int issueCode);

/// Replaces `*out` by what the issue is about now, as "Zephon S2 (sda)" of a disk. TREVLIN_NO_MATCH, with nothing in
/// it, where its rule names no such fact or that cannot be told. Waits for what the engine's thread does, and for the
/// fact: milliseconds where it has been read of late, seconds at worst. Not from an inference callback.
int GetIssueSubject(int issueCode, std::string* out);

/// Replaces `*out` by the transitions of the type of the issue, newest first, and of equal times the one recorded last
/// first. TREVLIN_NO_MATCH when there is none; `*out` is empty unless TREVLIN_OK is returned. What an inference of this
/// process found and could not record counts as recorded, also where the database cannot be read.
/// Waits for a database that another process has locked, two seconds in all since a call that went through, then fails.
int GetInferenceDB(int issueCode, int transitionType, std::vector<_DTInfDBRecord>* out);

/// The newest record of the issue. `*out` is untouched unless TREVLIN_OK is returned. Waits as GetInferenceDB() does.
int GetSolutionDB(int issueCode, _DTSolDBRecord* out);

/// Adds a record; it is on the disk when TREVLIN_OK is returned. TREVLIN_ERROR_INVALID for an issue code below 1 or a
/// register time that is none. Waits as GetInferenceDB() does.
int SetSolutionDB(const _DTSolDBRecord& record);
