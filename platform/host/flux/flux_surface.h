#pragma once
/// @file
/// What the surfaces tell the widgets on them.

#include "flux/flux_core.h"

namespace flux {

/// The height of a page's header of one line, in units.
inline constexpr double kHeaderHeight = 15.0;

/// Whether `object` lies on a light plate, where texts are dark.
bool IsOnLightPlate(const Evas_Object* object);
/// Whether `object` and all that it lies in are shown, and its window is not out of sight.
bool IsInSight(const Evas_Object* object);

/// Whether the window is turned so that what was its width is its height.
bool IsTurnedUpright(const Evas_Object* window);

/// Where in `room`, the whole of a window, its page lies.
Eina_Rect PageIn(const Evas_Object* window, const Eina_Rect& room);

}  // namespace flux
