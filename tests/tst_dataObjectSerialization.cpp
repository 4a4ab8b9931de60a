#include "QSettingsSerializer.h"
#include "UIElement.h"
#include "UIElementType.h"
#include "ZRDirtyableEntity.h"
#include "ZRMetaTypeRegistrar.h"
#include "ZRUIElementToolData.h"
#include "dataObjectSerialization.h"
#include "testSupport.h"

#include <QDate>
#include <QDir>
#include <QFile>
#include <QMargins>
#include <QRect>
#include <QRegularExpression>
#include <QTest>

// Plain values come back as text and are converted to the declared type, or by their "__type"
// where the declared type is QVariant.
class SamplePlain : public ZREntity {
    Q_OBJECT
    ZR_ENTITY_PROPERTY(qulonglong, big, setBig)
    ZR_ENTITY_PROPERTY(bool, flag, setFlag)
    ZR_ENTITY_PROPERTY(QDate, day, setDay)
    ZR_ENTITY_PROPERTY(QVariant, any, setAny)
public:
    Q_INVOKABLE explicit SamplePlain(QObject* parent = nullptr) : ZREntity(parent) {}
};

class SampleGraph : public ZREntity {
    Q_OBJECT
    Q_CLASSINFO("ZRDisableWriteToDisk", "scratch")
    Q_CLASSINFO("ZRDontIncludeIfEmpty", "note,day,count")
    Q_CLASSINFO("ZROpaqueProperties", "packed")
    Q_CLASSINFO("ZRSimpleMapProperties", "labels")
    Q_CLASSINFO("SampleFlag", "count,child")
    ZR_ENTITY_PROPERTY(int, count, setCount)
    ZR_ENTITY_PROPERTY(QString, note, setNote)
    ZR_ENTITY_PROPERTY(QDate, day, setDay)
    ZR_ENTITY_PROPERTY(QString, scratch, setScratch)
    ZR_ENTITY_PROPERTY(UIElementType*, child, setChild)
    ZR_ENTITY_PROPERTY(SampleGraph*, inner, setInner)
    ZR_ENTITY_PROPERTY(SampleGraph*, packed, setPacked)
    ZR_ENTITY_PROPERTY(ZRSerializableStringMap, labels, setLabels)
    ZR_ENTITY_PROPERTY(ZRSerializableVariantMap, variants, setVariants)
    ZR_ENTITY_PROPERTY(ZRSerializableVariantList, list, setList)
    ZR_ENTITY_PROPERTY(ZRSerializableStringList, strings, setStrings)
public:
    Q_INVOKABLE explicit SampleGraph(QObject* parent = nullptr) : ZREntity(parent) {}
};

// Inherits two properties and declares none.
class SampleWithoutOwnProperties : public UIElementType {
    Q_OBJECT
public:
    Q_INVOKABLE explicit SampleWithoutOwnProperties(QObject* parent = nullptr) : UIElementType(parent) {}
};

// The shape of a UIElement with its implementation object, until the element model stores one.
class StandInImpl : public ZREntity {
    Q_OBJECT
    ZR_ENTITY_PROPERTY(int, childIndex, setChildIndex)
    ZR_ENTITY_PROPERTY(ZRSerializableVariantMap, options, setOptions)
public:
    Q_INVOKABLE explicit StandInImpl(QObject* parent = nullptr) : ZREntity(parent) {}
};

class StandInElement : public UIElement {
    Q_OBJECT
    Q_PROPERTY(StandInImpl* impl READ impl WRITE setImpl USER true)
public:
    Q_INVOKABLE explicit StandInElement(QObject* parent = nullptr) : UIElement(parent) {}
    StandInImpl* impl() const { return implementation; }
    void setImpl(StandInImpl* newImpl) { implementation = newImpl; }

private:
    StandInImpl* implementation = nullptr;
};

class SampleDirtyable : public ZRDirtyableEntity {
    Q_OBJECT
    ZR_ENTITY_PROPERTY(int, number, setNumber)
    ZR_ENTITY_PROPERTY(QString, text, setText)
    ZR_ENTITY_PROPERTY(SampleDirtyable*, child, setChild)
public:
    Q_INVOKABLE explicit SampleDirtyable(QObject* parent = nullptr) : ZRDirtyableEntity(parent) {}
    void markDirty(const char* property) { markPropertyDirty(metaObject()->indexOfProperty(property)); }
};

