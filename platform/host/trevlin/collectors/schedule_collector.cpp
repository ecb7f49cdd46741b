#include "idle_off.h"
#include "scheduled_off.h"
#include "trevlin/collectors/collectors.h"
#include "trevlin/collectors/readings.h"

namespace trevlin {

namespace {

using namespace std::chrono_literals;

class ScheduleCollector final : public Collector {
 public:
  std::string_view Name() const override { return "schedule"; }
  std::chrono::milliseconds Period() const override { return 30s; }
  std::chrono::milliseconds Deadline() const override { return 2400ms; }
  std::vector<FactDescription> Describe() const override {
    return {{"schedule.off", FactKind::kTruth, "", "the machine is to turn itself off at a set time"},
            {"schedule.idle_off", FactKind::kTruth, "", "the machine turns itself off when nobody uses it"}};
  }

  void Collect(const Machine& machine, Facts& facts) override {
    if (machine.IsCaptured()) return;
    const ScheduledOff off = AskScheduledOff();
    AddFact(facts, "schedule.off", off.isSet);
    if (off.hasLogind && !off.isSet) AddUnknown(facts, "schedule.off");
    const IdleOff idle = AskIdleOff();
    AddFact(facts, "schedule.idle_off", idle.isSet);
    if (idle.hasDecider && !idle.isSet) AddUnknown(facts, "schedule.idle_off");
  }
};

}  // namespace

std::unique_ptr<Collector> MakeScheduleCollector() {
  return std::make_unique<ScheduleCollector>();
}

}  // namespace trevlin
