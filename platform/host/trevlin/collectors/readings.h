#pragma once
/// @file
/// Readers that the collectors share. Paths are of the machine ("/proc/meminfo"), below Machine::root.
///
/// All are bounded: a file is read up to kMaxFileBytes, a folder up to kMaxNames. Nothing is an error here: what is not
/// there, cannot be read or makes no sense is nothing. Regular files only, so none waits for a writer.
///
/// Thread rule: callable from any thread.

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <iterator>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "trevlin/facts.h"

namespace trevlin {

inline constexpr size_t kMaxFileBytes = 262144;
inline constexpr size_t kMaxNames = 4096;
inline constexpr double kMaxNumber = 1e18;  ///< larger ones are a broken driver's

/// The file's content. Of one that is longer than kMaxFileBytes, the whole lines before that.
std::optional<std::string> ReadText(const Machine& machine, std::string_view path);
/// Its first line, without blanks and zero bytes around it; nothing when that is empty or no text (control characters,
/// malformed UTF-8).
std::optional<std::string> ReadLine(const Machine& machine, std::string_view path);
/// Its first line as a number within `least` to `most`.
std::optional<double> ReadNumber(const Machine& machine, std::string_view path, double least = -kMaxNumber,
                                 double most = kMaxNumber);

/// A file that holds a hexadecimal number with or without "0x" ("50005").
std::optional<uint64_t> ReadHex(const Machine& machine, std::string_view path);
/// The share of the last minute in which some work waited for "memory", "cpu" or "io", in percent (/proc/pressure).
std::optional<double> ReadPressure(const Machine& machine, std::string_view resource);
/// The power and heat bits of a board's firmware: 0x1 undervoltage, 0x2 frequency capped, 0x4 throttled, 0x8 near the
/// temperature limit; what has ever been since the start stands 16 bits higher.
std::optional<uint64_t> ReadBoardThrottling(const Machine& machine);

/// The names in a folder but "." and "..", sorted. Empty when there is none.
std::vector<std::string> ListNames(const Machine& machine, std::string_view folder);
bool Exists(const Machine& machine, std::string_view path);

/// The whole of `text` as a decimal number, or after "0x" a hexadecimal one; nothing beyond ±kMaxNumber.
std::optional<double> ParseNumber(std::string_view text);
/// `text` at line ends, and a line at runs of blanks; without empty parts. They are views of `text`.
std::vector<std::string_view> SplitLines(std::string_view text);
std::vector<std::string_view> SplitWords(std::string_view line);
/// The number behind `key` in a list as /proc/meminfo ("MemFree:   1024 kB") and /proc/vmstat ("oom_kill 2") are;
/// nothing when it is negative.
std::optional<double> FindNumber(std::string_view list, std::string_view key);

/// Whether it is one of a table.
template <size_t kCount>
bool IsOneOf(const std::string_view (&all)[kCount], std::string_view one) {
  return std::find(std::begin(all), std::end(all), one) != std::end(all);
}

/// Whether this is a container, which has the files of the machine below it in /proc and /sys. False where no sign of
/// one is found.
bool IsContainer(const Machine& machine);

/// Where the processes of this set tell each other what they found out since the machine's start. `name` is a plain
/// file name.
std::string SharedPath(const std::string& name);

/// Tells this start of the machine from every other; empty where it is not known.
std::string BootId(const Machine& machine);

/// Seconds since the machine was started, those in which it slept included.
std::optional<double> SecondsSinceStart(const Machine& machine);

/// By how much a counter of the kernel, that is `value` now, has risen within the last `window`, or since the machine's
/// start when that was later: counters start at 0, and one that has become smaller has started anew. Where no reading
/// is that old it is the rise since the oldest one; nothing at the first, and after a time without readings in which
/// the counter has risen.
///
/// Readings are kept in SharedPath(counter), for all processes together, a 24th of the window apart;
/// those of an earlier start are forgotten. `counter` is a plain file name. Where they cannot be kept, nothing is
/// known unless the machine was started within the window.
std::optional<double> RiseWithin(const Machine& machine, const std::string& counter, double value,
                                 std::chrono::seconds window);

/// Adds a fact when there is something to tell.
template <typename Value>
void AddFact(Facts& facts, std::string_view name, const std::optional<Value>& value) {
  if (value) facts.insert_or_assign(std::string(name), FactValue(*value));
}

/// Says that a fact was asked for and could not be told this time, as when a service does not answer.
inline void AddUnknown(Facts& facts, std::string_view name) {
  facts.insert_or_assign(std::string(name), FactValue());
}

}  // namespace trevlin