template class ZRMetaTypeObjectRegistrar<SamplePlain>;
template class ZRMetaTypeObjectRegistrar<SampleGraph>;
template class ZRMetaTypeObjectRegistrar<SampleWithoutOwnProperties>;
template class ZRMetaTypeObjectRegistrar<StandInImpl>;
template class ZRMetaTypeObjectRegistrar<StandInElement>;
template class ZRMetaTypeObjectRegistrar<SampleDirtyable>;

// A back end that writes by dirty marks, on the settings file format.
class DirtyMarkSerializer : public QSettingsSerializer {
public:
    using QSettingsSerializer::QSettingsSerializer;
    bool utilizeDirtyMarksAndSetCleanWhenWriting() override { return true; }
};

namespace {

const QRegularExpression summaryWarning(QStringLiteral("^Errors occurred while saving or loading data"));

QByteArray readAndRemove(const QString& path) {
    QFile file(path);
    const QByteArray content = file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
    file.remove();
    return content;
}

QString writeTemporaryFile(const QByteArray& content) {
    const QString path = getTemporaryFilePath();
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(content) != content.size())
        qFatal("cannot write %s", qPrintable(path));
    return path;
}

UIElementType* makeType(const QString& description, QObject* parent) {
    return new UIElementType({{QStringLiteral("AXRole"), QStringLiteral("AXButton")}}, description, parent);
}

StandInElement* makeStandInElement(int childIndex, QObject* parent) {
    auto* element = new StandInElement(parent);
    element->setImpl(new StandInImpl(element));
    element->impl()->setChildIndex(childIndex);
    return element;
}

// A graph with every kind of value, nested objects, escaped keys and lists longer than ten.
void fill(SampleGraph& graph) {
    graph.setCount(0);
    graph.setNote(QStringLiteral("a, b = c; \"d\" \\e"));
    graph.setChild(makeType(QStringLiteral("Save"), &graph));
    auto* inner = new SampleGraph(&graph);
    inner->setCount(7);
    graph.setInner(inner);
    auto* packed = new SampleGraph(&graph);
    auto* packedTwice = new SampleGraph(packed);
    packedTwice->setNote(QStringLiteral("deepest"));
    packed->setPacked(packedTwice);
    graph.setPacked(packed);
    graph.setLabels({{QStringLiteral("en/GB"), QStringLiteral("Save")}, {QStringLiteral("a\\b"), QString()}});
    ZRSerializableVariantList nested;
    ZRSerializableStringList strings;
    for (int i = 0; i < 12; ++i) {
        nested.append(i % 2 ? QVariant(i) : QVariant(QStringLiteral("item %1").arg(i)));
        strings.append(QStringLiteral("s%1").arg(i));
    }
    graph.setStrings(strings);
    graph.setList(nested);
    graph.setVariants(
        {{QStringLiteral("x/y\\z"), QVariant::fromValue(makeType(QStringLiteral("in map"), &graph))},
         {QStringLiteral("@VQfslash_"), QVariant::fromValue(strings)},
         {QStringLiteral("pad"), QVariant::fromValue(QMargins(1, 2, 3, 4))},
         {QStringLiteral("flag"), true}});
}

} // namespace

