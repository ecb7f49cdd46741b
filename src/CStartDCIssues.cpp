#include "CStartDCIssues.h"

#include <algorithm>
#include <boost/signals2/signal.hpp>
#include <cstdio>
#include <iterator>
#include <memory>
#include <utility>

#include "CGetData.h"
#include "CMotion.h"
#include "CSolutionPlan.h"
#include "DeviceKind.h"
#include "IssueResolution.h"
#include "QUVA_DiagManager.h"
#include "QUVA_DiagResultManager.h"
#include "QUVA_ParserPlugin.h"
#include "VexiloLog.h"
#include "flux_resources.h"
#include "system_path.h"
#include "trevlin_engine.h"

namespace QUVA {

namespace {

constexpr char kComplete[] = "TV_SID_CARE_OPTIMIZATION_AND_DIAGNOSTICS_ARE_COMPLETE";
constexpr char kNothingFound[] = "TV_SID_CHECK_SELF_DIAGNOSIS";
constexpr char kNotChecked[] = "TV_SID_VEXILO_NOT_CHECKED";
constexpr char kAllSolved[] = "TV_SID_VEXILO_ALL_SOLVED";
constexpr char kNotApplied[] = "TV_SID_VEXILO_COULD_NOT_DO_IT";
constexpr char kWorking[] = "TV_SID_VEXILO_WORKING_ON_IT";
constexpr char kOpened[] = "TV_SID_VEXILO_OPENED";
constexpr char kOpenedMessage[] = "TV_SID_VEXILO_OPENED_MSG";
constexpr char kBeingChecked[] = "TV_SID_VEXILO_BEING_CHECKED";
constexpr char kStillThere[] = "TV_SID_VEXILO_STILL_THERE";
constexpr char kNothingToClose[] = "TV_SID_VEXILO_NOTHING_TO_CLOSE";
constexpr char kNoSuchApp[] = "TV_SID_VEXILO_NO_SUCH_APP";

constexpr double kLookPeriod = 3.0;                   // seconds
constexpr double kAdviceTime = 20.0;                  // seconds: there may be a command to write down
constexpr std::chrono::seconds kRecheckPatience(30);  // RecheckIssue() has looked by then

constexpr double kTop = 3;  // units, as all sizes here
constexpr double kCompleteHeight = 12;
constexpr double kStateWidth = 62;
constexpr double kStatePicture = 30;
constexpr double kStateTop = 4;
constexpr double kStateGap = 2;
constexpr double kVerdictHeight = 27;
constexpr double kColumnGap = 8;
constexpr double kFrameTop = 3;
constexpr double kFrameHeight = 17;
constexpr double kFrameBottom = 7;
constexpr double kButtonWidth = 49;
constexpr double kButtonHeight = 9;

// The engine has seen the issue after its solution, and recorded that it was not applied.
bool WasOfNoEffect(int code) {
  _DTSolDBRecord solution;
  return GetSolutionDB(code, &solution) == TREVLIN_OK && solution.isApply == 0;
}

}  // namespace

struct CStartDCIssues::SolvedSignal : boost::signals2::signal<void(const std::string& issueCode)> {};

CStartDCIssues* CStartDCIssues::Instance() {
  static auto* instance = new CStartDCIssues;
  return instance;
}

CStartDCIssues::CStartDCIssues() : m_solved(std::make_unique<SolvedSignal>()) {
  CUtils::Instance().ConnectHighContrastChangeCB([this] { m_HighContrastChangeCB(); });
}

void CStartDCIssues::ConnectSolvedCB(const std::function<void(const std::string& issueCode)>& slot) {
  m_solved->connect(slot);
}

// ---- the screen

void CStartDCIssues::m_StartDCIssues(std::vector<MapToDBTable> rows) {
  VEXILO_LOGI("Start Vexilo Issue screen...");
  m_rows = std::move(rows);
  m_index = -1;
  m_isAnySolved = false;
  CUtils& utils = CUtils::Instance();
  utils.m_SetKeyBlock(false);
  utils.m_RegisterForReturnStack({[this] { m_ShowScreenPostReturn(); }, [this] { m_HideStartDCIssue(); }}, false);
  if (!m_screen.m_Build(kProductTitle)) return;
  Evas_Object* const body = m_screen.m_pGetBody();
  elm_flux_layout_padding_set(body, kPageMargin, kTop, kPageMargin, kFrameBottom);
  m_heading =
      AddText(body, m_Heading(), FLUX_FONT_600, kTextColor, FLUX_TEXT_LARGE, FLUX_ALIGN_CENTER, 0, kCompleteHeight);
  elm_flux_expand_set(m_heading, true);

  Evas_Object* const middle = AddLayout(body, FLUX_LAYOUT_HORIZONTAL, FLUX_ALIGN_CENTER, 0, 0);
  elm_flux_expand_set(middle, true);
  elm_flux_layout_gap_set(middle, kColumnGap);
  m_BuildState(middle);
  m_listArea = AddLayout(middle, FLUX_LAYOUT_STACK, FLUX_ALIGN_CENTER, 0, 0);
  elm_flux_expand_set(m_listArea, true);

  Evas_Object* const lower = AddLayout(body, FLUX_LAYOUT_VERTICAL, FLUX_ALIGN_TOP, 0, kFrameTop + kFrameHeight);
  elm_flux_expand_set(lower, true);
  elm_flux_layout_padding_set(lower, 0, kFrameTop, 0, 0);
  Evas_Object* frame = nullptr;
  utils.m_CreateBottomFrame(frame, lower, 0, kFrameHeight);
  m_done = elm_flux_button_add(frame, FLUX_BUTTON_PLAIN);
  Evas_Object* const content = elm_flux_layout_add(frame, FLUX_LAYOUT_STACK, FLUX_ALIGN_CENTER);
  elm_object_content_set(frame, content);
  elm_flux_layout_pack(content, m_done);
  m_BuildDone();
  m_CreateGenlistOrMsg();
  m_LookForGoneNowAndThen();
  m_SetVoiceGuideText();
}

// Where there is none, why not.
std::string CStartDCIssues::m_NoIssuesText() const {
  const char* const found = HasInferenceFailed() ? kNotChecked : kNothingFound;
  return CUtils::m_GetText(m_isAnySolved ? kAllSolved : found);
}

std::string CStartDCIssues::m_Heading() const {
  if (m_rows.empty() && HasInferenceFailed()) return "";
  const std::string text = CUtils::m_GetText(kComplete);
  if (m_rows.empty()) return text;
  return text + " " + CUtils::m_GetTextWith("TV_SID_VEXILO_MIX_ISSUES", std::to_string(m_rows.size()));
}

void CStartDCIssues::m_BuildState(Evas_Object* parent) {
  CGetData* const data = CGetData::GetInstance();
  m_deviceState = data->CheckDeviceState();
  const std::string sid = data->getSIDForDeviceState(m_deviceState);
  const bool highContrast = CUtils::Instance().m_GetHighContrast() != 0;
  const MotionSet motion = MotionOfDeviceState(m_deviceState);
  const std::string file = MotionFrame(motion, highContrast, 0);
  VEXILO_LOGI("devicestae image file is %s", std::string(NameOnSet(file)).c_str());

  Evas_Object* const column = AddLayout(parent, FLUX_LAYOUT_VERTICAL, FLUX_ALIGN_TOP, kStateWidth, 0);
  elm_flux_expand_set(column, true);
  m_stateImage = AddImage(column, file, kStatePicture, kStatePicture);
  m_animationJob.m_Start(
      [this, motion](const CScreenJob::Control& control) { PlayMotion(control, m_stateImage, motion, 0, kLastFrame); },
      {}, {});
  elm_flux_layout_padding_set(column, 0, kStateTop, 0, 0);
  elm_flux_layout_gap_set(column, kStateGap);
  m_verdict = AddText(column, CUtils::m_GetText(sid.c_str()), FLUX_FONT_700, kTextColor, FLUX_TEXT_LARGE,
                      FLUX_ALIGN_TOP, kStateWidth, kVerdictHeight);
  elm_flux_text_lines_set(m_verdict, 0);
}

// The last solution may have changed it.
void CStartDCIssues::m_TellState() {
  if (!m_screen.m_IsBuilt()) return;
  CGetData* const data = CGetData::GetInstance();
  const int state = data->LookAtDeviceState();
  if (state == std::exchange(m_deviceState, state)) return;
  m_animationJob.m_Cancel();
  elm_object_text_set(m_verdict, CUtils::m_GetText(data->getSIDForDeviceState(state).c_str()).c_str());
  m_HighContrastChangeCB();
}

void CStartDCIssues::m_BuildDone() {
  elm_object_text_set(m_done, CUtils::m_GetText("SID_DONE").c_str());
  elm_flux_size_set(m_done, kButtonWidth, kButtonHeight);
  elm_flux_access_info_set(m_done, [this] { return m_VoiceGuideOnDone(); });
  OnEvent(m_done, "clicked", [this](void*) { m_DoneBtnClickCall(); });
}

void CStartDCIssues::m_HideStartDCIssue() {
  m_screen.m_Hide();
  m_CleanObjects();
}

void CStartDCIssues::m_ShowScreenPostReturn() {
  m_screen.m_Show();
  if (std::exchange(m_isToastGone, false)) return;  // the focus stays where the viewer has taken it
  if (!m_list) return FocusWhenIdle(m_done);
  elm_flux_list_focus_set(m_list, std::clamp(m_index, 0, elm_flux_list_count(m_list) - 1));
}

void CStartDCIssues::m_CleanObjects() {
  m_animationJob.m_Cancel();
  m_StopLookingForGone();
  m_ClosePopup();
  m_screen.m_Clean();
}

void CStartDCIssues::m_HighContrastChangeCB() {
  const bool highContrast = CUtils::Instance().m_GetHighContrast() != 0;
  if (m_stateImage)
    elm_flux_image_file_set(m_stateImage, MotionFrame(MotionOfDeviceState(m_deviceState), highContrast, kLastFrame));
}

void CStartDCIssues::m_SetVoiceGuideText() {
  if (!elm_config_access_get()) return;
  std::string text = m_Heading();
  if (m_rows.empty()) text += (text.empty() ? "" : ", ") + m_NoIssuesText();
  CUtils::m_SayVoiceGuideText(text);
}

std::string CStartDCIssues::m_SetVoiceGuideOnIssue(int index) {
  const std::string date = m_item_label_get(index, "SubText1");
  return m_item_label_get(index, "MainText") + (date.empty() ? "" : ", " + date);
}

std::string CStartDCIssues::m_VoiceGuideOnDone() {
  return CUtils::m_GetText("SID_DONE") + ", " + CUtils::m_GetText("TV_SID_VEXILO_VOICE_BUTTON");
}

void CStartDCIssues::m_DoneBtnClickCall() {
  m_screen.m_DismissToast();
  CUtils::Instance().m_ExecuteReturn();
}

// ---- the list

void CStartDCIssues::m_CreateGenlistOrMsg() {
  elm_flux_layout_clear(m_listArea);
  if (m_rows.empty()) {
    Evas_Object* const message =
        AddText(m_listArea, m_NoIssuesText(), FLUX_FONT_600, kTextColor, FLUX_TEXT_BODY, FLUX_ALIGN_CENTER, 0, 0);
    elm_flux_text_lines_set(message, 0);
    elm_flux_expand_set(message, true);
    FocusWhenIdle(m_done);
    return;
  }
  m_CreateGenList();
}

void CStartDCIssues::m_CreateGenList() {
  m_list = elm_flux_list_add(m_listArea, FLUX_ROW_SINGLE_LINE_03);
  elm_flux_expand_set(m_list, true);
  elm_flux_list_shadows_set(m_list, getCommonResourcePath("i_img_scrollshadow_top.9"),
                            getCommonResourcePath("i_img_scrollshadow_bottom.9"));
  elm_flux_list_text_set(m_list, [this](int index, const std::string& part) { return m_item_label_get(index, part); });
  elm_flux_list_append(m_list, static_cast<int>(m_rows.size()));
  elm_flux_layout_pack(m_listArea, m_list);
  elm_flux_access_info_set(m_list, [this] { return m_SetVoiceGuideOnIssue(elm_flux_list_focus_get(m_list)); });
  OnEvent(m_list, "item,selected", [this](void* index) { m_CreateIssueDetailsPopUp(*static_cast<int*>(index)); });
  elm_flux_list_focus_set(m_list, 0);
}

std::string CStartDCIssues::m_item_label_get(int index, const std::string& part) {
  if (!m_IsRow(index)) return "";
  if (part == "MainText") return CUtils::m_GetText(m_rows[static_cast<size_t>(index)].sid_issue.c_str());
  if (part != "SubText1") return "";
  const std::string& code = m_rows[static_cast<size_t>(index)].issue_code;
  if (m_IsBeingHandled(code)) return CUtils::m_GetText(kWorking);
  if (const std::string waiting = m_WaitingText(m_rows[static_cast<size_t>(index)]); !waiting.empty()) return waiting;
  char date[1024] = "";
  GetDateInFormat(index, date);
  VEXILO_LOGD(" buf after fn is %s", date);
  return date;
}

void CStartDCIssues::GetDateInFormat(int index, char (&out)[1024]) {
  out[0] = '\0';
  if (!m_IsRow(index)) return;
  const std::string format = CUtils::m_GetDateFormat();
  VEXILO_LOGD("DateFmt evaluated as %s ", format.c_str());
  char year[16] = "";
  char month[16] = "";
  char day[16] = "";
  // The time, which begins with a 'T' or after a blank, is dropped.
  std::sscanf(m_rows[static_cast<size_t>(index)].last_time.c_str(), "%15[^-]-%15[^-]-%15[^ T]", year, month, day);
  VEXILO_LOGD("Year[%s], month[%s], date[%s]", year, month, day);
  const std::string parts[] = {year, month, day};
  if (parts[0].empty() || parts[1].empty() || parts[2].empty()) return;
  if (parts[0] == "1970" && parts[1] == "01" && parts[2] == "01") return;
  std::string text;
  for (const char letter : format) {
    if (!text.empty()) text += '/';
    text += parts[letter == 'Y' ? 0 : letter == 'M' ? 1 : 2];
  }
  std::snprintf(out, sizeof out, "%s", text.c_str());
}

void CStartDCIssues::m_RemoveItemFromIndex(int index) {
  if (!m_IsRow(index)) return;
  m_rows.erase(m_rows.begin() + index);
  m_isAnySolved = true;
  if (index == m_index) m_index = -1;  // its popup may be open: there is nothing to choose any more
  if (index < m_index) --m_index;
  if (m_list) elm_flux_list_remove(m_list, index);
  if (m_heading) elm_object_text_set(m_heading, m_Heading().c_str());
  if (m_rows.empty() && m_listArea) m_CreateGenlistOrMsg();
}

// ---- the popup

void CStartDCIssues::m_CreateIssueDetailsPopUp(int index) {
  VEXILO_LOGI("Trying to create popup with index = %d", index);
  if (!m_IsRow(index) || m_popup) return;
  const MapToDBTable& row = m_rows[static_cast<size_t>(index)];
  if (m_IsBeingHandled(row.issue_code)) return;
  m_index = index;
  m_screen.m_DismissToast();
  CUtils& utils = CUtils::Instance();
  utils.m_ShowDimBackground();
  m_popup = elm_flux_popup_add(utils.m_pGetAppWindow());
  elm_flux_popup_title_set(m_popup, CUtils::m_GetText(row.sid_issue.c_str()));
  elm_flux_popup_text_set(m_popup, CUtils::m_GetText(SidForDevice(row.sid_sol).c_str()));
  m_AddPopupButtons(row);
  m_popupIssue = row.issue_code;
  m_TellSubject(row);
  // Nothing opens above it that would have to come back to it.
  utils.m_RegisterForReturnStack({[] {}, [this] { m_ClosePopup(); }}, false);
}

// Which disk, folder or package it is about, where the engine can tell.
void CStartDCIssues::m_TellSubject(const MapToDBTable& row) {
  const auto subject = std::make_shared<std::string>();
  const auto tell = [this, subject, text = CUtils::m_GetText(SidForDevice(row.sid_sol).c_str())] {
    if (subject->empty() || !m_popup) return;
    // From left to right in every language (Unicode's isolates).
    const std::string affected = CUtils::m_GetTextWith("TV_SID_VEXILO_MIX_AFFECTED", "\u2066" + *subject + "\u2069");
    elm_flux_popup_text_set(m_popup, text + "\n\n" + affected);
    if (elm_config_access_get()) CUtils::m_SayVoiceGuideText(affected);
  };
  m_subjectJob.m_Start(
      [code = NumberOf(row.issue_code), subject](const CScreenJob::Control&) { GetIssueSubject(code, subject.get()); },
      tell, {});
}

void CStartDCIssues::m_AddPopupButtons(const MapToDBTable& row) {
  const auto add = [this](const std::string& sid, const std::function<void()>& clicked) {
    OnEvent(elm_flux_popup_button_add(m_popup, CUtils::m_GetText(sid.c_str())), "clicked",
            [clicked](void*) { clicked(); });
  };
  if (IsSidGiven(row.sid_button1)) add(row.sid_button1, [this] { m_IssueDetailBtn_1_Click(); });
  if (IsSidGiven(row.sid_button2)) add(row.sid_button2, [this] { m_IssueDetailBtn_2_Click(); });
  if (!IsSidGiven(row.sid_button1) && !IsSidGiven(row.sid_button2))
    add("COM_SID_CLOSE", [] { CUtils::Instance().m_ExecuteReturn(); });
}

void CStartDCIssues::m_ClosePopup() {
  if (!m_popup) return;
  m_subjectJob.m_Cancel();
  m_popupIssue.clear();
  CUtils::Instance().m_HideDimBackground();
  m_popup.m_Delete();
  // A question may have waited for it; not at once, the screen may be about to go.
  ecore_job_add([](void* self) { static_cast<CStartDCIssues*>(self)->m_AskWhenFree(); }, this);
}

void CStartDCIssues::m_IssueDetailBtn_1_Click() {
  VEXILO_LOGI("button 1 pressed on issue detail popup");
  m_Choose("1");
}

void CStartDCIssues::m_IssueDetailBtn_2_Click() {
  VEXILO_LOGI("button 2 pressed on issue detail popup");
  m_Choose("2");
}

void CStartDCIssues::m_Choose(const char* button) {
  m_screen.m_DismissToast();
  CUtils& utils = CUtils::Instance();
  utils.m_ExecuteReturn();
  if (!m_IsRow(m_index)) return;
  const MapToDBTable& row = m_rows[static_cast<size_t>(m_index)];
  const QUVA_DiagManager* const manager = QUVA_DiagManager::GetInstance();
  if (row.action == button) {
    VEXILO_LOGI("User Chose to apply solution for solution code[%s]", row.issue_code.c_str());
    if (manager->m_pGetApplySolution())
      m_Handle(m_index, true);
    else
      m_ShowToastText(CUtils::m_GetText(kNotApplied));
  } else {
    VEXILO_LOGI("User Chose to cancel solution for solution code[%s]", row.issue_code.c_str());
    // What has been applied is not declined by looking at it.
    if (manager->m_pGetSaveResult() && !m_IsWaitedFor(row)) {
      m_Handle(m_index, false);
      utils.m_SetMultitaskingStatus(false);
    }
  }
  utils.m_pSetLaunchFrom(nullptr);
}

// ---- applying and declining

// Both may wait for the set's services, so a worker does it, one after the other; the list can be used meanwhile.
void CStartDCIssues::m_Handle(int index, bool apply) {
  m_decisions.push_back({m_rows[static_cast<size_t>(index)].issue_code, apply});
  if (m_list) elm_flux_list_update(m_list, index);
  if (m_decisions.size() == 1) m_HandleNext();
}

bool CStartDCIssues::m_IsBeingHandled(const std::string& issueCode) const {
  return std::any_of(m_decisions.begin(), m_decisions.end(),
                     [&](const Decision& decision) { return decision.issueCode == issueCode; });
}

int CStartDCIssues::m_RowOf(const std::string& issueCode) const {
  const auto at =
      std::find_if(m_rows.begin(), m_rows.end(), [&](const MapToDBTable& row) { return row.issue_code == issueCode; });
  return at == m_rows.end() ? -1 : static_cast<int>(at - m_rows.begin());
}

void CStartDCIssues::m_HandleNext() {
  // The queue may grow meanwhile, its first stays where it is.
  Decision& decision = m_decisions.front();
  m_job.m_Start([&decision](const CScreenJob::Control&) { m_Work(decision); }, [this] { m_EndWork(); },
                [this] { m_EndHandling(SOLUTION_FAILED); });
}

// On the worker. The main loop leaves all but the code to it.
void CStartDCIssues::m_Work(Decision& decision) {
  const char* const code = decision.issueCode.c_str();
  const QUVA_DiagManager* const manager = QUVA_DiagManager::GetInstance();
  if (!decision.apply) {
    decision.outcome = manager->m_pGetSaveResult()(code, kDeclined);
    return;
  }
  const PlanSolutionEntry plan = manager->m_pGetPlanSolution();
  const ApplyAgreedEntry apply = manager->m_pGetApplyAgreed();
  if (decision.step == Step::kPlan && plan && apply) {
    // Of a plan that is not whole nobody was asked about the rest.
    if (plan(code, &decision.plan) != 0) {
      decision.outcome = SOLUTION_FAILED;
      return;
    }
    if (!decision.plan.things.empty()) {
      decision.step = Step::kAsk;
      return;
    }
  }
  decision.step = Step::kApply;
  decision.outcome = apply ? apply(code, &decision.plan, &decision.effect) : manager->m_pGetApplySolution()(code);
  // What stays stored would be back at the next start: the viewer is told to try again.
  if (decision.outcome == SOLUTION_DONE && !QUVA_DiagResultManager::GetInstance()->DeleteRemainingDBColumn(code))
    decision.outcome = SOLUTION_FAILED;
}

void CStartDCIssues::m_EndWork() {
  if (m_decisions.front().step == Step::kAsk) return m_AskWhenFree();
  m_EndHandling(m_decisions.front().outcome);
}

void CStartDCIssues::m_EndHandling(int outcome) {
  const std::string code = m_decisions.front().issueCode;
  if (m_decisions.front().apply) m_TellOutcome(code, outcome);
  m_decisions.pop_front();
  if (m_list) elm_flux_list_update(m_list, m_RowOf(code));
  if (!m_decisions.empty()) m_HandleNext();
}

// ---- asking before something goes that somebody may miss

// Another popup that is open is not disturbed. Who has left the list does not agree.
void CStartDCIssues::m_AskWhenFree() {
  if (m_job.m_IsRunning() || m_decisions.empty() || m_decisions.front().step != Step::kAsk || m_popup) return;
  const Decision& decision = m_decisions.front();
  const int row = m_RowOf(decision.issueCode);
  if (!m_screen.m_IsBuilt() || row < 0) return m_Withdraw();
  m_CreateQuestionPopUp(row, decision.plan);
}

void CStartDCIssues::m_CreateQuestionPopUp(int index, const SolutionPlan& plan) {
  if (!m_IsRow(index) || m_popup) return;
  m_screen.m_DismissToast();
  m_isAgreed = false;
  CUtils& utils = CUtils::Instance();
  utils.m_ShowDimBackground();
  m_popup = elm_flux_popup_add(utils.m_pGetAppWindow());
  const MapToDBTable& row = m_rows[static_cast<size_t>(index)];
  const std::string action = CUtils::m_GetText((row.action == "2" ? row.sid_button2 : row.sid_button1).c_str());
  elm_flux_popup_title_set(m_popup, action);
  ShowPlan(m_popup, plan);
  const auto add = [this](const std::string& text, bool agrees) {
    OnEvent(elm_flux_popup_button_add(m_popup, text), "clicked", [this, agrees](void*) {
      m_isAgreed = agrees;
      CUtils::Instance().m_ExecuteReturn();
    });
  };
  // The first one has the focus: never what takes something away.
  add(CUtils::m_GetText("SID_CANCEL"), false);
  add(action, true);
  utils.m_RegisterForReturnStack({[] {}, [this] { m_CloseQuestion(); }}, false);
}

void CStartDCIssues::m_CloseQuestion() {
  if (!m_popup) return;
  m_ClosePopup();
  if (m_decisions.empty()) return;
  if (!m_isAgreed) return m_Withdraw();
  m_decisions.front().step = Step::kApply;
  m_HandleNext();
}

// Nothing was done and nothing is recorded: the issue is as it was.
void CStartDCIssues::m_Withdraw() {
  const std::string code = m_decisions.front().issueCode;
  m_decisions.pop_front();
  if (m_list) elm_flux_list_update(m_list, m_RowOf(code));
  if (!m_decisions.empty()) m_HandleNext();
}

void CStartDCIssues::m_TellOutcome(const std::string& issueCode, int outcome) {
  const int row = m_RowOf(issueCode);
  switch (outcome) {
    case SOLUTION_DONE:
      // The toast says that it has been done, so it comes when that is known.
      if (m_screen.m_IsBuilt()) m_TellEffect(row);
      return m_TakeAway(issueCode);
    case SOLUTION_OPENED:  // what is opened there does not have to help
    case SOLUTION_TRIED:   // nor does what came free
      if (row >= 0)
        m_waiting[issueCode] = {.since = m_rows[static_cast<size_t>(row)].last_time,
                                .opened = outcome == SOLUTION_OPENED,
                                .end = std::chrono::steady_clock::now() + kRecheckPatience};
      m_LookForGoneNowAndThen();
      if (outcome == SOLUTION_TRIED) {
        if (m_screen.m_IsBuilt()) m_TellEffect(row);
        return;
      }
      break;
    default:
      break;
  }
  if (!m_screen.m_IsBuilt()) return;
  const std::string& advice = m_decisions.front().effect.advice;
  if (outcome == SOLUTION_FAILED && !advice.empty()) return m_ShowToastText(advice, kAdviceTime);
  m_ShowToastText(CUtils::m_GetText(outcome == SOLUTION_OPENED          ? kOpenedMessage
                                    : outcome == SOLUTION_NOT_ON_DEVICE ? kNoSuchApp
                                                                        : kNotApplied));
}

// What came free; where nothing was asked about, what the map says.
void CStartDCIssues::m_TellEffect(int row) {
  const Decision& decision = m_decisions.front();
  const std::string text = EffectText(decision.effect, decision.plan);
  if (!text.empty()) return m_ShowToastText(text);
  if (decision.effect.hadNothingToClose) return m_ShowToastText(CUtils::m_GetText(kNothingToClose));
  m_ShowToastMsg(row);
}

// ---- what shows later

// The engine looks again a while after the solution; the viewer may need longer than that.
void CStartDCIssues::m_LookForGoneNowAndThen() {
  const bool isAnyShown =
      std::any_of(m_rows.begin(), m_rows.end(), [this](const MapToDBTable& row) { return m_IsWaitedFor(row); });
  if (!isAnyShown || !m_screen.m_IsBuilt() || m_lookTimer) return;
  const auto look = [](void* self) {
    static_cast<CStartDCIssues*>(self)->m_LookForGone();
    return ECORE_CALLBACK_RENEW;
  };
  m_lookTimer = ecore_timer_add(kLookPeriod, look, this);
}

void CStartDCIssues::m_StopLookingForGone() {
  m_lookJob.m_Cancel();
  if (m_lookTimer) ecore_timer_del(m_lookTimer);
  m_lookTimer = nullptr;
}

void CStartDCIssues::m_LookForGone() {
  if (m_lookJob.m_IsRunning()) return;
  std::vector<std::string> waiting;
  for (const MapToDBTable& row : m_rows)
    if (m_IsWaitedFor(row)) waiting.push_back(row.issue_code);
  for (const auto& [code, since] : m_waiting)
    if (const int row = m_RowOf(code); m_list && row >= 0) elm_flux_list_update(m_list, row);  // its time may be over
  if (waiting.empty()) return m_StopLookingForGone();
  const auto gone = std::make_shared<std::vector<std::string>>(), still = std::make_shared<std::vector<std::string>>();
  const auto tell = [this, gone, still] {
    for (const std::string& code : *gone)
      if (!m_IsBeingHandled(code)) m_TakeAway(code);
    for (const std::string& code : *still) m_TellStillThere(code);
  };
  m_lookJob.m_Start(
      [waiting, gone, still](const CScreenJob::Control&) {
        for (const std::string& code : waiting) {
          if (!IsFalseNow(NumberOf(code))) {
            if (WasOfNoEffect(NumberOf(code))) still->push_back(code);
          } else if (QUVA_DiagResultManager::GetInstance()->DeleteRemainingDBColumn(code)) {
            gone->push_back(code);
          }
        }
      },
      tell, tell);
}

// What was opened elsewhere is recorded so from the beginning.
void CStartDCIssues::m_TellStillThere(const std::string& issueCode) {
  const auto at = m_waiting.find(issueCode);
  if (at == m_waiting.end() || at->second.opened || at->second.isStillThere || m_IsBeingHandled(issueCode)) return;
  at->second.isStillThere = true;
  if (const int row = m_RowOf(issueCode); m_list && row >= 0) elm_flux_list_update(m_list, row);
}

bool CStartDCIssues::m_IsWaitedFor(const MapToDBTable& row) const {
  const auto at = m_waiting.find(row.issue_code);
  // The same issue found anew is another one.
  return at != m_waiting.end() && at->second.since == row.last_time &&
         (at->second.opened || at->second.isStillThere || std::chrono::steady_clock::now() < at->second.end);
}

std::string CStartDCIssues::m_WaitingText(const MapToDBTable& row) const {
  const auto at = m_waiting.find(row.issue_code);
  if (at == m_waiting.end() || at->second.since != row.last_time) return "";
  if (at->second.isStillThere) return CUtils::m_GetText(kStillThere);
  return m_IsWaitedFor(row) ? CUtils::m_GetText(at->second.opened ? kOpened : kBeingChecked) : "";
}

void CStartDCIssues::m_TakeAway(const std::string& issueCode) {
  m_waiting.erase(issueCode);
  (*m_solved)(issueCode);
  const int row = m_RowOf(issueCode);
  if (m_popup && m_popupIssue == issueCode) {
    m_screen.m_DismissToast();  // which may have come above it
    CUtils::Instance().m_ExecuteReturn();
  }
  m_RemoveItemFromIndex(row);
  m_TellState();
}

// ---- the toast

void CStartDCIssues::m_ShowToastMsg(int index) {
  if (!m_IsRow(index)) return;
  const MapToDBTable& row = m_rows[static_cast<size_t>(index)];
  const std::string text = SolutionToast(row.toast1, row.toast2);
  if (text.empty()) return;
  VEXILO_LOGI("Toast Msg Evaluated as : %s ", text.c_str());
  m_ShowToastText(text);
}

void CStartDCIssues::m_ShowToastText(const std::string& text, double seconds) {
  m_screen.m_ShowToast(
      text, {[this] { m_ShowScreenPostToastReturn(); }, [this] { m_HandleReturnOnToast(); }},
      [this] { m_AutoTimeOutToast(); }, seconds);
}

void CStartDCIssues::m_HandleReturnOnToast() {
  m_isToastGone = true;
  m_screen.m_DeleteToast();
}

void CStartDCIssues::m_ShowScreenPostToastReturn() {
  m_ShowScreenPostReturn();
}

void CStartDCIssues::m_AutoTimeOutToast() {
  m_screen.m_DismissToast();  // the focus stays where the viewer has taken it meanwhile
}

}  // namespace QUVA
