#include "axErrorNames.h"

#include "platformAccessibility.h"

namespace {

struct NamedError {
    const char* name;
    AXError code;
};

const NamedError errorNames[] = {
    {"kAXErrorSuccess", kAXErrorSuccess},
    {"kAXErrorFailure", kAXErrorFailure},
    {"kAXErrorIllegalArgument", kAXErrorIllegalArgument},
    {"kAXErrorInvalidUIElement", kAXErrorInvalidUIElement},
    {"kAXErrorInvalidUIElementObserver", kAXErrorInvalidUIElementObserver},
    {"kAXErrorCannotComplete", kAXErrorCannotComplete},
    {"kAXErrorAttributeUnsupported", kAXErrorAttributeUnsupported},
    {"kAXErrorActionUnsupported", kAXErrorActionUnsupported},
    {"kAXErrorNotificationUnsupported", kAXErrorNotificationUnsupported},
    {"kAXErrorNotImplemented", kAXErrorNotImplemented},
    {"kAXErrorNotificationAlreadyRegistered", kAXErrorNotificationAlreadyRegistered},
    {"kAXErrorNotificationNotRegistered", kAXErrorNotificationNotRegistered},
    {"kAXErrorAPIDisabled", kAXErrorAPIDisabled},
    {"kAXErrorNoValue", kAXErrorNoValue},
    {"kAXErrorParameterizedAttributeUnsupported", kAXErrorParameterizedAttributeUnsupported},
    {"kAXErrorNotEnoughPrecision", kAXErrorNotEnoughPrecision},
};

} // namespace

QString axErrorName(int code) {
    for (const NamedError& known : errorNames) {
        if (known.code == code)
            return QLatin1String(known.name);
    }
    return QString();
}

std::optional<int> axErrorCode(const QString& name) {
    for (const NamedError& known : errorNames) {
        if (name == QLatin1String(known.name))
            return int(known.code);
    }
    return std::nullopt;
}
