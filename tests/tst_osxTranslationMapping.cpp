// The translations of the strings an application shows: bundles made by the test (string tables
// in language folders, loctables, frameworks and plug-ins inside), the system's bundle first,
// and on Linux the gettext and Qt catalogs that a process uses, made with the real tools.

#include "appkit/DesktopEntries.h"
#include "catalogTranslations.h"
#include "osxTranslationMapping.h"
#include "testSupport.h"

#include <QDir>
#include <QFile>
#include <QLibraryInfo>
#include <QProcess>
#include <QStandardPaths>
#include <QStringEncoder>

#include <unistd.h>

namespace {

void writeFile(const QString& path, const QByteArray& content) {
    QDir().mkpath(QFileInfo(path).path());
    QFile file(path);
    QVERIFY(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
    file.write(content);
}

QByteArray utf16WithMark(const QString& text) {
    QStringEncoder encoder(QStringEncoder::Utf16LE, QStringEncoder::Flag::WriteBom);
    return encoder(text);
}

QByteArray xmlDictionary(const QByteArray& body) {
    return R"(<?xml version="1.0" encoding="UTF-8"?><plist version="1.0"><dict>)" + body + "</dict></plist>";
}

QStringList sorted(QStringList list) {
    list.sort();
    return list;
}

// Runs a tool of the system; false when it fails.
bool run(const QString& program, const QStringList& arguments) {
    QProcess process;
    process.start(program, arguments);
    return process.waitForFinished(30000) && process.exitStatus() == QProcess::NormalExit &&
           process.exitCode() == 0;
}

} // namespace

class TestTranslationMapping : public QObject {
    Q_OBJECT

    QString app, kit, system, data;

private Q_SLOTS:
    void initTestCase() {
        const QString root = QDir::tempPath();
        app = root + "/Editor.app";
        const QString resources = app + "/Contents/Resources";
        writeFile(resources + "/de.lproj/Localizable.strings",
                  "/* menu */\n\"OPEN\" = \"Öffnen\";\n\"SAVE\" = \"Sichern\";\n\"Close\" = \"Schließen\";\n"
                  "\"DUP1\" = \"Datei\"; \"DUP2\" = \"Datei\";\n\"SPACED\" = \"Neues\\tFenster \";\n");
        writeFile(resources + "/fr.lproj/Localizable.strings",
                  utf16WithMark("\"OPEN\" = \"Ouvrir\";\n\"Close\" = \"Fermer\";\n\"DUP1\" = \"Fichier\";\n"
                                "\"DUP2\" = \"Dossier\";\n\"SPACED\" = \"Nouvelle fenêtre\";\n"));
        writeFile(resources + "/en.lproj/Localizable.strings",
                  "\"OPEN\" = \"Open\";\n\"Close\" = \"Close\";\n");
        writeFile(resources + "/en.lproj/Nested/Menus.strings", "\"Close\" = \"Close Window\";\n");
        // A table that cannot be read as a file is passed over.
        QDir().mkpath(resources + "/de.lproj/Unreadable.strings");
        writeFile(resources + "/Sub/Menus.loctable",
                  xmlDictionary("<key>LocProvenance</key><dict><key>de</key><string>x</string></dict>"
                                "<key>de</key><dict><key>MENU</key><string>Ablage</string>"
                                "<key>COUNT</key><integer>3</integer></dict>"
                                "<key>ja</key><dict><key>MENU</key><string>ファイル</string></dict>"
                                "<key>bad</key><string>not a table</string>"));
        kit = app + "/Contents/Frameworks/Kit.framework";
        writeFile(kit + "/Resources/de.lproj/Kit.strings", "\"Print\" = \"Drucken\";");
        writeFile(kit + "/Resources/fr.lproj/Kit.strings", "\"Print\" = \"Imprimer\";");
        QDir().mkpath(app + "/Contents/Frameworks/Empty.framework");
        writeFile(app + "/Contents/PlugIns/Share.appex/Contents/Resources/de.lproj/Share.strings",
                  "\"Share\" = \"Teilen\";");
        writeFile(app + "/Contents/PlugIns/Share.appex/Contents/Resources/fr.lproj/Share.strings",
                  "\"Share\" = \"Partager\";");
        writeFile(app + "/Contents/PlugIns/Ignored.plugin/Contents/Resources/de.lproj/X.strings",
                  "\"Ignored\" = \"Übersehen\";");
        system = root + "/System.framework";
        writeFile(system + "/Resources/de.lproj/Standard.strings", "\"Close\" = \"Schließen\";");
        writeFile(system + "/Resources/it.lproj/Standard.strings", "\"Close\" = \"Chiudi\";");
        setSystemTranslationBundlePathForTesting(root + "/NoSystem.framework");
        data = root + "/share";
        qputenv("XDG_DATA_DIRS", data.toLocal8Bit());
        qputenv("XDG_DATA_HOME", (root + "/home-data").toLocal8Bit());
    }