class tst_dataObjectSerialization : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void workedExampleOneIsWrittenByteForByte() {
        UIElementType type({{QStringLiteral("en/GB"), QStringLiteral("Save")},
                            {QStringLiteral("fr"), QStringLiteral("Enregistrer, vite")}},
                           QStringLiteral("Save/Open"));
        QCOMPARE(serializeObjectToByteArray(&type),
                 QByteArray("[General]\ndescription=Save/Open\n\n[identifiers]\nen%40VQfslash_GB=Save\n"
                            "fr=\"Enregistrer, vite\"\n"));
    }

    void workedExampleTwoLaysOutTheCommand() {
        ZRUIElementToolData data;
        data.setCommand(1);
        data.setId(9);
        auto* collection = new UIElementCollection(&data);
        StandInElement* element = makeStandInElement(3, collection);
        element->impl()->setOptions({{QStringLiteral("a/b"), 2},
                                     {QStringLiteral("flag"), true},
                                     {QStringLiteral("pad"), QVariant::fromValue(QMargins(1, 2, 3, 4))},
                                     {QStringLiteral("rect"), QRect(1, 2, 3, 4)}});
        collection->setElements({element});
        data.setElements(collection);
        const QByteArray message = serializeObjectToByteArray(&data);
        QCOMPARE(message, QByteArray("[General]\ncommand=1\nid=9\n\n[elements]\n"
                                     "elements\\0\\childIndex=3\n"
                                     "elements\\0\\options\\a%40VQfslash_b=2\n"
                                     "elements\\0\\options\\a%40VQfslash_b__type=int\n"
                                     "elements\\0\\options\\flag=true\n"
                                     "elements\\0\\options\\flag__type=bool\n"
                                     "elements\\0\\options\\pad=@@Margins(1 2 3 4)\n"
                                     "elements\\0\\options\\pad__type=QMargins\n"
                                     "elements\\0\\options\\rect=@Rect(1 2 3 4)\n"
                                     "elements\\0\\options\\rect__type=QRect\n"));

        // The tool's loader makes the collection and its element by their declared types, as
        // children of what holds them, and the element's description from the keys at its path.
        ZRUIElementToolData received;
        deserializeObjectFromByteArray(&received, message);
        QCOMPARE(received.command(), 1);
        QCOMPARE(received.id(), 9ULL);
        QVERIFY(received.elements());
        QCOMPARE(received.elements()->parent(), &received);
        QCOMPARE(received.elements()->elements().size(), 1);
        const UIElement* receivedElement = received.elements()->elements().at(0);
        QCOMPARE(receivedElement->parent(), received.elements());
        QCOMPARE(receivedElement->platformSpecificEntity()->childIndex(), 3);
        QCOMPARE(receivedElement->platformSpecificEntity()->options(), element->impl()->options());
    }

    // A null element writes nothing, so index 1 is missing from the file; the list keeps its place.
    void aGapInATypedListSurvives() {
        UIElementCollection sent;
        sent.setElements({makeStandInElement(0, &sent), nullptr, makeStandInElement(2, &sent)});
        UIElementCollection received;
        deserializeObjectFromByteArray(&received, serializeObjectToByteArray(&sent));
        QCOMPARE(received.elements().size(), 3);
        QVERIFY(received.elements().at(0));
        QVERIFY(!received.elements().at(1));
        QVERIFY(received.elements().at(2));
        QCOMPARE(received.elements().at(2)->platformSpecificEntity()->childIndex(), 2);
    }

    void plainValuesComeBackAsTheirDeclaredType_data() {
        QTest::addColumn<QByteArray>("property");
        QTest::addColumn<QVariant>("value");
        QTest::newRow("largest qulonglong") << QByteArray("big") << QVariant(18446744073709551615ULL);
        QTest::newRow("false") << QByteArray("flag") << QVariant(false);
        QTest::newRow("date") << QByteArray("day") << QVariant(QDate(2024, 2, 29));
        QTest::newRow("int in variant") << QByteArray("any") << QVariant(5);
        QTest::newRow("margins in variant") << QByteArray("any") << QVariant::fromValue(QMargins(1, 2, 3, 4));
    }
    void plainValuesComeBackAsTheirDeclaredType() {
        QFETCH(QByteArray, property);
        QFETCH(QVariant, value);
        SamplePlain sent;
        QVERIFY(sent.setProperty(property, value));
        SamplePlain received;
        deserializeObjectFromByteArray(&received, serializeObjectToByteArray(&sent));
        QCOMPARE(received.property(property), sent.property(property));
        QCOMPARE(received.property(property).metaType(), sent.property(property).metaType());
    }

    // The cached load and the NoPathCache load are two routes to the same objects.
    void graphsComeBackWholeWithAndWithoutCaches_data() {
        QTest::addColumn<int>("options");
        QTest::newRow("caches") << int(QSettingsSerializer::FailIfFileMissing |
                                       QSettingsSerializer::WriteTypeInfo);
        QTest::newRow("NoPathCache") << int(QSettingsSerializer::FailIfFileMissing |
                                            QSettingsSerializer::WriteTypeInfo |
                                            QSettingsSerializer::NoPathCache);
    }
    void graphsComeBackWholeWithAndWithoutCaches() {
        QFETCH(int, options);
        SampleGraph sent;
        fill(sent);
        const QByteArray message = serializeObjectToByteArray(&sent);
        SampleGraph received;
        const QString path = writeTemporaryFile(message);
        {
            QSettingsSerializer serializer(path, QSettingsSerializer::Options(options));
            loadObject(serializer, &received);
            QVERIFY(!serializer.errorOccurred());
        }
        QFile::remove(path);
        QCOMPARE(serializeObjectToByteArray(&received), message);

        QCOMPARE(received.strings(), sent.strings()); // "10" and "11" come before "2" in the file
        QCOMPARE(received.inner()->parent(), &received);
        QCOMPARE(received.packed()->packed()->note(), QStringLiteral("deepest"));
        const auto* inMap =
            qvariant_cast<UIElementType*>(received.variants().value(QStringLiteral("x/y\\z")));
        QVERIFY(inMap);
        QCOMPARE(inMap->description(), QStringLiteral("in map"));
    }

    void whatTheWalkLeavesOut() {
        SampleGraph graph;
        graph.setScratch(QStringLiteral("not for disk"));
        const QByteArray message = serializeObjectToByteArray(&graph);
        // Empty note and invalid date dropped, count 0 kept; no key for a null child, an empty
        // structure or a property that is never written.
        QCOMPARE(message, QByteArray("[General]\ncount=0\n"));
        SampleGraph received;
        received.setStrings({QStringLiteral("kept")});
        deserializeObjectFromByteArray(&received, message + "scratch=from disk\n");
        QCOMPARE(received.strings(), ZRSerializableStringList{QStringLiteral("kept")});
        QCOMPARE(received.child(), nullptr);
        QCOMPARE(received.scratch(), QStringLiteral("from disk"));

        // A USER property has no key of its own to look for: it is loaded from nothing at all.
        StandInElement element;
        deserializeObjectFromByteArray(&element, QByteArray());
        QVERIFY(element.impl());
        QCOMPARE(element.impl()->parent(), &element);

        SampleWithoutOwnProperties inheritsOnly;
        inheritsOnly.setDescription(QStringLiteral("base class property"));
        QTest::ignoreMessage(QtDebugMsg, "Warning: trying to save object with no properties!");
        QTest::ignoreMessage(QtWarningMsg, summaryWarning);
        QCOMPARE(serializeObjectToByteArray(&inheritsOnly), QByteArray());
    }

    void skipSetAndFlagKeyRestrictTheWalk_data() {
        QTest::addColumn<bool>("flagged");
        QTest::addColumn<QByteArray>("expected");
        // Skipping applies to the top object only: the inner object keeps its count.
        QTest::newRow("skip count") << false << QByteArray("[General]\nnote=top\n\n[inner]\ncount=7\n");
        // The flag key restricts the classes that declare it; UIElementType is saved whole.
        QTest::newRow("flag key") << true
                                  << QByteArray("[General]\ncount=1\n\n[child]\ndescription=Save\n"
                                                "identifiers\\AXRole=AXButton\n");
    }
    void skipSetAndFlagKeyRestrictTheWalk() {
        QFETCH(bool, flagged);
        QFETCH(QByteArray, expected);
        SampleGraph graph;
        graph.setCount(1);
        graph.setNote(QStringLiteral("top"));
        graph.setChild(makeType(QStringLiteral("Save"), &graph));
        auto* inner = new SampleGraph(&graph);
        inner->setCount(7);
        graph.setInner(inner);
        const QString path = getTemporaryFilePath();
        {
            QSettingsSerializer serializer(path, QSettingsSerializer::WriteTypeInfo);
            if (flagged)
                saveObjectFlaggedProperties(serializer, &graph, "SampleFlag");
            else
                saveObjectSkippingProperties(serializer, &graph, {"count", "child"});
        }
        QCOMPARE(readAndRemove(path), expected);
    }

    void dirtyMarksDecideWhatIsWritten() {
        SampleDirtyable top;
        top.setNumber(1);
        top.setText(QStringLiteral("clean"));
        auto* child = new SampleDirtyable(&top);
        child->setNumber(2);
        top.setChild(child);
        const QString path = getTemporaryFilePath();
        DirtyMarkSerializer serializer(path, QSettingsSerializer::WriteTypeInfo);
        saveObject(serializer, &top);
        QCOMPARE(readAndRemove(path), QByteArray()); // nothing is dirty

        child->markDirty("number");
        top.markDirty("text");
        saveObject(serializer, &top);
        QCOMPARE(readAndRemove(path), QByteArray("[General]\ntext=clean\n\n[child]\nnumber=2\n"));
        QVERIFY(!top.isDirty());
        QVERIFY(!child->isDirty());
    }

    void badInputLogsAndKeepsDefaults_data() {
        QTest::addColumn<QByteArray>("message");
        QTest::addColumn<QString>("log");
        QTest::addColumn<bool>("walkFailed"); // and so warns at the end
        const QString unreadable =
            QStringLiteral("^Error: failed to deserialize object from byte array. Error: 3$");
        QTest::newRow("empty") << QByteArray() << QString() << false;
        QTest::newRow("unknown keys only")
            << QByteArray("[General]\nnosuch=1\n[other]\nx=2\n") << QString() << false;
        QTest::newRow("binary garbage") << QByteArray("\x00\xff[[=\n\x01\x02]\n", 11) << unreadable << false;
        QTest::newRow("truncated") << QByteArray("[General]\ncount=5\n\n[list]\n0=1\n0__ty") << unreadable
                                   << true;
        QTest::newRow("unknown saved type") << QByteArray("[list]\n0=1\n0__type=NoSuchType\n")
                                            << "^Error: unknown or invalid saved type:" << true;
        QTest::newRow("unknown object type")
            << QByteArray("[variants]\nx\\__objectType=NoSuchClass\nx\\a=1\n")
            << R"(^Warning: cannot instantiate and/or determine type of object at path: QList\("variants", "x"\)$)"
            << true;
        QTest::newRow("list index not a number")
            << QByteArray("[strings]\nfirst=a\n") << "^Warning: non-integer list index at:" << true;
        // Within the size of the file, but far beyond the one item that the list has.
        QByteArray padded("[General]\n");
        for (int i = 0; i < 30; ++i)
            padded += "key" + QByteArray::number(i) + "=0\n";
        QTest::newRow("list index beyond its items")
            << padded + "[strings]\n11=a\n"
            << R"(^Warning: list index out of range at: QList\("strings", "11"\)$)" << true;
        QByteArray deep("[list]\n");
        QByteArray key;
        for (int depth = 0; depth < 1000; ++depth) {
            key += "0\\";
            deep += key + "__objectType=ZRSerializableVariantList\n";
        }
        QTest::newRow("nested too deep") << deep << "^Warning: object nesting too deep at path:" << true;
    }
    void badInputLogsAndKeepsDefaults() {
        QFETCH(QByteArray, message);
        QFETCH(QString, log);
        QFETCH(bool, walkFailed);
        if (!log.isEmpty())
            QTest::ignoreMessage(QtDebugMsg, QRegularExpression(log));
        if (walkFailed)
            QTest::ignoreMessage(QtWarningMsg, summaryWarning);
        else
            QTest::failOnWarning(summaryWarning);
        SampleGraph received;
        deserializeObjectFromByteArray(&received, message);
        QVERIFY(received.strings().isEmpty());
        QVERIFY(!received.child());
        for (const QVariant& value : received.variants())
            QVERIFY(!value.isValid());
    }

    // Nested opaque properties open a file while another is in use; none may be left behind.
    void codecFilesAreUniqueAndRemoved() {
        const QRegularExpression name(QStringLiteral("^tst_dataObjectSerialization_%1_(\\d+)_[0-9a-f]{32}$")
                                          .arg(QCoreApplication::applicationPid()));
        const QFileInfo first(getTemporaryFilePath());
        const QFileInfo second(getTemporaryFilePath());
        QCOMPARE(first.absolutePath(), QDir(QDir::tempPath()).absolutePath());
        const QRegularExpressionMatch firstMatch = name.match(first.fileName());
        QVERIFY2(firstMatch.hasMatch(), qPrintable(first.fileName()));
        QCOMPARE(name.match(second.fileName()).captured(1).toULongLong(),
                 firstMatch.captured(1).toULongLong() + 1);

        SampleGraph graph;
        fill(graph);
        SampleGraph received;
        deserializeObjectFromByteArray(&received, serializeObjectToByteArray(&graph));
        QCOMPARE(QDir::temp().entryList(QDir::Files).filter(QStringLiteral("tst_dataObjectSerialization_")),
                 QStringList());
    }
};

UIET_TEST_MAIN(tst_dataObjectSerialization)
#include "tst_dataObjectSerialization.moc"
