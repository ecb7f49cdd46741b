#pragma once
/// @file
/// What the programs here share. Each gives the reader that it is named after any bytes: libFuzzer makes them, calls
/// FuzzOne() with them and watches what they reach. A fault is what a sanitizer finds, an exception that the reader
/// does not announce, or a promise of the reader that does not hold.

#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>

void FuzzOne(std::string_view bytes);

/// Ends the program, and so tells of the input, when what was promised does not hold.
inline void Promise(bool holds, const char* what) {
  if (holds) return;
  std::fprintf(stderr, "not so: %s\n", what);
  std::abort();
}

/// What stands before the next line that is "--", which `bytes` loses; all of them where there is none.
inline std::string_view TakePart(std::string_view& bytes) {
  constexpr std::string_view kBorder = "\n--\n";
  const size_t end = bytes.find(kBorder);
  const std::string_view part = bytes.substr(0, end);
  bytes.remove_prefix(end == bytes.npos ? bytes.size() : end + kBorder.size());
  return part;
}