    void normalization_data() {
        QTest::addColumn<QString>("given");
        QTest::addColumn<QString>("normalized");
        QTest::newRow("no-break space") << QString::fromUtf8("Save\u00a0As") << "Save As";
        QTest::newRow("tab and ends") << "\t Save\tAs \n"
                                      << "Save As";
        QTest::newRow("two blanks stay two") << "Save  As"
                                             << "Save  As";
        QTest::newRow("line break inside") << "Save\nAs"
                                           << "Save As";
        QTest::newRow("only blanks") << " \t "
                                     << "";
    }

    void normalization() {
        QFETCH(QString, given);
        QFETCH(QString, normalized);
        QCOMPARE(TranslationMapping::normalizeString(given), normalized);
    }

    void translations_data() {
        QTest::addColumn<QString>("string");
        QTest::addColumn<QStringList>("translations");
        QTest::newRow("one key in three languages") << "Öffnen" << QStringList{"Open", "Ouvrir", "Öffnen"};
        QTest::newRow("found in another language") << "Ouvrir" << QStringList{"Open", "Ouvrir", "Öffnen"};
        QTest::newRow("a value under two keys") << "Datei" << QStringList{"Datei", "Dossier", "Fichier"};
        QTest::newRow("normalized on both sides")
            << " Neues Fenster" << QStringList{"Neues Fenster", "Nouvelle fenêtre"};
        QTest::newRow("framework") << "Drucken" << QStringList{"Drucken", "Imprimer"};
        QTest::newRow("app extension") << "Partager" << QStringList{"Partager", "Teilen"};
        QTest::newRow("loctable, any locale") << "ファイル" << QStringList{"Ablage", "ファイル"};
        QTest::newRow("no plug-in of another kind") << "Übersehen" << QStringList{};
        QTest::newRow("unknown") << "Nothing" << QStringList{};
        QTest::newRow("case matters") << "öffnen" << QStringList{};
    }

    void translations() {
        QFETCH(QString, string);
        QFETCH(QStringList, translations);
        QMutexLocker locker(&translationMappingMutex());
        QCOMPARE(sorted(translationsOfStringForBundleAtPath(string, app)), translations);
    }

    void locationsAndLevels() {
        QMutexLocker locker(&translationMappingMutex());
        TranslationMapping* mapping = translationMappingForBundleAtPath(app);
        QCOMPARE(translationMappingForBundleAtPath(app), mapping);
        // Where the string is its own key comes first.
        const QList<TranslationLocation> close = mapping->findFileAndKeyForString("Close");
        QCOMPARE(close.size(), 1);
        QCOMPARE(close[0], TranslationLocation::translationLocationWithBundlePath(
                               app, "en", "Localizable.strings", "Close"));
        const auto window = mapping->findFileAndKeyForString("Close Window");
        QCOMPARE(window.value(0).file, QStringLiteral("Nested/Menus.strings"));
        QCOMPARE(mapping->findFileAndKeyForString("Drucken").value(0).bundlePath, kit);
        const auto& strings = mapping->allStrings();
        QVERIFY(!strings.contains("LocProvenance") && !strings.contains("bad"));
        QCOMPARE(strings["de"][app]["Sub/Menus.loctable"].keys(), QStringList{"MENU"});
        const QMap<QString, QStringList> byLocale = mapping->translationsForStringWithLocales("Sichern");
        QCOMPARE(byLocale, (QMap<QString, QStringList>{{"de", {"Sichern"}}}));
    }

    void applicationLevel() {
        // The system's bundle is read first, once, and here it is missing.
        QTest::ignoreMessage(QtInfoMsg,
                             qPrintable("Error: failed to create translation mapping for bundle at path: " +
                                        QDir::tempPath() + "/NoSystem.framework"));
        QCOMPARE(translationsOfStringForAppAtPath("Nothing", app), QStringList{"Nothing"});
        QCOMPARE(translationsOfStringForAppAtPath("Öffnen", app).value(0), QStringLiteral("Öffnen"));
        QCOMPARE(sorted(translationsOfStringForAppAtPath("Öffnen", app)),
                 (QStringList{"Open", "Ouvrir", "Öffnen"}));
        QCOMPARE(translationsOfStringForAppAtPathWithLocales("Nothing", app), (QMap<QString, QStringList>{}));
        QCOMPARE(mergeResults({"a", "b"}, {"a", "c", "b", "d"}), (QStringList{"a", "b", "c", "d"}));
    }

    // What the system's bundle knows is its answer alone; the application's is asked otherwise.
    void systemBundleFirst() {
        setSystemTranslationBundlePathForTesting(system);
        const QStringList close = translationsOfStringForAppAtPath("Schließen", app);
        const QStringList save = translationsOfStringForAppAtPath("Ouvrir", app);
        setSystemTranslationBundlePathForTesting(QDir::tempPath() + "/NoSystem.framework");
        // The system's tables have no English one: the application's "Close" is not asked for.
        QCOMPARE(sorted(close), (QStringList{"Chiudi", "Schließen"}));
        QCOMPARE(sorted(save), (QStringList{"Open", "Ouvrir", "Öffnen"}));
    }

