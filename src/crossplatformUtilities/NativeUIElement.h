#pragma once

// A value handle on one live on-screen element of another application, with the screen
// position it was taken at. A default handle is null: it names no element. A non-null handle
// owns one retain on its platform reference; copies share the element, each with a retain of
// its own, and may live on different threads.

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

    // The platform reference (an AXUIElementRef) with one more retain, which the caller owns;
    // null for a null handle.
    void* copyOSSpecificElementReference() const;
    // Releases the old reference and takes over the caller's retain on the new one, which may be
    // null.
    void setOSSpecificElementReference(void* reference);

    // The same element: both non-null and CFEqual. Two null handles are not equal, and != is true
    // for them.
    bool operator==(const NativeUIElement& other) const;
    bool operator!=(const NativeUIElement& other) const;

private:
    struct Data;
    Data* data;              // never shared between two handles
    QPoint m_screenPosition; // where the element was asked for
    QRect windowRect;        // cache of the window under the position; null while unknown
};

Q_DECLARE_METATYPE(NativeUIElement)
