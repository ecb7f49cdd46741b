#include "setd/privileges.h"

#include <cap-ng.h>
#include <seccomp.h>
#include <sys/prctl.h>

#include <cerrno>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "c_handle.h"
#include "setd/setd_log.h"

namespace setd {

namespace {

// What a daemon of root's keeps. Other users' have none.
constexpr unsigned kKept[] = {
    CAP_CHOWN,         // what it makes belongs to the set's owner
    CAP_DAC_OVERRIDE,  // a set's files may be another user's
    CAP_FOWNER,        // so may what is removed from a folder with the sticky bit
    CAP_NET_ADMIN,     // to have the kernel ask a router anew that it only remembers
    CAP_SYS_PTRACE,    // to read in /proc which package a process with more capabilities belongs to
    CAP_SYSLOG,        // the kernel's log, for reports
};

// Denied with EPERM. A list of what is allowed would have to know every call of the libraries and of the programs that
// are started, in all their versions; this one holds what none of them has a use for, and an attacker much. Mounting
// and namespaces are not in it: the program that removes Flatpaks has a sandbox made for its triggers, without root.
constexpr const char* kDenied[] = {
    "acct",
    "add_key",
    "bpf",
    "clock_settime",
    "clock_settime64",
    "create_module",
    "delete_module",
    "fanotify_init",
    "finit_module",
    "fsconfig",
    "fsmount",
    "fsopen",
    "fspick",
    "init_module",
    "io_uring_enter",
    "io_uring_register",
    "io_uring_setup",
    "ioperm",
    "iopl",
    "kexec_file_load",
    "kexec_load",
    "keyctl",
    "lookup_dcookie",
    "move_mount",
    "open_by_handle_at",
    "open_tree",
    "perf_event_open",
    "pidfd_getfd",
    "process_vm_readv",
    "process_vm_writev",
    "quotactl",
    "quotactl_fd",
    "reboot",
    "request_key",
    "setdomainname",
    "sethostname",
    "settimeofday",
    "stime",
    "swapoff",
    "swapon",
    "userfaultfd",
    "vhangup",
#ifndef __SANITIZE_ADDRESS__  // which looks for leaks with it
    "ptrace",
#endif
};

/// `error` is negative, as the libraries have it.
void Complain(const std::string& what, int error) {
  Log(DLOG_WARN, what + ": " + std::strerror(-error));
}

void DropCapabilities() {
  if (capng_get_caps_process() != 0) return Complain("capabilities are not known", -errno);
  const bool hasBound = capng_have_capability(CAPNG_EFFECTIVE, CAP_SETPCAP);
  std::vector<unsigned> kept;
  for (const unsigned each : kKept)
    if (capng_have_capability(CAPNG_PERMITTED, each)) kept.push_back(each);
  capng_clear(CAPNG_SELECT_ALL);
  for (const unsigned each : kept)
    capng_update(CAPNG_ADD, static_cast<capng_type_t>(CAPNG_EFFECTIVE | CAPNG_PERMITTED | CAPNG_BOUNDING_SET), each);
  // Whatever a program is marked with: it gets no more than these either.
  if (hasBound && capng_apply(CAPNG_SELECT_BOUNDS) != 0) Complain("the bound of capabilities stays", -errno);
  if (capng_apply(CAPNG_SELECT_CAPS) != 0) Complain("capabilities stay", -errno);
}

void DenyCalls() {
  const std::unique_ptr<void, CRelease<&seccomp_release>> filter(seccomp_init(SCMP_ACT_ALLOW));
  if (!filter) return Complain("no calls are denied", -ENOMEM);
  const auto set = [&filter](scmp_filter_attr attribute, uint32_t value) {
    if (const int error = seccomp_attr_set(filter.get(), attribute, value)) Complain("filter of calls", error);
  };
  // A program for another processor's calls would go round the list.
  set(SCMP_FLTATR_ACT_BADARCH, SCMP_ACT_ERRNO(EPERM));
  set(SCMP_FLTATR_CTL_TSYNC, 1);
  for (const char* name : kDenied) {
    const int number = seccomp_syscall_resolve_name(name);
    if (number < 0) continue;  // not one of this processor's
    if (const int error = seccomp_rule_add(filter.get(), SCMP_ACT_ERRNO(EPERM), number, 0))
      Complain(std::string(name) + " is not denied", error);
  }
  if (const int error = seccomp_load(filter.get())) Complain("no calls are denied", error);
}

}  // namespace

void DropPrivileges() {
  if (prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0) Complain("new privileges can be had", -errno);
  DropCapabilities();
  DenyCalls();
}

}  // namespace setd
