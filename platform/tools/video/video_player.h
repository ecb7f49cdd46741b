#pragma once
/// @file
/// Plays a clip and says who decodes it. Made by a library of its own, loaded when it is needed: what decodes is large,
/// and only one tool wants it.

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace tools {

struct VideoDecoder {
  std::string name;  ///< empty for none
  bool isHardware = false;
};

struct VideoFormat {
  const char* name;      ///< "H.264"
  VideoDecoder decoder;  ///< the one that plays it on this machine
  const char* package;   ///< what brings a decoder where there is none
};

/// A part of a picture, in pixels from its upper left.
struct VideoPart {
  int x, y, width, height;
};

/// A decoded picture.
struct VideoFrame {
  VideoFrame() = default;
  VideoFrame(const VideoFrame&) = delete;
  VideoFrame& operator=(const VideoFrame&) = delete;
  virtual ~VideoFrame() = default;

  /// Paints what differs from `before`, which is what `pixels` shows (null: all of it is painted), and returns where.
  /// `pixels` are 0xAARRGGBB, line by line without gaps. One frame of a player's at a time.
  virtual std::vector<VideoPart> Paint(uint32_t* pixels, const VideoFrame* before) const = 0;

  int width = 0, height = 0;
  int number = 0;  ///< by its time in the clip, from 0 on
};

struct Playback {
  VideoDecoder decoder;
  std::string sound;  ///< what plays the sound; empty for nothing
  int delivered = 0;  ///< frames that the decoder got so far: what the clip has, once it has ended
  bool hasEnded = false;
  std::string error;  ///< why it does not play, in the words of who decodes; empty while it does
};

class VideoPlayer {
 public:
  VideoPlayer() = default;
  VideoPlayer(const VideoPlayer&) = delete;
  VideoPlayer& operator=(const VideoPlayer&) = delete;
  virtual ~VideoPlayer() = default;  ///< stops

  // These three may wait, so never on the main loop's thread; one at a time.

  /// Who decodes each format that broadcasters and services use.
  virtual std::vector<VideoFormat> Formats() = 0;
  /// Plays it from its beginning. `onChange` is called on a thread of the player's when a frame is due, at the end and
  /// on an error, until Stop() has returned.
  virtual void Play(const std::string& file, std::function<void()> onChange) = 0;
  virtual void Stop() = 0;

  // Any thread.

  /// The first frame that is due and was not taken; null where there is none. Of those that nobody takes two are kept.
  virtual std::shared_ptr<const VideoFrame> TakeFrame() = 0;
  virtual Playback State() const = 0;
};

/// What the library exports under this name; it hands the player over.
inline constexpr char kMakeVideoPlayer[] = "vexilo_make_video_player";

}  // namespace tools
