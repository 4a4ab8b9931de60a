// Sets: distinct values, owned through the set's callbacks.

#include "CFSet.h"
#include "CFCollection_p.h"

using CFInternal::ElementCallbacks;
using CFInternal::KeyedStore;
using CFInternal::kSetTypeID;

namespace {

struct SetBody {
    SetBody(const ElementCallbacks& callbacks, bool isMutable)
        : store(callbacks, ElementCallbacks()), isMutable(isMutable) {}

    KeyedStore store;
    bool isMutable;
};

SetBody* setBody(CFTypeRef set) {
    return CFInternal::bodyIfType<SetBody>(set, kSetTypeID);
}

// Mutating an immutable set is a crash on Apple; here it is refused.
SetBody* mutableSetBody(CFMutableSetRef set) {
    SetBody* body = setBody(set);
    return body && body->isMutable ? body : nullptr;
}

CFMutableSetRef makeSet(const ElementCallbacks& callbacks, bool isMutable) {
    return static_cast<CFMutableSetRef>(
        const_cast<void*>(CFRuntime::create<SetBody>(kSetTypeID, callbacks, isMutable)));
}

Boolean equalSets(CFTypeRef set1, CFTypeRef set2) {
    return setBody(set1)->store.hasSameEntries(setBody(set2)->store);
}

// The count, as on Apple: it does not depend on the order of the members.
CFHashCode hashSet(CFTypeRef set) {
    return CFHashCode(setBody(set)->store.count());
}

CFStringRef describeSet(CFTypeRef set) {
    const QStringList members = setBody(set)->store.describeEntries(false);
    return CFInternal::createString(QStringLiteral("{(") + members.join(QStringLiteral(", ")) +
                                    QStringLiteral(")}"));
}

} // namespace

const CFRuntime::TypeInfo CFInternal::setTypeInfo = {"CFSet", &CFRuntime::destroyBody<SetBody>, equalSets,
                                                     hashSet, describeSet};

const CFSetCallBacks kCFTypeSetCallBacks = {
    0, CFInternal::retainObject, CFInternal::releaseObject, CFCopyDescription, CFEqual, CFHash};

CFTypeID CFSetGetTypeID(void) {
    return kSetTypeID;
}

CFSetRef CFSetCreate(CFAllocatorRef, const void** values, CFIndex numValues,
                     const CFSetCallBacks* callBacks) {
    if (numValues < 0 || (!values && numValues > 0))
        return nullptr;
    CFMutableSetRef set = makeSet(ElementCallbacks::from(callBacks), false);
    if (SetBody* body = setBody(set))
        for (CFIndex i = 0; i < numValues; ++i)
            body->store.put(values[i], nullptr, KeyedStore::Mode::AddOnly);
    return set;
}

CFMutableSetRef CFSetCreateMutable(CFAllocatorRef, CFIndex, const CFSetCallBacks* callBacks) {
    return makeSet(ElementCallbacks::from(callBacks), true);
}

CFIndex CFSetGetCount(CFSetRef theSet) {
    const SetBody* body = setBody(theSet);
    return body ? body->store.count() : 0;
}

Boolean CFSetContainsValue(CFSetRef theSet, const void* value) {
    const SetBody* body = setBody(theSet);
    return body && body->store.find(value);
}

const void* CFSetGetValue(CFSetRef theSet, const void* value) {
    const SetBody* body = setBody(theSet);
    const auto* entry = body ? body->store.find(value) : nullptr;
    return entry ? entry->first : nullptr;
}

void CFSetGetValues(CFSetRef theSet, const void** values) {
    const SetBody* body = setBody(theSet);
    if (!body || !values)
        return;
    body->store.forEach([&values](const void* key, const void*) { *values++ = key; });
}

void CFSetAddValue(CFMutableSetRef theSet, const void* value) {
    if (SetBody* body = mutableSetBody(theSet))
        body->store.put(value, nullptr, KeyedStore::Mode::AddOnly);
}

void CFSetRemoveValue(CFMutableSetRef theSet, const void* value) {
    if (SetBody* body = mutableSetBody(theSet))
        body->store.remove(value);
}

void CFSetRemoveAllValues(CFMutableSetRef theSet) {
    if (SetBody* body = mutableSetBody(theSet))
        body->store.removeAll();
}
