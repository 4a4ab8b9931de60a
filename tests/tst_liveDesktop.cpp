// The live desktop provider against a real application (gtk3-widget-factory) on a private
// headless desktop, read through the same functions as the virtual desktop.

#include "liveTestSupport.h"
#include "platformTestSupport.h"
#include "testSupport.h"

#include <atspi/atspi.h>

#include <QFileInfo>
#include <QProcess>

#include <csignal>
#include <functional>

namespace {

const QString factoryProgram = QStringLiteral("gtk3-widget-factory");

bool isShowing(AtspiAccessible* accessible) {
    AtspiStateSet* states = atspi_accessible_get_state_set(accessible);
    const bool showing = states && atspi_state_set_contains(states, ATSPI_STATE_SHOWING);
    if (states)
        g_object_unref(states);
    return showing;
}

// Shown children whose own parent is another element, as the application tells them over the
// bus.
int disagreementsBelow(AtspiAccessible* node, int depth = 0) {
    int count = 0;
    const int size = atspi_accessible_get_child_count(node, nullptr);
    for (int i = 0; i < size; ++i) {
        AtspiAccessible* child = atspi_accessible_get_child_at_index(node, i, nullptr);
        if (child && !isShowing(child)) {
            g_object_unref(child);
            continue;
        }
        if (!child)
            continue;
        AtspiAccessible* parent = atspi_accessible_get_parent(child, nullptr);
        count += parent && qstrcmp(ATSPI_OBJECT(parent)->path, ATSPI_OBJECT(node)->path) == 0 ? 0 : 1;
        if (parent)
            g_object_unref(parent);
        if (depth < 64)
            count += disagreementsBelow(child, depth + 1);
        g_object_unref(child);
    }
    return count;
}

} // namespace

class TestLiveDesktop : public QObject, private LiveDesktopTestBase {
    Q_OBJECT

    QProcess* factory = nullptr;
    pid_t factoryPid = 0;

    int toolkitDisagreements() {
        AtspiAccessible* desktop = atspi_get_desktop(0);
        int count = -1;
        for (int i = 0; i < atspi_accessible_get_child_count(desktop, nullptr); ++i) {
            AtspiAccessible* candidate = atspi_accessible_get_child_at_index(desktop, i, nullptr);
            if (candidate && pid_t(atspi_accessible_get_process_id(candidate, nullptr)) == factoryPid)
                count = disagreementsBelow(candidate);
            if (candidate)
                g_object_unref(candidate);
        }
        g_object_unref(desktop);
        return count;
    }

    int checkState(AXUIElementRef element) {
        return UIElementAttributeValue(element, "AXValue", true).toInt();
    }

private Q_SLOTS:
    void initTestCase() {
        QString problem;
        if (!openSessionForWidgetFactory(&problem))
            QSKIP(qPrintable(problem));
        factory = startWatchedApplication(factoryProgram, "AXRadioButton", "Page 1", &problem);
        QVERIFY2(factory, qPrintable(problem));
        factoryPid = pid_t(factory->processId());
    }

    void cleanupTestCase() { closeSession(); }
    void init() { noteLiveObjects(); }
    void cleanup() { checkLiveObjects(); }

    // At the centre of every shown leaf the full strategy finds what a walk of the tree by frames
    // finds there, or a container of it: GTK answers the platform's hit test itself, mostly down
    // to the leaf, but with the whole table over a tree view's column headers. The platform
    // answered, so no search follows: such a coarse answer stands.
    void theFullStrategyFindsWhatTheFramesSay() {
        QList<AXUIElementRef> elements;
        collectElements(application, &elements);
        int compared = 0;
        int coarse = 0;
        QStringList disagreements;
        for (AXUIElementRef element : std::as_const(elements)) {
            const QRect frame = UIElementRect(element);
            if (UIElementChildrenCount(element) > 0 || frame.width() <= 2 || frame.height() <= 2)
                continue;
            Ref<AXUIElementRef> byFrames(
                recursivelySearchChildrenForLeafElementContainingPoint(application, frame.center(), true, 0));
            UIElementHitTestWay way = UIElementHitTestWay::Nothing;
            Ref<AXUIElementRef> byStrategy(
                copyUIElementAtPositionEmployingSearchIfNecessary(frame.center(), nullptr, &way));
            ++compared;
            coarse += byFrames && byStrategy && !CFEqual(byFrames, byStrategy) ? 1 : 0;
            if (!byFrames || !byStrategy || !UIElementIsSameOrAncestor(byStrategy, byFrames) ||
                way != UIElementHitTestWay::PlatformAnswer)
                disagreements << UIElementDebugInfo(element) + " -> " + UIElementDebugInfo(byStrategy) +
                                     " / " + UIElementDebugInfo(byFrames);
        }
        for (AXUIElementRef element : std::as_const(elements))
            CFRelease(element);
        QVERIFY(compared > 20);
        QVERIFY2(disagreements.isEmpty(), qPrintable(disagreements.join('\n')));
        QVERIFY(coarse < compared / 4);
    }

