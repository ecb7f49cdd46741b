// What is installed is built so that a fault is hard to use: each program and library, as the linker left it.

#include <regex>

#include "support/process.h"
#include "support/test.h"

namespace {

bool IsElf(const fs::path& file) {
  char magic[4] = "";
  std::ifstream(file, std::ios::binary).read(magic, sizeof magic);
  return std::string_view(magic, sizeof magic) == "\177ELF";
}

std::string DescriptionOf(const fs::path& elf) {
  const ProcessResult read =
      RunProcess({"readelf", "--wide", "--file-header", "--program-headers", "--dynamic", "--dyn-syms", elf},
                 {.env = {{"LC_ALL", "C"}}});
  if (read.exitCode != 0) throw std::runtime_error(read.err);
  return read.out;
}

struct Demand {
  const char* what;
  std::regex seenAs;  // in a line of the description
};

TEST(HardeningTest, WhatIsInstalledIsHardened) {
  const Demand kOfAll[] = {
      {"lies at any address", std::regex("Type: +DYN ")},
      {"tables of the loader are read-only", std::regex("GNU_RELRO .* R +0x")},
      {"and filled in at the start, all of them", std::regex("\\(FLAGS\\) .*BIND_NOW")},
      {"stack is no code", std::regex("GNU_STACK .* RW +0x")},
  };
  const Demand kOfCode[] = {
      {"stack is checked", std::regex(" __stack_chk_fail@")},
      {"lengths are checked", std::regex(" __\\w+_chk@")},
  };
  const std::string root = std::getenv("VEXILO_ROOT") + "/set"s;
  const ProcessResult installed =
      RunProcess({"cmake", "-P", VEXILO_BINARY_DIR "/cmake_install.cmake"}, {.env = {{"DESTDIR", root}}});
  ASSERT_EQ(installed.exitCode, 0) << installed.err;

  std::set<std::string> names;
  for (const auto& entry : fs::recursive_directory_iterator(root)) {
    if (!entry.is_regular_file() || entry.is_symlink() || !IsElf(entry)) continue;
    const std::string name = entry.path().filename();
    names.insert(name);
    const std::string description = DescriptionOf(entry);
    const auto check = [&](const Demand& demand) {
      EXPECT_TRUE(std::regex_search(description, demand.seenAs)) << name << ": not so: " << demand.what;
    };
    std::ranges::for_each(kOfAll, check);
    // All are compiled in one way; only these have something of each kind. A sanitizer brings its own checks instead.
    if (!IS_SANITIZED && (name == "libvexilo_host.so" || name == "libvexilo-core.so"))
      std::ranges::for_each(kOfCode, check);
  }
  EXPECT_THAT(names, testing::IsSupersetOf({"libchecker_settings.so", "libchecker_sysinfo.so", "libquva_parser.so",
                                            "libvexilo-core.so", "libvexilo.so", "libvexilo_host.so",
                                            "libvexilo_host_app.so", "libvexilo_host_flux.so", "vexilo",
                                            "vexilo-flatpak", "vexilo-setd", "vexilo-standin", "vexiloctl"}));
}

}  // namespace
