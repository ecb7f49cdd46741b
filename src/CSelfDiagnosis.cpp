#include "CSelfDiagnosis.h"

#include <algorithm>
#include <cstring>
#include <iterator>
#include <utility>

#include "AppIds.h"
#include "CGetData.h"
#include "DeviceKind.h"
#include "QUVA_KPISender.h"
#include "QUVA_MenuItemParser.h"
#include "SettingsKeys.h"
#include "VexiloLog.h"
#include "flux_resources.h"
#include "menu_checker.h"
#include "vconf.h"

namespace QUVA {

namespace {

constexpr char kTitle[] = "SID_SELF_DIAGNOSIS";
constexpr char kLaunchSource[] = "Self-Diagnosis";  // of a launch that is meant for no tool

/// A test tool. Its label is its identity everywhere.
struct Tool {
  const char* checkerKey;
  const char* labelSid;
  const char* icon;
  const char* kpiText;
  const char* appId;
  const char* scenarioMark;  // null for none
  const char* launchSource;  // of a launch that is meant for it
  const char* guideSids[3];  // by DeviceKind
};

constexpr char kInstallationTest[] = "TV_SID_OOBE_CAJUL_MLED_INSTALL_TEST";
constexpr char kModulesGuide[] = "TV_SID_CARE_MIX_CACOCT_TEST_CHECK_ASSEMBLY_STATUS";
constexpr char kPanelGuide[] = "TV_SID_MLED_CAOCT_NON_MICRO_LED";
constexpr char kHdmiGuide[] = "TV_SID_CONNECTION_DIAGNOSE_HDMI_CONNECTION_PROBLEMS";
constexpr char kSignalGuide[] = "TV_SID_SUPPORT_SHOW_INFO_ABOUT_CURRENT_HDMI_SGINAL";

constexpr Tool kTools[] = {
    {"video-test",
     "TV_SID_CARE_VIDEO_TEST",
     "quorin_videotest.svg",
     "Video Test",
     app_ids::kVideoTest,
     "VIDEO_TEST_SELECTED",
     "video-test",
     {"TV_SID_CARE_USE_VIDEO_TEST_EXPERIENCE_PROBLEM_VIDEO_QUALITY",
      "PJT_SID_CARE_USE_VIDEO_TEST_EXPERIENCE_PROBLEM_VIDEO_QUALITY",
      "PJT_SID_CARE_USE_VIDEO_TEST_EXPERIENCE_PROBLEM_VIDEO_QUALITY"}},
    {"picture-test",
     "SID_PICTURE_TEST",
     "quorin_picturetest.svg",
     "Picture Test",
     app_ids::kPictureTest,
     "PICTURE_TEST_SELECTED",
     "picture-test",
     {"TV_SID_SUPPORT_USE_TEST_EXPERIENCE_TV_PICTURE",
      "REP.DEVICE.SCREEN_SID_SUPPORT_CCDEC_USE_TEST_EXPERIENCE_PICTURE",
      "PJT_SID_SUPPORT_USE_TEST_EXPERIENCE_TV_PICTURE"}},
    {"sound-test",
     "SID_SOUND_TEST",
     "quorin_soundtest.svg",
     "Sound Test",
     app_ids::kSoundTest,
     "SOUND_TEST_SELECTED",
     "sound-test",
     {"TV_SID_SUPPORT_USE_TEST_EXPERIENCE_TV_SOUND", "REP.DEVICE.SCREEN_SID_SUPPORT_CCDEC_USE_TEST_EXPERIENCE_SOUND",
      "PJT_SID_SUPPORT_USE_TEST_EXPERIENCE_TV_SOUND"}},
    {"hdmi-troubleshooting",
     "TV_SID_CONNECTION_HDMI_TROUBLSHOOTING",
     "quorin_HDMIcabletest.svg",
     "HDMI Troubleshooting",
     app_ids::kHdmiTroubleshooting,
     "TROUBLESHOOTING_TEST_SELECTED",
     app_ids::kHdmiTroubleshooting,
     {kHdmiGuide, kHdmiGuide, kHdmiGuide}},
    {"signal-information",
     "SID_SIGNAL_INFORMATION_KR_17",
     "quorin_signalinformation.svg",
     "Signal Information",
     app_ids::kSignalPages,
     "SIGNAL_INFO_SELECTED",
     "SignalInfo",
     {kSignalGuide, kSignalGuide, kSignalGuide}},
    {"sct",
     "COM_SID_HOME_DECK_CONNECTION_TEST",
     "quorin_homedeckconnectiontest.svg",
     "Homedeck Connection Test",
     app_ids::kHomedeckConnectionTest,
     "HOMEDECK_CONNECTION_TEST_SELECTED",
     app_ids::kHomedeckConnectionTest,
     {"TV_SID_SUPPORT_USE_TEST_EXPERIENCE_TV_SERVICE_NETWORK",
      "REP.DEVICE.SCREEN_SID_SUPPORT_CCDEC_USE_TEST_EXPERIENCE_SERVICE_NETWORK",
      "PJT_SID_SUPPORT_USE_TEST_EXPERIENCE_TV_SERVICE_NETWORK"}},
    {"homedeck_reset",
     "COM_TV_SID_RESET_HOME_DECK_KR_KOR",
     "quorin_resethomedeck.svg",
     "Reset Homedeck",
     app_ids::kHomedeckReset,
     nullptr,
     "HomedeckReset",
     {"TV_SID_MENU_RESET_HOME_DECK_TORNELO_ACCOUNT_TV",
      "REP.DEVICE.SCREEN_SID_MENU_CCDEC_CCDEC_RESET_HOME_DECK_TORNELO_ACCOUNT",
      "PJT_SID_MENU_RESET_HOME_DECK_TORNELO_ACCOUNT_TV"}},
    {"mled-installation-test",
     kInstallationTest,
     "i_mled_installation_test_card.svg",
     "MLED Installation Test",
     app_ids::kModulesTest,
     nullptr,
     app_ids::kModulesTest,
     {kPanelGuide, kPanelGuide, kPanelGuide}},
};
constexpr size_t kToolsOfSignage = 4;  // the first of them
constexpr char kAlwaysShown[] = "SID_PICTURE_TEST";

// Why a tool cannot be chosen, by what its checker looks at.
struct Reason {
  const char* checkedKey;
  const char* sid;
};
constexpr Reason kReasons[] = {
    {kConsentKey, "TV_SID_VEXILO_TOOL_NEEDS_TERMS"}, {kToolsLockedKey, "TV_SID_VEXILO_TOOL_LOCKED"},
    {"sound", "TV_SID_VEXILO_TOOL_NO_SOUND"},        {"connectors", "TV_SID_VEXILO_TOOL_NO_CONNECTOR"},
    {"signal", "TV_SID_VEXILO_TOOL_NO_SIGNAL"},      {"video", "TV_SID_VEXILO_TOOL_NO_DECODER"}};
constexpr char kOtherReason[] = "TV_SID_VEXILO_TOOL_NOT_AVAILABLE";

constexpr double kLaunchPause = 1.5;  // seconds
constexpr double kNever = -1e9;

constexpr double kTop = 7;  // units, as all sizes here
constexpr double kGridHeight = 78;
constexpr double kCardWidth = 54;
constexpr double kOneRowHeight = 46;
constexpr double kGuideTop = 4;
constexpr double kTextWidth = 218;
constexpr double kGuideGap = 1.5;

const Tool* FindTool(const std::string& labelSid) {
  const auto* const tool =
      std::find_if(std::begin(kTools), std::end(kTools), [&](const Tool& each) { return labelSid == each.labelSid; });
  return tool == std::end(kTools) ? nullptr : tool;
}

/// What it is in a key "sound unless db/vexilo/tools_locked" that says no.
std::string SayerOfNo(const std::string& key) {
  const size_t unless = key.find(kUnless);
  if (unless == key.npos) return key;
  const std::string lock = key.substr(unless + std::strlen(kUnless));
  int isLocked = 0;
  return vconf_get_bool(lock.c_str(), &isLocked) == 0 && isLocked ? lock : key.substr(0, unless);
}

std::string ReasonOf(const Tool& tool) {
  const std::string checked = SayerOfNo(MenuItemParser::GetInstance()->GetEnableKey(tool.checkerKey));
  for (const Reason& reason : kReasons)
    if (checked == reason.checkedKey) return CUtils::m_GetText(reason.sid);
  return CUtils::m_GetText(kOtherReason);
}

/// The rows are as even as can be: one of up to four cards, else two.
int ColumnsFor(int cards) {
  return cards <= 4 ? std::max(1, cards) : (cards + 1) / 2;
}

}  // namespace

CSelfDiagnosis* CSelfDiagnosis::Instance() {
  static auto* instance = new CSelfDiagnosis;
  return instance;
}

CSelfDiagnosis::CSelfDiagnosis() {
  CUtils::Instance().ConnectHighContrastChangeCB([this] { m_HighContrastChangeCB(); });
}

// ---- the screen

void CSelfDiagnosis::m_CreateSelfDiagnosis(bool registers) {
  CUtils& utils = CUtils::Instance();
  utils.m_SetExitOnPause(true);
  CGetData::GetInstance()->m_SetCurrentScreen(SCREEN_SELF_DIAGNOSIS);
  m_isSignage = utils.m_IsSignage();
  m_launchTime = kNever;
  if (registers)
    utils.m_RegisterForReturnStack({[this] { m_ShowScreenPostReturn(); }, [this] { m_HideSelfDiagnosis(); }}, false);
  const char* const launchFrom = utils.m_pGetLaunchFrom();
  VEXILO_LOGI("Self Diagnosis Launched from %s", launchFrom ? launchFrom : "(null)");
  if (!m_screen.m_Build(kTitle)) return;
  m_InsertAppsNameAndIcon();
  m_ShowAppsGenGrid();
  VEXILO_LOGI("Self Diagnosis Gengrid Added");
  m_selectedIndex = m_CardOfLaunchSource();
  m_SetFocusOnElement();
  m_SetVoiceGuideText();
}

bool CSelfDiagnosis::m_IsLaunchSource(std::string_view source) {
  return source == kLaunchSource || std::any_of(std::begin(kTools), std::end(kTools),
                                                [&](const Tool& tool) { return source == tool.launchSource; });
}

int CSelfDiagnosis::m_CardOfLaunchSource() const {
  const char* const launchFrom = CUtils::Instance().m_pGetLaunchFrom();
  const std::string_view source = launchFrom ? launchFrom : "";
  for (size_t i = 0; i < m_cards.size(); ++i)
    if (source == FindTool(m_cards[i].labelSid)->launchSource) return static_cast<int>(i);
  return 0;
}

void CSelfDiagnosis::m_HideSelfDiagnosis() {
  CUtils::Instance().m_SetExitOnPause(false);
  m_screen.m_Hide();
  m_CleanObjects();
}

void CSelfDiagnosis::m_ShowScreenPostReturn() {
  CGetData::GetInstance()->m_SetCurrentScreen(SCREEN_SELF_DIAGNOSIS);
  m_screen.m_Show();
  m_SetFocusOnElement();
}

void CSelfDiagnosis::m_ClearSelfDiagnosis() {
  m_CleanObjects();
}

void CSelfDiagnosis::m_CleanObjects() {
  m_screen.m_Clean();
}

// The widget set draws the cards in its own colours; the texts below are its to restyle as well.
void CSelfDiagnosis::m_HighContrastChangeCB() {
  if (m_grid) m_onParentBtnFocused(m_selectedIndex);
}

void CSelfDiagnosis::m_SetVoiceGuideText() {
  if (elm_config_access_get()) CUtils::m_SayVoiceGuideText(CUtils::m_GetText(kTitle));
}

// ---- the cards

void CSelfDiagnosis::m_InsertAppsNameAndIcon() {
  m_cards.clear();
  MenuItemParser* const checkers = MenuItemParser::GetInstance();
  const size_t count = m_isSignage ? kToolsOfSignage : std::size(kTools);
  for (size_t i = 0; i < count; ++i) {
    const Tool& tool = kTools[i];
    Card card{tool.labelSid, true, ""};
    if (card.labelSid != kAlwaysShown) {
      if (!checkers->GetVisibleCheck(tool.checkerKey)) continue;
      card.enabled = checkers->GetEnableCheck(tool.checkerKey) != 0;
      if (!card.enabled) card.reason = ReasonOf(tool);
    }
    VEXILO_LOGD("Self Diag Array :%s", card.labelSid.c_str());
    m_cards.push_back(card);
  }
}

void CSelfDiagnosis::m_ShowAppsGenGrid() {
  Evas_Object* const body = m_screen.m_pGetBody();
  elm_flux_layout_padding_set(body, kPageMargin, kTop, kPageMargin, 0);
  const int count = static_cast<int>(m_cards.size());
  const int columns = ColumnsFor(count);
  Evas_Object* const area = AddLayout(body, FLUX_LAYOUT_VERTICAL, FLUX_ALIGN_CENTER, 0, kGridHeight);
  elm_flux_expand_set(area, true);
  m_grid = elm_flux_grid_add(area, columns);
  elm_flux_size_set(m_grid, columns * kCardWidth, count > columns ? kGridHeight : kOneRowHeight);
  elm_flux_layout_pack(area, m_grid);
  std::vector<FluxCard> cards;
  for (const Card& card : m_cards)
    cards.push_back({getIconPath(card.labelSid), CUtils::m_GetText(card.labelSid.c_str()), card.enabled});
  elm_flux_grid_cards_set(m_grid, std::move(cards));
  elm_flux_access_info_set(m_grid, [this] { return m_Speech(); });
  OnEvent(m_grid, "item,focused", [this](void* index) { m_onParentBtnFocused(*static_cast<int*>(index)); });
  OnEvent(m_grid, "item,moved", [columns](void* index) {
    const int card = *static_cast<int*>(index);
    VEXILO_LOGI("New Row[%d] , New Col[%d]", card / columns, card % columns);
  });
  OnEvent(m_grid, "item,selected", [this](void* index) { m_ParentBtnClickCall(*static_cast<int*>(index)); });
  OnEvent(m_grid, "arrow", [this](void* key) { m_OnKeyDown(static_cast<const char*>(key), false); });
  OnEvent(m_grid, "wheel", [this](void* key) { m_OnKeyDown(static_cast<const char*>(key), true); });

  Evas_Object* const below = AddLayout(body, FLUX_LAYOUT_VERTICAL, FLUX_ALIGN_TOP, 0, 0);
  elm_flux_expand_set(below, true);
  elm_flux_layout_padding_set(below, 0, kGuideTop, 0, 0);
  elm_flux_layout_gap_set(below, kGuideGap);
  m_guide = AddText(below, "", FLUX_FONT_400, kTextColor, FLUX_TEXT_ROW, FLUX_ALIGN_TOP, kTextWidth, 0);
  elm_flux_text_lines_set(m_guide, 2);
  m_reason = AddText(below, "", FLUX_FONT_600, kFaintTextColor, FLUX_TEXT_DETAIL, FLUX_ALIGN_TOP, kTextWidth, 0);
}

std::string CSelfDiagnosis::getIconPath(const std::string& labelSid) {
  const Tool* const tool = FindTool(labelSid);
  return tool ? getResourcePath(tool->icon) : "";
}

void CSelfDiagnosis::getGuideMsg(const std::string& labelSid, char (&buffer)[kGuideSize]) {
  buffer[0] = '\0';
  const Tool* const tool = FindTool(labelSid);
  if (!tool) return;
  const DeviceKind kind = GetDeviceKind();
  const char* sid = tool->guideSids[kind];
  // Only a panel of self-lit modules has modules to be joined.
  if (labelSid == kInstallationTest && CUtils::Instance().m_CheckOstravSupport() != 0) sid = kModulesGuide;
  const std::string text = CUtils::m_GetText(sid);
  size_t length = std::min(text.size(), kGuideSize - 1);
  while (length < text.size() && length > 0 && (text[length] & 0xC0) == 0x80) --length;
  std::memcpy(buffer, text.data(), length);
  buffer[length] = '\0';
}

const CSelfDiagnosis::Card* CSelfDiagnosis::m_Selected() const {
  const bool isCard = m_selectedIndex >= 0 && m_selectedIndex < static_cast<int>(m_cards.size());
  return isCard ? &m_cards[static_cast<size_t>(m_selectedIndex)] : nullptr;
}

void CSelfDiagnosis::m_SetFocusOnElement() {
  elm_flux_grid_focus_set(m_grid, m_selectedIndex);
  FocusWhenIdle(m_grid);
}

std::string CSelfDiagnosis::m_Speech() const {
  const Card* const card = m_Selected();
  if (!card) return "";
  const std::string label = CUtils::m_GetText(card->labelSid.c_str());
  if (!card->enabled)
    return label + ", " + CUtils::m_GetText("TV_SID_VEXILO_VOICE_NOT_AVAILABLE") + ", " + card->reason;
  char guide[kGuideSize];
  getGuideMsg(card->labelSid, guide);
  return label + ", " + guide;
}

void CSelfDiagnosis::m_onParentBtnFocused(int index) {
  m_selectedIndex = index;
  const Card* const card = m_Selected();
  if (!card || !m_guide) return;
  char guide[kGuideSize];
  getGuideMsg(card->labelSid, guide);
  elm_object_text_set(m_guide, guide);
  elm_object_text_set(m_reason, card->reason.c_str());
}

void CSelfDiagnosis::m_OnKeyDown(const char* key, bool isWheel) {
  if (isWheel) VEXILO_LOGI("Wheel event detected.. Keyname[%s]", key);
  const std::string_view name = key;
  if (elm_config_mirrored_get() && (name == "Left" || name == "Right"))
    VEXILO_LOGI("RTL Detected.. Changed Keyname[%s]", name == "Left" ? "Right" : "Left");
}

void CSelfDiagnosis::m_ParentBtnClickCall(int index) {
  m_selectedIndex = index;
  m_launchProcess();
}

void CSelfDiagnosis::m_launchProcess() {
  VEXILO_LOGI("is launch process called ??");
  VEXILO_LOGI("launch process called %d", m_selectedIndex);
  const Card* const card = m_Selected();
  const Tool* const tool = card ? FindTool(card->labelSid) : nullptr;
  if (!tool) return;
  if (!card->enabled) return m_ShowToast(card->reason);
  // Presses that come before the tool is on the screen are one.
  const double now = ecore_loop_time_get();
  if (now < m_launchTime + kLaunchPause) return;
  m_CallScenarioMark();
  QUVA_KPISender::GetInstance()->SendVexiloKPI(tool->kpiText);
  if (CGetData::GetInstance()->ProcessLaunchApp(tool->appId))
    m_launchTime = now;
  else
    m_ShowToast(CUtils::m_GetText("TV_SID_VEXILO_COULD_NOT_DO_IT"));
}

void CSelfDiagnosis::m_CallScenarioMark() {
  VEXILO_LOGI("scenario tracker called %d", m_selectedIndex);
  const Card* const card = m_Selected();
  const Tool* const tool = card ? FindTool(card->labelSid) : nullptr;
  if (tool && tool->scenarioMark) m_InsertScenarioMark(card->labelSid, tool->scenarioMark);
}

void CSelfDiagnosis::m_InsertScenarioMark(const std::string& labelSid, const char* mark) {
  VEXILO_LOGI("Item: %s, Scenario Item: %s", labelSid.c_str(), mark);
  SetEngineScenario(mark);
}

// ---- the toast

void CSelfDiagnosis::m_ShowToast(const std::string& text) {
  m_screen.m_ShowToast(text, {[this] { m_ShowScreenPostToastReturn(); }, [this] { m_HandleReturnOnToast(); }},
                       [this] { m_AutoTimeOut(); });
}

void CSelfDiagnosis::m_HandleReturnOnToast() {
  VEXILO_LOGI("hide 4 toast called ");
  m_screen.m_DeleteToast();
}

void CSelfDiagnosis::m_ShowScreenPostToastReturn() {
  m_ShowScreenPostReturn();
}

void CSelfDiagnosis::m_AutoTimeOut() {
  VEXILO_LOGI("Auto TimeOut");
  m_screen.m_DismissToast();  // the focus stays where the viewer has taken it meanwhile
}

}  // namespace QUVA
