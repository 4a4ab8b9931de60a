// Keyboard translation without a display: the tables of XKB layouts compiled from their names, the
// forward and reverse translation, the modifiers and the key sequences.

#include "CFTypeSmartRef.h"
#include "keyboard.h"
#include "keyboard/XkbLayouts.h"
#include "logCapture.h"
#include "platformTestSupport.h"
#include "testSupport.h"

#include <QTest>

#include <map>

using Modifiers = QFlags<Qt::KeyboardModifier>;
Q_DECLARE_METATYPE(Modifiers)

namespace {

constexpr Modifiers kNone = Qt::NoModifier;
constexpr Modifiers kShift = Qt::ShiftModifier;
constexpr Modifiers kOption = Qt::AltModifier;
constexpr Modifiers kCommand = Qt::ControlModifier;
constexpr Modifiers kControl = Qt::MetaModifier;

// Layouts compiled once per process; their data stays alive with them.
const UCKeyboardLayout* layoutNamed(const char* name) {
    static std::map<std::string, CFTypeSmartRef<CFDataRef>> layouts;
    auto& data = layouts[name];
    if (data.isNull())
        data.reset(createKeyboardLayoutDataFromNames(name));
    return data.isNull() ? nullptr : reinterpret_cast<const UCKeyboardLayout*>(CFDataGetBytePtr(data));
}

} // namespace

class TestKeyboard : public QObject, protected LiveObjectCheck {
    Q_OBJECT

private slots:
    void initTestCase() {
        // The tables come from names alone, never from a server this process could reach.
        qunsetenv("DISPLAY");
        for (const char* name : {"us", "de", "fr"})
            QVERIFY2(layoutNamed(name), name);
    }
    void init() { noteLiveObjects(); }
    void cleanup() { checkLiveObjects(); }

    // Must run before anything sets the translation up.
    void reverseTranslationBeforeSetUp() {
        int keycode = 0;
        Modifiers modifiers = kShift;
        const QStringList log = logOf([&] { stringRepresentationToNativeKeyCode(keycode, modifiers, "a"); });
        QCOMPARE(log, QStringList{"Error: have not constructed keycode map for keyboard layout: \"none\""});
        QCOMPARE(keycode, -1);
        QCOMPARE(modifiers, kNone);
    }

