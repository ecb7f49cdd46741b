#include "trevlin/collectors/install_folders.h"

#include "trevlin/collectors/readings.h"

namespace trevlin {

namespace {

std::vector<std::string> Below(const std::vector<std::string>& folders, std::initializer_list<const char*> names) {
  std::vector<std::string> all;
  for (const std::string& folder : folders)
    for (const char* name : names) all.push_back(folder + "/" + name);
  return all;
}

}  // namespace

std::vector<std::string> LibraryFolders(const Machine& machine) {
  std::vector<std::string> folders;
  for (const std::string folder : {"/run/opengl-driver/lib", "/usr/lib", "/usr/lib64", "/usr/local/lib"}) {
    folders.push_back(folder);
    for (const std::string& name : ListNames(machine, folder))
      if (name.find("-linux-") != name.npos) folders.push_back(folder + "/" + name);
  }
  return folders;
}

std::vector<std::string> PluginFolders(const Machine& machine) {
  return Below(LibraryFolders(machine), {"gstreamer-1.0"});
}

std::vector<std::string> GraphicsDriverFolders(const Machine& machine) {
  return Below(LibraryFolders(machine), {"dri", "dri-freeworld", "dri-nonfree", "va/drivers"});
}

}  // namespace trevlin
