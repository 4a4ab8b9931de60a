#include "platformTestSupport.h"
#include "testSupport.h"

#include "CFTypeSmartRef.h"
#include "logCapture.h"
#include "osxUIElementUtils.h"

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

// The trees of hierarchy-desktop.json reproduce what applications really report: "skipped" names
// its grandparent as parent, nobody lists "strayGroup", "recentTwin" is a second handle on the
// menu item "recentItem", "embedded" names a parent in another process, "detached" cannot read its
// parent, and the window of "looper" holds a node that lists itself and a cycle through "AXParent".

namespace {

using ElementRef = CFTypeSmartRef<AXUIElementRef>;

// Runs work expecting these lines at this level, whatever else it logs.
void expectAtLevel(QtMsgType level, const QStringList& lines, const std::function<void()>& work) {
    for (const QString& line : lines)
        QTest::ignoreMessage(level, line.toUtf8().constData());
    work();
}

struct Visits {
    UIElementAncestorList seen;
    AXUIElementRef target = nullptr;
};

bool recordVisit(AXUIElementRef element, void* context) {
    auto* visits = static_cast<Visits*>(context);
    visits->seen.append(element);
    return visits->target && CFEqual(element, visits->target);
}

} // namespace

class tst_osxUIElementHierarchy : public QObject, protected VirtualDesktopTestBase {
    Q_OBJECT

    QByteArray fixture;

    // "" gives null, "systemWide" the system-wide element.
    ElementRef copy(const QString& id) const {
        if (id == "systemWide")
            return ElementRef(AXUIElementCreateSystemWide());
        return ElementRef(id.isEmpty() ? nullptr : desktop->copyElement(id));
    }

    QStringList idsOf(const UIElementAncestorList& list) const {
        QStringList ids;
        for (const auto& element : list)
            ids.append(idOf(element));
        return ids;
    }

private slots:
    void initTestCase() {
        QFile file(UIET_FIXTURES_DIR "/hierarchy-desktop.json");
        QVERIFY(file.open(QIODevice::ReadOnly));
        fixture = file.readAll();
    }

    void init() {
        QVERIFY(installDesktop([this](VirtualDesktop& desktop) { return desktop.load(fixture); }));
    }

    void cleanup() { uninstallDesktopAndCheckReferences(); }

    void verifiesParents_data() {
        QTest::addColumn<QString>("id");
        QTest::addColumn<bool>("loose");
        QTest::addColumn<QString>("parent");
        QTest::addColumn<QString>("farthestVerifiable");
        QTest::addColumn<QString>("farthest");
        const auto row = [](const char* tag, const QString& id, bool loose, const QString& parent,
                            const QString& farthestVerifiable, const QString& farthest) {
            QTest::newRow(tag) << id << loose << parent << farthestVerifiable << farthest;
        };
        row("listed by its parent", "openItem", false, "fileMenu", "editor", "editor");
        row("listed one level down", "skipped", false, "inner", "editor", "editor");
        row("listed by nobody", "strayGroup", false, "", "strayGroup", "editor");
        row("verified part of a chain", "strayLeaf", false, "strayGroup", "strayGroup", "editor");
        row("twin, strict", "recentTwin", false, "", "recentTwin", "editor");
        row("twin, loose", "recentTwin", true, "fileMenu", "editor", "editor");
        row("parent in another process", "embedded", false, "", "embedded", "editor");
        row("parent unreadable", "detached", false, "", "detached", "detached");
        row("application", "editor", false, "", "editor", "editor");
    }

    void verifiesParents() {
        QFETCH(QString, id);
        QFETCH(bool, loose);
        const ElementRef element = copy(id);
        QTEST(idOfCopy(verifyAndCopyUIElementParent(element, loose)), "parent");
        QTEST(idOfCopy(copyFarthestVerifiableAncestor(element, loose)), "farthestVerifiable");
        QTEST(idOfCopy(copyFarthestAncestor(element)), "farthest");
    }

