#include "MockNativeUIElement.h"

#include "ZRMetaTypeRegistrar.h"

#include <QDebug>

template class ZRMetaTypeRegistrar<MockNativeUIElement>;

MockNativeUIElement::MockNativeUIElement() = default;

MockNativeUIElement::MockNativeUIElement(QString applicationIdentifier, QMap<QString, QString> identifiers,
                                         QPoint screenPosition, QRect screenRect)
    : _applicationIdentifier(std::move(applicationIdentifier)), _identifiers(std::move(identifiers)),
      _screenRect(screenRect), _screenPosition(screenPosition), _isNull(false) {}

MockNativeUIElement::MockNativeUIElement(QPoint, QString, bool, const QSet<QString>&) {
    qDebug() << "Error: tried to initialize MockNativeUIElement with an on screen UI element";
}

void MockNativeUIElement::setToElementAtScreenPosition(QPoint, QString, bool, const QSet<QString>&, bool,
                                                       bool*) {
    qDebug() << "Error: tried to set MockNativeUIElement to element on screen";
}

MockNativeUIElement MockNativeUIElement::parentElement() const {
    return MockNativeUIElement();
}

MockNativeUIElement MockNativeUIElement::ancestorElementOfType(const QString&) const {
    return MockNativeUIElement();
}

bool MockNativeUIElement::isTextField(bool* isSecure) const {
    if (isSecure)
        *isSecure = false;
    return false;
}

void* MockNativeUIElement::copyOSSpecificElementReference() const {
    qDebug() << "Error: trying to get OS specific UI element from MockNativeUIElement";
    return nullptr;
}

void MockNativeUIElement::setOSSpecificElementReference(void*) {
    qDebug() << "Error: trying to set MockNativeUIElement to OS specific UI element";
}

bool MockNativeUIElement::operator==(const MockNativeUIElement& other) const {
    return _applicationIdentifier == other._applicationIdentifier && _identifiers == other._identifiers &&
           _screenRect == other._screenRect && _screenPosition == other._screenPosition &&
           _isNull == other._isNull;
}

void MockNativeUIElement::printDebugInfo() const {
    qDebug() << "MockNativeUIElement:";
    qDebug() << "  _applicationIdentifier:" << _applicationIdentifier;
    qDebug() << "  _identifiers:" << _identifiers;
    qDebug() << "  _screenPosition:" << _screenPosition;
    qDebug() << "  _screenRect:" << _screenRect;
}
