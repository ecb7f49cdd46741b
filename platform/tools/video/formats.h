#pragma once
/// @file
/// What this machine can decode, by the register of plug-ins. Any thread but the main loop's: decoders are tried.

#include <gst/gst.h>

#include <vector>

#include "video_player.h"

namespace tools {

/// What an element is called, and whether it says that hardware works for it.
VideoDecoder DescribeDecoder(GstElementFactory* factory);

std::vector<VideoFormat> FindFormats();

}  // namespace tools