    void buildsAncestorLists_data() {
        QTest::addColumn<QString>("id");
        QTest::addColumn<bool>("loose");
        QTest::addColumn<bool>("bottomUpRooted");
        QTest::addColumn<QStringList>("bottomUp");
        QTest::addColumn<bool>("topDownFound");
        QTest::addColumn<QStringList>("topDown");
        const auto row = [](const char* tag, const QString& id, bool loose, bool bottomUpRooted,
                            const QStringList& bottomUp, bool topDownFound, const QStringList& topDown) {
            QTest::newRow(tag) << id << loose << bottomUpRooted << bottomUp << topDownFound << topDown;
        };
        const QStringList menu{"editor", "menuBar", "fileMenuBarItem", "fileMenu"};
        const QStringList window{"editor", "mainWindow", "group", "inner"};
        const QStringList host{"host", "hostWindow"};
        row("menu outside windows", "openItem", false, true, menu, true, menu);
        row("repaired step", "skipped", false, true, window, true, window);
        row("window", "mainWindow", false, true, {"editor"}, true, {"editor"});
        row("broken chain", "strayLeaf", false, false, {"strayGroup"}, false, {});
        row("twin, strict", "recentTwin", false, false, {}, false, {});
        row("twin, loose", "recentTwin", true, true, menu, false, {});
        row("parent in another process", "embedded", false, false, {}, true, host);
        row("parent unreadable", "detached", false, false, {}, true, host);
        row("application", "editor", false, true, {}, true, {});
        row("application without windows", "agent", false, true, {}, true, {});
    }

    void buildsAncestorLists() {
        QFETCH(QString, id);
        QFETCH(bool, loose);
        const ElementRef element = copy(id);
        UIElementAncestorList list{CFTypeSharedRef<AXUIElementRef>(copy("saveButton"))};
        QTEST(searchBottomUpForElementAndBuildAncestorList(element, list, loose), "bottomUpRooted");
        QTEST(idsOf(list), "bottomUp");
        list = {CFTypeSharedRef<AXUIElementRef>(copy("saveButton"))};
        QTEST(searchTopDownForElementAndBuildAncestorList(element, list), "topDownFound");
        QTEST(idsOf(list), "topDown");
    }

    void searchesDownward_data() {
        QTest::addColumn<QString>("root");
        QTest::addColumn<QString>("id");
        QTest::addColumn<QString>("parent");
        QTest::addColumn<bool>("reachableFromTop");
        const auto row = [](const char* tag, const QString& root, const QString& id, const QString& parent,
                            bool reachableFromTop) {
            QTest::newRow(tag) << root << id << parent << reachableFromTop;
        };
        row("grandchild", "mainWindow", "skipped", "inner", true);
        row("menu item", "editor", "openItem", "fileMenu", true);
        row("listed by nobody", "mainWindow", "strayLeaf", "", false);
        row("twin", "editor", "recentTwin", "", false);
        row("root itself", "editor", "editor", "", true);
        // Every child is compared before any is entered: "firstBox", an earlier child, lists it too.
        row("listed at two depths", "loopWindow", "shallowTarget", "loopWindow", true);
        row("below a node that lists itself", "loopWindow", "loopLeaf", "selfListing", true);
        row("absent below a node that lists itself", "loopWindow", "openItem", "", true);
        row("parent in another process", "host", "embedded", "hostWindow", false);
        row("parent unreadable", "host", "detached", "hostWindow", true);
        row("cycle through the parent", "loopWindow", "cycleBottom", "cycleTop", false);
    }

    void searchesDownward() {
        QFETCH(QString, root);
        QFETCH(QString, id);
        QFETCH(QString, parent);
        const ElementRef rootElement = copy(root);
        const ElementRef sought = copy(id);
        QCOMPARE(idOfCopy(recursivelySearchForParentOfElementAndCopy(rootElement, sought)), parent);
        QCOMPARE(elementIsDescendant(rootElement, sought), !parent.isEmpty());
        QTEST(elementIsReachableFromTop(sought), "reachableFromTop");
    }

    void findsDescendantsPassingTest_data() {
        QTest::addColumn<QString>("root");
        QTest::addColumn<QString>("role");
        QTest::addColumn<QString>("found");
        QTest::newRow("child before grandchild") << "loopWindow" << QString("AXCheckBox") << "shallowTarget";
        QTest::newRow("past a node that lists itself") << "loopWindow" << QString("AXButton") << "loopLeaf";
        QTest::newRow("none") << "loopWindow" << QString("AXSlider") << QString();
        QTest::newRow("below nobody's child") << "mainWindow" << QString("AXStaticText") << QString();
        QTest::newRow("root not tested") << "mainWindow" << QString("AXWindow") << QString();
    }

    void findsDescendantsPassingTest() {
        QFETCH(QString, root);
        QFETCH(QString, role);
        const auto hasRole = [&](AXUIElementRef element) { return UIElementRole(element) == role; };
        QTEST(idOfCopy(copyElementInAllDescendantsPassingTest(copy(root), hasRole)), "found");
    }

