// The hierarchy walks and the window lookups of the accessibility layer on a real GTK application
// (gtk3-widget-factory) on a private headless desktop: ancestor lists found from above and from
// below, the window of every element by attributes and by window id, the window at a point,
// focus, and the title bar acting on the real window. The focus and title-bar tests run again,
// with a window manager, in a second run of this program.

#include "liveTestSupport.h"
#include "platformTestSupport.h"
#include "testSupport.h"

#include "NativeUIElement.h"
#include "windows.h"

#include <QProcess>

namespace {

const QString factoryProgram = QStringLiteral("gtk3-widget-factory");

using SharedElement = CFTypeSharedRef<AXUIElementRef>;

// Every element of the tree below root, root included.
QList<SharedElement> elementsBelow(AXUIElementRef root) {
    QList<AXUIElementRef> owned;
    collectElements(root, &owned);
    QList<SharedElement> elements{SharedElement(root)};
    for (AXUIElementRef element : std::as_const(owned)) {
        elements.append(SharedElement(element));
        CFRelease(element);
    }
    return elements;
}

bool lists(AXUIElementRef parent, AXUIElementRef child) {
    Ref<CFArrayRef> children(copyUIElementChildren(parent));
    return CFArrayContainsValue(children, CFRangeMake(0, CFArrayGetCount(children)), child);
}

QPoint centreOf(AXUIElementRef element) {
    return UIElementRect(element).center();
}

NativeUIElement handleOn(AXUIElementRef element) {
    NativeUIElement handle;
    handle.setOSSpecificElementReference(const_cast<void*>(CFRetain(element)));
    return handle;
}

} // namespace

class TestLiveWindows : public QObject, private LiveDesktopTestBase {
    Q_OBJECT

    QProcess* factory = nullptr;
    pid_t factoryPid = 0;

    // The application's one window, owned by the caller.
    AXUIElementRef copyMainWindow() {
        Ref<CFArrayRef> windows(static_cast<CFArrayRef>(copyAttributeNamed(application, "AXWindows")));
        if (!windows || CFArrayGetCount(windows) != 1)
            return nullptr;
        return static_cast<AXUIElementRef>(CFRetain(CFArrayGetValueAtIndex(windows, 0)));
    }

    bool isMinimized(AXUIElementRef window) {
        return UIElementAttributeValue(window, "AXMinimized", true).toBool();
    }

private Q_SLOTS:
    void initTestCase() {
        QString problem;
        if (!openSessionForWidgetFactory(&problem, liveWindowManager()))
            QSKIP(qPrintable(problem));
        factory = startWatchedApplication(factoryProgram, "AXRadioButton", "Page 1", &problem);
        QVERIFY2(factory, qPrintable(problem));
        factoryPid = pid_t(factory->processId());
    }

    void cleanupTestCase() { closeSession(); }
    void init() { noteLiveObjects(); }
    void cleanup() { checkLiveObjects(); }

    // The list built by climbing through verified parents is the one found by searching from the
    // top, wherever the climb reaches the application; where it does not, the toolkit's parent
    // does not list the element.
    void ancestorListsAgree() {
        int climbed = 0;
        for (const SharedElement& element : elementsBelow(application)) {
            UIElementAncestorList fromTop;
            QVERIFY(searchTopDownForElementAndBuildAncestorList(element, fromTop));
            UIElementAncestorList fromBelow;
            if (searchBottomUpForElementAndBuildAncestorList(element, fromBelow, false)) {
                QCOMPARE(fromBelow, fromTop);
                ++climbed;
                continue;
            }
            const AXUIElementRef stuck = fromBelow.isEmpty() ? element.get() : fromBelow.first().get();
            Ref<AXUIElementRef> reported(copyUIElementParent(stuck));
            QVERIFY(!reported || !lists(reported, stuck));
        }
        QVERIFY(climbed > 100);
    }

    // A popover names the widget it pops from as its parent, which does not list it: its content
    // is found from the top, but not confirmed from below.
    void aPopoverIsNotReachableFromBelow() {
        Ref<AXUIElementRef> opener(find("AXCheckBox", "Menu"));
        QVERIFY(opener);
        Ref<CFStringRef> press(createAXName("AXPress"));
        QCOMPARE(AXUIElementPerformAction(opener, press), kAXErrorSuccess);
        Ref<AXUIElementRef> busy;
        QVERIFY(LiveDesktopSession::waitUntil([&] {
            *busy.out() = find("AXButton", "Get Busy");
            return busy != nullptr;
        }));
        UIElementAncestorList ancestors;
        QVERIFY(searchTopDownForElementAndBuildAncestorList(busy, ancestors));
        QVERIFY(!searchBottomUpForElementAndBuildAncestorList(busy, ancestors, false));
        QVERIFY(!elementIsReachableFromTop(busy));
        QVERIFY(!UIElementIsNotRootedInApplication(busy));
        Ref<AXUIElementRef> farthest(copyFarthestVerifiableAncestor(busy, false));
        QVERIFY(farthest && !isTopLevelElement(farthest));
        QCOMPARE(AXUIElementPerformAction(opener, press), kAXErrorSuccess);
        QVERIFY(LiveDesktopSession::waitUntil([&] {
            Ref<AXUIElementRef> gone(find("AXButton", "Get Busy"));
            return gone == nullptr;
        }));
    }

