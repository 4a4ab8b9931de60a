#include "generalUtilities.h"

#include <QBrush>
#include <QChar>
#include <QCoreApplication>
#include <QDate>
#include <QDateTime>
#include <QDebug>
#include <QDir>
#include <QGuiApplication>
#include <QMetaObject>
#include <QMetaType>
#include <QObject>
#include <QScreen>
#include <QTime>
#include <QUrl>
#include <QtMath>

#include <algorithm>
#include <climits>
#include <cmath>
#include <limits>

namespace {

template <typename Number> Number clampBetween(Number value, Number lo, Number hi) {
    return std::min(std::max(value, lo), hi);
}

double clampFraction(double fraction) {
    return clampBetween(fraction, 0.0, 1.0);
}

// Integer division for QRect and halving for QRectF: the one formula serves both.
template <typename Rect, typename Point, typename Length>
Rect centeredRect(const Point& center, Length width, Length height) {
    if (height == 0)
        height = width;
    return Rect(center.x() - width / 2, center.y() - height / 2, width, height);
}

double normalizedOffset(double offset, double span) {
    return span > 0 ? clampFraction(offset / span) : 0;
}

template <typename Number> size_t xorHash(Number a, Number b, size_t seed) {
    return qHash(a, seed) ^ qHash(b, seed);
}

// Walks a parent chain from start, start itself included.
template <typename Node, typename Up> bool chainContains(const Node* start, const Node* wanted, Up up) {
    if (!start || !wanted)
        return false;
    for (const Node* node = start; node; node = up(node)) {
        if (node == wanted)
            return true;
    }
    return false;
}

} // namespace

bool guiApplicationIsRunning() {
    return qobject_cast<QGuiApplication*>(QCoreApplication::instance()) != nullptr;
}

size_t qHash(const QVariant& value, size_t seed) {
    if (!value.isValid() || value.isNull()) {
        qDebug() << "Trying to get hash of invalid or null QVariant";
        return 0;
    }
    switch (value.typeId()) {
    case QMetaType::Bool:
    case QMetaType::UInt:
        return qHash(value.toUInt(), seed);
    case QMetaType::Double:
        // toUInt() alone would round 2.5 up to 3; truncated first, 2.5 hashes like 2.0.
        return qHash(QVariant(std::trunc(value.toDouble())).toUInt(), seed);
    case QMetaType::Int:
        return qHash(value.toInt(), seed);
    case QMetaType::LongLong:
        return qHash(value.toLongLong(), seed);
    case QMetaType::ULongLong:
        return qHash(value.toULongLong(), seed);
    case QMetaType::QChar:
        return qHash(value.toChar().unicode(), seed);
    case QMetaType::QString:
    case QMetaType::QStringList:
    case QMetaType::QLocale:
    case QMetaType::QRegularExpression:
        return qHash(value.toString(), seed);
    case QMetaType::QByteArray:
        return qHash(value.toByteArray(), seed);
    case QMetaType::QDate:
        return qHash(value.toDate(), seed);
    case QMetaType::QTime:
        return qHash(value.toTime(), seed);
    case QMetaType::QDateTime:
        return qHash(value.toDateTime(), seed);
    case QMetaType::QUrl:
        return qHash(value.toUrl(), seed);
    case QMetaType::QPoint:
        return qHash(value.toPoint(), seed);
    case QMetaType::QRect:
        // Qt's own rectangle hash combines left, right, top and bottom in that order, each
        // as h ^ (qHash(v) + 0x9e3779b9 + (h << 6) + (h >> 2)) starting from the seed.
        return qHash(value.toRect(), seed);
    case QMetaType::QSize:
        return xorHash(value.toSize().width(), value.toSize().height(), seed);
    case QMetaType::QSizeF:
        return xorHash(value.toSizeF().width(), value.toSizeF().height(), seed);
    case QMetaType::QPointF:
        return xorHash(value.toPointF().x(), value.toPointF().y(), seed);
    // Hashing a QRectF as a new variant of itself would come straight back here without end,
    // so it is refused like the other known types that have no hash.
    case QMetaType::QRectF:
    case QMetaType::QVariantMap:
    case QMetaType::QVariantList:
    case QMetaType::QBitArray:
    case QMetaType::QLine:
    case QMetaType::QLineF:
    case QMetaType::User:
        qDebug() << "Trying to get hash of known but unsupported QVariant type:" << value.typeName();
        return 0;
    default:
        qDebug() << "Trying to get hash of unsupported QVariant type:" << value.typeName();
        return size_t(-1);
    }
}

