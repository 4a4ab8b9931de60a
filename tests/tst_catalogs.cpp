#include "testSupport.h"

#include "catalogs/Catalogs.h"

#include <QDataStream>
#include <QFile>
#include <QFileInfo>
#include <QObject>
#include <QProcess>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTest>
#include <QTranslator>
#include <QtEndian>

#include <functional>

namespace {

const char kGtkCatalog[] = "/usr/share/locale/de/LC_MESSAGES/gtk30.mo";
const char kQtBaseCatalog[] = "/usr/share/qt6/translations/qtbase_de.qm";

// One message in a line, for comparisons that do not depend on the order of a catalog's tables.
QString describe(const CatalogMessage& message) {
    return message.context + u'|' + message.source + u'|' + message.sourcePlural + u'|' + message.comment +
           QStringLiteral(" -> ") + message.translations.join(u'|');
}

QStringList sorted(QStringList lines) {
    lines.sort();
    return lines;
}

QStringList described(const Catalog& catalog) {
    QStringList lines;
    for (const CatalogMessage& message : catalog.messages)
        lines.append(describe(message));
    return sorted(lines);
}

QString toolPath(const QString& name) {
    const QString qtTool = QStringLiteral("/usr/lib/qt6/bin/") + name;
    return QFileInfo(qtTool).isExecutable() ? qtTool : QStandardPaths::findExecutable(name);
}

// Runs msgfmt or lrelease on a source text and gives the compiled catalog; empty with `problem`
// set when the tool is missing or fails.
QByteArray compiled(const QString& tool, const QByteArray& source, const QStringList& options,
                    QString* problem) {
    const QString program = toolPath(tool);
    if (program.isEmpty()) {
        *problem = tool + QStringLiteral(" is not installed");
        return {};
    }
    QTemporaryDir dir;
    const bool gettext = tool == u"msgfmt";
    QFile sourceFile(dir.filePath(gettext ? QStringLiteral("catalog.po") : QStringLiteral("catalog.ts")));
    if (!sourceFile.open(QIODevice::WriteOnly) || sourceFile.write(source) != source.size())
        qFatal("cannot write %s", qPrintable(sourceFile.fileName()));
    sourceFile.close();
    const QString output = dir.filePath(QStringLiteral("catalog.out"));
    QProcess process;
    process.start(program, options + QStringList{sourceFile.fileName(), gettext ? "-o" : "-qm", output});
    if (!process.waitForFinished(-1) || process.exitCode() != 0) {
        *problem =
            tool + QStringLiteral(" failed: ") + QString::fromLocal8Bit(process.readAllStandardError());
        return {};
    }
    QFile result(output);
    return result.open(QIODevice::ReadOnly) ? result.readAll() : QByteArray();
}

QByteArray fileContents(const char* path) {
    QFile file(QString::fromLatin1(path));
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

const QByteArray kPo = R"(msgid ""
msgstr ""
"Project-Id-Version: catalogs test\n"
"Language: pt_BR\n"
"MIME-Version: 1.0\n"
"Content-Type: text/plain; charset=UTF-8\n"
"Plural-Forms: nplurals=2; plural=(n > 1);\n"

msgid "_Open"
msgstr "_Abrir"

msgctxt "menu"
msgid "File"
msgstr "Arquivo"

msgid "File"
msgstr "Ficheiro"

msgid "%d file"
msgid_plural "%d files"
msgstr[0] "%d arquivo"
msgstr[1] "%d arquivos"

msgid "Untranslated"
msgstr ""

msgid "Größe"
msgstr "Tamanho ✓"
)";

// What kPo says: context|source|plural|comment -> translations.
const QStringList kPoMessages = {
    QStringLiteral("|%d file|%d files| -> %d arquivo|%d arquivos"),
    QStringLiteral("|File|| -> Ficheiro"),
    QStringLiteral("|Größe|| -> Tamanho ✓"),
    QStringLiteral("|_Open|| -> _Abrir"),
    QStringLiteral("menu|File|| -> Arquivo"),
};

const QByteArray kTs = R"(<?xml version="1.0" encoding="utf-8"?>
<!DOCTYPE TS>
<TS version="2.1" language="de_DE">
<context>
    <name>MainWindow</name>
    <message>
        <source>&amp;Open</source>
        <translation>Ö&amp;ffnen</translation>
    </message>
    <message>
        <source>Close</source>
        <translation>Schließen</translation>
    </message>
    <message>
        <source>Close</source>
        <comment>window</comment>
        <translation>Fenster schließen</translation>
    </message>
    <message>
        <source>Close</source>
        <comment>file</comment>
        <translation>Datei schließen</translation>
    </message>
    <message numerus="yes">
        <source>%n file(s)</source>
        <translation>
            <numerusform>%n Datei</numerusform>
            <numerusform>%n Dateien</numerusform>
        </translation>
    </message>
    <message>
        <source>Later</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Draft</source>
        <translation type="unfinished">Entwurf</translation>
    </message>
</context>
<context>
    <name>QDialog</name>
    <message>
        <source>Close</source>
        <translation>Schließen ✓</translation>
    </message>
</context>
</TS>
)";

