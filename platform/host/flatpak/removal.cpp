#include "flatpak/removal.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <mutex>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "base/atomic_file.h"
#include "base/folder.h"
#include "dlog.h"
#include "flatpak/helper.h"
#include "flatpak/layout.h"
#include "log_tags.h"
#include "packages/processes.h"
#include "packages/removal.h"
#include "packages/safe_tree.h"
#include "pkgmgr_client.h"
#include "set_paths.h"
#include "system_path.h"

namespace flatpak {

namespace {

using packages::Package;
using packages::ResultOf;
using packages::TreeResult;
using Clock = std::chrono::steady_clock;

constexpr const char* kTag = log_tags::kFlatpak;
constexpr char kDataGo[] = "data go", kDataStay[] = "data stay";
constexpr std::chrono::minutes kRemovalLimit{5};
constexpr std::chrono::seconds kFinishLimit{10};
constexpr std::chrono::minutes kFinishInterval{1};

std::string MarkOf(const std::string& id) {
  return set_paths::kFlatpakRemovals + ("/" + id);
}

int NotRemoved(const Package& package, const std::string& reason, int result) {
  __dlog_print(LOG_ID_APPS, DLOG_ERROR, kTag, "%s is not removed: %s", ProgramFolderOf(package).c_str(),
               reason.c_str());
  return result;
}

/// Whether any branch is deployed anywhere.
bool IsInstalled(const std::string& id, const std::string& butIn = {}) {
  for (const std::string& installation : Installations()) {
    const std::vector<Branch> branches = BranchesOf(installation, id);
    if (installation != butIn &&
        std::any_of(branches.begin(), branches.end(), [](const Branch& one) { return one.deployed; }))
      return true;
  }
  return false;
}

/// The user's data, before anything is done. Data that are not there are nothing.
TreeResult PrepareData(const std::string& id) {
  TreeResult data = packages::PrepareTree(DataFolderOf(id), DataDir());
  if (data.error == ENOENT) data = {};
  return data;
}

/// What the mark of a removal says. Without an installation nothing was begun.
struct Record {
  bool dataGo = false;
  std::vector<std::string> installations;
};

std::string RecordOf(const std::string& id) {
  return SystemPath(MarkOf(id) + "/record");
}

Record ReadRecord(const std::string& id) {
  Record record;
  std::string text;
  ReadWholeFile(RecordOf(id), text, Links::kRefuse);
  std::istringstream lines(text);
  std::string line;
  record.dataGo = std::getline(lines, line) && line == kDataGo;
  while (std::getline(lines, line)) record.installations.push_back(line);
  return record;
}

/// What an interrupted removal has noted before is still to be tidied. False with errno.
bool WriteRecord(const std::string& id, const std::string& installation, bool dataGo) {
  std::vector<std::string> installations = ReadRecord(id).installations;
  if (std::find(installations.begin(), installations.end(), installation) == installations.end())
    installations.push_back(installation);
  std::string text = std::string(dataGo ? kDataGo : kDataStay) + "\n";
  for (const std::string& each : installations) text += each + "\n";
  return PublishFile(RecordOf(id), text);
}

/// Locks the mark, when it is this user's: what another one has begun is his. Without a handle, errno tells why.
FdHandle LockMark(const std::string& id) {
  FdHandle lock = packages::LockForRemoval(MarkOf(id));
  struct stat status;
  if (!lock || (lstat(SystemPath(MarkOf(id)).c_str(), &status) == 0 && status.st_uid == geteuid())) return lock;
  lock.reset();
  errno = EACCES;
  return lock;
}

/// Makes the mark of a removal and locks it. Without a handle, errno tells why.
FdHandle Mark(const std::string& id) {
  const std::string mark = MarkOf(id);
  const bool isNew = !packages::IsThere(mark);
  if (!MakeFolders(SystemPath(mark))) return {};
  // Root gives all other state to the set's owner; whose this is tells who has begun.
  if (isNew && lchown(SystemPath(mark).c_str(), geteuid(), getegid()) != 0) return {};
  SyncFolderOf(SystemPath(mark));
  return LockMark(id);
}

void Unmark(const std::string& id) {
  const TreeResult removed = packages::RemoveTree(MarkOf(id));
  packages::Complain(MarkOf(id), removed.error == 0 || removed.error == ENOENT ? "" : std::strerror(removed.error));
}

/// Whether an earlier removal has left something: then the mark is needed until that is tidied.
bool HasBegun(const std::string& id) {
  return !ReadRecord(id).installations.empty();
}

/// When the application is not installed any more, its data go. 0 or an errno, which is in the log.
int RemoveData(const std::string& id, const packages::TreeProgress& onProgress = {}) {
  const std::string folder = DataFolderOf(id);
  const TreeResult removed = IsInstalled(id) ? TreeResult{} : packages::RemoveTree(folder, onProgress, DataDir());
  if (removed.error == 0 || removed.error == ENOENT) {
    packages::Complain(folder, {});
    return 0;
  }
  packages::Complain(folder, "the removal is not complete, " + std::to_string(removed.kept) +
                                 " entries stay: " + std::strerror(removed.error));
  return removed.error;
}

/// Whether the installation is there and can be changed: the place of a disk that is not mounted is empty.
bool IsUsable(const std::string& installation) {
  const std::vector<std::string> all = Installations();
  return std::find(all.begin(), all.end(), installation) != all.end() &&
         packages::IsThere(installation + "/repo/config") && MayChange(installation);
}

/// What an interrupted transaction left in the installations. True when nothing is left.
bool Tidy(const std::string& id, const Record& record, int lock, Clock::time_point deadline) {
  Problem problem;
  for (const std::string& installation : record.installations) {
    if (!IsUsable(installation))
      problem.text = installation + " is not there or cannot be changed";
    else
      RunHelper({"finish", id, installation}, lock,
                std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now()), {}, problem);
    if (!problem.text.empty()) break;
  }
  packages::Complain(MarkOf(id), problem.text);
  return problem.text.empty();
}

/// Why it is not to be begun; no text when nothing stands against it.
Problem WhyNot(const Package& package, const TreeResult& data) {
  if (data.kept > 0)
    return {std::to_string(data.kept) + " entries of its data are mount points or belong to another user", data.error};
  if (data.error != 0) return {DataFolderOf(package.packageId) + ": " + std::strerror(data.error), data.error};
  if (!packages::EndAll(package)) return {"it is running", EBUSY};
  return {};
}

/// Notes that the transaction begins. 0 or an errno.
int Begin(const Package& package, bool dataGo, FdHandle& lock) {
  const std::string& id = package.packageId;
  if (!lock) lock = Mark(id);
  if (!lock) return errno;
  if (WriteRecord(id, package.installation, dataGo)) return 0;
  const int reason = errno;
  if (!HasBegun(id)) Unmark(id);
  return reason;
}

/// From here on something goes. Where the transaction has begun but is not done, the mark stays, as it does where data
/// stay: the next look goes on. On a full disk the lock is to be had only now, when the cache has gone.
int RemoveChecked(const Package& package, FdHandle lock, int64_t dataBytes, bool dataGo,
                  const std::function<void(int)>& onProgress) {
  const std::string& id = package.packageId;
  const std::string folder = ProgramFolderOf(package);
  const int64_t program = packages::MeasureTree(folder).bytes;
  packages::Percent percent(program + dataBytes, onProgress);
  int64_t gone = 0;
  const auto tell = [&](int64_t bytes) { percent.Removed(gone + bytes); };
  // The library needs room on the disk to remove something, too.
  if (dataGo) gone = packages::EmptyTree(CacheFolderOf(id), tell, DataDir()).bytes;
  const bool begunBefore = HasBegun(id);
  if (const int error = Begin(package, dataGo, lock))
    return NotRemoved(package, MarkOf(id) + ": " + std::strerror(error), ResultOf(error));
  Problem problem;
  const HelperEnd end = RunHelper(
      {"remove", id, package.installation}, lock.get(), kRemovalLimit, [&](int done) { tell(program / 100 * done); },
      problem);
  if (end != HelperEnd::kDone) {
    if (end != HelperEnd::kLost && !begunBefore && !DeploymentOf(package).empty()) Unmark(id);
    const int otherwise = packages::IsThere(folder) ? PKGMGR_R_ERROR : PKGMGR_R_ENOPKG;
    return NotRemoved(package, problem.text, problem.error != 0 ? ResultOf(problem.error) : otherwise);
  }
  gone += program;
  const int error = dataGo ? RemoveData(id, tell) : 0;
  if (error != 0) return ResultOf(error);
  Unmark(id);
  percent.Done();
  return PKGMGR_R_OK;
}

void Finish(const std::string& id, Clock::time_point deadline) {
  const FdHandle lock = LockMark(id);
  const Record record = lock ? ReadRecord(id) : Record{};
  if (!lock || !Tidy(id, record, lock.get(), deadline)) return;
  const bool undone = IsInstalled(id);
  if (record.dataGo && RemoveData(id) != 0) return;
  Unmark(id);
  __dlog_print(LOG_ID_APPS, DLOG_INFO, kTag, "%s: %s a removal that was interrupted", id.c_str(),
               undone ? "undid" : "finished");
}

/// Whether this process may try again to finish what was interrupted. The next interval begins with a true.
bool IsDue() {
  static std::mutex mutex;
  static Clock::time_point next;
  const std::lock_guard guard(mutex);
  if (Clock::now() < next) return false;
  next = Clock::now() + kFinishInterval;
  return true;
}

std::vector<std::string> Marks() {
  std::vector<std::string> ids;
  for (const std::filesystem::path& each : EntriesOf(SystemPath(set_paths::kFlatpakRemovals)))
    if (packages::IsId(each.filename())) ids.push_back(each.filename());
  return ids;
}

}  // namespace

