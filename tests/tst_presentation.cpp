#include "fixtureHandles.h"
#include "platformTestSupport.h"
#include "testSupport.h"

#include "UIElementType.h"
#include "UIElement_p.h"
#include "logCapture.h"

#include <QFile>
#include <QSignalSpy>
#include <QTranslator>

#include <memory>

namespace {

// Knows one text of the element descriptions, and only in their own context.
class TitleTranslator : public QTranslator {
public:
    QString translate(const char* context, const char* source, const char*, int) const override {
        return qstrcmp(context, "UIElement_p") == 0 && qstrcmp(source, "Title") == 0 ? QStringLiteral("Titel")
                                                                                     : QString();
    }
    bool isEmpty() const override { return false; }
};

using Values = QMap<QString, QVariant>;
using Identifiers = QMap<QString, QString>;

} // namespace

// Descriptions captured on tests/fixtures/presentation-desktop.json: Editor (com.example.editor)
// with a toolbar of a titled toggle button and an untitled button, and a menu item in its menu
// bar; Viewer with a menu item inside web content and a group whose host lists no children; and
// an application that has neither bundle id nor executable.
class tst_presentation : public QObject, private VirtualDesktopTestBase {
    Q_OBJECT

    QByteArray fixture;

    NativeUIElement handle(const QString& id) const { return fixtureHandle(*desktop, id); }
    // A capture of a fixture element; the degenerate one logs its full search, which is not asserted here.
    std::unique_ptr<UIElement_p> capture(const QString& id) const {
        std::unique_ptr<UIElement_p> element;
        logOf(
            [&] { element = std::make_unique<UIElement_p>(id.isEmpty() ? NativeUIElement() : handle(id)); });
        return element;
    }
    static QList<UIElement_p*> chainOf(UIElement_p& element) {
        QList<UIElement_p*> chain;
        element.topDownElementList(chain);
        return chain;
    }

private slots:
    void initTestCase() {
        QFile file(UIET_FIXTURES_DIR "/presentation-desktop.json");
        QVERIFY(file.open(QIODevice::ReadOnly));
        fixture = file.readAll();
        // The translator in force at first use names the attributes for the life of the process.
        TitleTranslator translator;
        QVERIFY(QCoreApplication::installTranslator(&translator));
        UIElement_p::attributeDisplayName(QStringLiteral("AXRole"));
        QCoreApplication::removeTranslator(&translator);
    }
    void init() {
        QVERIFY(installDesktop([this](VirtualDesktop& desktop) { return desktop.load(fixture); }));
    }
    void cleanup() { uninstallDesktopAndCheckReferences(); }

    void attributeTables_data() {
        QTest::addColumn<QString>("key");
        QTest::addColumn<QString>("displayName");
        QTest::addColumn<bool>("boolean");
        const struct {
            const char *tag, *key, *displayName;
            bool boolean;
        } rows[] = {{"translated at first use", "AXTitle", "Titel", false},
                    {"yes or no", "AXEnabled", "Enabled", true},
                    {"edited, edited as text", "AXEdited", "Edited", false},
                    {"private key", "matchingRoleChildIndex", "Sibling type order", false},
                    {"unknown key", "AXNoSuchThing", "AXNoSuchThing", false},
                    {"keys are case-sensitive", "axenabled", "axenabled", false}};
        for (const auto& row : rows)
            QTest::newRow(row.tag) << QString(row.key) << QString(row.displayName) << row.boolean;
    }
    void attributeTables() {
        QFETCH(QString, key);
        QFETCH(QString, displayName);
        QFETCH(bool, boolean);
        QCOMPARE(UIElement_p::attributeDisplayName(key), displayName);
        QCOMPARE(UIElement_p::attributeHasBooleanValue(key), boolean);
    }

