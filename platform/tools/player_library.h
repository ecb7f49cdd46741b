#pragma once
/// @file
/// Libraries that one tool alone loads, when it needs them. Any thread.

#include <dlfcn.h>

#include <memory>
#include <string>

#include "system_path.h"

namespace tools {

/// Loads the library at `path` of the set and has it make what its function `symbol` makes. Null with the reason where
/// it, or a library that it needs, is not on this machine. It stays loaded.
template <class Player>
std::unique_ptr<Player> LoadPlayer(const char* path, const char* symbol, std::string& reason) {
  void* const library = dlopen(SystemPath(path).c_str(), RTLD_NOW);
  void* const make = library ? dlsym(library, symbol) : nullptr;
  if (!make) return reason = dlerror(), nullptr;
  return std::unique_ptr<Player>(reinterpret_cast<Player* (*)()>(make)());
}

}  // namespace tools
