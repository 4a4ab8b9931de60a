#pragma once

// Between the desktop's values and the CoreFoundation objects that callers see.

#include "DesktopModel.h"

namespace VirtualDesktopModel {

// A new object (one reference for the caller); element values become handles of provider.
CFTypeRef createCFValue(const Value& value, const AccessibilityProvider& provider);
// False for an object that no attribute of the desktop can hold: an unknown type, or a handle
// of another provider.
bool valueFromCF(CFTypeRef object, const AccessibilityProvider& provider, Value* value);

} // namespace VirtualDesktopModel
