#include "platformTestSupport.h"
#include "testSupport.h"

#include "NativeUIElement.h"
#include "osxUIElementUtils.h"
#include "windows.h"

#include <QCursor>
#include <QFile>
#include <QThread>

#include <thread>
#include <vector>

namespace {

QByteArray windowsFixture() {
    QFile file(QStringLiteral(UIET_FIXTURES_DIR "/desktop-windows.json"));
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

using WindowAction = void (*)(const NativeUIElement&);

} // namespace

Q_DECLARE_METATYPE(WindowAction)

class tst_NativeUIElement : public QObject, protected VirtualDesktopTestBase {
    Q_OBJECT

    // A handle that took over a new reference on the fixture element.
    NativeUIElement handleOn(const QString& id) const {
        NativeUIElement handle;
        handle.setOSSpecificElementReference(
            const_cast<void*>(static_cast<const void*>(desktop->copyElement(id))));
        return handle;
    }

    static CFIndex retainCountOf(const NativeUIElement& handle) {
        const CFTypeSmartRef<AXUIElementRef> reference(
            static_cast<AXUIElementRef>(handle.copyOSSpecificElementReference()));
        return reference ? CFGetRetainCount(reference) - 1 : 0;
    }

    bool names(const NativeUIElement& handle, const QString& id) const { return handle == handleOn(id); }

private slots:
    void init() {
        QVERIFY(installDesktop([](VirtualDesktop& desktop) { return desktop.load(windowsFixture()); }));
    }

    void cleanup() { uninstallDesktopAndCheckReferences(); }

    void equality_data() {
        QTest::addColumn<QString>("a");
        QTest::addColumn<QString>("b");
        QTest::addColumn<bool>("equal");
        QTest::newRow("two null handles") << QString() << QString() << false;
        QTest::newRow("null and element") << QString() << "doc" << false;
        QTest::newRow("two handles on one element") << "doc"
                                                    << "doc" << true;
        QTest::newRow("different elements") << "doc"
                                            << "palette" << false;
    }

    void equality() {
        QFETCH(QString, a);
        QFETCH(QString, b);
        QFETCH(bool, equal);
        const NativeUIElement first = a.isNull() ? NativeUIElement() : handleOn(a);
        const NativeUIElement second = b.isNull() ? NativeUIElement() : handleOn(b);
        QCOMPARE(first == second, equal);
        QCOMPARE(second == first, equal);
        QCOMPARE(first != second, !equal);
        QCOMPARE(second != first, !equal);
    }

    void copiesShareTheElementWithOwnRetains() {
        NativeUIElement original = handleOn("doc");
        original.setScreenPosition(QPoint(5, 6));
        QCOMPARE(retainCountOf(original), 1);
        {
            const NativeUIElement copy(original);
            QCOMPARE(retainCountOf(original), 2);
            QCOMPARE(copy.screenPosition(), QPoint(5, 6));
            NativeUIElement assigned = handleOn("palette");
            assigned = copy;
            QCOMPARE(retainCountOf(original), 3);
            QCOMPARE(assigned.screenPosition(), QPoint(5, 6));
            QVERIFY(names(assigned, "doc"));
            assigned = NativeUIElement();
            QVERIFY(assigned.isNull());
            QCOMPARE(retainCountOf(original), 2);
        }
        QCOMPARE(retainCountOf(original), 1);
        original.setOSSpecificElementReference(nullptr);
        QVERIFY(original.isNull());
        QCOMPARE(original.copyOSSpecificElementReference(), nullptr);
    }

    void selfAssignment_data() {
        QTest::addColumn<bool>("otherCopy");
        QTest::newRow("with the last retain") << false;
        QTest::newRow("with a copy alive") << true;
    }

    // Assigned to itself with the last retain, a handle frees its element and becomes null.
    void selfAssignment() {
        QFETCH(bool, otherCopy);
        const CFIndex liveBefore = CFRuntime::liveObjectCount();
        NativeUIElement handle = handleOn("doc");
        NativeUIElement copy;
        if (otherCopy)
            copy = handle;
        QCOMPARE(CFRuntime::liveObjectCount(), liveBefore + 1);
        NativeUIElement& alias = handle;
        handle = alias;
        QCOMPARE(handle.isNull(), !otherCopy);
        QCOMPARE(CFRuntime::liveObjectCount(), liveBefore + (otherCopy ? 1 : 0));
        if (otherCopy) {
            QVERIFY(handle == copy);
            QCOMPARE(retainCountOf(handle), 2);
        }
    }