    void theApplicationIsDescribed() {
        QCOMPARE(UIElementRole(application), QString("AXApplication"));
        QCOMPARE(UIElementPID(application), int(factoryPid));
        const QList<ApplicationInfo> running = activeAccessibilityProvider()->applications();
        const auto found = std::find_if(running.begin(), running.end(),
                                        [&](const ApplicationInfo& info) { return info.pid == factoryPid; });
        QVERIFY(found != running.end());
        // From Debian's /usr/share/applications/gtk3-widget-factory.desktop.
        QCOMPARE(found->bundleIdentifier, QString("gtk3-widget-factory"));
        QCOMPARE(found->name, QString("Widget Factory"));
        QCOMPARE(QFileInfo(found->executablePath).fileName(), factoryProgram);
    }

    // Every element has a role, and every child names its parent, except where the toolkit itself
    // says otherwise (GTK lists a popover among its window's children, while the popover names
    // the widget that it pops from); and the window lies where the window server has it.
    void theTreeAgreesWithItself() {
        QList<AXUIElementRef> elements;
        collectElements(application, &elements);
        int children = 0;
        int disagreements = 0;
        int withoutRole = 0;
        int miscounted = 0;
        for (AXUIElementRef element : std::as_const(elements)) {
            withoutRole += UIElementRole(element).isEmpty() ? 1 : 0;
            Ref<CFArrayRef> listed(static_cast<CFArrayRef>(copyAttributeNamed(element, "AXChildren")));
            miscounted += UIElementChildrenCount(element) == (listed ? CFArrayGetCount(listed) : 0) ? 0 : 1;
            for (CFIndex i = 0; listed && i < CFArrayGetCount(listed); ++i) {
                Ref<CFTypeRef> parent(copyAttributeNamed(
                    static_cast<AXUIElementRef>(CFArrayGetValueAtIndex(listed, i)), "AXParent"));
                ++children;
                disagreements += parent && CFEqual(parent, element) ? 0 : 1;
            }
        }
        for (AXUIElementRef element : std::as_const(elements))
            CFRelease(element);
        QVERIFY(elements.size() > 100);
        QCOMPARE(withoutRole, 0);
        QCOMPARE(miscounted, 0);
        QCOMPARE(disagreements, toolkitDisagreements());
        QVERIFY(disagreements < children / 10);

        Ref<CFArrayRef> windows(static_cast<CFArrayRef>(copyAttributeNamed(application, "AXWindows")));
        QVERIFY(windows && CFArrayGetCount(windows) >= 1);
        const QRect windowFrame =
            UIElementRect(static_cast<AXUIElementRef>(CFArrayGetValueAtIndex(windows, 0)));
        QList<WindowInfo> serverWindows;
        QCOMPARE(activeAccessibilityProvider()->windowList(&serverWindows), kCGErrorSuccess);
        bool matched = false;
        for (const WindowInfo& window : serverWindows)
            matched = matched ||
                      (window.owner == factoryPid &&
                       QRect(int(window.frame.origin.x), int(window.frame.origin.y),
                             int(window.frame.size.width), int(window.frame.size.height)) == windowFrame);
        QVERIFY2(matched, "the accessible window's frame is not that of a window of the application");
    }

    // A batch of reads answers what the reads one by one answer.
    void aBatchOfReadsAnswersAsSingleReads() {
        const QStringList single = describeTree(application, false);
        QVERIFY(single.size() > 100);
        QCOMPARE(describeTree(application, true), single);
        // Again, with the names of roles and the accessible ids that the first batch kept.
        QCOMPARE(describeTree(application, true), single);
    }

