// Event filtering's rules over a stand-in keyboard tap platform: which keystrokes are swallowed
// and reported, when each tap is on, where receivers hear, and how the tap thread starts.
// The stand-in's events from a program (kCGEventSourceStatePrivate) count as the system's own.

#include "keyboardTapTestSupport.h"
#include "liveDesktopSession.h"
#include "logCapture.h"
#include "modifierSubscribers.h"
#include "osxEventFiltering.h"
#include "platformTestSupport.h"
#include "testSupport.h"

#include <QCoreApplication>
#include <QTest>
#include <QThread>

namespace {

using Event = EventTapChannel::Event;

constexpr long kSpace = 49;
constexpr long kEscape = 53;
constexpr CGEventFlags kAllFourModifiers =
    kCGEventFlagMaskCommand | kCGEventFlagMaskControl | kCGEventFlagMaskAlternate | kCGEventFlagMaskShift;

struct Keystroke {
    long keycode;
    Qt::KeyboardModifiers modifiers;
    quint64 nativeModifiers;
    bool operator==(const Keystroke& other) const {
        return keycode == other.keycode && modifiers == other.modifiers &&
               nativeModifiers == other.nativeModifiers;
    }
};

} // namespace

Q_DECLARE_METATYPE(EventTapChannel::Event)

class KeystrokeReceiver : public QObject {
    Q_OBJECT
public:
    QList<Keystroke> received;
public slots:
    void onKeystroke(long keycode, Qt::KeyboardModifiers modifiers, quint64 nativeModifiers) {
        received.append({keycode, modifiers, nativeModifiers});
    }
};

class TestOsxEventFiltering : public QObject, private LiveObjectCheck {
    Q_OBJECT

    std::shared_ptr<FakeKeyboardTapPlatform> platform;
    QList<QSharedPointer<ModifierChangedCallbackData>> subscriptions;

    bool start() {
        QTest::ignoreMessage(QtDebugMsg, "Created keyboard event tap");
        QTest::ignoreMessage(QtDebugMsg, "Created modifier event tap");
        return osxInitializeEventFiltering([](void* event) {
            return CGEventGetIntegerValueField(static_cast<CGEventRef>(event), kCGEventSourceStateID) ==
                   kCGEventSourceStatePrivate;
        });
    }
    FakeKeyChannel* keyboardTap() { return platform->channel(kCGEventKeyDown); }
    FakeKeyChannel* modifierTap() { return platform->channel(kCGEventFlagsChanged); }
    // Posts the event and waits for the tap's answer. Whatever the tap reported is then queued to
    // this thread, ahead of anything later; the receivers here have heard it on return.
    bool postAndAnswer(FakeKeyChannel* tap, const Event& event) {
        const int before = int(tap->answered().size());
        tap->post(event);
        if (!LiveDesktopSession::waitUntil([&] { return tap->answered().size() > before; }))
            return false;
        QCoreApplication::sendPostedEvents();
        return tap->answered().last().keycode == event.keycode;
    }
    bool passedOn(FakeKeyChannel* tap, const Event& event) {
        return postAndAnswer(tap, event) && tap->answered().last().passOn;
    }
    bool swallowed(FakeKeyChannel* tap, const Event& event) {
        return postAndAnswer(tap, event) && !tap->answered().last().passOn;
    }
    static Event keyDown(long keycode, CGEventFlags flags = 0) {
        return {kCGEventKeyDown, kCGEventSourceStateHIDSystemState, keycode, flags};
    }

private slots:
    void init() {
        noteLiveObjects();
        platform = std::make_shared<FakeKeyboardTapPlatform>();
        setKeyboardTapPlatformForTesting(platform);
        if (QByteArray(QTest::currentTestFunction()).startsWith("starting"))
            return;
        QVERIFY(start());
        QCOMPARE(platform->openChannels(), 2);
        QVERIFY(!keyboardTap()->enabled);
        QVERIFY(!modifierTap()->enabled);
    }

    void cleanup() {
        osxEndInterceptingKeystrokes();
        logOf([this] {
            for (const auto& subscription : std::exchange(subscriptions, {}))
                osxRemoveModifierChangedCallback(subscription);
        });
        osxDeinitializeEventFiltering();
        QCOMPARE(platform->openChannels(), 0);
        setKeyboardTapPlatformForTesting(nullptr);
        platform.reset();
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
        checkLiveObjects();
    }

