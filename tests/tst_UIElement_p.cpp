#include "fixtureHandles.h"
#include "platformTestSupport.h"
#include "testSupport.h"

#include "UIElement.h"
#include "UIElement_p.h"
#include "dataObjectSerialization.h"
#include "logCapture.h"
#include "osxTranslationMapping.h"
#include "osxUIElementUtils.h"

#include <QFile>

#include <unistd.h>

// Capture on tests/fixtures/capture-desktop.json: the Mixer application (com.example.mixer) with a
// channel strip at fractional coordinates, and Scratch (no bundle id) on a screen left of the
// main one, with a group whose host lists no children.
class tst_UIElement_p : public QObject, private VirtualDesktopTestBase {
    Q_OBJECT

    QByteArray fixture;

    // A handle on a fixture element, at a point of it.
    NativeUIElement handle(const QString& id, QPoint point = QPoint(1, 1)) const {
        return fixtureHandle(*desktop, id, point);
    }

    static QList<const UIElement_p*> chainOf(const UIElement_p& element) {
        QList<const UIElement_p*> chain;
        element.topDownElementList(chain);
        return chain;
    }

    static QStringList rolesOf(const UIElement_p& element) {
        QStringList roles;
        for (const UIElement_p* level : chainOf(element))
            roles.append(level->role());
        return roles;
    }

private slots:
    void initTestCase() {
        QFile file(UIET_FIXTURES_DIR "/capture-desktop.json");
        QVERIFY(file.open(QIODevice::ReadOnly));
        fixture = file.readAll();
    }
    void init() {
        QVERIFY(installDesktop([this](VirtualDesktop& desktop) { return desktop.load(fixture); }));
    }
    void cleanup() { uninstallDesktopAndCheckReferences(); }

    // Frames are truncated toward zero number by number; the local rect is measured from the
    // parent's own (untruncated) origin.
    void captureAtPoint_data() {
        QTest::addColumn<QPoint>("point");
        QTest::addColumn<QStringList>("roles");
        QTest::addColumn<QRect>("screenRect");
        QTest::addColumn<QRect>("localRect");
        QTest::addColumn<QPoint>("localPoint");
        QTest::addColumn<QList<int>>("indices"); // childIndex, matchingRoleChildIndex
        const QStringList toButton{"AXApplication", "AXWindow", "AXGroup", "AXButton"};
        QTest::newRow("fractional frames") << QPoint(130, 160) << toButton << QRect(120, 150, 40, 20)
                                           << QRect(9, 9, 40, 20) << QPoint(10, 10) << QList<int>{0, 0};
        QTest::newRow("second of its role") << QPoint(200, 160) << toButton << QRect(190, 150, 40, 20)
                                            << QRect(79, 9, 40, 20) << QPoint(10, 10) << QList<int>{2, 1};
        QTest::newRow("negative origin")
            << QPoint(-600, 150) << QStringList{"AXApplication", "AXWindow", "AXTextArea"}
            << QRect(-690, 110, 300, 200) << QRect(10, 9, 300, 200) << QPoint(90, 40) << QList<int>{0, 0};
    }
    void captureAtPoint() {
        QFETCH(QPoint, point);
        QFETCH(QStringList, roles);
        QFETCH(QRect, screenRect);
        QFETCH(QRect, localRect);
        QFETCH(QPoint, localPoint);
        QFETCH(QList<int>, indices);
        const UIElement_p element(point);
        QVERIFY(!element.isNull());
        QVERIFY(!element.isDegenerate());
        QCOMPARE(rolesOf(element), roles);
        QCOMPARE(element.hierarchySize(), roles.size());
        QCOMPARE(element.screenRect(), screenRect);
        QCOMPARE(element.localRect(), localRect);
        QCOMPARE(element.localInteractionPoint(), localPoint);
        QCOMPARE(element.screenInteractionPoint(), point);
        QCOMPARE(element.childIndex(), indices.at(0));
        QCOMPARE(element.matchingRoleChildIndex(), indices.at(1));
        const UIElement_p* top = chainOf(element).first();
        QVERIFY(top->isTopLevelApplicationElement());
        QCOMPARE(top->childIndex(), -1);
        QCOMPARE(top->localRect(), top->screenRect());
        // Every level carries the application of the chain and the same interaction point.
        for (const UIElement_p* level : chainOf(element)) {
            QCOMPARE(level->bundleId(), top->bundleId());
            QCOMPARE(level->applicationName(), top->applicationName());
            QCOMPARE(level->screenInteractionPoint(), point);
            QVERIFY(!level->isDegenerate());
        }
    }

