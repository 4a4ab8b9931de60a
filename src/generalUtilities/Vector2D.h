#pragma once

#include <QDebug>
#include <QPoint>
#include <QPointF>
#include <QSize>
#include <QSizeF>

#ifdef __APPLE__
#include <CoreGraphics/CGGeometry.h>
#endif

// A double vector that can also be "no vector at all": the null vector, distinct from (0, 0).
// Default construction gives the null vector; any coordinates given, by construction or by
// assignment from a Qt point or size, make it non-null. Arithmetic keeps the left operand's flag.
// Angles are in degrees, except in rotate().
class Vector2D {
public:
    Vector2D() = default;
    Vector2D(double x, double y) : x(x), y(y), null(false) {}
    Vector2D(const QPoint& point) : Vector2D(point.x(), point.y()) {}
    Vector2D(const QPointF& point) : Vector2D(point.x(), point.y()) {}
    Vector2D(const QSize& size) : Vector2D(size.width(), size.height()) {}
    Vector2D(const QSizeF& size) : Vector2D(size.width(), size.height()) {}

    bool isNull() const { return null; }

    Vector2D operator+(const Vector2D& other) const;
    Vector2D operator-(const Vector2D& other) const;
    Vector2D& operator+=(const Vector2D& other);
    Vector2D& operator-=(const Vector2D& other);
    Vector2D operator*(double factor) const;
    Vector2D operator/(double divisor) const;
    Vector2D& operator*=(double factor);
    Vector2D& operator/=(double divisor);
    friend Vector2D operator*(double factor, const Vector2D& vector) { return vector * factor; }
    // The dot product.
    double operator*(const Vector2D& other) const;

    bool operator==(const Vector2D& other) const;
    bool operator!=(const Vector2D& other) const { return !(*this == other); }
    // Both order by magnitude, but a null operand makes > true and < false, and equal magnitudes
    // make > true: > is not the mirror of <, and callers rely on that.
    bool operator<(const Vector2D& other) const;
    bool operator>(const Vector2D& other) const;

    double squaredMagnitude() const;
    double magnitude() const;
    double squaredDistanceTo(const Vector2D& other) const;
    double distanceTo(const Vector2D& other) const;
    // A zero-length vector gives (0, 0), which is not null.
    Vector2D normal() const;
    // Unsigned, 0..180.
    double angle(const Vector2D& other) const;
    double signedAngle() const;
    double signedAngle(const Vector2D& other) const;
    double crossProductMagnitude(const Vector2D& other) const;
    [[nodiscard]] Vector2D rotate(double radians) const;
    // Rounds halves away from zero, where toQPoint() truncates.
    Vector2D toInteger() const;
    Vector2D adjusted(double dx, double dy) const;
    QPoint toQPoint() const;
    QPointF toQPointF() const { return QPointF(x, y); }
#ifdef __APPLE__
    CGPoint toCGPoint() const {
        return CGPointMake(x, y);
    }
#endif
    // Both component differences strictly below epsilon; null matches only null.
    bool almostEquals(const Vector2D& other, double epsilon) const;

    double x = 0;
    double y = 0;

private:
    bool null = true;
};

QDebug operator<<(QDebug debug, const Vector2D& vector);