    void searchesUpAndDown_data() {
        QTest::addColumn<QString>("start");
        QTest::addColumn<QString>("target");
        QTest::addColumn<QStringList>("visits");
        const auto row = [](const char* tag, const QString& start, const QString& target,
                            const QStringList& visits) { QTest::newRow(tag) << start << target << visits; };
        const QStringList menu{"editor", "menuBar", "fileMenuBarItem", "fileMenu", "openItem", "recentItem"};
        const QStringList group{"group", "inner", "skipped"};
        const QStringList window{"mainWindow", "toolbar", "saveButton"};
        row("whole tree", "group", "", group + window + QStringList{"hiddenHost"} + menu);
        row("parent's other child", "group", "toolbar", group + QStringList{"mainWindow", "toolbar"});
        row("start itself", "group", "group", {"group"});
        row("from below nobody's child", "strayLeaf", "",
            QStringList{"strayLeaf", "strayGroup", "hiddenHost"} + window + group + menu);
        row("cycle", "cycleBottom", "", {"cycleBottom", "cycleTop"});
        row("node that lists itself", "selfListing", "loopWindow", {"selfListing", "loopLeaf", "loopWindow"});
    }

    void searchesUpAndDown() {
        QFETCH(QString, start);
        QFETCH(QString, target);
        const ElementRef targetElement = copy(target);
        Visits visits;
        visits.target = targetElement;
        const ElementRef found(searchUpAndDownHierarchyForElementAndCopy(copy(start), recordVisit, &visits));
        QTEST(idsOf(visits.seen), "visits");
        QCOMPARE(idOf(found), target);
    }

    void climbs_data() {
        QTest::addColumn<QString>("id");
        QTest::addColumn<QString>("kind");
        QTest::addColumn<QString>("argument");
        QTest::addColumn<QString>("found");
        const auto row = [](const char* tag, const QString& id, const QString& kind, const QString& argument,
                            const QString& found) { QTest::newRow(tag) << id << kind << argument << found; };
        row("menu item itself", "openItem", "type", "menu item", "openItem");
        row("window above", "skipped", "type", "window", "mainWindow");
        row("no window above a menu", "openItem", "type", "window", "");
        row("role", "openItem", "role", "AXMenuBar", "menuBar");
        row("role along the reported parent", "skipped", "platform role", "AXGroup", "group");
        row("unreadable role passed over", "rolelessChild", "platform role", "AXWindow", "hostWindow");
        row("unreadable parent", "detached", "platform role", "AXWindow", "");
        row("any action", "skipped", "actions", "", "mainWindow");
        row("action", "saveButton", "action", "AXPress", "saveButton");
        row("action, case-sensitive", "openItem", "action", "axpress", "");
    }

    void climbs() {
        QFETCH(QString, id);
        QFETCH(QString, kind);
        QFETCH(QString, argument);
        QFETCH(QString, found);
        const ElementRef element = copy(id);
        const CFTypeSmartRef<CFStringRef> platformArgument(CFStringCreateWithQString(argument));
        QString result;
        if (kind == "type") {
            result = idOfCopy(copyAncestorElementOfType(element, argument));
        } else if (kind == "role") {
            result = idOfCopy(copyAncestorElementWithRole(element, argument));
        } else if (kind == "platform role") {
            result = idOfCopy(copyAncestorUIElementWithRole(element, platformArgument));
            QCOMPARE(UIElementOrAncestorHasRole(element, platformArgument), !found.isEmpty());
        } else if (kind == "actions") {
            result = idOfCopy(copyAncestorElementWithActions(element));
        } else {
            result = idOfCopy(copyAncestorElementWithAction(element, argument));
        }
        QCOMPARE(result, found);
        if (!found.isEmpty())
            QVERIFY(UIElementIsSameOrAncestor(copy(found), element));
    }

    void relatesElements() {
        const ElementRef skipped = copy("skipped");
        QVERIFY(UIElementIsSameOrAncestor(skipped, skipped));
        QVERIFY(UIElementIsSameOrAncestor(copy("group"), skipped));
        QVERIFY(!UIElementIsSameOrAncestor(copy("inner"), skipped)); // not on the reported chain
        QVERIFY(!UIElementIsSameOrAncestor(copy("openItem"), copy("mainWindow")));
        QVERIFY(!UIElementIsNotRootedInApplication(skipped));
        QVERIFY(!UIElementIsNotRootedInApplication(copy("embedded")));
        QVERIFY(UIElementIsNotRootedInApplication(copy("detached")));
        QVERIFY(isTopLevelElement(copy("agent")));
        QVERIFY(!isTopLevelElement(copy("mainWindow")));
        QCOMPARE(idOfCopy(copyUIElementApplication(copy("embedded"))), "host");
        QCOMPARE(idOfCopy(copyApplicationWithBundleId("com.example.host")), "host");
        QCOMPARE(idOfCopy(copyApplicationWithBundleId("com.example.absent")), "");
    }

