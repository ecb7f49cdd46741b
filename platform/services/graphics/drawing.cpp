#include "drawing.h"

#include <EGL/egl.h>
#include <EGL/eglext.h>
#include <GLES2/gl2.h>

#include <algorithm>
#include <array>
#include <iterator>
#include <string_view>

namespace vexilo_graphics {

namespace {

enum class Draws { kNot, kSoftware, kCard, kUnknown };

/// What programs that draw in a card's place have in their names.
constexpr std::string_view kSoftware[] = {"llvmpipe", "softpipe", "swrast", "lavapipe", "Software Rasterizer"};

template <typename Function>
Function Find(const char* name) {
  return reinterpret_cast<Function>(eglGetProcAddress(name));
}

bool IsProgram(std::string_view renderer) {
  return std::any_of(std::begin(kSoftware), std::end(kSoftware),
                     [renderer](std::string_view name) { return renderer.find(name) != renderer.npos; });
}

/// With a context that has no surface, so that nothing is shown.
Draws WhoDrawsAt(EGLDisplay display) {
  constexpr EGLint kVersion[] = {EGL_CONTEXT_CLIENT_VERSION, 2, EGL_NONE};
  const auto getString = Find<decltype(&glGetString)>("glGetString");
  if (!getString || !eglBindAPI(EGL_OPENGL_ES_API)) return Draws::kUnknown;
  const EGLContext context = eglCreateContext(display, EGL_NO_CONFIG_KHR, EGL_NO_CONTEXT, kVersion);
  if (!context || !eglMakeCurrent(display, EGL_NO_SURFACE, EGL_NO_SURFACE, context)) return Draws::kUnknown;
  const auto* const renderer = reinterpret_cast<const char*>(getString(GL_RENDERER));
  if (!renderer) return Draws::kUnknown;
  return IsProgram(renderer) ? Draws::kSoftware : Draws::kCard;
}

Draws WhoDrawsWith(EGLDeviceEXT device) {
  const auto getDisplay = Find<PFNEGLGETPLATFORMDISPLAYEXTPROC>("eglGetPlatformDisplayEXT");
  const EGLDisplay display = getDisplay ? getDisplay(EGL_PLATFORM_DEVICE_EXT, device, nullptr) : EGL_NO_DISPLAY;
  if (!display) return Draws::kUnknown;
  if (!eglInitialize(display, nullptr, nullptr)) return Draws::kNot;  // no driver for it is installed
  const Draws who = WhoDrawsAt(display);
  eglTerminate(display);
  return who;
}

}  // namespace

std::optional<bool> IsSoftwareAlone() {
  std::array<EGLDeviceEXT, 16> devices{};
  EGLint count = 0;
  const auto query = Find<PFNEGLQUERYDEVICESEXTPROC>("eglQueryDevicesEXT");
  if (!query || !query(static_cast<EGLint>(devices.size()), devices.data(), &count)) return std::nullopt;
  bool isKnown = true;
  for (EGLint i = 0; i < count; ++i) {
    const Draws who = WhoDrawsWith(devices[static_cast<size_t>(i)]);
    if (who == Draws::kCard) return false;
    isKnown = isKnown && who != Draws::kUnknown;
  }
  return isKnown ? std::optional(true) : std::nullopt;
}

}  // namespace vexilo_graphics
