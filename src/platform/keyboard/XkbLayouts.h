#pragma once

// Keyboard layouts of XKB as the layout data of Carbon's input sources. A layout's data holds the
// whole keymap, as text, and the group of the keymap that is the layout, so that it is complete
// by itself: a copy of it translates as the server did when it was taken, whatever the server
// does later.

#include "platformCoreFoundation.h"

#include <QByteArray>
#include <QString>

struct UCKeyboardLayout;

// The evdev code of the key at the place of the Apple keyboard's virtual key code; -1 for codes
// that have no key on a PC keyboard (and for codes outside 0 to 127). The X key code is this plus 8.
int evdevKeyCodeForVirtualKeyCode(int virtualKeyCode);
// The inverse: the virtual key code of the key with this evdev code; -1 for keys that have no
// place on the Apple keyboard.
int virtualKeyCodeForEvdevKeyCode(int evdevKeyCode);

// New layout data (released by the caller) of group `group` of the keymap in XKB's text form.
CFDataRef createKeyboardLayoutData(const QByteArray& keymapText, quint32 group);
// The same for a keymap compiled from XKB's names (rules "evdev", model "pc105"), group 0; NULL
// when the names do not compile.
CFDataRef createKeyboardLayoutDataFromNames(const char* layout, const char* variant = nullptr);

// The text that the key types on the layout, for Carbon's modifier state (shifted right by 8):
// 0x02 selects the Shift level and 0x08 the third level (the key of ISO_Level3_Shift, AltGr);
// other bits are ignored. Num Lock is on, so the keypad types its digits. A dead key gives its
// spacing accent: the result of composing it with itself (dead_acute twice gives "´"). False for
// data that is no layout.
bool translateKeyOnLayout(const UCKeyboardLayout* layout, int virtualKeyCode, quint32 modifierState,
                          QString& text);
