#include "flux/flux_image.h"

#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "dlog.h"
#include "flux/flux_surface.h"
#include "flux/flux_text.h"
#include "system_path.h"

namespace flux {

namespace {

unsigned int g_missedFrames = 0;

/// For the first file of each folder and reason: where one frame of an animation is missing, so are the others.
void LogOnce(const std::string& file, const char* reason) {
  static auto* logged = new std::set<std::string>;
  if (logged->insert(file.substr(0, file.rfind('/') + 1) + reason).second)
    __dlog_print(LOG_ID_APPS, DLOG_ERROR, kTag, "the image %s cannot be shown: %s",
                 std::string(NameOnSet(file)).c_str(), reason);
}

/// The pixels of a drawing, premultiplied ARGB, line after line.
struct Drawing {
  int width = 0;
  int height = 0;
  std::vector<uint32_t> pixels;
};

/// The drawing of a file, `side` pixels wide and high at most; null after a line in the log. It is kept: the toolkit
/// starts two programs of its own to draw one, 20 ms and more, which is too long for each key that moves the focus. A
/// changed file is read again at the next start.
const Drawing* DrawingOf(Evas* canvas, const std::string& file, int side) {
  constexpr size_t kMost = 64;
  static auto* drawings = new std::map<std::pair<std::string, int>, Drawing>;
  if (const auto known = drawings->find({file, side}); known != drawings->end()) return &known->second;

  Evas_Object* const image = evas_object_image_add(canvas);
  evas_object_image_load_size_set(image, side, side);
  // A picture made from it beforehand needs no program at all.
  const std::string made = file + ".png";
  evas_object_image_file_set(image, (access(made.c_str(), R_OK) == 0 ? made : file).c_str(), nullptr);
  const Evas_Load_Error error = evas_object_image_load_error_get(image);
  Drawing drawing;
  evas_object_image_size_get(image, &drawing.width, &drawing.height);
  const auto* const pixels = static_cast<const uint32_t*>(
      error == EVAS_LOAD_ERROR_NONE ? evas_object_image_data_get(image, EINA_FALSE) : nullptr);
  if (pixels) {
    const ptrdiff_t stride = evas_object_image_stride_get(image) / static_cast<int>(sizeof *pixels);
    for (int y = 0; y < drawing.height; ++y)
      drawing.pixels.insert(drawing.pixels.end(), pixels + y * stride, pixels + y * stride + drawing.width);
  }
  evas_object_del(image);
  if (!pixels) {
    LogOnce(file, evas_load_error_str(error == EVAS_LOAD_ERROR_NONE ? EVAS_LOAD_ERROR_CORRUPT_FILE : error));
    return nullptr;
  }
  if (drawings->size() >= kMost) drawings->clear();
  return &drawings->insert_or_assign({file, side}, std::move(drawing)).first->second;
}

/// Gives every pixel the tint's colour and keeps how much of it is seen.
void Tint(uint32_t* pixels, size_t count, const Colour& tint) {
  for (uint32_t* pixel = pixels; pixel != pixels + count; ++pixel) {
    const uint32_t alpha = (*pixel >> 24) * tint.alpha / 255;
    *pixel = alpha << 24 | (tint.red * alpha / 255) << 16 | (tint.green * alpha / 255) << 8 | tint.blue * alpha / 255;
  }
}

class Image : public Widget {
 public:
  Image(Evas_Object* box, Evas_Object* picture) : Widget(box), m_picture(picture) {
    elm_box_layout_set(
        box, [](Evas_Object*, Evas_Object_Box_Data*, void* self) { static_cast<Image*>(self)->Place(); }, this,
        nullptr);
    evas_event_callback_add(evas_object_evas_get(box), EVAS_CALLBACK_RENDER_PRE, OnTaken, this);
    evas_event_callback_add(evas_object_evas_get(box), EVAS_CALLBACK_RENDER_POST, OnShown, this);
    elm_box_pack_end(box, picture);
  }
  ~Image() override {
    evas_event_callback_del_full(evas_object_evas_get(Object()), EVAS_CALLBACK_RENDER_PRE, OnTaken, this);
    evas_event_callback_del_full(evas_object_evas_get(Object()), EVAS_CALLBACK_RENDER_POST, OnShown, this);
  }

  void Restyle() override {
    if (m_tint && !m_file.empty()) Load(m_file);
    elm_box_recalculate(Object());
  }

