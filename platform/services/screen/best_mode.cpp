#include "best_mode.h"

#include <X11/Xlib.h>
#include <X11/extensions/Xrandr.h>

#include <algorithm>
#include <memory>
#include <vector>

#include "c_handle.h"

namespace vexilo_screen {

namespace {

using DisplayHandle = std::unique_ptr<Display, CRelease<&XCloseDisplay>>;
using Resources = std::unique_ptr<XRRScreenResources, CRelease<&XRRFreeScreenResources>>;
using Output = std::unique_ptr<XRROutputInfo, CRelease<&XRRFreeOutputInfo>>;
using Crtc = std::unique_ptr<XRRCrtcInfo, CRelease<&XRRFreeCrtcInfo>>;

/// What one part of the graphics card sends to one or more screens.
struct Picture {
  RRCrtc id = 0;
  Crtc before{};
  RRMode mode = 0;
  int x = 0, y = 0, width = 0, height = 0;  ///< as it is turned
};

bool IsTurned(const XRRCrtcInfo& crtc) {
  return (crtc.rotation & (RR_Rotate_90 | RR_Rotate_270)) != 0;
}

long AreaOf(const XRRModeInfo& mode) {
  return static_cast<long>(mode.width) * mode.height;
}

const XRRModeInfo* ModeOf(const XRRScreenResources& resources, RRMode id) {
  for (int i = 0; i < resources.nmode; ++i)
    if (resources.modes[i].id == id) return &resources.modes[i];
  return nullptr;
}

/// What the screen prefers, else its largest mode.
const XRRModeInfo* BestOf(const XRRScreenResources& resources, const XRROutputInfo& output) {
  if (output.npreferred > 0 && output.nmode > 0) return ModeOf(resources, output.modes[0]);
  const XRRModeInfo* best = nullptr;
  for (int i = 0; i < output.nmode; ++i) {
    const XRRModeInfo* const mode = ModeOf(resources, output.modes[i]);
    if (mode && (!best || AreaOf(*mode) > AreaOf(*best))) best = mode;
  }
  return best;
}

bool Has(const XRROutputInfo& output, RRMode mode) {
  return std::find(output.modes, output.modes + output.nmode, mode) != output.modes + output.nmode;
}

/// The mode for all the screens of one picture; null when it may stay as it is.
const XRRModeInfo* BetterFor(Display* display, XRRScreenResources* resources, const XRRCrtcInfo& crtc) {
  const XRRModeInfo* const now = ModeOf(*resources, crtc.mode);
  const XRRModeInfo* better = nullptr;
  std::vector<Output> outputs;
  for (int i = 0; i < crtc.noutput; ++i) outputs.emplace_back(XRRGetOutputInfo(display, resources, crtc.outputs[i]));
  for (const Output& output : outputs) {
    const XRRModeInfo* const best = output ? BestOf(*resources, *output) : nullptr;
    const bool suitsAll = best && std::all_of(outputs.begin(), outputs.end(),
                                              [&](const Output& each) { return each && Has(*each, best->id); });
    if (suitsAll && now && AreaOf(*best) > AreaOf(better ? *better : *now)) better = best;
  }
  return better;
}

/// Those to the right of it and below make room.
void Grow(std::vector<Picture>& pictures, Picture& grown, const XRRModeInfo& mode) {
  const bool isTurned = IsTurned(*grown.before);
  const int width = static_cast<int>(isTurned ? mode.height : mode.width);
  const int height = static_cast<int>(isTurned ? mode.width : mode.height);
  for (Picture& other : pictures) {
    if (other.x >= grown.x + grown.width) other.x += std::max(width - grown.width, 0);
    if (other.y >= grown.y + grown.height) other.y += std::max(height - grown.height, 0);
  }
  grown.mode = mode.id;
  grown.width = width;
  grown.height = height;
}

std::vector<Picture> ReadPictures(Display* display, XRRScreenResources* resources) {
  std::vector<Picture> pictures;
  for (int i = 0; i < resources->ncrtc; ++i) {
    Crtc crtc(XRRGetCrtcInfo(display, resources, resources->crtcs[i]));
    if (!crtc || crtc->mode == None || crtc->noutput == 0) continue;
    Picture picture{resources->crtcs[i]};
    picture.mode = crtc->mode;
    picture.x = crtc->x;
    picture.y = crtc->y;
    picture.width = static_cast<int>(crtc->width);
    picture.height = static_cast<int>(crtc->height);
    picture.before = std::move(crtc);
    pictures.push_back(std::move(picture));
  }
  return pictures;
}

class Desktop {
 public:
  Desktop(Display* display, XRRScreenResources* resources)
      : m_display(display),
        m_resources(resources),
        m_width(DisplayWidth(display, DefaultScreen(display))),
        m_height(DisplayHeight(display, DefaultScreen(display))) {}