    void rolesAndTitles_data() {
        QTest::addColumn<QString>("role");
        QTest::addColumn<QString>("title");
        QTest::addColumn<QString>("subrole");
        // ATK's names of the roles, in the C locale of the test desktop; one role's name must
        // never answer for another's.
        QTest::addColumn<QString>("roleDescription");
        QTest::newRow("stack switcher") << "AXRadioButton"
                                        << "Page 1"
                                        << ""
                                        << "radio button";
        QTest::newRow("toggle button") << "AXCheckBox"
                                       << "Menu"
                                       << "AXToggle"
                                       << "toggle button";
        QTest::newRow("header bar button") << "AXButton"
                                           << "Close"
                                           << "AXCloseButton"
                                           << "push button";
    }

    void rolesAndTitles() {
        QFETCH(QString, role);
        QFETCH(QString, title);
        QFETCH(QString, subrole);
        Ref<AXUIElementRef> element(find(role, title));
        QVERIFY(element);
        QCOMPARE(UIElementGetStringAttribute(element, CFSTR("AXSubrole")), subrole);
        QTEST(UIElementGetStringAttribute(element, CFSTR("AXRoleDescription")), "roleDescription");
        const QRect frame = UIElementRect(element);
        QVERIFY(frame.width() > 0 && frame.height() > 0);
        QVERIFY(UIElementActionNames(element).contains("AXPress"));
    }

    void pressingChangesTheValue() {
        Ref<AXUIElementRef> first(find("AXRadioButton", "Page 1"));
        Ref<AXUIElementRef> second(find("AXRadioButton", "Page 2"));
        QVERIFY(first && second);
        QCOMPARE(checkState(first), 1);
        QCOMPARE(checkState(second), 0);
        Ref<CFStringRef> press(createAXName("AXPress"));
        QCOMPARE(AXUIElementPerformAction(second, press), kAXErrorSuccess);
        QVERIFY(LiveDesktopSession::waitUntil([&] { return checkState(second) == 1; }));
        QCOMPARE(checkState(first), 0);
        QCOMPARE(AXUIElementPerformAction(first, press), kAXErrorSuccess);
        QVERIFY(LiveDesktopSession::waitUntil([&] { return checkState(first) == 1; }));
    }

    void theElementAtAPointIsTheOneThere() {
        Ref<AXUIElementRef> target(find("AXRadioButton", "Page 3"));
        QVERIFY(target);
        const QRect frame = UIElementRect(target);
        Ref<AXUIElementRef> systemWide(AXUIElementCreateSystemWide());
        Ref<AXUIElementRef> hit;
        QCOMPARE(AXUIElementCopyElementAtPosition(systemWide, float(frame.center().x()),
                                                  float(frame.center().y()), hit.out()),
                 kAXErrorSuccess);
        // The hit is the button or lies inside it.
        CFTypeRef current = CFRetain(hit);
        bool inside = false;
        for (int depth = 0; current && depth < 64 && !inside; ++depth) {
            inside = CFEqual(current, target);
            CFTypeRef above = copyAttributeNamed(static_cast<AXUIElementRef>(current), "AXParent");
            CFRelease(current);
            current = above;
        }
        if (current)
            CFRelease(current);
        QVERIFY2(inside, qPrintable(UIElementDebugInfo(hit)));
    }

    void aTextFieldTakesAValue() {
        Ref<CFStringRef> value(createAXName("AXValue"));
        Ref<AXUIElementRef> field(findElement(application, [&](AXUIElementRef element) {
            Boolean settable = false;
            return UIElementRole(element) == "AXTextField" &&
                   AXUIElementIsAttributeSettable(element, value, &settable) == kAXErrorSuccess && settable;
        }));
        QVERIFY(field);
        Ref<CFStringRef> text(CFStringCreateWithQString("typed by the test"));
        QCOMPARE(AXUIElementSetAttributeValue(field, value, text), kAXErrorSuccess);
        QCOMPARE(UIElementAttributeValue(field, "AXValue").toString(), QString("typed by the test"));
    }

    // What the user cannot see is not in the tree: a closed menu's items, a popover's content.
    // Pressing the button that opens them lists them; pressing it again takes them away.
    void onlyWhatIsShownIsListed_data() {
        QTest::addColumn<QString>("openerRole");
        QTest::addColumn<QString>("openerTitle");
        QTest::addColumn<QString>("shownRole");
        QTest::addColumn<QString>("shownTitle");
        QTest::newRow("combo box menu") << "AXPopUpButton"
                                        << "Left"
                                        << "AXMenuItem"
                                        << "Middle";
        QTest::newRow("popover of the header bar") << "AXCheckBox"
                                                   << "Menu"
                                                   << "AXButton"
                                                   << "Get Busy";
    }

