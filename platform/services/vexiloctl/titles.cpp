#include "titles.h"

#include <libintl.h>

#include "SettingsKeys.h"
#include "SolutionMap.h"
#include "Texts.h"
#include "command.h"
#include "set_paths.h"
#include "settings/menu_language.h"
#include "system_path.h"

namespace vexiloctl {

namespace {

/// What there is of the map. A complaint tells why not all.
QUVA::QUVA_SolutionMap ReadMap() {
  QUVA::QUVA_SolutionMap map;
  std::string problem;
  const bool isRead = ReadSolutionMap(map, problem);
  if (!problem.empty())
    Complain(std::string(set_paths::kSolutionMap) + ": " + problem + (isRead ? "" : "; titles are missing"));
  return map;
}

}  // namespace

Titles::Titles() {
  ApplyMenuLanguage();
  bindtextdomain(QUVA::kApplicationId, SystemPath(set_paths::kLocaleDir).c_str());
  bind_textdomain_codeset(QUVA::kApplicationId, "UTF-8");
  for (QUVA::QUVA_Solution& solution : ReadMap().solutions)
    m_messageIds.try_emplace(QUVA::NumberOf(solution.issue_code), std::move(solution.sid_issue));
}

bool Titles::HasIssue(int code) const {
  return m_messageIds.contains(code);
}

std::string Titles::OfIssue(const std::string& code) const {
  const auto found = m_messageIds.find(QUVA::NumberOf(code));
  return found == m_messageIds.end() ? "" : OfMessage(found->second);
}

std::string Titles::OfIssue(int code) const {
  return OfIssue(std::to_string(code));
}

std::string Titles::OfMessage(const std::string& id) const {
  return QUVA::GetText(id.c_str());
}

}  // namespace vexiloctl
