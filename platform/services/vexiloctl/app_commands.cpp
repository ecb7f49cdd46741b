// What there is: applications and the storage they take. And launching.

#include <algorithm>
#include <utility>

#include "ContentTerms.h"
#include "appfw/launcher.h"
#include "applications.h"
#include "command.h"
#include "set_paths.h"
#include "settings/menu_language.h"
#include "vconf.h"

namespace vexiloctl {

namespace {

using packages::Package;

std::string StateOf(const Package& package) {
  const char* reason = packages::WhyNotRemovable(package);
  if (!reason) return "";
  if (!package.removable) return "of the set";
  return package.locked ? "locked" : "administrator's";
}

struct MeasuredPackage {
  Package package;
  Sizes sizes;
};

/// Complains of those that were not measured whole; the sizes of those are what could be read.
std::vector<MeasuredPackage> MeasureAll(std::vector<Package> packages, bool& whole) {
  std::vector<MeasuredPackage> measured;
  for (Package& package : packages) {
    Sizes sizes = Measure(package);
    if (!sizes.problem.empty()) Complain(sizes.problem + "; what it takes is not known in full");
    whole = whole && sizes.problem.empty();
    measured.push_back({std::move(package), std::move(sizes)});
  }
  return measured;
}

void PrintSizes(const std::vector<MeasuredPackage>& apps, bool json) {
  Listing listing(json, {"APPLICATION", "PACKAGE", "TITLE", "PROGRAM", "DATA", "CACHE", "TOTAL", "STATE"});
  Sizes all;
  for (const auto& [package, sizes] : apps) {
    all.program += sizes.program;
    all.data += sizes.data;
    all.cache += sizes.cache;
    listing.Add(
        [&package = package, &sizes = sizes] {
          Json::Value object = IdsOf(package);
          AddSizes(sizes, object);
          object["measured"] = sizes.problem.empty();
          object["locked"] = package.locked;
          object["for_administrator"] = package.forAdministrator;
          object["removable"] = package.removable;
          return object;
        },
        [&package = package, &sizes = sizes]() -> std::vector<std::string> {
          return {package.appId,        package.packageId,     package.title,           SizeText(sizes.program),
                  SizeText(sizes.data), SizeText(sizes.cache), SizeText(sizes.Total()), StateOf(package)};
        });
  }
  if (!json && apps.size() != 1)
    listing.Add([] { return Json::Value(); },
                [&]() -> std::vector<std::string> {
                  return {"total",
                          std::to_string(apps.size()),
                          "",
                          SizeText(all.program),
                          SizeText(all.data),
                          SizeText(all.cache),
                          SizeText(all.Total()),
                          ""};
                });
  listing.Print();
}

void CheckMeasured(bool whole) {
  if (!whole) throw Failure("not every application could be measured");
}

}  // namespace

void AppsList(const Arguments& arguments) {
  std::vector<Package> listed = packages::List();
  const size_t installed = listed.size();
  // As the storage screen lists them.
  if (!arguments.option)
    std::erase_if(listed, [hasConsent = QUVA::HasConsent()](const Package& package) {
      return !package.removable || !QUVA::IsShownToViewer(package.title, hasConsent);
    });
  const size_t hidden = installed - listed.size();
  bool whole = true;
  PrintSizes(MeasureAll(std::move(listed), whole), arguments.json);
  if (hidden > 0 && !arguments.json)
    Print(std::to_string(hidden) + " more " + (hidden == 1 ? "is" : "are") +
          " not for the viewer now; see them with --all\n");
  CheckMeasured(whole);
}

void AppsSize(const Arguments& arguments) {
  bool whole = true;
  PrintSizes(MeasureAll(FindAll(arguments.values), whole), arguments.json);
  CheckMeasured(whole);
}

void Storage(const Arguments& arguments) {
  const Partition partition = ReadPartition();
  bool whole = true;
  std::vector<MeasuredPackage> apps = MeasureAll(packages::List(), whole);
  std::stable_sort(apps.begin(), apps.end(),
                   [](const auto& one, const auto& other) { return one.sizes.Total() > other.sizes.Total(); });
  if (arguments.json) {
    Json::Value object;
    object["path"] = set_paths::kUserPartition;
    object["total_bytes"] = Json::Int64(partition.total);
    object["used_bytes"] = Json::Int64(partition.used);
    object["available_bytes"] = Json::Int64(partition.available);
    object["applications"] = Json::arrayValue;
    for (const auto& [package, sizes] : apps) {
      Json::Value app = IdsOf(package);
      AddSizes(sizes, app);
      object["applications"].append(app);
    }
    Print(JsonLine(object));
  } else {
    Table table({"PARTITION", "TOTAL", "USED", "AVAILABLE"});
    table.Add({set_paths::kUserPartition, SizeText(partition.total), SizeText(partition.used),
               SizeText(partition.available)});
    table.Print();
    Print("\n");
    PrintSizes(apps, false);
  }
  CheckMeasured(whole);
}

void Launch(const Arguments& arguments) {
  const std::string& appId = arguments.values[0];
  app_framework::Extras extras;
  for (size_t i = 1; i < arguments.values.size(); ++i) {
    const std::string& text = arguments.values[i];
    const size_t equals = text.find('=');
    if (equals == std::string::npos || equals == 0)
      throw UsageError("KEY=VALUE \"" + Visible(text) + "\": it has no key and '=' before a value");
    extras.Set(text.substr(0, equals), text.substr(equals + 1));
  }
  ApplyMenuLanguage();  // the entry's name is handed on in it
  const app_framework::LaunchResult result = app_framework::Launch(appId, extras);
  if (result.error != APP_CONTROL_ERROR_NONE)
    throw Failure("cannot launch \"" + Visible(appId) + "\": " + result.problem);
  if (!arguments.json) return;
  Json::Value object;
  object["app_id"] = appId;
  object["extras"] = Json::objectValue;
  for (const auto& [key, value] : extras) object["extras"][key] = value;
  Print(JsonLine(object));
}

}  // namespace vexiloctl
