// Keyboard translation on a live X server (a private Xvfb): layout changes reach the translation
// through the main thread's event loop, the reverse translation follows the current layout, and a
// layout that was current before keeps its table.

#include "keyboard.h"
#include "liveDesktopSession.h"
#include "logCapture.h"
#include "testSupport.h"

#include <QProcess>
#include <QTest>

#include <X11/XKBlib.h>
#include <X11/extensions/XTest.h>
#include <X11/keysym.h>

#include <memory>

using Modifiers = QFlags<Qt::KeyboardModifier>;
Q_DECLARE_METATYPE(Modifiers)

namespace {

// The key and modifiers that type the text now, -1 when none; the log lines of a miss are dropped.
QPair<int, Modifiers> keyTyping(const QString& text) {
    int keycode = -1;
    Modifiers modifiers;
    logOf([&] { stringRepresentationToNativeKeyCode(keycode, modifiers, text); });
    return {keycode, modifiers};
}

} // namespace

class TestLiveKeyboard : public QObject {
    Q_OBJECT

    std::unique_ptr<LiveDesktopSession> session;
    Display* display = nullptr;

    // Runs setxkbmap on the session's display and waits for it without processing any event.
    bool setKeymap(const QStringList& arguments) {
        QProcess process;
        process.setProcessEnvironment(session->environment());
        process.start("setxkbmap", arguments);
        return process.waitForFinished() && process.exitStatus() == QProcess::NormalExit &&
               process.exitCode() == 0;
    }

private slots:
    void initTestCase() {
        session = std::make_unique<LiveDesktopSession>();
        if (!session->isReady())
            QSKIP(qPrintable(session->skipReason()));
        session->applyToThisProcess();
        display = XOpenDisplay(nullptr);
        QVERIFY(display);
        QVERIFY(setKeymap({"-layout", "us"}));
        initializeKeycodeTranslation();
        QVERIFY(LiveDesktopSession::waitUntil([] { return keyTyping("a").first == 0; }));
    }

    void cleanupTestCase() {
        deinitializeKeycodeTranslation();
        QCoreApplication::processEvents();
        if (display)
            XCloseDisplay(display);
        session.reset();
    }

    void layoutSwitch() {
        QCOMPARE(keyTyping("y"), qMakePair(16, Modifiers()));
        QCOMPARE(getCurrentKeyboardType(), int(LMGetKbdType()));
        QVERIFY(setKeymap({"-layout", "de"}));
        // The change is delivered by the main thread's event loop, which has not run yet.
        QCOMPARE(keyTyping("y"), qMakePair(16, Modifiers()));
        QVERIFY(LiveDesktopSession::waitUntil([] { return keyTyping("y").first == 6; }));
        QCOMPARE(keyTyping("@"), qMakePair(12, Modifiers(Qt::AltModifier)));
        QCOMPARE(nativeKeyCodeToStringRepresentation(16u), QString("z"));
        QCOMPARE(nativeKeyCodeAndModifiersToCanonicalRepresentation(6, Qt::ControlModifier),
                 QString("Cmd+y"));
    }

    // Back under the name of a layout seen before, the old table serves, though the keypad's
    // decimal key types a comma now: the forward translation follows the keymap, the table does not.
    void returnReusesTable() {
        QVERIFY(setKeymap({"-layout", "us", "-option", "", "-option", "kpdl:comma"}));
        QVERIFY(LiveDesktopSession::waitUntil([] { return keyTyping("y").first == 16; }));
        QCOMPARE(nativeKeyCodeToStringRepresentation(65u), QString("numpad,"));
        QCOMPARE(keyTyping("numpad."), qMakePair(65, Modifiers()));
        QCOMPARE(keyTyping("numpad,").first, -1);
    }

    void groupLock() {
        QVERIFY(setKeymap({"-layout", "us,fr", "-option", ""}));
        QVERIFY(XkbLockGroup(display, XkbUseCoreKbd, 1));
        XSync(display, False);
        QVERIFY(LiveDesktopSession::waitUntil([] { return keyTyping("a").first == 12; }));
        QCOMPARE(keyTyping("1"), qMakePair(18, Modifiers(Qt::ShiftModifier)));
        QVERIFY(XkbLockGroup(display, XkbUseCoreKbd, 0));
        XSync(display, False);
        QVERIFY(LiveDesktopSession::waitUntil([] { return keyTyping("a").first == 0; }));
    }

    void keysHeldDown_data() {
        QTest::addColumn<int>("keysym");
        QTest::addColumn<bool>("escape");
        QTest::addColumn<Modifiers>("modifiers");
        QTest::newRow("Escape") << int(XK_Escape) << true << Modifiers();
        QTest::newRow("Shift") << int(XK_Shift_L) << false << Modifiers(Qt::ShiftModifier);
        QTest::newRow("Control") << int(XK_Control_L) << false << Modifiers(Qt::MetaModifier);
    }
    void keysHeldDown() {
        QFETCH(int, keysym);
        QVERIFY(!escapeKeyIsDown());
        QCOMPARE(getCurrentModifiers(), Modifiers());
        const KeyCode key = XKeysymToKeycode(display, KeySym(keysym));
        QVERIFY(XTestFakeKeyEvent(display, key, True, 0));
        XSync(display, False);
        QTEST(escapeKeyIsDown(), "escape");
        QTEST(getCurrentModifiers(), "modifiers");
        QVERIFY(XTestFakeKeyEvent(display, key, False, 0));
        XSync(display, False);
        QVERIFY(!escapeKeyIsDown());
    }
};

UIET_GUI_TEST_MAIN(TestLiveKeyboard)
#include "tst_liveKeyboard.moc"
