#include "QSettingsSerializer.h"
#include "UIElementType.h"
#include "ZRSerializableStructures.h"
#include "testSupport.h"

#include <QDir>
#include <QFile>
#include <QIcon>
#include <QMargins>
#include <QRect>
#include <QTest>

#include <functional>

using Path = QList<QString>;
using Options = QSettingsSerializer::Options;

// One writeValue call as the object walk makes it.
struct Write {
    Path path;
    QVariant value;
    int declaredType;
};
Q_DECLARE_METATYPE(QList<Write>)

// A complex value that is neither an object pointer nor a structure, so the format cannot name it.
class PlainGadget {
    Q_GADGET
};
Q_DECLARE_METATYPE(PlainGadget)

namespace {

constexpr int variantType = QMetaType::QVariant;
constexpr int typed = QSettingsSerializer::WriteTypeInfo;

// Every file gets a name of its own: QSettings keeps what it has read or written of a file for the
// life of the process, and a file read again under a used name would give back the values as they
// were written, not as the receiver of a message parses them.
QString newFilePath() {
    static int count = 0;
    return QDir::temp().filePath(QStringLiteral("settings%1.ini").arg(++count));
}

QString fileWithText(const QByteArray& text) {
    const QString path = newFilePath();
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(text) != text.size())
        qFatal("cannot write %s", qPrintable(path));
    return path;
}

QByteArray textOfFile(const QString& path) {
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

// The bytes of the message that these writes make.
QByteArray written(int options, const std::function<void(QSettingsSerializer&)>& writes) {
    const QString path = newFilePath();
    QSettingsSerializer serializer(path, Options::fromInt(options));
    serializer.preWriteOperation(QString());
    writes(serializer);
    serializer.postWriteOperation(QString());
    return textOfFile(path);
}

// `text` received as a message and made ready for loading.
QSettingsSerializer loading(const QByteArray& text, int options) {
    QSettingsSerializer serializer(fileWithText(text), Options::fromInt(options));
    serializer.preReadOperation(QString());
    return serializer;
}

void expectMessages(const QStringList& messages) {
    for (const QString& message : messages)
        QTest::ignoreMessage(QtDebugMsg, qPrintable(message));
}

void expectMessage(const QString& message) {
    expectMessages(message.isEmpty() ? QStringList() : QStringList{message});
}

const ZRSerializableStructureBase* structureIn(const QVariant& value) {
    return static_cast<const ZRSerializableStructureBase*>(value.constData());
}

// Adds the rows twice, under a first column "source": answers from the cache built when loading
// starts, and answers from QSettings query by query.
template <typename AddRows> void forBothSources(AddRows addRows) {
    for (int source : {0, int(QSettingsSerializer::NoPathCache)})
        addRows([source](const char* name) -> QTestData& {
            return QTest::addRow("%s, %s", name, source ? "uncached" : "cached") << source;
        });
}

const QByteArray structuresText =
    "[k]\nboth=1\nboth\\x=2\n"
    "[l]\n-1=f\n0=a\n1\\x=b\n10=c\n2=d\nx=e\n"
    "[m]\na%40VQfslash_b=3\nb\\y=5\nb-\\y=6\nc\\__objectType=UIElementType\nc\\x=4\n"
    "my__type=2\nz=1\nz__type=int\n";

// Every path down to `depth` levels with its items and their answers, for comparing two sources.
QStringList dump(QSettingsSerializer& serializer, int depth) {
    QStringList lines;
    QList<Path> pending{Path()};
    while (!pending.isEmpty()) {
        const Path path = pending.takeFirst();
        for (const QString& item : serializer.childItemsAtPath(path)) {
            const Path itemPath = path + Path{item};
            lines << QStringLiteral("%1 %2 %3 %4")
                         .arg(itemPath.join(u'|'))
                         .arg(serializer.itemAtPathExists(itemPath))
                         .arg(serializer.itemAtPathIsObjectOrStructure(itemPath))
                         .arg(serializer.readValue(itemPath, variantType).toString());
            if (itemPath.size() < depth)
                pending << itemPath;
        }
    }
    return lines;
}

} // namespace

