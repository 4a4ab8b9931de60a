// The property list readers: the three forms of one list agree, the old text form with its
// escapes, encodings and ".strings" shorthand, the values of the XML and binary forms, the files
// that are refused, and hostile nesting that would crash or stall libplist itself.

#include "appkit/PropertyList.h"
#include "testSupport.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QTest>

#include <plist/plist.h>

#include <limits>

namespace {

QByteArray bigEndian(quint64 value, int width) {
    QByteArray bytes(width, '\0');
    for (int i = width - 1; i >= 0; --i, value >>= 8)
        bytes[i] = char(value & 0xFF);
    return bytes;
}

// A binary list from its objects, with references four bytes wide; object 0 is the top one.
QByteArray binaryList(const QList<QByteArray>& objects) {
    QByteArray list("bplist00");
    QByteArray offsets;
    for (const QByteArray& object : objects) {
        offsets += bigEndian(quint64(list.size()), 4);
        list += object;
    }
    const quint64 table = quint64(list.size());
    return list + offsets + QByteArray(6, '\0') + char(4) + char(4) + bigEndian(quint64(objects.size()), 8) +
           bigEndian(0, 8) + bigEndian(table, 8);
}

// A binary object of a marker and references to the objects with these indexes.
QByteArray object(int marker, const QList<int>& references) {
    QByteArray object(1, char(marker));
    for (int reference : references)
        object += bigEndian(quint64(reference), 4);
    return object;
}

// An array of fewer than 15 elements.
QByteArray arrayObject(const QList<int>& elements) {
    return object(0xA0 | elements.size(), elements);
}

// Arrays inside arrays, `depth` of them, in the binary form.
QByteArray binaryNesting(int depth, int referencesToNext = 1) {
    QList<QByteArray> objects;
    for (int i = 0; i + 1 < depth; ++i)
        objects.append(arrayObject(QList<int>(referencesToNext, i + 1)));
    objects.append(arrayObject({}));
    return binaryList(objects);
}

// The binary form of a tree made with libplist, which takes the tree.
QByteArray binaryOf(plist_t root) {
    char* bytes = nullptr;
    uint32_t length = 0;
    plist_to_bin(root, &bytes, &length);
    const QByteArray list(bytes, qsizetype(length));
    plist_to_bin_free(bytes);
    plist_free(root);
    return list;
}

QVariant nestedLists(int depth) {
    QVariant value = QVariantList();
    for (int i = 1; i < depth; ++i)
        value = QVariantList{value};
    return value;
}

QByteArray utf16WithBom(const QString& text, QSysInfo::Endian order) {
    QByteArray bytes(order == QSysInfo::LittleEndian ? "\xFF\xFE" : "\xFE\xFF");
    for (QChar c : text) {
        const char high = char(c.unicode() >> 8), low = char(c.unicode() & 0xFF);
        bytes.append(order == QSysInfo::LittleEndian ? low : high)
            .append(order == QSysInfo::LittleEndian ? high : low);
    }
    return bytes;
}

QString writeFile(const QString& name, const QByteArray& content) {
    const QString path = QDir::tempPath() + QLatin1Char('/') + name;
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(content) != content.size())
        qFatal("cannot write %s", qPrintable(path));
    return path;
}

enum Form { Xml, Binary, Text };

const QVariantMap kSample{
    {"Open", QString::fromUtf8("Öffnen")},
    {"Quit \"%@\"", "Beenden"},
    {"list", QVariantList{"a", "b"}},
    {"nested", QVariantMap{{"empty", ""}}},
};

} // namespace

