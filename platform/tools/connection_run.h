#pragma once
/// @file
/// What the connection test asks of the machine and its network, one step after the other.

#include <chrono>
#include <string>
#include <vector>

#include "trevlin/collectors/network_reach.h"
#include "trevlin/facts.h"

namespace tools {

/// In the order in which they are asked.
enum class ConnectionStep { kLink, kAddress, kRouter, kNames, kInternet, kTime, kService };

enum class StepState {
  kWaiting,
  kRunning,
  kPassed,
  kUnknown,  ///< neither that it works nor that it does not
  kFailed,
};

struct ConnectionRow {
  ConnectionStep step;
  std::string service{};  ///< its name, of kService
  std::string url{};      ///< where it is
  StepState state = StepState::kWaiting;
  std::chrono::milliseconds took{};  ///< once it was asked, at least 1
  int issue = 0;                     ///< of one that failed: the diagnosis engine's code of it; 0 for a service
};

/// One run. Questions are those of the engine's collectors, and so is what follows from their answers.
/// Thread rule: one thread at a time. Next() waits, about two seconds at most.
class ConnectionRun {
 public:
  /// With the steps that the set's profile asks for: those into the Internet are left out where nothing may be sent,
  /// and of [connection] services those that make no sense, which the log tells.
  ConnectionRun();

  const std::vector<ConnectionRow>& Rows() const { return m_rows; }

  /// Marks the next step as running. False when all have passed or one has failed.
  bool Begin();
  /// Asks for what the running step is about. An answer can tell as well that an earlier one has failed: a router that
  /// answers nothing is told by what it lets through.
  void Ask();

  /// The row that failed; null when none has.
  const ConnectionRow* Failed() const;

 private:
  void AddServices();
  void AskFor(ConnectionRow& row);
  void AskNames();
  void Judge(ConnectionRow& row);
  bool HasOtherWayOut() const;
  bool Is(std::string_view fact, bool value) const;

  const trevlin::NetworkProbes m_probes = trevlin::ReadNetworkProbes();
  std::vector<ConnectionRow> m_rows;
  size_t m_current = 0;  ///< the running row, else the next one
  trevlin::NetworkState m_network;
  trevlin::NetworkAnswers m_answers;
  trevlin::Facts m_facts;
};

}  // namespace tools