class tst_QSettingsSerializer : public QObject {
    Q_OBJECT

    UIElementType element;

private Q_SLOTS:
    void components_data() {
        QTest::addColumn<QString>("decoded");
        QTest::addColumn<QString>("encoded");
        QTest::addColumn<QString>("decodedAgain");
        const char* table[][3] = {
            {"a/b", "a@VQfslash_b", "a/b"},
            {"a\\b", "a@VQbslash_b", "a\\b"},
            {"a/b\\c", "a@VQfslash_b@VQbslash_c", "a/b\\c"},
            {"//", "@VQfslash_@VQfslash_", "//"},
            {"@VQfslash_", "@VQfslash__", "@VQfslash_"},
            {"@VQfslash__", "@VQfslash___", "@VQfslash__"},
            {"x@VQfslash_y", "x@VQfslash__y", "x@VQfslash_y"},
            {"x/_y", "x@VQfslash__y", "x@VQfslash_y"},
        };
        for (const auto& row : table)
            QTest::newRow(row[0]) << QString(row[0]) << QString(row[1]) << QString(row[2]);
    }
    void components() {
        QFETCH(QString, decoded);
        QFETCH(QString, encoded);
        QFETCH(QString, decodedAgain);
        QCOMPARE(QSettingsSerializer::computeEncodedPathComponent(decoded), encoded);
        QCOMPARE(QSettingsSerializer::computeDecodedPathComponent(encoded), decodedAgain);

        // A map key on its way through a message.
        const QByteArray text = written(0, [&](QSettingsSerializer& s) {
            s.writeValue({"m", decoded}, "v", QMetaType::QString);
        });
        QCOMPARE(text, "[m]\n" + encoded.toUtf8().replace("@", "%40") + "=v\n");
        const QVariant map = QVariant::fromValue(ZRSerializableStringMap());
        for (int source : {0, int(QSettingsSerializer::NoPathCache)}) {
            QSettingsSerializer serializer = loading(text, source);
            const auto items = serializer.readKeysAndValuePathsForStructureAtPath({"m"}, structureIn(map));
            QCOMPARE(items.size(), 1);
            QCOMPARE(items[0].key.toString(), decodedAgain);
            QCOMPARE(serializer.readValue(items[0].path, QMetaType::QString), QVariant("v"));
        }
    }

    // A UIElementType as serializeObjectToByteArray lays it out.
    void walkOfOneEntity() {
        const ZRSerializableStringMap identifiers{{"en/GB", "Save"}, {"fr", "Enregistrer, vite"}};
        const QByteArray text = written(typed, [&](QSettingsSerializer& s) {
            s.writeValue({"description"}, "Save/Open", QMetaType::QString);
            s.writeInfoForSerializableStructure({"identifiers"}, &identifiers);
            for (const auto& item :
                 s.keysAndValuePathsFromStructureWrittenAtPath({"identifiers"}, &identifiers))
                s.writeValue(item.path, identifiers.variantValueForKey(item.key), identifiers.valueType());
        });
        QCOMPARE(text, "[General]\ndescription=Save/Open\n\n"
                       "[identifiers]\nen%40VQfslash_GB=Save\nfr=\"Enregistrer, vite\"\n");
    }

