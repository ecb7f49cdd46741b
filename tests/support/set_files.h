#pragma once
/// @file
/// Files by the paths that they have on a set, and waiting for what another thread or process does with them.

#include <chrono>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <string>
#include <thread>

#include "system_path.h"

/// Makes the folders, too.
inline void WriteFile(const std::string& setPath, const std::string& content) {
  const std::filesystem::path path = SystemPath(setPath);
  std::filesystem::create_directories(path.parent_path());
  std::ofstream(path, std::ios::binary) << content;
}

/// Empty when there is none.
inline std::string ReadFile(const std::string& setPath) {
  std::ifstream file(SystemPath(setPath), std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

/// Whether anything has the name, be it a link that leads nowhere.
inline bool FileExists(const std::string& setPath) {
  return std::filesystem::exists(std::filesystem::symlink_status(SystemPath(setPath)));
}

/// How often `part` is in `text`.
inline size_t Count(const std::string& text, const std::string& part) {
  size_t count = 0;
  for (size_t at = 0; (at = text.find(part, at)) != text.npos; at += part.size()) ++count;
  return count;
}

/// Waits until it is true; false when it does not become so in half a minute, which is long on any machine.
inline bool Comes(const std::function<bool()>& condition) {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
  while (!condition()) {
    if (std::chrono::steady_clock::now() > deadline) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
  return true;
}
