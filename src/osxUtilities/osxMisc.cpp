#include "osxMisc.h"

#include "cfDescription_p.h"

#include <QDebug>
#include <QStringList>

namespace {

bool isFloatingType(CFNumberType type) {
    switch (type) {
    case kCFNumberFloat32Type:
    case kCFNumberFloat64Type:
    case kCFNumberFloatType:
    case kCFNumberDoubleType:
    case kCFNumberCGFloatType:
        return true;
    default:
        return false;
    }
}

QVariant numberToVariant(CFNumberRef number) {
    if (isFloatingType(CFNumberGetType(number))) {
        double value = 0;
        CFNumberGetValue(number, kCFNumberDoubleType, &value);
        return QVariant(value);
    }
    long long value = 0;
    CFNumberGetValue(number, kCFNumberLongLongType, &value);
    return QVariant(value);
}

QVariant stringArrayToVariant(CFArrayRef array, bool quiet) {
    QStringList strings;
    const CFIndex count = CFArrayGetCount(array);
    for (CFIndex i = 0; i < count; ++i) {
        const CFTypeRef entry = CFArrayGetValueAtIndex(array, i);
        if (!entry || CFGetTypeID(entry) != CFStringGetTypeID()) {
            if (!quiet)
                qDebug().noquote()
                    << "Note: Tried to get UI element attribute value of an array containing non-strings";
            return QVariant();
        }
        strings.append(QStringFromCFString(static_cast<CFStringRef>(entry)));
    }
    return QVariant(strings);
}

} // namespace

QVariant CFTypeToVariant(CFTypeRef value, bool quiet) {
    const CFTypeID type = value ? CFGetTypeID(value) : 0;
    if (value) {
        if (type == CFStringGetTypeID())
            return QVariant(QStringFromCFString(static_cast<CFStringRef>(value)));
        if (type == CFNumberGetTypeID())
            return numberToVariant(static_cast<CFNumberRef>(value));
        if (type == CFBooleanGetTypeID())
            return QVariant(bool(CFBooleanGetValue(static_cast<CFBooleanRef>(value))));
        if (type == CFArrayGetTypeID())
            return stringArrayToVariant(static_cast<CFArrayRef>(value), quiet);
        if (type == CFNullGetTypeID())
            return QVariant::fromValue<void*>(nullptr);
        if (type == CFURLGetTypeID())
            return QVariant(QStringFromCFString(CFURLGetString(static_cast<CFURLRef>(value))));
    }
    if (!quiet)
        logUnsupportedCFValue("Warning: Tried to convert CFType of unsupported type:", value);
    return QVariant();
}
