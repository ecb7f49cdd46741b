#pragma once
/// @file
/// A machine made of files, for collectors.

#include <filesystem>
#include <fstream>
#include <map>
#include <optional>
#include <string>

#include "system_path.h"
#include "trevlin/facts.h"

/// Path of the machine -> content.
using Files = std::map<std::string, std::string>;

/// A machine below the test's set root, apart from the set itself; gone with that.
class CapturedMachine {
 public:
  CapturedMachine(const CapturedMachine&) = delete;
  explicit CapturedMachine(const Files& files) {
    static int count = 0;
    m_machine.root = SystemPath("/captured-" + std::to_string(++count));
    std::filesystem::create_directories(m_machine.root);
    Write(files);
  }

  void Write(const Files& files) const {
    for (const auto& [path, content] : files) {
      std::filesystem::create_directories(std::filesystem::path(m_machine.Path(path)).parent_path());
      std::ofstream(m_machine.Path(path), std::ios::binary) << content;
    }
  }
  void Remove(const std::string& path) const { std::filesystem::remove_all(m_machine.Path(path)); }

  trevlin::Facts Collect(trevlin::Collector& collector) const {
    trevlin::Facts facts;
    collector.Collect(m_machine, facts);
    return facts;
  }

  const trevlin::Machine& Get() const { return m_machine; }

 private:
  trevlin::Machine m_machine;
};