    void keystrokes_data() {
        QTest::addColumn<QStringList>("keys");
        QTest::addColumn<Event>("event");
        QTest::addColumn<bool>("swallow");
        QTest::addColumn<bool>("report");
        QTest::addColumn<Qt::KeyboardModifiers>("modifiers");
        const Qt::KeyboardModifiers none;

        const Event spaceUp{kCGEventKeyUp, kCGEventSourceStateHIDSystemState, kSpace, 0};
        const Event injectedSpace{kCGEventKeyDown, kCGEventSourceStatePrivate, kSpace, 0};
        QTest::newRow("no keys: all swallowed") << QStringList() << keyDown(kEscape) << true << true << none;
        QTest::newRow("no keys: key up swallowed, unreported")
            << QStringList() << spaceUp << true << false << none;
        QTest::newRow("key in the set")
            << QStringList{"Space", "Esc"} << keyDown(kSpace) << true << true << none;
        QTest::newRow("key not in the set")
            << QStringList{"Esc"} << keyDown(kSpace) << false << false << none;
        QTest::newRow("key up in the set") << QStringList{"Space"} << spaceUp << true << false << none;
        QTest::newRow("modifiers are part of the key")
            << QStringList{"Shift+Space"} << keyDown(kSpace) << false << false << none;
        QTest::newRow("with its modifiers")
            << QStringList{"Shift+Space"} << keyDown(kSpace, kCGEventFlagMaskShift) << true << true
            << Qt::KeyboardModifiers(Qt::ShiftModifier);
        // Command is Qt's Control, Control is Qt's Meta.
        QTest::newRow("modifiers in canonical order")
            << QStringList{"Cmd+Ctrl+Option+Shift+Esc"} << keyDown(kEscape, kAllFourModifiers) << true << true
            << (Qt::ControlModifier | Qt::MetaModifier | Qt::AltModifier | Qt::ShiftModifier);
        QTest::newRow("artificial, no keys") << QStringList() << injectedSpace << false << false << none;
        QTest::newRow("artificial, in the set")
            << QStringList{"Space"} << injectedSpace << false << false << none;
    }

    void keystrokes() {
        QFETCH(QStringList, keys);
        QFETCH(Event, event);
        QFETCH(bool, swallow);
        QFETCH(bool, report);
        QFETCH(Qt::KeyboardModifiers, modifiers);

        KeystrokeReceiver receiver;
        osxBeginInterceptingKeystrokes(&receiver, SLOT(onKeystroke(long, Qt::KeyboardModifiers, quint64)),
                                       QSet<QString>(keys.begin(), keys.end()));
        QVERIFY(LiveDesktopSession::waitUntil([this] { return keyboardTap()->enabled.load(); }));
        QVERIFY(postAndAnswer(keyboardTap(), event));
        QCOMPARE(!keyboardTap()->answered().last().passOn, swallow);
        const QList<Keystroke> expected{{long(event.keycode), modifiers, event.flags}};
        QCOMPARE(receiver.received, report ? expected : QList<Keystroke>());
    }

    void interceptionEnds_data() {
        QTest::addColumn<bool>("byDestruction");
        QTest::newRow("end") << false;
        QTest::newRow("receiver destroyed") << true;
    }

    // The last to begin hears alone; the end, or its receiver's end, stops all interception.
    void interceptionEnds() {
        QFETCH(bool, byDestruction);
        auto first = std::make_unique<KeystrokeReceiver>();
        auto second = std::make_unique<KeystrokeReceiver>();
        const char* slot = SLOT(onKeystroke(long, Qt::KeyboardModifiers, quint64));
        osxBeginInterceptingKeystrokes(first.get(), slot, {});
        osxBeginInterceptingKeystrokes(second.get(), slot, {});
        QVERIFY(swallowed(keyboardTap(), keyDown(kSpace)));
        QCOMPARE(first->received.size(), 0);
        QCOMPARE(second->received.size(), 1);
        // The replaced receiver's end is no longer the interception's.
        first.reset();
        QVERIFY(keyboardTap()->enabled);
        QVERIFY(swallowed(keyboardTap(), keyDown(kSpace)));

        if (byDestruction)
            second.reset();
        else
            osxEndInterceptingKeystrokes();
        QVERIFY(LiveDesktopSession::waitUntil([this] { return !keyboardTap()->enabled; }));
        QVERIFY(passedOn(keyboardTap(), keyDown(kSpace)));
        if (second)
            QCOMPARE(second->received.size(), 2);
    }

    // The modifier tap runs only while somebody listens.
    void modifierTapFollowsSubscriptions() {
        auto callback = [](Qt::KeyboardModifiers, unsigned long long) {};
        QTest::ignoreMessage(QtDebugMsg, "Setting key modifier event tap enabled to: true");
        auto first = osxAddModifierChangedCallback(callback);
        QVERIFY(LiveDesktopSession::waitUntil([this] { return modifierTap()->enabled.load(); }));
        QCOMPARE(logOf([&] { subscriptions << osxAddModifierChangedCallback(callback); }), QStringList());
        QCOMPARE(logOf([&] { osxRemoveModifierChangedCallback(first); }), QStringList());
        QCOMPARE(logOf([&] { osxRemoveModifierChangedCallback(subscriptions.takeLast()); }),
                 QStringList{"Setting key modifier event tap enabled to: false"});
        QVERIFY(LiveDesktopSession::waitUntil([this] { return !modifierTap()->enabled; }));
        // Removed twice, or never made: nothing happens.
        QCOMPARE(logOf([&] {
                     osxRemoveModifierChangedCallback(first);
                     osxRemoveModifierChangedCallback({});
                 }),
                 QStringList());
        QTest::ignoreMessage(QtDebugMsg, "Setting key modifier event tap enabled to: true");
        subscriptions << osxAddModifierChangedCallback(callback);
        QVERIFY(LiveDesktopSession::waitUntil([this] { return modifierTap()->enabled.load(); }));
    }

