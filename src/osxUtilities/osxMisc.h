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

// Permissions: accessibility, automation and screen recording. None of these stops the program:
// a permission that cannot be checked counts as given.

#include "osxSystemVersion.h"

inline const QVersionNumber kAccessibilityTrustVersion(10, 9, 0);
inline const QVersionNumber kAccessibilityPreferencesUrlVersion(10, 10, 0);
inline const QVersionNumber kAutomationPreferencesVersion(10, 14, 0);
inline const QVersionNumber kScreenRecordingPermissionVersion(10, 15, 0);

bool accessibilityAvailable();
void enableAccessibilityInterface();
void enableAccessibilityInterfaceNew();
void enableAccessibilityInterfaceLegacy();
bool enableAccessForAssistiveDevices();
void openAccessibilityPreferences();
void openAutomationPreferences();
bool hasScreenRecordingPermission();
void requestScreenRecordingPermission();
void openScreenRecordingPreferences();

// Processes.
int getParentProcessId(int pid);
bool parentProcessIsQtCreator();
void restartApplicationAfterExit();

// Keyboard, events and logging.

#include "platformEvents.h"

#include <Qt>

// Carbon's flags of the modifiers: Alt 0x800 (optionKey), Meta 0x100 (cmdKey), Shift 0x200,
// Control 0x1000; other modifiers are dropped.
int getCarbonModifiers(Qt::KeyboardModifiers modifiers);
// The modifier keys held down now, as the hardware state reports them.
CGEventFlags getCurrentNativeModifiers();
// The virtual key codes of keys beyond the main block (function keys, the navigation keys, the
// keypad's Clear and Help...): 64, 79, 80, 96 to 101, 103, 105 to 107, 109, 111 and 113 to 126.
bool isSecondaryFunctionKey(int keyCode);
// "Mouse down (Left)" and the like; "(Unknown)" for the types without a name.
const char* CGEventTypeName(CGEventType type);
// printf for code that runs outside Qt's logging, through NSLog: the conversions of printf, and
// %@ for a platform object, printed as its description (a string as its text). "%%" is a percent
// sign. A conversion that printf does not know is written as it stands and takes no argument.
void qtNSLog(const char* format, ...);

// Images.

#include "platformGraphics.h"

#include <QImage>
#include <QPixmap>

// A premultiplied ARGB image of the image's pixel size, with its pixels drawn over transparency.
QImage CGImageToQImage(CGImageRef image);
// The Core Graphics layout of an image's format: RGB32 0x2006, ARGB32 0x2004,
// ARGB32_Premultiplied 0x2002, RGBX8888 0x4005, RGBA8888 0x4003, RGBA8888_Premultiplied 0x4001;
// 0 for every other format.
uint32_t CGBitmapInfoForQImage(const QImage& image);
// A new image of the pixmap's pixels, released by the caller; NULL for a null pixmap or one whose
// pixels have no Core Graphics layout.
CGImageRef QPixmapToCGImageRef(const QPixmap& pixmap);

// Windows that stay where they are put. AppKit moves a window back onto the screen through
// constrainFrameRect:toScreen:; a window handed to unconstrainNSWindowClass keeps the frame it is
// given. The methods of its class are replaced once, the exemption is per window, and the set
// constrainedObjects forgets a window when it ends. Main thread only.

#ifndef __APPLE__
#include "appkit/NSWindow.h"
#endif

// Replaces the implementation of the class's instance method; the previous one goes to
// outOriginal when that is given. False, with a debug log line, when there is no such method.
bool swizzleMethod(Class cls, SEL selector, IMP replacement, IMP* outOriginal);
// Exempts the window (any object: others are refused with a log line) from being kept on screen.
void unconstrainNSWindowClass(id object);
// The class functions of the category UnconstrainWindows on NSWindow: each exchanges its pair of
// methods on the class, once.
void ZRUnconstrain_ensureConstrainFrameRectSwizzled(Class cls);
void ZRUnconstrain_ensureDeallocSwizzled(Class cls);