    void onlyWhatIsShownIsListed() {
        QFETCH(QString, openerRole);
        QFETCH(QString, openerTitle);
        QFETCH(QString, shownRole);
        QFETCH(QString, shownTitle);
        Ref<AXUIElementRef> opener(find(openerRole, openerTitle));
        QVERIFY(opener);
        const auto shown = [&] {
            Ref<AXUIElementRef> element(find(shownRole, shownTitle));
            return element != nullptr;
        };
        QVERIFY(!shown());
        Ref<CFStringRef> press(createAXName("AXPress"));
        QCOMPARE(AXUIElementPerformAction(opener, press), kAXErrorSuccess);
        QVERIFY(LiveDesktopSession::waitUntil(shown));
        QCOMPARE(AXUIElementPerformAction(opener, press), kAXErrorSuccess);
        QVERIFY(LiveDesktopSession::waitUntil([&] { return !shown(); }));
    }

    // A notebook shows the page of its selected tab only.
    void anUnselectedTabHasNoPage() {
        Ref<AXUIElementRef> selected(find("AXRadioButton", "page 1"));
        Ref<AXUIElementRef> unselected(find("AXRadioButton", "page 2"));
        QVERIFY(selected && unselected);
        QCOMPARE(UIElementGetStringAttribute(unselected, CFSTR("AXSubrole")), QString("AXTabButton"));
        QCOMPARE(UIElementChildrenCount(selected), 1L);
        QCOMPARE(UIElementChildrenCount(unselected), 0L);
        Ref<CFArrayRef> children(static_cast<CFArrayRef>(copyAttributeNamed(unselected, "AXChildren")));
        QVERIFY(children);
        QCOMPARE(CFArrayGetCount(children), CFIndex(0));
    }

    // GTK draws the header bar's window controls itself; they are the window's title-bar buttons,
    // by attribute and by subrole.
    void theHeaderBarHasTheTitleBarButtons_data() {
        QTest::addColumn<QString>("attribute");
        QTest::addColumn<QString>("title");
        QTest::newRow("minimize") << "AXMinimizeButton"
                                  << "Minimize";
        QTest::newRow("zoom") << "AXZoomButton"
                              << "Maximize";
        QTest::newRow("close") << "AXCloseButton"
                               << "Close";
    }

    void theHeaderBarHasTheTitleBarButtons() {
        QFETCH(QString, attribute);
        QFETCH(QString, title);
        Ref<CFTypeRef> window(copyAttributeNamed(application, "AXMainWindow"));
        QVERIFY(window);
        const auto windowElement = static_cast<AXUIElementRef>(CFTypeRef(window));
        Ref<CFArrayRef> names;
        QCOMPARE(AXUIElementCopyAttributeNames(windowElement, names.out()), kAXErrorSuccess);
        Ref<CFStringRef> attributeName(CFStringCreateWithQString(attribute));
        QVERIFY(CFArrayContainsValue(names, CFRangeMake(0, CFArrayGetCount(names)), attributeName));
        Ref<CFTypeRef> button(copyAttributeNamed(windowElement, qPrintable(attribute)));
        QVERIFY(button);
        const auto buttonElement = static_cast<AXUIElementRef>(CFTypeRef(button));
        QCOMPARE(UIElementRole(buttonElement), QString("AXButton"));
        QCOMPARE(UIElementTitle(buttonElement), title);
        QVERIFY(UIElementRect(buttonElement).isValid());
        Ref<AXUIElementRef> bySubrole(findElement(windowElement, [&](AXUIElementRef element) {
            return UIElementGetStringAttribute(element, CFSTR("AXSubrole")) == attribute;
        }));
        QVERIFY(bySubrole && CFEqual(bySubrole, button));
        // A button of the same name elsewhere is no title-bar button.
        Ref<AXUIElementRef> other(find("AXButton", "Sans Regular"));
        QVERIFY(other);
        QCOMPARE(UIElementGetStringAttribute(other, CFSTR("AXSubrole")), QString());
    }

