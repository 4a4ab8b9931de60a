// The types whose only instances are constants: booleans and null. Their objects are
// initialized at compile time, so they are valid in any static initializer of any file.

#include "CFNumber.h"
#include "CFObject_p.h"

using CFInternal::ObjectHeader;

struct __CFBoolean {
    ObjectHeader header;
    bool value;
};

struct __CFNull {
    ObjectHeader header;
};

namespace {

__CFBoolean trueObject = {{CFInternal::kBooleanTypeID, {1}, CFInternal::kImmortal}, true};
__CFBoolean falseObject = {{CFInternal::kBooleanTypeID, {1}, CFInternal::kImmortal}, false};
__CFNull nullObject = {{CFInternal::kNullTypeID, {1}, CFInternal::kImmortal}};

CFStringRef describeBoolean(CFTypeRef boolean) {
    return CFInternal::createString(CFBooleanGetValue(static_cast<CFBooleanRef>(boolean))
                                        ? QStringLiteral("true")
                                        : QStringLiteral("false"));
}

CFStringRef describeNull(CFTypeRef) {
    return CFInternal::createString(QStringLiteral("<null>"));
}

} // namespace

// Two instances, each equal only to itself.
const CFRuntime::TypeInfo CFInternal::booleanTypeInfo = {"CFBoolean", nullptr, nullptr, nullptr,
                                                         describeBoolean};
const CFRuntime::TypeInfo CFInternal::nullTypeInfo = {"CFNull", nullptr, nullptr, nullptr, describeNull};

const CFBooleanRef kCFBooleanTrue = &trueObject;
const CFBooleanRef kCFBooleanFalse = &falseObject;
const CFNullRef kCFNull = &nullObject;

CFTypeID CFBooleanGetTypeID(void) {
    return CFInternal::kBooleanTypeID;
}

Boolean CFBooleanGetValue(CFBooleanRef boolean) {
    return boolean == kCFBooleanTrue;
}

CFTypeID CFNullGetTypeID(void) {
    return CFInternal::kNullTypeID;
}
