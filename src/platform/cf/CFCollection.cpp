#include "CFCollection_p.h"

#include <cstdint>
#include <vector>

namespace CFInternal {

CFHashCode ElementCallbacks::hash(const void* value) const {
    return hashFn ? hashFn(value) : hashInteger(std::int64_t(reinterpret_cast<std::uintptr_t>(value)));
}

QString ElementCallbacks::describe(const void* value) const {
    if (!copyDescriptionFn)
        return QStringLiteral("<0x%1>").arg(quintptr(value), 0, 16);
    CFStringRef description = copyDescriptionFn(value);
    QString text = stringText(description);
    CFRelease(description);
    return text;
}

const void* retainObject(CFAllocatorRef, const void* value) {
    return CFRetain(value);
}

void releaseObject(CFAllocatorRef, const void* value) {
    CFRelease(value);
}

KeyedStore::KeyedStore(const ElementCallbacks& keyCallbacks, const ElementCallbacks& valueCallbacks)
    : keys(keyCallbacks), values(valueCallbacks), entries(0, Hash{keyCallbacks}, Equal{keyCallbacks}) {}

KeyedStore::~KeyedStore() {
    removeAll();
}

const std::pair<const void* const, const void*>* KeyedStore::find(const void* key) const {
    const auto entry = entries.find(key);
    return entry == entries.end() ? nullptr : &*entry;
}

void KeyedStore::put(const void* key, const void* value, Mode mode) {
    const auto entry = entries.find(key);
    if (entry == entries.end()) {
        if (mode != Mode::ReplaceOnly)
            entries.emplace(keys.retain(key), values.retain(value));
        return;
    }
    if (mode == Mode::AddOnly)
        return;
    // Retain before release: the new value may be the old one.
    const void* old = entry->second;
    entry->second = values.retain(value);
    values.release(old);
}

void KeyedStore::remove(const void* key) {
    const auto entry = entries.find(key);
    if (entry == entries.end())
        return;
    const auto [storedKey, storedValue] = *entry;
    entries.erase(entry);
    keys.release(storedKey);
    values.release(storedValue);
}

void KeyedStore::removeAll() {
    // Released after the table is empty: a release may finalize an object whose finalizer
    // looks at this container again.
    std::vector<std::pair<const void*, const void*>> released(entries.begin(), entries.end());
    entries.clear();
    for (const auto& [key, value] : released) {
        keys.release(key);
        values.release(value);
    }
}

bool KeyedStore::hasSameEntries(const KeyedStore& other) const {
    if (count() != other.count())
        return false;
    for (const auto& [key, value] : entries) {
        const auto* match = other.find(key);
        if (!match || !values.equal(value, match->second))
            return false;
    }
    return true;
}

QStringList KeyedStore::describeEntries(bool withValues) const {
    QStringList texts;
    for (const auto& [key, value] : entries)
        texts << (withValues ? keys.describe(key) + QStringLiteral(" = ") + values.describe(value)
                             : keys.describe(key));
    return texts;
}

} // namespace CFInternal
