#include "UIElement.h"
#include "UIElementType.h"
#include "ZRDataError.h"
#include "ZRDirtyableEntity.h"
#include "ZREntity.h"
#include "ZRSerializableStructures.h"
#include "ZRUIElementToolData.h"
#include "dataObjectUtils.h"
#include "testSupport.h"

#include <QMargins>
#include <QMetaMethod>
#include <QPointer>
#include <QRegularExpression>
#include <QSignalSpy>
#include <QTest>

#include <functional>
#include <memory>

// Class information as the walks meet it: keys on a base class, blanks, repeated and empty names.
class KeyedBase : public ZREntity {
    Q_OBJECT
    Q_CLASSINFO("ZROpaqueProperties", "a,b")
    Q_CLASSINFO("ZRReconstituteAs", "UIElementType*")
public:
    Q_INVOKABLE explicit KeyedBase(QObject* parent = nullptr) : ZREntity(parent) {}
};

class KeyedDerived : public KeyedBase {
    Q_OBJECT
public:
    Q_INVOKABLE explicit KeyedDerived(QObject* parent = nullptr) : KeyedBase(parent) {}
};

class AllKeys : public ZREntity {
    Q_OBJECT
    Q_CLASSINFO("ZRDisableWriteToDisk", "a, b")
    Q_CLASSINFO("ZROpaqueProperties", "c")
    Q_CLASSINFO("ZRSimpleMapProperties", "d,e")
    Q_CLASSINFO("ZRDontIncludeIfEmpty", "f")
    Q_CLASSINFO("ZRDontIncludeInSerializationPath", "g")
    Q_CLASSINFO("ZRSimpleMapProperties", "ignored")
    Q_CLASSINFO("", "unnamed")
    Q_PROPERTY(int impl READ impl WRITE setImpl USER true)
    Q_PROPERTY(int g READ impl WRITE setImpl)
    Q_PROPERTY(int plain READ impl WRITE setImpl)
public:
    int impl() const { return 0; }
    void setImpl(int) {}
};

class ReconstitutesAsUnknown : public ZREntity {
    Q_OBJECT
    Q_CLASSINFO("ZRReconstituteAs", "NoSuchType*")
public:
    Q_INVOKABLE explicit ReconstitutesAsUnknown(QObject* parent = nullptr) : ZREntity(parent) {}
};

// Registered, but has no invokable constructor for the loader.
class NotConstructible : public ZREntity {
    Q_OBJECT
};

class MarkedGadget {
    Q_GADGET
    Q_CLASSINFO("__ZRSerializableStructure", "")
};

class DerivedFromMarkedGadget : public MarkedGadget {
    Q_GADGET
};

class SubElement : public UIElement {
    Q_OBJECT
};

// Never registered by name.
class UnregisteredElement : public UIElement {
    Q_OBJECT
};

// A dirtyable entity with a child object, a structure and a plain value, whose marks the tests set.
class Dirtyable : public ZRDirtyableEntity {
    Q_OBJECT
    ZR_ENTITY_PROPERTY(Dirtyable*, child, setChild)
    ZR_ENTITY_PROPERTY(ZRSerializableVariantList, items, setItems)
    ZR_ENTITY_PROPERTY(int, number, setNumber)
public:
    Q_INVOKABLE explicit Dirtyable(QObject* parent = nullptr) : ZRDirtyableEntity(parent) {}
    using ZRDirtyableEntity::markPropertyDirty;
    using ZRDirtyableEntity::markStructureKeyClean;
    using ZRDirtyableEntity::markStructureKeyDirty;

    int indexOf(const char* name) const { return metaObject()->indexOfProperty(name); }
};

// Records the order in which signals arrive, across signals.
class SignalRecorder : public QObject {
    Q_OBJECT
public:
    QStringList arrivals;
public Q_SLOTS:
    void changed() { arrivals << QStringLiteral("changed"); }
    void changedToValue() { arrivals << QStringLiteral("changedToValue"); }
};

using Reader = QSet<QByteArray> (*)(const QMetaObject*);
using GuardSetter = void (*)(QObject*, bool);
using GuardClearer = void (*)(QObject*);
using GuardReader = bool (ZREntity::*)() const;
using DirtySetup = std::function<void(Dirtyable& parent, Dirtyable& child)>;

