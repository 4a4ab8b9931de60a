#include "keyboard.h"

#include "CFTypeSmartRef.h"
#include "QtThreadUtilities.h"
#include "osxMisc.h"
#include "osxUIElementUtils.h"

#include <QDebug>
#include <QHash>
#include <QMutexLocker>

#include <algorithm>
#include <array>

QRecursiveMutex currentKeyboardLayoutMutex;

namespace {

QString currentInputSourceId = QStringLiteral("none");
CFDataRef currentKeyboardLayoutData = nullptr;
QMap<QString, QMap<QString, KeyMapping>> keycodeMap;
int currentKeyboardType = 0;

class KeyboardNotificationReceiver {
public:
    void onKeyboardLayoutChanged();
};

KeyboardNotificationReceiver* keyboardNotificationReceiver = nullptr;

// Keys that type nothing readable, by their names; their modifiers all remain.
const QHash<int, QString>& fixedKeyNames() {
    static const QHash<int, QString> names = {
        {36, "Return"}, {48, "Tab"},     {49, "Space"}, {51, "Backspace"}, {53, "Esc"},    {64, "F17"},
        {71, "Clear"},  {76, "Enter"},   {79, "F18"},   {80, "F19"},       {90, "F20"},    {96, "F5"},
        {97, "F6"},     {98, "F7"},      {99, "F3"},    {100, "F8"},       {101, "F9"},    {103, "F11"},
        {105, "F13"},   {106, "F16"},    {107, "F14"},  {109, "F10"},      {111, "F12"},   {113, "F15"},
        {114, "Help"},  {115, "Home"},   {116, "PgUp"}, {117, "Del"},      {118, "F4"},    {119, "End"},
        {120, "F2"},    {121, "PgDown"}, {122, "F1"},   {123, "Left"},     {124, "Right"}, {125, "Down"},
        {126, "Up"}};
    return names;
}

template <size_t N> bool inSortedSet(const std::array<int, N>& set, int keycode) {
    return std::binary_search(set.begin(), set.end(), keycode);
}

// The modifiers with their event flags.
struct ModifierInfo {
    Qt::KeyboardModifier flag;
    unsigned long long eventFlag;
};
constexpr std::array<ModifierInfo, 5> kModifiers = {{
    {Qt::ShiftModifier, kCGEventFlagMaskShift},
    {Qt::ControlModifier, kCGEventFlagMaskCommand},
    {Qt::AltModifier, kCGEventFlagMaskAlternate},
    {Qt::MetaModifier, kCGEventFlagMaskControl},
    {Qt::KeypadModifier, kCGEventFlagMaskNumericPad},
}};

// The texts of the modifiers that are set, in the order of the list.
using ModifierTexts = std::array<std::pair<Qt::KeyboardModifier, const char*>, 4>;
constexpr ModifierTexts kCanonicalTexts = {{{Qt::ControlModifier, "Cmd+"},
                                            {Qt::MetaModifier, "Ctrl+"},
                                            {Qt::AltModifier, "Option+"},
                                            {Qt::ShiftModifier, "Shift+"}}};
constexpr ModifierTexts kDebugTexts = {{{Qt::ShiftModifier, "Shift"},
                                        {Qt::AltModifier, "Alt"},
                                        {Qt::MetaModifier, "Control"},
                                        {Qt::ControlModifier, "Super"}}};

QString modifierTexts(QFlags<Qt::KeyboardModifier> modifiers, const ModifierTexts& texts) {
    QString text;
    for (const auto& [flag, name] : texts)
        if (modifiers.testFlag(flag))
            text += QLatin1String(name);
    return text;
}

const UCKeyboardLayout* currentLayout() {
    return currentKeyboardLayoutData
               ? reinterpret_cast<const UCKeyboardLayout*>(CFDataGetBytePtr(currentKeyboardLayoutData))
               : nullptr;
}

QString translate(const UCKeyboardLayout* layout, int keycode, QFlags<Qt::KeyboardModifier> modifiers) {
    UniChar buffer[4] = {};
    UniCharCount length = 0;
    UInt32 deadKeyState = 0;
    if (UCKeyTranslate(layout, UInt16(keycode), kUCKeyActionDisplay,
                       UInt32(getCarbonModifiers(modifiers) >> 8), LMGetKbdType() & 255, 0, &deadKeyState, 4,
                       &length, buffer) != 0)
        return QString();
    return QString(reinterpret_cast<const QChar*>(buffer), int(length));
}

// A text offered twice keeps the mapping with the fewer modifiers, Shift before Option; among
// equals the first offered.
void offerMapping(QMap<QString, KeyMapping>& map, const QString& text, const KeyMapping& offered) {
    auto existing = map.find(text);
    if (existing == map.end()) {
        map.insert(text, offered);
        return;
    }
    const QFlags<Qt::KeyboardModifier> newModifiers = offered.modifiers;
    const QFlags<Qt::KeyboardModifier> oldModifiers = existing->modifiers;
    bool replace;
    if (modifierCount(newModifiers) < modifierCount(oldModifiers))
        replace = true;
    else if (oldModifiers.testFlag(Qt::ControlModifier) && !newModifiers.testFlag(Qt::ControlModifier))
        replace = true;
    else if (oldModifiers.testFlag(Qt::AltModifier) && !newModifiers.testFlag(Qt::AltModifier))
        replace = true;
    else if (newModifiers.testFlag(Qt::KeypadModifier))
        replace = false;
    else if (!oldModifiers.testFlag(Qt::KeypadModifier))
        replace = false;
    else
        replace = true;
    if (replace)
        *existing = offered;
}

} // namespace

