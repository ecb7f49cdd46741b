#pragma once
/// @file
/// The image box, as other widgets use it.

#include "flux/flux_core.h"

namespace flux {

/// As elm_flux_image_tint_set(), but in exactly that colour.
void SetImageTint(Evas_Object* image, Colour colour);

}  // namespace flux