    void forwardTranslation_data() {
        QTest::addColumn<QByteArray>("layout");
        QTest::addColumn<int>("keycode");
        QTest::addColumn<Modifiers>("modifiers");
        QTest::addColumn<QString>("text");
        QTest::addColumn<Modifiers>("remaining");
        // Fixed names come first and keep every modifier, even on the keypad.
        QTest::newRow("Return with Shift") << QByteArray("us") << 36 << kShift << "Return" << kShift;
        QTest::newRow("keypad Enter") << QByteArray("us") << 76 << kNone << "Enter" << kNone;
        QTest::newRow("Esc with all") << QByteArray("de") << 53 << (kShift | kOption | kCommand | kControl)
                                      << "Esc" << (kShift | kOption | kCommand | kControl);
        QTest::newRow("F20 is named") << QByteArray("us") << 90 << kNone << "F20" << kNone;
        // Shift is consumed where the character changes under it, and stays where it does not.
        QTest::newRow("us a") << QByteArray("us") << 0 << kNone << "a" << kNone;
        QTest::newRow("us Shift a") << QByteArray("us") << 0 << kShift << "A" << kNone;
        QTest::newRow("us Shift 1") << QByteArray("us") << 18 << kShift << "!" << kNone;
        QTest::newRow("us Option a") << QByteArray("us") << 0 << kOption << "a" << kOption;
        QTest::newRow("us Shift keypad +") << QByteArray("us") << 69 << kShift << "numpad+" << kShift;
        // Command and Control never type and always remain.
        QTest::newRow("Command Shift a") << QByteArray("us") << 0 << (kCommand | kShift) << "A" << kCommand;
        QTest::newRow("Control Option a")
            << QByteArray("us") << 0 << (kControl | kOption) << "a" << (kControl | kOption);
        // The keypad's keys are marked, the keypad Enter is not.
        QTest::newRow("keypad decimal") << QByteArray("us") << 65 << kNone << "numpad." << kNone;
        QTest::newRow("keypad 0") << QByteArray("us") << 82 << kNone << "numpad0" << kNone;
        QTest::newRow("de keypad decimal") << QByteArray("de") << 65 << kNone << "numpad," << kNone;
        // German: Z and Y swapped, AltGr+Q is "@", dead keys give their accents.
        QTest::newRow("de Z key") << QByteArray("de") << 6 << kNone << "y" << kNone;
        QTest::newRow("de Y key") << QByteArray("de") << 16 << kNone << "z" << kNone;
        QTest::newRow("de Option Q") << QByteArray("de") << 12 << kOption << "@" << kNone;
        QTest::newRow("de Option Shift Q")
            << QByteArray("de") << 12 << (kOption | kShift) << QString::fromUtf8("Ω") << kNone;
        QTest::newRow("de Option E") << QByteArray("de") << 14 << kOption << QString::fromUtf8("€") << kNone;
        QTest::newRow("de Shift 2") << QByteArray("de") << 19 << kShift << "\"" << kNone;
        QTest::newRow("de dead acute") << QByteArray("de") << 24 << kNone << QString::fromUtf8("´") << kNone;
        QTest::newRow("de dead grave") << QByteArray("de") << 24 << kShift << "`" << kNone;
        QTest::newRow("de dead circumflex") << QByteArray("de") << 50 << kNone << "^" << kNone;
        QTest::newRow("de Shift circumflex")
            << QByteArray("de") << 50 << kShift << QString::fromUtf8("°") << kNone;
        QTest::newRow("de ISO key") << QByteArray("de") << 10 << kNone << "<" << kNone;
        QTest::newRow("de Option ISO key") << QByteArray("de") << 10 << kOption << "|" << kNone;
        // French: A and Q swapped, digits under Shift.
        QTest::newRow("fr A key") << QByteArray("fr") << 0 << kNone << "q" << kNone;
        QTest::newRow("fr Q key") << QByteArray("fr") << 12 << kNone << "a" << kNone;
        QTest::newRow("fr 1 key") << QByteArray("fr") << 18 << kNone << "&" << kNone;
        QTest::newRow("fr Shift 1") << QByteArray("fr") << 18 << kShift << "1" << kNone;
        QTest::newRow("fr Shift 2") << QByteArray("fr") << 19 << kShift << "2" << kNone;
        QTest::newRow("fr 2 key") << QByteArray("fr") << 19 << kNone << QString::fromUtf8("é") << kNone;
        QTest::newRow("fr dead circumflex") << QByteArray("fr") << 33 << kNone << "^" << kNone;
        QTest::newRow("fr dead diaeresis")
            << QByteArray("fr") << 33 << kShift << QString::fromUtf8("¨") << kNone;
        QTest::newRow("fr semicolon key") << QByteArray("fr") << 41 << kNone << "m" << kNone;
        // Codes without a key type nothing, below 36 and above 126 alike.
        QTest::newRow("no key below 36") << QByteArray("us") << 52 << kShift << "" << kShift;
        QTest::newRow("no key above 126") << QByteArray("us") << 127 << kNone << "" << kNone;
    }
    void forwardTranslation() {
        QFETCH(QByteArray, layout);
        QFETCH(int, keycode);
        QFETCH(Modifiers, modifiers);
        QString text;
        Modifiers remaining;
        nativeKeyCodeToStringRepresentation(text, remaining, keycode, modifiers,
                                            layoutNamed(layout.constData()));
        QTEST(text, "text");
        QTEST(remaining, "remaining");
    }

    void reverseTranslation_data() {
        QTest::addColumn<QByteArray>("layout");
        QTest::addColumn<QString>("text");
        QTest::addColumn<int>("keycode");
        QTest::addColumn<Modifiers>("modifiers");
        QTest::newRow("us a") << QByteArray("us") << "a" << 0 << kNone;
        QTest::newRow("us A") << QByteArray("us") << "A" << 0 << kShift;
        QTest::newRow("us !") << QByteArray("us") << "!" << 18 << kShift;
        QTest::newRow("us keypad 1") << QByteArray("us") << "numpad1" << 83 << kNone;
        QTest::newRow("us 1 is not the keypad's") << QByteArray("us") << "1" << 18 << kNone;
        QTest::newRow("fixed name") << QByteArray("us") << "Return" << 36 << kNone;
        // Empty text is a key like any other: the first code that types nothing, unmodified.
        QTest::newRow("us nothing") << QByteArray("us") << "" << 52 << kNone;
        QTest::newRow("de y") << QByteArray("de") << "y" << 6 << kNone;
        QTest::newRow("de @") << QByteArray("de") << "@" << 12 << kOption;
        QTest::newRow("de |") << QByteArray("de") << "|" << 10 << kOption;
        QTest::newRow("de acute") << QByteArray("de") << QString::fromUtf8("´") << 24 << kNone;
        QTest::newRow("fr a") << QByteArray("fr") << "a" << 12 << kNone;
        QTest::newRow("fr 1") << QByteArray("fr") << "1" << 18 << kShift;
    }
    void reverseTranslation() {
        QFETCH(QByteArray, layout);
        QFETCH(QString, text);
        const QMap<QString, KeyMapping> table = constructKeycodeMap(layoutNamed(layout.constData()));
        QVERIFY(table.contains(text));
        QTEST(table.value(text).keycode, "keycode");
        QTEST(table.value(text).modifiers, "modifiers");
    }