double lerp(double t, double a, double b) {
    return t * (b - a) + a;
}

int lerpi(double t, int a, int b) {
    // The span is taken in double so that distant ends cannot overflow.
    return static_cast<int>(std::lround(t * (double(b) - a)) + a);
}

double clamp(double value, double lo, double hi) {
    return clampBetween(value, lo, hi);
}

int clampi(int value, int lo, int hi) {
    return clampBetween(value, lo, hi);
}

double percent(double value, double lo, double hi) {
    if (lo == hi)
        return 0;
    return (value - lo) / (hi - lo);
}

double normalize(long value, long lo, long hi) {
    return (double(clampBetween(value, lo, hi)) - lo) / (double(hi) - lo);
}

double changeRange(double value, double fromLo, double fromHi, double toLo, double toHi) {
    return (value - fromLo) / (fromHi - fromLo) * (toHi - toLo) + toLo;
}

double clampedChangeRange(double value, double fromLo, double fromHi, double toLo, double toHi) {
    return clampBetween(changeRange(value, fromLo, fromHi, toLo, toHi), std::min(toLo, toHi),
                        std::max(toLo, toHi));
}

double easeIn(double t, double power) {
    return std::pow(clampFraction(t), power);
}

double easeOut(double t, double power) {
    return 1 - std::pow(1 - clampFraction(t), power);
}

double easeMiddle(double t, double power) {
    const double fromMiddle = clampFraction(t) - 0.5;
    const double side = fromMiddle >= 0 ? 1 : -1;
    return 0.5 + side * std::pow(2, power - 1) * std::pow(std::abs(fromMiddle), power);
}

int signf(float value) {
    return (value > 0) - (value < 0);
}

double signd(double value) {
    return (value > 0) - (value < 0);
}

double signedSqrt(double value) {
    return signd(value) * std::sqrt(std::abs(value));
}

bool almostEquals(double a, double b, double epsilon) {
    return epsilon > std::abs(a - b);
}

QPointF circlePoint(double radius, double degrees) {
    const double radians = qDegreesToRadians(degrees);
    return QPointF(radius * std::cos(radians), -radius * std::sin(radians));
}

QRect rectCenteredAt(const QPoint& center, int width, int height) {
    return centeredRect<QRect>(center, width, height);
}

QRect rectCenteredAt(const QPoint& center, const QSize& size) {
    return rectCenteredAt(center, size.width(), size.height());
}

QRectF rectCenteredAt(const QPointF& center, double width, double height) {
    return centeredRect<QRectF>(center, width, height);
}

QRectF rectCenteredAt(const QPointF& center, const QSizeF& size) {
    return rectCenteredAt(center, size.width(), size.height());
}

QRectF scaleRectFromCenter(const QRectF& rect, double scaleX, double scaleY) {
    return rectCenteredAt(rect.center(), rect.width() * scaleX, rect.height() * scaleY);
}

QRectF scaleRectFromCenter(const QRectF& rect, double scale) {
    return scaleRectFromCenter(rect, scale, scale);
}

QRectF rectWithSides(double left, double top, double right, double bottom) {
    return QRectF(left, top, right - left, bottom - top);
}

double pointDistance(const QPoint& a, const QPoint& b) {
    return pointDistance(QPointF(a), QPointF(b));
}

double pointDistance(const QPointF& a, const QPointF& b) {
    return std::hypot(b.x() - a.x(), b.y() - a.y());
}

double rectDistanceFromPoint(const QRect& rect, const QPoint& point) {
    const QPoint nearest(clampBetween(point.x(), rect.left(), rect.right()),
                         clampBetween(point.y(), rect.top(), rect.bottom()));
    return pointDistance(point, nearest);
}

QPoint normalizedCoordinatesToPointInRect(const QRect& rect, const QPointF& normalized) {
    const auto along = [](int start, int end, double fraction) {
        return start + static_cast<int>(std::lround((double(end) - start) * clampFraction(fraction)));
    };
    return QPoint(along(rect.left(), rect.right(), normalized.x()),
                  along(rect.top(), rect.bottom(), normalized.y()));
}

QPointF normalizedCoordinatesToPointInRect(const QRectF& rect, const QPointF& normalized) {
    return QPointF(rect.x() + rect.width() * clampFraction(normalized.x()),
                   rect.y() + rect.height() * clampFraction(normalized.y()));
}