int Remove(const Package& package, const std::function<void(int)>& onProgress) {
  const std::string& id = package.packageId;
  if (DeploymentOf(package).empty()) return NotRemoved(package, "it is not installed any more", PKGMGR_R_ENOPKG);
  if (!MayChange(package.installation)) return NotRemoved(package, "that takes an administrator", -EACCES);
  FdHandle lock = Mark(id);
  const int error = lock ? 0 : errno;
  if (!lock && error != ENOSPC && error != EDQUOT)
    return NotRemoved(package, MarkOf(id) + ": " + std::strerror(error), ResultOf(error));
  const bool dataGo = !IsInstalled(id, package.installation);
  const TreeResult data = dataGo ? PrepareData(id) : TreeResult{};
  const Problem problem = WhyNot(package, data);
  if (problem.text.empty()) return RemoveChecked(package, std::move(lock), data.bytes, dataGo, onProgress);
  if (lock && !HasBegun(id)) Unmark(id);
  return NotRemoved(package, problem.text,
                    problem.error != 0 ? ResultOf(problem.error) : static_cast<int>(PKGMGR_R_ERROR));
}

void FinishRemovals() {
  std::vector<std::string> marks = Marks();
  std::erase_if(marks, [](const std::string& id) { return !LockMark(id); });
  if (marks.empty() || !IsDue()) return;
  const auto deadline = Clock::now() + kFinishLimit;
  for (const std::string& id : marks)
    if (Clock::now() < deadline) Finish(id, deadline);
}

int UnfinishedRemovals() {
  const std::vector<std::string> marks = Marks();
  return static_cast<int>(std::count_if(marks.begin(), marks.end(), [](const std::string& id) {
    return static_cast<bool>(packages::LockForRemoval(MarkOf(id)));
  }));
}

}  // namespace flatpak
