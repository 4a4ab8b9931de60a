#include "UIElement.h"
#include "ZRMetaTypeRegistrar.h"
#include "ZRUIElementToolData.h"
#include "dataObjectSerialization.h"
#include "dataObjectUtils.h"
#include "logCapture.h"
#include "testSupport.h"

#include <QPointer>
#include <QSignalSpy>
#include <QTest>

#include <functional>
#include <memory>

class CopyBase : public ZREntity {
    Q_OBJECT
    ZR_ENTITY_PROPERTY(QString, baseNote, setBaseNote)
public:
    Q_INVOKABLE explicit CopyBase(QObject* parent = nullptr) : ZREntity(parent) {}
};

class CopyLeaf : public ZREntity {
    Q_OBJECT
    ZR_ENTITY_PROPERTY(int, number, setNumber)
    ZR_ENTITY_PROPERTY(QString, text, setText)
public:
    Q_INVOKABLE explicit CopyLeaf(QObject* parent = nullptr) : ZREntity(parent) {}
};

// Made as a CopyLeaf wherever a copy need not keep its class.
class LegacyLeaf : public ZREntity {
    Q_OBJECT
    Q_CLASSINFO("ZRReconstituteAs", "CopyLeaf*")
    ZR_ENTITY_PROPERTY(int, number, setNumber)
public:
    Q_INVOKABLE explicit LegacyLeaf(QObject* parent = nullptr) : ZREntity(parent) {}
};

class CopyNode : public CopyBase {
    Q_OBJECT
    Q_CLASSINFO("MergeFlag", "count,leaf")
    ZR_ENTITY_PROPERTY(int, count, setCount)
    ZR_ENTITY_PROPERTY(QString, label, setLabel)
    ZR_ENTITY_PROPERTY(CopyLeaf*, leaf, setLeaf)
    ZR_ENTITY_PROPERTY(ZRSerializableVariantMap, map, setMap)
    ZR_ENTITY_PROPERTY(ZRSerializableVariantList, list, setList)
    ZR_ENTITY_PROPERTY(ZRSerializableStringMap, names, setNames)
public:
    Q_INVOKABLE explicit CopyNode(QObject* parent = nullptr) : CopyBase(parent) {}
};

class CopyNodeVariant : public CopyNode {
    Q_OBJECT
    ZR_ENTITY_PROPERTY(int, extra, setExtra)
public:
    Q_INVOKABLE explicit CopyNodeVariant(QObject* parent = nullptr) : CopyNode(parent) {}
};

class NoOwnProperties : public CopyBase {
    Q_OBJECT
public:
    Q_INVOKABLE explicit NoOwnProperties(QObject* parent = nullptr) : CopyBase(parent) {}
};

// Registered, but without an invokable constructor.
class NotConstructible : public ZREntity {
    Q_OBJECT
};

class OtherShape : public ZREntity {
    Q_OBJECT
    ZR_ENTITY_PROPERTY(int, count, setCount)
    ZR_ENTITY_PROPERTY(NotConstructible*, stranger, setStranger)
    ZR_ENTITY_PROPERTY(ZRSerializableVariantMap, strangers, setStrangers)
public:
    Q_INVOKABLE explicit OtherShape(QObject* parent = nullptr) : ZREntity(parent) {}
};

// A level of a chain that points back at its owner, by a property and from a list.
class ChainLevel : public ZREntity {
    Q_OBJECT
    ZR_ENTITY_PROPERTY(QString, name, setName)
    ZR_ENTITY_PROPERTY(ChainLevel*, below, setBelow)
    ZR_ENTITY_PROPERTY(ChainLevel*, owner, setOwner)
    ZR_ENTITY_PROPERTY(ZRSerializableVariantList, levels, setLevels)
public:
    Q_INVOKABLE explicit ChainLevel(QObject* parent = nullptr) : ZREntity(parent) {}
};

