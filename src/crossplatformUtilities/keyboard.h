#pragma once

// Keystrokes as text that a person can read and that survives a change of keyboard layout: a key
// is stored as the character that it types, or as a fixed name where it types none ("Return",
// "F5"). Native key codes are the virtual key codes of the Apple keyboard. Qt's Control flag
// stands for the Command key and Qt's Meta flag for the Control key.
//
// The reverse direction uses a table per layout, built when the layout first becomes current and
// kept for the rest of the process. All state is guarded by currentKeyboardLayoutMutex; the
// translating functions may be called from any thread and block while a table is being built.

#include "NativeUIElement.h"
#include "osxEventFiltering.h"
#include "platformKeyboard.h"

#include <QKeySequence>
#include <QMap>
#include <QRecursiveMutex>
#include <QString>

struct KeyMapping {
    int keycode;
    QFlags<Qt::KeyboardModifier> modifiers;
};

extern QRecursiveMutex currentKeyboardLayoutMutex;

// Hand the set-up (observing layout changes, and the first layout) and the tear-down to the main
// thread and return before they have happened.
void initializeKeycodeTranslation();
void deinitializeKeycodeTranslation();

// The current keyboard layout's input source, owned by the caller; the current ASCII-capable one
// where the current one has no layout data.
TISInputSourceRef copyCurrentKeyboardInputSource();
// The keyboard type at the last layout change.
int getCurrentKeyboardType();

// The text of the key: its fixed name, with all modifiers remaining; otherwise the characters that
// it types on the layout, with only the modifiers remaining that the characters do not already
// contain ("numpad" in front for keys of the keypad).
void nativeKeyCodeToStringRepresentation(QString& result, QFlags<Qt::KeyboardModifier>& remaining,
                                         int keycode, QFlags<Qt::KeyboardModifier> modifiers,
                                         const UCKeyboardLayout* layout);
// The same on the current layout.
void nativeKeyCodeToStringRepresentation(QString& result, QFlags<Qt::KeyboardModifier>& remaining,
                                         int keycode, QFlags<Qt::KeyboardModifier> modifiers);
// The text alone, without modifiers, on the current layout.
QString nativeKeyCodeToStringRepresentation(unsigned int keycode);
// "Cmd+", "Ctrl+", "Option+", "Shift+" for the modifiers that are set, in this order, then the text
// of the key. The modifiers are written as given.
QString nativeKeyCodeAndModifiersToCanonicalRepresentation(unsigned int keycode,
                                                           QFlags<Qt::KeyboardModifier> modifiers);
// The key and modifiers that type the text on the current layout; -1 and none, with a log line,
// when there is no table for the layout or the text is not in it.
void stringRepresentationToNativeKeyCode(int& keycode, QFlags<Qt::KeyboardModifier>& modifiers,
                                         const QString& text);

// The key sequence of a text in the words that people write ("Cmd+", "Ctrl+", "Option+"; "num"
// anywhere for the keypad), in Qt's reading of the modifiers.
QKeySequence correctKeySequenceFromString(QString text);
QKeySequence nativeKeyCodeAndModifiersToKeySequence(unsigned int keycode,
                                                    QFlags<Qt::KeyboardModifier> modifiers);

// "Shift", "Alt", "Control", "Super", run together, for the modifiers that are set.
QString debugStringForModifiers(QFlags<Qt::KeyboardModifier> modifiers);
// Qt's flags and the event flags of Core Graphics, both ways; other bits are dropped.
unsigned long long getNativeModifiers(QFlags<Qt::KeyboardModifier> modifiers);
QFlags<Qt::KeyboardModifier> getQtModifiers(unsigned long long nativeModifiers);
// The modifier keys held down now.
QFlags<Qt::KeyboardModifier> getCurrentModifiers();
bool escapeKeyIsDown();
NativeUIElement elementWithKeyboardFocus();

// Event filtering (osxEventFiltering.h) under its platform-neutral names.
bool initializeEventFiltering();
bool initializeEventFiltering(const std::function<bool(void*)>& isArtificialEvent);
void deinitializeEventFiltering();
void beginInterceptingKeystrokes(QObject* receiver, const char* member, const QSet<QString>& keys);
void endInterceptingKeystrokes();
QSharedPointer<ModifierChangedCallbackData> addModifierChangedCallback(
    QObject* context, const std::function<void(QFlags<Qt::KeyboardModifier>, unsigned long long)>& callback);
QSharedPointer<ModifierChangedCallbackData> addModifierChangedCallback(
    const std::function<void(QFlags<Qt::KeyboardModifier>, unsigned long long)>& callback);
void removeModifierChangedCallback(QSharedPointer<ModifierChangedCallbackData> data);

bool isEscapeKey(int keycode);
bool isBackspaceKey(int keycode);
bool isNumpadKey(int keycode);
// The set of the function keys. 90 (F20) is not in it.
bool isFunctionKey(int keycode);
bool isNavigationKey(int keycode);
// The set bits of Shift, Control, Alt, Meta and Keypad.
int modifierCount(QFlags<Qt::KeyboardModifier> modifiers);

// The characters that the key types on the layout, leaving in `remaining` the modifiers that they
// do not contain.
QString translateNativeKeyCodeToCharacter(QFlags<Qt::KeyboardModifier>& remaining, int keycode,
                                          QFlags<Qt::KeyboardModifier> modifiers,
                                          const UCKeyboardLayout* layout);
// The table of a layout: every text that its 128 keys type with Shift and Option, Option, Shift or
// nothing, to the key and modifier set that type it with the fewest modifiers.
QMap<QString, KeyMapping> constructKeycodeMap(const UCKeyboardLayout* layout);