void KeyboardNotificationReceiver::onKeyboardLayoutChanged() {
    QMutexLocker locker(&currentKeyboardLayoutMutex);
    const CFTypeSmartRef<TISInputSourceRef> source(copyCurrentKeyboardInputSource());
    const auto id = static_cast<CFTypeRef>(
        source ? TISGetInputSourceProperty(source, kTISPropertyInputSourceID) : nullptr);
    currentInputSourceId = id && CFGetTypeID(id) == CFStringGetTypeID()
                               ? QStringFromCFString(static_cast<CFStringRef>(id))
                               : QStringLiteral("none");
    const auto data = static_cast<CFDataRef>(
        source ? TISGetInputSourceProperty(source, kTISPropertyUnicodeKeyLayoutData) : nullptr);
    if (currentKeyboardLayoutData)
        CFRelease(currentKeyboardLayoutData);
    currentKeyboardLayoutData = data ? CFDataCreateCopy(kCFAllocatorDefault, data) : nullptr;
    if (!keycodeMap.contains(currentInputSourceId))
        keycodeMap.insert(currentInputSourceId, constructKeycodeMap(currentLayout()));
    const CFTypeSmartRef<CGEventSourceRef> eventSource(
        CGEventSourceCreate(kCGEventSourceStateHIDSystemState));
    const CFTypeSmartRef<CGEventRef> event(CGEventCreateKeyboardEvent(eventSource, 0, true));
    currentKeyboardType = int(CGEventGetIntegerValueField(event, kCGKeyboardEventKeyboardType));
}

void initializeKeycodeTranslation() {
    executeInMainThread([] {
        if (keyboardNotificationReceiver)
            return;
        keyboardNotificationReceiver = new KeyboardNotificationReceiver;
        KeyboardNotificationReceiver* receiver = keyboardNotificationReceiver;
        NSDistributedNotificationCenter::defaultCenter()->addObserver(
            receiver, [receiver](const NSNotification&) { receiver->onKeyboardLayoutChanged(); },
            kTISNotifySelectedKeyboardInputSourceChanged, nullptr,
            NSNotificationSuspensionBehaviorDeliverImmediately);
        receiver->onKeyboardLayoutChanged();
    });
}

void deinitializeKeycodeTranslation() {
    executeInMainThread([] {
        if (!keyboardNotificationReceiver)
            return;
        NSDistributedNotificationCenter::defaultCenter()->removeObserver(keyboardNotificationReceiver);
        delete keyboardNotificationReceiver;
        keyboardNotificationReceiver = nullptr;
    });
}

TISInputSourceRef copyCurrentKeyboardInputSource() {
    TISInputSourceRef source = TISCopyCurrentKeyboardLayoutInputSource();
    if (source && TISGetInputSourceProperty(source, kTISPropertyUnicodeKeyLayoutData))
        return source;
    if (source)
        CFRelease(source);
    return TISCopyCurrentASCIICapableKeyboardLayoutInputSource();
}

int getCurrentKeyboardType() {
    QMutexLocker locker(&currentKeyboardLayoutMutex);
    return currentKeyboardType;
}