template class ZRMetaTypeObjectRegistrar<CopyBase>;
template class ZRMetaTypeObjectRegistrar<CopyLeaf>;
template class ZRMetaTypeObjectRegistrar<LegacyLeaf>;
template class ZRMetaTypeObjectRegistrar<CopyNode>;
template class ZRMetaTypeObjectRegistrar<CopyNodeVariant>;
template class ZRMetaTypeObjectRegistrar<NoOwnProperties>;
template class ZRMetaTypeObjectRegistrar<OtherShape>;
template class ZRMetaTypeObjectRegistrar<ChainLevel>;
template class ZRMetaTypeObjectRegistrar<NotConstructible>;

using NodeChange = std::function<void(CopyNode&)>;
Q_DECLARE_METATYPE(NodeChange)

namespace {

CopyLeaf* makeLeaf(int number, const QString& text, QObject* parent) {
    auto* leaf = new CopyLeaf(parent);
    leaf->setNumber(number);
    leaf->setText(text);
    return leaf;
}

void fill(CopyNode& node) {
    node.setObjectName(QStringLiteral("root"));
    node.setBaseNote(QStringLiteral("base"));
    node.setCount(3);
    node.setLabel(QStringLiteral("label"));
    node.setLeaf(makeLeaf(1, QStringLiteral("one"), &node));
    node.setMap({{QStringLiteral("a"), 5},
                 {QStringLiteral("leaf"), QVariant::fromValue(makeLeaf(2, QStringLiteral("two"), &node))},
                 {QStringLiteral("text"), QStringLiteral("t")}});
    node.setList({QVariant::fromValue(makeLeaf(3, QStringLiteral("three"), &node)), 7, QStringLiteral("x")});
    node.setNames({{QStringLiteral("en"), QStringLiteral("Save")}});
}

QObject* objectAt(const QVariant& value) {
    return qvariant_cast<QObject*>(value);
}

} // namespace

class tst_dataObjectCopying : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void aCopyIsDeepAndSavesLikeItsOriginal() {
        CopyNode original;
        fill(original);
        CopyNode copy;
        bool restoreSeenBySetter = false;
        connect(&copy, &CopyNode::countChanged, this,
                [&] { restoreSeenBySetter = copy.isBeingDeserialized(); });
        deepCopyObject(&original, &copy, true);

