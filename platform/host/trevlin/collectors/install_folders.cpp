#include "trevlin/collectors/install_folders.h"

#include "trevlin/collectors/readings.h"

namespace trevlin {

namespace {

constexpr const char* kLibraries[] = {"/run/opengl-driver/lib", "/usr/lib", "/usr/lib64", "/usr/local/lib"};

}  // namespace

InstallFolders::InstallFolders(const Machine& machine) {
  for (const std::string folder : kLibraries) {
    Add(machine, folder);
    for (const std::string& name : ListNames(machine, folder))
      if (name.find("-linux-") != name.npos) Add(machine, folder + "/" + name);
  }
}

void InstallFolders::Add(const Machine& machine, const std::string& folder) {
  libraries.push_back(folder);
  plugins.push_back(folder + "/gstreamer-1.0");
  drivers.push_back(folder + "/va/drivers");
  for (const std::string& name : ListNames(machine, folder))
    if (name == "dri" || name.starts_with("dri-")) drivers.push_back(folder + "/" + name);
}

}  // namespace trevlin
