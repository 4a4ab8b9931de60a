#pragma once

// Inside the CoreFoundation subset only: the object header, the ids of the built-in types, and
// helpers that the type implementations share.

#include "CFRuntime.h"
#include "CFString.h"

#include <QString>

#include <atomic>
#include <cstdint>

namespace CFInternal {

// Built-in types have fixed ids, so that their constant objects (kCFBooleanTrue, kCFNull) can
// be initialized at compile time, before any code runs. Registered types follow.
enum BuiltInTypeID : CFTypeID {
    kStringTypeID = 1,
    kNumberTypeID,
    kBooleanTypeID,
    kNullTypeID,
    kArrayTypeID,
    kSetTypeID,
    kDictionaryTypeID,
    kURLTypeID,
    kDataTypeID,
    kFirstRegisteredTypeID
};

extern const CFRuntime::TypeInfo stringTypeInfo;
extern const CFRuntime::TypeInfo numberTypeInfo;
extern const CFRuntime::TypeInfo booleanTypeInfo;
extern const CFRuntime::TypeInfo nullTypeInfo;
extern const CFRuntime::TypeInfo arrayTypeInfo;
extern const CFRuntime::TypeInfo setTypeInfo;
extern const CFRuntime::TypeInfo dictionaryTypeInfo;
extern const CFRuntime::TypeInfo urlTypeInfo;
extern const CFRuntime::TypeInfo dataTypeInfo;

enum ObjectFlags : std::uint32_t { kImmortal = 1 };

struct alignas(CFRuntime::kBodyOffset) ObjectHeader {
    CFTypeID typeID;
    std::atomic<std::int32_t> retainCount;
    std::uint32_t flags;
};
static_assert(sizeof(ObjectHeader) == CFRuntime::kBodyOffset, "the body must follow the header directly");

inline ObjectHeader* headerOf(CFTypeRef object) {
    return static_cast<ObjectHeader*>(const_cast<void*>(object));
}

// The body of object when it is of the given type, else null (also for a null object).
template <class Body> Body* bodyIfType(CFTypeRef object, CFTypeID typeID) {
    if (!object || headerOf(object)->typeID != typeID)
        return nullptr;
    return CFRuntime::body<Body>(object);
}

// Whether range lies within a sequence of the given length.
inline bool rangeWithin(CFRange range, CFIndex length) {
    return range.location >= 0 && range.length >= 0 && range.location <= length &&
           range.length <= length - range.location;
}

CFHashCode hashBytes(const void* bytes, std::size_t size);
CFHashCode hashInteger(std::int64_t value);

CFStringRef createString(const QString& text);
// The text of a string; empty for NULL and for objects of other types.
QString stringText(CFTypeRef string);
// The text of CFCopyDescription, for the descriptions of containers.
QString descriptionText(CFTypeRef object);
// The description that types without their own get: "<Name 0x...>".
QString defaultDescription(const char* typeName, const void* address);

} // namespace CFInternal
