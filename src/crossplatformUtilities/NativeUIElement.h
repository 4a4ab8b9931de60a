#pragma once

// A value handle on one live on-screen element of another application, with the screen
// position it was taken at. A default handle is null: it names no element. A non-null handle
// owns one retain on its platform reference; copies share the element, each with a retain of
// its own, and may live on different threads. Queries belong on the main thread (see
// executeUIElementTask).

#include <QElapsedTimer>
#include <QMetaType>
#include <QPoint>
#include <QRect>
#include <QSet>
#include <QString>

#include <functional>

class NativeUIElement {
public:
    NativeUIElement();
    // The element at position, as setToElementAtScreenPosition finds it with the full search.
    NativeUIElement(QPoint position, QString ancestorType, bool ancestorWithActions,
                    const QSet<QString>& allowedApplications);
    NativeUIElement(const NativeUIElement& other);
    NativeUIElement& operator=(const NativeUIElement& other);
    ~NativeUIElement();

    // Hit tests position (with the full search when employSearch) and keeps position and
    // windowRect whatever comes of it. A time-out that the platform reports faster than it can
    // time out is asked once more. The element must be of one of allowedApplications (any, when
    // empty); it is then replaced by its nearest ancestor of ancestorType (when given) and by its
    // nearest ancestor with actions (when ancestorWithActions). A time-out writes true through
    // timedOut, which nothing sets back to false.
    void setToElementAtScreenPosition(QPoint position, QString ancestorType, bool ancestorWithActions,
                                      const QSet<QString>& allowedApplications, bool employSearch,
                                      bool* timedOut, const QRect& windowRect);

    // New handles at (0, 0); null for a null handle.
    NativeUIElement parentElement() const;
    NativeUIElement ancestorElementOfType(const QString& type) const;

    bool isNull() const;

    // Asked of the platform anew each time.
    QRect screenRect() const;

    QPoint screenPosition() const { return m_screenPosition; }
    void setScreenPosition(const QPoint& position) { m_screenPosition = position; }

    // The window server's rectangle of the window under the screen position, looked up once and
    // kept; a position with no window under it is looked up again at the next call.
    QRect windowRect() const;

    // The bundle identifier of the element's application; empty for a null handle.
    QString applicationIdentifier() const;
    long childrenCount() const;
    bool isTextField(bool* isSecure = nullptr) const;

    // "role description: title", or the role description alone for an element without title.
    QString description() const;
    // "AXRoleDescription", else the role.
    QString typeDescription() const;
    void printDebugInfo() const;
    QString debugInfo() const;

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
    Data* data;                 // never shared between two handles
    QPoint m_screenPosition;    // where the element was asked for
    mutable QRect m_windowRect; // cache of the window under the position; null while unknown
};

Q_DECLARE_METATYPE(NativeUIElement)

// Runs the task on the main thread, where the accessibility calls belong, and waits at most
// timeout milliseconds for it; false, logged, when it did not finish in time.
bool executeUIElementTask(int timeout, std::function<void()> task);

// For tests: how long a hit test of setToElementAtScreenPosition took, in milliseconds, from the
// timer started before it. An empty function restores the timer's own reading.
void setUIElementQueryDurationForTesting(std::function<qint64(const QElapsedTimer&)> duration);
