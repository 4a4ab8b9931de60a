#pragma once

// The object model of the CoreFoundation subset, open to the providers of further types (the
// accessibility layer's element handles and packed values).
//
// Every object is a header (type id, atomic retain count) followed by a body that belongs to
// its type. A type is registered once with its callbacks and gets a type id; instances are
// created with a body of the size it asks for, and the common functions (CFRetain, CFRelease,
// CFEqual, CFHash, CFCopyDescription, CFCopyTypeIDDescription) dispatch to the callbacks. A
// provider's type behaves like a built-in one in arrays, sets and dictionaries.
//
// Example, a provider's element handle:
//
//     struct ElementBody { QString path; int pid; };
//     static const CFTypeID elementType = CFRuntime::registerType(
//         {"AXUIElement", &CFRuntime::destroyBody<ElementBody>, equalElements, hashElement,
//         describeElement});
//     CFTypeRef element = CFRuntime::create<ElementBody>(elementType, path, pid);
//     CFRuntime::body<ElementBody>(element)->pid ...

#include "CFBase.h"

#include <cstddef>
#include <new>
#include <utility>

namespace CFRuntime {

inline constexpr CFTypeID kNotATypeID = 0;

// What a type contributes. Every callback may be null.
struct TypeInfo {
    // The type's name, as CFCopyTypeIDDescription gives it ("AXUIElement"). Copied.
    const char* name;
    // Runs once, when the last reference goes. Frees what the body holds; the runtime then
    // frees the object itself. Null: the body holds nothing to free.
    void (*finalize)(CFTypeRef object);
    // Content equality. Only ever called for two distinct objects of this type: identity,
    // NULL and differing types are settled before. Null: equal only to itself.
    Boolean (*equal)(CFTypeRef object1, CFTypeRef object2);
    // Must agree with equal. Null: the address.
    CFHashCode (*hash)(CFTypeRef object);
    // A new string, for logs. Null: "<Name 0x...>".
    CFStringRef (*copyDescription)(CFTypeRef object);
};

// Registers a type; kNotATypeID when the name is null or the registry is full (it holds 64
// registered types, registrations are meant to happen once per type and process). Thread-safe.
CFTypeID registerType(const TypeInfo& info);

// A new object of a registered type with a retain count of 1 and a zero-filled body of
// bodySize bytes, aligned for any type; NULL for an unknown type id.
CFTypeRef createInstance(CFTypeID typeID, std::size_t bodySize);
// The same, for objects that live as long as the process: retain and release leave them alone,
// they are never finalized, and the live-object count does not include them.
CFTypeRef createImmortalInstance(CFTypeID typeID, std::size_t bodySize);

// Objects created and not yet finalized (immortal ones aside). Tests compare it before and
// after a piece of work to find leaks.
CFIndex liveObjectCount();

// The body lies this far behind the object's address: room for the header, aligned for any type.
inline constexpr std::size_t kBodyOffset = alignof(std::max_align_t) < 16 ? 16 : alignof(std::max_align_t);

inline void* bodyOf(CFTypeRef object) {
    return const_cast<char*>(static_cast<const char*>(object)) + kBodyOffset;
}

template <class Body> Body* body(CFTypeRef object) {
    return static_cast<Body*>(bodyOf(object));
}

// Helpers for bodies that are C++ objects: construct in place, and a finalize callback that
// runs the destructor.
template <class Body, class... Args> CFTypeRef create(CFTypeID typeID, Args&&... args) {
    static_assert(alignof(Body) <= kBodyOffset, "body needs stronger alignment than objects have");
    CFTypeRef object = createInstance(typeID, sizeof(Body));
    if (object)
        new (bodyOf(object)) Body{std::forward<Args>(args)...};
    return object;
}

template <class Body, class... Args> CFTypeRef createImmortal(CFTypeID typeID, Args&&... args) {
    static_assert(alignof(Body) <= kBodyOffset, "body needs stronger alignment than objects have");
    CFTypeRef object = createImmortalInstance(typeID, sizeof(Body));
    if (object)
        new (bodyOf(object)) Body{std::forward<Args>(args)...};
    return object;
}

template <class Body> void destroyBody(CFTypeRef object) {
    body<Body>(object)->~Body();
}

} // namespace CFRuntime
