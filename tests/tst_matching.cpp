#include "platformTestSupport.h"
#include "testSupport.h"

#include "UIElement_p.h"
#include "osxTranslationMapping.h"
#include "osxUIElementUtils.h"

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <unistd.h>

// Matching of one level on tests/fixtures/matching-desktop.json. Its application gets the pid of
// this test process, so that the translations of the process's own catalogs (Qt's) apply there:
// "Abbrechen" is German for "Cancel".
//   ties:  a label, then the toggle buttons ties.a, .b, .c (children 1-3, buttons 0-2), ties.other
//   menu:  menu items; the first titled "Save" is a separator, then .open, .save, .cancel
//          ("Abbrechen"), the commands, at children and menu items 1-3
//   loose: check boxes .exact (with one attribute more), .near, .bare, .switch, and a label
//   strict: "Cancel" as button and as text, "Abbrechen" and "cancel" as buttons
//   custom: custom.0 to custom.5 at (200, 300); moved: the same places of .play and .stop at (600, 500)

namespace {

using ArrayRef = CFTypeSmartRef<CFArrayRef>;
using Attributes = QMap<QString, QVariant>;

// One level of a description, as capture or the user leaves it.
struct Description {
    Description(const QString& role = {}, const Attributes& attributes = {})
        : role(role), attributes(attributes) {}

    QString role;
    Attributes attributes;
    int childIndex = -1;
    int roleIndex = -1;
    QString title;
    int method = BuiltInMatching;
    QStringList defining;
    int childCount = 0;
    QRect localRect;

    Description at(int child, int ofRole) const {
        Description copy = *this;
        copy.childIndex = child;
        copy.roleIndex = ofRole;
        return copy;
    }
    Description titled(const QString& text) const {
        Description copy = *this;
        copy.title = text;
        return copy;
    }
    Description strict() const {
        Description copy = *this;
        copy.method = StrictMatching;
        return copy;
    }
    Description custom(const QStringList& keys, int count = 0, QRect rect = QRect()) const {
        Description copy = *this;
        copy.method = CustomMatching;
        copy.defining = keys;
        copy.childCount = count;
        copy.localRect = rect;
        return copy;
    }

    void applyTo(UIElement_p& level) const {
        level.setProperty("role", role);
        level.setProperty("title", title);
        level.setProperty("attributes", QVariant::fromValue(ZRSerializableVariantMap(attributes)));
        level.setChildIndex(childIndex);
        level.setMatchingRoleChildIndex(roleIndex);
        level.setChildCount(childCount);
        level.setLocalRect(localRect);
        level.setDefiningAttributes(defining);
        level.setMatchingMethod(method);
    }
};

const Description kToggle{"AXButton", {{"AXSubrole", "AXToggle"}}};
const Description kCommand{"AXMenuItem", {{"AXSubrole", "AXCommand"}}};
const Description kAny{"AXButton", {}};

bool catalogsKnowCancel() {
    return translationsOfStringForProcess("Abbrechen", getpid()).contains("Cancel");
}

} // namespace

Q_DECLARE_METATYPE(Description)

class tst_matching : public QObject, private VirtualDesktopTestBase {
    Q_OBJECT

    QJsonObject fixture;
    QStringList tried;
    AXUIElementRef lastAnswer = nullptr;
    bool abortFlag = false;
    // Of the row, from fetchLevel.
    std::unique_ptr<UIElement_p> level;
    ArrayRef children;
    bool useTranslations = false;

    ArrayRef childrenOf(const QString& id) const {
        const CFTypeSmartRef<AXUIElementRef> parent(desktop->copyElement(id));
        return ArrayRef(copyUIElementChildren(parent));
    }

