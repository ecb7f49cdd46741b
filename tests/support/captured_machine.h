#pragma once
/// @file
/// A machine made of files, for collectors, and facts as text.

#include "support/test.h"
#include "system_path.h"
#include "trevlin/facts.h"

/// Path of the machine -> content.
using Files = std::map<std::string, std::string>;

/// `files` with `others` added, or in their places.
inline Files With(Files files, const Files& others) {
  for (const auto& [path, content] : others) files[path] = content;
  return files;
}

/// The files below /sys/ that a text has as "path=line" between blanks.
inline Files Sys(const std::string& text) {
  Files files;
  std::istringstream words(text);
  for (std::string word; words >> word;)
    files["/sys/" + word.substr(0, word.find('='))] = word.substr(word.find('=') + 1) + "\n";
  return files;
}

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

/// "yes", "71.5" (to six digits), "wired"; "?" for what is not known.
inline std::string Told(const trevlin::FactValue& value) {
  if (const auto* truth = std::get_if<bool>(&value)) return *truth ? "yes" : "no";
  if (const auto* text = std::get_if<std::string>(&value)) return *text;
  std::ostringstream digits;
  if (const auto* number = std::get_if<double>(&value)) digits << *number;
  return digits.view().empty() ? "?" : digits.str();
}

/// The facts of a text with "name=value" between blanks, each value as Told() gives it.
inline trevlin::Facts FactsOf(const std::string& text) {
  trevlin::Facts facts;
  std::istringstream words(text);
  for (std::string word; words >> word;) {
    const size_t equals = word.find('=');
    const std::string value = word.substr(equals + 1);
    trevlin::FactValue& fact = facts[word.substr(0, equals)];
    char* end;
    const double number = std::strtod(value.c_str(), &end);
    if (value == "yes" || value == "no")
      fact = value == "yes";
    else if (!value.empty() && *end == '\0')
      fact = number;
    else if (value == "-")
      fact = trevlin::Absent{};
    else if (value != "?")
      fact = value;
  }
  return facts;
}
