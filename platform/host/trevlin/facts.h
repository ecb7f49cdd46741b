#pragma once
/// @file
/// Facts of the machine, and those who find them out.
///
/// A fact has a name, "memory.available_percent", and a value: a number, a truth, a text, or unknown. The names, units
/// and meanings are those of docs/facts.md; a rule refers to facts by name.

#include <chrono>
#include <compare>
#include <map>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace trevlin {

/// The machine has nothing that this fact could tell of.
struct Absent {
  auto operator<=>(const Absent&) const = default;
};

/// monostate: unknown, it could not be found out this time. No rule is decided on an unknown fact, and on one that is
/// absent only by asking whether it is.
using FactValue = std::variant<std::monostate, bool, double, std::string, Absent>;
using Facts = std::map<std::string, FactValue, std::less<>>;

enum class FactKind { kTruth, kNumber, kText };

struct FactDescription {
  std::string_view name;
  FactKind kind;
  std::string_view unit;     ///< "%", "MiB", "°C", "" for none
  std::string_view meaning;  ///< one line, in English, for people who write rules
};

/// The machine whose facts are read: `root` stands before /proc, /sys, /etc and other paths of the machine itself (not
/// of the set); empty for this one. A captured one has no live part: no sockets, no D-Bus, no devices are asked, and
/// what only those know is unknown.
struct Machine {
  std::string root;
  bool IsCaptured() const { return !root.empty(); }
  std::string Path(std::string_view path) const { return root + std::string(path); }
};

/// Finds out some facts. Made once and kept for as long as the engine; Collect() is called on a thread of its own,
/// never twice at the same time, and must not touch what others write. It may take longer than its deadline; it is not
/// waited for then, and its facts are unknown until a later run finds it done.
class Collector {
 public:
  virtual ~Collector() = default;
  virtual std::string_view Name() const = 0;
  /// All the facts that it may give.
  virtual std::vector<FactDescription> Describe() const = 0;
  /// How long a value stays good: within it, a run takes the last one.
  virtual std::chrono::milliseconds Period() const = 0;
  virtual std::chrono::milliseconds Deadline() const = 0;
  /// Adds what it knows to `facts`: std::monostate where it asked and had no answer; what it leaves out is absent. It
  /// does not throw.
  virtual void Collect(const Machine& machine, Facts& facts) = 0;
};

}  // namespace trevlin