    // The callback of the walk: notes each child it is given, answers it retained when it is the
    // one below which the chain is found, and sets the abort flag at the one so named.
    std::function<AXUIElementRef(AXUIElementRef)> descendTo(const QString& found, const QString& abortAt) {
        tried.clear();
        lastAnswer = nullptr;
        return [this, found, abortAt](AXUIElementRef child) -> AXUIElementRef {
            tried.append(idOf(child));
            abortFlag = abortFlag || tried.last() == abortAt;
            lastAnswer = tried.last() == found ? retained(child) : nullptr;
            return lastAnswer;
        };
    }

    QStringList idsOf(const QList<AXUIElementRef>& elements) const {
        QStringList ids;
        for (const AXUIElementRef element : elements)
            ids.append(idOf(element));
        return ids;
    }

    // The rows' common columns: the description, and where the level's children come from.
    static void addDescriptionColumns() {
        QTest::addColumn<Description>("description");
        QTest::addColumn<QString>("group");
        QTest::addColumn<bool>("translations");
    }
    UIElementSearchOptions options() const {
        return useTranslations ? UIElementSearchMatchTranslations : UIElementSearchOptions();
    }

    // The level, its children and the option from those columns; false when the row needs the
    // German catalog and it is missing.
    bool fetchLevel() {
        QFETCH(Description, description);
        QFETCH(QString, group);
        QFETCH(bool, translations);
        level = std::make_unique<UIElement_p>();
        description.applyTo(*level);
        children = childrenOf(group);
        useTranslations = translations;
        return !translations || catalogsKnowCancel();
    }

private slots:
    void initTestCase() {
        QFile file(UIET_FIXTURES_DIR "/matching-desktop.json");
        QVERIFY(file.open(QIODevice::ReadOnly));
        fixture = QJsonDocument::fromJson(file.readAll()).object();
        QJsonArray applications = fixture["applications"].toArray();
        QJsonObject application = applications[0].toObject();
        application["pid"] = int(getpid());
        applications[0] = application;
        fixture["applications"] = applications;
    }
    void init() {
        abortFlag = false;
        QVERIFY(installDesktop([this](VirtualDesktop& each) { return each.load(fixture); }));
    }
    void cleanup() {
        children.reset();
        level.reset();
        uninstallDesktopAndCheckReferences();
    }

    void candidates_data() {
        addDescriptionColumns();
        QTest::addColumn<QStringList>("ids"); // sorted
        const auto row = [](const char* name, const Description& description, const QString& group,
                            const QStringList& ids, bool translations = false) {
            QTest::newRow(name) << description << group << translations << ids;
        };
        const Description checkBox{"AXCheckBox", {{"AXSubrole", "AXToggle"}, {"AXDescription", "Loud"}}};
        row("exact, an attribute more not read", checkBox, "loose", {"loose.exact"});
        row("private and other keys not compared",
            Description{checkBox.role,
                        {{"AXSubrole", "AXToggle"},
                         {"AXDescription", "Loud"},
                         {"childIndex", "4"},
                         {"AXValue", "1"},
                         {"AXTitle", "x"}}},
            "loose", {"loose.exact"});
        row("loose only when none is exact",
            Description{checkBox.role, {{"AXSubrole", "AXToggle"}, {"AXDescription", "Soft"}}}, "loose",
            {"loose.bare", "loose.exact", "loose.near"});
        row("questionable attributes only relax",
            Description{checkBox.role, {{"AXSubrole", "AXRadio"}, {"AXDescription", "Loud"}}}, "loose", {});
        row("nothing interesting: every child of the role", Description{checkBox.role, {}}, "loose",
            {"loose.bare", "loose.exact", "loose.near", "loose.switch"});
        row("role compared with case", Description{"AXcheckBox", {}}, "loose", {});
        row("strict: AXRole an attribute, the role not",
            Description{"AXStaticText", {{"AXRole", "AXButton"}, {"AXTitle", "Cancel"}, {"AXValue", "2"}}}
                .strict(),
            "strict", {"strict.button"});
        row("strict without AXRole: any role", Description{"AXButton", {{"AXTitle", "Cancel"}}}.strict(),
            "strict", {"strict.button", "strict.text"});
        row("strict title letter for letter", Description{"AXButton", {{"AXTitle", "cancel"}}}.strict(),
            "strict", {"strict.lower"});
        row("strict title translated",
            Description{"AXButton", {{"AXRole", "AXButton"}, {"AXTitle", "Cancel"}}}.strict(), "strict",
            {"strict.button", "strict.german"}, true);
    }
    void candidates() {
        QFETCH(QStringList, ids);
        if (!fetchLevel())
            QSKIP("Qt's German catalog is not installed");
        const Ref<AXUIElementRef> stale(desktop->copyElement("window"));
        QSet<AXUIElementRef> matches{stale};
        if (level->matchingMethod() == StrictMatching)
            level->findElementsWithStrictMatchingRoleAndAttributes(matches, children, useTranslations);
        else
            level->findElementsWithMatchingRoleAndAttributes(matches, children, useTranslations);
        QStringList found = idsOf(QList<AXUIElementRef>(matches.cbegin(), matches.cend()));
        found.sort();
        QCOMPARE(found, ids);
    }

