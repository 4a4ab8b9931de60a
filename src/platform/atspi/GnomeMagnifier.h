#pragma once

// The desktop's magnifier as GNOME publishes it on the session bus: the service
// org.gnome.Magnifier, whose first zoom region gives the factor and the region of interest.
//
// The zoom is given as the window server's zoom parameters: the factor is the region's
// horizontal magnification, and the origin the centre of the region of interest, in desktop
// coordinates. With the screen's centre as the other fixed point, the conversions of the screen
// services then map a point on the glass to the desktop point shown there and back.

#include "ax/AccessibilityProvider.h"

// The longest that one question of the magnifier may take; one that does not answer in time
// counts as no zoom.
inline constexpr int kMagnifierTimeoutMs = 250;

// No zoom (factor 1, origin (0, 0)) when no session bus can be reached, nobody owns the
// service, the magnifier is not active, has no zoom region, or does not answer within timeoutMs.
// A magnifier that does not answer costs one time-out: the first unanswered question ends the
// reading. Opens a private connection to the session bus for the reading.
ZoomInfo readMagnifierZoom(int timeoutMs = kMagnifierTimeoutMs);