class PropertyListTest : public QObject {
    Q_OBJECT

private slots:
    void threeForms_data() {
        QTest::addColumn<QByteArray>("data");
        QTest::newRow("XML") << QByteArray(
            "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST "
            "1.0//EN\" \"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n<plist version=\"1.0\"><dict>"
            "<key>Open</key><string>Öffnen</string><key>Quit \"%@\"</key><string>Beenden</string>"
            "<key>list</key><array><string>a</string><string>b</string></array>"
            "<key>nested</key><dict><key>empty</key><string/></dict></dict></plist>\n");
        plist_t list = plist_new_array();
        plist_array_append_item(list, plist_new_string("a"));
        plist_array_append_item(list, plist_new_string("b"));
        plist_t nested = plist_new_dict();
        plist_dict_set_item(nested, "empty", plist_new_string(""));
        plist_t root = plist_new_dict();
        plist_dict_set_item(root, "Open", plist_new_string("Öffnen"));
        plist_dict_set_item(root, "Quit \"%@\"", plist_new_string("Beenden"));
        plist_dict_set_item(root, "list", list);
        plist_dict_set_item(root, "nested", nested);
        QTest::newRow("binary") << binaryOf(root);
        const QByteArray entries("Open = \"Öffnen\"; \"Quit \\\"%@\\\"\" = Beenden;\n"
                                 "list = (a, b); nested = { empty = \"\"; };\n");
        QTest::newRow("text") << "{ " + entries + " }";
        QTest::newRow("strings") << entries;
    }
    void threeForms() {
        QFETCH(QByteArray, data);
        QCOMPARE(propertyListFromData(data), std::optional<QVariant>(kSample));
    }

    void escapes_data() {
        QTest::addColumn<QByteArray>("escaped");
        QTest::addColumn<QString>("expected");
        QTest::newRow("controls") << QByteArray(R"(\n\t\r\a\b\f\v)") << QString("\n\t\r\a\b\f\v");
        QTest::newRow("quote and backslash") << QByteArray(R"(\"\\)") << QString("\"\\");
        QTest::newRow("four hex digits") << QByteArray(R"(\U00e9\U20AC)") << QString::fromUtf8("é€");
        QTest::newRow("fewer hex digits") << QByteArray(R"(\U41g\U)") << QString("Ag") + QChar(0);
        QTest::newRow("fifth digit is text") << QByteArray(R"(\U00411)") << QString("A1");
        QTest::newRow("surrogate pair") << QByteArray(R"(\Ud83d\Ude00)") << QString::fromUtf8("😀");
        QTest::newRow("octal") << QByteArray(R"(\101\7\0618)") << QString("A\a18");
        QTest::newRow("octal above ASCII")
            << QByteArray(R"(\351\777)") << QString::fromUtf8("é") + QChar(0x1FF);
        QTest::newRow("other characters") << QByteArray(R"(\q\8\')") << QString("q8'");
    }
    void escapes() {
        QFETCH(QByteArray, escaped);
        QFETCH(QString, expected);
        const std::optional<QVariant> list = openStepPropertyListFromData("k = \"" + escaped + "\";");
        QVERIFY(list);
        QCOMPARE(list->toMap().value("k").toString(), expected);
    }

