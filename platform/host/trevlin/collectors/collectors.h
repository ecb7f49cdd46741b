#pragma once
/// @file
/// The collectors of this platform, one for each section of docs/facts.md.

#include <memory>
#include <vector>

#include "trevlin/facts.h"

namespace trevlin {

/// All the collectors of this platform.
std::vector<std::unique_ptr<Collector>> MakeCollectors();

std::unique_ptr<Collector> MakeMachineCollector();
std::unique_ptr<Collector> MakeStorageCollector();
std::unique_ptr<Collector> MakeMemoryCollector();
std::unique_ptr<Collector> MakeCpuCollector();
std::unique_ptr<Collector> MakePowerCollector();
std::unique_ptr<Collector> MakeClockCollector();
std::unique_ptr<Collector> MakeScheduleCollector();
std::unique_ptr<Collector> MakeServicesCollector();
std::unique_ptr<Collector> MakePackagesCollector();
std::unique_ptr<Collector> MakeUpdatesCollector();
std::unique_ptr<Collector> MakeSetCollector();
std::unique_ptr<Collector> MakeNetworkCollector();
std::unique_ptr<Collector> MakeDisplayCollector();
std::unique_ptr<Collector> MakeSoundCollector();
std::unique_ptr<Collector> MakeInputCollector();

}  // namespace trevlin
