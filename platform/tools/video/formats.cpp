#include "formats.h"

#include <string_view>

#include "gst_handle.h"

namespace tools {

namespace {

struct Wanted {
  const char* name;
  const char* caps;
  const char* package;  // of Debian
};

constexpr Wanted kWanted[] = {
    {"H.264", "video/x-h264", "gstreamer1.0-libav"},
    {"H.265", "video/x-h265", "gstreamer1.0-libav"},
    {"VP9", "video/x-vp9", "gstreamer1.0-plugins-good"},
    {"AV1", "video/x-av1", "gstreamer1.0-plugins-bad"},
};

using Factories = std::unique_ptr<GList, CRelease<&gst_plugin_feature_list_free>>;

/// Whether it can be had: one for a device that is gone or in use cannot.
bool Works(GstElementFactory* factory) {
  const GstHandle<GstElement> decoder(gst_element_factory_create(factory, nullptr));
  if (!decoder) return false;
  const bool works = gst_element_set_state(decoder.get(), GST_STATE_READY) != GST_STATE_CHANGE_FAILURE;
  gst_element_set_state(decoder.get(), GST_STATE_NULL);
  return works;
}

/// The one that playing would take: of those that work, the first by rank.
VideoDecoder FindDecoder(const char* text) {
  const Factories all(gst_element_factory_list_get_elements(
      GST_ELEMENT_FACTORY_TYPE_DECODER | GST_ELEMENT_FACTORY_TYPE_MEDIA_VIDEO, GST_RANK_MARGINAL));
  const GstCapsHandle caps(gst_caps_from_string(text));
  Factories fitting(gst_element_factory_list_filter(all.get(), caps.get(), GST_PAD_SINK, false));
  fitting.reset(g_list_sort(fitting.release(), gst_plugin_feature_rank_compare_func));
  for (const GList* each = fitting.get(); each; each = each->next)
    if (auto* const factory = GST_ELEMENT_FACTORY(each->data); Works(factory)) return DescribeDecoder(factory);
  return {};
}

}  // namespace

VideoDecoder DescribeDecoder(GstElementFactory* factory) {
  const char* const classes = gst_element_factory_get_metadata(factory, GST_ELEMENT_METADATA_KLASS);
  return {GST_OBJECT_NAME(factory),
          std::string_view(classes ? classes : "").find("Hardware") != std::string_view::npos};
}

std::vector<VideoFormat> FindFormats() {
  std::vector<VideoFormat> formats;
  for (const Wanted& wanted : kWanted) formats.push_back({wanted.name, FindDecoder(wanted.caps), wanted.package});
  return formats;
}

}  // namespace tools