    // The order of the tries, and the abort flag: "before" is set before the call, another name is
    // set when that child is tried.
    void builtInOrder_data() {
        addDescriptionColumns();
        QTest::addColumn<QString>("found");
        QTest::addColumn<QString>("abortAt");
        QTest::addColumn<QStringList>("tried");
        const auto row = [](const char* name, const Description& description, const QString& group,
                            const QStringList& tried, const QString& found = {}, const QString& abortAt = {},
                            bool translations = false) {
            QTest::newRow(name) << description << group << translations << found << abortAt << tried;
        };
        const QStringList abc{"ties.a", "ties.b", "ties.c"};
        row("no saved place: child order", kToggle, "ties", abc);
        row("role index, child index, rest", kToggle.at(2, 2), "ties", {"ties.c", "ties.b", "ties.a"});
        row("both indices at one: tried once", kToggle.at(3, 2), "ties", {"ties.c", "ties.a", "ties.b"});
        row("failed below: the next", kToggle.at(2, 2), "ties", {"ties.c", "ties.b", "ties.a"}, "ties.a");
        row("child index beyond the children", kToggle.at(9, -1), "ties", abc);
        Description listed = kToggle;
        listed.attributes["childIndex"] = QVariantList{3, 1};
        listed.attributes["matchingRoleChildIndex"] = QStringList{"1"};
        row("index lists in attributes", listed, "ties", {"ties.b", "ties.a", "ties.c"});
        row("no title stage for a button", kToggle.at(1, -1).titled("C"), "ties", abc);
        Description aSwitch{"AXButton", {{"AXSubrole", "AXSwitch"}}};
        row("lone candidate: its answer is final", aSwitch.at(1, 0), "ties", {"ties.other"});
        row("no candidate", Description{"AXButton", {{"AXSubrole", "AXNone"}}}, "ties", {});
        row("strict, nothing saved: every child", kAny.strict().at(2, 2), "ties",
            {"ties.c", "ties.b", "ties.label", "ties.a", "ties.other"});
        row("strict with AXRole",
            Description{"AXButton", {{"AXRole", "AXButton"}, {"AXSubrole", "AXToggle"}}}.strict().at(-1, 1),
            "ties", {"ties.b", "ties.a", "ties.c"});

        row("title before the indices", kCommand.at(-1, 1).titled("Abbrechen"), "menu",
            {"menu.cancel", "menu.open", "menu.save"});
        row("titled child failed below", kCommand.at(-1, 1).titled("Abbrechen"), "menu",
            {"menu.cancel", "menu.open", "menu.save"}, "menu.save");
        row("first with the title no candidate: no other title", kCommand.titled("Save"), "menu",
            {"menu.open", "menu.save", "menu.cancel"});
        row("title untranslated", kCommand.at(-1, 1).titled("Cancel"), "menu",
            {"menu.open", "menu.save", "menu.cancel"});
        row("title translated", kCommand.at(-1, 1).titled("Cancel"), "menu",
            {"menu.cancel", "menu.open", "menu.save"}, {}, {}, true);

        row("abort before", kToggle.at(2, 2), "ties", {}, {}, "before");
        row("abort before a lone candidate", aSwitch, "ties", {}, {}, "before");
        row("abort in the title stage", kCommand.at(-1, 1).titled("Abbrechen"), "menu", {"menu.cancel"}, {},
            "menu.cancel");
        Description twoRanked = kToggle.at(2, -1);
        twoRanked.attributes["matchingRoleChildIndex"] = QVariantList{0, 2};
        row("abort in the role index stage: it ends first", twoRanked, "ties", {"ties.a", "ties.c"}, {},
            "ties.a");
        row("abort in the child index stage", kToggle.at(2, 2), "ties", {"ties.c", "ties.b"}, {}, "ties.b");
        row("abort in the rest stage", kToggle, "ties", {"ties.a"}, {}, "ties.a");
    }
    void builtInOrder() {
        QFETCH(QString, found);
        QFETCH(QString, abortAt);
        QFETCH(QStringList, tried);
        if (!fetchLevel())
            QSKIP("Qt's German catalog is not installed");
        abortFlag = abortAt == "before";
        const AXUIElementRef result = level->selectMatchesUsingBuiltInMatching(
            descendTo(found, abortAt), children, options(), &abortFlag);
        const Ref<AXUIElementRef> owned(result);
        QCOMPARE(this->tried, tried);
        // Handed up as descend gave it.
        QCOMPARE(result, lastAnswer);
    }

