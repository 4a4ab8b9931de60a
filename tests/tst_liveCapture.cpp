// Capture on the live desktop: elements of a GTK 3 application (gtk3-widget-factory) and of our
// Qt fixture (liveFixtureApp), captured at a point and from a handle, each checked level by level
// against the path that a walk down from the application finds; the content of a GTK popover,
// whose parent does not list it; and captures saved, loaded and compared.

#include "liveTestSupport.h"
#include "logCapture.h"
#include "platformTestSupport.h"
#include "testSupport.h"

#include "UIElement.h"
#include "dataObjectSerialization.h"

#include <QProcess>

namespace {

using SharedElement = CFTypeSharedRef<AXUIElementRef>;
using Path = QList<SharedElement>;

// Walks down through AXChildren to the nth element (depth first) of this role and title: the
// path from the start, start first. False, with the path back at its length, when there is none.
bool walkTo(Path& path, const QString& role, const QString& title, int& nth) {
    if (path.size() > 1 && UIElementRole(path.last()) == role && UIElementTitle(path.last()) == title &&
        nth-- == 0)
        return true;
    Ref<CFArrayRef> children(copyUIElementChildren(path.last()));
    for (CFIndex i = 0; i < CFArrayGetCount(children); ++i) {
        path.append(SharedElement(static_cast<AXUIElementRef>(CFArrayGetValueAtIndex(children, i))));
        if (walkTo(path, role, title, nth))
            return true;
        path.removeLast();
    }
    return false;
}

// The position among the parent's children, and among those with the same role.
QPair<int, int> positionOf(AXUIElementRef element, AXUIElementRef parent) {
    Ref<CFArrayRef> siblings(copyUIElementChildren(parent));
    const int index =
        int(CFArrayGetFirstIndexOfValue(siblings, CFRangeMake(0, CFArrayGetCount(siblings)), element));
    int roleIndex = 0;
    for (int i = 0; i < index; ++i)
        if (UIElementRole(static_cast<AXUIElementRef>(CFArrayGetValueAtIndex(siblings, i))) ==
            UIElementRole(element))
            ++roleIndex;
    return {index, index < 0 ? -1 : roleIndex};
}

NativeUIElement handleOn(AXUIElementRef element, QPoint point) {
    NativeUIElement handle;
    handle.setOSSpecificElementReference(const_cast<void*>(CFRetain(element)));
    handle.setScreenPosition(point);
    return handle;
}

// A capture is sound, and each of its levels is the element at that depth of the path.
void compareWithPath(const UIElement_p& captured, const Path& path, const QString& bundleId) {
    QVERIFY(!captured.isNull() && !captured.isDegenerate());
    QCOMPARE(captured.hierarchySize(), path.size());
    QList<const UIElement_p*> chain;
    captured.topDownElementList(chain);
    QVERIFY(chain.first()->isTopLevelApplicationElement());
    QCOMPARE(chain.first()->definingAttributes(), QStringList{"bundleId"});
    for (int level = 0; level < path.size(); ++level) {
        const UIElement_p* described = chain.at(level);
        const QRect frame = UIElementRect(path.at(level));
        QCOMPARE(described->bundleId(), bundleId);
        QCOMPARE(described->role(), UIElementRole(path.at(level)));
        QCOMPARE(described->title(), UIElementTitle(path.at(level)));
        QCOMPARE(described->screenRect(), frame);
        const QPair<int, int> position =
            level == 0 ? qMakePair(-1, -1) : positionOf(path.at(level), path.at(level - 1));
        QCOMPARE(described->childIndex(), position.first);
        QCOMPARE(described->matchingRoleChildIndex(), position.second);
        const QRect parentFrame = level == 0 ? QRect() : UIElementRect(path.at(level - 1));
        QCOMPARE(described->localRect(),
                 parentFrame.isNull() ? frame : frame.translated(-parentFrame.topLeft()));
    }
}

} // namespace

class TestLiveCapture : public QObject, private LiveDesktopTestBase {
    Q_OBJECT

    QProcess* fixture = nullptr;
    AXUIElementRef fixtureApplication = nullptr;

