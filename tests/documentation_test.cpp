// The file map of docs/architecture.md and the tree say the same.

#include "support/test.h"

namespace {

const fs::path kTree = VEXILO_SOURCE_DIR;

/// The paths between backticks of the map's rows; a name without a folder may be a program.
std::set<std::string> MappedPaths() {
  std::ifstream page(kTree / "docs/architecture.md");
  std::set<std::string> paths;
  bool inMap = false;
  for (std::string line; std::getline(page, line);) {
    if (line == "## File map") inMap = true;
    if (!inMap || line.empty() || line[0] != '|') continue;
    for (size_t from = line.find('`'); from != std::string::npos; from = line.find('`', from + 1)) {
      const size_t to = line.find('`', from + 1);
      const std::string path = line.substr(from + 1, to - from - 1);
      if (from == 2 || path.find('/') != std::string::npos) paths.insert(path);
      from = to;
    }
  }
  return paths;
}

TEST(FileMap, NamesOnlyWhatIsThere) {
  const auto paths = MappedPaths();
  EXPECT_GT(paths.size(), 40u);
  for (const std::string& path : paths) EXPECT_TRUE(fs::exists(kTree / path)) << path;
}

TEST(FileMap, NamesEverySourceAndFolder) {
  const auto paths = MappedPaths();
  for (const auto& file : fs::directory_iterator(kTree / "src")) {
    // The parts of a class stand in the row of the class: CGetDataLaunch.cpp in that of CGetData.cpp.
    const std::string path = "src/" + file.path().filename().string();
    const std::string stem = path.substr(0, path.rfind('.'));
    const bool named = std::any_of(paths.begin(), paths.end(), [&](const std::string& mapped) {
      return mapped.starts_with("src/") && stem.starts_with(mapped.substr(0, mapped.rfind('.')));
    });
    EXPECT_TRUE(named || file.path().extension() != ".cpp") << path;
  }
  for (const char* parent : {"platform/host", "platform/services", "plugins", "res"})
    for (const auto& folder : fs::directory_iterator(kTree / parent))
      EXPECT_TRUE(!folder.is_directory() || paths.count(fs::relative(folder.path(), kTree).string())) << folder;
}

}  // namespace