    void renderedFile_data() {
        QTest::addColumn<int>("options");
        QTest::addColumn<QList<Write>>("writes");
        QTest::addColumn<QString>("message");
        QTest::addColumn<QByteArray>("expected");
        const Path options{"elements", "0", "options"};
        // The first component names the section, the other separators become backslashes.
        QTest::newRow("command object")
            << typed
            << QList<Write>{{{"command"}, 1, QMetaType::Int},
                            {{"id"}, 9ULL, QMetaType::ULongLong},
                            {{"elements", "0", "childIndex"}, 3, QMetaType::Int},
                            {options + Path{"a/b"}, 2, variantType},
                            {options + Path{"flag"}, true, variantType},
                            {options + Path{"pad"}, QVariant::fromValue(QMargins(1, 2, 3, 4)), variantType},
                            {options + Path{"rect"}, QRect(1, 2, 3, 4), variantType}}
            << ""
            << QByteArray("[General]\ncommand=1\nid=9\n\n[elements]\n0\\childIndex=3\n"
                          "0\\options\\a%40VQfslash_b=2\n0\\options\\a%40VQfslash_b__type=int\n"
                          "0\\options\\flag=true\n0\\options\\flag__type=bool\n"
                          "0\\options\\pad=@@Margins(1 2 3 4)\n0\\options\\pad__type=QMargins\n"
                          "0\\options\\rect=@Rect(1 2 3 4)\n0\\options\\rect__type=QRect\n");
        QTest::newRow("bools in a variant container without type info")
            << 0 << QList<Write>{{{"m", "off"}, false, variantType}, {{"m", "on"}, true, variantType}} << ""
            << QByteArray("[m]\noff=0\non=1\n");
        QTest::newRow("declared bool without type info")
            << 0 << QList<Write>{{{"m", "on"}, true, QMetaType::Bool}} << "" << QByteArray("[m]\non=true\n");
        QTest::newRow("a value without a stream form")
            << typed << QList<Write>{{{"m", "p"}, QVariant::fromValue<void*>(nullptr), variantType}} << ""
            << QByteArray("[m]\np=@Invalid()\np__type=void*\n");
        QTest::newRow("negative margins")
            << typed << QList<Write>{{{"pad"}, QVariant::fromValue(QMargins(-1, 2, 3, 4)), 0}} << ""
            << QByteArray("[General]\npad=@@Margins(-1 2 3 4)\npad__type=QMargins\n");
        QTest::newRow("complex value")
            << typed << QList<Write>{{{"m"}, QVariant::fromValue(ZRSerializableStringMap()), variantType}}
            << "QSettingsSerializer error: cannot write out complex data format for path: QList(\"m\")"
            << QByteArray("[General]\nm__type=ZRSerializableStringMap\n");
    }
    void renderedFile() {
        QFETCH(int, options);
        QFETCH(QList<Write>, writes);
        QFETCH(QString, message);
        expectMessage(message);
        const QByteArray text = written(options, [&](QSettingsSerializer& s) {
            for (const Write& write : writes)
                s.writeValue(write.path, write.value, write.declaredType);
            QCOMPARE(s.errorOccurred(), !message.isEmpty());
        });
        QTEST(text, "expected");
    }

