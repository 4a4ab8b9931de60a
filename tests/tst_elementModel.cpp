// The element model: the facade's answers without a description, the collection's rule of
// alternatives, its texts and equality, element types and their match up the hierarchy, and the
// debug stream forms. Handles come from a small virtual desktop with a menu item inside web content
// and one outside it.

#include "fixtureHandles.h"
#include "platformTestSupport.h"
#include "testSupport.h"

#include "UIElement.h"
#include "UIElementType.h"

#include <QPointer>
#include <QTest>

#include <functional>

namespace {

const char* const kDesktop = R"({
 "screens": [{"frame": {"x": 0, "y": 0, "width": 1600, "height": 1000}}],
 "applications": [{"pid": 7301, "id": "app", "name": "Browser", "bundleId": "com.example.browser",
  "executable": "browser",
  "windows": [{"windowId": 73, "id": "window", "title": "Browser",
   "frame": {"x": 0, "y": 0, "width": 800, "height": 600},
   "children": [
    {"id": "web", "role": "AXWebArea", "frame": {"x": 0, "y": 50, "width": 800, "height": 500},
     "children": [{"id": "web.group", "role": "AXGroup", "frame": {"x": 10, "y": 60, "width": 200, "height": 100},
      "children": [{"id": "web.item", "role": "AXMenuItem", "title": "Copy", "frame": {"x": 10, "y": 60, "width": 100, "height": 20},
                    "attributes": {"AXRoleDescription": "menu item"}}]}]},
    {"id": "menu", "role": "AXMenu", "frame": {"x": 0, "y": 0, "width": 200, "height": 50},
     "children": [{"id": "menu.item", "role": "AXMenuItem", "title": "Copy", "frame": {"x": 0, "y": 0, "width": 100, "height": 20},
                   "attributes": {"AXRoleDescription": "menu item", "AXSubrole": "AXCommand"}}]}
   ]}]}]})";

// An element whose finds answer a fixed code and count how often they were asked.
class ScriptedElement : public UIElement {
public:
    ScriptedElement(int code, QObject* parent) : UIElement(parent), code(code) {}
    int findUIElementAndGetInteractionPoint(QPoint& point, bool, QFlags<UIElementSearchOption>, QVariant,
                                            UIElement** foundElement, bool*) const override {
        ++asked;
        point = QPoint(code, code);
        // A collection asks each alternative without a place for the element.
        foundElementGiven = foundElementGiven || foundElement;
        return code;
    }
    int findUIElementAndGetScreenRect(QRect& rect, QFlags<UIElementSearchOption>, QVariant,
                                      bool*) const override {
        ++asked;
        rect = QRect(code, code, 1, 1);
        return code;
    }
    int findUIElementAndCreateOSSpecificRepresentation(NativeUIElement& element,
                                                       QFlags<UIElementSearchOption>, QVariant,
                                                       bool*) const override {
        ++asked;
        element.setScreenPosition(QPoint(code, code));
        return code;
    }
    const int code;
    mutable int asked = 0;
    mutable bool foundElementGiven = false;
};

using Find = std::function<int(const UIElementIdentifier&, QPoint* output)>;

} // namespace

Q_DECLARE_METATYPE(Find)

class tst_elementModel : public QObject, private VirtualDesktopTestBase {
    Q_OBJECT

    NativeUIElement handle(const QString& id) const { return fixtureHandle(*desktop, id); }

    static QList<QPair<const char*, Find>> finds() {
        return {{"interaction point",
                 [](const UIElementIdentifier& e, QPoint* out) {
                     return e.findUIElementAndGetInteractionPoint(*out, false, {}, QVariant(), nullptr,
                                                                  nullptr);
                 }},
                {"screen rect",
                 [](const UIElementIdentifier& e, QPoint* out) {
                     QRect rect(*out, QSize(1, 1)); // untouched unless written
                     const int code = e.findUIElementAndGetScreenRect(rect, {}, QVariant(), nullptr);
                     *out = rect.topLeft();
                     return code;
                 }},
                {"native element", [](const UIElementIdentifier& e, QPoint* out) {
                     NativeUIElement element;
                     element.setScreenPosition(*out);
                     const int code =
                         e.findUIElementAndCreateOSSpecificRepresentation(element, {}, QVariant(), nullptr);
                     *out = element.screenPosition();
                     return code;
                 }}};
    }

private slots:
    void init() {
        QVERIFY(installDesktop([](VirtualDesktop& each) { return each.load(QByteArray(kDesktop)); }));
    }
    void cleanup() { uninstallDesktopAndCheckReferences(); }

