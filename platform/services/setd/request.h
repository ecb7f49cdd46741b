#pragma once
/// @file
/// The requests that other programs put into set_paths::kTager: which there are, and how they are read and removed.
/// docs/setd.md has the protocol.
///
/// Thread rule: callable from any thread.

#include <chrono>
#include <string>
#include <vector>

#include "cleaning/hoards.h"

namespace setd {

enum class Kind { kKill, kClearCache, kMeasure, kMemoryBoost, kDeepClean, kCleanHoards };

struct Request {
  Kind kind = Kind::kKill;
  std::string trigger{};  ///< name of the file in set_paths::kTagerRequests
  std::string line{};     ///< what it says, as it stands; empty for those without a payload
  std::string packageId{};
  std::string appId{};
  std::vector<cleaning::Hoard> hoards{};
  std::string writing{};  ///< of a measurement: tells its files from those of a later request for the same
};

enum class ReadState {
  kReady,
  kNoRequest,   ///< no file of a request, or there no longer
  kIncomplete,  ///< its writer may still be at it
  kRefused,     ///< `problem` tells why
};

/// Whether a trigger file of that name is a request.
bool IsRequestName(const std::string& trigger);

/// Reads the request of a trigger file. With `isFinal` nothing is kIncomplete any more.
ReadState ReadRequest(const std::string& trigger, bool isFinal, Request& request, std::string& problem);

/// Leaves a request of this daemon's own, kMemoryBoost or kDeepClean, as other programs do. False with errno.
bool LeaveRequest(Kind kind);

/// Removes trigger and payload of a request that was served or refused, unless another one has taken their place. A
/// refused deep clean stays: its end would say that it was done. False with errno when one could not be removed.
bool RemoveServed(const Request& request);
bool RemoveRefused(const std::string& trigger);

/// Publishes the answer to a measuring request, result before acknowledgement, and removes the request between them.
/// When the same has been asked again since the request was read, what was measured may be out of date: then there is
/// no answer and the request stands, to be served anew. One that is written after that look, while the answer is being
/// published, may be served by it. False when there is no answer for another reason and the
/// request still stands; `problem` tells why.
bool PublishAnswer(const Request& request, long data, long cache, std::string& problem);

/// Removes answers that nobody has fetched for half a minute since this first saw them (the askers wait five seconds),
/// and results without an acknowledgement that are as old. True when some are left. Main thread.
bool RemoveOldAnswers(std::chrono::steady_clock::time_point now = std::chrono::steady_clock::now());

/// Acknowledges the answers of a daemon that was interrupted just before that, and removes what it left half written.
/// Only while no answer is being published.
void FinishInterrupted();

}  // namespace setd
