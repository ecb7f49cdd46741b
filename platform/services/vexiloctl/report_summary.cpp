#include "report_summary.h"

#include <algorithm>
#include <cctype>
#include <map>
#include <set>
#include <string_view>

#include "applications.h"
#include "command.h"
#include "setd/placeholder_kinds.h"

namespace vexiloctl {

namespace {

using Placeholders = std::map<std::string_view, std::set<std::string_view>>;

// A report has no room for a million things of a kind.
constexpr size_t kMostDigits = 6;

/// Adds the placeholders of the text, by kind; they refer to it.
void Collect(std::string_view text, Placeholders& found) {
  for (size_t at = 0; (at = text.find('<', at)) != text.npos; ++at) {
    const std::string_view rest = text.substr(at + 1);
    for (const auto& each : setd::kPlaceholderKinds) {
      if (!rest.starts_with(each.name) || !rest.substr(each.name.size()).starts_with('-')) continue;
      const size_t number = each.name.size() + 1;
      const size_t end = std::min(rest.find_first_not_of("0123456789", number), rest.size());
      const bool isNumber = end > number && end <= number + kMostDigits && rest[number] != '0';
      if (isNumber && rest.substr(end).starts_with('>')) found[each.name].insert(rest.substr(0, end));
    }
  }
}

std::string Section(const std::string& title, const std::string& text) {
  return "\n" + title + "\n" + std::string(title.size(), '-') + "\n\n" + text;
}

std::string Missing(const Json::Value& meta) {
  const Json::Value& missing = meta.isObject() ? meta["missing"] : meta;
  if (!missing.isObject()) return "Not known: the report does not tell.\n";
  if (missing.empty()) return "Nothing is missing.\n";
  Table table({"FILE", "REASON"});
  AddFacts("", missing, table);
  return table.Text();
}

std::string LeftOut(const ReportContent& content) {
  Placeholders found;
  for (const ReportFile& file : content.files) Collect(file.content, found);
  if (found.empty()) return "Nothing private was found in these files.\n";
  std::string text =
      "In the place of each of these stands a placeholder with a number, like <mac-1>; the same placeholder\n"
      "is the same thing in all files of this report.\n\n";
  for (const auto& each : setd::kPlaceholderKinds)
    if (const size_t count = found[each.name].size())
      text += "  " + std::to_string(count) + " " + (count == 1 ? each.one : each.more) + "\n";
  return text;
}

}  // namespace

void AddFacts(const std::string& prefix, const Json::Value& value, Table& table) {
  if (!value.isObject()) {
    std::string text = value.isString() ? value.asString() : JsonLine(value);
    if (text.ends_with('\n')) text.pop_back();
    table.Add({prefix, text});
    return;
  }
  for (const std::string& key : value.getMemberNames())
    AddFacts(prefix.empty() ? key : prefix + "." + key, value[key], table);
}

std::string SummaryOf(const std::string& name, const ReportContent& content) {
  Table facts({"FACT", "VALUE"}), files({"SIZE", "FILE"});
  Json::Value about = content.meta;
  for (const char* told : {"missing", "files"})
    if (about.isObject()) about.removeMember(told);
  AddFacts("", about, facts);
  for (const ReportFile& file : content.files)
    files.Add({SizeText(static_cast<int64_t>(file.content.size())), file.name});
  const std::string title = "Error report " + Visible(name);
  return title + "\n" + std::string(title.size(), '=') + "\n" +
         Section("What it is about", about.isNull() ? "Not known: the report has no meta.json.\n" : facts.Text()) +
         Section("Files", files.Text()) + Section("What is missing", Missing(content.meta)) +
         Section("What was left out for privacy", LeftOut(content));
}

}  // namespace vexiloctl
