#include "CSolutionPlan.h"

#include <algorithm>
#include <vector>

#include "CScreen.h"
#include "CUtils.h"
#include "elm_flux.h"

namespace QUVA {

namespace {

// The largest text has room for so many beside the sentences.
constexpr size_t kThingsListed = 4;
constexpr size_t kThingsListedOfMany = 2;  // when applications and files take a sentence each, or something stays
constexpr size_t kAppsTold = 2;
constexpr size_t kFilesTold = 1;

constexpr double kGap = 1.5;  // units

bool Has(const SolutionPlan& plan, PlannedKind kind) {
  return std::ranges::any_of(plan.things, [kind](const PlannedThing& thing) { return thing.kind == kind; });
}

std::string NameOf(const PlannedThing& thing) {
  return thing.kind == PlannedKind::kApp ? thing.name : CUtils::m_GetText(thing.name.c_str());
}

size_t Listed(const SolutionPlan& plan) {
  const bool both = Has(plan, PlannedKind::kApp) && Has(plan, PlannedKind::kHoard);
  return std::min(plan.things.size(), both || !plan.kept.empty() ? kThingsListedOfMany : kThingsListed);
}

/// What is not listed.
int64_t BytesBeyond(const SolutionPlan& plan) {
  int64_t bytes = 0;
  for (size_t i = Listed(plan); i < plan.things.size(); ++i) bytes += plan.things[i].bytes;
  return bytes;
}

std::string AndMore(size_t count) {
  return CUtils::m_GetTextWith("TV_SID_VEXILO_MIX_AND_MORE", std::to_string(count));
}

/// "One, Two and 4 more"
std::string Names(const std::vector<PlannedThing>& things, size_t most) {
  std::string names;
  for (size_t i = 0; i < std::min(things.size(), most); ++i) names += (i ? ", " : "") + NameOf(things[i]);
  return things.size() > most ? names + " " + AndMore(things.size() - most) : names;
}

/// The largest with its size, and how many more.
std::string Kept(const SolutionPlan& plan) {
  const PlannedThing& first = plan.kept.front();
  const std::string text = NameOf(first) + " (" + CUtils::m_ConvertBytes(first.bytes) + ")";
  return plan.kept.size() > 1 ? text + " " + AndMore(plan.kept.size() - 1) : text;
}

/// "2.50GB → 3.50GB (+1.00GB)", from left to right in every language (Unicode's isolates).
std::string FreeStorage(const SolutionEffect& effect) {
  std::string text = CUtils::m_ConvertBytes(effect.freeBefore) + " → " + CUtils::m_ConvertBytes(effect.freeAfter);
  if (effect.freeAfter > effect.freeBefore)
    text += " (+" + CUtils::m_ConvertBytes(effect.freeAfter - effect.freeBefore) + ")";
  return "\u2066" + text + "\u2069";
}

/// All that the popup says, for who hears it.
std::string Spoken(const SolutionPlan& plan, const std::vector<std::string>& sentences) {
  std::string text;
  for (const std::string& sentence : sentences) text += (text.empty() ? "" : " ") + sentence;
  for (size_t i = 0; i < Listed(plan); ++i)
    text += (i ? ", " : " ") + NameOf(plan.things[i]) + " " + CUtils::m_ConvertBytes(plan.things[i].bytes);
  if (plan.things.size() > Listed(plan))
    text += ", " + AndMore(plan.things.size() - Listed(plan)) + " " + CUtils::m_ConvertBytes(BytesBeyond(plan));
  return text;
}

void AddSentence(Evas_Object* parent, const std::string& text, const char* color) {
  Evas_Object* const sentence = AddText(parent, text, FLUX_FONT_400, color, FLUX_TEXT_ROW, FLUX_ALIGN_LEFT, 0, 0);
  elm_flux_expand_set(sentence, true);
  elm_flux_text_lines_set(sentence, 2);
}

void AddRow(Evas_Object* parent, const std::string& name, const std::string& size) {
  Evas_Object* const row = AddLayout(parent, FLUX_LAYOUT_HORIZONTAL, FLUX_ALIGN_CENTER, 0, 0);
  elm_flux_expand_set(row, true);
  Evas_Object* const text = AddText(row, name, FLUX_FONT_600, kTextColor, FLUX_TEXT_ROW, FLUX_ALIGN_LEFT, 0, 0);
  elm_flux_expand_set(text, true);
  AddText(row, size, FLUX_FONT_400, kFaintTextColor, FLUX_TEXT_ROW, FLUX_ALIGN_RIGHT, 0, 0);
}

}  // namespace

void ShowPlan(Evas_Object* popup, const SolutionPlan& plan) {
  std::vector<std::string> sentences;
  if (Has(plan, PlannedKind::kApp)) sentences.push_back(CUtils::m_GetText("TV_SID_VEXILO_APPS_CLOSE"));
  if (Has(plan, PlannedKind::kHoard)) sentences.push_back(CUtils::m_GetText("TV_SID_VEXILO_FILES_GO"));
  Evas_Object* const content = elm_flux_layout_add(popup, FLUX_LAYOUT_VERTICAL, FLUX_ALIGN_TOP);
  elm_flux_layout_gap_set(content, kGap);
  for (const std::string& sentence : sentences) AddSentence(content, sentence, kTextColor);
  for (size_t i = 0; i < Listed(plan); ++i)
    AddRow(content, NameOf(plan.things[i]), CUtils::m_ConvertBytes(plan.things[i].bytes));
  if (plan.things.size() > Listed(plan))
    AddRow(content, AndMore(plan.things.size() - Listed(plan)), CUtils::m_ConvertBytes(BytesBeyond(plan)));
  if (!plan.kept.empty())
    AddSentence(content, CUtils::m_GetTextWith("TV_SID_VEXILO_MIX_ADMINISTRATOR", Kept(plan)), kFaintTextColor);
  elm_object_content_set(popup, content);
  elm_flux_popup_text_set(popup, Spoken(plan, sentences));
}

std::string EffectText(const SolutionEffect& effect, const SolutionPlan& plan) {
  std::string text;
  const auto add = [&text](const char* sid, const std::string& value) {
    text += (text.empty() ? "" : " ") + CUtils::m_GetTextWith(sid, value);
  };
  std::vector<PlannedThing> apps = effect.things, files = effect.things;
  std::erase_if(apps, [](const PlannedThing& thing) { return thing.kind != PlannedKind::kApp; });
  std::erase_if(files, [](const PlannedThing& thing) { return thing.kind != PlannedKind::kHoard; });
  if (!apps.empty()) {
    add("TV_SID_VEXILO_MIX_CLOSED", Names(apps, kAppsTold));
    add("TV_SID_VEXILO_MIX_MEMORY_FREED", CUtils::m_ConvertBytes(effect.memory));
  }
  if (!files.empty()) add("TV_SID_VEXILO_MIX_REMOVED", Names(files, kFilesTold));
  if (effect.isCleaned) add("TV_SID_VEXILO_MIX_FREE_STORAGE", FreeStorage(effect));
  // Who was asked has read it.
  if (effect.isCleaned && plan.things.empty() && !plan.kept.empty()) add("TV_SID_VEXILO_MIX_ADMINISTRATOR", Kept(plan));
  return text;
}

}  // namespace QUVA