    // The application shows only what identifies it; every other level its attributes and the
    // relevant properties; a level outside the chain nothing.
    void valuesShown() {
        const auto bold = capture("bold");
        QCOMPARE(bold->attributeValuesForElementAtHierarchyLevel(0),
                 (Values{{"bundleId", "com.example.editor"}, {"processName", "editor"}}));
        const Values leaf = bold->attributeValuesForElementAtHierarchyLevel(3);
        QCOMPARE(leaf.value("AXTitle"), QVariant("Bold"));
        QCOMPARE(leaf.value("AXSubrole"), QVariant("AXToggle"));
        QCOMPARE(leaf.value("childIndex"), QVariant(0));
        QCOMPARE(leaf.value("matchingRoleChildIndex"), QVariant(0));
        QCOMPARE(leaf.value("childCount"), QVariant(0));
        QCOMPARE(leaf.value("localRect"), QVariant(QRect(10, 5, 30, 30)));
        QVERIFY(bold->attributeValuesForElementAtHierarchyLevel(-1).isEmpty());
        QVERIFY(bold->attributeValuesForElementAtHierarchyLevel(4).isEmpty());

        const auto lost = capture("strayLeaf");
        QVERIFY(lost->isDegenerate());
        const Values top = lost->attributeValuesForElementAtHierarchyLevel(0);
        QCOMPARE(top.value("AXRole"), QVariant("AXGroup"));
        QVERIFY(top.contains("localRect") && !top.contains("bundleId") && !top.contains("processName"));
    }

    void writes_data() {
        QTest::addColumn<QString>("name");
        QTest::addColumn<QVariant>("value");
        QTest::addColumn<QByteArray>("property");
        QTest::addColumn<QVariant>("propertyValue");
        QTest::addColumn<QVariant>("attribute"); // invalid: not in attributes
        const QVariant threeFive = QVariantList{3, 5};
        QTest::newRow("child index list")
            << "childIndex" << threeFive << QByteArray("childIndex") << QVariant(3) << threeFive;
        QTest::newRow("single child index")
            << "childIndex" << QVariant(7) << QByteArray("childIndex") << QVariant(7) << QVariant();
        QTest::newRow("title list") << "AXTitle" << QVariant(QStringList{"Bold", "Fett"})
                                    << QByteArray("title") << QVariant("Bold")
                                    << QVariant(QStringList{"Bold", "Fett"});
        QTest::newRow("role") << "AXRole" << QVariant("AXCheckBox") << QByteArray("role")
                              << QVariant("AXCheckBox") << QVariant("AXCheckBox");
        QTest::newRow("attribute only")
            << "AXSubrole" << QVariant("AXSwitch") << QByteArray() << QVariant() << QVariant("AXSwitch");
        QTest::newRow("empty list") << "processName" << QVariant(QStringList()) << QByteArray("processName")
                                    << QVariant("") << QVariant();
    }
    void writes() {
        QFETCH(QString, name);
        QFETCH(QVariant, value);
        QFETCH(QByteArray, property);
        QFETCH(QVariant, propertyValue);
        QFETCH(QVariant, attribute);
        const auto bold = capture("bold");
        QCOMPARE(logOf([&] { bold->setAttributeValueForElementAtHierarchyLevel(3, name, value); }),
                 QStringList());
        if (!property.isEmpty())
            QCOMPARE(bold->property(property), propertyValue);
        QCOMPARE(bold->attributes().value(name), attribute);
        if (attribute.isValid())
            QCOMPARE(bold->attributeValuesForElementAtHierarchyLevel(3).value(name), attribute);
        // Other levels keep their own values.
        QCOMPARE(bold->parentElement()->processName(), QStringLiteral("editor"));
    }

    // An empty list reaches the property as an empty string, which an int property drops.
    void emptyListAfterList() {
        const auto bold = capture("bold");
        bold->setAttributeValueForElementAtHierarchyLevel(3, "childIndex", QVariantList{3, 5});
        bold->setAttributeValueForElementAtHierarchyLevel(3, "childIndex", QVariantList());
        QCOMPARE(bold->childIndex(), 3);
        QCOMPARE(bold->attributes().value("childIndex"), QVariant(QString()));
    }