    void textForms_data() {
        QTest::addColumn<QByteArray>("data");
        QTest::addColumn<QVariant>("expected");
        QTest::newRow("empty") << QByteArray() << QVariant(QVariantMap());
        QTest::newRow("only comments") << QByteArray("// one\n/* two\n */ ") << QVariant(QVariantMap());
        QTest::newRow("comments everywhere")
            << QByteArray("/*0*/{/*1*/a /*2*/=//3\n(/*4*/\"b\"/*5*/,//6\r c /*7*/)/*8*/;/*9*/}// end")
            << QVariant(QVariantMap{{"a", QVariantList{"b", "c"}}});
        QTest::newRow("key alone") << QByteArray("\"a\"; b = c; \"d\";")
                                   << QVariant(QVariantMap{{"a", "a"}, {"b", "c"}, {"d", "d"}});
        QTest::newRow("duplicate keys")
            << QByteArray("a = 1; b = 2; a = 3;") << QVariant(QVariantMap{{"a", "3"}, {"b", "2"}});
        QTest::newRow("braced value in strings")
            << QByteArray("a = { b = (c); };")
            << QVariant(QVariantMap{{"a", QVariantMap{{"b", QVariantList{"c"}}}}});
        QTest::newRow("single quoted string") << QByteArray(" \"x = y;\" // note") << QVariant("x = y;");
        QTest::newRow("single bare string") << QByteArray("az_$+/:.-09") << QVariant("az_$+/:.-09");
        QTest::newRow("array with trailing comma")
            << QByteArray("(a, \"b\",)") << QVariant(QVariantList{"a", "b"});
        QTest::newRow("empty array") << QByteArray("( )") << QVariant(QVariantList());
        QTest::newRow("data") << QByteArray("< 0fbd\n7777 >") << QVariant(QByteArray("\x0f\xbd\x77\x77"));
        QTest::newRow("empty data") << QByteArray("<>") << QVariant(QByteArray());
    }
    void textForms() {
        QFETCH(QByteArray, data);
        QFETCH(QVariant, expected);
        QCOMPARE(openStepPropertyListFromData(data), std::optional<QVariant>(expected));
    }

    void textRefusals_data() {
        QTest::addColumn<QByteArray>("data");
        QTest::newRow("unterminated string") << QByteArray("a = \"b;");
        QTest::newRow("backslash at the end") << QByteArray("a = \"b\\");
        QTest::newRow("missing semicolon") << QByteArray("a = b; c = d");
        QTest::newRow("missing semicolon in braces") << QByteArray("{ a = b }");
        QTest::newRow("missing value") << QByteArray("a = ;");
        QTest::newRow("key that is no string") << QByteArray("{ (a) = b; }");
        QTest::newRow("bad hex") << QByteArray("<0fzz>");
        QTest::newRow("split hex pair") << QByteArray("<0 f>");
        QTest::newRow("odd hex digits") << QByteArray("<0fb>");
        QTest::newRow("unterminated data") << QByteArray("<0f");
        QTest::newRow("unterminated array") << QByteArray("(a, b");
        QTest::newRow("array without comma") << QByteArray("(a b)");
        QTest::newRow("empty array element") << QByteArray("(a, , b)");
        QTest::newRow("unterminated comment") << QByteArray("a = b; /* c");
        QTest::newRow("character outside bare strings") << QByteArray("a = b@c;");
        QTest::newRow("trailing garbage") << QByteArray("{ a = b; } c");
        QTest::newRow("array followed by entries") << QByteArray("(a) = b;");
        QTest::newRow("bad UTF-8") << QByteArray("a = \"\xC3\x28\";");
        QTest::newRow("UTF-8 cut short") << QByteArray("a = b; // \xE2\x82");
        QTest::newRow("UTF-16 of odd length") << utf16WithBom("a=b;", QSysInfo::LittleEndian) + 'x';
        QTest::newRow("UTF-16 lone surrogate")
            << utf16WithBom(QString("a=\"") + QChar(0xD800) + "\";", QSysInfo::BigEndian);
        QTest::newRow("nesting far beyond the limit") << QByteArray(1 << 20, '{');
    }
    void textRefusals() {
        QFETCH(QByteArray, data);
        QCOMPARE(openStepPropertyListFromData(data), std::nullopt);
        QCOMPARE(propertyListFromData(data), std::nullopt);
    }

