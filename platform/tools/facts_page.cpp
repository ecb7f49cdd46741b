#include "facts_page.h"

#include <algorithm>
#include <utility>

#include "CUtils.h"
#include "flux_resources.h"

namespace tools {

namespace {

using QUVA::AddLayout;
using QUVA::CUtils;

constexpr double kTop = 4;  // units, as all sizes here
constexpr double kBottom = 6;
constexpr double kGap = 3;
constexpr double kNoteWidth = 240 - 2 * QUVA::kPageMargin;  // of the narrowest screen
constexpr char kIndent[] = "\u00A0\u00A0\u00A0";
constexpr char kIndentMirrored[] = "\u200F\u00A0\u00A0\u00A0";  // also before a name in Latin letters
constexpr double kButtonWidth = 54;
constexpr double kButtonHeight = 10;
constexpr double kButtonGap = 4;

}  // namespace

FactsPage::FactsPage(const Tool& tool) : m_tool(tool), m_screen([this] { Announce(); }) {
  CUtils::Instance().m_RegisterForReturnStack({[this] { Focus(); }, [] {}}, false);
  if (!m_screen.m_Build(tool.titleSid)) return;
  Evas_Object* const body = m_screen.m_pGetBody();
  elm_flux_layout_padding_set(body, QUVA::kPageMargin, kTop, QUVA::kPageMargin, kBottom);
  elm_flux_layout_gap_set(body, kGap);
  m_note = QUVA::AddText(body, "", FLUX_FONT_600, QUVA::kTextColor, FLUX_TEXT_BODY, FLUX_ALIGN_LEFT, kNoteWidth, 0);
  elm_flux_text_lines_set(m_note, 2);
  evas_object_hide(m_note);
  m_listArea = AddLayout(body, FLUX_LAYOUT_STACK, FLUX_ALIGN_TOP, 0, 0);
  elm_flux_expand_set(m_listArea, true);
  m_area = AddLayout(body, FLUX_LAYOUT_VERTICAL, FLUX_ALIGN_TOP, 0, 0);
  m_buttons = AddLayout(body, FLUX_LAYOUT_HORIZONTAL, FLUX_ALIGN_CENTER, 0, 0);
  elm_flux_layout_gap_set(m_buttons, kButtonGap);
  Announce();
}

void FactsPage::Announce() {
  if (!elm_config_access_get()) return;
  CUtils::m_SayVoiceGuideText(CUtils::m_GetText(m_tool.titleSid) + (m_noteText.empty() ? "" : ". " + m_noteText));
}

void FactsPage::SetNote(const std::string& text) {
  if (!m_note || text == std::exchange(m_noteText, text)) return;
  elm_object_text_set(m_note, text.c_str());
  if (text.empty()) {
    evas_object_hide(m_note);
  } else {
    evas_object_show(m_note);
    elm_flux_access_say(text.c_str());
  }
}

void FactsPage::SetFacts(std::vector<Fact> facts) {
  const auto before = static_cast<int>(m_facts.size());
  const std::vector<Fact> old = std::exchange(m_facts, std::move(facts));
  const auto now = static_cast<int>(m_facts.size());
  if (!m_listArea) return;
  if (!m_list && now > 0) return BuildList();
  if (!m_list) return;
  if (now == 0) return elm_flux_layout_clear(m_listArea), Focus();
  for (int row = before; row > now; --row) elm_flux_list_remove(m_list, row - 1);
  if (now > before) elm_flux_list_append(m_list, now - before);
  for (int row = 0; row < std::min(before, now); ++row)
    if (m_facts[static_cast<size_t>(row)] != old[static_cast<size_t>(row)]) elm_flux_list_update(m_list, row);
}

void FactsPage::BuildList() {
  m_list = elm_flux_list_add(m_listArea, FLUX_ROW_SINGLE_LINE_03);
  elm_flux_expand_set(m_list, true);
  elm_flux_list_shadows_set(m_list, getCommonResourcePath("i_img_scrollshadow_top.9"),
                            getCommonResourcePath("i_img_scrollshadow_bottom.9"));
  elm_flux_list_text_set(m_list, [this](int row, const std::string& part) { return TextOf(row, part); });
  elm_flux_list_append(m_list, static_cast<int>(m_facts.size()));
  elm_flux_layout_pack(m_listArea, m_list);
  elm_flux_access_info_set(m_list, [this] { return SpeechOf(elm_flux_list_focus_get(m_list)); });
  QUVA::OnEvent(m_list, "item,selected", [this](void* row) {
    if (m_onSelect) m_onSelect(*static_cast<int*>(row));
  });
  m_listIsFirst = !m_firstButton;
  if (m_listIsFirst) elm_flux_list_focus_set(m_list, 0);
}

std::string FactsPage::TextOf(int row, const std::string& part) const {
  if (row < 0 || row >= static_cast<int>(m_facts.size())) return "";
  const Fact& fact = m_facts[static_cast<size_t>(row)];
  if (part == "SubText1") return fact.value;
  if (part != "MainText") return "";
  return fact.isDetail ? (elm_config_mirrored_get() ? kIndentMirrored : kIndent) + fact.name : fact.name;
}

std::string FactsPage::SpeechOf(int row) const {
  if (row < 0 || row >= static_cast<int>(m_facts.size())) return "";
  const Fact& fact = m_facts[static_cast<size_t>(row)];
  return fact.name + (fact.value.empty() ? "" : ", " + fact.value);
}

Evas_Object* FactsPage::AddButton(const char* sid, std::function<void()> onClick) {
  Evas_Object* button = nullptr;
  CUtils::Instance().m_CreateButton(button, m_buttons, CUtils::m_GetText(sid), kButtonWidth, kButtonHeight);
  QUVA::OnEvent(button, "clicked", [onClick = std::move(onClick)](void*) { onClick(); });
  if (!m_firstButton) {
    m_firstButton = button;
    // Rows that do nothing give way to it.
    if (!m_onSelect) m_listIsFirst = false;
    if (!m_listIsFirst) QUVA::FocusWhenIdle(button);
  }
  return button;
}

void FactsPage::AddDone() {
  AddButton("SID_DONE", [] { CUtils::Instance().m_Leave(); });
}

void FactsPage::RemoveButtons() {
  if (!m_buttons) return;
  elm_flux_layout_clear(m_buttons);
  Focus();
}

void FactsPage::Toast(const std::string& text) {
  m_screen.m_ShowToast(text, {[this] { Focus(); }, [this] { m_screen.m_DeleteToast(); }},
                       [this] { m_screen.m_DismissToast(); });
}

void FactsPage::Show() {
  m_screen.m_Show();
  Focus();
}

void FactsPage::Focus() {
  if (m_firstButton && !m_listIsFirst)
    QUVA::FocusWhenIdle(m_firstButton);
  else if (m_list)
    elm_flux_list_focus_set(m_list, std::max(0, elm_flux_list_focus_get(m_list)));
}

}  // namespace tools
