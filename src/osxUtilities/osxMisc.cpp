#include "osxMisc.h"

#include "mouse.h"

#include "cfDescription_p.h"
#include "generalUtilities.h"
#include "platformWindowServer.h"

#include "appkit/NSMenu.h"

#include <QDebug>
#include <QStringList>

namespace {

bool isFloatingType(CFNumberType type) {
    switch (type) {
    case kCFNumberFloat32Type:
    case kCFNumberFloat64Type:
    case kCFNumberFloatType:
    case kCFNumberDoubleType:
    case kCFNumberCGFloatType:
        return true;
    default:
        return false;
    }
}

QVariant numberToVariant(CFNumberRef number) {
    if (isFloatingType(CFNumberGetType(number))) {
        double value = 0;
        CFNumberGetValue(number, kCFNumberDoubleType, &value);
        return QVariant(value);
    }
    long long value = 0;
    CFNumberGetValue(number, kCFNumberLongLongType, &value);
    return QVariant(value);
}

QVariant stringArrayToVariant(CFArrayRef array, bool quiet) {
    QStringList strings;
    const CFIndex count = CFArrayGetCount(array);
    for (CFIndex i = 0; i < count; ++i) {
        const CFTypeRef entry = CFArrayGetValueAtIndex(array, i);
        if (!entry || CFGetTypeID(entry) != CFStringGetTypeID()) {
            if (!quiet)
                qDebug().noquote()
                    << "Note: Tried to get UI element attribute value of an array containing non-strings";
            return QVariant();
        }
        strings.append(QStringFromCFString(static_cast<CFStringRef>(entry)));
    }
    return QVariant(strings);
}

} // namespace

QVariant CFTypeToVariant(CFTypeRef value, bool quiet) {
    const CFTypeID type = value ? CFGetTypeID(value) : 0;
    if (value) {
        if (type == CFStringGetTypeID())
            return QVariant(QStringFromCFString(static_cast<CFStringRef>(value)));
        if (type == CFNumberGetTypeID())
            return numberToVariant(static_cast<CFNumberRef>(value));
        if (type == CFBooleanGetTypeID())
            return QVariant(bool(CFBooleanGetValue(static_cast<CFBooleanRef>(value))));
        if (type == CFArrayGetTypeID())
            return stringArrayToVariant(static_cast<CFArrayRef>(value), quiet);
        if (type == CFNullGetTypeID())
            return QVariant::fromValue<void*>(nullptr);
        if (type == CFURLGetTypeID())
            return QVariant(QStringFromCFString(CFURLGetString(static_cast<CFURLRef>(value))));
    }
    if (!quiet)
        logUnsupportedCFValue("Warning: Tried to convert CFType of unsupported type:", value);
    return QVariant();
}

QPoint CGPointToQPoint(const CGPoint& point) {
    return QPoint(int(point.x), int(point.y));
}

CGPoint QPointToCGPoint(const QPoint& point) {
    return CGPointMake(point.x(), point.y());
}

QPointF CGPointToQPointF(const CGPoint& point) {
    return QPointF(point.x, point.y);
}

CGPoint QPointFToCGPoint(const QPointF& point) {
    return CGPointMake(point.x(), point.y());
}

QRect CGRectToQRect(const CGRect& rect) {
    return QRect(int(rect.origin.x), int(rect.origin.y), int(rect.size.width), int(rect.size.height));
}

QRect QRectFromNSRect(const CGRect& rect) {
    return CGRectToQRect(rect);
}

CGRect QRectToCGRect(const QRect& rect) {
    return CGRectMake(rect.x(), rect.y(), rect.width(), rect.height());
}

QRectF CGRectToQRectF(const CGRect& rect) {
    return QRectF(rect.origin.x, rect.origin.y, rect.size.width, rect.size.height);
}

CGRect QRectFToCGRect(const QRectF& rect) {
    return CGRectMake(rect.x(), rect.y(), rect.width(), rect.height());
}

namespace {

constexpr std::uint32_t kMaxDisplays = 100;
// Millimetres per point at 72 dots per inch: 25.4 / 72.
constexpr double kMillimetresPerPoint = 0.35277777777777775;
constexpr double kSmallestKnownSizeMm = 50.0;
constexpr double kNoZoomTolerance = 1e-11;
const char kNoScreensText[] = "Error: [NSScreen screens] reports no screens! Using focused screen instead...";

// The height of the screen with the menu bar, the mirror line of inverted coordinates.
double mirrorLine(QtMsgType level) {
    const QList<NSScreen*> screens = NSScreen::screens();
    NSScreen* screen = screens.isEmpty() ? nullptr : screens.first();
    if (!screen) {
        if (level == QtCriticalMsg)
            qCritical().noquote() << kNoScreensText;
        else
            qWarning().noquote() << kNoScreensText;
        screen = NSScreen::mainScreen();
    }
    return screen ? screen->frame().size.height : 0.0;
}

} // namespace

