#pragma once

// Conversion of platform values into Qt values.

#include "platformCoreFoundation.h"

#include <QVariant>

// Strings become QString, floating numbers double, other numbers long long, booleans bool, arrays
// of strings QStringList, the platform's null a valid QVariant holding a null void*, URLs their
// text. Anything else, an array with an entry that is not a string included, gives an invalid
// QVariant and, unless quiet, a debug log line.
QVariant CFTypeToVariant(CFTypeRef value, bool quiet = false);

// Screens and coordinates of the platform. Global coordinates have a top-left origin, y
// downward; inverted ones (NSScreen, NSWindow) a bottom-left origin, y upward, mirrored at the
// height of the first entry of NSScreen::screens(), the screen with the menu bar. These belong on
// the main thread.

#include "appkit/NSScreen.h"
#include "platformDisplays.h"

#include <QList>
#include <QPoint>
#include <QPointF>
#include <QRect>
#include <QRectF>
#include <QSizeF>

// From double to int each value is truncated toward zero on its own, so a rectangle's right edge
// is its truncated left plus its truncated width minus 1.
QPoint CGPointToQPoint(const CGPoint& point);
CGPoint QPointToCGPoint(const QPoint& point);
QPointF CGPointToQPointF(const CGPoint& point);
CGPoint QPointFToCGPoint(const QPointF& point);
QRect CGRectToQRect(const CGRect& rect);
QRect QRectFromNSRect(const CGRect& rect);
CGRect QRectToCGRect(const QRect& rect);
QRectF CGRectToQRectF(const CGRect& rect);
CGRect QRectFToCGRect(const QRectF& rect);

// The online display at position index (not a display id): its bounds and its physical size in
// millimetres. A display that reports less than 50 mm on a side is taken not to know its size,
// which is then guessed from the bounds at 72 dots per inch. The null rectangle and (-1, -1)
// when there is no such display.
void getDisplayRectAndPhysicalSizeForOnlineDisplayIndex(QRect& rect, QSizeF& physicalSize, int index);
// The bounds of the active displays in order; empty, with a critical log line, when the list
// cannot be read.
void getBoundsOfActiveDisplays(QList<CGRect>& bounds);
// The first screen whose frame contains the point, else the main screen (null without screens).
NSScreen* NSScreenContainingPoint(const QPoint& point);
CGRect invertedNSRectFromGlobalQRect(const QRect& rect);
QRect QRectFromInvertedGlobalNSRect(const CGRect& rect);
QPoint pointToInvertedPoint(const QPoint& point);
int systemMenuBarHeight();

// The accessibility zoom as the window server reports it; factor 1.0 is no zoom.
double getScreenZoomFactorAndOrigin(CGPoint& origin);
double getScreenZoomFactor();
// Between a point of the magnified picture and the same place on the desktop, around the centre
// of screensBoundingBox(): unzoomed to zoomed with its exact centre, zoomed to unzoomed with
// QRect::center(), so a round trip may move a point by a pixel. Unchanged while the factor is
// within 1e-11 of 1. The short forms read origin and factor from the window server.
CGPoint unzoomedGlobalPointToZoomed(const CGPoint& point, const CGPoint& origin, double factor);
CGPoint unzoomedGlobalPointToZoomed(const CGPoint& point);
CGPoint zoomedGlobalPointToUnzoomed(const CGPoint& point, const CGPoint& origin, double factor);
CGPoint zoomedGlobalPointToUnzoomed(const CGPoint& point);
// The mouse pointer on the glass, in the desktop's coordinates.
CGPoint currentUnzoomedMouseLocation();