    void anEmptyCollectionCannotBeAsked() {
        for (const auto& [name, find] : finds()) {
            UIElementCollection collection;
            QPoint output(-1, -1);
            QCOMPARE(find(collection, &output), UIElementNotVerified);
            QCOMPARE(output, QPoint(-1, -1));
            QVERIFY(collection.isNull());
        }
    }

    // The first answer other than "not found" ends the search, an error as much as a success.
    void alternativesInOrder_data() {
        QTest::addColumn<Find>("find");
        QTest::addColumn<QList<int>>("codes");
        QTest::addColumn<int>("expected");
        QTest::addColumn<int>("askedCount");
        const struct {
            const char* name;
            QList<int> codes;
            int expected;
            int asked;
        } cases[] = {{"not found, found", {1, 0}, 0, 2},  {"unreachable, found", {2, 0}, 2, 1},
                     {"unverified, found", {3, 0}, 3, 1}, {"aborted, found", {5, 0}, 5, 1},
                     {"all not found", {1, 1, 1}, 1, 3},  {"found first", {0, 2}, 0, 1}};
        for (const auto& [findName, find] : finds())
            for (const auto& each : cases)
                QTest::addRow("%s: %s", findName, each.name)
                    << find << each.codes << each.expected << each.asked;
    }
    void alternativesInOrder() {
        QFETCH(Find, find);
        QFETCH(QList<int>, codes);
        QFETCH(int, expected);
        QFETCH(int, askedCount);
        UIElementCollection collection;
        UIElementList list;
        for (int code : codes)
            list.append(new ScriptedElement(code, nullptr));
        collection.setElements(list);
        QPoint output;
        QCOMPARE(find(collection, &output), expected);
        int asked = 0;
        for (UIElement* each : list)
            asked += static_cast<ScriptedElement*>(each)->asked;
        QCOMPARE(asked, askedCount);
        // The output is the last asked element's.
        const int last = codes.at(askedCount - 1);
        QCOMPARE(output, QPoint(last, last));
    }

    void foundElementNamesTheAlternativeThatEnded() {
        UIElementCollection collection;
        auto* notFound = new ScriptedElement(UIElementNotFound, nullptr);
        auto* unreachable = new ScriptedElement(UIElementNotReachable, nullptr);
        collection.setElements({notFound, unreachable});
        UIElement* found = nullptr;
        QPoint point;
        QCOMPARE(collection.findUIElementAndGetInteractionPoint(point, true, {}, QVariant(), &found, nullptr),
                 UIElementNotReachable);
        QCOMPARE(found, unreachable);
        QVERIFY(!notFound->foundElementGiven && !unreachable->foundElementGiven);

        UIElementCollection none;
        none.setElements({new ScriptedElement(UIElementNotFound, nullptr)});
        UIElement* untouched = notFound;
        QCOMPARE(none.findUIElementAndGetInteractionPoint(point, true, {}, QVariant(), &untouched, nullptr),
                 UIElementNotFound);
        QCOMPARE(untouched, notFound);
    }

    // A single element writes itself first, whatever the code.
    void aSingleElementNamesItself() {
        UIElement unresolvable(NativeUIElement(), nullptr); // null: nothing to find
        UIElement* found = nullptr;
        QPoint point;
        QCOMPARE(
            unresolvable.findUIElementAndGetInteractionPoint(point, false, {}, QVariant(), &found, nullptr),
            UIElementNotFound);
        QCOMPARE(found, &unresolvable);
    }

    void matchingUnderElementTakesTheFirstThatMatches() {
        UIElementCollection collection;
        NativeUIElement result;
        int levelsUp = -7;
        QVERIFY(!collection.matchingElementUnderElement(result, levelsUp, handle("menu.item"), {}));
        QCOMPARE(levelsUp, -7);

        auto* elsewhere = new UIElement(handle("web.item"), nullptr);
        auto* menu = new UIElement(handle("menu"), nullptr);
        collection.setElements({elsewhere, menu});
        QVERIFY(collection.matchingElementUnderElement(result, levelsUp, handle("menu.item"), {}));
        QCOMPARE(levelsUp, 1);
        QVERIFY(result == handle("menu"));
    }

