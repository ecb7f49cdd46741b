#include "transaction.h"

#include <fcntl.h>
#include <flatpak.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <memory>
#include <thread>
#include <utility>
#include <vector>

#include "base/folder.h"
#include "base/glib_handle.h"
#include "c_handle.h"
#include "flatpak/layout.h"
#include "packages/safe_tree.h"
#include "set_paths.h"
#include "system_path.h"

namespace vexilo_flatpak {

namespace {

namespace fs = std::filesystem;
using flatpak::Branch;
using flatpak::BranchesOf;
using flatpak::Problem;
using InstallationHandle = GObjectHandle<FlatpakInstallation>;

constexpr std::chrono::seconds kPatience{5};

/// Who changes an installation has a lock on a file in it, which the library waits for without an end. False when it is
/// still there after `patience`.
bool WaitForOthers(const std::string& installation, std::chrono::milliseconds patience) {
  const auto deadline = std::chrono::steady_clock::now() + patience;
  while (true) {
    const FdHandle lock(open(SystemPath(installation + "/lock").c_str(), O_RDWR | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    struct flock wanted {};
    wanted.l_type = F_WRLCK;
    wanted.l_whence = SEEK_SET;
    if (!lock || fcntl(lock.get(), F_OFD_GETLK, &wanted) != 0 || wanted.l_type == F_UNLCK) return true;
    if (std::chrono::steady_clock::now() >= deadline) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
  }
}

InstallationHandle OpenInstallation(const std::string& path, GErrorHandle& error) {
  const GObjectHandle<GFile> folder(g_file_new_for_path(SystemPath(path).c_str()));
  InstallationHandle installation(
      flatpak_installation_new_for_path(folder.get(), flatpak::IsOfUser(path), nullptr, error.Out()));
  if (installation) flatpak_installation_set_no_interaction(installation.get(), TRUE);
  return installation;
}

/// A full disk comes from several places. 0 for what is no errno.
int ErrnoOf(const GError* error) {
  const struct {
    GQuark domain;
    int code, error;
  } kKnown[] = {{FLATPAK_ERROR, FLATPAK_ERROR_OUT_OF_SPACE, ENOSPC},
                {G_IO_ERROR, G_IO_ERROR_NO_SPACE, ENOSPC},
                {G_IO_ERROR, G_IO_ERROR_READ_ONLY, EROFS},
                {G_IO_ERROR, G_IO_ERROR_PERMISSION_DENIED, EACCES}};
  for (const auto& known : kKnown)
    if (g_error_matches(error, known.domain, known.code)) return known.error;
  return 0;
}

Problem ProblemOf(const GErrorHandle& error) {
  return {error.Message(), ErrnoOf(error.Get())};
}

/// Tells the progress of a transaction as a whole: its operations are taken as equal.
struct Progress {
  int operations = 0;
  int done = 0;
  int last = -1;
  int error = 0;  ///< of the operation that ended the transaction, which itself tells only that it was ended

  void Tell(int percentOfOperation) {
    const int now = operations > 0 ? (done * 100 + percentOfOperation) / operations : 0;
    if (now <= last) return;
    last = now;
    std::printf("progress %d\n", std::min(now, 100));
    std::fflush(stdout);
  }
};

gboolean OnReady(FlatpakTransaction* transaction, gpointer data) {
  GList* const operations = flatpak_transaction_get_operations(transaction);
  auto& progress = *static_cast<Progress*>(data);
  progress.operations = static_cast<int>(g_list_length(operations));
  g_list_free_full(operations, g_object_unref);
  progress.Tell(0);
  return TRUE;
}

void OnChanged(FlatpakTransactionProgress* operation, gpointer data) {
  static_cast<Progress*>(data)->Tell(flatpak_transaction_progress_get_progress(operation));
}

void OnOperation(FlatpakTransaction*, FlatpakTransactionOperation*, FlatpakTransactionProgress* operation,
                 gpointer data) {
  g_signal_connect(operation, "changed", G_CALLBACK(OnChanged), data);
}

void OnDone(FlatpakTransaction*, FlatpakTransactionOperation*, const char*, int, gpointer data) {
  auto& progress = *static_cast<Progress*>(data);
  ++progress.done;
  progress.Tell(0);
}

gboolean OnError(FlatpakTransaction*, FlatpakTransactionOperation*, GError* error, int, gpointer data) {
  static_cast<Progress*>(data)->error = ErrnoOf(error);
  return FALSE;
}

Problem Uninstall(FlatpakInstallation* installation, const std::vector<std::string>& refs) {
  GErrorHandle error;
  const GObjectHandle<FlatpakTransaction> transaction(
      flatpak_transaction_new_for_installation(installation, nullptr, error.Out()));
  if (!transaction) return ProblemOf(error);
  flatpak_transaction_set_no_interaction(transaction.get(), TRUE);
  flatpak_transaction_set_no_pull(transaction.get(), TRUE);
  for (const std::string& ref : refs)
    if (!flatpak_transaction_add_uninstall(transaction.get(), ref.c_str(), error.Out())) return ProblemOf(error);
  Progress progress;
  g_signal_connect(transaction.get(), "ready", G_CALLBACK(OnReady), &progress);
  g_signal_connect(transaction.get(), "new-operation", G_CALLBACK(OnOperation), &progress);
  g_signal_connect(transaction.get(), "operation-done", G_CALLBACK(OnDone), &progress);
  g_signal_connect(transaction.get(), "operation-error", G_CALLBACK(OnError), &progress);
  if (flatpak_transaction_run(transaction.get(), nullptr, error.Out())) return {};
  Problem problem = ProblemOf(error);
  if (problem.error == 0) problem.error = progress.error;
  return problem;
}

std::vector<std::string> RefsOf(const std::vector<Branch>& branches) {
  std::vector<std::string> refs;
  for (const Branch& branch : branches) refs.push_back(branch.ref);
  return refs;
}

/// The runtimes that no application needs, and what they take; else the reason.
Problem FindUnused(FlatpakInstallation* installation, std::vector<std::string>& refs, uint64_t& bytes) {
  GErrorHandle error;
  const std::unique_ptr<GPtrArray, CRelease<&g_ptr_array_unref>> unused(
      flatpak_installation_list_unused_refs(installation, nullptr, nullptr, error.Out()));
  if (!unused) return ProblemOf(error);
  for (guint i = 0; i < unused->len; ++i) {
    auto* const ref = static_cast<FlatpakInstalledRef*>(g_ptr_array_index(unused.get(), i));
    if (flatpak_ref_get_kind(FLATPAK_REF(ref)) != FLATPAK_REF_KIND_RUNTIME) continue;
    const GText name(flatpak_ref_format_ref(FLATPAK_REF(ref)));
    refs.push_back(name.get());
    bytes += flatpak_installed_ref_get_installed_size(ref);
  }
  return {};
}

/// A branch whose removal has begun has a folder of its deployment, but no link to it. With the link again, and one to
/// the branch, it can be removed as any other. False when there is nothing to link to.
bool Restore(const Branch& branch) {
  for (const fs::path& each : EntriesOf(SystemPath(branch.folder))) {
    std::error_code error;
    if (!fs::exists(each / "deploy", error)) continue;
    const fs::path folder = SystemPath(branch.folder), arch = folder.parent_path();
    std::error_code ignored;
    fs::create_symlink(arch.filename() / folder.filename(), arch.parent_path() / "current", ignored);
    fs::create_symlink(each.filename(), folder / "active", error);
    return !error;
  }
  return false;
}

/// The exported files of the application are links, which lead nowhere when it is gone.
void RemoveExports(const std::string& id, const std::string& installation) {
  std::error_code error;
  const fs::path exports = SystemPath(installation + "/exports");
  std::vector<fs::path> stale;
  for (fs::recursive_directory_iterator each(exports, error), end; !error && each != end; each.increment(error))
    if (each->is_symlink() && !fs::exists(each->path()) &&
        fs::read_symlink(each->path()).string().find("/app/" + id + "/") != std::string::npos)
      stale.push_back(each->path());
  for (const fs::path& each : stale) fs::remove(each, error);
}

/// Deployments that were moved out of the way, and folders in which nothing is deployed.
void RemoveRemains(const std::string& id, const std::string& installation) {
  const std::string removed = installation + "/.removed";
  for (const fs::path& each : EntriesOf(SystemPath(removed))) {
    const std::string name = each.filename();
    // <id>-<commit>, whose letters are hexadecimal; an id may have '-', too.
    if (name.starts_with(id + "-") && name.find_first_not_of("0123456789abcdef", id.size() + 1) == name.npos)
      packages::RemoveTree(removed + "/" + name);
  }
  for (const Branch& branch : BranchesOf(installation, id))
    if (!branch.deployed) packages::RemoveTree(branch.folder);
  if (BranchesOf(installation, id).empty()) packages::RemoveTree(installation + "/app/" + id);
}

}  // namespace

Problem RemoveApplication(const std::string& id, const std::string& path) {
  if (!WaitForOthers(path, kPatience)) return {"another program is changing " + path, EBUSY};
  GErrorHandle error;
  const InstallationHandle installation = OpenInstallation(path, error);
  if (!installation) return ProblemOf(error);
  std::vector<Branch> branches = BranchesOf(path, id);
  std::erase_if(branches, [](const Branch& branch) { return !branch.deployed; });
  if (branches.empty()) return {"it is not installed any more"};
  return Uninstall(installation.get(), RefsOf(branches));
}

Problem FinishRemoval(const std::string& id, const std::string& path) {
  if (!WaitForOthers(path, {})) return {"another program is changing " + path, EBUSY};
  GErrorHandle error;
  const InstallationHandle installation = OpenInstallation(path, error);
  if (!installation) return ProblemOf(error);
  std::vector<Branch> begun = BranchesOf(path, id);
  std::erase_if(begun, [](const Branch& branch) { return branch.deployed || !Restore(branch); });
  if (!begun.empty())
    if (const Problem problem = Uninstall(installation.get(), RefsOf(begun)); !problem.text.empty()) return problem;
  RemoveRemains(id, path);
  RemoveExports(id, path);
  // What is in the repository only.
  if (!flatpak_installation_cleanup_local_refs_sync(installation.get(), nullptr, error.Out()) ||
      !flatpak_installation_prune_local_repo(installation.get(), nullptr, error.Out()))
    return ProblemOf(error);
  return {};
}

Problem TellUnused(const std::string& path) {
  GErrorHandle error;
  const InstallationHandle installation = OpenInstallation(path, error);
  if (!installation) return ProblemOf(error);
  std::vector<std::string> refs;
  uint64_t bytes = 0;
  if (const Problem problem = FindUnused(installation.get(), refs, bytes); !problem.text.empty()) return problem;
  std::printf("unused %llu\n", static_cast<unsigned long long>(bytes));
  return {};
}

Problem RemoveUnused(const std::string& path) {
  if (!WaitForOthers(path, kPatience)) return {"another program is changing " + path, EBUSY};
  GErrorHandle error;
  const InstallationHandle installation = OpenInstallation(path, error);
  if (!installation) return ProblemOf(error);
  std::vector<std::string> refs;
  uint64_t bytes = 0;
  if (const Problem problem = FindUnused(installation.get(), refs, bytes); !problem.text.empty() || refs.empty())
    return problem;
  if (const Problem problem = Uninstall(installation.get(), refs); !problem.text.empty()) return problem;
  if (!flatpak_installation_prune_local_repo(installation.get(), nullptr, error.Out())) return ProblemOf(error);
  return {};
}

}  // namespace vexilo_flatpak