class tst_ZREntity : public QObject {
    Q_OBJECT

private Q_SLOTS:
    // Must stay first: nothing may have touched these types before.
    void typesAreRegisteredBeforeMain_data() {
        QTest::addColumn<QByteArray>("name");
        QTest::newRow("entity") << QByteArray("ZREntity*");
        QTest::newRow("dirtyable entity") << QByteArray("ZRDirtyableEntity*");
        QTest::newRow("element type") << QByteArray("UIElementType*");
        QTest::newRow("margins") << QByteArray("QMargins");
    }
    void typesAreRegisteredBeforeMain() {
        QFETCH(QByteArray, name);
        QVERIFY(QMetaType::fromName(name).isValid());
    }

    void marginsHaveStreamOperators() {
        QVERIFY(QMetaType::fromName("QMargins").hasRegisteredDataStreamOperators());
    }

    void initTestCase() {
        qRegisterMetaType<KeyedBase*>();
        qRegisterMetaType<KeyedDerived*>();
        qRegisterMetaType<ReconstitutesAsUnknown*>();
        qRegisterMetaType<NotConstructible*>();
        qRegisterMetaType<SubElement*>();
        qRegisterMetaType<Dirtyable*>();
    }

    void classInfoItems_data() {
        QTest::addColumn<const QMetaObject*>("metaObject");
        QTest::addColumn<QByteArray>("key");
        QTest::addColumn<QList<QByteArray>>("expected"); // a null key is passed as a null name
        const QMetaObject* all = &AllKeys::staticMetaObject;
        QTest::newRow("comma") << all << QByteArray("ZRSimpleMapProperties") << QList<QByteArray>{"d", "e"};
        QTest::newRow("blank kept") << all << QByteArray("ZRDisableWriteToDisk")
                                    << QList<QByteArray>{"a", " b"};
        QTest::newRow("missing") << all << QByteArray("ZRReconstituteAs") << QList<QByteArray>{};
        QTest::newRow("null name matches empty name") << all << QByteArray() << QList<QByteArray>{"unnamed"};
        QTest::newRow("own key") << &KeyedBase::staticMetaObject << QByteArray("ZROpaqueProperties")
                                 << QList<QByteArray>{"a", "b"};
        QTest::newRow("base key ignored")
            << &KeyedDerived::staticMetaObject << QByteArray("ZROpaqueProperties") << QList<QByteArray>{};
        QTest::newRow("no meta object") << static_cast<const QMetaObject*>(nullptr)
                                        << QByteArray("ZROpaqueProperties") << QList<QByteArray>{};
    }
    void classInfoItems() {
        QFETCH(const QMetaObject*, metaObject);
        QFETCH(QByteArray, key);
        QFETCH(QList<QByteArray>, expected);
        QCOMPARE(valueOfCommaSeparatedItemizedClassInfo(metaObject, key.isNull() ? nullptr : key.constData()),
                 expected);
    }

    void readers_data() {
        QTest::addColumn<Reader>("reader");
        QTest::addColumn<QSet<QByteArray>>("expected");
        QTest::newRow("not written") << Reader(&propertiesNotWrittenWhenSerializing)
                                     << QSet<QByteArray>{"a", " b"};
        QTest::newRow("opaque") << Reader(&opaqueProperties) << QSet<QByteArray>{"c"};
        QTest::newRow("simple map, first entry decides")
            << Reader(&simpleMapProperties) << QSet<QByteArray>{"d", "e"};
        QTest::newRow("if empty") << Reader(&dontIncludeIfEmptyProperties) << QSet<QByteArray>{"f"};
        QTest::newRow("not in path") << Reader(&notIncludedInPathProperties) << QSet<QByteArray>{"g"};
    }
    void readers() {
        QFETCH(Reader, reader);
        QFETCH(QSet<QByteArray>, expected);
        QCOMPARE(reader(&AllKeys::staticMetaObject), expected);
    }

