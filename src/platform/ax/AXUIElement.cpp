#include "AXUIElement.h"

#include "AccessibilityProvider.h"
#include "ElementHandle_p.h"
#include "PlatformCallCounters.h"
#include "platformCoreFoundation.h"

#include <vector>

// Every function counts itself, checks its arguments as Apple's does (kAXErrorIllegalArgument
// for a null or mistyped one), clears its out argument, and asks the active provider. A handle
// that an earlier provider made names nothing here: kAXErrorInvalidUIElement.

namespace {

bool isString(CFTypeRef object) {
    return object && CFGetTypeID(object) == CFStringGetTypeID();
}

// Runs call with the provider and the element that handle names.
template <class Call> AXError withElement(AXUIElementRef handle, Call&& call) {
    quint64 serial = 0;
    Element element;
    if (!ElementHandle::read(handle, &serial, &element))
        return kAXErrorIllegalArgument;
    const std::shared_ptr<AccessibilityProvider> provider = activeAccessibilityProvider();
    if (serial != provider->serial())
        return kAXErrorInvalidUIElement;
    return call(*provider, element);
}

CFArrayRef createStringArray(const QStringList& strings) {
    std::vector<const void*> items;
    items.reserve(std::size_t(strings.size()));
    for (const QString& string : strings)
        items.push_back(CFStringCreateWithQString(string));
    CFArrayRef array =
        CFArrayCreate(kCFAllocatorDefault, items.data(), CFIndex(items.size()), &kCFTypeArrayCallBacks);
    for (const void* item : items)
        CFRelease(item);
    return array;
}

// A provider that fails must not hand anything over; one that does anyway is not allowed to leak.
template <class T> AXError settle(AXError result, T* out) {
    if (result != kAXErrorSuccess && *out) {
        CFRelease(*out);
        *out = nullptr;
    }
    return result;
}

} // namespace

CFTypeID AXUIElementGetTypeID(void) {
    return ElementHandle::typeID();
}

AXUIElementRef AXUIElementCreateSystemWide(void) {
    countPlatformCall(PlatformCall::AXUIElementCreateSystemWide);
    return activeAccessibilityProvider()->createHandle(Element{kSystemWideElementId, 0});
}

AXUIElementRef AXUIElementCreateApplication(pid_t pid) {
    countPlatformCall(PlatformCall::AXUIElementCreateApplication);
    if (pid < 1)
        return nullptr;
    const std::shared_ptr<AccessibilityProvider> provider = activeAccessibilityProvider();
    return provider->createHandle(provider->applicationElement(pid));
}

AXError AXUIElementCopyElementAtPosition(AXUIElementRef application, float x, float y,
                                         AXUIElementRef* element) {
    countPlatformCall(PlatformCall::AXUIElementCopyElementAtPosition);
    if (!element)
        return kAXErrorIllegalArgument;
    *element = nullptr;
    return withElement(application, [&](AccessibilityProvider& provider, const Element& scope) {
        Element hit;
        const AXError result = provider.elementAtPosition(scope, CGPointMake(x, y), &hit);
        if (result == kAXErrorSuccess)
            *element = provider.createHandle(hit);
        return result;
    });
}

AXError AXUIElementCopyAttributeNames(AXUIElementRef element, CFArrayRef* names) {
    countPlatformCall(PlatformCall::AXUIElementCopyAttributeNames);
    if (!names)
        return kAXErrorIllegalArgument;
    *names = nullptr;
    return withElement(element, [&](AccessibilityProvider& provider, const Element& target) {
        QStringList list;
        const AXError result = provider.copyAttributeNames(target, &list);
        if (result == kAXErrorSuccess)
            *names = createStringArray(list);
        return result;
    });
}

AXError AXUIElementCopyAttributeValue(AXUIElementRef element, CFStringRef attribute, CFTypeRef* value) {
    countPlatformCall(PlatformCall::AXUIElementCopyAttributeValue);
    if (!value || !isString(attribute))
        return kAXErrorIllegalArgument;
    *value = nullptr;
    return withElement(element, [&](AccessibilityProvider& provider, const Element& target) {
        return settle(provider.copyAttributeValue(target, QStringFromCFString(attribute), value), value);
    });
}

AXError AXUIElementGetAttributeValueCount(AXUIElementRef element, CFStringRef attribute, CFIndex* count) {
    countPlatformCall(PlatformCall::AXUIElementGetAttributeValueCount);
    if (!count || !isString(attribute))
        return kAXErrorIllegalArgument;
    *count = 0;
    return withElement(element, [&](AccessibilityProvider& provider, const Element& target) {
        return provider.attributeValueCount(target, QStringFromCFString(attribute), count);
    });
}