// What kTs says. lrelease keeps an unfinished translation that has text and drops an empty one; it
// keeps a disambiguating comment only where a message without one shares context and source, as
// "Close" does here.
const QStringList kTsMessages = {
    QStringLiteral("MainWindow|%n file(s)|| -> %n Datei|%n Dateien"),
    QStringLiteral("MainWindow|&Open|| -> Ö&ffnen"),
    QStringLiteral("MainWindow|Close|| -> Schließen"),
    QStringLiteral("MainWindow|Close||file -> Datei schließen"),
    QStringLiteral("MainWindow|Close||window -> Fenster schließen"),
    QStringLiteral("MainWindow|Draft|| -> Entwurf"),
    QStringLiteral("QDialog|Close|| -> Schließen ✓"),
};

// Words of a ".mo" file in its own byte order.
bool isBigEndianMo(const QByteArray& mo) {
    return mo.startsWith("\x95\x04\x12\xde");
}

quint32 moWord(const QByteArray& mo, qsizetype at) {
    return isBigEndianMo(mo) ? qFromBigEndian<quint32>(mo.constData() + at)
                             : qFromLittleEndian<quint32>(mo.constData() + at);
}

void setMoWord(QByteArray& mo, qsizetype at, quint32 value) {
    if (isBigEndianMo(mo))
        qToBigEndian(value, mo.data() + at);
    else
        qToLittleEndian(value, mo.data() + at);
}

// Where entry `index` of the original (table 0) or translation (table 1) table lies.
qsizetype moEntry(const QByteArray& mo, int table, quint32 index) {
    return qsizetype(moWord(mo, 12 + 4 * table)) + 8 * qsizetype(index);
}

// The pieces of a ".qm" file, written as lrelease writes them.
QByteArray qmFile(const QList<QByteArray>& sections) {
    QByteArray file("\x3c\xb8\x64\x18\xca\xef\x9c\x95\xcd\x21\x1c\xbf\x60\xa1\xbd\xdd", 16);
    for (const QByteArray& section : sections)
        file += section;
    return file;
}

QByteArray qmSection(quint8 tag, const QByteArray& content) {
    QByteArray bytes;
    QDataStream(&bytes, QIODevice::WriteOnly) << tag << content;
    return bytes;
}

QByteArray qmField(quint8 tag, const QByteArray& utf8) {
    return qmSection(tag, utf8);
}

QByteArray qmField16(quint8 tag, const QString& text) {
    QByteArray bytes;
    QDataStream(&bytes, QIODevice::WriteOnly) << tag << text;
    return bytes;
}

std::optional<Catalog> readCatalog(const QString& tool, const QByteArray& file) {
    return tool == u"msgfmt" ? readGettextCatalog(file) : readQtCatalog(file);
}

const QByteArray kEnd("\x01", 1);
const QByteArray kNullTranslation("\x03\xff\xff\xff\xff", 5);

} // namespace

