#pragma once

// A stand-in for NativeUIElement with every answer held as data and no platform behind it: the
// same operation names, arguments and results, for logic that is built and run without the
// platform. Whatever would reach the platform (hit testing, the platform reference) is refused
// with a log line and changes nothing.

#include <QMap>
#include <QMetaType>
#include <QPoint>
#include <QRect>
#include <QSet>
#include <QString>

class MockNativeUIElement {
public:
    // A null mock.
    MockNativeUIElement();
    MockNativeUIElement(QString applicationIdentifier, QMap<QString, QString> identifiers,
                        QPoint screenPosition, QRect screenRect);
    // Refused: stays a null mock.
    MockNativeUIElement(QPoint position, QString ancestorType, bool ancestorWithActions,
                        const QSet<QString>& allowedApplications);

    // Refused: nothing changes.
    void setToElementAtScreenPosition(QPoint position, QString ancestorType, bool ancestorWithActions,
                                      const QSet<QString>& allowedApplications, bool employSearch,
                                      bool* timedOut);

    // Always null mocks: a mock knows nothing of a hierarchy.
    MockNativeUIElement parentElement() const;
    MockNativeUIElement ancestorElementOfType(const QString& type) const;

    bool isNull() const { return _isNull; }
    QRect screenRect() const { return _screenRect; }
    QPoint screenPosition() const { return _screenPosition; }
    void setScreenPosition(const QPoint& position) { _screenPosition = position; }
    QString applicationIdentifier() const { return _applicationIdentifier; }
    long childrenCount() const { return 0; }
    bool isTextField(bool* isSecure = nullptr) const;

    // Refused: null, and nothing changes.
    void* copyOSSpecificElementReference() const;
    void setOSSpecificElementReference(void* reference);

    // All five fields; two null mocks are equal.
    bool operator==(const MockNativeUIElement& other) const;

    void printDebugInfo() const;
    // What a live element would say about its type.
    QMap<QString, QString> mockIdentifiers() const { return _identifiers; }

private:
    QString _applicationIdentifier;
    QMap<QString, QString> _identifiers;
    QRect _screenRect;
    QPoint _screenPosition;
    bool _isNull = true;
};

Q_DECLARE_METATYPE(MockNativeUIElement)
