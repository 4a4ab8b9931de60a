// Event filtering on a private X server: keys and modifiers injected through XTEST reach the
// taps, and a window of the test's own, which has the focus, sees only the keys passed on.

#include "modifierSubscribers.h"
#include "osxEventFiltering.h"
#include "platformEvents.h"
#include "platformTestSupport.h"
#include "testSupport.h"
#include "x11/X11Connection.h"
#include "x11TestSession.h"

#include <QMutex>
#include <QTest>
#include <QThread>

// Xlib defines macros (None, Bool, Status...) that collide with Qt's names: after every Qt header.
#include <X11/Xlib.h>
#include <X11/extensions/XTest.h>
#include <X11/keysym.h>

namespace {

// What the test's window saw: (KeyPress or KeyRelease, X key code).
using WindowKeys = QList<QPair<int, int>>;

} // namespace

class LiveKeystrokeReceiver : public QObject {
    Q_OBJECT
public:
    QList<long> received;
public slots:
    void onKeystroke(long keycode, Qt::KeyboardModifiers, quint64) { received.append(keycode); }
};

class TestLiveEventFiltering : public QObject, private LiveObjectCheck {
    Q_OBJECT

    std::unique_ptr<LiveDesktopSession> session;
    // The test's own client: it injects keys through XTEST and owns the focused window.
    std::unique_ptr<X11Connection> client;
    Display* x = nullptr;
    Window window = 0;
    QMutex sourcesMutex;
    QList<CGEventSourceStateID> sources;
    QList<QSharedPointer<ModifierChangedCallbackData>> subscriptions;

    int keyCode(KeySym sym) { return XKeysymToKeycode(x, sym); }
    void press(const QList<KeySym>& keys) {
        for (KeySym key : keys) {
            XTestFakeKeyEvent(x, keyCode(key), True, CurrentTime);
            XTestFakeKeyEvent(x, keyCode(key), False, CurrentTime);
        }
        XSync(x, False);
    }
    // The keys the window saw, up to the release of Shift: a key that every tap passes on, and so
    // the last of everything injected before it.
    WindowKeys windowKeysUpToShift() {
        WindowKeys seen;
        const QPair<int, int> shiftUp{KeyRelease, keyCode(XK_Shift_L)};
        LiveDesktopSession::waitUntil([&] {
            while (XPending(x) > 0) {
                XEvent event;
                XNextEvent(x, &event);
                if (event.type == KeyPress || event.type == KeyRelease)
                    seen.append({event.type, int(event.xkey.keycode)});
            }
            return seen.contains(shiftUp);
        });
        return seen;
    }
    static bool injectedOnly(const QList<CGEventSourceStateID>& sources) {
        return !sources.isEmpty() && sources.count(kCGEventSourceStatePrivate) == sources.size();
    }
    QList<CGEventSourceStateID> seenSources() {
        QMutexLocker lock(&sourcesMutex);
        return sources;
    }

private slots:
    void initTestCase() {
        UIET_START_X11_TEST_SESSION(session, client, x);
        window = XCreateSimpleWindow(x, DefaultRootWindow(x), 0, 0, 100, 100, 0, 0, 0);
        XSelectInput(x, window, KeyPressMask | KeyReleaseMask | StructureNotifyMask);
        XMapWindow(x, window);
        XEvent mapped;
        XWindowEvent(x, window, StructureNotifyMask, &mapped);
        XSetInputFocus(x, window, RevertToPointerRoot, CurrentTime);
        XSync(x, False);
        Window focus = 0;
        int revert = 0;
        XGetInputFocus(x, &focus, &revert);
        QCOMPARE(focus, window);
    }

    void cleanupTestCase() {
        client.reset();
        session.reset();
    }

    void init() {
        noteLiveObjects();
        {
            QMutexLocker lock(&sourcesMutex);
            sources.clear();
        }
        if (QByteArray(QTest::currentTestFunction()) == "grabOfAnotherClient")
            return;
        QTest::ignoreMessage(QtDebugMsg, "Created keyboard event tap");
        QTest::ignoreMessage(QtDebugMsg, "Created modifier event tap");
        // Sees every event; XTEST's count as the user's here.
        QVERIFY(osxInitializeEventFiltering([this](void* event) {
            QMutexLocker lock(&sourcesMutex);
            sources.append(CGEventSourceStateID(
                CGEventGetIntegerValueField(static_cast<CGEventRef>(event), kCGEventSourceStateID)));
            return false;
        }));
    }

