// Arrays: values in order, owned through the array's callbacks.

#include "CFArray.h"
#include "CFCollection_p.h"

#include <utility>
#include <vector>

using CFInternal::ElementCallbacks;
using CFInternal::kArrayTypeID;

namespace {

struct ArrayBody {
    ElementCallbacks callbacks;
    std::vector<const void*> values;
    bool isMutable;

    ~ArrayBody() {
        for (const void* value : values)
            callbacks.release(value);
    }
};

ArrayBody* arrayBody(CFTypeRef array) {
    return CFInternal::bodyIfType<ArrayBody>(array, kArrayTypeID);
}

// Mutating an immutable array is a crash on Apple; here it is refused.
ArrayBody* mutableArrayBody(CFMutableArrayRef array) {
    ArrayBody* body = arrayBody(array);
    return body && body->isMutable ? body : nullptr;
}

CFMutableArrayRef makeArray(const ElementCallbacks& callbacks, const void* const* values, CFIndex count,
                            bool isMutable) {
    auto* array = static_cast<CFMutableArrayRef>(const_cast<void*>(
        CFRuntime::create<ArrayBody>(kArrayTypeID, callbacks, std::vector<const void*>(), isMutable)));
    if (!array)
        return nullptr;
    ArrayBody* body = arrayBody(array);
    body->values.reserve(std::size_t(count));
    for (CFIndex i = 0; i < count; ++i)
        body->values.push_back(callbacks.retain(values[i]));
    return array;
}

Boolean equalArrays(CFTypeRef array1, CFTypeRef array2) {
    const ArrayBody& a = *arrayBody(array1);
    const ArrayBody& b = *arrayBody(array2);
    if (a.values.size() != b.values.size())
        return false;
    for (std::size_t i = 0; i < a.values.size(); ++i)
        if (!a.callbacks.equal(a.values[i], b.values[i]))
            return false;
    return true;
}

// The count, as on Apple: equal arrays have equal counts, and values need not be hashable.
CFHashCode hashArray(CFTypeRef array) {
    return CFHashCode(arrayBody(array)->values.size());
}

CFStringRef describeArray(CFTypeRef array) {
    const ArrayBody& body = *arrayBody(array);
    QStringList texts;
    for (const void* value : body.values)
        texts << body.callbacks.describe(value);
    return CFInternal::createString(QLatin1Char('(') + texts.join(QStringLiteral(", ")) + QLatin1Char(')'));
}

} // namespace

const CFRuntime::TypeInfo CFInternal::arrayTypeInfo = {"CFArray", &CFRuntime::destroyBody<ArrayBody>,
                                                       equalArrays, hashArray, describeArray};

const CFArrayCallBacks kCFTypeArrayCallBacks = {0, CFInternal::retainObject, CFInternal::releaseObject,
                                                CFCopyDescription, CFEqual};

CFTypeID CFArrayGetTypeID(void) {
    return kArrayTypeID;
}

CFArrayRef CFArrayCreate(CFAllocatorRef, const void** values, CFIndex numValues,
                         const CFArrayCallBacks* callBacks) {
    if (numValues < 0 || (!values && numValues > 0))
        return nullptr;
    return makeArray(ElementCallbacks::from(callBacks), values, numValues, false);
}

CFArrayRef CFArrayCreateCopy(CFAllocatorRef, CFArrayRef theArray) {
    const ArrayBody* body = arrayBody(theArray);
    return body ? makeArray(body->callbacks, body->values.data(), CFIndex(body->values.size()), false)
                : nullptr;
}

CFMutableArrayRef CFArrayCreateMutable(CFAllocatorRef, CFIndex, const CFArrayCallBacks* callBacks) {
    return makeArray(ElementCallbacks::from(callBacks), nullptr, 0, true);
}

CFMutableArrayRef CFArrayCreateMutableCopy(CFAllocatorRef, CFIndex, CFArrayRef theArray) {
    const ArrayBody* body = arrayBody(theArray);
    return body ? makeArray(body->callbacks, body->values.data(), CFIndex(body->values.size()), true)
                : nullptr;
}

CFIndex CFArrayGetCount(CFArrayRef theArray) {
    const ArrayBody* body = arrayBody(theArray);
    return body ? CFIndex(body->values.size()) : 0;
}

const void* CFArrayGetValueAtIndex(CFArrayRef theArray, CFIndex idx) {
    const ArrayBody* body = arrayBody(theArray);
    if (!body || idx < 0 || idx >= CFIndex(body->values.size()))
        return nullptr;
    return body->values[std::size_t(idx)];
}

void CFArrayGetValues(CFArrayRef theArray, CFRange range, const void** values) {
    const ArrayBody* body = arrayBody(theArray);
    if (!body || !values || !CFInternal::rangeWithin(range, CFIndex(body->values.size())))
        return;
    for (CFIndex i = 0; i < range.length; ++i)
        values[i] = body->values[std::size_t(range.location + i)];
}

Boolean CFArrayContainsValue(CFArrayRef theArray, CFRange range, const void* value) {
    return CFArrayGetFirstIndexOfValue(theArray, range, value) != kCFNotFound;
}

CFIndex CFArrayGetFirstIndexOfValue(CFArrayRef theArray, CFRange range, const void* value) {
    const ArrayBody* body = arrayBody(theArray);
    if (!body || !CFInternal::rangeWithin(range, CFIndex(body->values.size())))
        return kCFNotFound;
    for (CFIndex i = range.location; i < range.location + range.length; ++i)
        if (body->callbacks.equal(body->values[std::size_t(i)], value))
            return i;
    return kCFNotFound;
}

void CFArrayAppendValue(CFMutableArrayRef theArray, const void* value) {
    CFArrayInsertValueAtIndex(theArray, CFArrayGetCount(theArray), value);
}

void CFArrayInsertValueAtIndex(CFMutableArrayRef theArray, CFIndex idx, const void* value) {
    ArrayBody* body = mutableArrayBody(theArray);
    if (!body || idx < 0 || idx > CFIndex(body->values.size()))
        return;
    body->values.insert(body->values.begin() + idx, body->callbacks.retain(value));
}

void CFArraySetValueAtIndex(CFMutableArrayRef theArray, CFIndex idx, const void* value) {
    ArrayBody* body = mutableArrayBody(theArray);
    if (!body || idx < 0 || idx > CFIndex(body->values.size()))
        return;
    if (idx == CFIndex(body->values.size())) {
        body->values.push_back(body->callbacks.retain(value));
        return;
    }
    // Retain before release: the new value may be the old one.
    const void* old = std::exchange(body->values[std::size_t(idx)], body->callbacks.retain(value));
    body->callbacks.release(old);
}

void CFArrayRemoveValueAtIndex(CFMutableArrayRef theArray, CFIndex idx) {
    ArrayBody* body = mutableArrayBody(theArray);
    if (!body || idx < 0 || idx >= CFIndex(body->values.size()))
        return;
    const void* removed = body->values[std::size_t(idx)];
    body->values.erase(body->values.begin() + idx);
    body->callbacks.release(removed);
}

void CFArrayRemoveAllValues(CFMutableArrayRef theArray) {
    ArrayBody* body = mutableArrayBody(theArray);
    if (!body)
        return;
    const std::vector<const void*> removed = std::exchange(body->values, {});
    for (const void* value : removed)
        body->callbacks.release(value);
}
