// Settings text that would make QSettings build a pixmap-like value in a process without a GUI
// is refused before QSettings parses it. This program runs without a GUI, so a guard that lets
// such text through aborts it: every text found readable here is also read in full.

#include "QSettingsSerializer.h"
#include "generalUtilities.h"
#include "settingsReadGuard.h"
#include "testSupport.h"

#include <QDataStream>
#include <QDir>
#include <QFile>
#include <QIODevice>
#include <QIcon>
#include <QSet>
#include <QSettings>

namespace {

// Every byte as a hex escape, so that no byte runs into the next escape.
QByteArray escaped(const QByteArray& bytes) {
    QByteArray text;
    for (const char byte : bytes)
        text += "\\x" + QByteArray::number(uchar(byte), 16);
    return text;
}

// A streamed variant as the settings format stores one: a type id, a null flag from stream
// version 4.2 on, then `rest`.
QByteArray variantBytes(quint32 typeId, QDataStream::Version version, const QByteArray& rest = {}) {
    QByteArray bytes;
    QDataStream stream(&bytes, QIODevice::WriteOnly);
    stream.setVersion(version);
    stream << typeId;
    if (version >= QDataStream::Qt_4_2)
        stream << qint8(0);
    return bytes + rest;
}

QByteArray quint32Bytes(quint32 value) {
    QByteArray bytes;
    QDataStream(&bytes, QIODevice::WriteOnly) << value;
    return bytes;
}

QByteArray variantValue(const QByteArray& payload) {
    return "@Variant(" + escaped(payload) + ")";
}

// Old stream ids (format 4.0): 2 int, 9 variant list, 8 variant map, 10 string, 11 string list,
// 66 brush, 69 icon, 73 bitmap, 74 cursor, 77 pen, 127 a type given by name.
const QByteArray bitmap = variantBytes(73, QDataStream::Qt_4_0);

QString writeText(const QByteArray& text) {
    static int count = 0;
    const QString path = QDir::temp().filePath(QStringLiteral("guard%1.ini").arg(++count));
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(text) != text.size())
        qFatal("cannot write %s", qPrintable(path));
    return path;
}

// Reads every value as the serializer would; aborts the process if one needs a GUI.
void readEveryValue(const QByteArray& text) {
    QSettings settings(writeText(text), QSettings::IniFormat);
    for (const QString& key : settings.allKeys())
        settings.value(key);
}

} // namespace

// A type of the program's own with stream operators: a list whose count it trusts.
struct Samples {
    QList<qint32> values;
};
QDataStream& operator<<(QDataStream& stream, const Samples& samples) {
    return stream << samples.values;
}
QDataStream& operator>>(QDataStream& stream, Samples& samples) {
    return stream >> samples.values;
}

Q_DECLARE_METATYPE(Samples)