QString translateNativeKeyCodeToCharacter(QFlags<Qt::KeyboardModifier>& remaining, int keycode,
                                          QFlags<Qt::KeyboardModifier> modifiers,
                                          const UCKeyboardLayout* layout) {
    // Command and Control never type characters, so they always remain.
    remaining = modifiers & (Qt::ControlModifier | Qt::MetaModifier);
    QString text = translate(layout, keycode, modifiers);
    const QFlags<Qt::KeyboardModifier> commandKeys = Qt::ControlModifier | Qt::MetaModifier;
    if (modifiers.testFlag(Qt::ShiftModifier) &&
        translate(layout, keycode, modifiers & ~(commandKeys | Qt::ShiftModifier)) == text)
        remaining |= Qt::ShiftModifier;
    if (modifiers.testFlag(Qt::AltModifier) &&
        translate(layout, keycode, modifiers & ~(commandKeys | Qt::AltModifier)) == text)
        remaining |= Qt::AltModifier;
    if (isNumpadKey(keycode))
        text.prepend(QStringLiteral("numpad"));
    return text;
}

void nativeKeyCodeToStringRepresentation(QString& result, QFlags<Qt::KeyboardModifier>& remaining,
                                         int keycode, QFlags<Qt::KeyboardModifier> modifiers,
                                         const UCKeyboardLayout* layout) {
    const auto name = fixedKeyNames().constFind(keycode);
    if (name != fixedKeyNames().constEnd()) {
        result = *name;
        remaining = modifiers;
        return;
    }
    result = translateNativeKeyCodeToCharacter(remaining, keycode, modifiers, layout);
}

void nativeKeyCodeToStringRepresentation(QString& result, QFlags<Qt::KeyboardModifier>& remaining,
                                         int keycode, QFlags<Qt::KeyboardModifier> modifiers) {
    QMutexLocker locker(&currentKeyboardLayoutMutex);
    nativeKeyCodeToStringRepresentation(result, remaining, keycode, modifiers, currentLayout());
}

QString nativeKeyCodeToStringRepresentation(unsigned int keycode) {
    QString result;
    QFlags<Qt::KeyboardModifier> remaining;
    nativeKeyCodeToStringRepresentation(result, remaining, int(keycode), {});
    return result;
}

QString nativeKeyCodeAndModifiersToCanonicalRepresentation(unsigned int keycode,
                                                           QFlags<Qt::KeyboardModifier> modifiers) {
    return modifierTexts(modifiers, kCanonicalTexts) + nativeKeyCodeToStringRepresentation(keycode);
}

QMap<QString, KeyMapping> constructKeycodeMap(const UCKeyboardLayout* layout) {
    static const std::array<QFlags<Qt::KeyboardModifier>, 4> modifierSets = {
        Qt::ShiftModifier | Qt::AltModifier, Qt::AltModifier, Qt::ShiftModifier, Qt::NoModifier};
    QMap<QString, KeyMapping> map;
    for (int keycode = 0; keycode < 128; ++keycode) {
        for (const QFlags<Qt::KeyboardModifier> modifiers : modifierSets) {
            QString text;
            QFlags<Qt::KeyboardModifier> remaining;
            nativeKeyCodeToStringRepresentation(text, remaining, keycode, modifiers, layout);
            offerMapping(map, text, KeyMapping{keycode, modifiers});
        }
    }
    return map;
}

void stringRepresentationToNativeKeyCode(int& keycode, QFlags<Qt::KeyboardModifier>& modifiers,
                                         const QString& text) {
    QMutexLocker locker(&currentKeyboardLayoutMutex);
    keycode = -1;
    modifiers = {};
    const auto table = keycodeMap.constFind(currentInputSourceId);
    if (table == keycodeMap.constEnd()) {
        qDebug() << "Error: have not constructed keycode map for keyboard layout:" << currentInputSourceId;
        return;
    }
    const auto mapping = table->constFind(text);
    if (mapping != table->constEnd()) {
        keycode = mapping->keycode;
        modifiers = mapping->modifiers;
        return;
    }
    qDebug() << "Warning: the string" << text
             << "is not typing using the keyboard layout:" << currentInputSourceId;
}

QKeySequence correctKeySequenceFromString(QString text) {
    // Qt reads "ctrl" as the Command key and "meta" as the Control key; the first four steps swap
    // the two words.
    static const std::array<std::pair<const char*, const char*>, 6> replacements = {{{"meta", "cmd"},
                                                                                     {"control", "meta"},
                                                                                     {"ctrl", "meta"},
                                                                                     {"cmd", "ctrl"},
                                                                                     {"command", "ctrl"},
                                                                                     {"option", "alt"}}};
    for (const auto& [from, to] : replacements)
        text.replace(QLatin1String(from), QLatin1String(to), Qt::CaseInsensitive);
    if (!text.contains(QLatin1String("num"), Qt::CaseInsensitive))
        return QKeySequence(text, QKeySequence::NativeText);
    text.remove(QLatin1String("numpad"), Qt::CaseInsensitive);
    text.remove(QLatin1String("num"), Qt::CaseInsensitive);
    const QKeyCombination first = QKeySequence(text, QKeySequence::NativeText)[0];
    return QKeySequence(QKeyCombination(first.keyboardModifiers() | Qt::KeypadModifier, first.key()));
}