    // The window server minimizes, restores and raises the window; no window manager runs here.
    void theWindowMinimizesAndComesBack() {
        Ref<CFTypeRef> window(copyAttributeNamed(application, "AXMainWindow"));
        QVERIFY(window);
        const auto windowElement = static_cast<AXUIElementRef>(CFTypeRef(window));
        Ref<CFStringRef> minimized(createAXName("AXMinimized"));
        Boolean settable = false;
        QCOMPARE(AXUIElementIsAttributeSettable(windowElement, minimized, &settable), kAXErrorSuccess);
        QVERIFY(settable);
        QCOMPARE(AXUIElementSetAttributeValue(windowElement, minimized, kCFBooleanTrue), kAXErrorSuccess);
        QVERIFY(LiveDesktopSession::waitUntil(
            [&] { return UIElementAttributeValue(windowElement, "AXMinimized") == QVariant(true); }));
        // Still the application's window, minimized.
        QCOMPARE(UIElementChildrenCount(application), 1L);
        QCOMPARE(AXUIElementSetAttributeValue(windowElement, minimized, kCFBooleanFalse), kAXErrorSuccess);
        QVERIFY(LiveDesktopSession::waitUntil(
            [&] { return UIElementAttributeValue(windowElement, "AXMinimized") == QVariant(false); }));
        QVERIFY(UIElementActionNames(windowElement).contains("AXRaise"));
        Ref<CFStringRef> raise(createAXName("AXRaise"));
        QCOMPARE(AXUIElementPerformAction(windowElement, raise), kAXErrorSuccess);
        QVERIFY(LiveDesktopSession::waitUntil(
            [&] { return UIElementAttributeValue(windowElement, "AXMain") == QVariant(true); }));
    }

    // A hung application fails reads with kAXErrorCannotComplete and is asked again once it is
    // back.
    void aHungApplicationCannotComplete() {
        Ref<AXUIElementRef> button(find("AXButton", "Close"));
        QVERIFY(button);
        Ref<CFStringRef> title(createAXName("AXTitle"));
        ::kill(factoryPid, SIGSTOP);
        CFTypeRef value = nullptr;
        QCOMPARE(AXUIElementCopyAttributeValue(button, title, &value), kAXErrorCannotComplete);
        QCOMPARE(AXUIElementCopyAttributeValue(button, title, &value), kAXErrorCannotComplete);
        ::kill(factoryPid, SIGCONT);
        QVERIFY(LiveDesktopSession::waitUntil([&] { return UIElementTitle(button) == "Close"; }));
    }

    // Within a batch of reads too, and what it read before the hang is not kept.
    void aHungApplicationCannotCompleteABatch() {
        Ref<AXUIElementRef> button(find("AXButton", "Close"));
        QVERIFY(button);
        ::kill(factoryPid, SIGSTOP);
        {
            const AXReadBatch batch;
            AXError error = kAXErrorSuccess;
            QVERIFY(!copyAttributeNamed(application, "AXChildren", &error));
            QCOMPARE(error, kAXErrorCannotComplete);
            QVERIFY(!copyAttributeNamed(button, "AXTitle", &error));
            QCOMPARE(error, kAXErrorCannotComplete);
        }
        ::kill(factoryPid, SIGCONT);
        QVERIFY(LiveDesktopSession::waitUntil([&] {
            const AXReadBatch batch;
            Ref<CFArrayRef> windows(static_cast<CFArrayRef>(copyAttributeNamed(application, "AXChildren")));
            return windows && CFArrayGetCount(windows) > 0 && UIElementTitle(button) == "Close";
        }));
    }

    // Last: the application quits, and its elements fail as gone ones do.
    void aQuitApplicationIsGone() {
        Ref<AXUIElementRef> button(find("AXButton", "Close"));
        QVERIFY(button);
        factory->kill();
        QVERIFY(factory->waitForFinished());
        Ref<CFStringRef> title(createAXName("AXTitle"));
        CFTypeRef value = nullptr;
        QVERIFY(LiveDesktopSession::waitUntil([&] {
            return AXUIElementCopyAttributeValue(button, title, &value) == kAXErrorInvalidUIElement;
        }));
        QCOMPARE(UIElementTitle(button), QString());
        QCOMPARE(UIElementRect(button), QRect());
        QCOMPARE(AXUIElementCopyAttributeValue(application, title, &value), kAXErrorInvalidUIElement);
        const QList<ApplicationInfo> running = activeAccessibilityProvider()->applications();
        QVERIFY(std::none_of(running.begin(), running.end(),
                             [&](const ApplicationInfo& info) { return info.pid == factoryPid; }));
    }
};

UIET_TEST_MAIN(TestLiveDesktop)
#include "tst_liveDesktop.moc"