    void customOrder_data() {
        addDescriptionColumns();
        QTest::addColumn<bool>("withParent");
        QTest::addColumn<QString>("found");
        QTest::addColumn<bool>("abortBefore");
        QTest::addColumn<QStringList>("tried");
        const auto row = [](const char* name, const Description& description, const QStringList& tried,
                            const QString& found = {}, const QString& group = "custom",
                            bool withParent = true, bool translations = false, bool abortBefore = false) {
            QTest::newRow(name) << description << group << translations << withParent << found << abortBefore
                                << tried;
        };
        const auto ids = [](std::initializer_list<int> numbers) {
            QStringList list;
            for (const int number : numbers)
                list.append(QStringLiteral("custom.%1").arg(number));
            return list;
        };
        const auto with = [](const QString& key, const QVariant& value, const Description& base = kAny) {
            Description copy = base;
            copy.attributes[key] = value;
            return copy;
        };
        row("nothing defining: all, in child order", kAny.custom({}), ids({0, 1, 2, 3, 4, 5}));
        row("child index alone", kAny.at(3, -1).custom({"childIndex"}), ids({3}));
        const Description twoAndFive = with("childIndex", QVariantList{5, 2}).custom({"childIndex"});
        row("index list: in child order", twoAndFive, ids({2, 5}));
        row("the first that leads on wins", twoAndFive, ids({2}), "custom.2");
        row("a later one after an earlier failed", twoAndFive, ids({2, 5}), "custom.5");
        row("index in attributes wins over the property",
            with("childIndex", "5").at(2, -1).custom({"childIndex"}), ids({5}));
        row("index that is no number: the first", with("childIndex", "x").custom({"childIndex"}), ids({0}));
        row("index beyond the children", kAny.at(9, -1).custom({"childIndex"}), {});
        row("role index by the level's role", kAny.at(-1, 1).custom({"matchingRoleChildIndex"}), ids({2}));
        const Description stop = with("AXTitle", "Stop");
        row("attributes, then a hard index filter", stop.at(0, -1).custom({"AXTitle", "childIndex"}), {});
        row("a lone candidate is filtered too",
            with("AXTitle", "Play").at(1, -1).custom({"AXTitle", "childIndex"}), {});
        row("defining but not in attributes: not compared", stop.custom({"AXTitle", "AXHelp"}), ids({2, 3}));
        row("AXRole when defining", with("AXRole", "AXStaticText").custom({"AXRole"}), ids({1, 4}));
        row("AXRole when not defining", with("AXRole", "AXStaticText", stop).custom({"AXTitle"}),
            ids({2, 3}));
        row("child count from the property alone", with("childCount", "0").custom({"childCount"}, 2),
            ids({2, 5}));
        const QRect stopPlace(70, 10, 20, 20);
        row("local rect", kAny.custom({"localRect"}, 0, stopPlace), ids({2}));
        row("local rect, parent moved", kAny.custom({"localRect"}, 0, stopPlace), {"moved.stop"}, {},
            "moved");
        row("local rect list",
            with("localRect", QVariantList{QRect(130, 10, 20, 20), QRect(10, 10, 20, 20)})
                .custom({"localRect"}),
            ids({0, 5}));
        row("null parent: screen coordinates", kAny.custom({"localRect"}, 0, QRect(270, 310, 20, 20)),
            ids({2}), {}, "custom", false);
        row("no frame: the null rect", kAny.custom({"localRect"}, 0, QRect()), ids({3}), {}, "custom", false);
        row("no frame, moved like any other",
            kAny.custom({"localRect"}, 0, QRect(QPoint(-200, -300), QPoint(-201, -301))), ids({3}));
        row("translated title", with("AXTitle", "Cancel").custom({"AXTitle"}),
            {"strict.button", "strict.text", "strict.german"}, {}, "strict", true, true);
        row("abort before: nothing tried", kAny.custom({}), {}, {}, "custom", true, false, true);
    }
    void customOrder() {
        QFETCH(QString, group);
        QFETCH(bool, withParent);
        QFETCH(QString, found);
        QFETCH(bool, abortBefore);
        QFETCH(QStringList, tried);
        if (!fetchLevel())
            QSKIP("Qt's German catalog is not installed");
        abortFlag = abortBefore;
        const CFTypeSmartRef<AXUIElementRef> parent(withParent ? desktop->copyElement(group) : nullptr);
        const AXUIElementRef result = level->selectMatchesUsingCustomMatching(descendTo(found, {}), children,
                                                                              parent, options(), &abortFlag);
        const Ref<AXUIElementRef> owned(result);
        QCOMPARE(this->tried, tried);
        QCOMPARE(result, lastAnswer);
    }

