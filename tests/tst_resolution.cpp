#include "fixtureHandles.h"
#include "platformTestSupport.h"
#include "testSupport.h"

#include "UIElement.h"
#include "UIElement_p.h"
#include "logCapture.h"
#include "osxUIElementUtils.h"

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <functional>
#include <memory>

#include <unistd.h>

// Descriptions captured on tests/fixtures/capture-desktop.json and resolved again, on that
// desktop and on changed copies of it: the Mixer application (com.example.mixer) with a channel
// strip, and Scratch (no bundle id), whose group "host" lists none of its children, so that the
// chain of "strayLeaf" breaks below the application.
class tst_resolution : public QObject, private VirtualDesktopTestBase {
    Q_OBJECT

    QJsonObject fixture;

    NativeUIElement handle(const QString& id) const { return fixtureHandle(*desktop, id); }
    std::unique_ptr<UIElement_p> capture(const QString& id) const {
        return std::make_unique<UIElement_p>(handle(id));
    }
    QString resolve(const UIElement_p& description, QVariant hint = QVariant(), bool* abort = nullptr) const {
        return idOfCopy(description.createOSSpecificUIElementRepresentation(hint, {}, abort));
    }
    // The fixture with a change made to its JSON, loaded in place of the current one.
    void reload(const std::function<void(QJsonObject&)>& change) {
        QJsonObject changed = fixture;
        change(changed);
        QVERIFY(desktop->load(changed));
    }
    static QJsonObject rectJson(const QRect& rect) {
        return QJsonObject{
            {"x", rect.x()}, {"y", rect.y()}, {"width", rect.width()}, {"height", rect.height()}};
    }
    // Moves every frame of the object and of everything below it.
    static void shiftFrames(QJsonObject& object, QPoint by) {
        if (object.contains("frame")) {
            QJsonObject frame = object["frame"].toObject();
            frame["x"] = frame["x"].toDouble() + by.x();
            frame["y"] = frame["y"].toDouble() + by.y();
            object["frame"] = frame;
        }
        for (const char* key : {"applications", "windows", "children"}) {
            QJsonArray array = object.value(key).toArray();
            for (qsizetype i = 0; i < array.size(); ++i) {
                QJsonObject item = array.at(i).toObject();
                shiftFrames(item, by);
                array[i] = item;
            }
            if (object.contains(key))
                object[key] = array;
        }
    }

    // Applies change to the object with the fixture id, wherever it stands in the tree.
    static bool changeElement(QJsonObject& object, const QString& id,
                              const std::function<void(QJsonObject&)>& change) {
        if (object.value("id").toString() == id) {
            change(object);
            return true;
        }
        for (const char* key : {"applications", "windows", "children"}) {
            QJsonArray array = object.value(key).toArray();
            for (qsizetype i = 0; i < array.size(); ++i) {
                QJsonObject item = array.at(i).toObject();
                if (changeElement(item, id, change)) {
                    array[i] = item;
                    object[key] = array;
                    return true;
                }
            }
        }
        return false;
    }
    void reloadChanging(const QString& id, const std::function<void(QJsonObject&)>& change) {
        reload([&](QJsonObject& root) { QVERIFY(changeElement(root, id, change)); });
    }

private slots:
    void initTestCase() {
        QFile file(UIET_FIXTURES_DIR "/capture-desktop.json");
        QVERIFY(file.open(QIODevice::ReadOnly));
        fixture = QJsonDocument::fromJson(file.readAll()).object();
    }
    void init() {
        QVERIFY(installDesktop([this](VirtualDesktop& desktop) { return desktop.load(fixture); }));
    }
    void cleanup() { uninstallDesktopAndCheckReferences(); }