QPointF pointInRectToNormalizedCoordinates(const QRect& rect, const QPoint& point) {
    // A rectangle one pixel wide has no span to divide by (right equals left): like an empty one,
    // it gives 0 on that axis, which normalizedCoordinatesToPointInRect maps back to the pixel.
    return QPointF(normalizedOffset(double(point.x()) - rect.left(), double(rect.right()) - rect.left()),
                   normalizedOffset(double(point.y()) - rect.top(), double(rect.bottom()) - rect.top()));
}

QPointF pointInRectToNormalizedCoordinates(const QRectF& rect, const QPointF& point) {
    return QPointF(normalizedOffset(point.x() - rect.x(), rect.width()),
                   normalizedOffset(point.y() - rect.y(), rect.height()));
}

bool ellipseContainsPoint(const QPointF& point, const QRectF& rect) {
    const double rx = rect.width() / 2;
    const double ry = rect.height() / 2;
    if (rx <= 0 || ry <= 0)
        return false;
    const double dx = point.x() - (rect.x() + rx);
    const double dy = point.y() - (rect.y() + ry);
    return dx * dx / (rx * rx) + dy * dy / (ry * ry) <= 1;
}

bool ellipseContainsPoint(const QPoint& point, const QRect& rect) {
    // QRect's width() is right - left + 1, the pixel count the ellipse spans.
    return ellipseContainsPoint(QPointF(point), QRectF(rect));
}

QColor withNewAlpha(const QColor& color, int alpha) {
    return QColor(color.red(), color.green(), color.blue(), alpha);
}

QColor blended(const QColor& a, const QColor& b, double t) {
    const auto mix = [t](int from, int to) { return static_cast<int>(from * (1 - t) + to * t); };
    return QColor(mix(a.red(), b.red()), mix(a.green(), b.green()), mix(a.blue(), b.blue()),
                  mix(a.alpha(), b.alpha()));
}

QFont italicizedFont(QFont font) {
    font.setStyle(QFont::StyleItalic);
    return font;
}

QFont unitalicizedFont(QFont font) {
    font.setStyle(QFont::StyleNormal);
    return font;
}

QFont boldedFont(QFont font) {
    font.setWeight(QFont::Bold);
    return font;
}

QFont unboldedFont(QFont font) {
    font.setWeight(QFont::Normal);
    return font;
}

QFont underlinedFont(QFont font) {
    font.setUnderline(true);
    return font;
}

QFont nonunderlinedFont(QFont font) {
    font.setUnderline(false);
    return font;
}

QFont fontWithNewPointSize(QFont font, double pointSize) {
    font.setPointSizeF(pointSize);
    return font;
}

QPalette paletteWithAdjustedColor(QPalette palette, QPalette::ColorRole role, const QColor& color) {
    palette.setBrush(QPalette::All, role, QBrush(color, Qt::SolidPattern));
    return palette;
}

bool isDescendantOf(QObject* object, QObject* ancestor) {
    return chainContains<QObject>(object, ancestor, [](const QObject* o) { return o->parent(); });
}

QList<QObject*> ancestors(QObject* object, bool includeSelf) {
    QList<QObject*> result;
    for (QObject* o = (object && !includeSelf) ? object->parent() : object; o; o = o->parent())
        result.append(o);
    return result;
}

bool classIsDescendantOf(const QMetaObject* metaObject, const QMetaObject* ancestor) {
    return chainContains<QMetaObject>(metaObject, ancestor,
                                      [](const QMetaObject* m) { return m->superClass(); });
}

bool isIntegerType(int metaTypeId) {
    switch (metaTypeId) {
    case QMetaType::Int:
    case QMetaType::UInt:
    case QMetaType::LongLong:
    case QMetaType::ULongLong:
    case QMetaType::Long:
    case QMetaType::Short:
    case QMetaType::ULong:
    case QMetaType::UShort:
        return true;
    default:
        return false;
    }
}

bool isIntegerVariant(const QVariant& value) {
    return isIntegerType(value.typeId());
}

bool stringIsInteger(const QString& string) {
    bool ok = false;
    const qlonglong number = string.toLongLong(&ok);
    return ok && number >= INT_MIN && number <= INT_MAX;
}

QString firstLetterCapitalized(const QString& string) {
    return string.mid(0, 1).toUpper() + string.mid(1);
}