    void values_data() {
        QTest::addColumn<QByteArray>("data");
        QTest::addColumn<QVariant>("expected");
        const auto xml = [](const char* value) {
            return "<plist version=\"1.0\">" + QByteArray(value) + "</plist>";
        };
        QTest::newRow("integer") << xml("<integer>42</integer>") << QVariant(qint64(42));
        QTest::newRow("negative integer") << xml("<integer>-7</integer>") << QVariant(qint64(-7));
        QTest::newRow("largest qint64")
            << xml("<integer>9223372036854775807</integer>") << QVariant(std::numeric_limits<qint64>::max());
        QTest::newRow("above qint64") << xml("<integer>18446744073709551615</integer>")
                                      << QVariant(std::numeric_limits<quint64>::max());
        QTest::newRow("real") << xml("<real>2.5</real>") << QVariant(2.5);
        QTest::newRow("booleans") << xml("<array><true/><false/></array>")
                                  << QVariant(QVariantList{true, false});
        QTest::newRow("date") << xml("<date>2024-02-29T12:34:56Z</date>")
                              << QVariant(QDateTime(QDate(2024, 2, 29), QTime(12, 34, 56), Qt::UTC));
        QTest::newRow("data") << xml("<data>AAEC/w==</data>") << QVariant(QByteArray("\x00\x01\x02\xff", 4));
        QTest::newRow("escaped string")
            << xml("<string>&lt;&amp;&#233;</string>") << QVariant(QString::fromUtf8("<&é"));
        QTest::newRow("binary UID") << binaryOf(plist_new_uid(7))
                                    << QVariant(QVariantMap{{"CF$UID", qint64(7)}});
        QTest::newRow("binary real") << binaryOf(plist_new_real(-0.25)) << QVariant(-0.25);
        QTest::newRow("binary date") << binaryOf(plist_new_date(86400, 500000))
                                     << QVariant(QDateTime(QDate(2001, 1, 2), QTime(0, 0, 0, 500), Qt::UTC));
        QTest::newRow("binary data") << binaryOf(plist_new_data("\0x", 2)) << QVariant(QByteArray("\0x", 2));
        QTest::newRow("binary 16-byte integer")
            << binaryList({"\x14" + bigEndian(0, 8) + bigEndian(5, 8)}) << QVariant(qint64(5));
        QTest::newRow("binary UTF-16 key")
            << binaryList({object(0xD1, {1, 2}), QByteArray("\x61\x00\xE9", 3), "\x51x"})
            << QVariant(QVariantMap{{QString::fromUtf8("é"), "x"}});
    }
    void values() {
        QFETCH(QByteArray, data);
        QFETCH(QVariant, expected);
        const std::optional<QVariant> value = propertyListFromData(data);
        QVERIFY(value);
        QCOMPARE(value->typeId(), expected.typeId());
        QCOMPARE(*value, expected);
    }

    // At the limit a list is read; one level more and it is refused, in every form.
    void nestingLimit_data() {
        QTest::addColumn<int>("form");
        QTest::newRow("XML") << int(Xml);
        QTest::newRow("binary") << int(Binary);
        QTest::newRow("text") << int(Text);
    }
    void nestingLimit() {
        QFETCH(int, form);
        const auto nested = [form](int depth) {
            if (form == Binary)
                return binaryNesting(depth);
            if (form == Xml)
                return "<plist>" + QByteArray("<array>").repeated(depth) +
                       QByteArray("</array>").repeated(depth) + "</plist>";
            return QByteArray(depth, '(') + QByteArray(depth, ')');
        };
        QCOMPARE(propertyListFromData(nested(kDeepestPropertyListNesting)),
                 std::optional<QVariant>(nestedLists(kDeepestPropertyListNesting)));
        QCOMPARE(propertyListFromData(nested(kDeepestPropertyListNesting + 1)), std::nullopt);
    }