    void bundleThatCannotBeOpened() {
        const QString missing = QDir::tempPath() + "/Missing.app";
        QTest::ignoreMessage(
            QtInfoMsg,
            qPrintable("Error: failed to create translation mapping for bundle at path: " + missing));
        QCOMPARE(translationsOfStringForAppAtPath("Öffnen", missing), QStringList{"Öffnen"});
        // The empty mapping is kept: no second attempt, no second line.
        QCOMPARE(translationsOfStringForAppAtPath("Öffnen", missing), QStringList{"Öffnen"});
        // A process that does not run has no bundle: an empty path, which is no bundle either.
        QTest::ignoreMessage(QtInfoMsg, "Error: failed to create translation mapping for bundle at path: ");
        QCOMPARE(translationsOfStringForProcess("Öffnen", 999999999), QStringList{"Öffnen"});
    }

    // A gettext domain made with msgfmt: mnemonics out, contexts and plural forms kept apart.
    void gettextCatalogs() {
        const QString po = QDir::tempPath() + "/de.po";
        const QByteArray header = "msgid \"\"\nmsgstr \"Content-Type: text/plain; charset=UTF-8\\n\"\n\n";
        writeFile(po, header +
                          "msgid \"_Open\"\nmsgstr \"_Öffnen\"\n\nmsgctxt \"menu\"\nmsgid \"File\"\nmsgstr "
                          "\"Datei\"\n\n"
                          "msgid \"File\"\nmsgstr \"Akte\"\n\nmsgid \"%d file\"\nmsgid_plural \"%d files\"\n"
                          "msgstr[0] \"%d Datei\"\nmsgstr[1] \"%d Dateien\"\n");
        const QString frPo = QDir::tempPath() + "/fr.po";
        writeFile(frPo, header + "msgid \"_Open\"\nmsgstr \"_Ouvrir\"\n\nmsgctxt \"menu\"\nmsgid "
                                 "\"File\"\nmsgstr \"Fichier\"\n");
        if (QStandardPaths::findExecutable("msgfmt").isEmpty())
            QSKIP("msgfmt (Debian gettext) is not installed");
        for (const char* language : {"de", "fr"})
            QVERIFY(QDir().mkpath(data + "/locale/" + language + "/LC_MESSAGES"));
        QVERIFY(run("msgfmt", {"-o", data + "/locale/de/LC_MESSAGES/uiet-fixture.mo", po}));
        QVERIFY(run("msgfmt", {"-o", data + "/locale/fr/LC_MESSAGES/uiet-fixture.mo", frPo}));

        QMutexLocker locker(&translationMappingMutex());
        TranslationMapping* mapping = catalogTranslationMapping("gettext:uiet-fixture");
        QCOMPARE(sorted(mapping->translationsForString("Öffnen")), (QStringList{"Open", "Ouvrir", "Öffnen"}));
        QCOMPARE(sorted(mapping->translationsForString("Fichier")),
                 (QStringList{"Datei", "Fichier", "File"}));
        QCOMPARE(sorted(mapping->translationsForString("Akte")), (QStringList{"Akte", "File"}));
        QCOMPARE(sorted(mapping->translationsForString("%d Dateien")),
                 (QStringList{"%d Dateien", "%d files"}));
    }

    // A program without catalogs, bundle or toolkit: only the text itself.
    void aProcessWithoutCatalogs() {
        QProcess sleeper;
        sleeper.start("/bin/sleep", {"30"});
        QVERIFY(sleeper.waitForStarted());
        const pid_t pid = pid_t(sleeper.processId());
        QVERIFY(catalogFamiliesOfProcess(pid).isEmpty());
        QCOMPARE(translationsOfStringForProcess("Öffnen", pid), QStringList{"Öffnen"});
        sleeper.kill();
        sleeper.waitForFinished();
    }

    // This program's own catalogs come first, then its toolkit's; its strings are found in them.
    void catalogsOfAProcess() {
        if (!QFileInfo::exists(data + "/locale/de/LC_MESSAGES/uiet-fixture.mo"))
            QSKIP("no fixture catalog (msgfmt is not installed)");
        writeFile(QDir::tempPath() + "/home-data/applications/self.desktop",
                  "[Desktop "
                  "Entry]\nName=Self\nExec=tst_osxTranslationMapping\nX-GNOME-Gettext-Domain=uiet-fixture\n");
        rescanDesktopEntriesForTesting();
        const QStringList families = catalogFamiliesOfProcess(getpid());
        QCOMPARE(families.value(0), QStringLiteral("gettext:uiet-fixture"));
        QVERIFY2(families.contains("qt:" + QLibraryInfo::path(QLibraryInfo::TranslationsPath) + "/qtbase"),
                 qPrintable(families.join(' ')));
        QVERIFY(catalogFamiliesOfProcess(999999999).isEmpty());
        const QStringList translations = translationsOfStringForProcess("Öffnen", getpid());
        QCOMPARE(translations.value(0), QStringLiteral("Öffnen"));
        QVERIFY2(translations.contains("Open") && translations.contains("Ouvrir"),
                 qPrintable(translations.join('|')));
    }
};

UIET_TEST_MAIN(TestTranslationMapping)
#include "tst_osxTranslationMapping.moc"