    void notIncludedInPath() {
        const QMetaObject* meta = &AllKeys::staticMetaObject;
        const QSet<QByteArray> listed = notIncludedInPathProperties(meta);
        const auto excluded = [&](const char* name) {
            return propertyIsNotIncludedInSerializationPath(meta->property(meta->indexOfProperty(name)),
                                                            listed);
        };
        QVERIFY(excluded("impl")); // USER
        QVERIFY(excluded("g"));
        QVERIFY(!excluded("plain"));
    }

    void typeKinds_data() {
        QTest::addColumn<int>("type");
        QTest::addColumn<bool>("complex");
        QTest::addColumn<bool>("structure");
        QTest::addColumn<bool>("qobject");
        QTest::addColumn<bool>("entity");
        QTest::newRow("no type") << 0 << false << false << false << false;
        QTest::newRow("int") << int(QMetaType::Int) << false << false << false << false;
        QTest::newRow("string") << int(QMetaType::QString) << false << false << false << false;
        QTest::newRow("structure") << qMetaTypeId<ZRSerializableStringMap>() << true << true << false
                                   << false;
        QTest::newRow("marker inherited")
            << qMetaTypeId<DerivedFromMarkedGadget>() << true << true << false << false;
        QTest::newRow("entity") << qMetaTypeId<UIElementType*>() << true << false << true << true;
        QTest::newRow("derived entity")
            << qMetaTypeId<ZRUIElementToolData*>() << true << false << true << true;
        QTest::newRow("plain object") << int(QMetaType::QObjectStar) << true << false << true << false;
    }
    void typeKinds() {
        QFETCH(int, type);
        QFETCH(bool, complex);
        QFETCH(bool, structure);
        QFETCH(bool, qobject);
        QFETCH(bool, entity);
        QCOMPARE(typeIsObjectOrStructure(type), complex);
        QCOMPARE(isMetaTypeSerializableStructure(type), structure);
        QCOMPARE(isQObjectType(type), qobject);
        QCOMPARE(ZREntity::isMetaTypeDerivedFromEntity(type), entity);
    }

    void guardFields_data() {
        QTest::addColumn<GuardSetter>("set");
        QTest::addColumn<GuardClearer>("clearAll");
        QTest::addColumn<GuardReader>("read");
        QTest::newRow("serialized") << GuardSetter(&setObjectBeingSerializedIfEntity)
                                    << GuardClearer(&recursivelyMarkObjectHierarchyAsNotBeingSerialized)
                                    << GuardReader(&ZREntity::isBeingSerialized);
        QTest::newRow("deserialized") << GuardSetter(&setObjectBeingDeserializedIfEntity)
                                      << GuardClearer(&recursivelyMarkObjectHierarchyAsNotBeingDeserialized)
                                      << GuardReader(&ZREntity::isBeingDeserialized);
    }
    void guardFields() {
        QFETCH(GuardSetter, set);
        QFETCH(GuardClearer, clearAll);
        QFETCH(GuardReader, read);
        ZREntity root;
        QObject plainChild(&root);
        auto* grandchild = new ZREntity(&plainChild);
        QVERIFY(!(root.*read)());
        set(&root, true);
        set(grandchild, true);
        set(&plainChild, true); // not an entity: ignored
        set(nullptr, true);
        QVERIFY((root.*read)());
        QVERIFY((grandchild->*read)());
        clearAll(&root);
        QVERIFY(!(root.*read)());
        QVERIFY(!(grandchild->*read)());
        clearAll(nullptr);
    }

    void objectTypeIds() {
        UIElementType type;
        UnregisteredElement unregistered;
        QCOMPARE(metaTypeIdOfQObjectDerivedClass(&type), qMetaTypeId<UIElementType*>());
        QCOMPARE(metaTypeIdOfObjectPointer(&unregistered), 0);
        QCOMPARE(metaTypeIdOfObjectPointer(nullptr), 0);
        const QVariant wrapped = variantFromQObjectDerivedClass(&type);
        QCOMPARE(wrapped.metaType(), QMetaType::fromType<UIElementType*>());
        QCOMPARE(wrapped.value<UIElementType*>(), &type);
        QVERIFY(!variantFromQObjectDerivedClass(&unregistered).isValid());
    }

