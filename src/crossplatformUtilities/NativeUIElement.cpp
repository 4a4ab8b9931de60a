#include "NativeUIElement.h"

#include "platformAccessibility.h"

// The platform reference of the element, with the one retain that the handle owns.
struct NativeUIElement::Data {
    AXUIElementRef element = nullptr;
};

namespace {

AXUIElementRef retained(AXUIElementRef element) {
    return element ? static_cast<AXUIElementRef>(CFRetain(element)) : nullptr;
}

void release(AXUIElementRef element) {
    if (element)
        CFRelease(element);
}

} // namespace

NativeUIElement::NativeUIElement() : data(new Data) {}

// The window cache is not copied: the copy finds its window anew when asked.
NativeUIElement::NativeUIElement(const NativeUIElement& other)
    : data(new Data{retained(other.data->element)}), m_screenPosition(other.m_screenPosition) {}

// The old reference goes first, so a handle assigned to itself while holding the element's last
// retain frees the element. It then stays null instead of retaining freed memory.
NativeUIElement& NativeUIElement::operator=(const NativeUIElement& other) {
    const bool releasesLastRetainOfItself =
        this == &other && data->element && CFGetRetainCount(data->element) == 1;
    release(data->element);
    data->element = releasesLastRetainOfItself ? nullptr : retained(other.data->element);
    m_screenPosition = other.m_screenPosition;
    return *this;
}

NativeUIElement::~NativeUIElement() {
    release(data->element);
    delete data;
}

bool NativeUIElement::isNull() const {
    return data->element == nullptr;
}

void* NativeUIElement::copyOSSpecificElementReference() const {
    return const_cast<void*>(static_cast<const void*>(retained(data->element)));
}

void NativeUIElement::setOSSpecificElementReference(void* reference) {
    release(data->element);
    data->element = static_cast<AXUIElementRef>(reference);
}

bool NativeUIElement::operator==(const NativeUIElement& other) const {
    return data->element && other.data->element && CFEqual(data->element, other.data->element);
}

bool NativeUIElement::operator!=(const NativeUIElement& other) const {
    return !data->element || !other.data->element || !CFEqual(data->element, other.data->element);
}
