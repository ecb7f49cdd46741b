#include "ReportTrigger.h"

#include <json/json.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <thread>

#include "FileWatch.h"
#include "SafeFile.h"
#include "VexiloLog.h"
#include "ownership.h"
#include "request_files.h"
#include "set_paths.h"
#include "system_path.h"

namespace QUVA {

namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

constexpr char kCommand[] = "touch ";
constexpr milliseconds kLook(100);    // how long a wait is before the caller is asked whether it goes on
constexpr milliseconds kGrace(2000);  // for a word, when the trigger has gone
constexpr size_t kMaxResult = 4096;   // bytes; names have up to 100, and a reason one or two paths

/// What the log collector has told last of a trigger of that path; empty when that is nothing, or cannot be read.
std::string ResultOf(const std::string& path) {
  std::string text, ignored;
  ReadRegularFile(set_paths::kReportResults + path.substr(path.rfind('/')), kMaxResult, false, text, ignored);
  return text;
}

ReportOutcome Parse(const std::string& text) {
  Json::Value result;
  try {
    const std::unique_ptr<Json::CharReader> reader(Json::CharReaderBuilder().newCharReader());
    reader->parse(text.data(), text.data() + text.size(), &result, nullptr);
  } catch (const Json::Exception&) {  // too deep
  }
  if (!result.isObject()) result = Json::objectValue;
  const auto textOf = [&](const char* key) { return result[key].isString() ? result[key].asString() : ""; };
  ReportOutcome outcome{textOf(kov::kReport), textOf(kov::kProblem)};
  if (!IsPlainName(outcome.report)) outcome.report.clear();
  if (outcome.report.empty() && outcome.problem.empty())
    outcome.problem = "what the log collector told in " + std::string(set_paths::kReportResults) + " is not understood";
  return outcome;
}

}  // namespace

ReportRequest LeaveReportTrigger(const char* folder, const std::string& fileName) {
  ReportRequest request{.path = std::string(folder) + "/" + fileName};
  if (!IsPlainName(fileName)) {
    VEXILO_LOGE("no report is asked for with the name \"%s\": it is not of letters, digits, '.', '_' and '-'",
                fileName.c_str());
    request.problem = "the name \"" + fileName + "\" is not of letters, digits, '.', '_' and '-'";
    return request;
  }
  const std::string& path = request.path;
  if (!IsExchangeInOrder(path)) {
    request.problem = path + ": " + exchange::WhyNot(errno);
    VEXILO_LOGE("no report is asked for with %s", request.problem.c_str());
    return request;
  }
  request.before = ResultOf(path);
  VEXILO_LOGI("cmd on sending error type for KOV  is %s", (kCommand + path).c_str());
  const int result = std::system((kCommand + SystemPath(path)).c_str());
  // The toolkit collects ended children as well; where it was first, what became of this one is not known.
  if (result == -1 && errno != ECHILD) request.problem = "no shell to touch " + path + ": " + std::strerror(errno);
  if (result > 0) request.problem = "touching " + path + " failed: status " + std::to_string(result);
  if (!request.problem.empty()) VEXILO_LOGE("%s", request.problem.c_str());
  return request;
}

void RequestReport(const std::string& name, const std::string& detail, bool reboot) {
  LeaveReportTrigger(reboot ? set_paths::kRebootReportTriggers : set_paths::kReportTriggers,
                     name + "-" + detail + kov::kSuffix);
}

// The collector tells before it removes the trigger, and once more afterwards; so what is told when the trigger has
// gone is about this request or a later one, and what was told before it was left is about an earlier one.
ReportOutcome AwaitReport(const ReportRequest& request, milliseconds limit, const std::function<bool()>& isCancelled) {
  const std::string& path = request.path;
  if (!request.problem.empty()) return {"", request.problem};
  if (path.starts_with(std::string(set_paths::kRebootReportTriggers) + "/"))
    return {"", path + " is due after a restart of the set"};
  FileWatch trigger(path);
  auto end = steady_clock::now() + limit;
  for (bool wasGone = false;;) {
    if (isCancelled && isCancelled()) return {"", "cancelled"};
    const bool isGone = !trigger.Exists();
    if (const std::string result = ResultOf(path); !result.empty() && result != request.before) {
      const ReportOutcome outcome = Parse(result);
      // One that failed stays for the next attempt.
      if (isGone || !outcome.problem.empty()) return outcome;
    }
    if (isGone && !wasGone) end = std::min(end, steady_clock::now() + kGrace);
    wasGone = isGone;
    const auto left = std::chrono::ceil<milliseconds>(end - steady_clock::now());
    if (left <= milliseconds::zero() && isGone) return {"", path + " has gone, and nobody tells what became of it"};
    if (left <= milliseconds::zero())
      return {"", path + " still waits: the log collector does not run, or is not done with it"};
    if (isGone)
      std::this_thread::sleep_for(std::min(left, kLook));
    else
      trigger.WaitFor(false, std::min(left, kLook));
  }
}

}  // namespace QUVA
