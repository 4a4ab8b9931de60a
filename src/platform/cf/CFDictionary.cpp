// Dictionaries: keys and values, owned through the dictionary's callbacks.

#include "CFDictionary.h"
#include "CFCollection_p.h"

using CFInternal::ElementCallbacks;
using CFInternal::kDictionaryTypeID;
using CFInternal::KeyedStore;

namespace {

struct DictionaryBody {
    DictionaryBody(const ElementCallbacks& keyCallbacks, const ElementCallbacks& valueCallbacks,
                   bool isMutable)
        : store(keyCallbacks, valueCallbacks), isMutable(isMutable) {}

    KeyedStore store;
    bool isMutable;
};

DictionaryBody* dictionaryBody(CFTypeRef dictionary) {
    return CFInternal::bodyIfType<DictionaryBody>(dictionary, kDictionaryTypeID);
}

// Mutating an immutable dictionary is a crash on Apple; here it is refused.
DictionaryBody* mutableDictionaryBody(CFMutableDictionaryRef dictionary) {
    DictionaryBody* body = dictionaryBody(dictionary);
    return body && body->isMutable ? body : nullptr;
}

CFMutableDictionaryRef makeDictionary(const CFDictionaryKeyCallBacks* keyCallBacks,
                                      const CFDictionaryValueCallBacks* valueCallBacks, bool isMutable) {
    return static_cast<CFMutableDictionaryRef>(const_cast<void*>(
        CFRuntime::create<DictionaryBody>(kDictionaryTypeID, ElementCallbacks::from(keyCallBacks),
                                          ElementCallbacks::from(valueCallBacks), isMutable)));
}

void put(CFMutableDictionaryRef dictionary, const void* key, const void* value, KeyedStore::Mode mode) {
    if (DictionaryBody* body = mutableDictionaryBody(dictionary))
        body->store.put(key, value, mode);
}

Boolean equalDictionaries(CFTypeRef dictionary1, CFTypeRef dictionary2) {
    return dictionaryBody(dictionary1)->store.hasSameEntries(dictionaryBody(dictionary2)->store);
}

// The count, as on Apple: it does not depend on the order of the entries.
CFHashCode hashDictionary(CFTypeRef dictionary) {
    return CFHashCode(dictionaryBody(dictionary)->store.count());
}

CFStringRef describeDictionary(CFTypeRef dictionary) {
    const QStringList entries = dictionaryBody(dictionary)->store.describeEntries(true);
    return CFInternal::createString(QLatin1Char('{') + entries.join(QStringLiteral("; ")) + QLatin1Char('}'));
}

} // namespace

const CFRuntime::TypeInfo CFInternal::dictionaryTypeInfo = {
    "CFDictionary", &CFRuntime::destroyBody<DictionaryBody>, equalDictionaries, hashDictionary,
    describeDictionary};

const CFDictionaryKeyCallBacks kCFTypeDictionaryKeyCallBacks = {
    0, CFInternal::retainObject, CFInternal::releaseObject, CFCopyDescription, CFEqual, CFHash};
const CFDictionaryValueCallBacks kCFTypeDictionaryValueCallBacks = {
    0, CFInternal::retainObject, CFInternal::releaseObject, CFCopyDescription, CFEqual};

CFTypeID CFDictionaryGetTypeID(void) {
    return kDictionaryTypeID;
}

CFDictionaryRef CFDictionaryCreate(CFAllocatorRef, const void** keys, const void** values, CFIndex numValues,
                                   const CFDictionaryKeyCallBacks* keyCallBacks,
                                   const CFDictionaryValueCallBacks* valueCallBacks) {
    if (numValues < 0 || ((!keys || !values) && numValues > 0))
        return nullptr;
    CFMutableDictionaryRef dictionary = makeDictionary(keyCallBacks, valueCallBacks, false);
    if (DictionaryBody* body = dictionaryBody(dictionary))
        for (CFIndex i = 0; i < numValues; ++i)
            body->store.put(keys[i], values[i], KeyedStore::Mode::AddOrReplace);
    return dictionary;
}

CFMutableDictionaryRef CFDictionaryCreateMutable(CFAllocatorRef, CFIndex,
                                                 const CFDictionaryKeyCallBacks* keyCallBacks,
                                                 const CFDictionaryValueCallBacks* valueCallBacks) {
    return makeDictionary(keyCallBacks, valueCallBacks, true);
}

CFIndex CFDictionaryGetCount(CFDictionaryRef theDict) {
    const DictionaryBody* body = dictionaryBody(theDict);
    return body ? body->store.count() : 0;
}

Boolean CFDictionaryContainsKey(CFDictionaryRef theDict, const void* key) {
    const DictionaryBody* body = dictionaryBody(theDict);
    return body && body->store.find(key);
}

const void* CFDictionaryGetValue(CFDictionaryRef theDict, const void* key) {
    const void* value = nullptr;
    CFDictionaryGetValueIfPresent(theDict, key, &value);
    return value;
}

Boolean CFDictionaryGetValueIfPresent(CFDictionaryRef theDict, const void* key, const void** value) {
    const DictionaryBody* body = dictionaryBody(theDict);
    const auto* entry = body ? body->store.find(key) : nullptr;
    if (!entry)
        return false;
    if (value)
        *value = entry->second;
    return true;
}

void CFDictionaryGetKeysAndValues(CFDictionaryRef theDict, const void** keys, const void** values) {
    const DictionaryBody* body = dictionaryBody(theDict);
    if (!body)
        return;
    body->store.forEach([&keys, &values](const void* key, const void* value) {
        if (keys)
            *keys++ = key;
        if (values)
            *values++ = value;
    });
}

void CFDictionaryAddValue(CFMutableDictionaryRef theDict, const void* key, const void* value) {
    put(theDict, key, value, KeyedStore::Mode::AddOnly);
}

void CFDictionaryReplaceValue(CFMutableDictionaryRef theDict, const void* key, const void* value) {
    put(theDict, key, value, KeyedStore::Mode::ReplaceOnly);
}

void CFDictionarySetValue(CFMutableDictionaryRef theDict, const void* key, const void* value) {
    put(theDict, key, value, KeyedStore::Mode::AddOrReplace);
}

void CFDictionaryRemoveValue(CFMutableDictionaryRef theDict, const void* key) {
    if (DictionaryBody* body = mutableDictionaryBody(theDict))
        body->store.remove(key);
}

void CFDictionaryRemoveAllValues(CFMutableDictionaryRef theDict) {
    if (DictionaryBody* body = mutableDictionaryBody(theDict))
        body->store.removeAll();
}
