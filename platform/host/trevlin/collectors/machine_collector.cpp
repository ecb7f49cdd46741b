#include <algorithm>

#include "trevlin/collectors/collectors.h"
#include "trevlin/collectors/readings.h"

namespace trevlin {

namespace {

using namespace std::chrono_literals;

/// Starts of the maker's name in the firmware of virtual machines, where the processor does not tell.
constexpr std::string_view kVirtualMakers[] = {"QEMU",       "VMware",    "innotek",   "Xen", "Bochs",
                                               "Amazon EC2", "Parallels", "OpenStack", "KVM"};

bool HasHypervisorFlag(std::string_view cpus) {
  for (const std::string_view line : SplitLines(cpus)) {
    if (!line.starts_with("flags")) continue;
    const auto flags = SplitWords(line);
    return std::find(flags.begin(), flags.end(), "hypervisor") != flags.end();
  }
  return false;
}

bool IsVirtual(const Machine& machine, std::string_view cpus) {
  if (HasHypervisorFlag(cpus) || Exists(machine, "/proc/device-tree/hypervisor")) return true;
  const std::string maker = ReadLine(machine, "/sys/class/dmi/id/sys_vendor").value_or("");
  return std::any_of(std::begin(kVirtualMakers), std::end(kVirtualMakers),
                     [&](std::string_view start) { return maker.starts_with(start); });
}

class MachineCollector : public Collector {
 public:
  std::string_view Name() const override { return "machine"; }
  std::chrono::milliseconds Period() const override { return 10min; }
  std::chrono::milliseconds Deadline() const override { return 500ms; }
  std::vector<FactDescription> Describe() const override {
    return {{"machine.kind", FactKind::kText, "", "what runs this system: hardware, vm or container"}};
  }

  void Collect(const Machine& machine, Facts& facts) override {
    const std::string cpus = ReadText(machine, "/proc/cpuinfo").value_or("");
    if (IsContainer(machine))
      facts["machine.kind"] = "container";
    else if (IsVirtual(machine, cpus))
      facts["machine.kind"] = "vm";
    else if (cpus.find("processor") != cpus.npos)
      facts["machine.kind"] = "hardware";
  }
};

}  // namespace

std::unique_ptr<Collector> MakeMachineCollector() {
  return std::make_unique<MachineCollector>();
}

}  // namespace trevlin