    void indices() {
        children = childrenOf("custom");
        QCOMPARE(idsOf(getElementsWithIndices(children, {-1, 1, 6})), QStringList{"custom.1"});
        QCOMPARE(idsOf(getElementsWithMatchingRoleIndices(children, "AXButton", {-1})), QStringList());
        QCOMPARE(idsOf(getElementsWithMatchingRoleIndices(children, "AXButton", {1, 3})),
                 (QStringList{"custom.2", "custom.5"}));
        QVERIFY(getElementsWithIndices(nullptr, {0}).isEmpty());
    }

    void roleAndTitleTest() {
        level = std::make_unique<UIElement_p>();
        Description{"AXButton", {}}.titled("Stop").applyTo(*level);
        children = childrenOf("custom");
        QCOMPARE(idsOf(filterElements(
                     QList<AXUIElementRef>{childAt(children, 0), childAt(children, 2), childAt(children, 3)},
                     [&](AXUIElementRef element) { return level->osxElementIsMatchForThis(element); })),
                 (QStringList{"custom.2", "custom.3"}));
    }

private:
    static AXUIElementRef childAt(CFArrayRef children, CFIndex index) {
        return static_cast<AXUIElementRef>(const_cast<void*>(CFArrayGetValueAtIndex(children, index)));
    }
};

UIET_TEST_MAIN(tst_matching)
#include "tst_matching.moc"
