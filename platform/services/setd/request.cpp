#include "setd/request.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <map>
#include <sstream>
#include <string_view>
#include <vector>

#include "base/atomic_file.h"
#include "base/folder.h"
#include "c_handle.h"
#include "ownership.h"
#include "packages/package_store.h"
#include "request_files.h"
#include "set_paths.h"
#include "setd/folder_watch.h"
#include "setd/setd_log.h"
#include "system_path.h"

namespace setd {

namespace {

constexpr size_t kMaxRequest = 4096;
constexpr std::chrono::seconds kAnswerTime{30};
// No id holds this letter, so no name of the protocol does.
constexpr char kOurMark = '#';
// An acknowledgement that waits, beside its result, for the request to be removed.
constexpr char kReadyMark[] = "#ack";

struct Form {
  std::string_view name;
  Kind kind;
  bool isPrefix;
  int ids;          // in its line
  bool hasPayload;  // in kTager
};
constexpr Form kForms[] = {
    {tager::kKill, Kind::kKill, false, 1, true},
    {tager::kClearCache, Kind::kClearCache, false, 2, true},
    {tager::kMeasurePrefix, Kind::kMeasure, true, 2, true},
    {tager::kMemoryBoost, Kind::kMemoryBoost, false, 0, false},
    {tager::kDeepClean, Kind::kDeepClean, false, 0, false},
    {tager::kCleanHoards, Kind::kCleanHoards, false, 0, false},
};

const Form* FormOf(std::string_view trigger) {
  for (const Form& form : kForms)
    if (form.isPrefix ? trigger.starts_with(form.name) : trigger == form.name) return &form;
  return nullptr;
}

std::string TriggerPath(const std::string& name) {
  return SystemPath(tager::TriggerPath(name));
}
std::string PayloadPath(const std::string& name) {
  return SystemPath(tager::PayloadPath(name));
}
std::string AcknowledgementPath(const std::string& name) {
  return SystemPath(tager::AcknowledgementPath(name));
}

/// The content of a small regular file; else false with errno.
bool ReadSmall(const std::string& path, std::string& text) {
  return exchange::OpenFile(std::string(NameOnSet(path)), O_PATH) &&
         ReadWholeFile(path, text, Links::kRefuse, kMaxRequest);
}

/// Tells a request's trigger and payload as they were written from those of a later one.
std::string WritingOfBoth(const std::string& trigger) {
  return WritingOf(TriggerPath(trigger)) + "/" + WritingOf(PayloadPath(trigger));
}

/// Takes "package\n" or "package|application\n"; true when it is nothing else.
bool ReadIds(std::string_view line, int count, Request& request) {
  if (line.empty() || line.back() != '\n') return false;
  line.remove_suffix(1);
  const size_t bar = line.find('|');
  if ((bar != line.npos) != (count == 2)) return false;
  request.packageId = line.substr(0, bar);
  request.appId = count == 2 ? line.substr(bar + 1) : "";
  return packages::IsId(request.packageId) && (count == 1 || packages::IsId(request.appId));
}

/// Takes "hoard hoard…\n"; true when it is nothing else.
bool ReadHoards(const std::string& line, Request& request) {
  if (line.empty() || line.back() != '\n') return false;
  std::istringstream words(line);
  for (std::string word; words >> word;) {
    const auto hoard = cleaning::HoardOf(word);
    if (!hoard) return false;
    request.hoards.push_back(*hoard);
  }
  return !request.hoards.empty();
}

bool Unlink(const std::string& path) {
  return unlink(path.c_str()) == 0 || errno == ENOENT;
}

ReadState Refuse(std::string& problem, const std::string& reason) {
  problem = reason;
  return ReadState::kRefused;
}

ReadState ReadLine(const Form& form, bool isFinal, const std::string& ownText, Request& request, std::string& problem) {
  request.line = ownText;
  const bool isMeasure = form.kind == Kind::kMeasure;
  if (!isMeasure && !ReadSmall(PayloadPath(request.trigger), request.line)) {
    if (errno == ENOENT && !isFinal) return ReadState::kIncomplete;
    return Refuse(problem, "its payload: " + WhyUnread(errno, kMaxRequest));
  }
  if ((request.line.empty() || request.line.back() != '\n') && !isFinal) return ReadState::kIncomplete;
  // A writer that ended between the two left the line in the payload at least.
  if (isMeasure && request.line.empty()) ReadSmall(PayloadPath(request.trigger), request.line);
  if (!ReadIds(request.line, form.ids, request))
    return Refuse(problem, form.ids == 1 ? "its line is not \"package\"" : "its line is not \"package|application\"");
  if (isMeasure && request.trigger != tager::kMeasurePrefix + request.appId)
    return Refuse(problem, "its name and its line name different applications");
  return ReadState::kReady;
}

}  // namespace

bool IsRequestName(const std::string& trigger) {
  return FormOf(trigger) != nullptr;
}

ReadState ReadRequest(const std::string& trigger, bool isFinal, Request& request, std::string& problem) {
  const Form* form = FormOf(trigger);
  if (!form) return ReadState::kNoRequest;
  request = {form->kind, trigger};
  if (form->kind == Kind::kMeasure) request.writing = WritingOfBoth(trigger);
  std::string text;
  if (!ReadSmall(TriggerPath(trigger), text))
    return errno == ENOENT ? ReadState::kNoRequest : Refuse(problem, WhyUnread(errno, kMaxRequest));
  if (form->kind == Kind::kDeepClean && text != tager::kDeepCleanText)
    return isFinal ? Refuse(problem, "it does not say \"CleanUp\"") : ReadState::kIncomplete;
  if (form->kind == Kind::kCleanHoards && !ReadHoards(text, request))
    return isFinal ? Refuse(problem, "its line is not \"hoard hoard...\"") : ReadState::kIncomplete;
  return form->ids == 0 ? ReadState::kReady : ReadLine(*form, isFinal, text, request, problem);
}

bool LeaveRequest(Kind kind) {
  const bool clean = kind == Kind::kDeepClean;
  const FdHandle file =
      exchange::OpenFile(tager::TriggerPath(clean ? tager::kDeepClean : tager::kMemoryBoost), O_WRONLY | O_CREAT);
  if (!file) return false;
  constexpr auto kSize = static_cast<ssize_t>(sizeof tager::kDeepCleanText - 1);
  return !clean || write(file.get(), tager::kDeepCleanText, kSize) == kSize;
}

bool RemoveServed(const Request& request) {
  std::string now;
  const Form* form = FormOf(request.trigger);
  const std::string payload = PayloadPath(request.trigger);
  // Requests of all packages share this payload.
  if (form->hasPayload && !form->isPrefix && ReadSmall(payload, now) && now != request.line) return true;
  return (!form->hasPayload || Unlink(payload)) && Unlink(TriggerPath(request.trigger));
}

bool RemoveRefused(const std::string& trigger) {
  const Form* form = FormOf(trigger);
  if (!form || form->kind == Kind::kDeepClean) return true;
  return (!form->hasPayload || Unlink(PayloadPath(trigger))) && Unlink(TriggerPath(trigger));
}

namespace {

/// The last step of an answer.
bool Acknowledge(const std::string& name) {
  std::string ignored;
  MakeOwnFolder(set_paths::kTagerAnswers, ignored);
  return rename(PayloadPath(name + kReadyMark).c_str(), AcknowledgementPath(name).c_str()) == 0;
}

std::vector<std::string> NamesIn(const char* folder) {
  std::vector<std::string> names;
  for (const std::filesystem::path& each : EntriesOf(SystemPath(folder))) names.push_back(each.filename());
  return names;
}

bool IsThere(const std::string& path, struct stat& status) {
  return lstat(path.c_str(), &status) == 0;
}

/// Whether the daemon ended between removing the request and the acknowledgement. While the request stands, it is
/// served again instead.
bool LacksOnlyAcknowledgement(const std::string& name) {
  struct stat status;
  return IsThere(PayloadPath(name), status) && S_ISREG(status.st_mode) && status.st_size > 0 &&
         !IsThere(TriggerPath(tager::kMeasurePrefix + name.substr(std::strlen(tager::kAnswerPrefix))), status);
}

}  // namespace

bool PublishAnswer(const Request& request, long data, long cache, std::string& problem) {
  const std::string name = tager::kAnswerPrefix + request.appId;
  const std::string result = PayloadPath(name), ready = result + kReadyMark;
  if (!MakeOwnFolder(set_paths::kTager, problem) || !MakeOwnFolder(set_paths::kTagerAnswers, problem)) return false;
  char sizes[64];
  std::snprintf(sizes, sizeof sizes, tager::kSizesFormat, data, cache);
  const bool written = PublishFile(result, sizes, Readers::kEverybody) && PublishFile(ready, "", Readers::kEverybody);
  const bool askedAgain = written && WritingOfBoth(request.trigger) != request.writing;
  if (written && !askedAgain && RemoveServed(request) && Acknowledge(name)) return true;
  problem = tager::PayloadPath(name) + ": " + std::strerror(errno);
  unlink(ready.c_str());
  unlink(result.c_str());
  return askedAgain;
}

bool RemoveOldAnswers(std::chrono::steady_clock::time_point now) {
  // When each writing was first seen: what the clock says of a file may be of any time.
  static std::map<std::string, std::chrono::steady_clock::time_point> seen;
  std::map<std::string, std::chrono::steady_clock::time_point> left;
  const auto remove = [&](const std::string& path) {
    struct stat status;
    if (!IsThere(path, status)) return false;
    const std::string writing = path + " " + WritingOf(path);
    const auto found = seen.find(writing);
    const auto since = found == seen.end() ? now : found->second;
    if (now - since >= kAnswerTime && Unlink(path)) return true;
    left[writing] = since;
    return false;
  };
  for (const std::string& name : NamesIn(set_paths::kTagerAnswers))
    if (name.starts_with(tager::kAnswerPrefix) && remove(AcknowledgementPath(name))) Unlink(PayloadPath(name));
  // Those whose acknowledgement alone was fetched, or never came.
  struct stat status;
  for (const std::string& name : NamesIn(set_paths::kTager))
    if (name.starts_with(tager::kAnswerPrefix) && !IsThere(AcknowledgementPath(name), status))
      remove(PayloadPath(name));
  seen = std::move(left);
  return !seen.empty();
}

void FinishInterrupted() {
  for (const char* folder : {set_paths::kTager, set_paths::kTagerAnswers}) {
    for (const std::string& marked : NamesIn(folder)) {
      const bool ours = marked.starts_with(tager::kAnswerPrefix) || marked.starts_with("cobalt_size");
      const size_t mark = marked.find(kOurMark);
      if (!ours || mark == marked.npos) continue;
      const std::string name = marked.substr(0, mark);
      if (folder == set_paths::kTager && marked.starts_with(tager::kAnswerPrefix) &&
          marked.substr(mark) == kReadyMark && LacksOnlyAcknowledgement(name) && Acknowledge(name))
        continue;
      Unlink(SystemPath(folder + ("/" + marked)));
    }
  }
}

}  // namespace setd