    void readValue_data() {
        QTest::addColumn<int>("source");
        QTest::addColumn<int>("options");
        QTest::addColumn<QString>("name");
        QTest::addColumn<int>("declaredType");
        QTest::addColumn<QVariant>("expected");
        QTest::addColumn<QString>("message");
        forBothSources([](auto row) {
            const QVariant margins = QVariant::fromValue(QMargins(1, 2, 3, 4));
            const int marginsType = margins.typeId();
            row("bool by type key") << typed << "flag" << variantType << QVariant(true) << "";
            row("bool without type info") << 0 << "one" << variantType << QVariant("1") << "";
            row("type key of undeclared type") << typed << "n" << 0 << QVariant(5) << "";
            row("declared type ignores type key")
                << typed << "n" << int(QMetaType::Int) << QVariant("5") << "";
            row("margins by type key") << typed << "pad" << variantType << margins << "";
            row("margins text without type info") << 0 << "plain" << variantType << margins << "";
            row("negative margins by type key")
                << typed << "neg" << variantType << QVariant::fromValue(QMargins())
                << "Error: invalid Margins value when parsing using QSettingsSerializer: \"@Margins(-1 2 3 "
                   "4)\"";
            row("negative margins without type info")
                << 0 << "neg" << variantType << QVariant("@Margins(-1 2 3 4)") << "";
            row("margins beyond int")
                << 0 << "big" << marginsType << QVariant::fromValue(QMargins(0, 2, 3, 4)) << "";
            row("rect by type key") << typed << "rect" << variantType << QVariant(QRect(1, 2, 3, 4)) << "";
            row("no type key") << typed << "untyped" << variantType << QVariant("text")
                               << "Error: no saved type for setting at path: \"m/untyped\"";
            row("unknown type")
                << typed << "odd" << variantType << QVariant("text")
                << "Error: unknown or invalid saved type: \"NoSuchType\"  ...for setting at path: \"m/odd\"";
            row("missing") << typed << "none" << variantType << QVariant() << "";
            // An empty list and an invalid value are both written @Invalid(); the type key parts them.
            row("empty string list") << typed << "noNames" << variantType << QVariant(QStringList()) << "";
            row("empty list") << typed << "noItems" << variantType << QVariant(QVariantList()) << "";
            row("invalid value") << typed << "nothing" << variantType << QVariant() << "";
            row("null pointer") << typed << "nullPointer" << variantType
                                << QVariant::fromValue<void*>(nullptr) << "";
            row("complex declared type")
                << typed << "flag" << qMetaTypeId<ZRSerializableStringMap>() << QVariant()
                << "QSettingsSerializer error: cannot read in complex data format for path: QList(\"m\", "
                   "\"flag\")";
        });
    }
    void readValue() {
        QFETCH(int, source);
        QFETCH(int, options);
        QFETCH(QString, name);
        QFETCH(int, declaredType);
        QFETCH(QVariant, expected);
        QFETCH(QString, message);
        QSettingsSerializer serializer = loading(
            "[m]\nflag=true\nflag__type=bool\none=1\nn=5\nn__type=int\npad=@@Margins(1 2 3 "
            "4)\npad__type=QMargins\n"
            "plain=@@Margins(1 2 3 4)\nneg=@@Margins(-1 2 3 "
            "4)\nneg__type=QMargins\nbig=@@Margins(99999999999 2 3 4)\n"
            "rect=@Rect(1 2 3 4)\nrect__type=QRect\nuntyped=text\nodd=text\nodd__type=NoSuchType\n"
            "noNames=@Invalid()\nnoNames__type=QStringList\nnoItems=@Invalid()\nnoItems__type=QVariantList\n"
            "nothing=@Invalid()\nnothing__type=\nnullPointer=@Invalid()\nnullPointer__type=void*\n",
            source | options);
        expectMessage(message);
        const QVariant value = serializer.readValue({"m", name}, declaredType);
        QCOMPARE(value.metaType(), expected.metaType());
        QCOMPARE(value, expected);
        QCOMPARE(serializer.errorOccurred(), !message.isEmpty());
    }

    void structureListing_data() {
        QTest::addColumn<int>("source");
        QTest::addColumn<QStringList>("path");
        QTest::addColumn<bool>("sequential");
        QTest::addColumn<QStringList>("expected");
        QTest::addColumn<QStringList>("messages");
        forBothSources([](auto row) {
            const QString badIndex = "Warning: non-integer list index at: QList(\"l\")";
            row("keys, then groups, without type keys")
                << QStringList{"m"} << false << QStringList{"a/b", "z", "b", "b-", "c"} << QStringList();
            row("object marker") << QStringList{"m", "c"} << false << QStringList{"x"} << QStringList();
            row("list in file order, bad indices left out")
                << QStringList{"l"} << true << QStringList{"0", "10", "2", "1"}
                << QStringList{badIndex, badIndex};
            row("absent") << QStringList{"none"} << false << QStringList() << QStringList();
            row("root") << QStringList() << false << QStringList{"k", "l", "m"} << QStringList();
        });
    }
    void structureListing() {
        QFETCH(int, source);
        QFETCH(QStringList, path);
        QFETCH(bool, sequential);
        QFETCH(QStringList, messages);
        QSettingsSerializer serializer = loading(structuresText, source);
        const QVariant structure = sequential ? QVariant::fromValue(ZRSerializableVariantList())
                                              : QVariant::fromValue(ZRSerializableVariantMap());
        expectMessages(messages);
        QStringList keys;
        for (const auto& item :
             serializer.readKeysAndValuePathsForStructureAtPath(path, structureIn(structure))) {
            QCOMPARE(item.key.metaType(), QMetaType::fromType<QString>());
            QCOMPARE(item.path, path + Path{item.key.toString()});
            keys << item.key.toString();
        }
        QTEST(keys, "expected");
        QCOMPARE(serializer.errorOccurred(), !messages.isEmpty());
    }

