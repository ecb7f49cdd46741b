#pragma once
/// @file
/// The two ways to speak. Both belong to the thread of the voice.

#include <sys/types.h>

#include <optional>
#include <string>

#include "c_handle.h"
#include "speech/kind.h"

namespace speech {

/// A connection to speech-dispatcher, made when it is first needed and again when it was lost.
class Dispatcher {
 public:
  /// Has it spoken when it is its turn, by the protocol's priorities. False where there is no dispatcher, or it does
  /// not do as it is told.
  bool Say(const std::string& text, Kind kind, const std::string& locale);
  /// Ends what is spoken and what waits. Says nothing and connects to nobody.
  void Cancel();

 private:
  bool Connect();
  bool Ask(const std::string& command);
  std::string ReadReply();

  FdHandle m_socket;
  std::string m_received;
};

/// espeak-ng, one process for a text.
class Espeak {
 public:
  ~Espeak() { Cancel(); }
  /// False when it cannot be started.
  bool Say(const std::string& text, const std::string& locale);
  void Cancel();
  /// Readable when the process has ended; -1 for none.
  int Ended() const { return m_process.get(); }
  /// Takes the process away and returns its exit status; nothing where it was killed or another has taken it.
  std::optional<int> Collect();

 private:
  FdHandle m_process;
};

}  // namespace speech
