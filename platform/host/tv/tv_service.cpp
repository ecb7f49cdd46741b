#include "tv_service.h"

#include <atomic>
#include <optional>

#include "dlog.h"
#include "log_tags.h"
#include "sysinfo/set_profile.h"
#include "vconf.h"

// A Linux machine has no tuner or inputs that this platform could ask. What is showing is what the player tells with
// two settings keys, or else what the set's profile says for good.

namespace {

constexpr const char* kTag = log_tags::kTvService;
constexpr int kMainScreen = 1;
constexpr char kSourceKey[] = "memory/tv/source";
constexpr char kChannelTypeKey[] = "memory/tv/channel_type";
constexpr char kProfileGroup[] = "tv";

/// The settings key's number, else the profile's. Says once that there is none: the question is asked for every issue.
std::optional<int> Showing(const char* key, const char* profileKey, std::atomic<bool>& said) {
  int value = 0;
  if (vconf_get_int(key, &value) == 0) return value;
  if (set_profile::Int(kProfileGroup, profileKey, value) == set_profile::Answer::kValue) return value;
  if (!said.exchange(true))
    __dlog_print(LOG_ID_APPS, DLOG_WARN, kTag, "no %s: neither the settings key %s nor the set's profile says",
                 profileKey, key);
  return std::nullopt;
}

class SourceControl : public ISourceControl {
 public:
  int GetCurrentSource(int& source) override {
    static std::atomic<bool> said{false};
    const auto showing = Showing(kSourceKey, "source", said);
    if (!showing) return -1;
    source = *showing;
    return 1;
  }
};

class ServiceNavigation : public IServiceNavigation {
 public:
  int Fetch(const TCCriteriaHelper& criteria, std::vector<TCService>& services) override {
    static std::atomic<bool> said{false};
    if (!criteria.IsCurrentService()) {
      __dlog_print(LOG_ID_APPS, DLOG_ERROR, kTag, "no list of channels on this machine; only the current one is known");
      return -1;
    }
    const auto showing = Showing(kChannelTypeKey, "channel_type", said);
    if (!showing) return -1;
    services.assign(1, TCService{*showing, ""});
    return 1;
  }
};

bool IsMainScreen(int profile) {
  if (profile != kMainScreen) __dlog_print(LOG_ID_APPS, DLOG_ERROR, kTag, "no TV service for profile %d", profile);
  return profile == kMainScreen;
}

}  // namespace

std::unique_ptr<ISourceControl> TVServiceAPI::CreateSourceControl(int profile) {
  return IsMainScreen(profile) ? std::make_unique<SourceControl>() : nullptr;
}

std::unique_ptr<IServiceNavigation> TVServiceAPI::CreateServiceNavigation(int profile) {
  return IsMainScreen(profile) ? std::make_unique<ServiceNavigation>() : nullptr;
}
