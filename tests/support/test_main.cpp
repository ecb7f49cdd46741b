// Runs the tests in a set root of their own: the process makes the root, starts itself again in it, and removes it.

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>

namespace {

namespace fs = std::filesystem;

constexpr const char* kPlatformFolders[] = {
    "etc/vexilo",
    "home/owner/share/Trevlin/DB",
    "opt/usr/apps",
    "opt/usr/home/owner/content/Documents",
    "opt/usr/home/owner/share",
    "proc",
    "run/vexilo-host",
    "tmp/kov_NDF",
    "tmp/kov_NDF_reboot",
    "tmp/qsyslink",
    "tmp/tager/ack",
    "tmp/tager/req",
    "usr/lib",
    "usr/share/applications",
    "usr/share/vexilo",
    "var/lib/vexilo-host",
};

// Where the program was built with a sanitizer, what the toolkit's libraries are known for is not reported.
void SetSanitizerOptions() {
  setenv("ASAN_OPTIONS", "fast_unwind_on_malloc=0:detect_leaks=1", 0);
  setenv("LSAN_OPTIONS", "suppressions=" SUPPRESSIONS "/lsan.supp:print_suppressions=0", 0);
  setenv("TSAN_OPTIONS", "suppressions=" SUPPRESSIONS "/tsan.supp:halt_on_error=1", 0);
  setenv("UBSAN_OPTIONS", "print_stacktrace=1", 0);
}

bool OnlyLists(int argc, char** argv) {
  for (int i = 1; i < argc; ++i)
    if (std::strncmp(argv[i], "--gtest_list_tests", 18) == 0) return true;
  return false;
}

int RunInFreshRoot(char** argv) {
  const fs::path base = fs::canonical(fs::temp_directory_path());
  std::string root = (base / "vexilo-test-XXXXXX").string();
  if (!mkdtemp(root.data())) {
    std::perror("test root");
    return 1;
  }
  for (const char* folder : kPlatformFolders) fs::create_directories(fs::path(root) / folder);
  fs::permissions(root, fs::perms(0755));
  const pid_t child = fork();
  if (child == 0) {
    setenv("VEXILO_ROOT", root.c_str(), 1);
    setenv("VEXILO_LOG_TARGET", "file", 0);
    SetSanitizerOptions();
    setenv("XDG_RUNTIME_DIR", (root + "/run").c_str(), 0);
    execv("/proc/self/exe", argv);
    _exit(127);
  }
  int status = 0;
  waitpid(child, &status, 0);
  std::error_code ignored;
  fs::remove_all(root, ignored);
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

}  // namespace

int main(int argc, char** argv) {
  if (!std::getenv("VEXILO_ROOT") && !OnlyLists(argc, argv)) return RunInFreshRoot(argv);
  testing::InitGoogleTest(&argc, argv);
  return RUN_ALL_TESTS();
}
