#pragma once
/// @file
/// Where the set keeps images, and which way its texts run.
///
/// Thread rule: callable from any thread.

#include <string>

/// The path of a file of the application's resources, "Motion/vexilo_good/vexilo_good_0.png", in the edition for this
/// screen where there are several. It need not exist. `file` may also be the beginning of the names of a series of
/// frames, "Motion/vexilo_good/vexilo_good_"; it then ends in '_'.
std::string getResourcePath(const std::string& file);
/// The same of the resources that all applications of the set share. A name that ends in ".9" is an image whose edges
/// keep their size; the widget set knows which file that is.
std::string getCommonResourcePath(const std::string& file);
/// Says how many lines the screen has, on which the edition depends. The widget set calls it; 1080 until then.
void setResourceScreenHeight(int lines);

/// 1 when the texts that are shown are written from right to left, else 0; where there are none in the menu language,
/// others are shown.
int ua_UI_orientation_get();

class CStringUtil {
 public:
  /// `format` with its one placeholder ("%s", "%d", "%u" or "<<A>>") replaced by `value`, cut to `limit` bytes at a
  /// character's end. A format without one is returned as it is; other '%' stay as they are.
  static std::string CombinateStrings(const std::string& format, const std::string& value, size_t limit = 1023);
};
