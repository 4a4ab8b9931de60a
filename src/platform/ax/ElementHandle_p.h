#pragma once

// Inside the accessibility layer only: the CoreFoundation type behind AXUIElementRef.

#include "AccessibilityProvider.h"

namespace ElementHandle {

CFTypeID typeID();
AXUIElementRef create(quint64 providerSerial, const Element& element);
// False when handle is not an element handle.
bool read(CFTypeRef handle, quint64* providerSerial, Element* element);

} // namespace ElementHandle