    // The row's element (or its child at `child`) and the path down to it, or an empty path.
    Path pathOfRow() {
        QFETCH(QString, bundleId);
        QFETCH(QString, role);
        QFETCH(QString, title);
        QFETCH(int, nth);
        QFETCH(int, child);
        Path path{SharedElement(bundleId == "liveFixtureApp" ? fixtureApplication : application)};
        if (!walkTo(path, role, title, nth))
            return {};
        if (child >= 0) {
            Ref<CFArrayRef> children(copyUIElementChildren(path.last()));
            if (child >= CFArrayGetCount(children))
                return {};
            path.append(SharedElement(static_cast<AXUIElementRef>(CFArrayGetValueAtIndex(children, child))));
        }
        return path;
    }

private Q_SLOTS:
    void initTestCase() {
        QString problem;
        if (!openSessionForWidgetFactory(&problem))
            QSKIP(qPrintable(problem));
        QVERIFY2(startWatchedApplication("gtk3-widget-factory", "AXRadioButton", "Page 1", &problem),
                 qPrintable(problem));
        fixture = session->startApplication(UIET_LIVE_FIXTURE_APP);
        QVERIFY(fixture && fixture->waitForStarted());
        fixtureApplication = AXUIElementCreateApplication(pid_t(fixture->processId()));
        QVERIFY(LiveDesktopSession::waitUntil([&] {
            Ref<AXUIElementRef> tool(findElement(fixtureApplication, "AXButton", "Tool Button"));
            return tool != nullptr;
        }));
    }

    void cleanupTestCase() {
        if (fixtureApplication)
            CFRelease(fixtureApplication);
        closeSession();
    }
    void init() { noteLiveObjects(); }
    void cleanup() { checkLiveObjects(); }

    // Rows: the application's bundle id, and in it the nth element (depth first) of a role and
    // title, or its child at `child`; `atPoint` where hit testing at its centre reaches it.
    static void addRow(const char* name, const char* bundleId, const char* role, const char* title,
                       int nth = 0, int child = -1, bool atPoint = true) {
        QTest::newRow(name) << QString(bundleId) << QString(role) << QString(title) << nth << child
                            << atPoint;
    }

    void capture_data() {
        QTest::addColumn<QString>("bundleId");
        QTest::addColumn<QString>("role");
        QTest::addColumn<QString>("title");
        QTest::addColumn<int>("nth");
        QTest::addColumn<int>("child");
        QTest::addColumn<bool>("atPoint");
        const char* gtk = "gtk3-widget-factory";
        const char* qt = "liveFixtureApp";
        addRow("gtk button", gtk, "AXButton", "link button");
        addRow("gtk check box, third of six", gtk, "AXCheckBox", "checkbutton", 2);
        // After the entries of two combo boxes and the search entry.
        addRow("gtk entry", gtk, "AXTextField", "", 3);
        addRow("gtk header-bar button", gtk, "AXButton", "Minimize");
        addRow("gtk notebook tab", gtk, "AXRadioButton", "page 2");
        // A notebook page is the child of its tab, though it lies outside the tab's frame: hit
        // testing stops at the notebook.
        addRow("gtk notebook page", gtk, "AXRadioButton", "page 1", 0, 0, false);
        addRow("gtk table cell", gtk, "AXCell", "Otto");
        addRow("qt push button", qt, "AXButton", "Apply");
        addRow("qt line edit", qt, "AXTextField", "Name");
        addRow("qt tab page", qt, "AXButton", "First Page Button");
        addRow("qt second window", qt, "AXButton", "Tool Button");
    }

    // At a point and from a handle at another point of it, the element is captured with a sound
    // chain that follows the tree, found from below without a full search; both are equal.
    void capture() {
        QFETCH(QString, bundleId);
        QFETCH(bool, atPoint);
        const Path path = pathOfRow();
        QVERIFY(!path.isEmpty());
        const QRect frame = UIElementRect(path.last());
        // The applications' windows overlap, and the one in front is the one hit. Raised, its window
        // is active, and stays so for both captures, which read its state.
        Ref<CFStringRef> raise(createAXName("AXRaise"));
        QCOMPARE(AXUIElementPerformAction(path.at(1), raise), kAXErrorSuccess);
        QVERIFY(LiveDesktopSession::waitUntil([&] {
            return pidOfWindowContainingPoint(frame.center().x(), frame.center().y()) ==
                       UIElementPID(path.first()) &&
                   UIElementAttributeValue(path.at(1), "AXMain", true) == QVariant(true);
        }));
        std::unique_ptr<UIElement_p> fromHandle;
        QCOMPARE(logOf([&] {
                     fromHandle =
                         std::make_unique<UIElement_p>(handleOn(path.last(), frame.topLeft() + QPoint(1, 1)));
                 }),
                 QStringList());
        compareWithPath(*fromHandle, path, bundleId);
        if (QTest::currentTestFailed() || !atPoint)
            return;
        const UIElement_p atCentre(frame.center());
        compareWithPath(atCentre, path, bundleId);
        if (QTest::currentTestFailed())
            return;
        QCOMPARE(atCentre.screenInteractionPoint(), frame.center());
        QVERIFY(atCentre.isEqualToElement(fromHandle.get()));
    }

