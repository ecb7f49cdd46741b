#pragma once
/// @file
/// Pictures that fill the whole panel, gone through with left and right.
///
/// Thread rule: main loop thread.

#include <functional>
#include <vector>

#include "CScreenJob.h"
#include "CWidget.h"
#include "full_screen.h"
#include "patterns.h"

namespace tools {

/// Shows them in the application's window until it is deleted. A picture is drawn on a worker, in the panel's own
/// pixels, and again when the window changes its size.
class PatternView {
 public:
  /// `onEnd` is called for Enter, and for going on after the last picture; until it is resumed the view takes no keys.
  PatternView(std::vector<Pattern> patterns, std::function<void()> onEnd);
  PatternView(const PatternView&) = delete;
  PatternView& operator=(const PatternView&) = delete;
  ~PatternView();

  void Show(size_t index);
  /// Takes keys again.
  void Resume();

 private:
  static void OnClick(void* self, Evas* canvas, Evas_Object* image, void* event);
  static void OnResize(void* self, Evas* canvas, void* info);

  void OnKey(std::string_view key);
  void Step(int by);
  void End();
  void Draw();
  void Finish(const Bitmap& picture);
  void PlaceLabels();
  void TellOnce();

  const std::vector<Pattern> m_patterns;
  const std::function<void()> m_onEnd;
  QUVA::CWidget m_image, m_toast;
  std::vector<Evas_Object*> m_labels;
  QUVA::CScreenJob m_job;
  size_t m_index = 0;
  bool m_takesKeys = true;
  bool m_isDrawn = false;  ///< the picture, as is the next:
  bool m_isTold = false;   ///< what it shows
  const KeyPresses m_keys;
};

}  // namespace tools