    // Every level of a sound chain, the leaves of both applications, and an element found only by
    // the search from the top: each description finds its own element again.
    void resolvesWhatWasCaptured_data() {
        QTest::addColumn<QString>("id");
        for (const char* id :
             {"mixerWindow", "heading", "strip", "mute", "meter", "solo", "pan", "panKnob", "detached"})
            QTest::newRow(id) << QString::fromLatin1(id);
    }
    void resolvesWhatWasCaptured() {
        QFETCH(QString, id);
        const auto description = capture(id);
        QVERIFY(!description->isDegenerate());
        QCOMPARE(resolve(*description), id);
        QRect rect;
        QCOMPARE(description->findUIElementAndGetScreenRect(rect, QVariant(), {}, nullptr), UIElementFound);
        QCOMPARE(rect, UIElementRect(Ref<AXUIElementRef>(desktop->copyElement(id))));
    }

    // The application moved: the saved point inside the element moves with it.
    void interactionPointFollowsTheElement() {
        const UIElement_p description(QPoint(130, 160));
        reload([](QJsonObject& root) { shiftFrames(root, QPoint(300, 50)); });
        QPoint point;
        QCOMPARE(description.findUIElementAndGetInteractionPoint(point, true, QVariant(), {}, nullptr),
                 UIElementFound);
        QCOMPARE(point, QPoint(430, 210));
    }

    void unreachableElements_data() {
        QTest::addColumn<QJsonObject>("muteFrame");
        QTest::addColumn<bool>("covered");
        QTest::addColumn<bool>("requireHit");
        QTest::addColumn<int>("code");
        const QJsonObject usual = rectJson(QRect(120, 150, 40, 20));
        QTest::newRow("no width") << rectJson(QRect(120, 150, 0, 20)) << false << false
                                  << UIElementNotReachable;
        QTest::newRow("no height") << rectJson(QRect(120, 150, 40, 0)) << false << false
                                   << UIElementNotReachable;
        QTest::newRow("behind another application") << usual << true << true << UIElementNotReachable;
        QTest::newRow("behind, hit not required") << usual << true << false << UIElementFound;
        // What is on screen is what Qt's screens cover: the offscreen platform's one, 800 x 600.
        QTest::newRow("nothing at its centre")
            << rectJson(QRect(10, 10, 40, 20)) << false << true << UIElementNotVerified;
        QTest::newRow("centre off screen")
            << rectJson(QRect(3000, 3000, 40, 20)) << false << true << UIElementNotReachable;
    }
    void unreachableElements() {
        QFETCH(QJsonObject, muteFrame);
        QFETCH(bool, covered);
        QFETCH(bool, requireHit);
        const auto description = capture("mute");
        reload([&](QJsonObject& root) {
            QVERIFY(changeElement(root, "mute", [&](QJsonObject& mute) { mute["frame"] = muteFrame; }));
            if (covered) {
                QJsonArray applications = root["applications"].toArray();
                applications.append(QJsonObject{
                    {"pid", 5303},
                    {"bundleId", "com.example.cover"},
                    {"windows", QJsonArray{QJsonObject{{"windowId", 53},
                                                       {"frame", rectJson(QRect(100, 100, 300, 300))},
                                                       {"stackingOrder", -1}}}}});
                root["applications"] = applications;
            }
        });
        QPoint point(-1, -1);
        QTEST(description->findUIElementAndGetInteractionPoint(point, requireHit, QVariant(), {}, nullptr),
              "code");
    }

    // A chain that breaks below its application is found only from the element under the hint
    // position, or within 64 points of it; an element rooted in its application there is no start.
    void degenerateChainNeedsTheHint_data() {
        QTest::addColumn<QVariant>("hint");
        QTest::addColumn<QString>("found");
        QTest::newRow("no hint") << QVariant() << QString();
        QTest::newRow("on the element") << QVariant(QPoint(-650, 350)) << "strayLeaf";
        QTest::newRow("rooted there, the element 24 below") << QVariant(QPoint(-650, 326)) << "strayLeaf";
        QTest::newRow("over its parent") << QVariant(QPoint(-605, 350)) << "strayLeaf";
        QTest::newRow("the parent 24 to the right") << QVariant(QPoint(-700, 350)) << "strayLeaf";
        QTest::newRow("nothing near") << QVariant(QPoint(1500, 900)) << QString();
    }
    void degenerateChainNeedsTheHint() {
        QFETCH(QVariant, hint);
        std::unique_ptr<UIElement_p> description;
        logOf([&] { description = capture("strayLeaf"); });
        QVERIFY(description->isDegenerate());
        QTEST(resolve(*description, hint), "found");
    }