    void itemKinds_data() {
        QTest::addColumn<int>("source");
        QTest::addColumn<QStringList>("path");
        QTest::addColumn<bool>("exists");
        QTest::addColumn<bool>("isObject");
        forBothSources([](auto row) {
            row("key") << QStringList{"m", "z"} << true << false;
            row("group") << QStringList{"m", "c"} << true << true;
            row("both") << QStringList{"k", "both"} << true << true;
            row("escaped key") << QStringList{"m", "a/b"} << true << false;
            row("escape taken literally") << QStringList{"m", "a@VQfslash_b"} << false << false;
            row("type key") << QStringList{"m", "z__type"} << true << false;
            row("top group") << QStringList{"m"} << true << true;
            row("empty path") << QStringList() << false << false;
            row("empty component") << QStringList{"m", "", "z"} << false << false;
            row("below an absent group") << QStringList{"none", "z"} << false << false;
        });
    }
    void itemKinds() {
        QFETCH(int, source);
        QFETCH(QStringList, path);
        QSettingsSerializer serializer = loading(structuresText, source);
        QTEST(serializer.itemAtPathExists(path), "exists");
        QTEST(serializer.itemAtPathIsObjectOrStructure(path), "isObject");
    }

    void objectTypeMarkers_data() {
        QTest::addColumn<QVariant>("structure");
        QTest::addColumn<QString>("item");
        QTest::addColumn<QByteArray>("expected");
        QTest::addColumn<int>("objectType");
        QTest::addColumn<QString>("message");
        QTest::newRow("object in a map")
            << QVariant::fromValue(ZRSerializableVariantMap{{"child", QVariant::fromValue(&element)}})
            << "child" << QByteArray("[m]\nchild\\__objectType=UIElementType\n")
            << qMetaTypeId<UIElementType*>() << "";
        QTest::newRow("structure in a list")
            << QVariant::fromValue(ZRSerializableVariantList{QVariant::fromValue(ZRSerializableStringMap())})
            << "0" << QByteArray("[m]\n0\\__objectType=ZRSerializableStringMap\n")
            << qMetaTypeId<ZRSerializableStringMap>() << "";
        QTest::newRow("plain value") << QVariant::fromValue(ZRSerializableVariantMap{{"x", 5}}) << "x"
                                     << QByteArray() << 0 << "";
        QTest::newRow("typed container")
            << QVariant::fromValue(ZRSerializableStringMap{{"child", "UIElementType"}}) << "child"
            << QByteArray() << 0 << "";
        QTest::newRow("gadget that is no structure")
            << QVariant::fromValue(ZRSerializableVariantMap{{"child", QVariant::fromValue(PlainGadget())}})
            << "child" << QByteArray("[m]\nchild\\__objectType=\n") << 0
            << "Error: tried to get type name for an object type that is not stored by pointer:  PlainGadget";
    }
    void objectTypeMarkers() {
        QFETCH(QVariant, structure);
        QFETCH(QString, item);
        QFETCH(QString, message);
        expectMessage(message);
        const QByteArray text = written(0, [&](QSettingsSerializer& s) {
            s.writeInfoForSerializableStructure({"m"}, structureIn(structure));
        });
        QTEST(text, "expected");
        QTEST(loading(text, 0).objectTypeAtPath({"m", item}), "objectType");
    }

    void keyThatIsNoString() {
        QSettingsSerializer serializer(newFilePath());
        QTest::ignoreMessage(QtDebugMsg,
                             "Error: QSettingsSerializer can only serialize associative structures whose "
                             "key type is representable as a string. Key type: PlainGadget");
        QCOMPARE(serializer.pathForItemInAssociativeStructure({"m"}, QVariant::fromValue(PlainGadget())),
                 (Path{"m", "@invalid"}));
        QVERIFY(serializer.errorOccurred());
    }

    void icon() {
        const QByteArray text =
            written(0, [](QSettingsSerializer& s) { s.writeValue({"icon"}, QIcon(), QMetaType::QIcon); });
        // Base64 may end in "=", which puts the value in quotes.
        QVERIFY(text.startsWith("[General]\nicon=\"@ByteArray("));
        const QVariant value = loading(text, 0).readValue({"icon"}, QMetaType::QIcon);
        QCOMPARE(value.typeId(), int(QMetaType::QIcon));
        QVERIFY(value.value<QIcon>().isNull());
    }

