// A file includes only from its own floor or below (docs/architecture.md), and no two units include each other. The
// floors of the application are those of the lists in src/CMakeLists.txt.

#include "support/test.h"

namespace {

struct Include {
  std::string place;  ///< "src/CGetData.cpp:12"
  std::string from;   ///< a path in the tree, as the next one
  std::string to;     ///< as it is written where there is no such file
};

bool IsBelow(const std::string& path, const std::string& folder) {
  return path.starts_with(folder + "/");
}

bool IsOfApplication(const std::string& path) {
  return IsBelow(path, "src") || IsBelow(path, "inc");
}

class Tree {
 public:
  explicit Tree(fs::path root) : m_root(std::move(root)) {
    ReadFloors();
    for (const char* folder :
         {"src", "inc", "plugins", "platform/include", "platform/host", "platform/services", "platform/tools"})
      if (fs::exists(m_root / folder))
        for (const auto& file : fs::recursive_directory_iterator(m_root / folder))
          if (file.path().extension() == ".cpp" || file.path().extension() == ".h")
            ReadIncludes(fs::relative(file.path(), m_root));
  }

  size_t CountIncludes() const { return m_includes.size(); }

  /// What goes up, a line for each include.
  std::vector<std::string> Upwards() const {
    std::vector<std::string> found;
    for (const Include& include : m_includes)
      if (const std::string problem = ProblemOf(include); !problem.empty())
        found.push_back(include.place + ": " + include.to + " " + problem);
    return found;
  }

  /// The includes of one circle by which a unit leads back to itself; empty when none does.
  std::vector<std::string> Circle() const {
    std::map<std::string, std::map<std::string, std::string>> units;
    for (const Include& include : m_includes) {
      const std::string from = UnitOf(include.from), to = UnitOf(include.to);
      if (from != to) units[from].emplace(to, include.place + ": " + include.to);
    }
    // What includes nothing that is left is in no circle. The others lead on for ever, and so to one.
    do
      for (auto& [unit, targets] : units)
        std::erase_if(targets, [&](const auto& target) { return !units.contains(target.first); });
    while (std::erase_if(units, [](const auto& unit) { return unit.second.empty(); }) > 0);
    if (units.empty()) return {};
    std::vector<std::string> way, found;
    std::string next = units.begin()->first;
    while (std::ranges::find(way, next) == way.end()) {
      way.push_back(next);
      next = units.at(next).begin()->first;
    }
    for (auto unit = std::ranges::find(way, next); unit != way.end(); ++unit)
      found.push_back(units.at(*unit).begin()->second);
    return found;
  }

 private:
  void ReadFloors() {
    std::ifstream lists(m_root / "src/CMakeLists.txt");
    bool isCore = false;
    int floor = 0;
    for (std::string line; std::getline(lists, line);) {
      if (line.starts_with("set(")) isCore = line == "set(CORE_SOURCES";
      if (line.starts_with("  # Floor: ")) {
        m_names[++floor] = line.substr(11);
        if (isCore) m_coreFloors = floor;
      } else if (line.starts_with("  ") && (line.ends_with(".cpp") || line.ends_with(".h"))) {
        m_floors[fs::path(line.substr(2)).stem()] = floor;
      }
    }
  }

  void ReadIncludes(const std::string& path) {
    static const std::string kStart = "#include \"";
    std::ifstream file(m_root / path);
    int number = 0;
    for (std::string line; std::getline(file, line);) {
      ++number;
      if (line.starts_with(kStart))
        m_includes.push_back({path + ":" + std::to_string(number), path,
                              Find(path, line.substr(kStart.size(), line.rfind('"') - kStart.size()))});
    }
  }

  std::string Find(const fs::path& from, const std::string& name) const {
    for (const fs::path& folder : {from.parent_path(), fs::path("inc"), fs::path("platform/include"),
                                   fs::path("platform/host"), fs::path("platform/services")})
      if (fs::exists(m_root / folder / name)) return (folder / name).lexically_normal();
    return name;
  }

  /// 0 for what is in no list.
  int FloorOf(const std::string& path) const {
    const auto found = m_floors.find(fs::path(path).stem());
    return found == m_floors.end() ? 0 : found->second;
  }

  std::string ProblemOf(const Include& include) const {
    const auto& [place, from, to] = include;
    if (!fs::exists(m_root / to)) return "is not there";
    if (IsBelow(to, "platform/include")) return "";
    if (IsBelow(from, "platform/include")) return "is no part of the interface";
    if (IsBelow(from, "platform/host")) return IsBelow(to, "platform/host") ? "" : "is not of the host platform";
    if (IsOfApplication(from) && FloorOf(from) == 0) return "is included by what is in no list of src/CMakeLists.txt";
    if (IsOfApplication(to)) {
      // Plug-ins and tools stand on the whole core.
      const int highest = IsOfApplication(from) ? FloorOf(from) : m_coreFloors;
      const int floor = FloorOf(to);
      if (floor == 0) return "is in no list of src/CMakeLists.txt";
      // The test tools have screens of their own, in the same window.
      if (IsBelow(from, "platform/tools") && m_names.at(floor) != "screens") return "";
      return floor <= highest ? "" : "is on a floor above: " + m_names.at(floor);
    }
    if (IsOfApplication(from) || IsBelow(from, "plugins"))
      return IsBelow(to, from.substr(0, from.find('/'))) ? "" : "is not of the platform interface";
    return IsBelow(to, "platform") ? "" : "is a plug-in's";
  }

