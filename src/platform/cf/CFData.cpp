// Byte buffers.

#include "CFData.h"
#include "CFObject_p.h"

#include <QByteArray>

#include <cstring>

using CFInternal::kDataTypeID;

namespace {

struct DataBody {
    QByteArray bytes;
};

DataBody* dataBody(CFTypeRef data) {
    return CFInternal::bodyIfType<DataBody>(data, kDataTypeID);
}

Boolean equalData(CFTypeRef data1, CFTypeRef data2) {
    return dataBody(data1)->bytes == dataBody(data2)->bytes;
}

CFHashCode hashData(CFTypeRef data) {
    const QByteArray& bytes = dataBody(data)->bytes;
    return CFInternal::hashBytes(bytes.constData(), std::size_t(bytes.size()));
}

CFStringRef describeData(CFTypeRef data) {
    return CFInternal::createString(QLatin1Char('<') + QString::fromLatin1(dataBody(data)->bytes.toHex()) +
                                    QLatin1Char('>'));
}

} // namespace

const CFRuntime::TypeInfo CFInternal::dataTypeInfo = {"CFData", &CFRuntime::destroyBody<DataBody>, equalData,
                                                      hashData, describeData};

CFTypeID CFDataGetTypeID(void) {
    return kDataTypeID;
}

CFDataRef CFDataCreate(CFAllocatorRef, const UInt8* bytes, CFIndex length) {
    if (length < 0 || (!bytes && length > 0))
        return nullptr;
    QByteArray copy(reinterpret_cast<const char*>(bytes), length);
    return static_cast<CFDataRef>(CFRuntime::create<DataBody>(kDataTypeID, std::move(copy)));
}

// Data never changes, so a copy is the same object, as on Apple.
CFDataRef CFDataCreateCopy(CFAllocatorRef, CFDataRef theData) {
    return dataBody(theData) ? static_cast<CFDataRef>(CFRetain(theData)) : nullptr;
}

CFIndex CFDataGetLength(CFDataRef theData) {
    const DataBody* body = dataBody(theData);
    return body ? body->bytes.size() : 0;
}

const UInt8* CFDataGetBytePtr(CFDataRef theData) {
    const DataBody* body = dataBody(theData);
    return body ? reinterpret_cast<const UInt8*>(body->bytes.constData()) : nullptr;
}

void CFDataGetBytes(CFDataRef theData, CFRange range, UInt8* buffer) {
    const DataBody* body = dataBody(theData);
    if (!body || !buffer || !CFInternal::rangeWithin(range, body->bytes.size()))
        return;
    std::memcpy(buffer, body->bytes.constData() + range.location, std::size_t(range.length));
}
