#include "system_info.h"
#include "trevlin/collectors/collectors.h"
#include "trevlin/collectors/readings.h"
#include "tv_service.h"

namespace trevlin {

namespace {

using namespace std::chrono_literals;

constexpr int kMainScreen = 1;

class SetCollector : public Collector {
 public:
  std::string_view Name() const override { return "set"; }
  std::chrono::milliseconds Period() const override { return 1s; }
  std::chrono::milliseconds Deadline() const override { return 500ms; }
  std::vector<FactDescription> Describe() const override {
    return {
        {"set.tuners", FactKind::kNumber, "", "tuners of the set"},
        {"set.source", FactKind::kNumber, "", "number of the input source that is showing; 0 is the tuner"},
        {"set.channel_type", FactKind::kNumber, "", "kind of the channel that is showing; 2, 4 and 7 are digital"},
    };
  }

  void Collect(const Machine&, Facts& facts) override {
    int value = 0;
    if (system_info_get_value_int(SYSTEM_INFO_KEY_NUM_OF_TUNER, &value) == SYSTEM_INFO_ERROR_NONE)
      facts["set.tuners"] = static_cast<double>(value);
    const auto source = TVServiceAPI::CreateSourceControl(kMainScreen);
    if (source && source->GetCurrentSource(value) > 0) facts["set.source"] = static_cast<double>(value);
    const auto navigation = TVServiceAPI::CreateServiceNavigation(kMainScreen);
    TCCriteriaHelper current;
    current.FetchCurrentService();
    std::vector<TCService> services;
    if (navigation && navigation->Fetch(current, services) > 0 && !services.empty())
      facts["set.channel_type"] = static_cast<double>(services.front().channelType);
  }
};

}  // namespace

std::unique_ptr<Collector> MakeSetCollector() {
  return std::make_unique<SetCollector>();
}

}  // namespace trevlin