    void subscriptionEndsWithItsContext() {
        auto context = std::make_unique<QObject>();
        int calls = 0;
        QTest::ignoreMessage(QtDebugMsg, "Setting key modifier event tap enabled to: true");
        auto token = osxAddModifierChangedCallback(
            context.get(), [&](Qt::KeyboardModifiers, unsigned long long) { ++calls; });
        QVERIFY(passedOn(modifierTap(), {kCGEventFlagsChanged, kCGEventSourceStateHIDSystemState, 0, 0}));
        QCOMPARE(calls, 1);
        QCOMPARE(logOf([&] { context.reset(); }),
                 QStringList{"Setting key modifier event tap enabled to: false"});
        QCOMPARE(logOf([&] {
                     osxRemoveModifierChangedCallback(token);
                     QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
                     osxRemoveModifierChangedCallback(token);
                 }),
                 QStringList());
    }

    // Each subscriber hears on its context's thread, or on the thread that subscribed; artificial
    // changes are never reported.
    void modifiersReachEverySubscriber() {
        ModifierSubscribers subscribers;
        QTest::ignoreMessage(QtDebugMsg, "Setting key modifier event tap enabled to: true");
        subscriptions << subscribers.subscribe();
        QVERIFY(passedOn(modifierTap(),
                         {kCGEventFlagsChanged, kCGEventSourceStatePrivate, 0, kCGEventFlagMaskShift}));
        const CGEventFlags flags = kCGEventFlagMaskShift | kCGEventFlagMaskCommand;
        QVERIFY(passedOn(modifierTap(), {kCGEventFlagsChanged, kCGEventSourceStateHIDSystemState, 0, flags}));
        QVERIFY(LiveDesktopSession::waitUntil([&] { return subscribers.heardSoFar().size() == 2; }));
        QVERIFY(subscribers.bothHeard(Qt::ShiftModifier | Qt::ControlModifier));
    }

    void secondInitialization() {
        QTest::ignoreMessage(QtDebugMsg, "Tried to create event filtering thread when it already exists!");
        QVERIFY(!osxInitializeEventFiltering());
        // The running thread's taps stay and work.
        QCOMPARE(platform->openChannels(), 2);
        KeystrokeReceiver receiver;
        osxBeginInterceptingKeystrokes(&receiver, SLOT(onKeystroke(long, Qt::KeyboardModifiers, quint64)),
                                       {});
        QVERIFY(swallowed(keyboardTap(), keyDown(kEscape)));
        QCOMPARE(receiver.received.size(), 1);
    }

    // Receivers and subscribers from before the start take effect with it.
    void startingAfterSubscriptions() {
        KeystrokeReceiver receiver;
        osxBeginInterceptingKeystrokes(&receiver, SLOT(onKeystroke(long, Qt::KeyboardModifiers, quint64)),
                                       {});
        subscriptions << osxAddModifierChangedCallback([](Qt::KeyboardModifiers, unsigned long long) {});
        QVERIFY(start());
        QVERIFY(LiveDesktopSession::waitUntil(
            [this] { return keyboardTap()->enabled && modifierTap()->enabled; }));
    }

    void startingWithoutATap_data() {
        QTest::addColumn<bool>("keyboardTap");
        QTest::addColumn<QStringList>("log");
        QTest::newRow("no keyboard tap")
            << false << QStringList{"Error: failed to create the keyboard event tap."};
        QTest::newRow("no modifier tap")
            << true
            << QStringList{"Created keyboard event tap", "Error: failed to create the modifier event tap."};
    }

    void startingWithoutATap() {
        QFETCH(bool, keyboardTap);
        platform->keyboardTapAvailable = keyboardTap;
        platform->modifierTapAvailable = false;
        bool started = true;
        QTEST(logOf([&] { started = osxInitializeEventFiltering(); }), "log");
        QVERIFY(!started);
        QCOMPARE(platform->openChannels(), keyboardTap ? 1 : 0);
    }

    // A thread that does not report in time fails the start, and its report later changes nothing.
    void startingTooSlowly() {
        platform->gate.lock();
        bool started = true;
        QCOMPARE(logOf([&] { started = osxInitializeEventFiltering(); }),
                 QStringList{"Error: event filtering thread failed to indicate success or failure"});
        QVERIFY(!started);
        QTest::ignoreMessage(QtDebugMsg, "Created keyboard event tap");
        QTest::ignoreMessage(QtDebugMsg, "Created modifier event tap");
        platform->gate.unlock();
        QVERIFY(LiveDesktopSession::waitUntil([this] { return platform->openChannels() == 2; }));
        QVERIFY(!started);
        QTest::ignoreMessage(QtDebugMsg, "Tried to create event filtering thread when it already exists!");
        QVERIFY(!osxInitializeEventFiltering());
    }
};

UIET_TEST_MAIN(TestOsxEventFiltering)
#include "tst_osxEventFiltering.moc"
