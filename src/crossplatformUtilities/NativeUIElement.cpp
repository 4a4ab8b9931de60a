#include "NativeUIElement.h"

// The platform reference of the element. Handles are built null until the accessibility layer
// hands them an element.
struct NativeUIElement::Data {
    const void* element = nullptr;
};

NativeUIElement::NativeUIElement() : data(new Data) {}

// The window cache is not copied: the copy finds its window anew when asked.
NativeUIElement::NativeUIElement(const NativeUIElement& other)
    : data(new Data(*other.data)), m_screenPosition(other.m_screenPosition) {}

NativeUIElement& NativeUIElement::operator=(const NativeUIElement& other) {
    data->element = other.data->element;
    m_screenPosition = other.m_screenPosition;
    return *this;
}

NativeUIElement::~NativeUIElement() {
    delete data;
}

bool NativeUIElement::isNull() const {
    return data->element == nullptr;
}
