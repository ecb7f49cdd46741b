#pragma once
/// @file
/// Runs collectors beside each other, each for as long as its deadline allows.

#include <chrono>
#include <functional>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "trevlin/facts.h"

namespace trevlin {

/// What a run did with a collector.
struct Reading {
  enum class State {
    kRead,    ///< it was called, and done in time
    kReused,  ///< its last facts are still good
    kCutOff,  ///< it is not done; its facts are unknown
    kFailed   ///< it threw, or no thread could be made for it; its facts are unknown
  };
  std::string collector{};
  State state = State::kRead;
  std::chrono::microseconds took{0};  ///< its last call, when it is done; else so far
};

/// "read", "reused", "cut off" or "failed".
std::string_view NameOf(Reading::State state);

/// Thread rule: Read() belongs to one thread at a time, Stop() is callable from any. Collectors run on threads of their
/// own. One that is cut off goes on by itself and is not called again until it is done; it keeps what it needs alive,
/// so the pool can go meanwhile.
class CollectorPool {
 public:
  using Names = std::set<std::string, std::less<>>;
  enum class Age { kWithinPeriod, kFresh };

  CollectorPool(std::vector<std::unique_ptr<Collector>> collectors, Machine machine);
  ~CollectorPool();
  CollectorPool(const CollectorPool&) = delete;
  CollectorPool& operator=(const CollectorPool&) = delete;

  /// All the facts that the collectors may give; `collector` is the name of the one that gives it.
  struct Described {
    FactDescription fact;
    std::string_view collector;
  };
  const std::vector<Described>& Facts() const { return m_facts; }

  /// Calls the collectors that give any of the facts `wanted`, with kWithinPeriod only those whose facts are no longer
  /// good, and adds what they know to `facts`; what one that is done has left out is Absent. Returns after `wait` at
  /// the latest.
  std::vector<Reading> Read(const Names& wanted, Age age, std::chrono::microseconds wait, trevlin::Facts& facts);

  /// Has Read() return at once from now on, and a running one too.
  void Stop();

 private:
  using Clock = std::chrono::steady_clock;
  struct Slot;
  struct Shared;

  static void Start(const std::shared_ptr<Shared>& shared, Slot& slot);
  static void Call(Shared& shared, Slot& slot);

  const std::shared_ptr<Shared> m_shared;
  std::vector<Described> m_facts;
};

}  // namespace trevlin