AXError AXUIElementIsAttributeSettable(AXUIElementRef element, CFStringRef attribute, Boolean* settable) {
    countPlatformCall(PlatformCall::AXUIElementIsAttributeSettable);
    if (!settable || !isString(attribute))
        return kAXErrorIllegalArgument;
    *settable = false;
    return withElement(element, [&](AccessibilityProvider& provider, const Element& target) {
        bool answer = false;
        const AXError result = provider.isAttributeSettable(target, QStringFromCFString(attribute), &answer);
        *settable = result == kAXErrorSuccess && answer;
        return result;
    });
}

AXError AXUIElementSetAttributeValue(AXUIElementRef element, CFStringRef attribute, CFTypeRef value) {
    countPlatformCall(PlatformCall::AXUIElementSetAttributeValue);
    if (!value || !isString(attribute))
        return kAXErrorIllegalArgument;
    return withElement(element, [&](AccessibilityProvider& provider, const Element& target) {
        return provider.setAttributeValue(target, QStringFromCFString(attribute), value);
    });
}

AXError AXUIElementCopyActionNames(AXUIElementRef element, CFArrayRef* names) {
    countPlatformCall(PlatformCall::AXUIElementCopyActionNames);
    if (!names)
        return kAXErrorIllegalArgument;
    *names = nullptr;
    return withElement(element, [&](AccessibilityProvider& provider, const Element& target) {
        QStringList list;
        const AXError result = provider.copyActionNames(target, &list);
        if (result == kAXErrorSuccess)
            *names = createStringArray(list);
        return result;
    });
}

AXError AXUIElementCopyActionDescription(AXUIElementRef element, CFStringRef action,
                                         CFStringRef* description) {
    countPlatformCall(PlatformCall::AXUIElementCopyActionDescription);
    if (!description || !isString(action))
        return kAXErrorIllegalArgument;
    *description = nullptr;
    return withElement(element, [&](AccessibilityProvider& provider, const Element& target) {
        QString text;
        const AXError result = provider.copyActionDescription(target, QStringFromCFString(action), &text);
        if (result == kAXErrorSuccess)
            *description = CFStringCreateWithQString(text);
        return result;
    });
}

AXError AXUIElementPerformAction(AXUIElementRef element, CFStringRef action) {
    countPlatformCall(PlatformCall::AXUIElementPerformAction);
    if (!isString(action))
        return kAXErrorIllegalArgument;
    return withElement(element, [&](AccessibilityProvider& provider, const Element& target) {
        return provider.performAction(target, QStringFromCFString(action));
    });
}

AXReadBatch::AXReadBatch() : provider(activeAccessibilityProvider()) {
    provider->beginReadBatch();
}

AXReadBatch::~AXReadBatch() {
    provider->endReadBatch();
}

AXError AXUIElementGetPid(AXUIElementRef element, pid_t* pid) {
    countPlatformCall(PlatformCall::AXUIElementGetPid);
    if (!pid)
        return kAXErrorIllegalArgument;
    *pid = 0;
    quint64 serial = 0;
    Element target;
    if (!ElementHandle::read(element, &serial, &target) || target.isSystemWide())
        return kAXErrorIllegalArgument;
    *pid = target.pid;
    return kAXErrorSuccess;
}

AXError _AXUIElementGetWindow(AXUIElementRef element, CGWindowID* windowID) {
    countPlatformCall(PlatformCall::_AXUIElementGetWindow);
    if (!windowID)
        return kAXErrorIllegalArgument;
    *windowID = kCGNullWindowID;
    return withElement(element, [&](AccessibilityProvider& provider, const Element& target) {
        return provider.windowOfElement(target, windowID);
    });
}

Boolean AXIsProcessTrusted(void) {
    countPlatformCall(PlatformCall::AXIsProcessTrusted);
    return activeAccessibilityProvider()->isProcessTrusted(false);
}

Boolean AXIsProcessTrustedWithOptions(CFDictionaryRef options) {
    countPlatformCall(PlatformCall::AXIsProcessTrustedWithOptions);
    const bool prompt =
        options && CFDictionaryGetValue(options, kAXTrustedCheckOptionPrompt) == kCFBooleanTrue;
    return activeAccessibilityProvider()->isProcessTrusted(prompt);
}

Boolean AXAPIEnabled(void) {
    countPlatformCall(PlatformCall::AXAPIEnabled);
    return activeAccessibilityProvider()->isAPIEnabled();
}

const CFStringRef kAXTrustedCheckOptionPrompt = CFSTR("AXTrustedCheckOptionPrompt");