    void applicationLevel_data() {
        QTest::addColumn<QPoint>("point");
        QTest::addColumn<QString>("bundleId");
        QTest::addColumn<QString>("processName");
        QTest::addColumn<QString>("applicationName");
        QTest::addColumn<QStringList>("defining");
        QTest::newRow("with a bundle id") << QPoint(130, 160) << "com.example.mixer"
                                          << "mixer"
                                          << "Mixer" << QStringList{"bundleId"};
        QTest::newRow("without") << QPoint(-600, 150) << ""
                                 << "scratchpad"
                                 << "scratchpad" << QStringList{"processName"};
    }
    void applicationLevel() {
        QFETCH(QPoint, point);
        QFETCH(QString, bundleId);
        QFETCH(QString, processName);
        QFETCH(QString, applicationName);
        QFETCH(QStringList, defining);
        const UIElement_p element(point);
        const UIElement_p* top = chainOf(element).first();
        QCOMPARE(top->bundleId(), bundleId);
        QCOMPARE(top->processName(), processName);
        QCOMPARE(element.applicationName(), applicationName);
        QCOMPARE(top->definingAttributes(), defining);
    }

    // Important attributes that aren't questionable define an element; with two or fewer the
    // child index joins them, and an element with none is defined by all that it reports.
    void definingAttributes_data() {
        QTest::addColumn<QString>("id");
        QTest::addColumn<QStringList>("defining");
        QTest::addColumn<QString>("roleDescription");
        QTest::newRow("three, no index")
            << "strip" << QStringList{"AXFilename", "AXRole", "AXSubrole"} << "AXGroup";
        QTest::newRow("two and the index")
            << "mute" << QStringList{"AXRole", "AXSubrole", "childIndex"} << "toggle button";
        QTest::newRow("empty role description")
            << "solo" << QStringList{"AXRole", "childIndex"} << "AXButton";
        QTest::newRow("nothing important")
            << "pan" << QStringList{"AXDescription", "AXValue", "childIndex"} << "";
    }
    void definingAttributes() {
        QFETCH(QString, id);
        QFETCH(QStringList, defining);
        QFETCH(QString, roleDescription);
        const UIElement_p element(handle(id));
        QCOMPARE(element.definingAttributes(), defining);
        QCOMPARE(element.roleDescription(), roleDescription);
    }

    // Integers stand as strings; values without a Qt counterpart (points, elements) are left out.
    void attributeMap() {
        const UIElement_p element(handle("mute"));
        QCOMPARE(element.attributes().value("AXValue"), QVariant(QStringLiteral("0")));
        QCOMPARE(element.attributes().value("AXTitle"), QVariant(QStringLiteral("Mute")));
        QVERIFY(!element.attributes().contains("AXPosition"));
        QVERIFY(!element.attributes().contains("AXParent"));
        QCOMPARE(element.actionNames(), ZRSerializableStringList({"AXPress"}));
        QCOMPARE(element.actionDescriptions(), ZRSerializableStringList({"press"}));
        QMap<QString, QVariant> some;
        element.populateAttributeMap(some, Ref<AXUIElementRef>(desktop->copyElement("mute")),
                                     {"AXSubrole", "AXHelp"});
        QCOMPARE(some, (QMap<QString, QVariant>{{"AXSubrole", "AXToggle"}}));
    }

    void parentThatDoesNotListTheElement() {
        UIElement_p element(handle("mute"));
        QTest::ignoreMessage(QtDebugMsg, "Error: didn't find element in its parents own list of children!");
        element.setChildAndMatchingTypeChildIndex(Ref<AXUIElementRef>(desktop->copyElement("mute")),
                                                  Ref<AXUIElementRef>(desktop->copyElement("mixerWindow")));
        QCOMPARE(element.childIndex(), -1);
        QCOMPARE(element.matchingRoleChildIndex(), -1);
    }