    // Every guarded operation of an element without a description.
    void withoutADescription() {
        UIElement element;
        element.setPlatformSpecificEntity(nullptr);
        UIElement other;
        QVERIFY(element.isNull());
        QVERIFY(!element.isDegenerate());
        QCOMPARE(element.screenRect(), QRect());
        QCOMPARE(element.screenInteractionPoint(), QPoint());
        QCOMPARE(element.localInteractionPoint(), QPoint());
        QCOMPARE(element.applicationId(), QString());
        for (const QString& text : {element.debugInfo(), element.htmlHierarchyDescription(),
                                    element.shortDescription(true, true, true),
                                    element.shortDescriptionOfElementAtHierarchyLevel(0, true, true, true)})
            QCOMPARE(text, QStringLiteral("<uninitialized>"));
        QCOMPARE(element.hierarchyDescription(), QStringLiteral("< uninitialized >"));
        QCOMPARE(element.hierarchySize(), 0);
        QVERIFY(element.attributeValuesForElementAtHierarchyLevel(0).isEmpty());
        QVERIFY(element.definingAttributesForElementAtHierarchyLevel(0).isEmpty());
        QVERIFY(!element.canEditDefiningAttributesAtHierarchyLevel(0));
        QVERIFY(!element.usesSpecializedMatchingMethodAtHierarchyLevel(0));
        QVERIFY(!element.optionForElementAtHierarchyLevel(0, QStringLiteral("x")).isValid());
        QVERIFY(!element.resolvesToSameOSSpecificElement(&other, {}));
        QVERIFY(!other.resolvesToSameOSSpecificElement(&element, {}));
        QVERIFY(!element.isEqualToElement(&other));
        QVERIFY(!other.isEqualToElement(&element));
        NativeUIElement result;
        int levelsUp = 0;
        QVERIFY(!element.matchingElementUnderElement(result, levelsUp, handle("menu.item"), {}));
        QRect rect;
        QCOMPARE(element.findUIElementAtHierarchyLevelAndGetScreenRect(rect, 0, {}, QVariant(), nullptr),
                 UIElementNotVerified);
        UIElementType type(nullptr);
        element.copyType(&type);
        QVERIFY(type.isNull());
        // The setters do nothing, and nothing fails.
        element.setInteractionPointFromLocalPoint(QPoint(1, 1));
        element.setAttributeValueForElementAtHierarchyLevel(0, QStringLiteral("AXTitle"),
                                                            QStringLiteral("x"));
        element.setTargetType(QStringLiteral("AXWindow"));
        QVERIFY(element.isNull());
    }

    void constructorsAndNull() {
        QObject owner;
        QVERIFY(UIElement(NativeUIElement(), &owner).isNull());
        QVERIFY(UIElement(nullptr, &owner).isNull());
        QVERIFY(!UIElement(&owner).isNull());
        QVERIFY(!UIElement(handle("menu.item"), &owner).isNull());

        UIElement element(&owner);
        QPointer<UIElement_p> old = element.platformSpecificEntity();
        auto* replacement = new UIElement_p;
        element.setPlatformSpecificEntity(replacement);
        QVERIFY(old.isNull());
        QCOMPARE(replacement->parent(), &element);
    }

    void nullCollections_data() {
        QTest::addColumn<QList<bool>>("nulls");
        QTest::addColumn<bool>("isNull");
        QTest::newRow("two null") << QList<bool>{true, true} << true;
        QTest::newRow("null and not") << QList<bool>{true, false} << false;
        QTest::newRow("one not null") << QList<bool>{false} << false;
    }
    void nullCollections() {
        QFETCH(QList<bool>, nulls);
        QFETCH(bool, isNull);
        UIElementCollection collection;
        UIElementList list;
        for (bool null : nulls)
            list.append(null ? new UIElement(nullptr, nullptr) : new UIElement(handle("menu.item"), nullptr));
        collection.setElements(list);
        QCOMPARE(collection.isNull(), isNull);
    }

    void collectionTexts() {
        UIElementCollection collection;
        QCOMPARE(collection.shortDescription(true, true, true), QStringLiteral("< No UI element >"));
        QCOMPARE(collection.hierarchyDescription(), QStringLiteral("< No UI element >"));
        QVERIFY(collection.actionNames().isEmpty());
        QCOMPARE(collection.localInteractionPoint(), QPoint());

        auto* first = new UIElement(handle("menu.item"), nullptr);
        first->setInteractionPointFromLocalPoint(QPoint(3, 4));
        collection.setElements({first});
        QCOMPARE(collection.shortDescription(true, false, false),
                 first->shortDescription(true, false, false));
        QCOMPARE(collection.hierarchyDescription(), first->hierarchyDescription());

        auto* second = new UIElement(handle("web.item"), nullptr);
        collection.setElements({first, second});
        QCOMPARE(collection.shortDescription(true, true, true), QStringLiteral("< Multiple UI elements >"));
        QCOMPARE(collection.hierarchyDescription(), QStringLiteral("< Multiple UI elements >"));
        QCOMPARE(collection.localInteractionPoint(), QPoint(3, 4));
        QCOMPARE(collection.actionNames(), first->actionNames());
    }