        QCOMPARE(serializeObjectToByteArray(&copy), serializeObjectToByteArray(&original));
        QCOMPARE(copy.objectName(), QStringLiteral("root"));
        QCOMPARE(copy.baseNote(), QStringLiteral("base"));
        QVERIFY(restoreSeenBySetter);
        const QList<QObject*> made = {copy.leaf(), objectAt(copy.map().value(QStringLiteral("leaf"))),
                                      objectAt(copy.list().at(0))};
        for (QObject* object : made) {
            QVERIFY(object);
            QCOMPARE(object->parent(), &copy);
            QVERIFY(!original.children().contains(object));
            QVERIFY(!qobject_cast<ZREntity*>(object)->isBeingDeserialized());
        }
        QCOMPARE(copy.children().size(), made.size());
        QVERIFY(!copy.isBeingDeserialized());
    }

    void theCommandsElementListIsCopiedWithItsGap() {
        ZRUIElementToolData original;
        original.setId(42);
        auto* collection = new UIElementCollection(&original);
        collection->setElements({new UIElement, nullptr, new UIElement});
        original.setElements(collection);
        ZRUIElementToolData copy;
        deepCopyObject(&original, &copy, true);

        QCOMPARE(copy.id(), 42ULL);
        QVERIFY(copy.elements() && copy.elements() != collection);
        QCOMPARE(copy.elements()->parent(), &copy);
        const UIElementList elements = copy.elements()->elements();
        QCOMPARE(elements.size(), 3);
        QVERIFY(!elements.at(1));
        for (int index : {0, 2}) {
            QVERIFY(elements.at(index) && !collection->elements().contains(elements.at(index)));
            QCOMPARE(elements.at(index)->parent(), copy.elements());
        }
        QVERIFY(objectsAreEqual(&original, &copy));
    }

    void nullChildrenStayNullOfTheirType() {
        CopyNode original;
        original.setList({QVariant::fromValue<CopyLeaf*>(nullptr)});
        CopyNode copy;
        copy.setLeaf(makeLeaf(1, QString(), &copy));
        deepCopyObject(&original, &copy, true);
        QVERIFY(!copy.leaf());
        QCOMPARE(copy.list().at(0).metaType(), QMetaType::fromType<CopyLeaf*>());
        QVERIFY(!objectAt(copy.list().at(0)));
    }

    void copyBetweenClasses_data() {
        QTest::addColumn<bool>("requireSameType");
        QTest::addColumn<QStringList>("log");
        QStringList missing;
        for (const char* name : {"baseNote", "label", "leaf", "map", "list", "names"})
            missing << QStringLiteral("Warning: cannot copy property '%1' of class 'CopyNode' on to class "
                                      "'OtherShape'")
                           .arg(QLatin1String(name));
        QTest::newRow("by name") << false << missing;
        QTest::newRow("same type required")
            << true
            << QStringList{QStringLiteral(
                   "Error: tried to do a deep copy on two objects that are not of the same type!")};
    }
    void copyBetweenClasses() {
        QFETCH(bool, requireSameType);
        QFETCH(QStringList, log);
        CopyNode source;
        source.setObjectName(QStringLiteral("n"));
        source.setCount(4);
        OtherShape target;
        QCOMPARE(logOf([&] { deepCopyObject(&source, &target, requireSameType); }), log);
        QCOMPARE(target.count(), requireSameType ? 0 : 4);
        QCOMPARE(target.objectName(), requireSameType ? QString() : QStringLiteral("n"));
        QVERIFY(!target.isBeingDeserialized());
    }

    void duplicates_data() {
        QTest::addColumn<QByteArray>("sourceClass");
        QTest::addColumn<bool>("requireSameType");
        QTest::addColumn<QByteArray>("duplicateClass");
        QTest::newRow("same class") << QByteArray("LegacyLeaf") << true << QByteArray("LegacyLeaf");
        QTest::newRow("reconstituted") << QByteArray("LegacyLeaf") << false << QByteArray("CopyLeaf");
        QTest::newRow("no invokable constructor") << QByteArray("NotConstructible") << true << QByteArray();
        QTest::newRow("null") << QByteArray() << false << QByteArray();
    }
    void duplicates() {
        QFETCH(QByteArray, sourceClass);
        QFETCH(bool, requireSameType);
        QFETCH(QByteArray, duplicateClass);
        LegacyLeaf legacy;
        legacy.setNumber(9);
        NotConstructible notConstructible;
        QObject* source = sourceClass == "LegacyLeaf"         ? static_cast<QObject*>(&legacy)
                          : sourceClass == "NotConstructible" ? &notConstructible
                                                              : nullptr;
        const std::unique_ptr<QObject> duplicate(duplicateObject(source, requireSameType));
        if (duplicateClass.isEmpty()) {
            QVERIFY(!duplicate);
            return;
        }
        QVERIFY(duplicate);
        QCOMPARE(QByteArray(duplicate->metaObject()->className()), duplicateClass);
        QCOMPARE(duplicate->property("number").toInt(), 9);
        QVERIFY(!duplicate->parent());
    }

    void equality_data() {
        QTest::addColumn<NodeChange>("change");
        QTest::addColumn<QByteArray>("excludedClass");
        QTest::addColumn<QByteArray>("excludedProperty");
        QTest::addColumn<bool>("equal");
        const QByteArray none;
        QTest::newRow("same") << NodeChange([](CopyNode&) {}) << none << none << true;
        QTest::newRow("base class property")
            << NodeChange([](CopyNode& n) { n.setBaseNote(QStringLiteral("other")); }) << none << none
            << true;
        QTest::newRow("objectName") << NodeChange([](CopyNode& n) {
            n.setObjectName(QStringLiteral("other"));
        }) << none << none << true;
        QTest::newRow("count") << NodeChange([](CopyNode& n) { n.setCount(4); }) << none << none << false;
        QTest::newRow("child") << NodeChange([](CopyNode& n) { n.leaf()->setNumber(0); }) << none << none
                               << false;
        QTest::newRow("child missing")
            << NodeChange([](CopyNode& n) { n.setLeaf(nullptr); }) << none << none << false;
        QTest::newRow("object in map") << NodeChange([](CopyNode& n) {
            qobject_cast<CopyLeaf*>(objectAt(n.map().value(QStringLiteral("leaf"))))->setText(QString());
        }) << none << none << false;
        QTest::newRow("int for string in list") << NodeChange([](CopyNode& n) {
            n.setList({n.list().at(0), 7, 0});
        }) << none << none << false;
        QTest::newRow("shorter list") << NodeChange([](CopyNode& n) {
            n.setList({n.list().at(0), 7});
        }) << none << none << false;
        QTest::newRow("excluded") << NodeChange([](CopyNode& n) { n.setLabel(QString()); })
                                  << QByteArray("CopyNode") << QByteArray("label") << true;
        QTest::newRow("excluded in a child") << NodeChange([](CopyNode& n) { n.leaf()->setText(QString()); })
                                             << QByteArray("CopyLeaf") << QByteArray("text") << true;
        QTest::newRow("excluded for a base class only")
            << NodeChange([](CopyNode& n) { n.setCount(4); }) << QByteArray("CopyBase") << QByteArray("count")
            << false;
    }
    void equality() {
        QFETCH(NodeChange, change);
        QFETCH(QByteArray, excludedClass);
        QFETCH(QByteArray, excludedProperty);
        QFETCH(bool, equal);
        CopyNode a;
        fill(a);
        CopyNode b;
        deepCopyObject(&a, &b, true);
        change(b);
        QMap<const QMetaObject*, QList<QByteArray>> exclusions;
        if (!excludedClass.isEmpty())
            exclusions.insert(QMetaType::fromName(excludedClass + '*').metaObject(), {excludedProperty});
        QCOMPARE(objectsAreEqual(&a, &b, exclusions), equal);
        QCOMPARE(objectsAreEqual(&b, &a, exclusions), equal);
    }

    void equalityOfNullsClassesAndForeignProperties() {
        CopyNode node;
        CopyNodeVariant variant;
        OtherShape other;
        QVERIFY(objectsAreEqual(nullptr, nullptr));
        QVERIFY(!objectsAreEqual(&node, nullptr));
        QVERIFY(!objectsAreEqual(&node, &variant));
        QVERIFY(serializableStructuresAreEqual(nullptr, nullptr, {}));
        const QMetaObject& nodeClass = CopyNode::staticMetaObject;
        QVERIFY(propertiesAreEqual(&variant, &variant, nodeClass.property(nodeClass.indexOfProperty("count")),
                                   {}));
        QVERIFY(
            !propertiesAreEqual(&node, &other, nodeClass.property(nodeClass.indexOfProperty("count")), {}));
    }

    void mergeKeepsWhatOnlyTheTargetHas() {
        CopyNode source;
        source.setBaseNote(QStringLiteral("not merged"));
        source.setCount(2);
        source.setLeaf(makeLeaf(5, QStringLiteral("five"), &source));
        source.setMap({{QStringLiteral("a"), 1}, {QStringLiteral("b"), 2}});
        source.setList({1, 2});
        CopyNode target;
        CopyLeaf* targetLeaf = makeLeaf(0, QStringLiteral("zero"), &target);
        target.setLeaf(targetLeaf);
        target.setMap({{QStringLiteral("b"), 20}, {QStringLiteral("c"), 30}});
        target.setList({7, 8, 9});
        target.setNames({{QStringLiteral("en"), QStringLiteral("Save")}});
        QSignalSpy namesWritten(&target, &CopyNode::namesChanged);
        mergeObjects(&source, &target);

        QCOMPARE(target.count(), 2);
        QCOMPARE(target.baseNote(), QString());
        QCOMPARE(target.leaf(), targetLeaf);
        QCOMPARE(targetLeaf->text(), QStringLiteral("five"));
        const QVariantMap expectedMap{
            {QStringLiteral("a"), 1}, {QStringLiteral("b"), 2}, {QStringLiteral("c"), 30}};
        QCOMPARE(QVariantMap(target.map()), expectedMap);
        QCOMPARE(QVariantList(target.list()), QVariantList({1, 2, 9}));
        QCOMPARE(namesWritten.count(), 0);
        QVERIFY(!target.isBeingDeserialized() && !targetLeaf->isBeingDeserialized());
    }

    void mergeMakesMissingChildrenAndKeepsUnmatchedOnes() {
        CopyNode source;
        source.setMap(
            {{QStringLiteral("leaf"), QVariant::fromValue(makeLeaf(6, QStringLiteral("six"), &source))}});
        CopyNode target;
        CopyNode emptySource;
        target.setLeaf(makeLeaf(1, QStringLiteral("kept"), &target));
        mergeObjects(&emptySource, &target);
        QCOMPARE(target.leaf()->text(), QStringLiteral("kept"));
        target.setLeaf(nullptr);
        source.setLeaf(makeLeaf(5, QStringLiteral("five"), &source));
        mergeObjects(&source, &target);
        QVERIFY(target.leaf() && target.leaf() != source.leaf());
        QCOMPARE(target.leaf()->parent(), &target);
        QCOMPARE(target.leaf()->number(), 5);
        auto* inMap = qobject_cast<CopyLeaf*>(objectAt(target.map().value(QStringLiteral("leaf"))));
        QVERIFY(inMap && inMap->parent() == &target);
        QCOMPARE(inMap->text(), QStringLiteral("six"));
    }

    void mergeReplacesAnObjectOfAnotherClass() {
        CopyNode source;
        auto* level = new ChainLevel(&source);
        level->setName(QStringLiteral("level"));
        source.setMap({{QStringLiteral("x"), QVariant::fromValue(level)}});
        CopyNode target;
        QPointer<CopyLeaf> replaced = makeLeaf(1, QString(), &target);
        target.setMap({{QStringLiteral("x"), QVariant::fromValue(replaced.data())}});
        mergeObjects(&source, &target);
        QVERIFY(replaced.isNull());
        auto* made = qobject_cast<ChainLevel*>(objectAt(target.map().value(QStringLiteral("x"))));
        QVERIFY(made && made != level);
        QCOMPARE(made->parent(), &target);
        QCOMPARE(made->name(), QStringLiteral("level"));
    }

    // The target still uses them: under another key of the same list, and as a merged child.
    void mergeKeepsReplacedObjectsThatAreStillInUse() {
        CopyNode source;
        source.setLeaf(makeLeaf(5, QString(), &source));
        source.setList({QVariant::fromValue(new ChainLevel(&source))});
        source.setMap({{QStringLiteral("z"), QVariant::fromValue(new ChainLevel(&source))}});
        CopyNode target;
        QPointer<CopyLeaf> twice = makeLeaf(1, QString(), &target);
        QPointer<CopyLeaf> child = makeLeaf(2, QString(), &target);
        target.setList({QVariant::fromValue(twice.data()), QVariant::fromValue(twice.data())});
        target.setLeaf(child);
        target.setMap({{QStringLiteral("z"), QVariant::fromValue(child.data())}});
        mergeObjects(&source, &target);
        QVERIFY(twice && child);
        QCOMPARE(objectAt(target.list().at(1)), twice.data());
        QCOMPARE(target.leaf(), child.data());
        QCOMPARE(child->number(), 5);
    }

    void mergeLeavesStructuresInStructuresAlone() {
        CopyNode source;
        source.setMap(
            {{QStringLiteral("s"), QVariant::fromValue(ZRSerializableStringList{QStringLiteral("a")})},
             {QStringLiteral("t"), 2},
             {QStringLiteral("p"), 1}});
        CopyNode target;
        const QVariant nested = QVariant::fromValue(ZRSerializableStringList{QStringLiteral("b")});
        target.setMap({{QStringLiteral("s"), 5}, {QStringLiteral("t"), nested}});
        const QString unsupported = QStringLiteral(
            "Warning: merge-copying structures with value types that are also structures is not "
            "supported");
        QCOMPARE(logOf([&] { mergeObjects(&source, &target); }), QStringList({unsupported, unsupported}));
        const QVariantMap expected{
            {QStringLiteral("s"), 5}, {QStringLiteral("t"), nested}, {QStringLiteral("p"), 1}};
        QCOMPARE(QVariantMap(target.map()), expected);
    }

    void flaggedMergeTakesOnlyTheListedProperties() {
        CopyNode source;
        source.setCount(2);
        source.setLabel(QStringLiteral("new"));
        source.setLeaf(makeLeaf(5, QStringLiteral("five"), &source));
        CopyNode target;
        target.setLabel(QStringLiteral("old"));
        mergeObjectsCopyingFlaggedProperties(&source, &target, "MergeFlag");
        QCOMPARE(target.count(), 2);
        QCOMPARE(target.label(), QStringLiteral("old"));
        QVERIFY(target.leaf());
        QCOMPARE(target.leaf()->text(), QStringLiteral("five")); // its class declares no flag: merged whole
    }

    void misuseIsLoggedAndLeavesTheTargetAlone() {
        CopyNode node;
        node.setCount(2);
        CopyNodeVariant variant;
        NoOwnProperties noProperties;
        noProperties.setBaseNote(QStringLiteral("x"));
        NoOwnProperties noPropertiesTarget;
        QTest::ignoreMessage(QtCriticalMsg, "Error: tried to deep copy null pointer");
        deepCopyObject(nullptr, &node, true);
        QTest::ignoreMessage(QtCriticalMsg, "Error: tried to deep copy onto null pointer");
        deepCopyObjectSkippingProperties(&node, nullptr, {}, false);
        QTest::ignoreMessage(QtCriticalMsg, "Error: tried to merge-copy null pointer");
        mergeObjects(nullptr, &node);
        QTest::ignoreMessage(QtCriticalMsg, "Error: tried to merge-copy onto null pointer");
        mergeObjects(&node, nullptr);
        QTest::ignoreMessage(QtCriticalMsg,
                             "Error: tried to do a merge-copy two objects that are not of the same type!");
        mergeObjects(&node, &variant);
        QTest::ignoreMessage(QtWarningMsg, "Warning: trying to merge-copy object with no properties!");
        mergeObjects(&noProperties, &noPropertiesTarget);
        QCOMPARE(node.count(), 2);
        QCOMPARE(variant.count(), 0);
        QVERIFY(!variant.isBeingDeserialized());
        QCOMPARE(noPropertiesTarget.baseNote(), QString());
    }

    // Copy and merge alike log a child whose class cannot be made, and go on without it.
    void childrenThatCannotBeMadeAreLeftOut() {
        NotConstructible stranger;
        OtherShape source;
        source.setStranger(&stranger);
        source.setStrangers({{QStringLiteral("k"), QVariant::fromValue(&stranger)}});
        OtherShape merged;
        const QString cannotMerge =
            QStringLiteral("Error during merge-copy: cannot determine type of object: NotConstructible*");
        QCOMPARE(logOf([&] { mergeObjects(&source, &merged); }), QStringList({cannotMerge, cannotMerge}));
        QVERIFY(!merged.stranger());
        QVERIFY(merged.strangers().isEmpty());
        OtherShape copy;
        const QString cannotCopy =
            QStringLiteral("Error during deep copy: cannot determine type of object: NotConstructible*");
        QCOMPARE(logOf([&] { deepCopyObject(&source, &copy, true); }), QStringList({cannotCopy, cannotCopy}));
        QVERIFY(!copy.stranger());
    }

    void cyclesThroughOwnersEndWhereTheyBegan() {
        ChainLevel root;
        root.setName(QStringLiteral("root"));
        auto* child = new ChainLevel(&root);
        child->setName(QStringLiteral("child"));
        child->setOwner(&root);
        child->setLevels({QVariant::fromValue(&root)});
        root.setBelow(child);

        ChainLevel copy;
        deepCopyObject(&root, &copy, true);
        QVERIFY(copy.below() && copy.below() != child);
        QCOMPARE(copy.below()->owner(), &copy);
        QCOMPARE(objectAt(copy.below()->levels().at(0)), &copy);
        QVERIFY(objectsAreEqual(&root, &copy));
        copy.below()->setName(QStringLiteral("other"));
        QVERIFY(!objectsAreEqual(&root, &copy));

        ChainLevel merged;
        mergeObjects(&root, &merged);
        QVERIFY(merged.below() && merged.below() != child);
        QCOMPARE(merged.below()->name(), QStringLiteral("child"));
        QCOMPARE(merged.below()->owner(), &merged);
        QCOMPARE(objectAt(merged.below()->levels().at(0)), &merged);
    }
};

UIET_TEST_MAIN(tst_dataObjectCopying)
#include "tst_dataObjectCopying.moc"
