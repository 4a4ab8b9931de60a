#pragma once

// The screens of the live desktop in the points that Qt counts in. The X server knows device
// pixels; Qt divides them by its device pixel ratio, which on X11 is QT_SCALE_FACTOR, keeping each
// screen's top-left corner where it is. Where a QGuiApplication runs on the X server (platform
// "xcb"), its screens are the answer, as Qt sees them; the RandR monitors otherwise.

#include "ax/AccessibilityProvider.h"

// QT_SCALE_FACTOR as Qt reads it; 1 when it is unset, not a number or not above 0.
double qtScaleFactor();

// monitors: X11Desktop::screens(), in device pixels. Qt's screens are read only on the thread of
// the QGuiApplication; elsewhere the monitors are scaled.
QList<ScreenInfo> liveScreens(const QList<ScreenInfo>& monitors);

// A length in device pixels in points.
double toPoints(double devicePixels);