class TestCatalogs : public QObject {
    Q_OBJECT

private slots:
    // The catalogs that msgfmt and lrelease make of kPo and kTs, whole and cut short.
    void fromTools_data() {
        QTest::addColumn<QString>("tool");
        QTest::addColumn<QByteArray>("source");
        QTest::addColumn<QStringList>("options");
        QTest::addColumn<QByteArray>("magic");
        QTest::addColumn<QString>("language");
        QTest::addColumn<QStringList>("messages");
        QTest::newRow("msgfmt, little-endian") << "msgfmt" << kPo << QStringList{"--endianness=little"}
                                               << QByteArray("\xde\x12\x04\x95") << "pt_BR" << kPoMessages;
        QTest::newRow("msgfmt, big-endian") << "msgfmt" << kPo << QStringList{"--endianness=big"}
                                            << QByteArray("\x95\x04\x12\xde") << "pt_BR" << kPoMessages;
        QTest::newRow("lrelease") << "lrelease" << kTs << QStringList{"-silent"}
                                  << QByteArray("\x3c\xb8\x64\x18") << "de_DE" << kTsMessages;
    }

    void fromTools() {
        QFETCH(QString, tool);
        QFETCH(QByteArray, source);
        QFETCH(QStringList, options);
        QFETCH(QByteArray, magic);
        QFETCH(QString, language);
        QFETCH(QStringList, messages);
        QString problem;
        const QByteArray file = compiled(tool, source, options, &problem);
        if (file.isEmpty())
            QSKIP(qPrintable(problem));
        QVERIFY(file.startsWith(magic));
        const std::optional<Catalog> catalog = readCatalog(tool, file);
        QVERIFY(catalog);
        QCOMPARE(catalog->language, language);
        QCOMPARE(described(*catalog), sorted(messages));

        // Every cut of the file: refused, or an answer that the whole file extends.
        int answered = 0;
        for (qsizetype size = 0; size < file.size(); ++size) {
            const std::optional<Catalog> part = readCatalog(tool, file.left(size));
            if (!part)
                continue;
            ++answered;
            QVERIFY2(part->language.isEmpty() || part->language == catalog->language,
                     qPrintable(QString::number(size)));
            QVERIFY2(part->messages.size() <= catalog->messages.size(), qPrintable(QString::number(size)));
            for (qsizetype i = 0; i < part->messages.size(); ++i)
                QCOMPARE(describe(part->messages[i]), describe(catalog->messages[i]));
        }
        // A ".mo" file needs all of its strings; a ".qm" file can end after any section.
        QVERIFY(tool == u"msgfmt" ? answered == 0 : answered > 0);
    }

    // The language and the charset come from the header entry.
    void gettextHeader_data() {
        QTest::addColumn<QByteArray>("header");
        QTest::addColumn<QByteArray>("translation");
        QTest::addColumn<QString>("language");
        QTest::addColumn<QString>("decoded");
        QTest::newRow("codeset") << QByteArray(
                                        "Language: de_DE.UTF-8\\nContent-Type: text/plain; charset=UTF-8")
                                 << QByteArray("Öffnen") << "de_DE"
                                 << "Öffnen";
        QTest::newRow("modifier") << QByteArray("Language: sr@latin") << QByteArray("Otvori") << "sr"
                                  << "Otvori";
        QTest::newRow("no language") << QByteArray("Content-Type: text/plain; charset=UTF-8")
                                     << QByteArray("Öffnen") << ""
                                     << "Öffnen";
        QTest::newRow("latin-1") << QByteArray("Language: fr\\nContent-Type: text/plain; charset=ISO-8859-1")
                                 << QByteArray("Fen\xeatre") << "fr"
                                 << "Fenêtre";
        QTest::newRow("unknown charset")
            << QByteArray("Content-Type: text/plain; charset=CHARSET") << QByteArray("Fenêtre") << ""
            << "Fenêtre";
    }