    void determineVariantType_data() {
        QTest::addColumn<QVariant>("value");
        QTest::addColumn<int>("expected");
        static SubElement subElement;
        static UnregisteredElement unregistered;
        static UIElementType elementType;
        QTest::newRow("null pointer keeps declared type")
            << QVariant::fromValue(static_cast<UIElement*>(nullptr)) << qMetaTypeId<UIElement*>();
        QTest::newRow("subclass reported")
            << QVariant::fromValue(static_cast<UIElement*>(&subElement)) << qMetaTypeId<SubElement*>();
        QTest::newRow("as QObject*") << QVariant::fromValue(static_cast<QObject*>(&elementType))
                                     << qMetaTypeId<UIElementType*>();
        QTest::newRow("unregistered subclass falls back")
            << QVariant::fromValue(static_cast<UIElement*>(&unregistered)) << qMetaTypeId<UIElement*>();
        QTest::newRow("plain") << QVariant(5) << int(QMetaType::Int);
        QTest::newRow("structure") << QVariant::fromValue(ZRSerializableStringList{"x"})
                                   << qMetaTypeId<ZRSerializableStringList>();
        QTest::newRow("invalid") << QVariant() << 0;
    }
    void determineVariantType() {
        QFETCH(QVariant, value);
        QFETCH(int, expected);
        QCOMPARE(::determineVariantType(value), expected);
    }

    void createObject_data() {
        QTest::addColumn<int>("type");
        QTest::addColumn<bool>("useAlternate");
        QTest::addColumn<QByteArray>("expectedClass");
        QTest::addColumn<QString>("expectedLog");
        QTest::newRow("no type") << 0 << true << QByteArray() << QString();
        QTest::newRow("plain") << int(QMetaType::QString) << true << QByteArray() << QString();
        QTest::newRow("structure") << qMetaTypeId<ZRSerializableVariantMap>() << true << QByteArray()
                                   << QString();
        QTest::newRow("entity") << qMetaTypeId<UIElementType*>() << false << QByteArray("UIElementType")
                                << QString();
        QTest::newRow("alternate used")
            << qMetaTypeId<KeyedBase*>() << true << QByteArray("UIElementType") << QString();
        QTest::newRow("alternate not asked for")
            << qMetaTypeId<KeyedBase*>() << false << QByteArray("KeyedBase") << QString();
        QTest::newRow("alternate of base ignored")
            << qMetaTypeId<KeyedDerived*>() << true << QByteArray("KeyedDerived") << QString();
        QTest::newRow("unknown alternate")
            << qMetaTypeId<ReconstitutesAsUnknown*>() << true << QByteArray("ReconstitutesAsUnknown")
            << QStringLiteral("Error: ReconstitutesAsUnknown marked to reconstitute "
                              "as NoSuchType* but the type either doesn't exist or "
                              "has no meta object");
        QTest::newRow("no invokable constructor")
            << qMetaTypeId<NotConstructible*>() << true << QByteArray() << QString();
    }
    void createObject() {
        QFETCH(int, type);
        QFETCH(bool, useAlternate);
        QFETCH(QByteArray, expectedClass);
        QFETCH(QString, expectedLog);
        if (!expectedLog.isEmpty())
            QTest::ignoreMessage(QtDebugMsg, qPrintable(expectedLog));
        std::unique_ptr<QObject> object(createObjectOfTypeIfTypeIsQObjectDerived(type, useAlternate));
        QCOMPARE(object ? QByteArray(object->metaObject()->className()) : QByteArray(), expectedClass);
    }

    void dataErrorNames_data() {
        QTest::addColumn<int>("value");
        QTest::addColumn<QString>("expected");
        QTest::addColumn<bool>("warns");
        QTest::newRow("0") << 0 << QStringLiteral("No error") << false;
        QTest::newRow("1") << 1 << QStringLiteral("Unknown error") << false;
        QTest::newRow("2") << 2 << QStringLiteral("Access is denied") << false;
        QTest::newRow("3") << 3 << QStringLiteral("Invalid format") << false;
        QTest::newRow("4") << 4 << QStringLiteral("Invalid data") << false;
        QTest::newRow("5") << 5 << QStringLiteral("File not found") << false;
        QTest::newRow("6") << 6 << QStringLiteral("No connection") << false;
        QTest::newRow("7") << 7 << QStringLiteral("IO error") << false;
        QTest::newRow("8") << 8 << QStringLiteral("Undefined error") << true;
        QTest::newRow("-1") << -1 << QStringLiteral("Undefined error") << true;
    }
    void dataErrorNames() {
        QFETCH(int, value);
        QFETCH(QString, expected);
        QFETCH(bool, warns);
        if (warns)
            QTest::ignoreMessage(
                QtWarningMsg,
                qPrintable(QStringLiteral("Warning: tried to get name of unknown ZRDataError value: %1")
                               .arg(value)));
        QCOMPARE(dataErrorName(static_cast<ZRDataError>(value)), expected);
    }

