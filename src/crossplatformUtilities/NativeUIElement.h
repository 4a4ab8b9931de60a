#pragma once

// A value handle on one live on-screen element of another application, with the screen
// position it was taken at. A default handle is null: it names no element.

#include <QMetaType>
#include <QPoint>
#include <QRect>

class NativeUIElement {
public:
    NativeUIElement();
    NativeUIElement(const NativeUIElement& other);
    NativeUIElement& operator=(const NativeUIElement& other);
    ~NativeUIElement();

    bool isNull() const;

    QPoint screenPosition() const { return m_screenPosition; }
    void setScreenPosition(const QPoint& position) { m_screenPosition = position; }

private:
    struct Data;
    Data* data;              // never shared between two handles
    QPoint m_screenPosition; // where the element was asked for
    QRect windowRect;        // cache of the window under the position; null while unknown
};

Q_DECLARE_METATYPE(NativeUIElement)