    void cleanup() {
        osxEndInterceptingKeystrokes();
        for (const auto& subscription : std::exchange(subscriptions, {}))
            osxRemoveModifierChangedCallback(subscription);
        osxDeinitializeEventFiltering();
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
        checkLiveObjects();
    }

    void keystrokes_data() {
        QTest::addColumn<QStringList>("keys");
        QTest::addColumn<QList<long>>("reported");
        QTest::addColumn<QList<KeySym>>("passedOn");
        // Space, Escape and Tab are the virtual keys 49, 53 and 48.
        QTest::newRow("all keys") << QStringList() << QList<long>{49, 53, 48} << QList<KeySym>();
        QTest::newRow("only Space") << QStringList{"Space"} << QList<long>{49}
                                    << QList<KeySym>{XK_Escape, XK_Tab};
        QTest::newRow("Escape and Tab")
            << QStringList{"Esc", "Tab"} << QList<long>{53, 48} << QList<KeySym>{XK_space};
        QTest::newRow("a key that is not pressed")
            << QStringList{"Return"} << QList<long>() << QList<KeySym>{XK_space, XK_Escape, XK_Tab};
    }

    void keystrokes() {
        QFETCH(QStringList, keys);
        QFETCH(QList<KeySym>, passedOn);
        LiveKeystrokeReceiver receiver;
        osxBeginInterceptingKeystrokes(&receiver, SLOT(onKeystroke(long, Qt::KeyboardModifiers, quint64)),
                                       QSet<QString>(keys.begin(), keys.end()));
        // The grab is in place once a key has come through the tap; F12 is in no set.
        QVERIFY(LiveDesktopSession::waitUntil([this] {
            press({XK_F12});
            return !seenSources().isEmpty();
        }));
        press({XK_Shift_L});
        windowKeysUpToShift();
        receiver.received.clear();

        press({XK_space, XK_Escape, XK_Tab, XK_Shift_L});
        WindowKeys expected;
        for (KeySym key : passedOn)
            expected << qMakePair(int(KeyPress), keyCode(key)) << qMakePair(int(KeyRelease), keyCode(key));
        expected << qMakePair(int(KeyPress), keyCode(XK_Shift_L))
                 << qMakePair(int(KeyRelease), keyCode(XK_Shift_L));
        QCOMPARE(windowKeysUpToShift(), expected);
        QCoreApplication::sendPostedEvents();
        QTEST(receiver.received, "reported");
        // Every key event came from XTEST, and the taps say so.
        QVERIFY(injectedOnly(seenSources()));

        // Ended: every key reaches the window again.
        osxEndInterceptingKeystrokes();
        QVERIFY(LiveDesktopSession::waitUntil([&] {
            press({XK_Tab, XK_Shift_L});
            return windowKeysUpToShift().startsWith(qMakePair(int(KeyPress), keyCode(XK_Tab)));
        }));
    }

    // Every subscriber hears on its own thread: one with a context on another thread, one without.
    void modifierChanges() {
        ModifierSubscribers subscribers;
        QTest::ignoreMessage(QtDebugMsg, "Setting key modifier event tap enabled to: true");
        subscriptions << subscribers.subscribe();
        // The tap thread selects the notifications soon after: until both have heard a change.
        QVERIFY(LiveDesktopSession::waitUntil([&] {
            press({XK_Shift_L});
            return subscribers.bothHeard(Qt::ShiftModifier) && subscribers.bothHeard(Qt::NoModifier);
        }));
        QVERIFY(injectedOnly(seenSources()));
    }

    void grabOfAnotherClient_data() {
        QTest::addColumn<bool>("active");
        QTest::newRow("keyboard grabbed") << true;
        QTest::newRow("a key grabbed on the root window") << false;
    }

    void grabOfAnotherClient() {
        QFETCH(bool, active);
        Display* other = XOpenDisplay(nullptr);
        QVERIFY(other);
        if (active)
            QCOMPARE(XGrabKeyboard(other, DefaultRootWindow(other), False, GrabModeAsync, GrabModeAsync,
                                   CurrentTime),
                     GrabSuccess);
        else
            XGrabKey(other, keyCode(XK_F5), ControlMask, DefaultRootWindow(other), False, GrabModeAsync,
                     GrabModeAsync);
        XSync(other, False);
        QTest::ignoreMessage(QtCriticalMsg, "Error: failed to create the keyboard event tap.");
        const bool started = osxInitializeEventFiltering();
        XCloseDisplay(other);
        QVERIFY(!started);
    }
};

UIET_TEST_MAIN(TestLiveEventFiltering)
#include "tst_liveEventFiltering.moc"
