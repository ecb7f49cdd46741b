#include "packages/package_store.h"
#include "trevlin/collectors/collectors.h"
#include "trevlin/collectors/readings.h"

namespace trevlin {

namespace {

using namespace std::chrono_literals;

class PackagesCollector : public Collector {
 public:
  std::string_view Name() const override { return "packages"; }
  std::chrono::milliseconds Period() const override { return 1min; }
  // Caches are walked through.
  std::chrono::milliseconds Deadline() const override { return 2400ms; }
  std::vector<FactDescription> Describe() const override {
    return {
        {"packages.broken", FactKind::kNumber, "", "folders of applications without a readable manifest"},
        {"packages.broken_name", FactKind::kText, "", "the first of them by name"},
        {"packages.cache_mib", FactKind::kNumber, "MiB", "what all applications could make again"},
        {"packages.unfinished", FactKind::kNumber, "", "applications whose removal was interrupted"},
    };
  }

  void Collect(const Machine&, Facts& facts) override {
    const auto state = packages::Inspect();
    if (!state) return;
    facts["packages.broken"] = static_cast<double>(state->broken.size());
    if (!state->broken.empty()) facts["packages.broken_name"] = state->broken.front();
    facts["packages.unfinished"] = static_cast<double>(state->unfinished);
    int64_t bytes = 0;
    for (const packages::Package& package : state->usable)
      bytes += packages::MeasureCache(package).bytes + packages::MeasureWebCache(package).bytes;
    facts["packages.cache_mib"] = static_cast<double>(bytes) / (1 << 20);
  }
};

}  // namespace

std::unique_ptr<Collector> MakePackagesCollector() {
  return std::make_unique<PackagesCollector>();
}

}  // namespace trevlin