  /// As large as all pictures need, and never smaller.
  std::string Show(const std::vector<Picture>& pictures) {
    int width = m_width, height = m_height;
    for (const Picture& each : pictures) {
      width = std::max(width, each.x + each.width);
      height = std::max(height, each.y + each.height);
    }
    int least = 0, mostWide = 0, mostHigh = 0;
    XRRGetScreenSizeRange(m_display, DefaultRootWindow(m_display), &least, &least, &mostWide, &mostHigh);
    if (width > mostWide || height > mostHigh)
      return std::to_string(width) + "x" + std::to_string(height) + " is more than the graphics card can show";
    XGrabServer(m_display);
    Resize(width, height);
    const bool isShown = std::all_of(pictures.begin(), pictures.end(),
                                     [this](const Picture& each) { return Set(each, each.mode, each.x, each.y); });
    if (!isShown) {
      for (const Picture& each : pictures) Set(each, each.before->mode, each.before->x, each.before->y);
      Resize(m_width, m_height);
    }
    XUngrabServer(m_display);
    XSync(m_display, False);
    return isShown ? "" : "the graphics card refuses the screen's best resolution";
  }

 private:
  /// The density stays as it is.
  void Resize(int width, int height) {
    const int screen = DefaultScreen(m_display);
    const auto millimetres = [](int all, int before, int pixels) { return std::max(1, all * pixels / before); };
    XRRSetScreenSize(m_display, DefaultRootWindow(m_display), width, height,
                     millimetres(DisplayWidthMM(m_display, screen), m_width, width),
                     millimetres(DisplayHeightMM(m_display, screen), m_height, height));
  }

  bool Set(const Picture& picture, RRMode mode, int x, int y) {
    return XRRSetCrtcConfig(m_display, m_resources, picture.id, CurrentTime, x, y, mode, picture.before->rotation,
                            picture.before->outputs, picture.before->noutput) == RRSetConfigSuccess;
  }

  Display* const m_display;
  XRRScreenResources* const m_resources;
  const int m_width, m_height;
};

}  // namespace

std::string ShowBestModes() {
  const DisplayHandle display(XOpenDisplay(nullptr));
  if (!display) return "there is no X server";
  int number = 0, major = 0, minor = 0;
  if (XQueryExtension(display.get(), "XWAYLAND", &number, &number, &number))
    return "the X server is one within Wayland, which has no say in it";
  if (!XRRQueryVersion(display.get(), &major, &minor) || major * 100 + minor < 103)
    return "the X server cannot change resolutions";
  const Resources resources(XRRGetScreenResourcesCurrent(display.get(), DefaultRootWindow(display.get())));
  if (!resources) return "the X server does not tell its resolutions";
  std::vector<Picture> pictures = ReadPictures(display.get(), resources.get());
  bool isAnyBetter = false;
  for (Picture& each : pictures)
    if (const XRRModeInfo* const better = BetterFor(display.get(), resources.get(), *each.before)) {
      Grow(pictures, each, *better);
      isAnyBetter = true;
    }
  if (!isAnyBetter) return "each screen shows its best resolution already";
  return Desktop(display.get(), resources.get()).Show(pictures);
}

}  // namespace vexilo_screen