class TestSettingsReadGuard : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() { QVERIFY(!guiApplicationIsRunning()); }

    void textsAreJudgedAsQSettingsReadsThem_data() {
        QTest::addColumn<QByteArray>("text");
        QTest::addColumn<QString>("problem");
        const QByteArray intList = variantBytes(9, QDataStream::Qt_4_0, quint32Bytes(2)) +
                                   variantBytes(2, QDataStream::Qt_4_0, quint32Bytes(5));

        QTest::newRow("plain values")
            << QByteArray("[General]\na=1\nb=@Rect(1 2 3 4)\nc=@Variant(" +
                          escaped(variantBytes(2, QDataStream::Qt_4_0, quint32Bytes(7))) + ")\nd=\"x, y\"\n")
            << "";
        QTest::newRow("bitmap") << "[General]\nid=" + variantValue(bitmap) + "\n"
                                << "a value of type QBitmap";
        QTest::newRow("at sign as hex escape")
            << "[a]\nv=\\x40Variant(" + escaped(variantBytes(65, QDataStream::Qt_4_0)) + ")\n"
            << "a value of type QPixmap";
        QTest::newRow("at sign as octal escape")
            << "v=\\100Variant(" + escaped(variantBytes(74, QDataStream::Qt_4_0)) + ")\n"
            << "a value of type QCursor";
        QTest::newRow("quoted halves")
            << "v=\"@Vari\"  \"ant(" + escaped(variantBytes(69, QDataStream::Qt_4_0)) + ")\"\n"
            << "a value of type QIcon";
        QTest::newRow("second list item")
            << "v=a, " + variantValue(variantBytes(66, QDataStream::Qt_4_0)) + "\n"
            << "a value of type QBrush";
        QTest::newRow("continued line")
            << QByteArray("v=@Variant(\\0\\0\\0\\\nI)\n") << "a value of type QBitmap";
        QTest::newRow("date-time form")
            << "v=@DateTime(" + escaped(variantBytes(73, QDataStream::Qt_5_6)) + ")\n"
            << "a value of type QBitmap";
        QTest::newRow("inside a list")
            << "v=" +
                   variantValue(variantBytes(9, QDataStream::Qt_4_0, quint32Bytes(2)) +
                                variantBytes(2, QDataStream::Qt_4_0, quint32Bytes(5)) + bitmap) +
                   "\n"
            << "a value of type QBitmap";
        {
            QByteArray map;
            QDataStream stream(&map, QIODevice::WriteOnly);
            stream.setVersion(QDataStream::Qt_4_0);
            stream << quint32(8) << quint32(1) << QStringLiteral("k") << quint32(77);
            QTest::newRow("inside a map") << "v=" + variantValue(map) + "\n"
                                          << "a value of type QPen";
        }
        {
            QByteArray named;
            QDataStream stream(&named, QIODevice::WriteOnly);
            stream.setVersion(QDataStream::Qt_4_0);
            stream << quint32(127) << QByteArray("QBitmap");
            QTest::newRow("type by name") << "v=" + variantValue(named) + "\n"
                                          << "a value of type QBitmap";
        }
        QTest::newRow("list of ints") << "v=" + variantValue(intList) + "\n"
                                      << "";
        {
            // Old streams name a type of the program by its number plus 97, or by its name.
            const int samples = qRegisterMetaType<Samples>("Samples");
            const QByteArray huge = quint32Bytes(0x40000000);
            QTest::newRow("program's type by number")
                << "v=" + variantValue(variantBytes(quint32(samples + 97), QDataStream::Qt_4_0, huge)) + "\n"
                << "a value of type Samples, whose stream form cannot be checked";
            QByteArray named;
            QDataStream stream(&named, QIODevice::WriteOnly);
            stream.setVersion(QDataStream::Qt_4_0);
            stream << quint32(127) << QByteArray("Samples");
            QTest::newRow("program's type by name")
                << "v=" + variantValue(named + huge) + "\n"
                << "a value of type Samples, whose stream form cannot be checked";
        }
        QTest::newRow("easing curve")
            << "v=" + variantValue(variantBytes(QMetaType::QEasingCurve, QDataStream::Qt_4_0)) + "\n"
            << "a value of type QEasingCurve, which carries a function address";
        QTest::newRow("more items than bytes")
            << "v=" + variantValue(variantBytes(11, QDataStream::Qt_4_0, quint32Bytes(0x40000000))) + "\n"
            << "a sequence of 1073741824 items, more than its bytes could hold";
        {
            QByteArray nested;
            for (int level = 0; level < 100; ++level)
                nested += variantBytes(9, QDataStream::Qt_4_0, quint32Bytes(1));
            QTest::newRow("nested too deep") << "v=" + variantValue(nested) + "\n"
                                             << "variants nested more than 64 deep";
        }
        QTest::newRow("comment line") << "; v=" + variantValue(bitmap) + "\nw=1\n"
                                      << "";
        QTest::newRow("section name") << "[" + variantValue(bitmap) + "]\nw=1\n"
                                      << "";
        QTest::newRow("key") << variantValue(bitmap) + "=1\n"
                             << "";
        // QSettings reads this one as text; the guard does not follow that far and refuses it.
        QTest::newRow("doubled at sign") << "v=@" + variantValue(bitmap) + "\n"
                                         << "a value of type QBitmap";
    }

    void textsAreJudgedAsQSettingsReadsThem() {
        QFETCH(QByteArray, text);
        QFETCH(QString, problem);
        QString found;
        QCOMPARE(iniTextIsReadableHere(text, &found), problem.isEmpty());
        QCOMPARE(found, problem);
        if (problem.isEmpty())
            readEveryValue(text);
    }

    // Every stream id of both stored forms: the ones refused are exactly those of the easing curve
    // (29) and of the types that need a GUI, and every other one reads.
    void everyStreamIdIsJudged_data() {
        QTest::addColumn<QByteArray>("prefix");
        QTest::addColumn<int>("version");
        QTest::addColumn<QList<int>>("refused");
        QTest::newRow("@Variant") << QByteArray("@Variant(") << int(QDataStream::Qt_4_0)
                                  << QList<int>{29,   65,   66,   68,   69,   73,   74,  77,  79,
                                                162,  163,  165,  166,  170,  171,  173, 175, 4194,
                                                4195, 4197, 4198, 4202, 4203, 4205, 4207};
        QTest::newRow("@DateTime") << QByteArray("@DateTime(") << int(QDataStream::Qt_5_6)
                                   << QList<int>{29,   65,   66,   68,   69,   73,   74,   76,  78,
                                                 4097, 4098, 4100, 4101, 4105, 4106, 4108, 4110};
    }

    void everyStreamIdIsJudged() {
        QFETCH(QByteArray, prefix);
        QFETCH(int, version);
        QFETCH(QList<int>, refused);
        QList<int> found;
        // Ids of no type make QVariant warn.
        const QtMessageHandler previous =
            qInstallMessageHandler([](QtMsgType, const QMessageLogContext&, const QString&) {});
        for (int id = 0; id < 4400; ++id) {
            if (id == 300)
                id = 4000;
            const QByteArray text =
                "v=" + prefix +
                escaped(variantBytes(quint32(id), QDataStream::Version(version), QByteArray(16, 0))) + ")\n";
            if (iniTextIsReadableHere(text))
                readEveryValue(text);
            else
                found.append(id);
        }
        qInstallMessageHandler(previous);
        QCOMPARE(found, refused);
    }

    // A refused file reads as empty and invalid, and a save leaves it as it was.
    void serializerRefusesTheFileAndKeepsIt() {
        const QByteArray text = "[General]\nid=" + variantValue(bitmap) + "\nname=kept\n";
        const QString path = writeText(text);
        QTest::ignoreMessage(QtDebugMsg, qPrintable("Error: settings file " + path +
                                                    " is not read: it holds a value of type QBitmap"));
        QSettingsSerializer serializer(path, QSettingsSerializer::WriteTypeInfo);
        QCOMPARE(serializer.status(), ZRDataError::InvalidFormat);
        QVERIFY(!serializer.readValue({"name"}, QMetaType::QString).isValid());
        serializer.preWriteOperation(QString());
        serializer.writeValue({"name"}, QStringLiteral("replaced"), QMetaType::QString);
        serializer.postWriteOperation(QString());
        QFile file(path);
        QVERIFY(file.open(QIODevice::ReadOnly));
        QCOMPARE(file.readAll(), text);
    }

    void valuesOfGuiTypesAreNotBuilt() {
        QSettingsSerializer serializer(
            writeText("[General]\nv=abc\nv__type=QBitmap\nicon=@ByteArray(AAAA)\n"),
            QSettingsSerializer::WriteTypeInfo);
        QTest::ignoreMessage(
            QtDebugMsg,
            "Error: saved type \"QBitmap\" cannot be read without a GUI, for setting at path: \"v\"");
        QVERIFY(!serializer.readValue({"v"}, QMetaType::QVariant).isValid());
        QVERIFY(serializer.errorOccurred());
        QTest::ignoreMessage(QtDebugMsg,
                             "Error: icon data cannot be read without a GUI; the icon is left empty.");
        QVERIFY(serializer.readValue({"icon"}, QMetaType::QIcon).value<QIcon>().isNull());
    }
};

UIET_TEST_MAIN(TestSettingsReadGuard)
#include "tst_settingsReadGuard.moc"