    // Every element of the window names the same window by attributes and by window id.
    void bothWindowLookupsAgree() {
        Ref<AXUIElementRef> window(copyMainWindow());
        QVERIFY(window);
        int checked = 0;
        for (const SharedElement& element : elementsBelow(window)) {
            Ref<AXUIElementRef> byAttributes(copyUIElementWindow(element));
            Ref<AXUIElementRef> byWindowId(copyUIElementWindowUsingPrivateAPI(element));
            QVERIFY2(byAttributes && CFEqual(byAttributes, window), qPrintable(UIElementDebugInfo(element)));
            QVERIFY2(byWindowId && CFEqual(byWindowId, window), qPrintable(UIElementDebugInfo(element)));
            QCOMPARE(UIElementsHaveSameWindow(element, window), 1);
            ++checked;
        }
        QVERIFY(checked > 100);
        Ref<AXUIElementRef> none(copyUIElementWindow(application));
        QVERIFY(!none);
    }

    void theWindowAtAPoint() {
        Ref<AXUIElementRef> window(copyMainWindow());
        Ref<AXUIElementRef> page(find("AXRadioButton", "Page 1"));
        QVERIFY(window && page);
        const QPoint point = centreOf(page);
        Ref<AXUIElementRef> plain(copyWindowContainingPoint(point));
        Ref<AXUIElementRef> byWindowServer(copyWindowContainingPointUsingPrivateAPIs(point));
        QVERIFY(plain && CFEqual(plain, window));
        QVERIFY(byWindowServer && CFEqual(byWindowServer, window));
        QCOMPARE(pidOfWindowContainingPoint(point.x(), point.y()), int(factoryPid));
        QCOMPARE(rectOfWindowContainingPoint(point.x(), point.y()), UIElementRect(window));
        // Beyond the screen there is no window.
        QVERIFY(!Ref<AXUIElementRef>(copyWindowContainingPointRobustly(QPoint(-50, -50))));
        QCOMPARE(pidOfWindowContainingPoint(-50, -50), 0);
        QCOMPARE(rectOfWindowContainingPoint(-50, -50), QRect());
    }

    void focus() {
        Ref<AXUIElementRef> window(copyMainWindow());
        QVERIFY(window);
        int pid = 0;
        const int result = activateWindow(window, pid);
        QVERIFY(result == 0 || result == 2);
        QVERIFY(LiveDesktopSession::waitUntil([&] { return isWindowFocused(window); }));
        QCOMPARE(activateWindow(window, pid), 2);
        const NativeUIElement focused = focusedWindow();
        QVERIFY(focused == handleOn(window));
    }

    // GTK draws the buttons of its header bar itself; pressed, they act through the window manager,
    // or without one directly on the window, where only maximizing is not to be had.
    void theTitleBarActsOnTheWindow() {
        Ref<AXUIElementRef> window(copyMainWindow());
        QVERIFY(window);
        const NativeUIElement handle = handleOn(window);
        minimizeWindow(handle);
        QVERIFY(LiveDesktopSession::waitUntil([&] { return isMinimized(window); }));
        QCOMPARE(AXUIElementSetAttributeValue(window, CFSTR("AXMinimized"), kCFBooleanFalse),
                 kAXErrorSuccess);
        QVERIFY(LiveDesktopSession::waitUntil([&] { return !isMinimized(window); }));

        // Maximized, the window takes the screen: it may grow or shrink to it.
        if (underOpenbox()) {
            const QRect before = UIElementRect(window);
            zoomWindow(handle);
            QVERIFY(LiveDesktopSession::waitUntil([&] { return UIElementRect(window) != before; }));
            zoomWindow(handle);
            QVERIFY(LiveDesktopSession::waitUntil([&] { return UIElementRect(window) == before; }));
        }

        // Last: the window closes, and the application with it.
        closeWindow(handle);
        QVERIFY(LiveDesktopSession::waitUntil([&] { return factory->state() == QProcess::NotRunning; }));
    }

    void withAWindowManager() {
        runAgainWithAWindowManager({QStringLiteral("focus"), QStringLiteral("theTitleBarActsOnTheWindow")});
    }
};

UIET_TEST_MAIN(TestLiveWindows)
#include "tst_liveWindows.moc"
