// bench_apps: builds the list of 200 applications with a task manager that answers in 20 ms, beside a serial build of
// the same list, and prints the two median times and their ratio.

#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "CGetData.h"
#include "SettingsKeys.h"
#include "pkgmgr_client.h"
#include "set_paths.h"
#include "system_path.h"
#include "tests/support/task_manager.h"
#include "vconf.h"
#include "was_api.h"

namespace {

namespace fs = std::filesystem;
using QUVA::CGetData;

constexpr int kApplications = 200;
constexpr int kRuns = 5;
constexpr int kSerialRuns = 3;
constexpr auto kAnswerTime = std::chrono::milliseconds(20);

void PlantFiles(const fs::path& folder, int count) {
  fs::create_directories(folder);
  for (int i = 0; i < count; ++i) std::ofstream(folder / std::to_string(i)) << std::string(5000, 'x');
}

void PlantApplications() {
  for (int i = 0; i < kApplications; ++i) {
    const std::string id = "bench.app" + std::to_string(i);
    const fs::path package = SystemPath(set_paths::kPackagesDir + ("/" + id));
    for (const char* folder : {"bin", "data", "cache"}) PlantFiles(package / folder, 10);
    PlantFiles(SystemPath(set_paths::kWebCacheDir + ("/" + id)), 5);
    fs::create_directory(package / "icons");
    std::ofstream(package / "icons/304x304.png").flush();
    std::ofstream(package / "manifest.json")
        << R"({"package_id": ")" << id << R"(", "app_id": ")" << id << R"(", "title": "Application )" << i << "\"}";
  }
}

/// The sizes, one application after the other.
std::vector<long long> SerialList(CGetData& service) {
  std::vector<long long> sizes;
  was_app_info_s* apps = nullptr;
  int count = 0;
  was_get_app_list(WAS_LIST_REMOVABLE, &apps, &count);
  for (int i = 0; i < count; ++i) {
    pkgmgr_client* const client = pkgmgr_client_new(PC_REQUEST);
    long data = 0;
    long cache = 0;
    const long long total = service.getAppSize(client, apps[i].package_id, PM_GET_TOTAL_SIZE);
    service.findDataCacheSize(apps[i].package_id, apps[i].app_id, &data, &cache);
    const long long own = service.getAppSize(client, apps[i].package_id, PM_GET_DATA_SIZE);
    pkgmgr_client_free(client);
    const std::string folder = SystemPath(set_paths::kWebCacheDir + ("/" + std::string(apps[i].app_id)));
    const long long web = std::atoll(service.GetStdoutFromCommand("du -bs " + folder).c_str());
    if (access(SystemPath(apps[i].icon_dir + std::string("304x304.png")).c_str(), F_OK) == 0)
      sizes.push_back(total + web - own + data + cache);
  }
  was_free_app_list(apps, count);
  return sizes;
}

std::vector<long long> PooledList(CGetData& service) {
  service.sendAppList();
  std::vector<long long> sizes;
  for (const auto& app : service.m_GetAppsDataStructure()) sizes.push_back(app.size);
  return sizes;
}

/// The median time in milliseconds; ends the process when the list is not `expected`.
double Measure(int runs, std::vector<long long> (*build)(CGetData&), const std::vector<long long>& expected) {
  std::vector<double> times;
  for (int run = 0; run < runs; ++run) {
    const auto start = std::chrono::steady_clock::now();
    const bool same = build(*CGetData::GetInstance()) == expected;
    times.push_back(std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count());
    if (same) continue;
    std::fprintf(stderr, "the two lists differ\n");
    std::exit(EXIT_FAILURE);
  }
  std::nth_element(times.begin(), times.begin() + runs / 2, times.end());
  return times[static_cast<size_t>(runs / 2)];
}

}  // namespace

int main() {
  if (SystemPath("/") == "/") {
    std::fprintf(stderr, "bench_apps plants packages: it needs a set root (VEXILO_ROOT)\n");
    return EXIT_FAILURE;
  }
  PlantApplications();
  vconf_set_int(QUVA::kConsentKey, 1);
  const TaskManagerStandIn taskManager(kAnswerTime, "2048|1024");
  const std::vector<long long> expected = PooledList(*CGetData::GetInstance());
  if (expected.size() != kApplications) {
    std::fprintf(stderr, "%zu applications in the list instead of %d\n", expected.size(), kApplications);
    return EXIT_FAILURE;
  }
  const double pooled = Measure(kRuns, PooledList, expected);
  const double serial = Measure(kSerialRuns, SerialList, expected);
  std::printf("list of %d applications, answers in %d ms: %.0f ms; one after the other: %.0f ms; ratio %.2f\n",
              kApplications, static_cast<int>(kAnswerTime.count()), pooled, serial, pooled / serial);
  return EXIT_SUCCESS;
}