    void collectionEquality() {
        UIElementCollection a;
        UIElementCollection b;
        QVERIFY(a.isEqualToElementCollection(&b));
        a.setElements({new UIElement(handle("menu.item"), nullptr)});
        QVERIFY(!a.isEqualToElementCollection(&b));
        b.setElements({new UIElement(handle("menu.item"), nullptr)});
        QVERIFY(a.isEqualToElementCollection(&b));
        b.elements().first()->setPlatformSpecificEntity(nullptr);
        QVERIFY(!a.isEqualToElementCollection(&b));
        QVERIFY(!b.isEqualToElementCollection(&a));
        UIElementCollection c;
        c.setElements({new UIElement(handle("web.item"), nullptr)});
        QVERIFY(!a.isEqualToElementCollection(&c));
    }

    void theSharedEmptyCollection() {
        UIElementCollection* empty = UIElementCollection::emptyElementCollection();
        QCOMPARE(UIElementCollection::emptyElementCollection(), empty);
        QVERIFY(empty->elements().isEmpty());
        QVERIFY(UIElementType::nullElementType()->isNull());
        QCOMPARE(UIElementType::nullElementType(), UIElementType::nullElementType());
    }

    void theParentLevelIsCopied() {
        UIElement element(handle("menu.item"), nullptr);
        std::unique_ptr<UIElement> parent(element.copyParentElement());
        QVERIFY(parent && !parent->parent());
        QCOMPARE(parent->hierarchySize(), element.hierarchySize() - 1);
        QCOMPARE(parent->readInternalProperty("role").toString(), QStringLiteral("AXMenu"));
        // A copy, not the same object.
        QVERIFY(parent->platformSpecificEntity() != element.platformSpecificEntity()->parentElement());
    }

    void typeMatchesUpTheHierarchy() {
        UIElementType menuType(nullptr);
        UIElement::copyTypeFromNativeElement(&menuType, handle("menu"));
        NativeUIElement result;
        int levelsUp = -7;
        QVERIFY(!menuType.matchingElementUnderElement(result, levelsUp, NativeUIElement()));
        QCOMPARE(levelsUp, -7);
        QVERIFY(menuType.matchingElementUnderElement(result, levelsUp, handle("menu")));
        QCOMPARE(levelsUp, 0);
        QVERIFY(menuType.matchingElementUnderElement(result, levelsUp, handle("menu.item")));
        QCOMPARE(levelsUp, 1);
        QVERIFY(result == handle("menu"));
        // No menu above the web content's item.
        levelsUp = -7;
        QVERIFY(!menuType.matchingElementUnderElement(result, levelsUp, handle("web.item")));
        QCOMPARE(levelsUp, -7);
    }

    void aMenuItemInWebContentIsAKindOfItsOwn() {
        UIElementType web(nullptr);
        UIElementType plain(nullptr);
        UIElement::copyTypeFromNativeElement(&web, handle("web.item"));
        UIElement::copyTypeFromNativeElement(&plain, handle("menu.item"));
        QCOMPARE(web.identifier(QStringLiteral("AXRole")), QStringLiteral("AXUCWebAreaMenuItem"));
        QCOMPARE(plain.identifier(QStringLiteral("AXRole")), QStringLiteral("AXMenuItem"));
        QCOMPARE(web.description(), plain.description());
        QVERIFY(web.identifiers() != plain.identifiers());
    }

    void specialTypes() {
        UIElementType type(nullptr);
        QVERIFY(!type.isSpecialElement());
        type.setSpecialValue(QString());
        QVERIFY(type.isSpecialElement());
        QCOMPARE(type.specialValue(), QString());
        QVERIFY(!type.isNull());
    }

    void debugStreams() {
        UIElement element(handle("menu.item"), nullptr);
        UIElementCollection collection;
        UIElementType type({{QStringLiteral("AXRole"), QStringLiteral("AXButton")}},
                           QStringLiteral("button"));
        QString text;
        QDebug(&text) << element << collection << type;
        // QDebug puts a blank behind each item.
        QCOMPARE(text.trimmed(),
                 QStringLiteral("UIElement(%1) UIElementCollection(< No UI element >) UIElementType(button)")
                     .arg(element.shortDescription(true, true, true)));
        text.clear();
        QDebug(&text) << static_cast<UIElement*>(nullptr) << static_cast<UIElementCollection*>(nullptr)
                      << static_cast<UIElementType*>(nullptr);
        QCOMPARE(text.trimmed(),
                 QStringLiteral("UIElement(0x0) UIElementCollection(0x0) UIElementType(0x0)"));
    }
};

QTEST_GUILESS_MAIN(tst_elementModel)
#include "tst_elementModel.moc"
