// The sound test: is it the device, or what comes in?

#include <algorithm>
#include <atomic>
#include <cmath>
#include <iterator>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "CUtils.h"
#include "VexiloLog.h"
#include "facts_page.h"
#include "player_library.h"
#include "question.h"
#include "set_paths.h"
#include "sound/sound_player.h"
#include "steps.h"
#include "tools.h"

namespace tools {

namespace {

using QUVA::CUtils;

constexpr Question kQuestion = {"TV_SID_VEXILO_TEST_HEARD", "TV_SID_VEXILO_SOUND_NOTICED_MSG",
                                "TV_SID_VEXILO_SOUND_MISSED_MSG"};

struct NamedTone {
  Tone tone;
  const char* sid;
  const char* logged;
};
constexpr NamedTone kTones[] = {{Tone::kLeft, "TV_SID_VEXILO_SOUND_LEFT", "left"},
                                {Tone::kRight, "TV_SID_VEXILO_SOUND_RIGHT", "right"},
                                {Tone::kBoth, "TV_SID_VEXILO_SOUND_BOTH", "both"},
                                {Tone::kSweep, "TV_SID_VEXILO_SOUND_SWEEP", "sweep"},
                                {Tone::kMelody, "TV_SID_VEXILO_SOUND_MELODY", "melody"}};
constexpr int kToneCount = static_cast<int>(std::size(kTones));
constexpr int kNoTone = -1;

constexpr double kLookPeriod = 2.0;    // seconds
constexpr double kLevelPeriod = 0.05;  // seconds
constexpr double kFall = 0.06;         // of the bar, each period
constexpr double kQuietest = 60;       // dB below full scale, where the bar begins
constexpr double kMeterWidth = 204;    // units, as the next
constexpr double kBarWidth = 74;
constexpr double kBarHeight = 2;
constexpr int kTitleLines = 2;  // names of devices are long
constexpr double kMeterGap = 2;
constexpr double kSidesGap = 8;

/// What to say of the trouble, or what to do where there is none.
const char* NoteOf(SoundTrouble trouble) {
  switch (trouble) {
    case SoundTrouble::kNone:
      return "TV_SID_VEXILO_SOUND_LISTEN";
    case SoundTrouble::kNoOutput:
      return "TV_SID_VEXILO_SOUND_NO_OUTPUT";
    case SoundTrouble::kMuted:
      return "TV_SID_VEXILO_SOUND_IS_OFF";
    case SoundTrouble::kVolumeZero:
      return "TV_SID_VEXILO_SOUND_VOLUME_ZERO";
    case SoundTrouble::kUnplugged:
      return "TV_SID_VEXILO_SOUND_UNPLUGGED";
    case SoundTrouble::kScreenWithoutSound:
      return "TV_SID_VEXILO_SOUND_SCREEN_WITHOUT";
  }
  return "";
}

double BarOf(double level) {
  return level <= 0 ? 0 : std::clamp(1 + 20 * std::log10(level) / kQuietest, 0.0, 1.0);
}

/// The device, and a bar for each side, that falls slowly.
class Meter {
 public:
  explicit Meter(Evas_Object* area) {
    elm_flux_layout_gap_set(area, kMeterGap);
    m_title = QUVA::AddText(area, "", FLUX_FONT_600, QUVA::kFaintTextColor, FLUX_TEXT_DETAIL, FLUX_ALIGN_LEFT,
                            kMeterWidth, 0);
    elm_flux_text_lines_set(m_title, kTitleLines);
    Evas_Object* const row = QUVA::AddLayout(area, FLUX_LAYOUT_HORIZONTAL, FLUX_ALIGN_LEFT, kMeterWidth, 0);
    elm_flux_layout_gap_set(row, kSidesGap);
    // The sides of a room do not turn with the direction of reading.
    if (elm_config_mirrored_get()) Add(row, "TV_SID_VEXILO_SOUND_RIGHT", m_right);
    Add(row, "TV_SID_VEXILO_SOUND_LEFT", m_left);
    if (!elm_config_mirrored_get()) Add(row, "TV_SID_VEXILO_SOUND_RIGHT", m_right);
  }
  void SetTitle(const std::string& title) {
    if (m_title) elm_object_text_set(m_title, title.c_str());
  }
  void Show(const SoundLevels& levels) {
    Move(m_left, BarOf(levels.left));
    Move(m_right, BarOf(levels.right));
  }

 private:
  struct Side {
    QUVA::CWidget bar;
    double value = 0;
  };