    void applicationWrites_data() {
        QTest::addColumn<int>("level");
        QTest::addColumn<QVariant>("value");
        QTest::addColumn<QStringList>("bundleIds");
        QTest::addColumn<QString>("applicationName");
        const QString editor = "com.example.editor", viewer = "com.example.viewer";
        QTest::newRow("at the top") << 0 << QVariant(viewer) << QStringList{viewer, viewer, viewer, viewer}
                                    << "Viewer";
        QTest::newRow("list at the top") << 0 << QVariant(QStringList{viewer, editor})
                                         << QStringList{viewer, viewer, viewer, viewer} << "Viewer";
        QTest::newRow("below the top")
            << 2 << QVariant(viewer) << QStringList{editor, editor, viewer, editor} << "Editor";
    }
    void applicationWrites() {
        QFETCH(int, level);
        QFETCH(QVariant, value);
        QFETCH(QStringList, bundleIds);
        QFETCH(QString, applicationName);
        const auto bold = capture("bold");
        bold->setAttributeValueForElementAtHierarchyLevel(level, "bundleId", value);
        QStringList found;
        for (UIElement_p* element : chainOf(*bold)) {
            found << element->bundleId();
            QCOMPARE(element->applicationName(), applicationName);
        }
        QCOMPARE(found, bundleIds);
        QCOMPARE(bold->attributeValuesForElementAtHierarchyLevel(0).value("bundleId").toStringList(),
                 level == 0 ? value.toStringList() : QStringList{"com.example.editor"});
    }

    void invalidWrites() {
        const auto bold = capture("bold");
        QTest::ignoreMessage(QtWarningMsg, "Tried to set invalid attribute name on UI element: AXHelp");
        bold->setAttributeValueForElementAtHierarchyLevel(3, "AXHelp", "help");
        QVERIFY(!bold->attributes().contains("AXHelp"));
        // A level outside the chain is ignored without a word.
        QCOMPARE(logOf([&] {
                     bold->setAttributeValueForElementAtHierarchyLevel(-1, "AXHelp", "help");
                     bold->setAttributeValueForElementAtHierarchyLevel(4, "childIndex", 9);
                 }),
                 QStringList());
        QCOMPARE(bold->childIndex(), 0);
    }

    void levelSettings() {
        const auto bold = capture("bold");
        UIElement_p* window = chainOf(*bold).at(1);
        QSignalSpy changed(window, SIGNAL(optionsChanged()));
        bold->setOptionForElementAtHierarchyLevel(1, "syncToProToolsSelectedTrack", true);
        QCOMPARE(changed.count(), 1);
        QCOMPARE(bold->optionForElementAtHierarchyLevel(1, "syncToProToolsSelectedTrack"), QVariant(true));
        QVERIFY(bold->usesSpecializedMatchingMethodAtHierarchyLevel(1));
        QVERIFY(!bold->usesSpecializedMatchingMethodAtHierarchyLevel(2));
        bold->setOptionForElementAtHierarchyLevel(2, "logicProSelectFirstEmptyPluginSlot", true);
        bold->setOptionForElementAtHierarchyLevel(1, "syncToProToolsSelectedTrack", false);
        QVERIFY(bold->usesSpecializedMatchingMethodAtHierarchyLevel(2));
        QVERIFY(!bold->usesSpecializedMatchingMethodAtHierarchyLevel(1));
        bold->setOptionForElementAtHierarchyLevel(4, "logicProSelectFirstEmptyPluginSlot", true);
        bold->setOptionForElementAtHierarchyLevel(-1, "logicProSelectFirstEmptyPluginSlot", true);
        QVERIFY(bold->options().isEmpty());
        QVERIFY(!bold->optionForElementAtHierarchyLevel(-1, "syncToProToolsSelectedTrack").isValid());
        QVERIFY(!bold->optionForElementAtHierarchyLevel(0, "syncToProToolsSelectedTrack").isValid());

        bold->setDefiningAttributesForElementAtHierarchyLevel(2, {"AXRole"});
        QCOMPARE(bold->definingAttributesForElementAtHierarchyLevel(2), QStringList{"AXRole"});
        bold->setDefiningAttributesForElementAtHierarchyLevel(-1, {"AXTitle"});
        QVERIFY(bold->definingAttributesForElementAtHierarchyLevel(4).isEmpty());
        QVERIFY(bold->canEditDefiningAttributesAtHierarchyLevel(-1));
    }