    // A parent that can't be read is found by the full search; a group whose host lists nothing
    // stays degenerate at every level, and its chain stops below the application.
    void degenerateAndRecovered() {
        const Ref<AXUIElementRef> stray(desktop->copyElement("strayLeaf"));
        const QStringList degenerateLines{
            "Note: UI element appears degenerate: " + UIElementDebugInfo(stray),
            "...performing full search of app UI element hierarchy. This could take a while!",
            "...full search failed. UI element is confirmed degenerate."};
        std::unique_ptr<UIElement_p> lost;
        QCOMPARE(logOf([&] { lost = std::make_unique<UIElement_p>(handle("strayLeaf")); }), degenerateLines);
        QCOMPARE(rolesOf(*lost), (QStringList{"AXGroup", "AXStaticText"}));
        for (const UIElement_p* level : chainOf(*lost))
            QVERIFY(level->isDegenerate());
        const UIElement_p* top = chainOf(*lost).first();
        QVERIFY(!top->isTopLevelApplicationElement());
        QCOMPARE(top->localRect(), top->screenRect());
        QCOMPARE(top->childIndex(), -1);

        const Ref<AXUIElementRef> detached(desktop->copyElement("detached"));
        std::unique_ptr<UIElement_p> found;
        const QStringList lines = logOf([&] { found = std::make_unique<UIElement_p>(handle("detached")); });
        QCOMPARE(lines.value(2), QStringLiteral("...full search succeeded. UI element is not degenerate."));
        QVERIFY(!found->isDegenerate());
        QCOMPARE(rolesOf(*found), (QStringList{"AXApplication", "AXWindow", "AXButton"}));
        QCOMPARE(found->childIndex(), 2);
    }

    void nullDescriptions() {
        const UIElement_p nothing(QPoint(1500, 900));
        QVERIFY(nothing.isNull());
        QCOMPARE(nothing.hierarchySize(), 1);
        QVERIFY(nothing.title().isEmpty() && nothing.role().isEmpty() && nothing.bundleId().isEmpty());
        QVERIFY(UIElement(nullptr, nullptr).isNull());
        QVERIFY(UIElement(NativeUIElement()).isNull());
        QVERIFY(!UIElement().isNull());
        QVERIFY(UIElement(QPoint(1500, 900)).isNull());

        UIElementCollection collection;
        QVERIFY(collection.isNull());
        collection.setElements({new UIElement(nullptr, nullptr), new UIElement(nullptr, nullptr)});
        QVERIFY(collection.isNull());
        collection.setElements({new UIElement(nullptr, nullptr), new UIElement(QPoint(130, 160))});
        QVERIFY(!collection.isNull());
    }

    // Custom matching carries the method up the chain and names the chain's application by what
    // the top level is defined by; restoring data carries nothing.
    void matchingMethodAndApplicationName() {
        UIElement_p element(QPoint(130, 160));
        UIElement_p* top = const_cast<UIElement_p*>(chainOf(element).first());
        element.parentElement()->setMatchingMethod(CustomMatching);
        QCOMPARE(element.matchingMethod(), BuiltInMatching);
        QCOMPARE(top->matchingMethod(), CustomMatching);
        QCOMPARE(element.applicationName(), QStringLiteral("Mixer"));
        top->setDefiningAttributes({"processName"});
        element.parentElement()->setMatchingMethod(CustomMatching);
        // The chain above the level that was set.
        QCOMPARE(element.parentElement()->applicationName(), QStringLiteral("mixer"));
        QCOMPARE(top->applicationName(), QStringLiteral("mixer"));
        top->setDefiningAttributes({"AXTitle"});
        element.setMatchingMethod(CustomMatching);
        QCOMPARE(element.applicationName(), QStringLiteral("*"));
        QCOMPARE(top->applicationName(), QStringLiteral("*"));
    }

    // Saved and loaded back, a capture is the same description, levels' methods as they were.
    void saveAndLoad() {
        UIElementCollection saved;
        auto* element = new UIElement(QPoint(130, 160));
        saved.setElements({element});
        element->platformSpecificEntity()->parentElement()->setMatchingMethod(CustomMatching);
        element->platformSpecificEntity()->setProperty("strictMatching", true);
        UIElementCollection loaded;
        deserializeObjectFromByteArray(&loaded, serializeObjectToByteArray(&saved));
        QCOMPARE(loaded.elements().size(), 1);
        const UIElement_p* copy = loaded.elements().first()->platformSpecificEntity();
        QVERIFY(copy->isEqualToElement(element->platformSpecificEntity()));
        QCOMPARE(copy->matchingMethod(), BuiltInMatching);
        QCOMPARE(copy->parentElement()->matchingMethod(), CustomMatching);
        QCOMPARE(copy->property("strictMatching"), QVariant(true));
        QCOMPARE(copy->hierarchySize(), 4);
    }

    // Equality ignores where the element was touched, and nothing else.
    void equality() {
        const UIElement_p first(QPoint(130, 160));
        UIElement_p second(QPoint(140, 165));
        QVERIFY(second.isEqualToElement(&first));
        second.setProperty("strictMatching", true);
        QVERIFY(second.isEqualToElement(&first));
        second.parentElement()->setChildIndex(5);
        QVERIFY(!second.isEqualToElement(&first));
        QVERIFY(!UIElement_p(QPoint(200, 160)).isEqualToElement(&first));
    }

