#pragma once
/// @file
/// Files of the test's set, by the paths that they have on a set.

#include <gmock/gmock.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <string>
#include <thread>

#include "set_paths.h"
#include "system_path.h"

/// Its bytes; empty as well where no regular file is.
inline std::string ReadFile(const std::string& path) {
  if (!std::filesystem::is_regular_file(SystemPath(path))) return "";
  std::ifstream file(SystemPath(path), std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

/// Makes its folder as well.
inline void WriteFile(const std::string& path, const std::string& content) {
  const std::filesystem::path full = SystemPath(path);
  std::filesystem::create_directories(full.parent_path());
  std::ofstream(full, std::ios::binary) << content;
}

/// Whether anything is there, a link that leads nowhere included.
inline bool Exists(const std::string& path) {
  return std::filesystem::exists(std::filesystem::symlink_status(SystemPath(path)));
}

/// What has been logged.
inline std::string Log() {
  return ReadFile(set_paths::kLogFile);
}

/// How often `part` is in `text`.
inline size_t Count(const std::string& text, const std::string& part) {
  size_t count = 0;
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

/// Waits until the condition holds; false when it does not within half a minute.
inline bool Until(const std::function<bool()>& condition) {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
  while (!condition()) {
    if (std::chrono::steady_clock::now() > deadline) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
  return true;
}