    void gettextHeader() {
        QFETCH(QByteArray, header);
        QFETCH(QByteArray, translation);
        QFETCH(QString, language);
        QFETCH(QString, decoded);
        const QByteArray po =
            "msgid \"\"\nmsgstr \"" + header + "\\n\"\n\nmsgid \"Window\"\nmsgstr \"" + translation + "\"\n";
        QString problem;
        const QByteArray mo = compiled("msgfmt", po, {}, &problem);
        if (mo.isEmpty())
            QSKIP(qPrintable(problem));
        const std::optional<Catalog> catalog = readGettextCatalog(mo);
        QVERIFY(catalog);
        QCOMPARE(catalog->language, language);
        QCOMPARE(described(*catalog), QStringList{"|Window|| -> " + decoded});
    }

    // Changes to the words of a msgfmt file: the tables must stay inside the file.
    void gettextDamaged_data() {
        QTest::addColumn<std::function<void(QByteArray&)>>("damage");
        QTest::addColumn<bool>("readable");
        QTest::addColumn<QStringList>("messages");
        using Damage = std::function<void(QByteArray&)>;
        QTest::newRow("magic") << Damage([](QByteArray& mo) { mo[1] = 'x'; }) << false << QStringList();
        QTest::newRow("major revision 2")
            << Damage([](QByteArray& mo) { setMoWord(mo, 4, 0x20000); }) << false << QStringList();
        QTest::newRow("minor revision 1")
            << Damage([](QByteArray& mo) { setMoWord(mo, 4, 1); }) << true << kPoMessages;
        QTest::newRow("major revision 1")
            << Damage([](QByteArray& mo) { setMoWord(mo, 4, 0x10000); }) << true << kPoMessages;
        QTest::newRow("count beyond the file")
            << Damage([](QByteArray& mo) { setMoWord(mo, 8, 0xffffffff); }) << false << QStringList();
        QTest::newRow("count filling the file")
            << Damage([](QByteArray& mo) { setMoWord(mo, 8, quint32(mo.size() / 8)); }) << false
            << QStringList();
        QTest::newRow("original table at the end")
            << Damage([](QByteArray& mo) { setMoWord(mo, 12, quint32(mo.size() - 4)); }) << false
            << QStringList();
        QTest::newRow("translation table far out")
            << Damage([](QByteArray& mo) { setMoWord(mo, 16, 0xfffffff0); }) << false << QStringList();
        QTest::newRow("string offset outside")
            << Damage([](QByteArray& mo) { setMoWord(mo, moEntry(mo, 0, 2) + 4, quint32(mo.size())); })
            << false << QStringList();
        QTest::newRow("length and offset overflowing 32 bits") << Damage([](QByteArray& mo) {
            setMoWord(mo, moEntry(mo, 1, 3), 0xffffffff);
            setMoWord(mo, moEntry(mo, 1, 3) + 4, 0x10);
        }) << false << QStringList();
        QTest::newRow("no terminating NUL") << Damage([](QByteArray& mo) {
            setMoWord(mo, moEntry(mo, 1, 1), moWord(mo, moEntry(mo, 1, 1)) + 1);
        }) << false << QStringList();
        // The translation of "%d file" (entry 1, sorted after the header; the first of kPoMessages)
        // becomes the empty string at its own terminating NUL: the message is left out.
        QTest::newRow("emptied translation") << Damage([](QByteArray& mo) {
            const qsizetype entry = moEntry(mo, 1, 1);
            setMoWord(mo, entry + 4, moWord(mo, entry + 4) + moWord(mo, entry));
            setMoWord(mo, entry, 0);
        }) << true << kPoMessages.mid(1);
        // Entries may share their bytes: "File" takes the translation of "menu\x04File" (entry 5).
        QTest::newRow("shared translation")
            << Damage([](QByteArray& mo) { mo.replace(moEntry(mo, 1, 2), 8, mo.mid(moEntry(mo, 1, 5), 8)); })
            << true
            << QStringList(kPoMessages)
                   .replaceInStrings(QStringLiteral("Ficheiro"), QStringLiteral("Arquivo"));
        // ...but not so often that a small file names hundreds of times its size.
        QTest::newRow("one string named by every entry") << Damage([](QByteArray& mo) {
            const quint32 count = 64, length = 1000, strings = 28 + 2 * 8 * count;
            mo = mo.left(28).leftJustified(strings + length, 'x') + '\0';
            setMoWord(mo, 8, count);
            setMoWord(mo, 12, 28);
            setMoWord(mo, 16, 28 + 8 * count);
            for (quint32 entry = 0; entry < 2 * count; ++entry) {
                setMoWord(mo, 28 + 8 * entry, length);
                setMoWord(mo, 28 + 8 * entry + 4, strings);
            }
        }) << false << QStringList();
    }

