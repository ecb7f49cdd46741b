#include "fuzz.h"
#include "packages/manifest.h"

void FuzzOne(std::string_view bytes) {
  std::string problem;
  const auto package = packages::ParseManifest("tv.lumora.cinema", std::string(bytes), problem);
  Promise(package || !problem.empty(), "a refusal has a reason");
  if (!package) return;
  Promise(packages::IsId(package->appId) && packages::IsId(package->serviceId), "ids are ids");
  Promise(packages::IsTitle(package->title), "a title can be shown");
  Promise((package->iconDir + "/").find("/../") == std::string::npos, "icons lie inside the package");
}