  bool SetFile(const std::string& file) {
    if (file == m_file) return true;
    if (!Load(file)) {
      if (!m_file.empty()) Load(m_file);
      return false;
    }
    m_file = file;
    if (m_stage == Stage::kSet && IsInSight(Object())) ++g_missedFrames;
    m_stage = Stage::kSet;
    evas_object_show(m_picture);
    elm_box_recalculate(Object());
    return true;
  }

  /// `readable`: the colour is changed where it could not be seen on what is behind the image.
  void SetTint(std::optional<Colour> tint, bool readable) {
    m_tint = tint;
    m_isTintReadable = readable;
    if (!m_file.empty()) Load(m_file);
  }

  bool IsShown() const { return m_stage == Stage::kShown || !IsInSight(Object()); }

 private:
  /// Of the last file: a thread of the canvas draws, so that a file may be set while the one before is being drawn.
  enum class Stage { kSet, kBeingDrawn, kShown };

  static void OnTaken(void* self, Evas*, void*) {
    if (Stage& stage = static_cast<Image*>(self)->m_stage; stage == Stage::kSet) stage = Stage::kBeingDrawn;
  }
  static void OnShown(void* self, Evas*, void*) {
    if (Stage& stage = static_cast<Image*>(self)->m_stage; stage == Stage::kBeingDrawn) stage = Stage::kShown;
  }

  bool IsDrawing() const { return m_loading.ends_with(".svg"); }

  bool Load(const std::string& file) {
    m_loading = file;
    return IsDrawing() ? LoadDrawing() : LoadPicture();
  }

  /// A drawing is drawn as large as it is shown, so only once that is known.
  bool LoadDrawing() {
    m_hasEdges = false;
    if (m_drawingSide == 0) {
      if (access(m_loading.c_str(), R_OK) == 0) return true;
      LogOnce(m_loading, evas_load_error_str(EVAS_LOAD_ERROR_DOES_NOT_EXIST));
      return false;
    }
    const Drawing* const drawing = DrawingOf(evas_object_evas_get(m_picture), m_loading, m_drawingSide);
    if (!drawing) return false;
    if (!std::exchange(m_hasPixels, true)) {
      evas_object_image_file_set(m_picture, nullptr, nullptr);
      evas_object_image_border_set(m_picture, 0, 0, 0, 0);
      evas_object_image_alpha_set(m_picture, EINA_TRUE);
    }
    // Of a drawing in another color the canvas would show what it has scaled of the one before.
    if (m_tint) evas_object_image_data_set(m_picture, nullptr);
    evas_object_image_size_set(m_picture, drawing->width, drawing->height);
    auto* const pixels = static_cast<uint32_t*>(evas_object_image_data_get(m_picture, EINA_TRUE));
    if (!pixels) return false;
    const ptrdiff_t stride = evas_object_image_stride_get(m_picture) / static_cast<int>(sizeof *pixels);
    for (int y = 0; y < drawing->height; ++y) {
      uint32_t* const line = pixels + y * stride;
      std::copy_n(drawing->pixels.data() + ptrdiff_t{y} * drawing->width, drawing->width, line);
      if (m_tint) Tint(line, drawing->width, TintHere());
    }
    evas_object_image_data_set(m_picture, pixels);
    evas_object_image_data_update_add(m_picture, 0, 0, drawing->width, drawing->height);
    return true;
  }

  /// A picture keeps the size that it has in its file.
  bool LoadPicture() {
    const bool hasEdges = m_loading.ends_with(".9.png");
    m_hasPixels = false;
    if (m_tint) evas_object_image_file_set(m_picture, nullptr, nullptr);  // else the tinted pixels stay
    if (std::exchange(m_isShrunk, false)) evas_object_image_load_size_set(m_picture, 0, 0);
    evas_object_image_file_set(m_picture, m_loading.c_str(), nullptr);
    const Evas_Load_Error error = evas_object_image_load_error_get(m_picture);
    if (error != EVAS_LOAD_ERROR_NONE) {
      LogOnce(m_loading, evas_load_error_str(error));
      return false;
    }
    int width = 0, height = 0;
    evas_object_image_size_get(m_picture, &width, &height);
    const int edge = hasEdges ? std::max(0, std::min(width, height) / 2 - 1) : 0;
    evas_object_image_border_set(m_picture, edge, edge, edge, edge);
    evas_object_image_border_scale_set(m_picture, ThemeScale());
    m_hasEdges = hasEdges;
    if (m_tint) TintPicture(width, height);
    return true;
  }