    void shortDescriptions_data() {
        QTest::addColumn<QString>("id");
        QTest::addColumn<int>("level");
        QTest::addColumn<QList<bool>>("flags"); // role, application, target type
        QTest::addColumn<QString>("targetType");
        QTest::addColumn<QStringList>("topDefinedBy"); // with custom matching; empty: not custom
        QTest::addColumn<QString>("expected");
        const QList<bool> all{true, true, true};
        QTest::newRow("button") << "bold" << 3 << QList<bool>{true, true, false} << "AXGroup" << QStringList()
                                << "toggle button \"Bold\" - Editor";
        QTest::newRow("with target type") << "bold" << 3 << all << "AXGroup" << QStringList()
                                          << "AXGroup containing toggle button \"Bold\" - Editor";
        QTest::newRow("no title, no role")
            << "italic" << 3 << QList<bool>{false, false, false} << "" << QStringList() << "\"\"";
        QTest::newRow("no title") << "italic" << 3 << all << "" << QStringList() << "button - Editor";
        QTest::newRow("a level above")
            << "bold" << 1 << QList<bool>{true, false, false} << "" << QStringList() << "AXWindow \"Draft\"";
        QTest::newRow("any application") << "bold" << 3 << all << "" << QStringList{"AXTitle"}
                                         << "toggle button \"Bold\" - Any application";
        QTest::newRow("defined by process")
            << "bold" << 3 << all << "" << QStringList{"processName"} << "toggle button \"Bold\" - editor";
        QTest::newRow("unknown application")
            << "go" << 2 << all << "" << QStringList() << "AXButton \"Go\" - Unknown application";
        QTest::newRow("null") << "" << 0 << all << "AXGroup" << QStringList() << "< Invalid UI element >";
        QTest::newRow("level outside") << "bold" << 4 << all << "" << QStringList() << "";
    }
    void shortDescriptions() {
        QFETCH(QString, id);
        QFETCH(int, level);
        QFETCH(QList<bool>, flags);
        QFETCH(QString, targetType);
        QFETCH(QStringList, topDefinedBy);
        QFETCH(QString, expected);
        const auto element = capture(id);
        element->setTargetType(targetType);
        if (!topDefinedBy.isEmpty()) {
            element->setMatchingMethod(CustomMatching);
            element->setDefiningAttributesForElementAtHierarchyLevel(0, topDefinedBy);
        }
        QCOMPARE(element->shortDescriptionOfElementAtHierarchyLevel(level, flags[0], flags[1], flags[2]),
                 expected);
    }

