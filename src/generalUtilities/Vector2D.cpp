#include "Vector2D.h"

#include <QtMath>

#include <algorithm>
#include <cmath>

Vector2D Vector2D::operator+(const Vector2D& other) const {
    return Vector2D(*this) += other;
}

Vector2D Vector2D::operator-(const Vector2D& other) const {
    return Vector2D(*this) -= other;
}

Vector2D& Vector2D::operator+=(const Vector2D& other) {
    x += other.x;
    y += other.y;
    return *this;
}

Vector2D& Vector2D::operator-=(const Vector2D& other) {
    x -= other.x;
    y -= other.y;
    return *this;
}

Vector2D Vector2D::operator*(double factor) const {
    return Vector2D(*this) *= factor;
}

Vector2D Vector2D::operator/(double divisor) const {
    return Vector2D(*this) /= divisor;
}

Vector2D& Vector2D::operator*=(double factor) {
    x *= factor;
    y *= factor;
    return *this;
}

Vector2D& Vector2D::operator/=(double divisor) {
    x /= divisor;
    y /= divisor;
    return *this;
}

double Vector2D::operator*(const Vector2D& other) const {
    return x * other.x + y * other.y;
}

bool Vector2D::operator==(const Vector2D& other) const {
    if (null || other.null)
        return null == other.null;
    return x == other.x && y == other.y;
}

bool Vector2D::operator<(const Vector2D& other) const {
    if (null || other.null)
        return false;
    return squaredMagnitude() < other.squaredMagnitude();
}

bool Vector2D::operator>(const Vector2D& other) const {
    if (null || other.null)
        return true;
    return !(squaredMagnitude() < other.squaredMagnitude());
}

double Vector2D::squaredMagnitude() const {
    return x * x + y * y;
}

double Vector2D::magnitude() const {
    return std::sqrt(squaredMagnitude());
}

double Vector2D::squaredDistanceTo(const Vector2D& other) const {
    return (*this - other).squaredMagnitude();
}

double Vector2D::distanceTo(const Vector2D& other) const {
    return std::sqrt(squaredDistanceTo(other));
}

Vector2D Vector2D::normal() const {
    const double length = magnitude();
    if (length == 0)
        return Vector2D(0, 0);
    return *this * (1 / length);
}

double Vector2D::angle(const Vector2D& other) const {
    // Rounding can carry the dot product of two unit vectors just past 1, where acos has no value.
    const double cosine = std::clamp(normal() * other.normal(), -1.0, 1.0);
    return qRadiansToDegrees(std::acos(cosine));
}

double Vector2D::signedAngle() const {
    return qRadiansToDegrees(std::atan2(y, x));
}

double Vector2D::signedAngle(const Vector2D& other) const {
    return qRadiansToDegrees(std::atan2(crossProductMagnitude(other), *this * other));
}

double Vector2D::crossProductMagnitude(const Vector2D& other) const {
    return x * other.y - other.x * y;
}

Vector2D Vector2D::rotate(double radians) const {
    const double cosine = std::cos(radians);
    const double sine = std::sin(radians);
    return Vector2D(x * cosine - y * sine, x * sine + y * cosine);
}

Vector2D Vector2D::toInteger() const {
    return Vector2D(std::round(x), std::round(y));
}

Vector2D Vector2D::adjusted(double dx, double dy) const {
    return *this + Vector2D(dx, dy);
}

QPoint Vector2D::toQPoint() const {
    return QPoint(static_cast<int>(x), static_cast<int>(y));
}

bool Vector2D::almostEquals(const Vector2D& other, double epsilon) const {
    if (null || other.null)
        return null == other.null;
    return std::abs(x - other.x) < epsilon && std::abs(y - other.y) < epsilon;
}

QDebug operator<<(QDebug debug, const Vector2D& vector) {
    const QDebugStateSaver saver(debug);
    debug.nospace();
    if (vector.isNull())
        debug << "Vector2D(null)";
    else
        debug << "Vector2D(" << vector.x << ',' << vector.y << ')';
    return debug;
}