    void equivalence_data() {
        using Map = QMap<QString, QVariant>;
        QTest::addColumn<Map>("live");
        QTest::addColumn<Map>("saved");
        QTest::addColumn<bool>("translations");
        QTest::addColumn<bool>("equivalent");
        const QVariantList oneThree{1, 3};
        QTest::newRow("both empty") << Map() << Map() << false << true;
        QTest::newRow("a key on one side") << Map() << Map{{"AXTitle", ""}} << false << false;
        QTest::newRow("different keys") << Map{{"AXTitle", "a"}} << Map{{"AXHelp", "a"}} << false << false;
        QTest::newRow("invalid and empty")
            << Map{{"AXTitle", QVariant()}} << Map{{"AXTitle", ""}} << false << true;
        QTest::newRow("empty and invalid")
            << Map{{"AXTitle", ""}} << Map{{"AXTitle", QVariant()}} << false << true;
        QTest::newRow("invalid and false")
            << Map{{"AXModal", QVariant()}} << Map{{"AXModal", false}} << false << true;
        QTest::newRow("invalid and text")
            << Map{{"AXTitle", QVariant()}} << Map{{"AXTitle", "x"}} << false << false;
        QTest::newRow("both invalid")
            << Map{{"AXTitle", QVariant()}} << Map{{"AXTitle", QVariant()}} << false << true;
        QTest::newRow("value in a list")
            << Map{{"childIndex", 3}} << Map{{"childIndex", oneThree}} << false << true;
        QTest::newRow("list offers the value")
            << Map{{"childIndex", oneThree}} << Map{{"childIndex", 1}} << false << true;
        QTest::newRow("value not in the list")
            << Map{{"childIndex", 2}} << Map{{"childIndex", oneThree}} << false << false;
        QTest::newRow("lists in another order")
            << Map{{"childIndex", QVariantList{3, 1}}} << Map{{"childIndex", oneThree}} << false << false;
        QTest::newRow("equal lists") << Map{{"AXDOMClassList", QStringList{"a", "b"}}}
                                     << Map{{"AXDOMClassList", QStringList{"a", "b"}}} << false << true;
        QTest::newRow("one key differs") << Map{{"AXRole", "AXButton"}, {"AXSubrole", "a"}}
                                         << Map{{"AXRole", "AXButton"}, {"AXSubrole", "b"}} << false << false;
        QTest::newRow("no tolerance")
            << Map{{"AXValue", 1.0}} << Map{{"AXValue", 1.0000001}} << false << false;
        // This test program's toolkit catalogs (Qt's own) know "Cancel" in German.
        QTest::newRow("translated title")
            << Map{{"AXTitle", "Abbrechen"}} << Map{{"AXTitle", "Cancel"}} << true << true;
        QTest::newRow("translated title, option off")
            << Map{{"AXTitle", "Abbrechen"}} << Map{{"AXTitle", "Cancel"}} << false << false;
        QTest::newRow("help is not localized")
            << Map{{"AXHelp", "Abbrechen"}} << Map{{"AXHelp", "Cancel"}} << true << false;
        QTest::newRow("translated list entry")
            << Map{{"AXTitle", "Abbrechen"}} << Map{{"AXTitle", QStringList{"OK", "Cancel"}}} << true << true;
    }
    void equivalence() {
        using Map = QMap<QString, QVariant>;
        QFETCH(Map, live);
        QFETCH(Map, saved);
        QFETCH(bool, translations);
        QFETCH(bool, equivalent);
        if (translations && !translationsOfStringForProcess("Abbrechen", getpid()).contains("Cancel"))
            QSKIP("Qt's German catalog is not installed");
        QCOMPARE(attributeMapsAreEquivalent(live, saved, getpid(), translations), equivalent);
    }

    void keyHelpers() {
        const QMap<QString, QVariant> map{{"a", 1}, {"b", 2}, {"c", 3}};
        QCOMPARE(removeKeys(map, {"a", "x"}), (QMap<QString, QVariant>{{"b", 2}, {"c", 3}}));
        QCOMPARE(removeOtherKeys(map, {"a", "x"}), (QMap<QString, QVariant>{{"a", 1}}));
        QVERIFY(removeOtherKeys(map, {}).isEmpty());
    }
};

UIET_TEST_MAIN(tst_UIElement_p)
#include "tst_UIElement_p.moc"
