#pragma once
/// @file
/// The set's TV service, as far as this system asks it: the input source and the channel that are showing.
///
/// Thread rule: callable from any thread; an object belongs to the thread that uses it. Calls wait for nobody.

#include <memory>
#include <string>
#include <vector>

class ISourceControl {
 public:
  virtual ~ISourceControl() = default;
  /// Stores the number of the source that is showing and returns 1; a value of 0 or less is a failure, and `source` is
  /// then untouched.
  virtual int GetCurrentSource(int& source) = 0;
};

/// A channel.
struct TCService {
  int channelType = -1;  ///< 2, 4 and 7 are the digital broadcasts: terrestrial, cable, satellite
  std::string name;
};

/// Which services a fetch is to give.
class TCCriteriaHelper {
 public:
  /// The one that is showing.
  void FetchCurrentService() { m_current = true; }
  bool IsCurrentService() const { return m_current; }

 private:
  bool m_current = false;
};

class IServiceNavigation {
 public:
  virtual ~IServiceNavigation() = default;
  /// Replaces `services` by what the criteria select, and returns 1; a value of 0 or less is a failure.
  virtual int Fetch(const TCCriteriaHelper& criteria, std::vector<TCService>& services) = 0;
};

class TVServiceAPI {
 public:
  /// A handle for the profile (1: the main screen), or null when there is no TV service.
  static std::unique_ptr<ISourceControl> CreateSourceControl(int profile);
  static std::unique_ptr<IServiceNavigation> CreateServiceNavigation(int profile);
};
