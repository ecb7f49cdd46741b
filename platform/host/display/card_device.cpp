#include "display/card_device.h"

#include <fcntl.h>
#include <xf86drm.h>
#include <xf86drmMode.h>

#include <algorithm>
#include <cstring>
#include <memory>

#include "c_handle.h"

namespace display {

namespace {

using Resources = std::unique_ptr<drmModeRes, CRelease<&drmModeFreeResources>>;
using DrmConnector = std::unique_ptr<drmModeConnector, CRelease<&drmModeFreeConnector>>;
using Encoder = std::unique_ptr<drmModeEncoder, CRelease<&drmModeFreeEncoder>>;
using Crtc = std::unique_ptr<drmModeCrtc, CRelease<&drmModeFreeCrtc>>;
using Properties = std::unique_ptr<drmModeObjectProperties, CRelease<&drmModeFreeObjectProperties>>;
using DrmProperty = std::unique_ptr<drmModePropertyRes, CRelease<&drmModeFreeProperty>>;
using Blob = std::unique_ptr<drmModePropertyBlobRes, CRelease<&drmModeFreePropertyBlob>>;

/// struct hdr_output_metadata of the kernel: a number of four bytes, then the coding.
Brightness BrightnessOf(std::string_view metadata) {
  constexpr size_t kCoding = 4;
  const int coding = metadata.size() > kCoding ? static_cast<unsigned char>(metadata[kCoding]) : 0;
  return coding == 2 ? Brightness::kHdr10 : coding == 3 ? Brightness::kHlg : Brightness::kStandard;
}

Mode ModeOf(const drmModeModeInfo& info) {
  Mode mode{{info.hdisplay, info.vdisplay}};
  mode.isInterlaced = (info.flags & DRM_MODE_FLAG_INTERLACE) != 0;
  const double dots = static_cast<double>(info.htotal) * info.vtotal * std::max<int>(1, info.vscan) *
                      (info.flags & DRM_MODE_FLAG_DBLSCAN ? 2 : 1);
  if (dots > 0) mode.rate = info.clock * 1000.0 / dots * (mode.isInterlaced ? 2 : 1);
  return mode;
}

/// Of a value that is one of a list.
std::string_view NameOf(drmModePropertyRes& property, uint64_t value) {
  if (!drm_property_type_is(&property, DRM_MODE_PROP_ENUM)) return {};
  for (int i = 0; i < property.count_enums; ++i)
    if (const drm_mode_property_enum& each = property.enums[i]; each.value == value)
      return {each.name, strnlen(each.name, sizeof each.name)};
  return {};
}

void TakeProperties(int device, uint32_t object, uint32_t type, Picture& picture) {
  const Properties properties(drmModeObjectGetProperties(device, object, type));
  for (uint32_t i = 0; properties && i < properties->count_props; ++i) {
    const DrmProperty about(drmModeGetProperty(device, properties->props[i]));
    if (!about) continue;
    const uint64_t value = properties->prop_values[i];
    const bool hasBlob = value != 0 && drm_property_type_is(about.get(), DRM_MODE_PROP_BLOB);
    const Blob blob(hasBlob ? drmModeGetPropertyBlob(device, static_cast<uint32_t>(value)) : nullptr);
    TakeProperty({about->name, value, NameOf(*about, value),
                  blob ? std::string_view(static_cast<const char*>(blob->data), blob->length) : std::string_view()},
                 picture);
  }
}

void Ask(int device, const drmModeConnector& from, Connector& connector) {
  for (int i = 0; i < from.count_modes; ++i)
    if (const Mode mode = ModeOf(from.modes[i]); !connector.picture.best || IsBetter(mode, *connector.picture.best))
      connector.picture.best = mode;
  TakeProperties(device, from.connector_id, DRM_MODE_OBJECT_CONNECTOR, connector.picture);
  const Encoder encoder(drmModeGetEncoder(device, from.encoder_id));
  const Crtc crtc(encoder ? drmModeGetCrtc(device, encoder->crtc_id) : nullptr);
  if (!crtc || !crtc->mode_valid) return;
  connector.mode = ModeOf(crtc->mode);
  TakeProperties(device, crtc->crtc_id, DRM_MODE_OBJECT_CRTC, connector.picture);
}

}  // namespace

void AskCard(const std::string& card, std::vector<Connector>& connectors) {
  const FdHandle device(open(("/dev/dri/" + card).c_str(), O_RDWR | O_CLOEXEC | O_NONBLOCK));
  if (!device) return;
  drmDropMaster(device.get());  // who opens it first is made its master, which is for the one who draws
  const Resources resources(drmModeGetResources(device.get()));
  for (int i = 0; resources && i < resources->count_connectors; ++i) {
    const DrmConnector found(drmModeGetConnectorCurrent(device.get(), resources->connectors[i]));
    const char* type = found ? drmModeGetConnectorTypeName(found->connector_type) : nullptr;
    if (!type) continue;
    const std::string name = std::string(type) + "-" + std::to_string(found->connector_type_id);
    for (Connector& each : connectors)
      if (each.card == card && each.name == name) Ask(device.get(), *found, each);
  }
}

void TakeProperty(const Property& property, Picture& picture) {
  const auto is = [&](std::initializer_list<std::string_view> names) {
    return std::find(names.begin(), names.end(), property.name) != names.end();
  };
  if (is({"Content Protection"}))
    picture.protection = property.text == "Enabled"   ? Protection::kOn
                         : property.text == "Desired" ? Protection::kAsked
                                                      : Protection::kOff;
  if (is({"max bpc"})) picture.mostBits = static_cast<int>(property.value);
  // Its name is the driver's own.
  if (is({"output format", "output_format", "color_format", "active color format", "hdmi_output_format"}))
    picture.format = property.text;
  if (is({"Colorspace"}) && property.text != "Default") picture.colours = property.text;
  if (is({"HDR_OUTPUT_METADATA"})) picture.brightness = BrightnessOf(property.blob);
  if (is({"vrr_capable"})) picture.canVary = property.value != 0;
  if (is({"VRR_ENABLED"})) picture.varies = property.value != 0;
}

}  // namespace display
