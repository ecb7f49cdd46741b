#include <algorithm>

#include "trevlin/collectors/automatic_updates.h"
#include "trevlin/collectors/collectors.h"
#include "trevlin/collectors/package_system.h"
#include "trevlin/collectors/readings.h"
#include "trevlin/collectors/update_services.h"

namespace trevlin {

namespace {

using namespace std::chrono_literals;

class UpdatesCollector : public Collector {
 public:
  std::string_view Name() const override { return "updates"; }
  std::chrono::milliseconds Period() const override { return 1min; }
  std::chrono::milliseconds Deadline() const override { return 2400ms; }
  std::vector<FactDescription> Describe() const override {
    return {
        {"updates.interrupted", FactKind::kNumber, "", "software that was not installed or removed to the end"},
        {"updates.interrupted_name", FactKind::kText, "", "the first of it"},
        {"updates.work_hours", FactKind::kNumber, "h",
         "how long an update or installation has been at work; 0 while none is"},
        {"updates.start_failed", FactKind::kTruth, "", "updates that were to be installed at a start failed"},
        {"updates.refresh_on", FactKind::kTruth, "", "the lists of updates are fetched without being asked"},
        {"updates.list_age_days", FactKind::kNumber, "days", "the age of these lists"},
        {"updates.automatic", FactKind::kTruth, "", "updates are installed without being asked"},
    };
  }

  void Collect(const Machine& machine, Facts& facts) override {
    const auto worker = FindPackageWorker(machine);
    AddInterrupted(machine, worker.has_value(), facts);
    AddWork(machine, worker, facts);
    AddFact(facts, "updates.start_failed", HasOfflineUpdateFailed(machine));
    AddFact(facts, "updates.refresh_on", IsRefreshAutomatic(machine));
    AddFact(facts, "updates.list_age_days", DaysSinceRefresh(machine));
    AddFact(facts, "updates.automatic", AreUpdatesAutomatic(machine));
  }

 private:
  void AddInterrupted(const Machine& machine, bool isAtWork, Facts& facts) {
    const auto found = m_records.Read(machine);
    if (!found) return;
    // What is being installed is not interrupted.
    if (isAtWork && found->count > 0) return AddUnknown(facts, "updates.interrupted");
    facts["updates.interrupted"] = static_cast<double>(found->count);
    if (!found->first.empty()) facts["updates.interrupted_name"] = found->first;
  }

  static void AddWork(const Machine& machine, const std::optional<PackageWorker>& worker, Facts& facts) {
    if (machine.IsCaptured() && !worker) return;
    bool isSilent = false;
    const auto ofServices = machine.IsCaptured() ? std::nullopt : AskHoursOfUpdateServices(isSilent);
    const double hours = std::max(worker ? worker->hours.value_or(0) : 0, ofServices.value_or(0));
    // What does not tell may have been at work for longer.
    const bool isOpen = isSilent || (worker && !worker->hours && !ofServices);
    if (isOpen && hours <= kHangingHours) return AddUnknown(facts, "updates.work_hours");
    facts["updates.work_hours"] = hours;
  }

  PackageRecords m_records;
};

}  // namespace

std::unique_ptr<Collector> MakeUpdatesCollector() {
  return std::make_unique<UpdatesCollector>();
}

}  // namespace trevlin
