#pragma once

#include <QColor>
#include <QFont>
#include <QList>
#include <QPalette>
#include <QPoint>
#include <QPointF>
#include <QRect>
#include <QRectF>
#include <QSize>
#include <QSizeF>
#include <QString>
#include <QVariant>

class QObject;
struct QMetaObject;

// Stateless helpers shared by the whole library. Conventions: a height of 0 in a rectangle
// function means the same as the width, clamping to lo..hi is min(max(value, lo), hi) so that hi
// wins when lo exceeds it, and angles are in degrees.

// Whether the process runs a QGuiApplication: without one, making a pixmap, a bitmap or a cursor
// aborts the process.
bool guiApplicationIsRunning();

// A hash for QSet<QVariant> and QHash keys of variants, by the value's type.
size_t qHash(const QVariant& value, size_t seed = 0);

// Interpolation and ranges

double lerp(double t, double a, double b);
int lerpi(double t, int a, int b);
double clamp(double value, double lo, double hi);
int clampi(int value, int lo, int hi);
// The fraction of the way from lo to hi, not clamped; 0 when the range is empty.
double percent(double value, double lo, double hi);
double normalize(long value, long lo, long hi);
double changeRange(double value, double fromLo, double fromHi, double toLo, double toHi);
// toLo may lie above toHi: the result stays between the two either way.
double clampedChangeRange(double value, double fromLo, double fromHi, double toLo, double toHi);

// Easing curves over t clamped to 0..1, each running from 0 to 1.
double easeIn(double t, double power);
double easeOut(double t, double power);
double easeMiddle(double t, double power);

int signf(float value);
double signd(double value);
double signedSqrt(double value);
bool almostEquals(double a, double b, double epsilon);
// y grows downward on screen, so positive angles turn upward.
QPointF circlePoint(double radius, double degrees);

// Rectangles and points

QRect rectCenteredAt(const QPoint& center, int width, int height = 0);
QRect rectCenteredAt(const QPoint& center, const QSize& size);
QRectF rectCenteredAt(const QPointF& center, double width, double height = 0);
QRectF rectCenteredAt(const QPointF& center, const QSizeF& size);
QRectF scaleRectFromCenter(const QRectF& rect, double scaleX, double scaleY);
QRectF scaleRectFromCenter(const QRectF& rect, double scale);
QRectF rectWithSides(double left, double top, double right, double bottom);

double pointDistance(const QPoint& a, const QPoint& b);
double pointDistance(const QPointF& a, const QPointF& b);
// 0 inside the rectangle.
double rectDistanceFromPoint(const QRect& rect, const QPoint& point);

// (1, 1) maps to bottomRight(), the last pixel inside, not one past it.
QPoint normalizedCoordinatesToPointInRect(const QRect& rect, const QPointF& normalized);
QPointF normalizedCoordinatesToPointInRect(const QRectF& rect, const QPointF& normalized);
QPointF pointInRectToNormalizedCoordinates(const QRect& rect, const QPoint& point);
QPointF pointInRectToNormalizedCoordinates(const QRectF& rect, const QPointF& point);

bool ellipseContainsPoint(const QPointF& point, const QRectF& rect);
bool ellipseContainsPoint(const QPoint& point, const QRect& rect);

// Colours, fonts and palettes

QColor withNewAlpha(const QColor& color, int alpha);
// Invalid when a component leaves 0..255, as it can for t outside 0..1.
QColor blended(const QColor& a, const QColor& b, double t);

QFont italicizedFont(QFont font);
QFont unitalicizedFont(QFont font);
QFont boldedFont(QFont font);
QFont unboldedFont(QFont font);
QFont underlinedFont(QFont font);
QFont nonunderlinedFont(QFont font);
QFont fontWithNewPointSize(QFont font, double pointSize);
QPalette paletteWithAdjustedColor(QPalette palette, QPalette::ColorRole role, const QColor& color);

// Object trees. An object counts as its own descendant, and a class as its own subclass.

bool isDescendantOf(QObject* object, QObject* ancestor);
// Nearest first, up to the root.
QList<QObject*> ancestors(QObject* object, bool includeSelf);
bool classIsDescendantOf(const QMetaObject* metaObject, const QMetaObject* ancestor);

// Types and strings

bool isIntegerType(int metaTypeId);
bool isIntegerVariant(const QVariant& value);
bool stringIsInteger(const QString& string);
QString firstLetterCapitalized(const QString& string);
QString joinPaths(const QString& base, const QList<QString>& parts);

// Screens. Global coordinates: top-left origin of the primary screen, y downward. The unscaled
// rectangle of a screen has the origin of its geometry and the size in device pixels (width and
// height times the device pixel ratio, truncated); origins are never scaled. The screen list is
// read at each call. Without a QGuiApplication, or while it has no screens, there are none:
// the ratio is 1.0, rectangles are null, a point is off screen, its screen index is 0 and its
// screen null, and normalized coordinates are (0, 0).

class QScreen;

double systemDevicePixelRatio();
QRect screensBoundingBox();
QList<QRect> allScreenGeometry();
bool pointIsOffScreen(const QPoint& point);
QRect unscaledScreenRect(const QScreen* screen);
// The first screen that contains the point, else the nearest one (the first among equally near).
int screenIndexContainingPoint(const QPoint& point);
int screenIndexContainingUnscaledPoint(const QPoint& point);
QScreen* screenContainingPoint(const QPoint& point);
QScreen* screenContainingUnscaledPoint(const QPoint& point);
// Of the primary screen when no screen is found.
QRect rectOfScreenContainingPoint(const QPoint& point);
// The screen is chosen by the logical test although the point is unscaled.
QRect unscaledRectOfScreenContainingUnscaledPoint(const QPoint& point);
// The primary screen's for an index out of range; all zeros without a primary screen.
QRect rectOfScreenWithIndex(int index);
// 0 to 1 over the screen of the point rounded half away from zero; the right and bottom edge
// pixels map slightly below 1.
QPointF screenPosToNormalizedCoordinates(const QPointF& point);
QPointF unscaledScreenPosToNormalizedCoordinates(const QPointF& point);
