#pragma once
/// @file
/// Files as tests make and see them, sample packages, and waiting. Paths are those of SystemPath(), which comes with
/// it, as do the paths of the set.

#include <chrono>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <string>
#include <string_view>
#include <thread>

#include "set_paths.h"
#include "system_path.h"

namespace fs = std::filesystem;

/// Empty for what is no regular file.
inline std::string ReadFile(const fs::path& file) {
  if (!fs::is_regular_file(file)) return {};
  std::ifstream in(file, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), {}};
}

/// Makes its folders too.
inline void WriteFile(const fs::path& file, std::string_view content = "content") {
  fs::create_directories(file.parent_path());
  std::ofstream(file, std::ios::binary) << content;
}

inline std::string ReadLog() {
  return ReadFile(SystemPath(set_paths::kLogFile));
}

inline int TimesIn(std::string_view text, std::string_view part) {
  int times = 0;
  for (size_t at = text.find(part); at != text.npos; at = text.find(part, at + 1)) ++times;
  return times;
}

/// Waits until it holds, for as long as a loaded machine may take; false when it never does.
inline bool Eventually(const std::function<bool()>& holds) {
  const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(60);
  while (!holds()) {
    if (std::chrono::steady_clock::now() > end) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  return true;
}

/// The manifest of a package whose application id is its own with ".app"; `more` are further members, each after a
/// comma.
inline std::string Manifest(const std::string& id, const std::string& title, const std::string& more = "") {
  return R"({"package_id": ")" + id + R"(", "app_id": ")" + id + R"(.app", "title": ")" + title + "\"" + more + "}";
}

/// Installs that package, with 20 files of 20,000 bytes in each of its data and cache, and one in its web cache.
inline void PlantPackage(const std::string& id, const std::string& title, const std::string& more = "") {
  const fs::path folder = SystemPath(set_paths::kPackagesDir) + "/" + id;
  const std::string bytes(20000, 'x');
  WriteFile(folder / "manifest.json", Manifest(id, title, more));
  for (int i = 0; i < 20; ++i)
    for (const char* kind : {"data", "cache"}) WriteFile(folder / kind / std::to_string(i), bytes);
  WriteFile(SystemPath(set_paths::kWebCacheDir) + "/" + id + ".app/page", bytes);
}