    void applicationNotRunning() {
        const auto description = capture("mute");
        reload([](QJsonObject& root) {
            QJsonArray applications = root["applications"].toArray();
            applications.removeFirst();
            root["applications"] = applications;
        });
        NativeUIElement element;
        QCOMPARE(
            description->findUIElementAndCreateOSSpecificRepresentation(element, QVariant(), {}, nullptr),
            UIElementNotFound);
        QVERIFY(element.isNull());
        // Scratch's text area under the hint is rooted in its application: no start for the search.
        QCOMPARE(resolve(*description, QPoint(-600, 150)), QString());
    }

    // An application is found by bundle id, by process name (this test process, on the desktop),
    // or, defined by neither, among all applications.
    void applicationsByDefiningAttributes_data() {
        QTest::addColumn<QStringList>("defining");
        QTest::addColumn<QString>("found");
        QTest::newRow("bundle id") << QStringList{"bundleId"} << "selfButton";
        QTest::newRow("process name") << QStringList{"processName"} << "selfButton";
        QTest::newRow("any application") << QStringList{"AXTitle"} << "selfButton";
    }
    void applicationsByDefiningAttributes() {
        QFETCH(QStringList, defining);
        reload([](QJsonObject& root) {
            QJsonArray applications = root["applications"].toArray();
            applications.append(QJsonObject{
                {"pid", int(getpid())},
                {"bundleId", "com.example.self"},
                {"executable", QCoreApplication::applicationFilePath()},
                {"windows", QJsonArray{QJsonObject{
                                {"windowId", 54},
                                {"frame", rectJson(QRect(1000, 100, 200, 200))},
                                {"children", QJsonArray{QJsonObject{
                                                 {"id", "selfButton"},
                                                 {"role", "AXButton"},
                                                 {"title", "Self"},
                                                 {"attributes", QJsonObject{{"AXSubrole", "AXSelfTest"}}},
                                                 {"frame", rectJson(QRect(1010, 110, 50, 20))}}}}}}}});
            root["applications"] = applications;
        });
        const auto description = capture("selfButton");
        QList<UIElement_p*> chain;
        description->topDownElementList(chain);
        chain.first()->setDefiningAttributes(defining);
        QTEST(resolve(*description), "found");
    }

    void abortFlag() {
        const auto description = capture("mute");
        resetPlatformCallCounts();
        bool abort = true;
        NativeUIElement element;
        QCOMPARE(description->findUIElementAndCreateOSSpecificRepresentation(element, QVariant(), {}, &abort),
                 UIElementSearchAborted);
        QCOMPARE(platformCallCount(PlatformCall::AXUIElementCreateApplication), 0u);
        QCOMPARE(platformCallCount(PlatformCall::AXUIElementCopyAttributeValue), 0u);
        abort = false;
        QCOMPARE(description->findUIElementAndCreateOSSpecificRepresentation(element, QVariant(), {}, &abort),
                 UIElementFound);
    }