    // Every text of a table is typed again by the key and modifiers it names.
    void roundTrips_data() {
        QTest::addColumn<QByteArray>("layout");
        QTest::newRow("us") << QByteArray("us");
        QTest::newRow("de") << QByteArray("de");
        QTest::newRow("fr") << QByteArray("fr");
    }
    void roundTrips() {
        QFETCH(QByteArray, layout);
        const UCKeyboardLayout* keyboardLayout = layoutNamed(layout.constData());
        const QMap<QString, KeyMapping> table = constructKeycodeMap(keyboardLayout);
        QVERIFY(table.size() > 100);
        for (auto entry = table.cbegin(); entry != table.cend(); ++entry) {
            QString text;
            Modifiers remaining;
            nativeKeyCodeToStringRepresentation(text, remaining, entry->keycode, entry->modifiers,
                                                keyboardLayout);
            QCOMPARE(text, entry.key());
            QVERIFY((entry->modifiers & ~(kShift | kOption)) == kNone);
            QCOMPARE(entry.key().startsWith("numpad"),
                     isNumpadKey(entry->keycode) && entry->keycode != 76 && entry->keycode != 71);
        }
    }

    void dataThatIsNoLayout() {
        const QByteArray garbage(256, 'x');
        UniChar buffer[4] = {};
        UniCharCount length = 7;
        UInt32 deadKeyState = 0;
        QCOMPARE(UCKeyTranslate(reinterpret_cast<const UCKeyboardLayout*>(garbage.constData()), 0,
                                kUCKeyActionDisplay, 0, 0, 0, &deadKeyState, 4, &length, buffer),
                 OSStatus(kUCKeyLayoutBadErr));
        QCOMPARE(length, UniCharCount(0));
        QString text;
        Modifiers remaining;
        nativeKeyCodeToStringRepresentation(text, remaining, 0, kShift, nullptr);
        QCOMPARE(text, QString());
    }

    void canonicalRepresentation_data() {
        QTest::addColumn<int>("keycode");
        QTest::addColumn<Modifiers>("modifiers");
        QTest::addColumn<QString>("text");
        QTest::addColumn<QKeySequence>("sequence");
        QTest::newRow("plain") << 36 << kNone << "Return" << QKeySequence(Qt::Key_Return);
        QTest::newRow("all, in order")
            << 122 << (kShift | kOption | kControl | kCommand) << "Cmd+Ctrl+Option+Shift+F1"
            << QKeySequence(Qt::ControlModifier | Qt::MetaModifier | Qt::AltModifier | Qt::ShiftModifier |
                            Qt::Key_F1);
        QTest::newRow("Control") << 49 << kControl << "Ctrl+Space"
                                 << QKeySequence(Qt::MetaModifier | Qt::Key_Space);
        QTest::newRow("Command") << 123 << kCommand << "Cmd+Left"
                                 << QKeySequence(Qt::ControlModifier | Qt::Key_Left);
        QTest::newRow("keypad Enter") << 76 << kNone << "Enter" << QKeySequence(Qt::Key_Enter);
    }
    void canonicalRepresentation() {
        QFETCH(int, keycode);
        QFETCH(Modifiers, modifiers);
        QTEST(nativeKeyCodeAndModifiersToCanonicalRepresentation(unsigned(keycode), modifiers), "text");
        QTEST(nativeKeyCodeAndModifiersToKeySequence(unsigned(keycode), modifiers), "sequence");
    }

