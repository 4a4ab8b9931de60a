#include "UnavailableProvider.h"

Element UnavailableProvider::applicationElement(pid_t pid) {
    return Element{ElementId(pid), pid};
}

AXError UnavailableProvider::copyAttributeValue(const Element&, const QString&, CFTypeRef*) {
    return kAXErrorAPIDisabled;
}

AXError UnavailableProvider::copyAttributeNames(const Element&, QStringList*) {
    return kAXErrorAPIDisabled;
}

AXError UnavailableProvider::attributeValueCount(const Element&, const QString&, CFIndex*) {
    return kAXErrorAPIDisabled;
}

AXError UnavailableProvider::isAttributeSettable(const Element&, const QString&, bool*) {
    return kAXErrorAPIDisabled;
}

AXError UnavailableProvider::setAttributeValue(const Element&, const QString&, CFTypeRef) {
    return kAXErrorAPIDisabled;
}

AXError UnavailableProvider::copyActionNames(const Element&, QStringList*) {
    return kAXErrorAPIDisabled;
}

AXError UnavailableProvider::copyActionDescription(const Element&, const QString&, QString*) {
    return kAXErrorAPIDisabled;
}

AXError UnavailableProvider::performAction(const Element&, const QString&) {
    return kAXErrorAPIDisabled;
}

AXError UnavailableProvider::elementAtPosition(const Element&, CGPoint, Element*) {
    return kAXErrorAPIDisabled;
}

AXError UnavailableProvider::windowOfElement(const Element&, CGWindowID*) {
    return kAXErrorAPIDisabled;
}

CGError UnavailableProvider::windowList(QList<WindowInfo>*) {
    return kCGErrorCannotComplete;
}

QList<ApplicationInfo> UnavailableProvider::applications() {
    return {};
}

QList<ScreenInfo> UnavailableProvider::screens() {
    return {};
}

ZoomInfo UnavailableProvider::zoom() {
    return {};
}

double UnavailableProvider::menuBarHeight() {
    return 0;
}

CGPoint UnavailableProvider::mousePosition() {
    return {};
}

bool UnavailableProvider::isProcessTrusted(bool) {
    return false;
}

bool UnavailableProvider::isAPIEnabled() {
    return false;
}
