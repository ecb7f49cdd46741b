#pragma once

#include <fcntl.h>
#include <sys/stat.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <string_view>

#include "c_handle.h"
#include "system_path.h"

/// Makes the file (a path of the set) hold the bytes, at a time that it never had before, so that no reader takes it
/// for the one that it knows.
inline void WriteFile(const std::string& path, std::string_view bytes) {
  static time_t time = 0;
  const std::string file = SystemPath(path);
  const auto openIt = [&] { return open(file.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644); };
  FdHandle out(openIt());
  if (!out && std::filesystem::create_directories(std::filesystem::path(file).parent_path())) out.reset(openIt());
  const timespec now[] = {{0, UTIME_OMIT}, {++time, 0}};
  if (!out || write(out.get(), bytes.data(), bytes.size()) != static_cast<ssize_t>(bytes.size()) ||
      futimens(out.get(), now) != 0) {
    std::perror(file.c_str());
    std::exit(EXIT_FAILURE);
  }
}