  /// The files of a class are a unit: CGetDataLaunch.cpp is of CGetData.h.
  std::string UnitOf(const std::string& path) const {
    if (!IsOfApplication(path)) return fs::path(path).replace_extension();
    for (std::string stem = fs::path(path).stem(); !stem.empty(); stem.pop_back())
      if (fs::exists(m_root / "inc" / (stem + ".h"))) return stem;
    return fs::path(path).stem();
  }

  const fs::path m_root;
  std::map<std::string, int> m_floors;  ///< by the names of the files without extension
  std::map<int, std::string> m_names;   ///< of the floors
  int m_coreFloors = 0;
  std::vector<Include> m_includes;
};

TEST(Floors, NoFileIncludesFromAFloorAbove) {
  const Tree tree(VEXILO_SOURCE_DIR);
  EXPECT_GT(tree.CountIncludes(), 500u);
  EXPECT_THAT(tree.Upwards(), IsEmpty());
}

TEST(Floors, NoUnitLeadsBackToItself) {
  EXPECT_THAT(Tree(VEXILO_SOURCE_DIR).Circle(), IsEmpty());
}

// ---- that it is noticed

class PlantedFloors : public testing::Test {
 protected:
  PlantedFloors() {
    Write("src/CMakeLists.txt",
          "set(CORE_SOURCES\n  # Floor: ground\n  ../inc/Record.h\n  # Floor: service\n  Service.cpp\n)\n"
          "set(SCREEN_SOURCES\n  # Floor: screens\n  Screen.cpp\n  ScreenPart.cpp\n)\n");
    for (const char* file : {"inc/Record.h", "inc/Unlisted.h", "platform/include/log.h", "platform/host/base/file.h",
                             "platform/services/tool/tool.h", "plugins/parser/actions.h"})
      Write(file, "");
    Write("inc/Service.h", "#include \"Record.h\"\n#include \"log.h\"\n");
    Write("inc/Screen.h", "#include \"Service.h\"\n");
    Write("src/ScreenPart.cpp", "#include \"Screen.h\"\n");
    Write("src/Screen.cpp", "#include \"Screen.h\"\n");
  }

  void Write(const std::string& path, const std::string& text) const {
    fs::create_directories((m_root / path).parent_path());
    std::ofstream(m_root / path) << text;
  }

  const fs::path m_root = fs::path(std::getenv("VEXILO_ROOT")) / "tree";
};

TEST_F(PlantedFloors, WhatGoesUpIsNamedWithFileAndLine) {
  EXPECT_THAT(Tree(m_root).Upwards(), IsEmpty());
  const struct {
    const char* file;
    const char* includes;
    const char* problem;
  } cases[] = {
      {"src/Service.cpp", "Screen.h", "inc/Screen.h is on a floor above: screens"},
      {"inc/Record.h", "Service.h", "inc/Service.h is on a floor above: service"},
      {"src/Service.cpp", "base/file.h", "platform/host/base/file.h is not of the platform interface"},
      {"src/Service.cpp", "Unlisted.h", "inc/Unlisted.h is in no list of src/CMakeLists.txt"},
      {"src/New.cpp", "Record.h", "inc/Record.h is included by what is in no list of src/CMakeLists.txt"},
      {"src/Service.cpp", "Gone.h", "Gone.h is not there"},
      {"plugins/parser/plugin.cpp", "Screen.h", "inc/Screen.h is on a floor above: screens"},
      {"plugins/parser/plugin.cpp", "base/file.h", "platform/host/base/file.h is not of the platform interface"},
      {"platform/services/tool/main.cpp", "Screen.h", "inc/Screen.h is on a floor above: screens"},
      {"platform/tools/test.cpp", "Screen.h", "inc/Screen.h is on a floor above: screens"},
      {"platform/host/base/file.cpp", "Record.h", "inc/Record.h is not of the host platform"},
      {"platform/include/log.h", "base/file.h", "platform/host/base/file.h is no part of the interface"},
  };
  for (const auto& each : cases) {
    const fs::path file = m_root / each.file;
    const bool isNew = !fs::exists(file);
    Write(each.file, "\n#include \"log.h\"\n#include \"" + std::string(each.includes) + "\"\n");
    EXPECT_THAT(Tree(m_root).Upwards(), ElementsAre(std::string(each.file) + ":3: " + each.problem));
    isNew ? static_cast<void>(fs::remove(file)) : Write(each.file, "");
  }
  Write("plugins/parser/plugin.cpp", "#include \"actions.h\"\n#include \"Service.h\"\n");
  Write("platform/services/tool/main.cpp",
        "#include \"tool/tool.h\"\n#include \"Service.h\"\n#include \"base/file.h\"\n");
  EXPECT_THAT(Tree(m_root).Upwards(), IsEmpty()) << "these stand on the core";
}

TEST_F(PlantedFloors, UnitsThatLeadBackToThemselvesAreNamed) {
  EXPECT_THAT(Tree(m_root).Circle(), IsEmpty());
  Write("inc/Record.h", "#include \"Service.h\"\n");
  EXPECT_THAT(Tree(m_root).Circle(), ElementsAre("inc/Record.h:1: inc/Service.h", "inc/Service.h:1: inc/Record.h"));
  Write("inc/Record.h", "#include \"Screen.h\"\n");
  EXPECT_THAT(Tree(m_root).Circle(), ElementsAre("inc/Record.h:1: inc/Screen.h", "inc/Screen.h:1: inc/Service.h",
                                                 "inc/Service.h:1: inc/Record.h"));
}

}  // namespace