    void gettextDamaged() {
        QFETCH(std::function<void(QByteArray&)>, damage);
        QFETCH(bool, readable);
        QFETCH(QStringList, messages);
        QString problem;
        QByteArray mo = compiled("msgfmt", kPo, {}, &problem);
        if (mo.isEmpty())
            QSKIP(qPrintable(problem));
        damage(mo);
        const std::optional<Catalog> catalog = readGettextCatalog(mo);
        QCOMPARE(catalog.has_value(), readable);
        if (catalog)
            QCOMPARE(described(*catalog), sorted(messages));
    }

    // Files written field by field: the obsolete fields, and what is left out or refused.
    void qtHandMade_data() {
        QTest::addColumn<QByteArray>("qm");
        QTest::addColumn<bool>("readable");
        QTest::addColumn<QStringList>("messages");
        const QByteArray open = qmField16(3, "Öffnen") + qmField(6, "Open") + qmField(7, "Dialog");
        QTest::newRow("plain") << qmFile({qmSection(0xa7, "de"), qmSection(0x69, open + kEnd)}) << true
                               << QStringList{"Dialog|Open|| -> Öffnen"};
        QTest::newRow("unknown section skipped")
            << qmFile({qmSection(0x55, "??"), qmSection(0x69, open + kEnd)}) << true
            << QStringList{"Dialog|Open|| -> Öffnen"};
        QTest::newRow("obsolete fields")
            << qmFile({qmSection(0x69, qmField16(3, "Zu") + qmField16(2, "Close") + qmField16(4, "Dialog") +
                                           QByteArray("\x05\0\0\0\0\x09", 6) + kEnd)})
            << true << QStringList{"Dialog|Close|| -> Zu"};
        QTest::newRow("null form among numerus forms")
            << qmFile({qmSection(0x69, qmField16(3, "eins") + kNullTranslation + qmField(6, "%n") + kEnd)})
            << true << QStringList{"|%n|| -> eins|"};
        QTest::newRow("no source text, no translation")
            << qmFile({qmSection(0x69, qmField16(3, "Zu") + qmField(7, "Dialog") + kEnd + kNullTranslation +
                                           qmField(6, "Close") + kEnd + qmField(6, "Quit") + kEnd)})
            << true << QStringList();
        QTest::newRow("no messages section") << qmFile({qmSection(0xa7, "fr")}) << true << QStringList();
        QTest::newRow("magic") << QByteArray(qmFile({}).replace(3, 1, "x")) << false << QStringList();
        QTest::newRow("unknown field")
            << qmFile({qmSection(0x69, open + "\x0a" + kEnd)}) << false << QStringList();
        QTest::newRow("message not closed") << qmFile({qmSection(0x69, open)}) << false << QStringList();
        QTest::newRow("odd UTF-16") << qmFile({qmSection(0x69, QByteArray("\x03\0\0\0\x03xyz\x01", 9))})
                                    << false << QStringList();
        QTest::newRow("field past the section")
            << qmFile({qmSection(0x69, QByteArray("\x06\0\0\0\x09Open\x01", 10))}) << false << QStringList();
        QTest::newRow("field length near 4 GiB")
            << qmFile({qmSection(0x69, QByteArray("\x07\xff\xff\xff\xfeOpen\x01", 10))}) << false
            << QStringList();
        QTest::newRow("section past the file")
            << qmFile({qmSection(0x69, open + kEnd).chopped(1)}) << false << QStringList();
        QTest::newRow("partial section header")
            << qmFile({qmSection(0x69, open + kEnd), QByteArray("\xa7\0\0", 3)}) << false << QStringList();
    }