    void roundTrip_data() { capture_data(); }

    // Saved and loaded back, a capture is the same description; another element's is not.
    void roundTrip() {
        const Path path = pathOfRow();
        QVERIFY(!path.isEmpty());
        UIElementCollection saved;
        auto* element = new UIElement(handleOn(path.last(), UIElementRect(path.last()).center()));
        saved.setElements({element});
        UIElementCollection loaded;
        deserializeObjectFromByteArray(&loaded, serializeObjectToByteArray(&saved));
        QCOMPARE(loaded.elements().size(), 1);
        const UIElement_p* copy = loaded.elements().first()->platformSpecificEntity();
        QCOMPARE(copy->hierarchySize(), path.size());
        QVERIFY(copy->isEqualToElement(element->platformSpecificEntity()));

        // Another element: a sibling, of the same role where there is one; for an only child, the parent.
        const QString role = UIElementRole(path.last());
        AXUIElementRef other = nullptr;
        Ref<CFArrayRef> siblings(copyUIElementChildren(path.at(path.size() - 2)));
        for (CFIndex i = 0; i < CFArrayGetCount(siblings); ++i) {
            const auto sibling = static_cast<AXUIElementRef>(CFArrayGetValueAtIndex(siblings, i));
            if (!CFEqual(sibling, path.last()) &&
                (!other || (UIElementRole(other) != role && UIElementRole(sibling) == role)))
                other = sibling;
        }
        if (!other)
            other = path.at(path.size() - 2);
        const UIElement_p different(handleOn(other, UIElementRect(other).center()));
        QVERIFY(!different.isNull());
        QVERIFY(!different.isEqualToElement(element->platformSpecificEntity()));
    }

    // A popover names the widget it pops from as its parent, which does not list it: its content is
    // found by the full search from the top, and the chain follows the path from the top.
    void popoverContentIsFoundFromTheTop() {
        Ref<AXUIElementRef> opener(find("AXCheckBox", "Menu"));
        QVERIFY(opener);
        Ref<CFStringRef> press(createAXName("AXPress"));
        QCOMPARE(AXUIElementPerformAction(opener, press), kAXErrorSuccess);
        // It slides in: the same frame at three polls in a row is where it stays.
        Path path;
        QRect frame;
        int steady = 0;
        QVERIFY(LiveDesktopSession::waitUntil([&] {
            int nth = 0;
            path = {SharedElement(application)};
            const QRect now =
                walkTo(path, "AXButton", "Get Busy", nth) ? UIElementRect(path.last()) : QRect();
            steady = !now.isNull() && now == frame ? steady + 1 : 0;
            frame = now;
            return steady == 2;
        }));
        QTest::ignoreMessage(QtDebugMsg, qPrintable("Note: UI element appears degenerate: " +
                                                    UIElementDebugInfo(path.last())));
        QTest::ignoreMessage(
            QtDebugMsg, "...performing full search of app UI element hierarchy. This could take a while!");
        QTest::ignoreMessage(QtDebugMsg, "...full search succeeded. UI element is not degenerate.");
        const UIElement_p captured(handleOn(path.last(), frame.center()));
        compareWithPath(captured, path, "gtk3-widget-factory");
        // Hit testing enters the popover, which lies over the widgets of the window beneath it.
        const UIElement_p atPoint(frame.center());
        QVERIFY(atPoint.isEqualToElement(&captured));
        QCOMPARE(AXUIElementPerformAction(opener, press), kAXErrorSuccess);
        QVERIFY(LiveDesktopSession::waitUntil([&] {
            Ref<AXUIElementRef> gone(find("AXButton", "Get Busy"));
            return gone == nullptr;
        }));
    }
};

UIET_TEST_MAIN(TestLiveCapture)
#include "tst_liveCapture.moc"