    void keySequenceFromText_data() {
        QTest::addColumn<QString>("text");
        QTest::addColumn<QKeySequence>("sequence");
        const QKeySequence commandA(Qt::ControlModifier | Qt::Key_A);
        const QKeySequence controlA(Qt::MetaModifier | Qt::Key_A);
        QTest::newRow("Cmd") << "Cmd+A" << commandA;
        QTest::newRow("Command") << "Command+A" << commandA;
        QTest::newRow("Meta is Command") << "meta+a" << commandA;
        QTest::newRow("Ctrl") << "Ctrl+A" << controlA;
        QTest::newRow("Control") << "CONTROL+A" << controlA;
        QTest::newRow("Option") << "Option+Shift+B"
                                << QKeySequence(Qt::AltModifier | Qt::ShiftModifier | Qt::Key_B);
        QTest::newRow("numpad") << "numpad5" << QKeySequence(Qt::KeypadModifier | Qt::Key_5);
        QTest::newRow("NUMPAD with Shift")
            << "Shift+NUMPAD5" << QKeySequence(Qt::KeypadModifier | Qt::ShiftModifier | Qt::Key_5);
        QTest::newRow("Num anywhere")
            << "Cmd+7Num" << QKeySequence(Qt::KeypadModifier | Qt::ControlModifier | Qt::Key_7);
        QTest::newRow("no num") << "Shift+F5" << QKeySequence(Qt::ShiftModifier | Qt::Key_F5);
    }
    void keySequenceFromText() {
        QFETCH(QString, text);
        QTEST(correctKeySequenceFromString(text), "sequence");
    }

    void modifiers_data() {
        QTest::addColumn<Modifiers>("modifiers");
        QTest::addColumn<qulonglong>("native");
        QTest::addColumn<QString>("debug");
        QTest::addColumn<int>("count");
        QTest::newRow("none") << kNone << 0x0ull << "" << 0;
        QTest::newRow("Shift") << kShift << 0x20000ull << "Shift" << 1;
        QTest::newRow("Command") << kCommand << 0x100000ull << "Super" << 1;
        QTest::newRow("Option") << kOption << 0x80000ull << "Alt" << 1;
        QTest::newRow("Control") << kControl << 0x40000ull << "Control" << 1;
        QTest::newRow("Keypad") << Modifiers(Qt::KeypadModifier) << 0x200000ull << "" << 1;
        QTest::newRow("all") << (kShift | kCommand | kOption | kControl | Qt::KeypadModifier) << 0x3e0000ull
                             << "ShiftAltControlSuper" << 5;
    }
    void modifiers() {
        QFETCH(Modifiers, modifiers);
        QFETCH(qulonglong, native);
        QCOMPARE(getNativeModifiers(modifiers), native);
        QCOMPARE(getQtModifiers(getNativeModifiers(modifiers)), modifiers);
        // Caps Lock and the device-dependent bits have no Qt flag.
        QCOMPARE(getQtModifiers(native | 0x10000 | 0x1), modifiers);
        QTEST(debugStringForModifiers(modifiers), "debug");
        QTEST(modifierCount(modifiers), "count");
    }

    void keyClasses_data() {
        QTest::addColumn<int>("keycode");
        QTest::addColumn<QString>("classes");
        QTest::newRow("Esc") << 53 << "escape";
        QTest::newRow("Backspace") << 51 << "backspace";
        QTest::newRow("keypad decimal") << 65 << "numpad";
        QTest::newRow("keypad Clear") << 71 << "numpad";
        QTest::newRow("last keypad key") << 92 << "numpad";
        QTest::newRow("F20 is no function key") << 90 << "";
        QTest::newRow("F17") << 64 << "function";
        QTest::newRow("F1") << 122 << "function";
        QTest::newRow("Help") << 114 << "navigation";
        QTest::newRow("Up") << 126 << "navigation";
        QTest::newRow("beyond") << 127 << "";
        QTest::newRow("negative") << -1 << "";
    }
    void keyClasses() {
        QFETCH(int, keycode);
        QStringList classes;
        if (isEscapeKey(keycode))
            classes << "escape";
        if (isBackspaceKey(keycode))
            classes << "backspace";
        if (isNumpadKey(keycode))
            classes << "numpad";
        if (isFunctionKey(keycode))
            classes << "function";
        if (isNavigationKey(keycode))
            classes << "navigation";
        QTEST(classes.join(','), "classes");
    }
};

UIET_GUI_TEST_MAIN(TestKeyboard)
#include "tst_keyboard.moc"