    void qtHandMade() {
        QFETCH(QByteArray, qm);
        QFETCH(bool, readable);
        QFETCH(QStringList, messages);
        const std::optional<Catalog> catalog = readQtCatalog(qm);
        QCOMPARE(catalog.has_value(), readable);
        if (catalog)
            QCOMPARE(described(*catalog), messages);
    }

    // The installed GTK catalog, as msgunfmt shows it: "_Open" is "Ö_ffnen" with and without the
    // context "Stock label".
    void realGtkCatalog() {
        const QByteArray mo = fileContents(kGtkCatalog);
        if (mo.isEmpty())
            QSKIP("the German GTK 3 catalog is not installed");
        const std::optional<Catalog> catalog = readGettextCatalog(mo);
        QVERIFY(catalog);
        QCOMPARE(catalog->language, QStringLiteral("de"));
        QStringList open;
        for (const CatalogMessage& message : catalog->messages) {
            if (message.source == u"_Open")
                open.append(message.context + QStringLiteral(" -> ") + message.translations.join(u'|'));
        }
        open.sort();
        QCOMPARE(open, (QStringList{" -> Ö_ffnen", "Stock label -> Ö_ffnen"}));
    }

    // The installed Qt catalog, each message as Qt's own translator finds it in the same file.
    void realQtCatalog() {
        const QByteArray qm = fileContents(kQtBaseCatalog);
        QTranslator translator;
        if (qm.isEmpty() || !translator.load(QString::fromLatin1(kQtBaseCatalog)))
            QSKIP("the German Qt base catalog is not installed");
        const std::optional<Catalog> catalog = readQtCatalog(qm);
        QVERIFY(catalog);
        QCOMPARE(catalog->language, translator.language());
        QVERIFY(catalog->messages.size() > 1000);
        int seen = 0;
        for (const CatalogMessage& message : catalog->messages) {
            QCOMPARE(message.translations.first(),
                     translator.translate(message.context.toUtf8(), message.source.toUtf8(),
                                          message.comment.toUtf8()));
            const QString line = describe(message);
            seen += line == u"QFileDialog|&Open|| -> &Öffnen" || line == u"QDialogButtonBox|OK|| -> OK";
        }
        QCOMPARE(seen, 2);
    }

    void mnemonics_data() {
        QTest::addColumn<QString>("text");
        QTest::addColumn<QChar>("marker");
        QTest::addColumn<QString>("plain");
        QTest::newRow("first") << "_Open" << QChar(u'_') << "Open";
        QTest::newRow("inside") << "Ö_ffnen" << QChar(u'_') << "Öffnen";
        QTest::newRow("ampersand") << "S&peichern" << QChar(u'&') << "Speichern";
        QTest::newRow("other marker kept") << "Save & Quit" << QChar(u'_') << "Save & Quit";
        QTest::newRow("doubled") << "Rock __n roll" << QChar(u'_') << "Rock _n roll";
        QTest::newRow("doubled then mnemonic") << "a__&_b" << QChar(u'_') << "a_&b";
        QTest::newRow("at the end") << "Save_" << QChar(u'_') << "Save_";
        QTest::newRow("doubled at the end") << "Save__" << QChar(u'_') << "Save_";
        QTest::newRow("tripled at the end") << "Save___" << QChar(u'_') << "Save__";
        QTest::newRow("alone") << "_" << QChar(u'_') << "_";
        QTest::newRow("empty") << "" << QChar(u'_') << "";
    }

    void mnemonics() {
        QFETCH(QString, text);
        QFETCH(QChar, marker);
        QFETCH(QString, plain);
        QCOMPARE(withoutMnemonics(text, marker), plain);
    }
};

UIET_TEST_MAIN(TestCatalogs)
#include "tst_catalogs.moc"
