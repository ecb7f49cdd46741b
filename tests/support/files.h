#pragma once
/// @file
/// Files as tests make and see them, sample packages, and waiting. SystemPath() and the paths of the set come with it.

#include "set_paths.h"
#include "support/test.h"
#include "system_path.h"

/// Its bytes; empty as well where no regular file is. A path of this machine.
inline std::string ReadHostFile(const fs::path& file) {
  if (!fs::is_regular_file(file)) return {};
  std::ifstream in(file, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), {}};
}

/// Makes its folders as well. A path of this machine.
inline void WriteHostFile(const fs::path& file, std::string_view content = "content") {
  fs::create_directories(file.parent_path());
  std::ofstream(file, std::ios::binary) << content;
}

/// The same with a path of the set.
inline std::string ReadFile(const std::string& path) {
  return ReadHostFile(SystemPath(path));
}
inline void WriteFile(const std::string& path, std::string_view content) {
  WriteHostFile(SystemPath(path), content);
}

/// Whether anything is there on the set, a link that leads nowhere included.
inline bool Exists(const std::string& path) {
  return fs::exists(fs::symlink_status(SystemPath(path)));
}

/// What has been logged.
inline std::string Log() {
  return ReadFile(set_paths::kLogFile);
}

/// How often `part` is in `text`.
inline int Count(std::string_view text, std::string_view part) {
  int count = 0;
  for (size_t at = 0; (at = text.find(part, at)) != text.npos; at += part.size()) ++count;
  return count;
}

/// A matcher: the text has each of the parts, the next one behind the last.
MATCHER_P(ContainsInOrder, parts, "has these parts in their order: " + testing::PrintToString(parts)) {
  size_t at = 0;
  for (const std::string& part : parts) {
    at = arg.find(part, at);
    if (at == std::string::npos) {
      *result_listener << "with no \"" << part << "\" there";
      return false;
    }
    at += part.size();
  }
  return true;
}

/// Waits until the condition holds, for as long as a loaded machine may take; false when it never does.
inline bool Until(const std::function<bool()>& condition) {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
  while (!condition()) {
    if (std::chrono::steady_clock::now() > deadline) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
  return true;
}

/// The manifest of a package whose application id is its own with ".app"; `more` are further members, each after a
/// comma.
inline std::string Manifest(const std::string& id, const std::string& title, const std::string& more = "") {
  return R"({"package_id": ")" + id + R"(", "app_id": ")" + id + R"(.app", "title": ")" + title + "\"" + more + "}";
}

/// Installs that package, with 20 files of 20,000 bytes in each of its data and cache, and one in its web cache. What
/// `more` says is not removable is the set's.
inline void PlantPackage(const std::string& id, const std::string& title, const std::string& more = "") {
  const fs::path folder = SystemPath(set_paths::kPackagesDir) + "/" + id;
  const std::string bytes(20000, 'x');
  if (more.find("\"removable\": false") != more.npos)
    WriteFile(set_paths::kShippedPackages, ReadFile(set_paths::kShippedPackages) + id + " fixed\n");
  WriteHostFile(folder / "manifest.json", Manifest(id, title, more));
  for (int i = 0; i < 20; ++i)
    for (const char* kind : {"data", "cache"}) WriteHostFile(folder / kind / std::to_string(i), bytes);
  WriteHostFile(SystemPath(set_paths::kWebCacheDir) + "/" + id + ".app/page", bytes);
}