void getDisplayRectAndPhysicalSizeForOnlineDisplayIndex(QRect& rect, QSizeF& physicalSize, int index) {
    rect = QRect();
    physicalSize = QSizeF(-1.0, -1.0);
    CGDirectDisplayID displays[kMaxDisplays];
    std::uint32_t count = 0;
    if (CGGetOnlineDisplayList(kMaxDisplays, displays, &count) != kCGErrorSuccess || index < 0 ||
        std::uint32_t(index) >= count)
        return;
    const CGRect bounds = CGDisplayBounds(displays[index]);
    rect = CGRectToQRect(bounds);
    const CGSize size = CGDisplayScreenSize(displays[index]);
    if (size.width >= kSmallestKnownSizeMm && size.height >= kSmallestKnownSizeMm) {
        physicalSize = QSizeF(size.width, size.height);
        return;
    }
    physicalSize =
        QSizeF(bounds.size.width * kMillimetresPerPoint, bounds.size.height * kMillimetresPerPoint);
    qWarning() << "Warning: had to make best guess at the physical size of display with index:" << index;
    qDebug().nospace() << "Assuming it is " << physicalSize.width() << "mm x " << physicalSize.height()
                       << "mm";
}

void getBoundsOfActiveDisplays(QList<CGRect>& bounds) {
    bounds.clear();
    std::uint32_t count = 0;
    const CGError error = CGGetActiveDisplayList(0, nullptr, &count);
    if (error != kCGErrorSuccess) {
        qCritical().nospace() << "Error: could not get list of active displays, error: " << int(error);
        return;
    }
    QList<CGDirectDisplayID> displays(count);
    if (CGGetActiveDisplayList(count, displays.data(), &count) != kCGErrorSuccess)
        return;
    for (std::uint32_t n = 0; n < count; ++n)
        bounds.append(CGDisplayBounds(displays[n]));
}

NSScreen* NSScreenContainingPoint(const QPoint& point) {
    for (NSScreen* screen : NSScreen::screens()) {
        if (QRectFromInvertedGlobalNSRect(screen->frame()).contains(point))
            return screen;
    }
    qWarning() << "Warning: Could not find display containing" << point << "so using focused display instead";
    return NSScreen::mainScreen();
}

CGRect invertedNSRectFromGlobalQRect(const QRect& rect) {
    const double mirror = mirrorLine(QtCriticalMsg);
    return CGRectMake(rect.x(), mirror - rect.top() - rect.height(), rect.width(), rect.height());
}

QRect QRectFromInvertedGlobalNSRect(const CGRect& rect) {
    const int mirror = int(mirrorLine(QtCriticalMsg));
    return QRect(int(rect.origin.x), int(mirror - rect.origin.y - rect.size.height), int(rect.size.width),
                 int(rect.size.height));
}

QPoint pointToInvertedPoint(const QPoint& point) {
    return QPoint(point.x(), int(mirrorLine(QtWarningMsg) - point.y()));
}

int systemMenuBarHeight() {
    return int(NSMenu::menuBarHeight());
}

double getScreenZoomFactorAndOrigin(CGPoint& origin) {
    double factor = 1.0;
    Boolean smoothed = false;
    CGSGetZoomParameters(CGSMainConnectionID(), &origin, &factor, &smoothed);
    return factor;
}

double getScreenZoomFactor() {
    CGPoint origin{};
    return getScreenZoomFactorAndOrigin(origin);
}

CGPoint unzoomedGlobalPointToZoomed(const CGPoint& point, const CGPoint& origin, double factor) {
    if (almostEquals(factor, 1.0, kNoZoomTolerance))
        return point;
    const QRect box = screensBoundingBox();
    const double centreX = box.left() + 0.5 * box.width();
    const double centreY = box.top() + 0.5 * box.height();
    return CGPointMake((point.x - centreX) / factor + origin.x, (point.y - centreY) / factor + origin.y);
}

CGPoint unzoomedGlobalPointToZoomed(const CGPoint& point) {
    CGPoint origin{};
    const double factor = getScreenZoomFactorAndOrigin(origin);
    return unzoomedGlobalPointToZoomed(point, origin, factor);
}

CGPoint zoomedGlobalPointToUnzoomed(const CGPoint& point, const CGPoint& origin, double factor) {
    if (almostEquals(factor, 1.0, kNoZoomTolerance))
        return point;
    const QPoint centre = screensBoundingBox().center();
    return CGPointMake((point.x - origin.x) * factor + centre.x(),
                       (point.y - origin.y) * factor + centre.y());
}

CGPoint zoomedGlobalPointToUnzoomed(const CGPoint& point) {
    CGPoint origin{};
    const double factor = getScreenZoomFactorAndOrigin(origin);
    return zoomedGlobalPointToUnzoomed(point, origin, factor);
}

CGPoint currentUnzoomedMouseLocation() {
    const QPointF location = currentMouseLocation();
    return zoomedGlobalPointToUnzoomed(CGPointMake(location.x(), location.y()));
}
