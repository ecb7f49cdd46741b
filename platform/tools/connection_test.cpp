// The connection test: how far does the network reach, and what can be done where it ends?

#include <algorithm>
#include <chrono>
#include <memory>
#include <optional>
#include <thread>
#include <utility>

#include "CScreenJob.h"
#include "CUtils.h"
#include "DeviceKind.h"
#include "QUVA_DiagManager.h"
#include "QUVA_KPISender.h"
#include "QUVA_Storage.h"
#include "connection_run.h"
#include "dialog.h"
#include "facts_page.h"
#include "tools.h"

namespace tools {

namespace {

using QUVA::CUtils;
using QUVA::QUVA_Solution;

constexpr const char* kStepSids[] = {"TV_SID_VEXILO_STEP_LINK",     "TV_SID_VEXILO_STEP_ADDRESS",
                                     "TV_SID_VEXILO_STEP_ROUTER",   "TV_SID_VEXILO_STEP_NAMES",
                                     "TV_SID_VEXILO_STEP_INTERNET", "TV_SID_VEXILO_STEP_TIME"};
constexpr std::chrono::milliseconds kLeastTime(700);  // so that one sees that it was tested again
constexpr char kIsRunning[] = "…", kIsUnknown[] = "–";

/// What the solution map says of an issue. Not on the main thread: it is read first.
std::optional<QUVA_Solution> SolutionOf(int issue) {
  QUVA::QUVA_DiagManager::GetInstance();
  unsigned int count = 0;
  std::vector<QUVA_Solution> solutions;
  QUVA::TCInformationStorage::Instance()->GetSolutionInformation(count, solutions);
  const auto found = std::ranges::find(solutions, std::to_string(issue), &QUVA_Solution::issue_code);
  return found == solutions.end() ? std::nullopt : std::optional(*found);
}

bool IsService(const ConnectionRow& row) {
  return row.step == ConnectionStep::kService;
}

class ConnectionPage {
 public:
  explicit ConnectionPage(const Tool& tool) : m_tool(tool), m_page(tool) {
    m_page.OnSelect([this](int row) { OnSelect(row); });
    m_page.AddButton("TV_SID_VEXILO_TEST_AGAIN", [this] { Start(); });
    m_page.AddDone();
    evas_event_callback_add(evas_object_evas_get(CUtils::Instance().m_pGetAppWindow()), EVAS_CALLBACK_CANVAS_FOCUS_IN,
                            OnFocus, this);
    Start();
  }

 private:
  static void OnFocus(void* self, Evas*, void*) { static_cast<ConnectionPage*>(self)->Resume(); }
  /// The viewer is back, maybe from where he could mend it.
  void Resume() {
    if (m_fix.m_IsRunning()) return;
    CUtils::Instance().m_SetMultitaskingStatus(false);
    if (std::exchange(m_isElsewhere, false)) StartAfterFix();
  }

  void Start();
  void StartAfterFix();
  void Show(std::vector<ConnectionRow> rows);
  void End();
  std::string NameOf(const ConnectionRow& row) const;
  std::string TextOf(const ConnectionRow& row) const;
  std::string Problem(const ConnectionRow& row) const;
  void OnSelect(int row);
  void Explain();
  void Fix();
  void EndFix(int outcome);

