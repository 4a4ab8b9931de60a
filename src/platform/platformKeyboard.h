#pragma once

// Carbon's text input services as keyboard translation uses them: the current keyboard input
// source, its layout data, the translation of a virtual key code through a layout, the keyboard
// type, and the state of single keys. The real frameworks on Apple systems; elsewhere
// keyboard/ over XKB (libxkbcommon and the X server's keyboard extension), where:
// - an input source is the X server's current layout (its group), with the layout's name for an
//   id ("us", "de", "fr(azerty)") and the server's keymap for layout data;
// - virtual key codes are those of the Apple keyboards, at the keys of the same place on a PC
//   keyboard (keyboard/XkbLayouts.h);
// - the notification of a change of input source comes from the server's keyboard events
//   (keyboard/XkbLayoutMonitor.h) through NSDistributedNotificationCenter.

#include "platformEvents.h"

#ifdef __APPLE__
#include <Carbon/Carbon.h>
#else
#include "appkit/NSDistributedNotificationCenter.h"
#include "appkit/Processes.h"
#include "platformCoreFoundation.h"

typedef UInt32 UniCharCount;
typedef std::uint16_t CGKeyCode;
// The bytes of a layout's data; only ever reached through a pointer into them.
struct UCKeyboardLayout;
typedef const struct __TISInputSource* TISInputSourceRef;

enum : UInt16 { kUCKeyActionDown = 0, kUCKeyActionUp = 1, kUCKeyActionAutoKey = 2, kUCKeyActionDisplay = 3 };
enum : OSStatus { kUCKeyLayoutBadErr = -25341, kUCKeyOutputBadErr = -25346 };
enum : CGEventField { kCGKeyboardEventKeyboardType = 10 };

// Posted when the current keyboard layout changes.
inline const NSNotificationName kTISNotifySelectedKeyboardInputSourceChanged =
    QStringLiteral("com.apple.Carbon.TISNotifySelectedKeyboardInputSourceChanged");

extern "C" {

extern const CFStringRef kTISPropertyInputSourceID;
extern const CFStringRef kTISPropertyUnicodeKeyLayoutData;

// The layout that is current now, released by the caller; NULL when no X server can be reached.
TISInputSourceRef TISCopyCurrentKeyboardLayoutInputSource(void);
// Every XKB layout is one of keys that type characters: the same as the current layout.
TISInputSourceRef TISCopyCurrentASCIICapableKeyboardLayoutInputSource(void);
// Borrowed: a CFStringRef for kTISPropertyInputSourceID, a CFDataRef for
// kTISPropertyUnicodeKeyLayoutData; NULL for other keys and a NULL source.
void* TISGetInputSourceProperty(TISInputSourceRef source, CFStringRef propertyKey);

// The text that the key types under the modifier state (Carbon's modifier bits shifted right by
// 8: 0x02 Shift, 0x08 Option; Command and Control type nothing of their own), in UTF-16, at most
// maxStringLength units. Only kUCKeyActionDisplay is answered; a dead key gives its spacing accent
// and leaves deadKeyState alone. keyboardType and the options are ignored. kUCKeyLayoutBadErr for
// data that is no layout, paramErr (-50) for another action or a NULL buffer.
OSStatus UCKeyTranslate(const UCKeyboardLayout* keyLayoutPtr, UInt16 virtualKeyCode, UInt16 keyAction,
                        UInt32 modifierKeyState, UInt32 keyboardType, OptionBits keyTranslateOptions,
                        UInt32* deadKeyState, UniCharCount maxStringLength, UniCharCount* actualStringLength,
                        UniChar unicodeString[]);
// XKB has no keyboard types: always kXkbKeyboardType.
UInt8 LMGetKbdType(void);

// A key down or up event of the virtual key, released by the caller. Its fields read 0, which is
// also its keyboard type (kXkbKeyboardType).
CGEventRef CGEventCreateKeyboardEvent(CGEventSourceRef source, CGKeyCode virtualKey, bool keyDown);
// Whether the key is held down now, as the X server sees it; false without a server and for
// virtual key codes without a key.
bool CGEventSourceKeyState(CGEventSourceStateID stateID, CGKeyCode key);

} // extern "C"

// The keyboard type that Linux reports.
inline constexpr UInt8 kXkbKeyboardType = 0;
#endif