  static void Add(Evas_Object* sides, const char* sid, Side& side) {
    Evas_Object* const row = QUVA::AddLayout(sides, FLUX_LAYOUT_HORIZONTAL, FLUX_ALIGN_LEFT, 0, 0);
    elm_flux_layout_gap_set(row, kMeterGap);
    QUVA::AddText(row, CUtils::m_GetText(sid), FLUX_FONT_600, QUVA::kTextColor, FLUX_TEXT_DETAIL, FLUX_ALIGN_LEFT, 0,
                  0);
    side.bar = elm_flux_progress_add(row, FLUX_PROGRESS_BAR);
    elm_flux_size_set(side.bar, kBarWidth, kBarHeight);
    elm_flux_progress_color_set(side.bar, QUVA::kAccentColor);
    elm_flux_progress_unit_set(side.bar, nullptr);
    elm_flux_layout_pack(row, side.bar);
  }
  static void Move(Side& side, double value) {
    value = std::max(value, side.value - kFall);
    if (side.bar && value != std::exchange(side.value, std::max(value, 0.0)))
      elm_flux_progress_value_set(side.bar, side.value);
  }

  Side m_left, m_right;
  QUVA::CWidget m_title;
};

class SoundTest {
 public:
  explicit SoundTest(const Tool& tool) : m_tool(tool), m_page(tool) {}
  void Open();

 private:
  void Look();
  void ShowState();
  void TellDevice();
  void LogState();
  std::string DeviceText() const;
  void Begin();
  void Play(int row);
  void Ended(int row, const std::string& problem);
  void Unmute();
  void Ask();
  bool HasOutput() const { return m_state.trouble != SoundTrouble::kNoOutput; }