QString joinPaths(const QString& base, const QList<QString>& parts) {
    QString path = base;
    for (const QString& part : parts)
        path = QDir(path).filePath(part);
    return path;
}

namespace {

QList<QScreen*> currentScreens() {
    return guiApplicationIsRunning() ? QGuiApplication::screens() : QList<QScreen*>();
}

QScreen* primaryScreen() {
    return guiApplicationIsRunning() ? QGuiApplication::primaryScreen() : nullptr;
}

QScreen* screenAt(int index) {
    const QList<QScreen*> screens = currentScreens();
    return index >= 0 && index < screens.size() ? screens[index] : nullptr;
}

template <typename RectOf> int nearestScreenIndex(const QPoint& point, RectOf rectOf) {
    const QList<QScreen*> screens = currentScreens();
    int nearest = 0;
    double nearestDistance = std::numeric_limits<double>::max();
    for (int index = 0; index < screens.size(); ++index) {
        const QRect rect = rectOf(screens[index]);
        if (rect.contains(point))
            return index;
        const double distance = rectDistanceFromPoint(rect, point);
        if (distance < nearestDistance) {
            nearestDistance = distance;
            nearest = index;
        }
    }
    return nearest;
}

QRect geometryOf(const QScreen* screen) {
    return screen ? screen->geometry() : QRect();
}

QPoint roundedHalfAwayFromZero(const QPointF& point) {
    return QPoint(int(std::lround(point.x())), int(std::lround(point.y())));
}

// Over the rectangle's width and height, not right - left: see pointInRectToNormalizedCoordinates.
QPointF normalizedIn(const QRect& rect, const QPoint& point) {
    return pointInRectToNormalizedCoordinates(QRectF(rect), QPointF(point));
}

} // namespace

double systemDevicePixelRatio() {
    const QScreen* screen = primaryScreen();
    return screen ? screen->devicePixelRatio() : 1.0;
}

QRect screensBoundingBox() {
    QRect box;
    for (const QRect& rect : allScreenGeometry())
        box = box | rect;
    return box;
}

QList<QRect> allScreenGeometry() {
    QList<QRect> result;
    for (const QScreen* screen : currentScreens())
        result.append(screen->geometry());
    return result;
}

bool pointIsOffScreen(const QPoint& point) {
    const QList<QRect> all = allScreenGeometry();
    return std::none_of(all.cbegin(), all.cend(),
                        [&point](const QRect& rect) { return rect.contains(point); });
}

QRect unscaledScreenRect(const QScreen* screen) {
    if (!screen)
        return QRect();
    const QRect geometry = screen->geometry();
    const double ratio = screen->devicePixelRatio();
    return QRect(geometry.topLeft(), QSize(int(geometry.width() * ratio), int(geometry.height() * ratio)));
}

int screenIndexContainingPoint(const QPoint& point) {
    return nearestScreenIndex(point, geometryOf);
}

int screenIndexContainingUnscaledPoint(const QPoint& point) {
    return nearestScreenIndex(point, unscaledScreenRect);
}

QScreen* screenContainingPoint(const QPoint& point) {
    return screenAt(screenIndexContainingPoint(point));
}

QScreen* screenContainingUnscaledPoint(const QPoint& point) {
    return screenAt(screenIndexContainingUnscaledPoint(point));
}

QRect rectOfScreenContainingPoint(const QPoint& point) {
    const QScreen* screen = screenContainingPoint(point);
    return geometryOf(screen ? screen : primaryScreen());
}

QRect unscaledRectOfScreenContainingUnscaledPoint(const QPoint& point) {
    const QScreen* screen = screenContainingPoint(point);
    return unscaledScreenRect(screen ? screen : primaryScreen());
}

QRect rectOfScreenWithIndex(int index) {
    if (const QScreen* screen = screenAt(index))
        return screen->geometry();
    const QScreen* primary = primaryScreen();
    return primary ? primary->geometry() : QRect(0, 0, 0, 0);
}

QPointF screenPosToNormalizedCoordinates(const QPointF& point) {
    const QPoint rounded = roundedHalfAwayFromZero(point);
    return normalizedIn(rectOfScreenContainingPoint(rounded), rounded);
}

QPointF unscaledScreenPosToNormalizedCoordinates(const QPointF& point) {
    const QPoint rounded = roundedHalfAwayFromZero(point);
    return normalizedIn(unscaledRectOfScreenContainingUnscaledPoint(rounded), rounded);
}
