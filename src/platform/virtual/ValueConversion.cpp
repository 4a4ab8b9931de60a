#include "ValueConversion.h"

#include "platformCoreFoundation.h"

#include <vector>

namespace VirtualDesktopModel {

namespace {

CFTypeRef createArray(const Value& value, const AccessibilityProvider& provider) {
    std::vector<const void*> items;
    items.reserve(value.items.size());
    for (const Value& item : value.items)
        items.push_back(createCFValue(item, provider));
    CFArrayRef array =
        CFArrayCreate(kCFAllocatorDefault, items.data(), CFIndex(items.size()), &kCFTypeArrayCallBacks);
    for (const void* item : items)
        CFRelease(item);
    return array;
}

bool packedFromCF(AXValueRef packed, Value* value) {
    switch (AXValueGetType(packed)) {
    case kAXValueCGPointType:
        value->kind = Value::Kind::Point;
        return AXValueGetValue(packed, kAXValueCGPointType, &value->rect.origin);
    case kAXValueCGSizeType:
        value->kind = Value::Kind::Size;
        return AXValueGetValue(packed, kAXValueCGSizeType, &value->rect.size);
    case kAXValueCGRectType:
        value->kind = Value::Kind::Rect;
        return AXValueGetValue(packed, kAXValueCGRectType, &value->rect);
    case kAXValueCFRangeType:
        value->kind = Value::Kind::Range;
        return AXValueGetValue(packed, kAXValueCFRangeType, &value->range);
    case kAXValueAXErrorType:
    case kAXValueIllegalType:
        break;
    }
    return false;
}

bool numberFromCF(CFNumberRef number, Value* value) {
    if (CFNumberIsFloatType(number)) {
        value->kind = Value::Kind::Double;
        return CFNumberGetValue(number, kCFNumberFloat64Type, &value->number);
    }
    value->kind = Value::Kind::Integer;
    return CFNumberGetValue(number, kCFNumberSInt64Type, &value->integer);
}

} // namespace

CFTypeRef createCFValue(const Value& value, const AccessibilityProvider& provider) {
    switch (value.kind) {
    case Value::Kind::Null:
        return CFRetain(kCFNull);
    case Value::Kind::Boolean:
        return CFRetain(value.boolean ? kCFBooleanTrue : kCFBooleanFalse);
    case Value::Kind::Integer:
        return CFNumberCreate(kCFAllocatorDefault, kCFNumberSInt64Type, &value.integer);
    case Value::Kind::Double:
        return CFNumberCreate(kCFAllocatorDefault, kCFNumberFloat64Type, &value.number);
    case Value::Kind::String:
        return CFStringCreateWithQString(value.text);
    case Value::Kind::Url: {
        CFStringRef text = CFStringCreateWithQString(value.text);
        CFURLRef url = CFURLCreateWithString(kCFAllocatorDefault, text, nullptr);
        CFRelease(text);
        return url;
    }
    case Value::Kind::Point:
        return AXValueCreate(kAXValueCGPointType, &value.rect.origin);
    case Value::Kind::Size:
        return AXValueCreate(kAXValueCGSizeType, &value.rect.size);
    case Value::Kind::Rect:
        return AXValueCreate(kAXValueCGRectType, &value.rect);
    case Value::Kind::Range:
        return AXValueCreate(kAXValueCFRangeType, &value.range);
    case Value::Kind::Array:
        return createArray(value, provider);
    case Value::Kind::Element:
        return provider.createHandle(value.element);
    }
    return nullptr;
}

bool valueFromCF(CFTypeRef object, const AccessibilityProvider& provider, Value* value) {
    const CFTypeID type = CFGetTypeID(object);
    if (type == CFNullGetTypeID()) {
        value->kind = Value::Kind::Null;
        return true;
    }
    if (type == CFBooleanGetTypeID()) {
        value->kind = Value::Kind::Boolean;
        value->boolean = CFBooleanGetValue(static_cast<CFBooleanRef>(object));
        return true;
    }
    if (type == CFNumberGetTypeID())
        return numberFromCF(static_cast<CFNumberRef>(object), value);
    if (type == CFStringGetTypeID() || type == CFURLGetTypeID()) {
        const bool isString = type == CFStringGetTypeID();
        value->kind = isString ? Value::Kind::String : Value::Kind::Url;
        value->text = QStringFromCFString(isString ? static_cast<CFStringRef>(object)
                                                   : CFURLGetString(static_cast<CFURLRef>(object)));
        return true;
    }
    if (type == AXValueGetTypeID())
        return packedFromCF(static_cast<AXValueRef>(object), value);
    if (type == AXUIElementGetTypeID()) {
        value->kind = Value::Kind::Element;
        return provider.elementOfHandle(object, &value->element);
    }
    if (type != CFArrayGetTypeID())
        return false;
    CFArrayRef array = static_cast<CFArrayRef>(object);
    value->kind = Value::Kind::Array;
    value->items.resize(std::size_t(CFArrayGetCount(array)));
    for (CFIndex i = 0; i < CFArrayGetCount(array); ++i) {
        if (!valueFromCF(CFArrayGetValueAtIndex(array, i), provider, &value->items[std::size_t(i)]))
            return false;
    }
    return true;
}

} // namespace VirtualDesktopModel