    void missingFile_data() {
        QTest::addColumn<int>("options");
        QTest::addColumn<int>("status");
        QTest::addColumn<bool>("created");
        QTest::newRow("fail if missing") << 1 << 5 << false;
        QTest::newRow("fail if missing, with type info") << 3 << 5 << false;
        QTest::newRow("fail if missing, uncached") << 5 << 5 << false;
        QTest::newRow("missing file may be created") << 0 << 0 << true;
    }
    void missingFile() {
        QFETCH(int, options);
        const QString path = newFilePath();
        QSettingsSerializer serializer(path, Options::fromInt(options));
        QTEST(int(serializer.status()), "status");
        serializer.preReadOperation(QString());
        QCOMPARE(serializer.readValue({"x"}, variantType), QVariant());
        QVERIFY(serializer.childItemsAtPath({}).isEmpty());
        serializer.preWriteOperation(QString());
        serializer.writeValue({"x"}, 1, QMetaType::Int);
        serializer.postWriteOperation(QString());
        QTEST(QFile::exists(path), "created");
        // What was written for one missing file must not show in another.
        QCOMPARE(QSettingsSerializer(newFilePath(), QSettingsSerializer::FailIfFileMissing)
                     .readValue({"x"}, variantType),
                 QVariant());
    }

    void preWriteOperation_data() {
        QTest::addColumn<QString>("group");
        QTest::addColumn<QByteArray>("expected");
        QTest::newRow("one group") << "a" << QByteArray("[General]\nx=1\n\n[ab]\nz=3\n");
        QTest::newRow("whole file") << "" << QByteArray();
        QTest::newRow("absent group") << "none" << QByteArray("[General]\nx=1\n\n[a]\ny=2\n\n[ab]\nz=3\n");
    }
    void preWriteOperation() {
        QFETCH(QString, group);
        const QString path = fileWithText("[General]\nx=1\n\n[a]\ny=2\n\n[ab]\nz=3\n");
        QSettingsSerializer serializer(path);
        serializer.preWriteOperation(group);
        serializer.postWriteOperation(group);
        QTEST(textOfFile(path), "expected");
    }

    void badInput_data() {
        QTest::addColumn<QByteArray>("text");
        QTest::addColumn<int>("status");
        QByteArray garbage;
        for (int i = 0; i < 4096; ++i)
            garbage.append(char((i * 37 + 11) % 256));
        QTest::newRow("binary garbage") << garbage << 3;
        QTest::newRow("truncated section") << QByteArray("[elem") << 3;
        QTest::newRow("truncated line") << QByteArray("[m]\nchild\\descr") << 3;
        QTest::newRow("unterminated quote") << QByteArray("[m]\nx=\"abc\ny=@ByteArray(") << 0;
        QTest::newRow("NUL bytes") << QByteArray("k=\0\0x\n[s\0]\nz=1\0", 15) << 0;
        QTest::newRow("empty names") << QByteArray("=x\n[]\n=y\nk=1\n[a]\n\\b=1\nc\\=2\nd\\\\e=3\n") << 3;
        QTest::newRow("names no path reaches") << QByteArray("[a]\n%5C=1\n%5C\\z=2\n%40VQbslash=3\n") << 0;
        QTest::newRow("deep nesting") << "[a]\n" + QByteArray("a\\").repeated(100000) + "z=1\n" << 0;
    }
    // Whatever the file, no crash, and the same answers from both sources.
    void badInput() {
        QFETCH(QByteArray, text);
        QSettingsSerializer cached = loading(text, 0);
        QSettingsSerializer uncached = loading(text, QSettingsSerializer::NoPathCache);
        QTEST(int(cached.status()), "status");
        QCOMPARE(dump(cached, 8), dump(uncached, 8));
    }
};

UIET_TEST_MAIN(tst_QSettingsSerializer)
#include "tst_QSettingsSerializer.moc"