    void targetTypeAndLevels_data() {
        QTest::addColumn<QString>("targetType");
        QTest::addColumn<int>("level");
        QTest::addColumn<QString>("found");
        QTest::newRow("window") << "window" << -2 << "mixerWindow";
        QTest::newRow("no such ancestor") << "menu item" << -2 << QString();
        QTest::newRow("level 0") << "menu item" << 0 << "mixer";
        QTest::newRow("level 2") << "" << 2 << "strip";
        QTest::newRow("past the end") << "" << 9 << "mute";
        QTest::newRow("before the top") << "" << -1 << QString();
    }
    void targetTypeAndLevels() {
        QFETCH(QString, targetType);
        QFETCH(int, level);
        const auto description = capture("mute");
        description->setTargetType(targetType);
        if (level == -2)
            QTEST(resolve(*description), "found");
        else
            QTEST(idOfCopy(description->createOSSpecificUIElementRepresentationAtHierarchyLevel(
                      level, QVariant(), {}, nullptr)),
                  "found");
    }

    void validation() {
        QString error;
        QVERIFY(UIElement_p(QPoint(1500, 900)).validate(error, {}));
        QVERIFY(error.isEmpty());
        QRect rect;
        QCOMPARE(UIElement_p(QPoint(1500, 900)).findUIElementAndGetScreenRect(rect, QVariant(), {}, nullptr),
                 UIElementNotFound);
        QVERIFY(capture("mute")->validate(error, {}));
        std::unique_ptr<UIElement_p> degenerate;
        logOf([&] { degenerate = capture("strayLeaf"); });
        QVERIFY(!degenerate->validate(error, {}));
        QVERIFY(error.startsWith("This UI element is degenerate and cannot be found by searching"));
    }

    // The other way round: which live element, or which of its ancestors, a description stands for.
    void reverseMatching() {
        const auto mute = capture("mute");
        const auto strip = capture("strip");
        QVERIFY(mute->doesElementMatchHierarchy(Ref<AXUIElementRef>(desktop->copyElement("mute")), {}));
        QVERIFY(!mute->isElementMatching(Ref<AXUIElementRef>(desktop->copyElement("solo")), {}));
        QVERIFY(!mute->isElementMatching(nullptr, {}));
        NativeUIElement result;
        int levelsUp = -7;
        QVERIFY(strip->matchingElementUnderElement(result, levelsUp, handle("mute"), {}));
        QCOMPARE(levelsUp, 1);
        QCOMPARE(result, handle("strip"));
        QVERIFY(mute->matchingElementUnderElement(result, levelsUp, handle("mute"), {}));
        QCOMPARE(levelsUp, 0);
        levelsUp = -7;
        QVERIFY(!mute->matchingElementUnderElement(result, levelsUp, handle("note"), {}));
        QCOMPARE(levelsUp, -7);
        const UIElement_p muteElsewhere(QPoint(150, 165));
        QVERIFY(mute->resolvesToSameOSSpecificElement(&muteElsewhere, {}));
        QVERIFY(!mute->resolvesToSameOSSpecificElement(capture("solo").get(), {}));
    }

    // An application that answers nothing, an element that dies as it is asked: nothing found,
    // and every reference released (the check after each test).
    void failingApplications_data() {
        QTest::addColumn<QString>("id");
        QTest::addColumn<QJsonObject>("change");
        QTest::newRow("busy") << "mixer" << QJsonObject{{"busy", QJsonObject{{"delayMs", 0}}}};
        QTest::newRow("strip dead") << "strip" << QJsonObject{{"faults", QJsonObject{{"diesAfterCalls", 0}}}};
        QTest::newRow("strip dies on the way")
            << "strip" << QJsonObject{{"faults", QJsonObject{{"diesAfterCalls", 3}}}};
        QTest::newRow("children unreadable")
            << "strip"
            << QJsonObject{{"faults", QJsonObject{{"attributes",
                                                   QJsonObject{{"AXChildren", "kAXErrorCannotComplete"}}}}}};
    }
    void failingApplications() {
        QFETCH(QString, id);
        QFETCH(QJsonObject, change);
        const auto description = capture("mute");
        reloadChanging(id, [&](QJsonObject& element) {
            for (auto it = change.begin(); it != change.end(); ++it)
                element[it.key()] = it.value();
        });
        QCOMPARE(resolve(*description), QString());
    }

