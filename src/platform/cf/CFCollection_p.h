#pragma once

// What arrays, sets and dictionaries share: the callbacks for their values, and the hash table
// behind sets and dictionaries.

#include "CFObject_p.h"

#include <QStringList>

#include <type_traits>
#include <unordered_map>

namespace CFInternal {

// The callbacks of a container for its values (or keys), from any of Apple's callback
// structures. A missing callback means: not retained, compared and hashed by address,
// described by address.
struct ElementCallbacks {
    const void* (*retainFn)(CFAllocatorRef, const void*) = nullptr;
    void (*releaseFn)(CFAllocatorRef, const void*) = nullptr;
    CFStringRef (*copyDescriptionFn)(const void*) = nullptr;
    Boolean (*equalFn)(const void*, const void*) = nullptr;
    CFHashCode (*hashFn)(const void*) = nullptr;

    template <class CallBacks> static ElementCallbacks from(const CallBacks* callBacks);

    const void* retain(const void* value) const {
        return retainFn ? retainFn(kCFAllocatorDefault, value) : value;
    }
    void release(const void* value) const {
        if (releaseFn)
            releaseFn(kCFAllocatorDefault, value);
    }
    bool equal(const void* value1, const void* value2) const {
        return value1 == value2 || (equalFn && equalFn(value1, value2));
    }
    CFHashCode hash(const void* value) const;
    QString describe(const void* value) const;
};

template <class T, class = void> struct HasHashCallback : std::false_type {};
template <class T> struct HasHashCallback<T, std::void_t<decltype(T::hash)>> : std::true_type {};

template <class CallBacks> ElementCallbacks ElementCallbacks::from(const CallBacks* callBacks) {
    ElementCallbacks result;
    if (!callBacks)
        return result;
    result.retainFn = callBacks->retain;
    result.releaseFn = callBacks->release;
    result.copyDescriptionFn = callBacks->copyDescription;
    result.equalFn = callBacks->equal;
    if constexpr (HasHashCallback<CallBacks>::value)
        result.hashFn = callBacks->hash;
    return result;
}

// The retain and release of the kCFType... callback structures.
const void* retainObject(CFAllocatorRef allocator, const void* value);
void releaseObject(CFAllocatorRef allocator, const void* value);

// A hash table from keys to values, which owns what it holds through its callbacks. A set is
// one whose values are unused (null, with no callbacks).
class KeyedStore {
public:
    enum class Mode { AddOnly, ReplaceOnly, AddOrReplace };

    KeyedStore(const ElementCallbacks& keyCallbacks, const ElementCallbacks& valueCallbacks);
    ~KeyedStore();
    KeyedStore(const KeyedStore&) = delete;
    KeyedStore& operator=(const KeyedStore&) = delete;

    CFIndex count() const { return CFIndex(entries.size()); }
    // The stored key and value for key, or null.
    const std::pair<const void* const, const void*>* find(const void* key) const;
    void put(const void* key, const void* value, Mode mode);
    void remove(const void* key);
    void removeAll();
    // Same keys, and values equal by this store's value callbacks.
    bool hasSameEntries(const KeyedStore& other) const;
    // "key = value" per entry, or only the key in a set, in no particular order.
    QStringList describeEntries(bool withValues) const;

    template <class Function> void forEach(Function function) const {
        for (const auto& entry : entries)
            function(entry.first, entry.second);
    }

private:
    struct Hash {
        ElementCallbacks callbacks;
        std::size_t operator()(const void* key) const { return callbacks.hash(key); }
    };
    struct Equal {
        ElementCallbacks callbacks;
        bool operator()(const void* key1, const void* key2) const { return callbacks.equal(key1, key2); }
    };

    ElementCallbacks keys;
    ElementCallbacks values;
    std::unordered_map<const void*, const void*, Hash, Equal> entries;
};

} // namespace CFInternal