    void fileErrors_data() {
        QTest::addColumn<int>("fileError");
        QTest::addColumn<int>("expected");
        const QList<std::pair<QFileDevice::FileError, int>> cases = {
            {QFileDevice::NoError, 0},          {QFileDevice::ReadError, 2},
            {QFileDevice::WriteError, 2},       {QFileDevice::FatalError, 1},
            {QFileDevice::ResourceError, 1},    {QFileDevice::OpenError, 2},
            {QFileDevice::AbortError, 1},       {QFileDevice::TimeOutError, 1},
            {QFileDevice::UnspecifiedError, 1}, {QFileDevice::RemoveError, 1},
            {QFileDevice::RenameError, 1},      {QFileDevice::PositionError, 1},
            {QFileDevice::ResizeError, 1},      {QFileDevice::PermissionsError, 2},
            {QFileDevice::CopyError, 8},        {QFileDevice::FileError(15), 1}};
        for (const auto& [fileError, expected] : cases)
            QTest::addRow("%d", int(fileError)) << int(fileError) << expected;
    }
    void fileErrors() {
        QFETCH(int, fileError);
        QFETCH(int, expected);
        QCOMPARE(int(qtFileErrorToZRDataError(QFileDevice::FileError(fileError))), expected);
    }

    // The members that the convention produces, in the order that stored data and peers see.
    void propertyShape_data() {
        QTest::addColumn<const QMetaObject*>("metaObject");
        QTest::addColumn<QByteArrayList>("properties");
        QTest::addColumn<QByteArrayList>("signalSignatures");
        QTest::newRow("tool data") << &ZRUIElementToolData::staticMetaObject
                                   << QByteArrayList{"command", "id", "elements"}
                                   << QByteArrayList{"commandChanged()",
                                                     "commandChangedToValue(int,int)",
                                                     "idChanged()",
                                                     "idChangedToValue(qulonglong,qulonglong)",
                                                     "elementsChanged()",
                                                     "elementsChangedToValue(UIElementCollection*,"
                                                     "UIElementCollection*)"};
        QTest::newRow("element type")
            << &UIElementType::staticMetaObject << QByteArrayList{"description", "identifiers"}
            << QByteArrayList{"descriptionChanged()", "descriptionChangedToValue(QString,QString)",
                              "identifiersChanged()",
                              "identifiersChangedToValue(ZRSerializableStringMap,"
                              "ZRSerializableStringMap)"};
    }
    void propertyShape() {
        QFETCH(const QMetaObject*, metaObject);
        QFETCH(QByteArrayList, properties);
        QFETCH(QByteArrayList, signalSignatures);
        QByteArrayList names;
        for (int i = metaObject->propertyOffset(); i < metaObject->propertyCount(); ++i) {
            const QMetaProperty property = metaObject->property(i);
            names << property.name();
            QVERIFY(property.isReadable() && property.isWritable() && property.isStored());
            QVERIFY(property.isDesignable() && property.isScriptable() && !property.isUser());
            QCOMPARE(property.notifySignal().name(), QByteArray(property.name()) + "Changed");
        }
        QCOMPARE(names, properties);
        QByteArrayList signatures;
        for (int i = metaObject->methodOffset(); i < metaObject->methodCount(); ++i) {
            if (metaObject->method(i).methodType() == QMetaMethod::Signal)
                signatures << metaObject->method(i).methodSignature();
        }
        QCOMPARE(signatures, signalSignatures);
    }

