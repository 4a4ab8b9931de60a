#pragma once

// The display calls of Core Graphics that the screen services use: the real framework on Apple
// systems; elsewhere ax/Displays.cpp, which answers them from the active accessibility provider's
// screens. A display id there is the screen's position in that list plus 1, so 0 is never one.

#include "platformAccessibility.h"

#ifdef __APPLE__
#include <CoreGraphics/CoreGraphics.h>
#else
#include <cstdint>

typedef std::uint32_t CGDirectDisplayID;

extern "C" {

// The ids of the online displays, at most maxDisplays of them, the one with the menu bar first.
// With a null displays the count alone. kCGErrorNoneAvailable when the desktop has no display or
// cannot be reached.
CGError CGGetOnlineDisplayList(std::uint32_t maxDisplays, CGDirectDisplayID* displays,
                               std::uint32_t* displayCount);
// The same for the displays that are drawn on; every online display of the platform layer is.
CGError CGGetActiveDisplayList(std::uint32_t maxDisplays, CGDirectDisplayID* displays,
                               std::uint32_t* displayCount);
// Global, top-left origin; an empty rectangle at (0, 0) for an id that names no display.
CGRect CGDisplayBounds(CGDirectDisplayID display);
// Millimetres; 0 x 0 when the display does not report its size or the id names none.
CGSize CGDisplayScreenSize(CGDirectDisplayID display);

} // extern "C"
#endif
