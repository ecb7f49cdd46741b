#pragma once
/// @file
/// An error report as the tool reads it, and its summary for people.
///
/// Everything runs on the main thread.

#include <json/value.h>

#include <ctime>
#include <string>
#include <vector>

namespace vexiloctl {

struct ReportFile {
  std::string name;
  std::string content;
  time_t time = 0;  ///< when it was collected
};

/// What an error report holds.
struct ReportContent {
  std::vector<ReportFile> files;
  Json::Value meta;  ///< of its meta.json; null when it has none
};

/// Every value in a row of two cells: "set.model", "QX55".
void AddFacts(const std::string& prefix, const Json::Value& value, class Table& table);

/// What the report of that file name is about, what is in it and what is missing, and what was left out for privacy, as
/// the placeholders in its files tell (docs/setd.md). Plain English text in lines.
std::string SummaryOf(const std::string& name, const ReportContent& content);

}  // namespace vexiloctl