    // Lists on which libplist 2.2 itself would overflow its stack, stall or abort; each comes
    // back refused. Closing tags hidden where libplist does not see them must not hide depth.
    void hostileLists_data() {
        QTest::addColumn<QByteArray>("data");
        const int deep = 1 << 20;
        QTest::newRow("XML deep") << "<plist>" + QByteArray("<array>").repeated(deep);
        QTest::newRow("XML closes in comments")
            << "<plist>" + QByteArray("<array><!--</array>-->").repeated(deep);
        QTest::newRow("XML closes in quotes")
            << "<plist>" + QByteArray("<array a=\"</array>\">").repeated(deep);
        QTest::newRow("XML closes in a document type")
            << "<plist>" + QByteArray("<array><!DOCTYPE a [</array>]>").repeated(deep);
        QTest::newRow("XML quote left open") << QByteArray("<?xml version=\"1.0?><plist><dict/></plist>");
        QTest::newRow("binary deep") << binaryNesting(1 << 18);
        QTest::newRow("binary doubling") << binaryNesting(64, 2);
        QTest::newRow("binary cycle") << binaryList({arrayObject({0})});
        QTest::newRow("binary key with a zero unit")
            << binaryList({object(0xD1, {1, 2}), QByteArray("\x62\x00\x61\x00\x00", 5), "\x51x"});
        QTest::newRow("binary cut short") << binaryOf(plist_new_string("abc")).chopped(1);
        QTest::newRow("binary reference out of range") << binaryList({arrayObject({1})});
    }
    void hostileLists() {
        QFETCH(QByteArray, data);
        QCOMPARE(propertyListFromData(data), std::nullopt);
    }

    void encodings_data() {
        QTest::addColumn<QByteArray>("content");
        const QString text = QString::fromUtf8("/* Menü */\n\"Open…\" = \"Öffnen…\";\n\"smile\" = \"😀\";\n");
        QTest::newRow("UTF-8") << text.toUtf8();
        QTest::newRow("UTF-8 with BOM") << "\xEF\xBB\xBF" + text.toUtf8();
        QTest::newRow("UTF-16 little-endian") << utf16WithBom(text, QSysInfo::LittleEndian);
        QTest::newRow("UTF-16 big-endian") << utf16WithBom(text, QSysInfo::BigEndian);
    }
    void encodings() {
        QFETCH(QByteArray, content);
        const QVariantMap expected{{QString::fromUtf8("Open…"), QString::fromUtf8("Öffnen…")},
                                   {"smile", QString::fromUtf8("😀")}};
        QCOMPARE(dictionaryWithContentsOfFile(writeFile("Localizable.strings", content)), expected);
    }

    void fileRoots_data() {
        QTest::addColumn<QByteArray>("content");
        QTest::addColumn<bool>("read");
        QTest::newRow("XML dictionary")
            << QByteArray("<plist><dict><key>a</key><string>b</string></dict></plist>") << true;
        QTest::newRow("XML array") << QByteArray("<plist><array><string>b</string></array></plist>") << false;
        QTest::newRow("text array") << QByteArray("(a, b)") << false;
        QTest::newRow("text string") << QByteArray("\"a\"") << false;
        QTest::newRow("neither") << QByteArray("\x00\x01", 2) << false;
    }
    void fileRoots() {
        QFETCH(QByteArray, content);
        QFETCH(bool, read);
        const std::optional<QVariantMap> root =
            dictionaryWithContentsOfFile(writeFile("root.plist", content));
        QCOMPARE(root, read ? std::optional<QVariantMap>(QVariantMap{{"a", "b"}}) : std::nullopt);
    }

    void unreadableFiles() {
        QCOMPARE(dictionaryWithContentsOfFile(QDir::tempPath() + "/missing.strings"), std::nullopt);
        QVERIFY(QDir(QDir::tempPath()).mkpath("folder.strings"));
        QCOMPARE(dictionaryWithContentsOfFile(QDir::tempPath() + "/folder.strings"), std::nullopt);
    }

    void largestFile() {
        const QByteArray entry("a = b;");
        const QString path =
            writeFile("large.strings", entry + QByteArray(kLargestPropertyListFile - entry.size(), ' '));
        QCOMPARE(dictionaryWithContentsOfFile(path), QVariantMap({{"a", "b"}}));
        QFile file(path);
        QVERIFY(file.open(QIODevice::Append) && file.write(" ") == 1);
        file.close();
        QCOMPARE(dictionaryWithContentsOfFile(path), std::nullopt);
    }
};

UIET_TEST_MAIN(PropertyListTest)

#include "tst_propertyList.moc"