  Colour TintHere() const { return m_isTintReadable ? Readable(*m_tint, IsOnLightPlate(Object())) : *m_tint; }

  void TintPicture(int width, int height) {
    auto* pixels = static_cast<uint32_t*>(evas_object_image_data_get(m_picture, EINA_TRUE));
    if (!pixels) return;
    const ptrdiff_t stride = evas_object_image_stride_get(m_picture) / static_cast<int>(sizeof *pixels);
    for (int y = 0; y < height; ++y) Tint(pixels + y * stride, width, TintHere());
    evas_object_image_data_set(m_picture, pixels);
    evas_object_image_alpha_set(m_picture, EINA_TRUE);
    evas_object_image_data_update_add(m_picture, 0, 0, width, height);
  }

  void Place() {
    int x = 0, y = 0, width = 0, height = 0;
    evas_object_geometry_get(Object(), &x, &y, &width, &height);
    if (const int side = std::max(width, height); side > 0 && side != m_drawingSide) {
      m_drawingSide = side;
      if (IsDrawing() && !m_file.empty()) Load(m_file);
    }
    Shrink(width, height);
    int fileWidth = 0, fileHeight = 0;
    evas_object_image_size_get(m_picture, &fileWidth, &fileHeight);
    int shownWidth = width, shownHeight = height;
    if (fileWidth > 0 && fileHeight > 0 && !m_hasEdges) {
      const double across = static_cast<double>(width) / fileWidth, down = static_cast<double>(height) / fileHeight;
      const double factor = std::min(across, down);
      shownWidth = static_cast<int>(std::lround(fileWidth * factor));
      shownHeight = static_cast<int>(std::lround(fileHeight * factor));
    }
    evas_object_geometry_set(m_picture, x + (width - shownWidth) / 2, y + (height - shownHeight) / 2, shownWidth,
                             shownHeight);
    evas_object_image_fill_set(m_picture, 0, 0, shownWidth, shownHeight);
  }

  /// A picture that is shown much smaller than it is, as an icon of a list, is loaded smaller: to make it so anew for
  /// each frame takes longer than all else in it.
  void Shrink(int width, int height) {
    if (IsDrawing() || m_hasEdges || m_tint || width <= 0 || height <= 0) return;
    if (m_isShrunk && m_shrunkFor == std::pair(width, height)) return;
    if (std::exchange(m_isShrunk, false)) evas_object_image_load_size_set(m_picture, 0, 0);
    int fileWidth = 0, fileHeight = 0;
    evas_object_image_size_get(m_picture, &fileWidth, &fileHeight);
    if (fileWidth < 2 * width || fileHeight < 2 * height) return;
    m_isShrunk = true;
    m_shrunkFor = {width, height};
    evas_object_image_load_size_set(m_picture, width, height);
  }

  Evas_Object* m_picture;
  std::string m_file;     // what is shown
  std::string m_loading;  // what was last tried
  std::optional<Colour> m_tint;
  bool m_isTintReadable = true;
  int m_drawingSide = 0;
  bool m_hasEdges = false;
  bool m_hasPixels = false;  // of a drawing
  bool m_isShrunk = false;
  std::pair<int, int> m_shrunkFor;
  Stage m_stage = Stage::kShown;
};

}  // namespace

void SetImageTint(Evas_Object* image, Colour colour) {
  if (auto* self = Widget::Of<Image>(image, __func__)) self->SetTint(colour, false);
}

}  // namespace flux

Evas_Object* elm_flux_image_add(Evas_Object* parent) {
  Evas_Object* box = elm_box_add(parent);
  Evas_Object* picture = box ? evas_object_image_add(evas_object_evas_get(parent)) : nullptr;
  if (picture) new flux::Image(box, picture);
  return box;
}

bool elm_flux_image_file_set(Evas_Object* image, const std::string& file) {
  auto* self = flux::Widget::Of<flux::Image>(image, __func__);
  return self && self->SetFile(file);
}

bool elm_flux_image_is_shown(const Evas_Object* image) {
  const auto* self = flux::Widget::Of<flux::Image>(image, __func__);
  return !self || self->IsShown();
}

void elm_flux_image_tint_set(Evas_Object* image, const char* color) {
  auto* self = flux::Widget::Of<flux::Image>(image, __func__);
  if (!self) return;
  if (color && *color)
    self->SetTint(flux::ParseColour(color, flux::kWhite), true);
  else
    self->SetTint(std::nullopt, true);
}

unsigned int elm_flux_missed_frames() {
  return flux::g_missedFrames;
}