    // A Pro Tools menu item may list no children while its submenu is open: the submenu is found
    // through the element 10 points right of the item, when that element's grandparent is the
    // item (or its twin: a menu item of the same title and frame).
    void proToolsSubmenuThroughTheHitTest_data() {
        QTest::addColumn<QString>("bundleId");
        QTest::addColumn<QString>("twinTitle");
        QTest::addColumn<QString>("found");
        QTest::newRow("Pro Tools") << "com.avid.ProToolsUltimate"
                                   << "Recent"
                                   << "sessionA";
        QTest::newRow("another application") << "com.example.editor"
                                             << "Recent" << QString();
        QTest::newRow("the grandparent is another item") << "com.avid.ProToolsUltimate"
                                                         << "Open" << QString();
    }
    void proToolsSubmenuThroughTheHitTest() {
        QFETCH(QString, bundleId);
        QFETCH(QString, twinTitle);
        const auto element = [](const char* id, const char* role, const QString& title, const QRect& frame,
                                const QJsonArray& children = {}) {
            QJsonObject made{{"id", id}, {"role", role}, {"frame", rectJson(frame)}, {"children", children}};
            if (!title.isEmpty())
                made["title"] = title;
            return made;
        };
        QJsonObject recent = element("recentItem", "AXMenuItem", "Recent", QRect(10, 50, 100, 20));
        recent["attributes"] = QJsonObject{{"AXChildren", QJsonArray()}};
        const QJsonObject menu =
            element("trackMenu", "AXMenu", "", QRect(10, 30, 100, 40),
                    {element("newItem", "AXMenuItem", "New", QRect(10, 30, 100, 20)), recent});
        // Listed by nobody: only the hit test reaches the submenu, which names the twin as its parent.
        QJsonObject twin = element("recentTwin", "AXMenuItem", twinTitle, QRect(10, 50, 100, 20));
        twin["attributes"] = QJsonObject{{"AXChildren", QJsonArray{QJsonObject{{"element", "recentMenu"}}}}};
        QJsonObject submenuElement =
            element("recentMenu", "AXMenu", "", QRect(115, 50, 150, 60),
                    {element("sessionA", "AXMenuItem", "Session A", QRect(115, 50, 150, 20))});
        submenuElement["attributes"] = QJsonObject{{"AXParent", QJsonObject{{"element", "recentTwin"}}}};
        QJsonObject host =
            element("twinHost", "AXGroup", "", QRect(110, 40, 200, 100), {twin, submenuElement});
        host["attributes"] = QJsonObject{{"AXChildren", QJsonArray()}};
        QVERIFY(desktop->load(
            QJsonObject{{"screens", QJsonArray{QJsonObject{{"frame", rectJson(QRect(0, 0, 800, 600))}}}},
                        {"applications",
                         QJsonArray{QJsonObject{
                             {"pid", 7401},
                             {"bundleId", bundleId},
                             {"windows", QJsonArray{QJsonObject{{"windowId", 74},
                                                                {"frame", rectJson(QRect(0, 0, 400, 300))},
                                                                {"children", QJsonArray{menu, host}}}}}}}}}));
        // The item's chain as captured, and two levels below it as a user would describe them.
        auto* item = new UIElement_p(handle("recentItem"));
        UIElement_p submenu;
        UIElement_p session;
        for (UIElement_p* level : {&submenu, &session})
            level->setProperty("bundleId", bundleId);
        submenu.setProperty("role", "AXMenu");
        item->setParent(&submenu);
        submenu.setProperty("parentElement", QVariant::fromValue(item));
        session.setProperty("role", "AXMenuItem");
        session.setProperty("title", "Session A");
        session.setProperty("parentElement", QVariant::fromValue(&submenu));
        QTEST(resolve(session), "found");
    }
};

UIET_GUI_TEST_MAIN(tst_resolution)
#include "tst_resolution.moc"
