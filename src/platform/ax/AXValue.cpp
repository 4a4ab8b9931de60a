#include "AXValue.h"

#include "cf/CFRuntime.h"
#include "platformCoreFoundation.h"

#include <QHashFunctions>

#include <cstring>

namespace {

struct ValueBody {
    AXValueType type;
    union {
        CGPoint point;
        CGSize size;
        CGRect rect;
        CFRange range;
        AXError error;
    };
};

std::size_t payloadSize(AXValueType type) {
    switch (type) {
    case kAXValueCGPointType:
        return sizeof(CGPoint);
    case kAXValueCGSizeType:
        return sizeof(CGSize);
    case kAXValueCGRectType:
        return sizeof(CGRect);
    case kAXValueCFRangeType:
        return sizeof(CFRange);
    case kAXValueAXErrorType:
        return sizeof(AXError);
    case kAXValueIllegalType:
        break;
    }
    return 0;
}

const ValueBody& bodyOf(CFTypeRef value) {
    return *CFRuntime::body<ValueBody>(value);
}

// Compared field by field, not by bytes, so that 0.0 and -0.0 agree as they do for numbers.
Boolean equalValues(CFTypeRef first, CFTypeRef second) {
    const ValueBody& a = bodyOf(first);
    const ValueBody& b = bodyOf(second);
    if (a.type != b.type)
        return false;
    switch (a.type) {
    case kAXValueCGPointType:
        return a.point.x == b.point.x && a.point.y == b.point.y;
    case kAXValueCGSizeType:
        return a.size.width == b.size.width && a.size.height == b.size.height;
    case kAXValueCGRectType:
        return a.rect.origin.x == b.rect.origin.x && a.rect.origin.y == b.rect.origin.y &&
               a.rect.size.width == b.rect.size.width && a.rect.size.height == b.rect.size.height;
    case kAXValueCFRangeType:
        return a.range.location == b.range.location && a.range.length == b.range.length;
    case kAXValueAXErrorType:
        return a.error == b.error;
    case kAXValueIllegalType:
        break;
    }
    return false;
}

// Agrees with equalValues: qHash gives 0.0 and -0.0 the same hash.
CFHashCode hashValue(CFTypeRef value) {
    const ValueBody& body = bodyOf(value);
    switch (body.type) {
    case kAXValueCGPointType:
        return qHashMulti(0, int(body.type), body.point.x, body.point.y);
    case kAXValueCGSizeType:
        return qHashMulti(0, int(body.type), body.size.width, body.size.height);
    case kAXValueCGRectType:
        return qHashMulti(0, int(body.type), body.rect.origin.x, body.rect.origin.y, body.rect.size.width,
                          body.rect.size.height);
    case kAXValueCFRangeType:
        return qHashMulti(0, int(body.type), body.range.location, body.range.length);
    case kAXValueAXErrorType:
        return qHashMulti(0, int(body.type), int(body.error));
    case kAXValueIllegalType:
        break;
    }
    return 0;
}

CFStringRef describeValue(CFTypeRef value) {
    const ValueBody& body = bodyOf(value);
    QString text;
    switch (body.type) {
    case kAXValueCGPointType:
        text = QStringLiteral("{x:%1 y:%2}").arg(body.point.x).arg(body.point.y);
        break;
    case kAXValueCGSizeType:
        text = QStringLiteral("{w:%1 h:%2}").arg(body.size.width).arg(body.size.height);
        break;
    case kAXValueCGRectType:
        text = QStringLiteral("{x:%1 y:%2 w:%3 h:%4}")
                   .arg(body.rect.origin.x)
                   .arg(body.rect.origin.y)
                   .arg(body.rect.size.width)
                   .arg(body.rect.size.height);
        break;
    case kAXValueCFRangeType:
        text = QStringLiteral("{location:%1 length:%2}").arg(body.range.location).arg(body.range.length);
        break;
    case kAXValueAXErrorType:
        text = QStringLiteral("{error:%1}").arg(body.error);
        break;
    case kAXValueIllegalType:
        break;
    }
    return CFStringCreateWithQString(text);
}

} // namespace

CFTypeID AXValueGetTypeID(void) {
    static const CFTypeID id =
        CFRuntime::registerType({"AXValue", nullptr, equalValues, hashValue, describeValue});
    return id;
}

AXValueRef AXValueCreate(AXValueType theType, const void* valuePtr) {
    const std::size_t size = payloadSize(theType);
    if (!valuePtr || size == 0)
        return nullptr;
    CFTypeRef value = CFRuntime::createInstance(AXValueGetTypeID(), sizeof(ValueBody));
    ValueBody* body = CFRuntime::body<ValueBody>(value);
    body->type = theType;
    std::memcpy(&body->point, valuePtr, size);
    return static_cast<AXValueRef>(value);
}

AXValueType AXValueGetType(AXValueRef value) {
    if (!value || CFGetTypeID(value) != AXValueGetTypeID())
        return kAXValueIllegalType;
    return bodyOf(value).type;
}

Boolean AXValueGetValue(AXValueRef value, AXValueType theType, void* valuePtr) {
    if (!valuePtr || theType == kAXValueIllegalType || AXValueGetType(value) != theType)
        return false;
    std::memcpy(valuePtr, &bodyOf(value).point, payloadSize(theType));
    return true;
}
