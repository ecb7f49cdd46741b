#pragma once
/// @file
/// A clip that fills the panel, with a line of facts below.
///
/// Thread rule: main loop thread.

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "CWidget.h"
#include "full_screen.h"
#include "video/video_player.h"

namespace tools {

/// Shows frames in the application's window until it is deleted.
class VideoView {
 public:
  /// `onEnter` is called for Enter and for a click, `onReady` when a frame has been drawn.
  VideoView(std::function<void()> onEnter, std::function<void()> onReady);
  VideoView(const VideoView&) = delete;
  VideoView& operator=(const VideoView&) = delete;
  ~VideoView();

  /// Whether a frame is still to be drawn: the canvas reads its pixels.
  bool IsBusy() const { return m_isBusy; }
  /// Only while it is not busy.
  void Show(std::shared_ptr<const VideoFrame> frame);
  void SetFacts(const std::string& facts);
  /// What to look for: told for some seconds, and spoken.
  void Tell(const std::string& text);
  void TellNothing() { m_toast.m_Delete(); }

  /// Frames that were drawn so far.
  int Shown() const { return m_shown; }
  /// The number of the last one of them; -1 for none.
  int Newest() const { return m_newest; }

 private:
  static void OnRender(void* self, Evas* canvas, void* info);
  static void OnRendered(void* self, Evas* canvas, void* info);
  static void OnResize(void* self, Evas* canvas, void* info);
  void Place();

  const std::function<void()> m_onEnter, m_onReady;
  QUVA::CWidget m_ground, m_image, m_bar, m_label, m_toast;
  std::string m_facts;
  std::shared_ptr<const VideoFrame> m_frame;  ///< the one that is painted
  std::vector<uint32_t> m_pixels;             ///< the image's
  bool m_isBusy = false, m_isDrawing = false;
  const double m_tickBefore = ecore_animator_frametime_get();  ///< seconds
  int m_newest = -1;
  int m_shown = 0;
  const KeyPresses m_keys;
};

}  // namespace tools
