#include "UIElement.h"
#include "ZRSerializableStructures.h"
#include "dataObjectUtils.h"
#include "testSupport.h"

#include <QMetaMethod>
#include <QSignalSpy>
#include <QTest>

#include <memory>

// A structure made by its meta type and destroyed the same way, seen through the library's view.
class CreatedStructure {
public:
    explicit CreatedStructure(const QByteArray& typeName, const void* copyOf = nullptr)
        : type(QMetaType::fromName(typeName)), data(type.create(copyOf)) {}
    ~CreatedStructure() { type.destroy(data); }
    CreatedStructure(const CreatedStructure&) = delete;
    CreatedStructure& operator=(const CreatedStructure&) = delete;

    // The same cast the library makes on QVariant::constData().
    ZRSerializableStructureBase* operator->() const {
        return static_cast<ZRSerializableStructureBase*>(data);
    }
    QVariant toVariant() const { return QVariant(type, data); }

    QMetaType type;
    void* data;
};

// An alternative of a collection that answers with a fixed code and notes that it was asked.
class ScriptedElement : public UIElement {
    Q_OBJECT
public:
    ScriptedElement(int code, QList<int>* asked) : code(code), asked(asked) {}
    int findUIElementAndCreateOSSpecificRepresentation(NativeUIElement& element,
                                                       QFlags<UIElementSearchOption>, QVariant,
                                                       bool*) const override {
        asked->append(code);
        if (code == UIElementFound)
            element.setScreenPosition(QPoint(code, int(asked->size())));
        return code;
    }
    int code;
    QList<int>* asked;
};

class tst_ZRSerializableStructures : public QObject {
    Q_OBJECT

private Q_SLOTS:
    // Must stay first: nothing may have touched these types before.
    void typesAreRegisteredBeforeMain_data() {
        QTest::addColumn<QByteArray>("name");
        for (const char* name : {"ZRSerializableVariantMap", "ZRSerializableStringMap",
                                 "ZRSerializableVariantList", "ZRSerializableStringList", "UIElementList",
                                 "NativeUIElement", "UIElement*", "UIElementCollection*"})
            QTest::newRow(name) << QByteArray(name);
    }
    void typesAreRegisteredBeforeMain() {
        QFETCH(QByteArray, name);
        const QMetaType type = QMetaType::fromName(name);
        QVERIFY(type.isValid());
        void* instance = type.create();
        QVERIFY(instance);
        type.destroy(instance);
    }

    // Every registered structure must be readable through the base pointer, which the library takes
    // from QVariant::constData(); the gadget's own view goes through the concrete type instead.
    void everyRegisteredStructureBeginsWithItsBase() {
        int structures = 0;
        // Qt hands out the ids of registered types one after another, from just above User.
        for (int id = QMetaType::User + 1; QMetaType::isRegistered(id); ++id) {
            if (!isMetaTypeSerializableStructure(id))
                continue;
            ++structures;
            const QMetaType type(id);
            CreatedStructure structure(type.name());
            const QMetaObject* meta = type.metaObject();
            const QMetaMethod method = meta->method(meta->indexOfMethod("isSequentialStructure()"));
            bool sequential = false;
            QVERIFY2(method.invokeOnGadget(structure.data, Q_RETURN_ARG(bool, sequential)), type.name());
            QCOMPARE(structure->isSequentialStructure(), sequential);
            QCOMPARE(structure->keyType(), sequential ? int(QMetaType::Int) : int(QMetaType::QString));
        }
        QVERIFY(structures >= 5);
    }

    void shape_data() {
        QTest::addColumn<QByteArray>("name");
        QTest::addColumn<int>("keyType");
        QTest::addColumn<int>("valueType");
        QTest::addColumn<bool>("sequential");
        QTest::newRow("variant map") << QByteArray("ZRSerializableVariantMap") << 10 << 41 << false;
        QTest::newRow("string map") << QByteArray("ZRSerializableStringMap") << 10 << 10 << false;
        QTest::newRow("variant list") << QByteArray("ZRSerializableVariantList") << 2 << 41 << true;
        QTest::newRow("string list") << QByteArray("ZRSerializableStringList") << 2 << 10 << true;
        QTest::newRow("element list")
            << QByteArray("UIElementList") << 2 << qMetaTypeId<UIElement*>() << true;
    }
    void shape() {
        QFETCH(QByteArray, name);
        QFETCH(int, keyType);
        QFETCH(int, valueType);
        QFETCH(bool, sequential);
        CreatedStructure structure(name);
        QCOMPARE(structure->keyType(), keyType);
        QCOMPARE(structure->valueType(), valueType);
        QCOMPARE(structure->isSequentialStructure(), sequential);
        QVERIFY(structure->serializableKeys().isEmpty());
        QVERIFY(isMetaTypeSerializableStructure(structure.type.id()));
        QVERIFY(!isQObjectType(structure.type.id()));
    }

