#include <sys/stat.h>
#include <unistd.h>

#include <climits>
#include <cstdio>
#include <cstdlib>

#include "plain_text.h"
#include "system_path.h"

namespace {

[[noreturn]] void Refuse(const std::string& root, const char* reason) {
  std::fprintf(stderr, "vexilo: VEXILO_ROOT=\"%s\" %s\n", root.c_str(), reason);
  _exit(EXIT_FAILURE);
}

std::string ReadRoot() {
  const char* value = std::getenv("VEXILO_ROOT");
  std::string root = value ? value : "";
  while (!root.empty() && root.back() == '/') root.pop_back();
  if (root.empty()) return root;
  if (root.front() != '/') Refuse(root, "must be an absolute path");
  if (!IsPlain(root, "/")) Refuse(root, "may hold letters, digits, '/', '.', '_' and '-' only");
  char resolved[PATH_MAX];
  if (!realpath(root.c_str(), resolved)) Refuse(root, "is not a folder that exists");
  if (root != resolved) Refuse(root, "must be a path without links, \".\", \"..\" and doubled slashes");
  struct stat info {};
  if (stat(root.c_str(), &info) != 0 || !S_ISDIR(info.st_mode)) Refuse(root, "is not a folder");
  return root;
}

const std::string& Root() {
  static const auto* root = new std::string(ReadRoot());  // static destructors use paths, too
  return *root;
}

// A wrong root ends the process when it is loaded, not at the first use of a path.
[[gnu::constructor]] void CheckRootAtStart() {
  Root();
}

}  // namespace

std::string_view SystemRoot() {
  return Root();
}

std::string SystemPath(std::string_view path) {
  std::string full;
  full.reserve(Root().size() + path.size());
  full.append(Root()).append(path);
  return full;
}