    void hierarchyDescriptions_data() {
        QTest::addColumn<QString>("id");
        QTest::addColumn<QString>("targetType");
        QTest::addColumn<QString>("plain");
        QTest::addColumn<QString>("html");
        QTest::newRow("sound")
            << "bold"
            << ""
            << "Editor > AXWindow: \"Draft\" > AXToolbar > toggle button: \"Bold\""
            << "<span>Editor <b>&gt;</b> AXWindow: \"Draft\" <b>&gt;</b> AXToolbar <b>&gt;</b> "
               "toggle button: \"Bold\"</span>";
        QTest::newRow("target type, unescaped")
            << "webItem"
            << "AXGroup"
            << "AXGroup containing Viewer > AXWindow: \"Tom & Jerry\" > HTML content > AXMenu > menu item: "
               "\"Open link\""
            << "<span>AXGroup containing Viewer <b>&gt;</b> AXWindow: \"Tom & Jerry\" <b>&gt;</b> HTML "
               "content "
               "<b>&gt;</b> AXMenu <b>&gt;</b> menu item: \"Open link\"</span>";
        QTest::newRow("degenerate top shows its application")
            << "strayLeaf"
            << ""
            << "Viewer > AXStaticText: \"Lost\""
            << "<span>Viewer <b>&gt;</b> AXStaticText: \"Lost\"</span>";
        QTest::newRow("null") << ""
                              << ""
                              << " > < Invalid UI element >"
                              << "&lt; Invalid UI element &gt;";
    }
    void hierarchyDescriptions() {
        QFETCH(QString, id);
        QFETCH(QString, targetType);
        QFETCH(QString, plain);
        QFETCH(QString, html);
        const auto element = capture(id);
        element->setTargetType(targetType);
        QCOMPARE(element->hierarchyDescription(), plain);
        QCOMPARE(element->htmlHierarchyDescription(), html);
    }

    // From the element up, each line two blanks further in; an application reports no frame.
    void debugInfo() {
        QCOMPARE(capture("bold")->debugInfo(),
                 QStringLiteral(
                     "UIElement(title=Bold, role=AXButton, childIndex=0, matchingTypeChildIndex=0, "
                     "localRect=(10,5 30x30), screenRect=(110,125 30x30))\n"
                     "  UIElement(title=, role=AXToolbar, childIndex=0, matchingTypeChildIndex=0, "
                     "localRect=(0,20 800x40), screenRect=(100,120 800x40))\n"
                     "    UIElement(title=Draft, role=AXWindow, childIndex=1, matchingTypeChildIndex=0, "
                     "localRect=(100,100 800x600), screenRect=(100,100 800x600))\n"
                     "      UIElement(title=Editor, role=AXApplication, childIndex=-1, "
                     "matchingTypeChildIndex=-1, localRect=(0,0 0x0), screenRect=(0,0 0x0))"));
    }

    void types_data() {
        QTest::addColumn<QString>("id");
        QTest::addColumn<QString>("description");
        QTest::addColumn<Identifiers>("identifiers");
        QTest::addColumn<bool>("fromSaved"); // copyType; else copyTypeFromNativeElement
        const Identifiers toggle{{"AXRole", "AXButton"}, {"AXSubrole", "AXToggle"}};
        QTest::newRow("saved, subrole") << "bold"
                                        << "toggle button" << toggle << true;
        QTest::newRow("saved, no subrole") << "italic"
                                           << "button" << Identifiers{{"AXRole", "AXButton"}} << true;
        QTest::newRow("live, subrole") << "bold"
                                       << "toggle button" << toggle << false;
        QTest::newRow("live menu item") << "fileOpen"
                                        << "menu item" << Identifiers{{"AXRole", "AXMenuItem"}} << false;
        QTest::newRow("live menu item in web content")
            << "webItem"
            << "menu item" << Identifiers{{"AXRole", "AXUCWebAreaMenuItem"}} << false;
        QTest::newRow("live web area") << "web"
                                       << "HTML content" << Identifiers{{"AXRole", "AXWebArea"}} << false;
        QTest::newRow("null handle") << ""
                                     << "old" << Identifiers{{"_special", "x"}} << false;
    }
    void types() {
        QFETCH(QString, id);
        QFETCH(QString, description);
        QFETCH(Identifiers, identifiers);
        QFETCH(bool, fromSaved);
        // The identifiers are replaced whole; a null handle leaves the type as it is.
        UIElementType type({{"_special", "x"}}, "old");
        if (fromSaved)
            capture(id)->copyType(&type);
        else
            UIElement_p::copyTypeFromNativeElement(&type, id.isEmpty() ? NativeUIElement() : handle(id));
        QCOMPARE(type.description(), description);
        QCOMPARE(Identifiers(type.identifiers()), identifiers);
    }
};

UIET_TEST_MAIN(tst_presentation)
#include "tst_presentation.moc"