    void unknownTypeLogsOncePerLevel() {
        const ElementRef item = copy("openItem");
        ElementRef found;
        const QStringList lines = logOf([&] { found.reset(copyAncestorElementOfType(item, "button")); });
        QVERIFY(!found);
        QCOMPARE(lines, QStringList(5, "Cannot check if UI element is unsupported type: button"));
    }

    void findsChildrenByRole_data() {
        QTest::addColumn<QString>("role");
        QTest::addColumn<int>("n");
        QTest::addColumn<QString>("found");
        QTest::newRow("first") << "AXGroup" << 0 << "group";
        QTest::newRow("second") << "AXGroup" << 1 << "hiddenHost";
        QTest::newRow("too few") << "AXGroup" << 2 << "";
        QTest::newRow("other role") << "AXToolbar" << 0 << "toolbar";
        QTest::newRow("absent role") << "AXButton" << 0 << "";
        QTest::newRow("negative") << "AXGroup" << -1 << "";
    }

    void findsChildrenByRole() {
        QFETCH(QString, role);
        QFETCH(int, n);
        QFETCH(QString, found);
        const ElementRef window = copy("mainWindow");
        const CFTypeSmartRef<CFArrayRef> children(copyUIElementChildren(window));
        resetPlatformCallCounts();
        const AXUIElementRef borrowed = findNthElementWithRole(children, role, n);
        if (n < 0)
            QCOMPARE(platformCallCount(PlatformCall::AXUIElementCopyAttributeValue), quint64(0));
        QCOMPARE(idOf(borrowed), found);
        if (n == 0) {
            QCOMPARE(idOfCopy(copyChildElementWithRole(window, role)), found);
            QCOMPARE(hasChildElementWithRole(window, role), !found.isEmpty());
        }
    }

    void childListsNeverNull() {
        const CFTypeSmartRef<CFArrayRef> none(copyUIElementChildren(copy("detached")));
        QVERIFY(none);
        QCOMPARE(CFArrayGetCount(none), 0);
        const CFTypeSmartRef<CFArrayRef> unreadable(copyUIElementChildren(copy("systemWide")));
        QVERIFY(unreadable);
        QCOMPARE(CFArrayGetCount(unreadable), 0);
        QVERIFY(!hasChildElementWithRole(copy("hiddenHost"), "AXGroup"));
    }

    void comparesApplications_data() {
        QTest::addColumn<QString>("a");
        QTest::addColumn<QString>("b");
        QTest::addColumn<bool>("same");
        QTest::addColumn<QString>("degenerate"); // the element reported, "-" for none; "" is null
        QTest::newRow("same process") << "openItem" << QString("skipped") << true << "-";
        QTest::newRow("parent in another process") << "embedded" << QString("toolbar") << false << "-";
        QTest::newRow("a without application")
            << "systemWide" << QString("openItem") << false << "systemWide";
        QTest::newRow("b without application") << "openItem" << QString() << false << "";
        QTest::newRow("neither, a reported") << "" << QString("systemWide") << false << "";
    }

    void comparesApplications() {
        QFETCH(QString, a);
        QFETCH(QString, b);
        QFETCH(QString, degenerate);
        const ElementRef first = copy(a);
        const ElementRef second = copy(b);
        bool same = true;
        const auto compare = [&] { same = UIElementsAreFromSameApplication(first, second); };
        QStringList lines = logOf(compare);
        QTEST(same, "same");
        // Each missing pid is logged by its own reader first.
        const QStringList pidLines = lines.filter("Error: failed to get process ID");
        lines.removeIf([&](const QString& line) { return pidLines.contains(line); });
        QStringList expected;
        if (degenerate != "-")
            expected
                << "Unexpected error in UIElementsAreFromSameApplication(): UI element has no application!"
                << "Degenerate UI element: " + UIElementDebugInfo(copy(degenerate));
        QCOMPARE(lines, expected);
        expectAtLevel(QtWarningMsg, pidLines + expected, compare);
    }

    void debugSearchLogsThePath() {
        const ElementRef skipped = copy("skipped");
        bool found = false;
        const auto search = [&] { found = debugRecursivelySearchForElement(skipped, copy("mainWindow")); };
        QStringList expected;
        for (const char* id : {"skipped", "inner", "group", "mainWindow"})
            expected << UIElementDebugInfo(copy(id));
        QCOMPARE(logOf(search), expected);
        QVERIFY(found);
        expectAtLevel(QtDebugMsg, expected, search);
        QCOMPARE(logOf([&] { found = debugRecursivelySearchForElement(copy("strayLeaf"), copy("editor")); }),
                 QStringList());
        QVERIFY(!found);
    }
};

UIET_TEST_MAIN(tst_osxUIElementHierarchy)
#include "tst_osxUIElementHierarchy.moc"