    // Lists come back from a settings file in string order of their indices and grow to fit.
    void listsGrowOnWrite_data() {
        QTest::addColumn<QByteArray>("name");
        QTest::addColumn<QVariantList>("keys");
        QTest::addColumn<QVariantList>("values");
        QTest::addColumn<QVariantList>("expected");
        const QVariant none;
        QTest::newRow("index 5 of empty")
            << QByteArray("ZRSerializableVariantList") << QVariantList{5} << QVariantList{"v"}
            << QVariantList{none, none, none, none, none, "v"};
        QTest::newRow("index as string") << QByteArray("ZRSerializableVariantList") << QVariantList{"2"}
                                         << QVariantList{7} << QVariantList{none, none, 7};
        QTest::newRow("file order") << QByteArray("ZRSerializableStringList")
                                    << QVariantList{"0", "1", "10", "2"} << QVariantList{"a", "b", "k", "c"}
                                    << QVariantList{"a", "b", "c", "", "", "", "", "", "", "", "k"};
        QTest::newRow("string list converts") << QByteArray("ZRSerializableStringList") << QVariantList{1}
                                              << QVariantList{42} << QVariantList{"", "42"};
    }
    void listsGrowOnWrite() {
        QFETCH(QByteArray, name);
        QFETCH(QVariantList, keys);
        QFETCH(QVariantList, values);
        QFETCH(QVariantList, expected);
        CreatedStructure structure(name);
        for (int i = 0; i < keys.size(); ++i)
            structure->setVariantValueForKey(keys.at(i), values.at(i));
        QVariantList read;
        QVariantList expectedKeys;
        for (const QVariant& key : structure->serializableKeys()) {
            read << structure->variantValueForKey(key);
            expectedKeys << QVariant(int(expectedKeys.size()));
        }
        QCOMPARE(structure->serializableKeys(), expectedKeys);
        QCOMPARE(read.size(), expected.size());
        for (int i = 0; i < read.size(); ++i) {
            const bool isString = structure->valueType() == QMetaType::QString;
            QCOMPARE(read.at(i), isString ? QVariant(expected.at(i).toString()) : expected.at(i));
        }
    }

    void mapsInsertOnlyOnWrite() {
        ZRSerializableStringMap map;
        map.insert(QStringLiteral("b"), QStringLiteral("2"));
        map.insert(QStringLiteral("a"), QStringLiteral("1"));
        map.insert(QStringLiteral("B"), QStringLiteral("3"));
        QCOMPARE(map.serializableKeys(), (QVariantList{"B", "a", "b"}));
        QCOMPARE(map.variantValueForKey(QStringLiteral("absent")), QVariant(QString()));
        QVERIFY(!map.contains(QStringLiteral("absent")));
        map.setVariantValueForKey(QStringLiteral("c"), QStringLiteral("4"));
        QCOMPARE(map.value(QStringLiteral("c")), QStringLiteral("4"));

        ZRSerializableVariantMap variants;
        QCOMPARE(variants.variantValueForKey(QStringLiteral("absent")), QVariant());
        QVERIFY(variants.isEmpty());
    }

    // A variant that was wrapped into another on its way is stored as what it wraps, one level only.
    void variantInVariant_data() {
        QTest::addColumn<QByteArray>("name");
        QTest::addColumn<QVariant>("key");
        QTest::newRow("map") << QByteArray("ZRSerializableVariantMap") << QVariant(QStringLiteral("k"));
        QTest::newRow("list") << QByteArray("ZRSerializableVariantList") << QVariant(0);
    }
    void variantInVariant() {
        QFETCH(QByteArray, name);
        QFETCH(QVariant, key);
        CreatedStructure structure(name);
        const auto wrap = [](const QVariant& inner) {
            return QVariant(QMetaType::fromType<QVariant>(), &inner);
        };
        const QVariant once = wrap(QVariant(5));
        structure->setVariantValueForKey(key, once);
        QCOMPARE(structure->variantValueForKey(key).metaType(), QMetaType::fromType<int>());
        QCOMPARE(structure->variantValueForKey(key), QVariant(5));
        structure->setVariantValueForKey(key, wrap(once));
        const QVariant stored = structure->variantValueForKey(key);
        QCOMPARE(stored.metaType(), QMetaType::fromType<QVariant>());
        QCOMPARE(stored.value<QVariant>(), QVariant(5));
    }

