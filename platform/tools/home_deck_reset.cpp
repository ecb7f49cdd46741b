// The reset of the content platform: what goes, a question, and its progress.

#include <memory>
#include <string>
#include <utility>

#include "CScreenJob.h"
#include "CUtils.h"
#include "QUVA_KPISender.h"
#include "VexiloLog.h"
#include "dialog.h"
#include "facts_page.h"
#include "homedata/home_deck_data.h"
#include "tools.h"

namespace tools {

namespace {

using homedata::HomeDeckData;
using QUVA::CScreenJob;
using QUVA::CUtils;

constexpr double kBarWidth = 218, kBarHeight = 3;  // units

class ResetPage {
 public:
  explicit ResetPage(const Tool& tool) : m_tool(tool), m_page(tool) { Look(); }

 private:
  void Look();
  void Show(const HomeDeckData& data);
  void Ask();
  void Reset();
  void ShowProgress(double share);
  void End(const std::string& problem);

  const Tool& m_tool;
  FactsPage m_page;
  QUVA::CWidget m_bar;
  CScreenJob m_job;
};

/// First what an interrupted reset has left is put right, so that what is shown is true.
void ResetPage::Look() {
  const auto data = std::make_shared<HomeDeckData>();
  m_job.m_Start(
      [data](const CScreenJob::Control&) {
        if (std::string problem; !homedata::MendHomeDeckReset(problem)) VEXILO_LOGE("%s", problem.c_str());
        *data = homedata::MeasureHomeDeck();
      },
      [this, data] {
        Show(*data);
        m_page.SetNote(CUtils::m_GetText(data->IsEmpty() ? "TV_SID_VEXILO_RESET_NOTHING" : "TV_SID_VEXILO_RESET_NOTE"));
      },
      {});
}

void ResetPage::Show(const HomeDeckData& data) {
  m_page.RemoveButtons();
  if (!data.IsEmpty()) m_page.AddButton("TV_SID_VEXILO_RESET_NOW", [this] { Ask(); });
  m_page.AddDone();
  const char* const consent = data.isConsentGiven ? "TV_SID_VEXILO_TERMS_ACCEPTED" : "TV_SID_VEXILO_TERMS_NOT_ACCEPTED";
  m_page.SetFacts({{CUtils::m_GetText("TV_SID_VEXILO_TERMS_OF_USE"), CUtils::m_GetText(consent)},
                   {CUtils::m_GetText("TV_SID_VEXILO_RESET_SETTINGS"), std::to_string(data.settings)},
                   {CUtils::m_GetText("TV_SID_VEXILO_CACHE_SIZE"), CUtils::m_ConvertBytes(data.cacheBytes)}});
}

void ResetPage::Ask() {
  if (m_job.m_IsRunning()) return;
  Dialog& dialog = OpenDialog(CUtils::m_GetText(m_tool.titleSid), CUtils::m_GetText("TV_SID_VEXILO_RESET_ASK"), [] {});
  const auto answer = [this](const char* status) {
    QUVA::QUVA_KPISender::GetInstance()->SendVexiloKPI(m_tool.eventItem, status);
  };
  // The first one has the focus: never what takes something away.
  dialog.AddButton(CUtils::m_GetText("COM_SID_NO"), [answer] { answer("Declined"); });
  dialog.AddButton(CUtils::m_GetText("COM_SID_YES"), [this, answer] {
    answer("Reset");
    Reset();
  });
}

// It is over in seconds, and nothing is gained by leaving it.
void ResetPage::Reset() {
  CUtils::Instance().m_SetKeyBlock(true);
  CUtils::Instance().m_SetMultitaskingStatus(true);  // what comes in front of it does not end it
  m_page.RemoveButtons();
  m_page.SetNote(CUtils::m_GetText("TV_SID_VEXILO_RESETTING"));
  ShowProgress(0);
  const auto problem = std::make_shared<std::string>();
  m_job.m_Start(
      [this, problem](const CScreenJob::Control& control) {
        int shown = 0;
        const auto tell = [&](double share) {
          const int percent = static_cast<int>(share * 100);
          if (percent == std::exchange(shown, percent)) return;
          control.m_RunInMainLoop([this, share] { ShowProgress(share); });
        };
        const bool isDone = homedata::ResetHomeDeck(tell, *problem);
        control.m_RunInMainLoop([this, data = homedata::MeasureHomeDeck()] { Show(data); });
        if (isDone) problem->clear();
      },
      [this, problem] { End(*problem); }, [this] { End("no thread could be had"); });
}

void ResetPage::ShowProgress(double share) {
  if (!m_bar) {
    m_bar = elm_flux_progress_add(m_page.Area(), FLUX_PROGRESS_BAR);
    elm_flux_size_set(m_bar, kBarWidth, kBarHeight);
    elm_flux_progress_unit_set(m_bar, "%.0f%%");
    elm_flux_progress_color_set(m_bar, QUVA::kAccentColor);
    elm_flux_layout_pack(m_page.Area(), m_bar);
  }
  elm_flux_progress_value_set(m_bar, share);
}

void ResetPage::End(const std::string& problem) {
  CUtils::Instance().m_SetKeyBlock(false);
  CUtils::Instance().m_SetMultitaskingStatus(false);
  elm_flux_layout_clear(m_page.Area());
  if (!problem.empty()) VEXILO_LOGE("Home Deck was not reset: %s", problem.c_str());
  m_page.SetNote(CUtils::m_GetText(problem.empty() ? "TV_SID_VEXILO_RESET_DONE" : "TV_SID_VEXILO_RESET_FAILED"));
}

}  // namespace

void OpenHomeDeckReset(const Tool& tool, const app_framework::Extras&) {
  [[maybe_unused]] static ResetPage* page = nullptr;  // until the process ends
  page = new ResetPage(tool);
}

}  // namespace tools
