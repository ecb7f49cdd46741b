#pragma once
/// @file
/// The sound server of this session, over the protocol that PulseAudio and PipeWire both serve (libpulse 14 or later).
/// None is ever started.
///
/// Linked into the programs that need it, not into the platform's library: what libpulse brings along costs each
/// program's start some milliseconds.
///
/// Thread rule: one thread at a time. Each call blocks, for the limit of the constructor at most.

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "sound/screen_sound.h"

struct pa_context;
struct pa_mainloop;
struct pa_operation;

namespace sound {

/// Whether something is plugged in, as far as the plug can tell.
enum class Plugged { kUnknown, kNo, kYes };

struct Port {
  std::string name{};   ///< "hdmi-output-0", its key on the server
  std::string title{};  ///< "HDMI / DisplayPort", for a reader
  Plugged plugged = Plugged::kUnknown;
  bool leadsToScreen = false;  ///< HDMI or DisplayPort
};

/// An output that plays.
struct Sink {
  uint32_t index = 0;
  uint32_t card = UINT32_MAX;  ///< the index of its card, where it has one
  std::string name{};          ///< its key on the server
  std::string title{};         ///< for a reader
  std::string monitor{};       ///< the source from which what it plays can be recorded
  bool isMuted = false;
  double volumePercent = 0;  ///< of its loudest channel; 100 is as recorded, more is amplified
  std::vector<Port> ports{};
  std::string activePort{};
  bool leadsToScreen = false;          ///< by its port in use, or the profile of its card
  std::optional<CardDevice> device{};  ///< of ALSA, where it plays on one

  /// Each of its ports says that nothing is plugged in.
  bool IsUnplugged() const;
};

/// A port of a card that no sink of the card's profile in use has, and the best profile with which one has it.
struct IdlePort {
  uint32_t cardIndex = 0;
  std::string card{};
  std::string profile{};
  Port port{};
};

struct Outputs {
  std::string defaultSink{};  ///< empty when there is none
  std::vector<Sink> sinks{};
  std::vector<IdlePort> idlePorts{};

  /// The one that sound goes to; null where that is none, or what the server has in the place of one.
  const Sink* Default() const;
};

class Server {
 public:
  /// Connects; IsConnected() tells whether it did, Problem() why not.
  explicit Server(std::chrono::milliseconds limit);
  ~Server();
  Server(const Server&) = delete;
  Server& operator=(const Server&) = delete;

  bool IsConnected() const;
  /// There is one, which did not answer in time.
  bool IsSilent() const { return m_isSilent; }

  /// Nothing on failure, with Problem(). The others return false then.
  std::optional<Outputs> List();
  /// Makes it the default, also for what comes later, and moves there what plays on the one that was.
  bool SetDefault(const std::string& sink);
  bool SetMuted(const std::string& sink, bool isMuted);
  bool SetProfile(const std::string& card, const std::string& profile);

  /// Why the last call failed: "Connection refused".
  const std::string& Problem() const { return m_problem; }

 private:
  struct Loop;
  bool Iterate(std::chrono::steady_clock::time_point end);
  bool Finish(pa_operation* operation);
  bool Fail(const char* reason = nullptr);

  const std::chrono::milliseconds m_limit;
  const std::unique_ptr<Loop> m_loop;
  std::string m_problem;
  bool m_isSilent = false;
};

}  // namespace sound
