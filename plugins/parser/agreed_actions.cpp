#include "agreed_actions.h"

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "QUVA_ParserPlugin.h"
#include "TaskManagerRequests.h"
#include "set_care.h"

namespace agreed_actions {

namespace {

using QUVA::PlannedKind;
using QUVA::PlannedThing;
using QUVA::SolutionEffect;
using QUVA::SolutionPlan;

constexpr char kMemory[] = "memboost";
constexpr char kStorage[] = "deepclean";

constexpr struct {
  const char* key;
  const char* sid;
} kNames[] = {{"journals", "TV_SID_VEXILO_SYSTEM_LOGS"},
              {"package_archives", "TV_SID_VEXILO_INSTALL_FILES"},
              {"core_dumps", "TV_SID_VEXILO_CRASH_RECORDS"},
              {"thumbnails", "TV_SID_VEXILO_THUMBNAILS"},
              {"flatpak_runtimes", "TV_SID_VEXILO_UNUSED_RUNTIMES"}};

std::string NameOf(const std::string& key) {
  const auto* const name = std::ranges::find_if(kNames, [&](const auto& each) { return key == each.key; });
  return name == std::end(kNames) ? key : name->sid;
}

std::vector<std::string> IdsOf(const SolutionPlan& plan, PlannedKind kind) {
  std::vector<std::string> ids;
  for (const PlannedThing& thing : plan.things)
    if (thing.kind == kind) ids.push_back(thing.id);
  return ids;
}

PlannedThing ThingOf(const set_care::App& app) {
  return {PlannedKind::kApp, app.packageId, app.title, app.bytes};
}

int FreeMemory(const SolutionPlan& agreed, SolutionEffect& effect) {
  const std::vector<std::string> ids = IdsOf(agreed, PlannedKind::kApp);
  effect.hadNothingToClose = ids.empty();
  for (const set_care::App& app : ids.empty() ? std::vector<set_care::App>() : set_care::EndApps(ids)) {
    effect.things.push_back(ThingOf(app));
    effect.memory += app.bytes;
  }
  if (!ids.empty() && effect.things.empty()) return SOLUTION_FAILED;
  // The daemon has the kernel reclaim, and ends what it may without asking. A request that nobody serves would wait for
  // one that starts some day, and ends applications then.
  return !set_care::HasDaemon() || QUVA::PerformMemBoost() == 0 ? SOLUTION_TRIED : SOLUTION_FAILED;
}

/// What this process may not remove is the daemon's to do.
void RemoveAgreed(const SolutionPlan& agreed, SolutionEffect& effect) {
  const std::vector<std::string> ids = IdsOf(agreed, PlannedKind::kHoard);
  if (ids.empty()) return;
  std::vector<std::string> forDaemon;
  for (const set_care::Hoard& hoard : set_care::FindHoards()) {
    if (std::ranges::find(ids, hoard.key) == ids.end()) continue;
    if (hoard.remover == set_care::Remover::kThisProcess) set_care::RemoveHoard(hoard.key);
    if (hoard.remover == set_care::Remover::kDaemon) forDaemon.push_back(hoard.key);
  }
  if (!forDaemon.empty()) QUVA::PerformCleanHoards(forDaemon);
  const std::vector<set_care::Hoard> left = set_care::FindHoards();
  for (const PlannedThing& thing : agreed.things) {
    const auto stays = [&](const set_care::Hoard& hoard) { return hoard.key == thing.id; };
    if (thing.kind == PlannedKind::kHoard && std::ranges::none_of(left, stays)) effect.things.push_back(thing);
  }
}

int FreeStorage(const SolutionPlan& agreed, SolutionEffect& effect) {
  effect.freeBefore = set_care::FreeBytes();
  if (!set_care::HasDaemon())
    set_care::CleanUp();
  else if (QUVA::PerformDeepClean() != 0)
    return SOLUTION_FAILED;
  RemoveAgreed(agreed, effect);
  effect.freeAfter = set_care::FreeBytes();
  effect.isCleaned = true;
  return SOLUTION_TRIED;
}

}  // namespace

bool Handles(const std::string& type) {
  return type == kMemory || type == kStorage;
}

void Plan(const std::string& type, SolutionPlan& plan) {
  if (type == kMemory)
    for (const set_care::App& app : set_care::BackgroundApps()) plan.things.push_back(ThingOf(app));
  if (type != kStorage) return;
  for (const set_care::Hoard& hoard : set_care::FindHoards())
    (hoard.remover == set_care::Remover::kAdministrator ? plan.kept : plan.things)
        .push_back({PlannedKind::kHoard, hoard.key, NameOf(hoard.key), hoard.bytes});
}

int Perform(const std::string& type, const SolutionPlan& agreed, SolutionEffect& effect) {
  return type == kMemory ? FreeMemory(agreed, effect) : FreeStorage(agreed, effect);
}

}  // namespace agreed_actions