  const Tool& m_tool;
  FactsPage m_page;
  std::vector<ConnectionRow> m_rows;
  std::optional<QUVA_Solution> m_solution;  ///< for the row that failed
  std::string m_tried;                      ///< the problem that was to be mended before this test
  bool m_isElsewhere = false;               ///< another application was opened, in which the viewer may mend it
  QUVA::CScreenJob m_job;
  QUVA::CScreenJob m_fix;  // while it is at work, nothing is tested
};

void ConnectionPage::Start() {
  if (m_fix.m_IsRunning()) return;
  m_job.m_Cancel();
  CUtils::Instance().m_SetMultitaskingStatus(false);
  m_isElsewhere = false;
  m_solution.reset();
  m_tried.clear();
  m_page.SetNote(CUtils::m_GetText("TV_SID_VEXILO_CONNECTION_TESTING"));
  const auto solution = std::make_shared<std::optional<QUVA_Solution>>();
  const bool isStarted = m_job.m_Start(
      [this, solution](const QUVA::CScreenJob::Control& control) {
        const auto begin = std::chrono::steady_clock::now();
        ConnectionRun run;
        const auto show = [&] { return control.m_RunInMainLoop([&] { Show(run.Rows()); }); };
        while (run.Begin() && show()) run.Ask();
        if (run.Failed()) *solution = SolutionOf(run.Failed()->issue);
        std::this_thread::sleep_until(begin + kLeastTime);
        show();
      },
      [this, solution] {
        m_solution = std::move(*solution);
        End();
      },
      {});
  if (!isStarted) m_page.SetNote(CUtils::m_GetText("TV_SID_VEXILO_COULD_NOT_DO_IT"));
}

/// What was told before this need not be told again, where it is still there.
void ConnectionPage::StartAfterFix() {
  const auto failed = std::ranges::find(m_rows, StepState::kFailed, &ConnectionRow::state);
  const std::string tried = failed == m_rows.end() ? "" : Problem(*failed);
  Start();
  m_tried = tried;
}

void ConnectionPage::Show(std::vector<ConnectionRow> rows) {
  m_rows = std::move(rows);
  std::vector<Fact> facts;
  for (const ConnectionRow& row : m_rows) facts.push_back({NameOf(row), TextOf(row)});
  m_page.SetFacts(std::move(facts));
}

std::string ConnectionPage::NameOf(const ConnectionRow& row) const {
  return IsService(row) ? row.service : CUtils::m_GetText(kStepSids[static_cast<size_t>(row.step)]);
}

std::string ConnectionPage::TextOf(const ConnectionRow& row) const {
  switch (row.state) {
    case StepState::kWaiting:
      return "";
    case StepState::kRunning:
      return kIsRunning;
    case StepState::kPassed:
      return CUtils::m_GetTextWith("TV_SID_VEXILO_MIX_MILLISECONDS", std::to_string(row.took.count()));
    case StepState::kUnknown:
      return kIsUnknown;
    case StepState::kFailed:
      return CUtils::m_GetText("TV_SID_VEXILO_STEP_FAILED");
  }
  return "";
}

std::string ConnectionPage::Problem(const ConnectionRow& row) const {
  if (m_solution) return CUtils::m_GetText(m_solution->sid_issue.c_str());
  if (IsService(row)) return CUtils::m_GetTextWith("TV_SID_VEXILO_MIX_SERVICE_SILENT", row.service);
  return NameOf(row);  // a map that does not know the issue
}

void ConnectionPage::End() {
  const auto failed = std::ranges::find(m_rows, StepState::kFailed, &ConnectionRow::state);
  const bool isWell = failed == m_rows.end();
  QUVA::QUVA_KPISender::GetInstance()->SendVexiloKPI(m_tool.eventItem, isWell ? "Connected" : "Not connected");
  if (isWell) return m_page.SetNote(CUtils::m_GetText("TV_SID_VEXILO_CONNECTION_WORKS"));
  const std::string problem = Problem(*failed);
  const bool isStillThere = problem == std::exchange(m_tried, {});
  m_page.SetNote(problem + (isStillThere ? ": " + CUtils::m_GetText("TV_SID_VEXILO_STILL_THERE") : ""));
  if (!isStillThere) Explain();  // else its row does
}

void ConnectionPage::OnSelect(int row) {
  if (!m_job.m_IsRunning() && !m_fix.m_IsRunning() && m_rows[static_cast<size_t>(row)].state == StepState::kFailed)
    Explain();
}

/// In the words, and with the buttons, of the list of issues.
void ConnectionPage::Explain() {
  const auto failed = std::ranges::find(m_rows, StepState::kFailed, &ConnectionRow::state);
  if (!m_solution && !IsService(*failed)) return;
  m_page.DismissToast();  // what opens above it would be closed with it
  m_isElsewhere = false;  // the popup stays until the viewer has answered
  const std::string text = m_solution ? CUtils::m_GetText(QUVA::SidForDevice(m_solution->sid_sol).c_str())
                                      : CUtils::m_GetText("TV_SID_VEXILO_SERVICE_SILENT_MSG");
  Dialog& dialog = OpenDialog(Problem(*failed), text, [] {});
  if (!m_solution) {
    dialog.AddButton(CUtils::m_GetText("TV_SID_VEXILO_TEST_AGAIN"), [this] { StartAfterFix(); });
    dialog.AddButton(CUtils::m_GetText("COM_SID_CLOSE"), [] {});
    return;
  }
  const auto add = [&](const std::string& sid, const char* number) {
    if (!QUVA::IsSidGiven(sid)) return;
    dialog.AddButton(CUtils::m_GetText(sid.c_str()), [this, isFix = m_solution->action == number] {
      if (isFix) Fix();
    });
  };
  add(m_solution->sid_button1, "1");
  add(m_solution->sid_button2, "2");
}

void ConnectionPage::Fix() {
  m_page.SetNote(CUtils::m_GetText("TV_SID_VEXILO_WORKING_ON_IT"));
  CUtils::Instance().m_SetMultitaskingStatus(true);  // what is opened may cover this one before it is known
  const auto outcome = std::make_shared<int>(SOLUTION_FAILED);
  const bool isStarted = m_fix.m_Start(
      [outcome, code = m_solution->issue_code](const QUVA::CScreenJob::Control&) {
        CreateAPIInstance();  // what is done is recorded there
        const auto apply = QUVA::QUVA_DiagManager::GetInstance()->m_pGetApplySolution();
        if (apply) *outcome = apply(code.c_str());
      },
      [this, outcome] { EndFix(*outcome); }, {});
  if (!isStarted) EndFix(SOLUTION_FAILED);
}

void ConnectionPage::EndFix(int outcome) {
  if (outcome == SOLUTION_DONE || outcome == SOLUTION_TRIED) {
    if (const std::string toast = QUVA::SolutionToast(m_solution->toast1, m_solution->toast2); !toast.empty())
      m_page.Toast(toast);
    return StartAfterFix();
  }
  m_page.SetNote(CUtils::m_GetText(m_solution->sid_issue.c_str()));
  m_isElsewhere = outcome == SOLUTION_OPENED;
  CUtils::Instance().m_SetMultitaskingStatus(outcome != SOLUTION_FAILED);
  m_page.Toast(CUtils::m_GetText(outcome == SOLUTION_OPENED          ? "TV_SID_VEXILO_OPENED"
                                 : outcome == SOLUTION_NOT_ON_DEVICE ? "TV_SID_VEXILO_NO_SUCH_APP"
                                                                     : "TV_SID_VEXILO_COULD_NOT_DO_IT"));
}

}  // namespace

void OpenConnectionTest(const Tool& tool, const app_framework::Extras&) {
  [[maybe_unused]] static ConnectionPage* page = nullptr;  // until the process ends
  page = new ConnectionPage(tool);
}

}  // namespace tools
