#include "NSAppleScript.h"

#include "ax/AccessibilityProvider.h"

namespace {

// AppleScript's number of an error of the language's own; here, any script not understood.
constexpr int kScriptNotUnderstood = -2741;

CFDictionaryRef errorDictionary(const QString& message) {
    const CFStringRef text =
        CFStringCreateWithCString(nullptr, message.toUtf8().constData(), kCFStringEncodingUTF8);
    const int number = kScriptNotUnderstood;
    const CFNumberRef code = CFNumberCreate(nullptr, kCFNumberIntType, &number);
    const void* keys[] = {NSAppleScriptErrorMessage, NSAppleScriptErrorNumber};
    const void* values[] = {text, code};
    const CFDictionaryRef dictionary = CFDictionaryCreate(
        nullptr, keys, values, 2, &kCFTypeDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks);
    CFRelease(text);
    CFRelease(code);
    return dictionary;
}

} // namespace

const CFStringRef NSAppleScriptErrorMessage = CFSTR("NSAppleScriptErrorMessage");
const CFStringRef NSAppleScriptErrorNumber = CFSTR("NSAppleScriptErrorNumber");

bool NSAppleScript::executeAndReturnError(CFDictionaryRef* errorInfo) const {
    if (source.simplified() == kEnableUIElementsScript) {
        activeAccessibilityProvider()->isProcessTrusted(true);
        return true;
    }
    if (errorInfo)
        *errorInfo = errorDictionary(QStringLiteral("AppleScript is not available on this system"));
    return false;
}