    void copiesOnOtherThreads() {
        const NativeUIElement original = handleOn("doc");
        std::vector<std::thread> threads;
        for (int t = 0; t < 4; ++t) {
            threads.emplace_back([original] {
                NativeUIElement kept;
                for (int i = 0; i < 2000; ++i) {
                    NativeUIElement copy(original);
                    kept = copy;
                }
            });
        }
        NativeUIElement handedOver;
        QThread* thread = QThread::create([&handedOver, copy = original]() mutable { handedOver = copy; });
        thread->start();
        for (std::thread& each : threads)
            each.join();
        QVERIFY(thread->wait());
        delete thread;
        QCOMPARE(retainCountOf(original), 2);
        QVERIFY(handedOver == original);
    }

    void focusedWindow() {
        QVERIFY(names(::focusedWindow(), "doc"));
        QVERIFY(desktop->load(QByteArray(R"({"applications": [{"pid": 1}]})")));
        QVERIFY(::focusedWindow().isNull());
    }

    void windowUnderMouse_data() {
        QTest::addColumn<QPoint>("mouse");
        QTest::addColumn<QString>("window");
        QTest::newRow("front window") << QPoint(150, 150) << "doc";
        QTest::newRow("in a sheet") << QPoint(65, 65) << "doc";
        QTest::newRow("back window") << QPoint(450, 350) << "palette";
        QTest::newRow("no window") << QPoint(3000, 3000) << QString();
    }

    void windowUnderMouse() {
        QFETCH(QPoint, mouse);
        QFETCH(QString, window);
        QCursor::setPos(mouse);
        const NativeUIElement found = ::windowUnderMouse();
        QCOMPARE(found.isNull(), window.isEmpty());
        if (!window.isEmpty())
            QVERIFY(names(found, window));
    }

    void titleBarButtons_data() {
        QTest::addColumn<WindowAction>("action");
        QTest::addColumn<QString>("window");
        QTest::addColumn<QString>("pressed");
        QTest::addColumn<QString>("pressedAction");
        QTest::addColumn<bool>("minimized");
        QTest::addColumn<QStringList>("warnings");
        const QStringList noButton{"Could not trigger window action! Unable to get title bar button."};
        QTest::newRow("minimize through its attribute") << WindowAction(minimizeWindow) << "buttons"
                                                        << "minimizeButton"
                                                        << "AXPress" << false << QStringList();
        QTest::newRow("minimize without a button")
            << WindowAction(minimizeWindow) << "bare" << QString() << QString() << true << QStringList();
        QTest::newRow("minimize without a button, refused")
            << WindowAction(minimizeWindow) << "locked" << QString() << QString() << false
            << QStringList{"Could not trigger window action! Error code: -25204"};
        QTest::newRow("zoom button without AXZoomWindow") << WindowAction(zoomWindow) << "buttons"
                                                          << "zoomButton"
                                                          << "AXPress" << false << QStringList();
        QTest::newRow("zoom button with AXZoomWindow") << WindowAction(zoomWindow) << "zoomable"
                                                       << "zoomableButton"
                                                       << "AXZoomWindow" << false << QStringList();
        QTest::newRow("zoom without a button")
            << WindowAction(zoomWindow) << "bare" << QString() << QString() << false << noButton;
        QTest::newRow("close by subrole") << WindowAction(closeWindow) << "buttons"
                                          << "closeButton"
                                          << "AXPress" << false << QStringList();
        QTest::newRow("close without a button")
            << WindowAction(closeWindow) << "bare" << QString() << QString() << false << noButton;
        QTest::newRow("null handle") << WindowAction(closeWindow) << QString() << QString() << QString()
                                     << false << QStringList();
    }

    void titleBarButtons() {
        QFETCH(WindowAction, action);
        QFETCH(QString, window);
        QFETCH(QString, pressed);
        QFETCH(QString, pressedAction);
        QFETCH(bool, minimized);
        QFETCH(QStringList, warnings);
        for (const QString& warning : warnings)
            QTest::ignoreMessage(QtWarningMsg, qPrintable(warning));
        action(window.isNull() ? NativeUIElement() : handleOn(window));
        for (const char* button : {"minimizeButton", "zoomButton", "zoomableButton", "closeButton"}) {
            for (const char* name : {"AXPress", "AXZoomWindow"}) {
                QCOMPARE(desktop->actionCount(button, name),
                         pressed == button && pressedAction == name ? 1 : 0);
            }
        }
        if (!window.isNull())
            QCOMPARE(UIElementAttributeValue(CFTypeSmartRef<AXUIElementRef>(desktop->copyElement(window)),
                                             CFSTR("AXMinimized"))
                         .toBool(),
                     minimized);
    }

    // A zoom button that fails for another reason than a missing action is not pressed again.
    void zoomButtonFailingIsNotPressed() {
        zoomWindow(handleOn("busyZoom"));
        QCOMPARE(desktop->actionCount("busyZoomButton", "AXPress"), 0);
    }
};

UIET_GUI_TEST_MAIN(tst_NativeUIElement)
#include "tst_NativeUIElement.moc"
