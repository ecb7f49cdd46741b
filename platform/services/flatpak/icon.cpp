#include "icon.h"

#include <cairo.h>
#include <dirent.h>
#include <fcntl.h>
#include <librsvg/rsvg.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <memory>
#include <string_view>
#include <utility>
#include <vector>

#include "base/atomic_file.h"
#include "base/beneath.h"
#include "base/glib_handle.h"
#include "c_handle.h"
#include "dlog.h"
#include "log_tags.h"
#include "set_paths.h"
#include "system_path.h"

namespace vexilo_flatpak {

namespace {

using DirHandle = std::unique_ptr<DIR, CRelease<&closedir>>;
using SurfaceHandle = std::unique_ptr<cairo_surface_t, CRelease<&cairo_surface_destroy>>;
using CanvasHandle = std::unique_ptr<cairo_t, CRelease<&cairo_destroy>>;
/// Fills a square of that many pixels. False when it cannot.
using Painter = std::function<bool(cairo_t* canvas, double pixels)>;

constexpr const char* kTag = log_tags::kFlatpak;
constexpr char kIcons[] = "export/share/icons/hicolor";
constexpr int kSizes[] = {304, 448};
constexpr size_t kMaxFileBytes = 16u << 20;
constexpr int kMaxPixels = 4096;  // of a picture's sides
constexpr rlim_t kMaxMemory = 512u << 20;
constexpr rlim_t kMaxCpuSeconds = 3;
constexpr unsigned kMaxSeconds = 10;

/// The files that it may be drawn from, best first: the drawing, then the pictures by size ("128x128/apps/…").
std::vector<std::string> Candidates(int deployment, const std::string& id) {
  std::vector<std::pair<int, std::string>> pictures;
  FdHandle folder = OpenBeneath(deployment, kIcons, O_DIRECTORY);
  const DirHandle stream(folder ? fdopendir(folder.get()) : nullptr);
  if (stream) folder.release();
  while (const dirent* entry = stream ? readdir(stream.get()) : nullptr)
    pictures.emplace_back(std::atoi(entry->d_name), std::string(kIcons) + "/" + entry->d_name + "/apps/" + id + ".png");
  std::sort(pictures.rbegin(), pictures.rend());
  std::vector<std::string> files{std::string(kIcons) + "/scalable/apps/" + id + ".svg"};
  for (const auto& [pixels, file] : pictures)
    if (pixels > 0) files.push_back(file);
  return files;
}

uint32_t BigEndian(const std::string& bytes, size_t at) {
  uint32_t number = 0;
  for (size_t i = 0; i < 4; ++i) number = number << 8 | static_cast<unsigned char>(bytes[at + i]);
  return number;
}

/// The sides are looked at before anything is made as large as they are.
bool HasSaneSides(const std::string& png) {
  constexpr size_t kWidthAt = 16, kHeightAt = 20;
  return png.size() > kHeightAt + 4 && BigEndian(png, kWidthAt) <= kMaxPixels &&
         BigEndian(png, kHeightAt) <= kMaxPixels;
}

cairo_status_t TakeBytes(void* source, unsigned char* bytes, unsigned length) {
  auto& left = *static_cast<std::string_view*>(source);
  if (left.size() < length) return CAIRO_STATUS_READ_ERROR;
  std::memcpy(bytes, left.data(), length);
  left.remove_prefix(length);
  return CAIRO_STATUS_SUCCESS;
}

Painter PictureOf(const std::string& png) {
  std::string_view left = png;
  if (!HasSaneSides(png)) return {};
  const std::shared_ptr<cairo_surface_t> picture(cairo_image_surface_create_from_png_stream(TakeBytes, &left),
                                                 &cairo_surface_destroy);
  if (cairo_surface_status(picture.get()) != CAIRO_STATUS_SUCCESS) return {};
  return [picture](cairo_t* canvas, double pixels) {
    const double width = cairo_image_surface_get_width(picture.get());
    const double height = cairo_image_surface_get_height(picture.get());
    const double scale = pixels / std::max(width, height);
    cairo_translate(canvas, (pixels - width * scale) / 2, (pixels - height * scale) / 2);
    cairo_scale(canvas, scale, scale);
    cairo_set_source_surface(canvas, picture.get(), 0, 0);
    cairo_pattern_set_filter(cairo_get_source(canvas), CAIRO_FILTER_BEST);
    cairo_paint(canvas);
    return true;
  };
}

/// Without a place that it comes from, a drawing can refer to no other file.
Painter DrawingOf(const std::string& svg) {
  const auto* bytes = reinterpret_cast<const guint8*>(svg.data());
  const std::shared_ptr<RsvgHandle> drawing(rsvg_handle_new_from_data(bytes, svg.size(), nullptr),
                                            [](RsvgHandle* each) {
                                              if (each) g_object_unref(each);
                                            });
  if (!drawing) return {};
  return [drawing](cairo_t* canvas, double pixels) {
    const RsvgRectangle whole{0, 0, pixels, pixels};
    return rsvg_handle_render_document(drawing.get(), canvas, &whole, nullptr) != FALSE;
  };
}

/// Four tiles on a plate.
bool PaintPlain(cairo_t* canvas, double pixels) {
  const auto tile = [canvas](double x, double y, double side, double radius) {
    const double turn = std::acos(-1.0) / 2;
    cairo_new_sub_path(canvas);
    cairo_arc(canvas, x + side - radius, y + radius, radius, -turn, 0);
    cairo_arc(canvas, x + side - radius, y + side - radius, radius, 0, turn);
    cairo_arc(canvas, x + radius, y + side - radius, radius, turn, 2 * turn);
    cairo_arc(canvas, x + radius, y + radius, radius, 2 * turn, 3 * turn);
    cairo_close_path(canvas);
    cairo_fill(canvas);
  };
  cairo_scale(canvas, pixels, pixels);
  cairo_set_source_rgb(canvas, 0.23, 0.27, 0.34);
  tile(0.06, 0.06, 0.88, 0.16);
  cairo_set_source_rgb(canvas, 0.78, 0.82, 0.88);
  for (const double x : {0.26, 0.53})
    for (const double y : {0.26, 0.53}) tile(x, y, 0.21, 0.045);
  return true;
}

cairo_status_t AddBytes(void* to, const unsigned char* bytes, unsigned length) {
  static_cast<std::string*>(to)->append(reinterpret_cast<const char*>(bytes), length);
  return CAIRO_STATUS_SUCCESS;
}

/// In all sizes. False with errno when one is not there afterwards; 0 for what cannot be painted.
bool Publish(const std::string& folder, const Painter& painter) {
  std::vector<std::pair<std::string, std::string>> files;
  errno = 0;
  for (const int size : kSizes) {
    const SurfaceHandle surface(cairo_image_surface_create(CAIRO_FORMAT_ARGB32, size, size));
    const CanvasHandle canvas(cairo_create(surface.get()));
    std::string png;
    if (!painter || !painter(canvas.get(), size) || cairo_status(canvas.get()) != CAIRO_STATUS_SUCCESS ||
        cairo_surface_write_to_png_stream(surface.get(), AddBytes, &png) != CAIRO_STATUS_SUCCESS)
      return false;
    files.emplace_back(folder + std::to_string(size) + "x" + std::to_string(size) + ".png", std::move(png));
  }
  return std::all_of(files.begin(), files.end(), [](const auto& file) { return PublishFile(file.first, file.second); });
}

/// What a picture may take: a broken or hostile one must not take the machine along.
void Limit() {
  std::string sizes;
  ReadWholeFile("/proc/self/statm", sizes);
  const rlim_t memory = std::strtoull(sizes.c_str(), nullptr, 10) * static_cast<rlim_t>(sysconf(_SC_PAGESIZE));
  for (const auto& [what, most] : {std::pair(RLIMIT_AS, memory + kMaxMemory), std::pair(RLIMIT_CPU, kMaxCpuSeconds),
                                   std::pair(RLIMIT_CORE, rlim_t{0})}) {
    const rlimit limit{most, most};
    setrlimit(what, &limit);
  }
  alarm(kMaxSeconds);
}

enum class Drawn { kYes, kNone, kBroken };

/// In a process of its own.
Drawn DrawExported(int deployment, const std::string& id, const std::string& folder) {
  const pid_t child = fork();
  if (child == 0) {
    Limit();
    Drawn drawn = Drawn::kNone;
    for (const std::string& file : Candidates(deployment, id)) {
      std::string bytes;
      if (!ReadBeneath(deployment, file, kMaxFileBytes, bytes)) {
        if (errno != ENOENT) drawn = Drawn::kBroken;
        continue;
      }
      drawn = Drawn::kBroken;
      if (Publish(folder, file.ends_with(".svg") ? DrawingOf(bytes) : PictureOf(bytes))) {
        drawn = Drawn::kYes;
        break;
      }
    }
    _exit(static_cast<int>(drawn));
  }
  int status = 0;
  if (child < 0 || waitpid(child, &status, 0) != child || !WIFEXITED(status)) return Drawn::kBroken;
  return WEXITSTATUS(status) <= static_cast<int>(Drawn::kBroken) ? static_cast<Drawn>(WEXITSTATUS(status))
                                                                 : Drawn::kBroken;
}

}  // namespace

std::string DrawIcon(const std::string& id, const std::string& deployment) {
  const std::string folder = set_paths::kFlatpakIcons + ("/" + id + "/");
  const FdHandle from(open(SystemPath(deployment).c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  if (!from) return deployment + ": " + std::strerror(errno);
  if (!MakeFolders(SystemPath(folder))) return folder + ": " + std::strerror(errno);
  const Drawn drawn = DrawExported(from.get(), id, SystemPath(folder));
  if (drawn == Drawn::kBroken)
    __dlog_print(LOG_ID_APPS, DLOG_WARN, kTag, "%s: no icon in it can be drawn; it gets a plain one",
                 deployment.c_str());
  const bool done = drawn == Drawn::kYes || Publish(SystemPath(folder), PaintPlain);
  if (done && PublishFile(SystemPath(folder + "drawn"), deployment)) return "";
  return folder + ": " + std::strerror(errno);
}

}  // namespace vexilo_flatpak
