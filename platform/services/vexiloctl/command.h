#pragma once
/// @file
/// What the commands of vexiloctl share: how they are described, how they print, and how they fail.
///
/// Everything runs on the main thread. A command returns when it is done and throws when it is not.

#include <json/value.h>

#include <ctime>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace vexiloctl {

enum ExitCode { kDone = 0, kFailed = 1, kUsage = 2 };

/// Ends the program with kFailed. The message names the thing and the reason.
struct Failure : std::runtime_error {
  using runtime_error::runtime_error;
};

/// Ends the program with kUsage and a hint at the help of the command.
struct UsageError : std::runtime_error {
  using runtime_error::runtime_error;
};

/// Ends the program with kDone: whoever read the output has seen enough.
struct OutputClosed {};

/// The command line after its group, command and options.
struct Arguments {
  std::vector<std::string> values;
  bool json = false;
  bool option = false;  ///< the command's own option was given
};

struct Command {
  const char* group;
  const char* name;       ///< "list", "rules list"; empty for a group that is a command itself
  const char* arguments;  ///< "KEY TYPE VALUE"
  size_t minimum;         ///< number of arguments
  size_t maximum;
  bool lists;           ///< takes --json
  const char* purpose;  ///< one sentence
  const char* help;     ///< what the arguments mean, in lines
  const char* example;
  void (*run)(const Arguments&);
  const char* option = "";  ///< the one that is its own, "--all"; else empty
  const char* optionHelp = "";
};

// setting_commands.cpp
void SettingGet(const Arguments& arguments);
void SettingSet(const Arguments& arguments);
void SettingWatch(const Arguments& arguments);
// engine_commands.cpp
void EngineList(const Arguments& arguments);
void EngineRecord(const Arguments& arguments);
void EngineSolutions(const Arguments& arguments);
// inference_commands.cpp
void EngineRun(const Arguments& arguments);
void EngineFacts(const Arguments& arguments);
void EngineRulesCheck(const Arguments& arguments);
void EngineRulesList(const Arguments& arguments);
// record_commands.cpp
void RemainingList(const Arguments& arguments);
void Events(const Arguments& arguments);
void Result(const Arguments& arguments);
// app_commands.cpp
void AppsList(const Arguments& arguments);
void AppsSize(const Arguments& arguments);
void Storage(const Arguments& arguments);
void Launch(const Arguments& arguments);
// removal_commands.cpp
void AppsClearCache(const Arguments& arguments);
void AppsClearData(const Arguments& arguments);
void AppsUninstall(const Arguments& arguments);
// report_commands.cpp
void ReportsList(const Arguments& arguments);
void ReportsShow(const Arguments& arguments);
void ReportsExport(const Arguments& arguments);
void ReportsRemove(const Arguments& arguments);

/// Writes to standard output, at the latest at Flush(). They throw Failure, or OutputClosed.
void Print(std::string_view text);
void Flush();

/// Writes "vexiloctl: MESSAGE" to standard error.
void Complain(const std::string& message);

/// A time (seconds since 1970) in the form of all times, "2024-03-07T09:05:00", local.
std::string LocalTime(time_t time);

/// The text with what is no character or would steer a terminal replaced, and in one line.
std::string Visible(std::string_view text);

/// A value in one line of JSON, ASCII only.
std::string JsonLine(const Json::Value& value);

/// Rows in aligned columns under a heading.
class Table {
 public:
  explicit Table(std::vector<std::string> heading) { Add(std::move(heading)); }
  /// As many cells as the heading has. An empty one shows as "-".
  void Add(std::vector<std::string> cells);
  std::string Text() const;
  void Print() const { vexiloctl::Print(Text()); }

 private:
  std::vector<std::vector<std::string>> m_rows;
};

/// Prints a list: a JSON object for each record and line, or a table for people.
class Listing {
 public:
  Listing(bool json, std::vector<std::string> heading) : m_json(json), m_table(std::move(heading)) {}
  template <typename ToJson, typename ToCells>
  void Add(ToJson toJson, ToCells toCells) {
    if (m_json)
      vexiloctl::Print(JsonLine(toJson()));
    else
      m_table.Add(toCells());
  }
  void Print() const {
    if (!m_json) m_table.Print();
  }

 private:
  bool m_json;
  Table m_table;
};

}  // namespace vexiloctl
