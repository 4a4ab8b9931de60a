// Carbon's text input services over XKB (see platformKeyboard.h).

#include "platformKeyboard.h"

#include "XkbLayouts.h"
#include "XkbServer.h"
#include "cf/CFRuntime.h"

#include <algorithm>

namespace {

struct InputSourceBody {
    CFStringRef id; // NULL when the layout has no name
    CFDataRef layoutData;
};

void finalizeInputSource(CFTypeRef object) {
    const auto* source = CFRuntime::body<InputSourceBody>(object);
    if (source->id)
        CFRelease(source->id);
    CFRelease(source->layoutData);
}

CFTypeID inputSourceType() {
    static const CFTypeID type =
        CFRuntime::registerType({"TISInputSource", finalizeInputSource, nullptr, nullptr, nullptr});
    return type;
}

struct KeyboardEventBody {
    CGKeyCode key;
    bool keyDown;
};

CFTypeID keyboardEventType() {
    static const CFTypeID type = CFRuntime::registerType({"CGEvent", nullptr, nullptr, nullptr, nullptr});
    return type;
}

} // namespace

const CFStringRef kTISPropertyInputSourceID = CFSTR("TISPropertyInputSourceID");
const CFStringRef kTISPropertyUnicodeKeyLayoutData = CFSTR("TISPropertyUnicodeKeyLayoutData");

TISInputSourceRef TISCopyCurrentKeyboardLayoutInputSource(void) {
    const auto server = XkbServerConnection::open();
    const auto layout = server ? server->currentLayout() : std::nullopt;
    if (!layout)
        return nullptr;
    CFStringRef id = layout->id.isEmpty() ? nullptr : CFStringCreateWithQString(layout->id);
    CFDataRef data = createKeyboardLayoutData(layout->keymapText, layout->group);
    return static_cast<TISInputSourceRef>(CFRuntime::create<InputSourceBody>(inputSourceType(), id, data));
}

TISInputSourceRef TISCopyCurrentASCIICapableKeyboardLayoutInputSource(void) {
    return TISCopyCurrentKeyboardLayoutInputSource();
}

void* TISGetInputSourceProperty(TISInputSourceRef source, CFStringRef propertyKey) {
    if (!source || CFGetTypeID(source) != inputSourceType() || !propertyKey)
        return nullptr;
    const auto* body = CFRuntime::body<InputSourceBody>(source);
    if (CFEqual(propertyKey, kTISPropertyInputSourceID))
        return const_cast<void*>(static_cast<const void*>(body->id));
    if (CFEqual(propertyKey, kTISPropertyUnicodeKeyLayoutData))
        return const_cast<void*>(static_cast<const void*>(body->layoutData));
    return nullptr;
}

OSStatus UCKeyTranslate(const UCKeyboardLayout* keyLayoutPtr, UInt16 virtualKeyCode, UInt16 keyAction,
                        UInt32 modifierKeyState, UInt32, OptionBits, UInt32*, UniCharCount maxStringLength,
                        UniCharCount* actualStringLength, UniChar unicodeString[]) {
    if (actualStringLength)
        *actualStringLength = 0;
    if (keyAction != kUCKeyActionDisplay || (!unicodeString && maxStringLength > 0))
        return -50; // paramErr
    QString text;
    if (!translateKeyOnLayout(keyLayoutPtr, virtualKeyCode, modifierKeyState, text))
        return kUCKeyLayoutBadErr;
    const UniCharCount length = std::min<UniCharCount>(UniCharCount(text.size()), maxStringLength);
    std::copy_n(reinterpret_cast<const UniChar*>(text.utf16()), length, unicodeString);
    if (actualStringLength)
        *actualStringLength = length;
    return 0;
}

UInt8 LMGetKbdType(void) {
    return kXkbKeyboardType;
}

CGEventRef CGEventCreateKeyboardEvent(CGEventSourceRef, CGKeyCode virtualKey, bool keyDown) {
    return static_cast<CGEventRef>(
        CFRuntime::create<KeyboardEventBody>(keyboardEventType(), virtualKey, keyDown));
}

bool CGEventSourceKeyState(CGEventSourceStateID, CGKeyCode key) {
    const int evdev = evdevKeyCodeForVirtualKeyCode(key);
    if (evdev < 0)
        return false;
    const auto server = XkbServerConnection::open();
    return server && server->isKeyDown(unsigned(evdev + 8));
}