    void elementListTakesPointersByClass_data() {
        QTest::addColumn<QVariant>("value");
        QTest::addColumn<bool>("storesElement");
        static UIElement element;
        static UIElementCollection notAnElement;
        QTest::newRow("UIElement*") << QVariant::fromValue(&element) << true;
        QTest::newRow("QObject* of an element")
            << QVariant::fromValue(static_cast<QObject*>(&element)) << true;
        QTest::newRow("QObject* of another class")
            << QVariant::fromValue(static_cast<QObject*>(&notAnElement)) << false;
        QTest::newRow("invalid") << QVariant() << false;
        QTest::newRow("plain") << QVariant(3) << false;
    }
    void elementListTakesPointersByClass() {
        QFETCH(QVariant, value);
        QFETCH(bool, storesElement);
        UIElement placeholder;
        UIElementList list{&placeholder}; // must be overwritten, even by null
        list.setVariantValueForKey(0, value);
        QCOMPARE(list.size(), 1);
        const QVariant read = list.variantValueForKey(0);
        QCOMPARE(read.metaType(), QMetaType::fromType<UIElement*>());
        QCOMPARE(read.value<UIElement*>() != nullptr, storesElement);
        if (storesElement)
            QCOMPARE(static_cast<QObject*>(read.value<UIElement*>()), value.value<QObject*>());
    }

    void copiesThroughVariantsAndMetaTypes() {
        ZRSerializableVariantList original{1, QStringLiteral("two")};
        const QVariant held = QVariant::fromValue(original);
        QCOMPARE(held.metaType(), QMetaType::fromType<ZRSerializableVariantList>());
        QCOMPARE(held.value<ZRSerializableVariantList>(), original);
        auto* viaBase = static_cast<const ZRSerializableStructureBase*>(held.constData());
        QCOMPARE(viaBase->serializableKeys(), (QVariantList{0, 1}));

        CreatedStructure copy("ZRSerializableVariantList", held.constData());
        copy->setVariantValueForKey(0, QStringLiteral("changed"));
        copy->setVariantValueForKey(3, 4);
        QCOMPARE(held.value<ZRSerializableVariantList>(), original);
        QCOMPARE(
            copy.toVariant().value<ZRSerializableVariantList>(),
            (ZRSerializableVariantList{QStringLiteral("changed"), QStringLiteral("two"), QVariant(), 4}));
    }

    void collectionAdoptsElements() {
        UIElementCollection collection;
        QObject formerParent;
        auto* first = new UIElement(&formerParent);
        auto* second = new UIElement(&formerParent);
        QSignalSpy changed(&collection, &UIElementCollection::elementsChanged);
        QSignalSpy changedToValue(&collection, &UIElementCollection::elementsChangedToValue);
        collection.setElements({first, second});
        QCOMPARE(first->parent(), &collection);
        QCOMPARE(second->parent(), &collection);
        QCOMPARE(collection.elements(), (UIElementList{first, second}));
        collection.setElements({second});
        QCOMPARE(first->parent(), &collection); // a leaving element stays a child
        QCOMPARE(changed.size(), 2);
        QCOMPARE(changedToValue.size(), 0);
        QCOMPARE(collection.property("elements").value<UIElementList>(), UIElementList{second});
    }

    // Only "not found" lets the collection go on to its next alternative.
    void collectionTriesAlternativesInOrder_data() {
        QTest::addColumn<QList<int>>("codes");
        QTest::addColumn<int>("expected");
        QTest::addColumn<QList<int>>("asked");
        QTest::newRow("empty") << QList<int>{} << 3 << QList<int>{};
        QTest::newRow("found first") << QList<int>{0, 1} << 0 << QList<int>{0};
        QTest::newRow("not found, then found") << QList<int>{1, 0} << 0 << QList<int>{1, 0};
        QTest::newRow("unreachable ends search") << QList<int>{2, 0} << 2 << QList<int>{2};
        QTest::newRow("unverified ends search") << QList<int>{1, 3, 0} << 3 << QList<int>{1, 3};
        QTest::newRow("aborted ends search") << QList<int>{5, 0} << 5 << QList<int>{5};
        QTest::newRow("none found") << QList<int>{1, 1, 1} << 1 << QList<int>{1, 1, 1};
    }
    void collectionTriesAlternativesInOrder() {
        QFETCH(QList<int>, codes);
        QFETCH(int, expected);
        QFETCH(QList<int>, asked);
        UIElementCollection collection;
        QList<int> actuallyAsked;
        UIElementList elements;
        for (int code : codes)
            elements << new ScriptedElement(code, &actuallyAsked);
        collection.setElements(elements);
        NativeUIElement found;
        QCOMPARE(collection.findUIElementAndCreateOSSpecificRepresentation(found, {}, QVariant(), nullptr),
                 expected);
        QCOMPARE(actuallyAsked, asked);
        // The winner wrote into the caller's handle; the position tells after how many questions.
        QCOMPARE(found.screenPosition(), expected == 0 ? QPoint(0, int(asked.size())) : QPoint());
    }
};

UIET_TEST_MAIN(tst_ZRSerializableStructures)
#include "tst_ZRSerializableStructures.moc"