  const Tool& m_tool;
  FactsPage m_page;
  std::unique_ptr<Meter> m_meter;
  std::unique_ptr<SoundPlayer> m_player;
  SoundOutputState m_state;
  std::string m_logged;
  std::string m_told;          // of the device
  std::string m_problem;       // why the last sound was not played
  int m_wanted = kNoTone;      // which is to play now
  std::atomic<int> m_turn{0};  // counts what was asked for
  QUVA::CWidget m_unmute;
  Steps m_steps;
  QUVA::CScreenJob m_looking;
  QUVA::CScreenJob m_unmuting;
};

void SoundTest::Open() {
  m_page.SetNote(CUtils::m_GetText("COM_TV_SID_LOADING"));
  const auto reason = std::make_shared<std::string>();
  m_steps.Run(
      [this, reason] {
        m_player = LoadPlayer<SoundPlayer>(set_paths::kSoundPlayer, kMakeSoundPlayer, *reason);
        if (m_player) m_state = m_player->Look();
      },
      [this, reason] {
        if (m_player) return Begin();
        m_page.SetNote(CUtils::m_GetTextWith("TV_SID_VEXILO_SOUND_FAILED_MSG", *reason));
        m_page.AddDone();
      });
}

void SoundTest::Begin() {
  ShowState();
  m_page.OnSelect([this](int row) { Play(row); });
  m_meter = std::make_unique<Meter>(m_page.Area());
  m_page.AddButton("SID_DONE", [this] { Ask(); });
  m_unmute = m_page.AddButton("TV_SID_VEXILO_SOUND_UNMUTE", [this] { Unmute(); });
  ShowState();
  const auto every = [](double period, Ecore_Task_Cb call, SoundTest* self) { ecore_timer_add(period, call, self); };
  every(
      kLookPeriod, [](void* self) -> Eina_Bool { return static_cast<SoundTest*>(self)->Look(), ECORE_CALLBACK_RENEW; },
      this);
  every(
      kLevelPeriod,
      [](void* data) -> Eina_Bool {
        auto* const self = static_cast<SoundTest*>(data);
        return self->m_meter->Show(self->m_player->TakeLevels()), ECORE_CALLBACK_RENEW;
      },
      this);
}

// ---- where it goes

void SoundTest::Look() {
  if (m_looking.m_IsRunning()) return;
  const auto state = std::make_shared<SoundOutputState>();
  m_looking.m_Start([this, state](const QUVA::CScreenJob::Control&) { *state = m_player->Look(); },
                    [this, state] {
                      // What failed on another output says nothing of this one.
                      if (state->trouble != m_state.trouble || state->title != m_state.title) m_problem.clear();
                      m_state = *state;
                      ShowState();
                    },
                    {});
}

void SoundTest::ShowState() {
  LogState();
  m_page.SetNote(m_problem.empty() || !HasOutput()
                     ? CUtils::m_GetText(NoteOf(m_state.trouble))
                     : CUtils::m_GetTextWith("TV_SID_VEXILO_SOUND_FAILED_MSG", m_problem));
  std::vector<Fact> facts;
  const int playing = m_wanted;
  for (int i = 0; HasOutput() && i < kToneCount; ++i)
    facts.push_back({CUtils::m_GetText(kTones[i].sid),
                     i == playing ? CUtils::m_GetText("TV_SID_VEXILO_SOUND_PLAYING") : std::string()});
  m_page.SetFacts(std::move(facts));
  if (!m_meter) return;
  TellDevice();
  if (HasOutput())
    evas_object_show(m_page.Area());
  else
    evas_object_hide(m_page.Area());
  if (m_state.isMuted == true)
    evas_object_show(m_unmute);
  else
    evas_object_hide(m_unmute);
}

/// It never has the focus, so it is said when it changes.
void SoundTest::TellDevice() {
  const std::string text = DeviceText();
  m_meter->SetTitle(text);
  if (text != std::exchange(m_told, text) && elm_config_access_get())
    CUtils::m_SayVoiceGuideText(CUtils::m_GetText(NoteOf(m_state.trouble)) + " " + text);
}

void SoundTest::LogState() {
  const std::string line =
      (HasOutput() ? "the output is \"" + m_state.title + "\"" : std::string("there is no output")) +
      (m_state.isMuted == true ? ", muted" : "");
  if (line != m_logged) VEXILO_LOGI("sound test: %s", line.c_str());
  m_logged = line;
}

std::string SoundTest::DeviceText() const {
  std::string text;
  const auto add = [&text](const char* sid, const std::string& value) {
    if (!value.empty()) text += (text.empty() ? "" : "     ") + CUtils::m_GetText(sid) + ": " + value;
  };
  add("TV_SID_VEXILO_SOUND_DEVICE", m_state.title);
  add("TV_SID_VEXILO_SOUND_PLUG", m_state.port);
  if (m_state.volumePercent)
    add("TV_SID_VEXILO_SOUND_VOLUME", std::to_string(std::lround(*m_state.volumePercent)) + "%");
  if (m_state.isMuted)
    add("TV_SID_VEXILO_SOUND_IS_MUTED", CUtils::m_GetText(*m_state.isMuted ? "COM_SID_YES" : "COM_SID_NO"));
  return text;
}

void SoundTest::Unmute() {
  if (m_unmuting.m_IsRunning()) return;
  const auto problem = std::make_shared<std::string>();
  // Not behind what plays.
  m_unmuting.m_Start([this, problem](const QUVA::CScreenJob::Control&) { m_player->Unmute(*problem); },
                     [this, problem] {
                       m_problem = *problem;
                       Look();
                     },
                     {});
}

// ---- playing

/// Once more for the one that plays: it ends.
void SoundTest::Play(int row) {
  if (row >= kToneCount || !HasOutput()) return;
  m_problem.clear();
  const bool isSame = m_wanted == row;
  m_wanted = isSame ? kNoTone : row;
  const int turn = ++m_turn;
  m_player->Stop();
  ShowState();
  if (isSame) return;
  const auto problem = std::make_shared<std::string>();
  m_steps.Run(
      [this, turn, row, problem] {
        if (m_turn == turn) m_player->Play(kTones[row].tone, *problem);
      },
      [this, turn, row, problem] {
        if (m_turn == turn) Ended(row, *problem);
      });
}

void SoundTest::Ended(int row, const std::string& problem) {
  m_wanted = kNoTone;
  m_problem = problem;
  if (problem.empty())
    VEXILO_LOGI("sound test: %s was played on \"%s\"", kTones[row].logged, m_state.title.c_str());
  else
    VEXILO_LOGE("sound test: %s cannot be played: %s", kTones[row].logged, problem.c_str());
  ShowState();
}

void SoundTest::Ask() {
  // There was nothing to be heard.
  if (!HasOutput()) return CUtils::Instance().m_Leave();
  m_wanted = kNoTone;
  ++m_turn;
  m_player->Stop();
  ShowState();
  tools::Ask(m_tool, kQuestion, [] {});
}

}  // namespace

void OpenSoundTest(const Tool& tool, const app_framework::Extras&) {
  static SoundTest* test = nullptr;
  test = new SoundTest(tool);
  test->Open();
}

}  // namespace tools
