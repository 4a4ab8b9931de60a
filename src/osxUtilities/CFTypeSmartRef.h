#pragma once

// Holders of platform references. CFTypeSmartRef is the sole owner of a reference obtained from a
// Copy or Create call and lives on the stack around platform calls; CFTypeSharedRef is a shared
// owner with value semantics, the type that stands in containers and in QVariants.

#include "platformAccessibility.h"

#include <QList>
#include <QMetaType>

#include <utility>

template <class T> class CFTypeSmartRef {
public:
    // Takes over the reference without adding a retain.
    explicit CFTypeSmartRef(T ref = nullptr) : ref(ref) {}
    ~CFTypeSmartRef() { reset(); }

    CFTypeSmartRef(const CFTypeSmartRef&) = delete;
    CFTypeSmartRef& operator=(const CFTypeSmartRef&) = delete;
    CFTypeSmartRef(CFTypeSmartRef&& other) noexcept : ref(other.take()) {}
    CFTypeSmartRef& operator=(CFTypeSmartRef&& other) noexcept {
        if (this != &other)
            reset(other.take());
        return *this;
    }

    operator T() const { return ref; }
    T get() const { return ref; }
    bool isNull() const { return ref == nullptr; }

    // Releases the held reference and returns the slot for an out argument of a Copy call.
    T* out() {
        reset();
        return &ref;
    }

    // Gives up ownership without a release: the caller now owns the reference.
    T take() { return std::exchange(ref, nullptr); }

    void reset(T newRef = nullptr) {
        if (ref)
            CFRelease(ref);
        ref = newRef;
    }

private:
    T ref;
};

template <class T> class CFTypeSharedRef {
public:
    CFTypeSharedRef() = default;
    // Retains: the caller keeps its own reference.
    CFTypeSharedRef(T ref) : ref(ref) { retain(); }
    ~CFTypeSharedRef() { release(); }

    CFTypeSharedRef(const CFTypeSharedRef& other) : ref(other.ref) { retain(); }
    CFTypeSharedRef& operator=(const CFTypeSharedRef& other) {
        CFTypeSharedRef copy(other);
        std::swap(ref, copy.ref);
        return *this;
    }
    CFTypeSharedRef(CFTypeSharedRef&& other) noexcept : ref(std::exchange(other.ref, nullptr)) {}
    CFTypeSharedRef& operator=(CFTypeSharedRef&& other) noexcept {
        std::swap(ref, other.ref);
        return *this;
    }

    operator T() const { return ref; }
    T get() const { return ref; }
    bool isNull() const { return ref == nullptr; }

    // Identity of platform objects is CFEqual, never the pointer.
    friend bool operator==(const CFTypeSharedRef& a, const CFTypeSharedRef& b) {
        if (!a.ref || !b.ref)
            return a.ref == b.ref;
        return CFEqual(a.ref, b.ref);
    }
    friend bool operator!=(const CFTypeSharedRef& a, const CFTypeSharedRef& b) { return !(a == b); }

private:
    void retain() {
        if (ref)
            CFRetain(ref);
    }
    void release() {
        if (ref)
            CFRelease(ref);
    }

    T ref = nullptr;
};

// One more retain on a platform reference, for a caller that hands it on as its own; NULL stays
// NULL.
template <class T> T retained(T ref) {
    return ref ? static_cast<T>(CFRetain(ref)) : nullptr;
}

// The ancestors of an element, from the top of the tree down to its direct parent.
using UIElementAncestorList = QList<CFTypeSharedRef<AXUIElementRef>>;

Q_DECLARE_METATYPE(CFTypeSharedRef<AXUIElementRef>)
Q_DECLARE_METATYPE(UIElementAncestorList)