    void setterSignalsEveryCall_data() {
        QTest::addColumn<QByteArray>("property");
        QTest::addColumn<QVariant>("first");
        QTest::addColumn<QVariant>("second");
        static UIElementCollection collection;
        QTest::newRow("int, same value") << QByteArray("command") << QVariant(1) << QVariant(1);
        QTest::newRow("int, new value") << QByteArray("command") << QVariant(1) << QVariant(2);
        QTest::newRow("id") << QByteArray("id") << QVariant(Q_UINT64_C(18446744073709551615))
                            << QVariant(Q_UINT64_C(18446744073709551615));
        QTest::newRow("object pointer") << QByteArray("elements") << QVariant::fromValue(&collection)
                                        << QVariant::fromValue(static_cast<UIElementCollection*>(nullptr));
    }
    void setterSignalsEveryCall() {
        QFETCH(QByteArray, property);
        QFETCH(QVariant, first);
        QFETCH(QVariant, second);
        ZRUIElementToolData data;
        const QMetaObject* meta = data.metaObject();
        const QMetaProperty metaProperty = meta->property(meta->indexOfProperty(property));
        const QMetaMethod changed = metaProperty.notifySignal();
        const QMetaMethod changedToValue = meta->method(changed.methodIndex() + 1);
        QVERIFY(metaProperty.write(&data, first));

        SignalRecorder recorder;
        connect(&data, changed, &recorder,
                recorder.metaObject()->method(recorder.metaObject()->indexOfSlot("changed()")));
        connect(&data, changedToValue, &recorder,
                recorder.metaObject()->method(recorder.metaObject()->indexOfSlot("changedToValue()")));
        QSignalSpy valueSpy(&data, changedToValue);
        QSignalSpy anyChangeSpy(&data, &ZREntity::propertyChanged);
        QVERIFY(metaProperty.write(&data, second));
        QCOMPARE(recorder.arrivals, (QStringList{"changed", "changedToValue"}));
        QCOMPARE(valueSpy.size(), 1);
        QCOMPARE(valueSpy.at(0).at(0), first);
        QCOMPARE(valueSpy.at(0).at(1), second);
        QCOMPARE(metaProperty.read(&data), second);
        QCOMPARE(anyChangeSpy.size(), 0);
    }

    void elementTypeIdentifiers() {
        UIElementType type;
        QVERIFY(type.isNull());
        QSignalSpy spy(&type, &UIElementType::identifiersChangedToValue);
        type.addIdentifier(QStringLiteral("AXRole"), QStringLiteral("AXButton"));
        QVERIFY(!type.isSpecialElement());
        type.setSpecialValue(QString());
        QVERIFY(type.isSpecialElement());
        QCOMPARE(type.specialValue(), QString());
        QCOMPARE(type.identifier(QStringLiteral("AXSubrole")), QString());
        QVERIFY(!type.isNull());
        QCOMPARE(spy.size(), 2);
        const auto last = spy.at(1).at(1).value<ZRSerializableStringMap>();
        QCOMPARE(last, (QMap<QString, QString>{{"AXRole", "AXButton"}, {"_special", ""}}));
    }

    void dirtyableTypes() {
        QVERIFY(ZRDirtyableEntity::isDerivedFromDirtyableEntity(&Dirtyable::staticMetaObject));
        QVERIFY(!ZRDirtyableEntity::isDerivedFromDirtyableEntity(&ZREntity::staticMetaObject));
        QVERIFY(!ZRDirtyableEntity::isDerivedFromDirtyableEntity(nullptr));
        QVERIFY(ZRDirtyableEntity::isMetaTypeDerivedFromDirtyableEntity(qMetaTypeId<Dirtyable*>()));
        QVERIFY(!ZRDirtyableEntity::isMetaTypeDerivedFromDirtyableEntity(QMetaType::Int));
    }

