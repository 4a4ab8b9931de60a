#include "ElementHandle_p.h"

#include "cf/CFRuntime.h"
#include "platformCoreFoundation.h"

namespace {

struct HandleBody {
    quint64 provider;
    Element element;
};

const HandleBody& bodyOf(CFTypeRef handle) {
    return *CFRuntime::body<HandleBody>(handle);
}

Boolean equalHandles(CFTypeRef first, CFTypeRef second) {
    const HandleBody& a = bodyOf(first);
    const HandleBody& b = bodyOf(second);
    return a.provider == b.provider && a.element.id == b.element.id && a.element.pid == b.element.pid;
}

CFHashCode hashHandle(CFTypeRef handle) {
    const HandleBody& body = bodyOf(handle);
    return CFHashCode(qHashMulti(0, body.provider, body.element.id, body.element.pid));
}

CFStringRef describeHandle(CFTypeRef handle) {
    const HandleBody& body = bodyOf(handle);
    const QString text =
        body.element.isSystemWide()
            ? QStringLiteral("<AXUIElement system-wide>")
            : QStringLiteral("<AXUIElement pid %1 element %2>").arg(body.element.pid).arg(body.element.id);
    return CFStringCreateWithQString(text);
}

} // namespace

CFTypeID ElementHandle::typeID() {
    static const CFTypeID id =
        CFRuntime::registerType({"AXUIElement", nullptr, equalHandles, hashHandle, describeHandle});
    return id;
}

AXUIElementRef ElementHandle::create(quint64 providerSerial, const Element& element) {
    return static_cast<AXUIElementRef>(CFRuntime::create<HandleBody>(typeID(), providerSerial, element));
}

bool ElementHandle::read(CFTypeRef handle, quint64* providerSerial, Element* element) {
    if (!handle || CFGetTypeID(handle) != typeID())
        return false;
    *providerSerial = bodyOf(handle).provider;
    *element = bodyOf(handle).element;
    return true;
}
