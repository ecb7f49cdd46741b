#include "trevlin/collectors/collectors.h"

namespace trevlin {

std::vector<std::unique_ptr<Collector>> MakeCollectors() {
  std::vector<std::unique_ptr<Collector>> collectors;
  collectors.push_back(MakeMachineCollector());
  collectors.push_back(MakeStorageCollector());
  collectors.push_back(MakeMemoryCollector());
  collectors.push_back(MakeCpuCollector());
  collectors.push_back(MakeNetworkCollector());
  collectors.push_back(MakeDisplayCollector());
  collectors.push_back(MakeSoundCollector());
  collectors.push_back(MakeInputCollector());
  collectors.push_back(MakePowerCollector());
  collectors.push_back(MakeClockCollector());
  collectors.push_back(MakeScheduleCollector());
  collectors.push_back(MakeServicesCollector());
  collectors.push_back(MakePackagesCollector());
  collectors.push_back(MakeUpdatesCollector());
  collectors.push_back(MakeSetCollector());
  return collectors;
}

}  // namespace trevlin
