#pragma once

// Bitmap images and contexts of Core Graphics: the real framework on Apple systems; elsewhere
// cg/CGImage.h, images that hold a QImage.

#ifdef __APPLE__
#include <CoreGraphics/CoreGraphics.h>
#else
#include "cg/CGImage.h"
#endif
