// The video test: does this machine decode, and does the picture move as it should?

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
#include "steps.h"
#include "system_path.h"
#include "tools.h"
#include "video/video_player.h"
#include "video_view.h"

namespace tools {

namespace {

using QUVA::CUtils;

constexpr Question kQuestion = {"TV_SID_VEXILO_TEST_SEEN", "TV_SID_VEXILO_VIDEO_NOTICED_MSG",
                                "TV_SID_VEXILO_VIDEO_MISSED_MSG"};
constexpr double kFactsPeriod = 0.5;  // seconds

std::string DecoderText(const VideoDecoder& decoder) {
  return CUtils::m_GetTextWith(decoder.isHardware ? "TV_SID_VEXILO_VIDEO_HARDWARE" : "TV_SID_VEXILO_VIDEO_SOFTWARE",
                               decoder.name);
}

class VideoTest {
 public:
  explicit VideoTest(const Tool& tool) : m_tool(tool), m_page(tool) {}
  void Open();

 private:
  /// What one playing came to.
  struct Count {
    Playback playback;
    int shown = 0, dropped = 0;
  };

  void Listed();
  void Play();
  void OnChange();
  void End();
  void Close();
  Count CountNow() const;
  std::vector<Fact> FactsOf(const Count& count) const;
  void ShowFacts();

  const Tool& m_tool;
  FactsPage m_page;
  std::unique_ptr<VideoPlayer> m_player;
  std::vector<Fact> m_formats;
  std::unique_ptr<VideoView> m_view;
  Ecore_Timer* m_timer = nullptr;
  Count m_last;
  bool m_isPlaying = false;

  Steps m_steps;
};

void VideoTest::Open() {
  m_page.SetNote(CUtils::m_GetText("COM_TV_SID_LOADING"));
  const auto reason = std::make_shared<std::string>();
  const auto formats = std::make_shared<std::vector<VideoFormat>>();
  m_steps.Run(
      [this, reason, formats] {
        m_player = LoadPlayer<VideoPlayer>(set_paths::kVideoPlayer, kMakeVideoPlayer, *reason);
        if (m_player) *formats = m_player->Formats();
      },
      [this, reason, formats] {
        if (!m_player) {
          m_page.SetNote(CUtils::m_GetTextWith("TV_SID_VEXILO_VIDEO_FAILED_MSG", *reason));
          return m_page.AddDone();
        }
        for (const VideoFormat& format : *formats) {
          VEXILO_LOGI("video test: %s %s", format.name,
                      format.decoder.name.empty() ? "cannot be decoded" : format.decoder.name.c_str());
          m_formats.push_back({format.name, format.decoder.name.empty()
                                                ? CUtils::m_GetTextWith("TV_SID_VEXILO_VIDEO_MISSING", format.package)
                                                : DecoderText(format.decoder)});
        }
        Listed();
      });
}

void VideoTest::Listed() {
  m_page.SetNote(CUtils::m_GetText("TV_SID_VEXILO_VIDEO_LOOK"));
  m_page.AddButton("TV_SID_VEXILO_VIDEO_PLAY", [this] { Play(); });
  m_page.SetFacts(m_formats);
}

// ---- playing

void VideoTest::Play() {
  if (m_view) return;
  m_last = {};
  m_page.SetNote(CUtils::m_GetText("TV_SID_VEXILO_VIDEO_LOOK"));
  m_page.Hide();
  m_view = std::make_unique<VideoView>([this] { End(); }, [this] { QUVA::PostToMainLoop([this] { OnChange(); }); });
  m_view->Tell(CUtils::m_GetText("TV_SID_VEXILO_VIDEO_LOOK"));
  CUtils::Instance().m_RegisterForReturnStack({[] {}, [this] { Close(); }}, false);
  m_isPlaying = true;
  m_timer = ecore_timer_add(
      kFactsPeriod,
      [](void* self) -> Eina_Bool { return static_cast<VideoTest*>(self)->ShowFacts(), ECORE_CALLBACK_RENEW; }, this);
  m_steps.Run([this] {
    m_player->Play(SystemPath(set_paths::kTestClip), [this] { QUVA::PostToMainLoop([this] { OnChange(); }); });
  });
}

void VideoTest::OnChange() {
  if (!m_view || !m_isPlaying) return;
  if (!m_view->IsBusy())
    if (auto frame = m_player->TakeFrame()) m_view->Show(std::move(frame));
  const Playback state = m_player->State();
  if (!state.error.empty()) {
    VEXILO_LOGE("%s cannot be played: %s", set_paths::kTestClip, state.error.c_str());
    m_page.SetNote(CUtils::m_GetTextWith("TV_SID_VEXILO_VIDEO_FAILED_MSG", state.error));
    CUtils::Instance().m_ExecuteReturn();
  } else if (state.hasEnded && !m_view->IsBusy()) {
    End();
  }
}

/// Stops where it is, and asks.
void VideoTest::End() {
  if (!m_isPlaying) return;
  ShowFacts();
  m_isPlaying = false;
  m_view->TellNothing();
  VEXILO_LOGI("video test: %s, %s, %d frames shown, %d dropped, %s", m_last.playback.decoder.name.c_str(),
              m_last.playback.decoder.isHardware ? "hardware" : "software", m_last.shown, m_last.dropped,
              m_last.playback.hasEnded ? "to the end" : "stopped");
  m_steps.Run([this] { m_player->Stop(); });
  Ask(m_tool, kQuestion, [this] {
    CUtils::Instance().m_DropFromReturnStack();
    Close();
  });
}

/// Back to the page.
void VideoTest::Close() {
  if (std::exchange(m_isPlaying, false)) m_steps.Run([this] { m_player->Stop(); });
  ecore_timer_del(std::exchange(m_timer, nullptr));
  m_view.reset();
  std::vector<Fact> facts = FactsOf(m_last);
  facts.insert(facts.end(), m_formats.begin(), m_formats.end());
  m_page.SetFacts(std::move(facts));
  m_page.Show();
}

// ---- facts

VideoTest::Count VideoTest::CountNow() const {
  Count count{m_player->State(), m_view->Shown()};
  const int due = count.playback.hasEnded ? count.playback.delivered : m_view->Newest() + 1;
  count.dropped = due - count.shown;
  return count;
}

std::vector<Fact> VideoTest::FactsOf(const Count& count) const {
  std::vector<Fact> facts;
  const Playback& playback = count.playback;
  if (playback.decoder.name.empty()) return facts;  // it never came to decoding
  facts.push_back({CUtils::m_GetText("TV_SID_VEXILO_VIDEO_DECODER"), DecoderText(playback.decoder)});
  facts.push_back({CUtils::m_GetText("TV_SID_VEXILO_VIDEO_SHOWN"), std::to_string(count.shown)});
  facts.push_back({CUtils::m_GetText("TV_SID_VEXILO_VIDEO_DROPPED"), std::to_string(count.dropped)});
  return facts;
}

void VideoTest::ShowFacts() {
  if (!m_isPlaying) return;
  m_last = CountNow();
  std::string text;
  for (const Fact& fact : FactsOf(m_last)) text += (text.empty() ? "" : "     ") + fact.name + ": " + fact.value;
  m_view->SetFacts(text);
}

}  // namespace

void OpenVideoTest(const Tool& tool, const app_framework::Extras&) {
  static VideoTest* test = nullptr;
  test = new VideoTest(tool);
  test->Open();
}

}  // namespace tools