QKeySequence nativeKeyCodeAndModifiersToKeySequence(unsigned int keycode,
                                                    QFlags<Qt::KeyboardModifier> modifiers) {
    return correctKeySequenceFromString(
        nativeKeyCodeAndModifiersToCanonicalRepresentation(keycode, modifiers));
}

QString debugStringForModifiers(QFlags<Qt::KeyboardModifier> modifiers) {
    return modifierTexts(modifiers, kDebugTexts);
}

unsigned long long getNativeModifiers(QFlags<Qt::KeyboardModifier> modifiers) {
    unsigned long long native = 0;
    for (const ModifierInfo& modifier : kModifiers)
        if (modifiers.testFlag(modifier.flag))
            native |= modifier.eventFlag;
    return native;
}

QFlags<Qt::KeyboardModifier> getQtModifiers(unsigned long long nativeModifiers) {
    QFlags<Qt::KeyboardModifier> modifiers;
    for (const ModifierInfo& modifier : kModifiers)
        if (nativeModifiers & modifier.eventFlag)
            modifiers |= modifier.flag;
    return modifiers;
}

QFlags<Qt::KeyboardModifier> getCurrentModifiers() {
    return getQtModifiers(CGEventSourceFlagsState(kCGEventSourceStateHIDSystemState));
}

bool escapeKeyIsDown() {
    return CGEventSourceKeyState(kCGEventSourceStateHIDSystemState, 53);
}

NativeUIElement elementWithKeyboardFocus() {
    NativeUIElement element;
    element.setOSSpecificElementReference(
        const_cast<void*>(static_cast<const void*>(copyFocusedUIElement())));
    return element;
}

bool initializeEventFiltering() {
    return osxInitializeEventFiltering();
}

bool initializeEventFiltering(const std::function<bool(void*)>& isArtificialEvent) {
    return osxInitializeEventFiltering(isArtificialEvent);
}

void deinitializeEventFiltering() {
    osxDeinitializeEventFiltering();
}

void beginInterceptingKeystrokes(QObject* receiver, const char* member, const QSet<QString>& keys) {
    osxBeginInterceptingKeystrokes(receiver, member, keys);
}

void endInterceptingKeystrokes() {
    osxEndInterceptingKeystrokes();
}

QSharedPointer<ModifierChangedCallbackData> addModifierChangedCallback(
    QObject* context, const std::function<void(QFlags<Qt::KeyboardModifier>, unsigned long long)>& callback) {
    return osxAddModifierChangedCallback(context, callback);
}

QSharedPointer<ModifierChangedCallbackData> addModifierChangedCallback(
    const std::function<void(QFlags<Qt::KeyboardModifier>, unsigned long long)>& callback) {
    return osxAddModifierChangedCallback(callback);
}

void removeModifierChangedCallback(QSharedPointer<ModifierChangedCallbackData> data) {
    osxRemoveModifierChangedCallback(std::move(data));
}

bool isEscapeKey(int keycode) {
    return keycode == 53;
}

bool isBackspaceKey(int keycode) {
    return keycode == 51;
}

bool isNumpadKey(int keycode) {
    static constexpr std::array<int, 18> keys = {65, 67, 69, 71, 75, 76, 78, 81, 82,
                                                 83, 84, 85, 86, 87, 88, 89, 91, 92};
    return inSortedSet(keys, keycode);
}

bool isFunctionKey(int keycode) {
    static constexpr std::array<int, 19> keys = {64,  79,  80,  96,  97,  98,  99,  100, 101, 103,
                                                 105, 106, 107, 109, 111, 113, 118, 120, 122};
    return inSortedSet(keys, keycode);
}

bool isNavigationKey(int keycode) {
    static constexpr std::array<int, 10> keys = {114, 115, 116, 117, 119, 121, 123, 124, 125, 126};
    return inSortedSet(keys, keycode);
}

int modifierCount(QFlags<Qt::KeyboardModifier> modifiers) {
    int count = 0;
    for (const ModifierInfo& modifier : kModifiers)
        count += modifiers.testFlag(modifier.flag) ? 1 : 0;
    return count;
}