    void dirtiness_data() {
        QTest::addColumn<DirtySetup>("setup");
        QTest::addColumn<bool>("dirty");
        QTest::addColumn<bool>("keysDirty");
        QTest::addColumn<QByteArray>("dirtyValueProperty"); // the one property whose value is dirty
        QTest::newRow("new") << DirtySetup([](Dirtyable&, Dirtyable&) {}) << false << false << QByteArray();
        QTest::newRow("own property")
            << DirtySetup([](Dirtyable& p, Dirtyable&) { p.markPropertyDirty(p.indexOf("number")); }) << true
            << false << QByteArray();
        QTest::newRow("structure key")
            << DirtySetup([](Dirtyable& p, Dirtyable&) { p.markStructureKeyDirty(p.indexOf("items"), 0); })
            << true << true << QByteArray();
        QTest::newRow("emptied key set") << DirtySetup([](Dirtyable& p, Dirtyable&) {
            p.markStructureKeyDirty(p.indexOf("items"), 0);
            p.markStructureKeyClean(p.indexOf("items"), 0);
        }) << false << false << QByteArray();
        QTest::newRow("clean child") << DirtySetup([](Dirtyable& p, Dirtyable& c) { p.setChild(&c); })
                                     << false << false << QByteArray();
        QTest::newRow("dirty child") << DirtySetup([](Dirtyable& p, Dirtyable& c) {
            c.markPropertyDirty(c.indexOf("number"));
            p.setChild(&c);
        }) << true << false << QByteArray("child");
        QTest::newRow("dirty child in structure") << DirtySetup([](Dirtyable& p, Dirtyable& c) {
            c.markStructureKeyDirty(c.indexOf("items"), QStringLiteral("k"));
            p.setItems({QVariant(1), QVariant::fromValue(&c)});
        }) << true << false << QByteArray("items");
        QTest::newRow("dirty child held as QObject*") << DirtySetup([](Dirtyable& p, Dirtyable& c) {
            c.markPropertyDirty(c.indexOf("number"));
            p.setItems({QVariant::fromValue(static_cast<QObject*>(&c))});
        }) << false << false << QByteArray();
    }
    void dirtiness() {
        QFETCH(DirtySetup, setup);
        QFETCH(bool, dirty);
        QFETCH(bool, keysDirty);
        QFETCH(QByteArray, dirtyValueProperty);
        Dirtyable parent;
        Dirtyable child;
        setup(parent, child);
        QCOMPARE(parent.isDirty(), dirty);
        QCOMPARE(parent.anyStructureKeysMarkedDirty(), keysDirty);
        for (const char* name : {"child", "items", "number"})
            QCOMPARE(parent.isPropertyDirty(parent.indexOf(name)), dirtyValueProperty == name);
        if (!dirtyValueProperty.isEmpty())
            QVERIFY(parent.dirtyProperties().isEmpty());
    }

    void markClean() {
        Dirtyable parent;
        auto* child = new Dirtyable(&parent);
        Dirtyable outsider; // held in a structure only, not a QObject child
        parent.setChild(child);
        parent.markPropertyDirty(parent.indexOf("number"));
        child->markPropertyDirty(child->indexOf("number"));
        parent.markClean();
        QVERIFY(parent.dirtyProperties().isEmpty());
        QVERIFY(child->isDirty());
        QVERIFY(parent.isDirty());
        parent.recursivelyMarkClean();
        QVERIFY(!child->isDirty());
        QVERIFY(!parent.isDirty());

        outsider.markPropertyDirty(outsider.indexOf("number"));
        parent.setItems({QVariant::fromValue(&outsider)});
        parent.recursivelyMarkClean();
        QVERIFY(outsider.isDirty());
        QVERIFY(parent.isDirty());
    }

    void printDebugInfo() {
        Dirtyable entity;
        entity.markPropertyDirty(entity.indexOf("number"));
        entity.markStructureKeyDirty(entity.indexOf("items"), 3);
        const QString number = QString::number(entity.indexOf("number"));
        const QString items = QString::number(entity.indexOf("items"));
        QTest::ignoreMessage(QtDebugMsg, QRegularExpression("^Debug info for: Dirtyable\\(0x[0-9a-f]+\\)$"));
        QTest::ignoreMessage(QtDebugMsg, "Is dirty: true");
        QTest::ignoreMessage(QtDebugMsg, "Dirty properties:");
        QTest::ignoreMessage(QtDebugMsg, qPrintable("  " + number + " : number"));
        QTest::ignoreMessage(QtDebugMsg, "Dirty structure keys:");
        QTest::ignoreMessage(QtDebugMsg, qPrintable("  " + items + " / items : QVariant(int, 3)"));
        entity.printDebugInfo();
    }
};

UIET_TEST_MAIN(tst_ZREntity)
#include "tst_ZREntity.moc"
