#pragma once
/// @file
/// Owners of what GStreamer counts references to. Any thread.

#include <gst/gst.h>

#include "c_handle.h"

template <class T>
using GstHandle = std::unique_ptr<T, CRelease<&gst_object_unref>>;
using GstMessageHandle = std::unique_ptr<GstMessage, CRelease<&gst_message_unref>>;
using GstSampleHandle = std::unique_ptr<GstSample, CRelease<&gst_sample_unref>>;
using GstCapsHandle = std::unique_ptr<GstCaps, CRelease<&gst_caps_unref>>;
