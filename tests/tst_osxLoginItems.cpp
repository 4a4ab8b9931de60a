// Login items over XDG autostart folders of the test's own: the user's folder below a private
// XDG_CONFIG_HOME, two system folders in XDG_CONFIG_DIRS. The application is this test program.

#include "logCapture.h"
#include "osxLoginItems.h"
#include "platformTestSupport.h"
#include "testSupport.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>

namespace {

QString appPath() {
    return QCoreApplication::applicationFilePath();
}

QString appName() {
    return QFileInfo(appPath()).fileName();
}

bool writeFile(const QString& path, const QByteArray& content) {
    QDir().mkpath(QFileInfo(path).path());
    QFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(content) == content.size();
}

QByteArray entry(const QString& name, const QString& exec, const QByteArray& extra = {}) {
    return "[Desktop Entry]\nType=Application\nName=" + name.toUtf8() + "\nExec=" + exec.toUtf8() + "\n" +
           extra;
}

CFIndex itemCount(CFStringRef listType) {
    const Ref<LSSharedFileListRef> list(LSSharedFileListCreate(nullptr, listType, nullptr));
    const Ref<CFArrayRef> items(LSSharedFileListCopySnapshot(list, nullptr));
    return items ? CFArrayGetCount(items) : -1;
}

} // namespace

class tst_OsxLoginItems : public QObject, private LiveObjectCheck {
    Q_OBJECT

    QString root;
    QString user() const { return root + "/config/autostart"; }
    QString system1() const { return root + "/xdg1/autostart"; }
    QString system2() const { return root + "/xdg2/autostart"; }

    // The entries of the user's folder that are not hidden.
    QStringList userEntries() const {
        QStringList shown;
        for (const QString& name : QDir(user()).entryList({"*.desktop"}, QDir::Files)) {
            QFile file(user() + "/" + name);
            if (file.open(QIODevice::ReadOnly) && !file.readAll().contains("Hidden=true"))
                shown.append(name);
        }
        return shown;
    }

private slots:
    void initTestCase() {
        root = QDir::tempPath() + "/loginItems";
        qputenv("HOME", QFile::encodeName(root + "/home"));
        qputenv("XDG_CONFIG_HOME", QFile::encodeName(root + "/config"));
        qputenv("XDG_CONFIG_DIRS", QFile::encodeName(root + "/xdg1:" + root + "/xdg2"));
    }
    void init() {
        QDir(root).removeRecursively();
        noteLiveObjects();
    }
    void cleanup() { checkLiveObjects(); }

    void matchExcludingExtension_data() {
        QTest::addColumn<QString>("a");
        QTest::addColumn<QString>("b");
        QTest::addColumn<bool>("match");
        QTest::newRow("with and without") << "Tavelboard.app"
                                          << "Tavelboard" << true;
        QTest::newRow("capital ending") << "Tavelboard.APP"
                                        << "tavelboard" << true;
        QTest::newRow("both endings") << "tavelboard.App"
                                      << "TAVELBOARD.app" << true;
        QTest::newRow("shortest cut") << "x.app"
                                      << "X" << true;
        QTest::newRow("ending alone is too short") << ".app"
                                                   << "" << false;
        QTest::newRow("ending alone equals itself") << ".APP"
                                                    << ".app" << true;
        QTest::newRow("cut once") << "a.app.app"
                                  << "a" << false;
        QTest::newRow("cut once, rest kept") << "a.app.app"
                                             << "A.APP.app" << true;
        QTest::newRow("other ending") << "Tavelboard.apps"
                                      << "Tavelboard" << false;
        QTest::newRow("other name") << "Tavelboard.app"
                                    << "Tavelbord" << false;
    }
    void matchExcludingExtension() {
        QFETCH(QString, a);
        QFETCH(QString, b);
        QFETCH(bool, match);
        const Ref<CFStringRef> first(CFStringCreateWithQString(a));
        const Ref<CFStringRef> second(CFStringCreateWithQString(b));
        QCOMPARE(applicationsMatchExcludingExtension(first, second), match);
        QCOMPARE(applicationsMatchExcludingExtension(second, first), match);
    }

    void startAtLoginTwiceLeavesOneItem() {
        QVERIFY(!currentApplicationIsLoginItem());
        setCurrentApplicationStartAtLogin(true);
        setCurrentApplicationStartAtLogin(true);
        QCOMPARE(userEntries(), QStringList(appName() + ".desktop"));
        QVERIFY(currentApplicationIsLoginItem());
        QVERIFY(!currentApplicationIsGlobalLoginItem());
        QFile file(user() + "/" + appName() + ".desktop");
        QVERIFY(file.open(QIODevice::ReadOnly));
        const QByteArray content = file.readAll();
        QVERIFY(content.startsWith("[Desktop Entry]\n"));
        QVERIFY(content.contains("\nType=Application\n"));
        QVERIFY(content.contains("\nName=" + appName().toUtf8() + "\n"));
        QVERIFY(content.contains("\nExec=" + desktopEntryExecValue(appPath()).toUtf8() + "\n"));
        {
            const Ref<LSSharedFileListRef> list(
                LSSharedFileListCreate(nullptr, kLSSharedFileListSessionLoginItems, nullptr));
            const Ref<CFArrayRef> items(LSSharedFileListCopySnapshot(list, nullptr));
            QVERIFY(findSharedFileItemMatchingCurrentApplication(items));
        }
        setCurrentApplicationStartAtLogin(false);
        QVERIFY(!currentApplicationIsLoginItem());
        QCOMPARE(QDir(user()).entryList({"*.desktop"}, QDir::Files), QStringList());
    }

    // The system's entry stays; a hidden entry of the user's takes it off the session's list.
    void removingSystemEntry() {
        QVERIFY(writeFile(system2() + "/tavel.desktop", entry("Tavel", desktopEntryExecValue(appPath()))));
        QVERIFY(currentApplicationIsLoginItem());
        QVERIFY(currentApplicationIsGlobalLoginItem());
        setCurrentApplicationStartAtLogin(false);
        QVERIFY(!currentApplicationIsLoginItem());
        QVERIFY(currentApplicationIsGlobalLoginItem());
        QVERIFY(QFile::exists(system2() + "/tavel.desktop"));
        QFile hidden(user() + "/tavel.desktop");
        QVERIFY(hidden.open(QIODevice::ReadOnly));
        QVERIFY(hidden.readAll().contains("\nHidden=true\n"));
        setCurrentApplicationStartAtLogin(true);
        QVERIFY(currentApplicationIsLoginItem());
        QCOMPARE(userEntries(), QStringList(appName() + ".desktop"));
    }

    // Removing a user entry that overrides a system one must not bring the system one back.
    void removingOverridingUserEntry() {
        QVERIFY(writeFile(system1() + "/tavel.desktop", entry("Tavel", desktopEntryExecValue(appPath()))));
        QVERIFY(writeFile(user() + "/tavel.desktop", entry("Tavel", desktopEntryExecValue(appPath()))));
        QCOMPARE(itemCount(kLSSharedFileListSessionLoginItems), CFIndex(1));
        setCurrentApplicationStartAtLogin(false);
        QVERIFY(!currentApplicationIsLoginItem());
        QCOMPARE(itemCount(kLSSharedFileListSessionLoginItems), CFIndex(0));
    }

    void movedProgramMatchesByDisplayName() {
        QVERIFY(writeFile(user() + "/moved.desktop", entry(appName(), root + "/gone/" + appName())));
        QVERIFY(writeFile(user() + "/other.desktop", entry("Other", root + "/gone/" + appName() + "-other")));
        QVERIFY(currentApplicationIsLoginItem());
        const QStringList log = logOf([] { setCurrentApplicationStartAtLogin(false); });
        QCOMPARE(log, QStringList());
        QCOMPARE(userEntries(), QStringList("other.desktop"));
    }

    void itemWithNeitherName() {
        QVERIFY(writeFile(user() + "/nameless.desktop",
                          "[Desktop Entry]\nType=Application\nExec=/nowhere/program\n"));
        const Ref<LSSharedFileListRef> list(
            LSSharedFileListCreate(nullptr, kLSSharedFileListSessionLoginItems, nullptr));
        const Ref<CFArrayRef> items(LSSharedFileListCopySnapshot(list, nullptr));
        QCOMPARE(CFArrayGetCount(items), CFIndex(1));
        const Ref<CFStringRef> name(CFStringCreateWithQString("program"));
        const auto item =
            static_cast<LSSharedFileListItemRef>(const_cast<void*>(CFArrayGetValueAtIndex(items, 0)));
        const QStringList log = logOf([&] { QVERIFY(!loginItemMatchesFileName(item, name)); });
        QCOMPARE(log, QStringList("Error: could not obtain a login item's file name or display name"));
    }

    // Only the good entry is an item; the others neither count nor stop the reading.
    void badEntries() {
        QVERIFY(writeFile(user() + "/empty.desktop", ""));
        QVERIFY(writeFile(user() + "/nogroup.desktop", "Type=Application\nExec=/bin/true\n"));
        QVERIFY(writeFile(user() + "/link.desktop",
                          "[Desktop Entry]\nType=Link\nURL=file:///\nExec=/bin/true\n"));
        QVERIFY(writeFile(user() + "/noexec.desktop", "[Desktop Entry]\nType=Application\nName=x\n"));
        QVERIFY(writeFile(user() + "/binary.desktop", QByteArray("\0\xff\xfe[Desktop Entry\n=\n\\", 20)));
        QVERIFY(writeFile(user() + "/quote.desktop", "[Desktop Entry]\nType=Application\nName=q\nExec=\"\n"));
        QVERIFY(writeFile(user() + "/notanentry.txt", entry("Text", "/bin/true")));
        QVERIFY(QDir().mkpath(user() + "/folder.desktop"));
        QVERIFY(writeFile(user() + "/good.desktop", entry("Good", "/bin/true")));
        QCOMPARE(itemCount(kLSSharedFileListSessionLoginItems), CFIndex(1));
        QVERIFY(!currentApplicationIsLoginItem());
    }

    void failuresAreLogged() {
        // The user's folder is a file: nothing can be written there.
        QVERIFY(writeFile(root + "/config/autostart", "not a folder"));
        QVERIFY(writeFile(system1() + "/a.desktop", entry("A", desktopEntryExecValue(appPath()))));
        QVERIFY(writeFile(system2() + "/b.desktop", entry("B", desktopEntryExecValue(appPath()))));
        QCOMPARE(itemCount(kLSSharedFileListSessionLoginItems), CFIndex(2));
        QCOMPARE(logOf([] { setCurrentApplicationStartAtLogin(false); }),
                 QStringList({"Error: Could not remove item from login items list",
                              "Error: Could not remove item from login items list"}));
        QDir(root + "/xdg1").removeRecursively();
        QDir(root + "/xdg2").removeRecursively();
        QCOMPARE(logOf([] { setCurrentApplicationStartAtLogin(true); }),
                 QStringList("Warning: could not add login item to list"));
        QCOMPARE(logOf([] { addLoginItemForCurrentApplicationToLoginItemList(nullptr); }),
                 QStringList("Warning: could not get snapshot of login items"));
        // The global list can only be read.
        const Ref<LSSharedFileListRef> global(
            LSSharedFileListCreate(nullptr, kLSSharedFileListGlobalLoginItems, nullptr));
        QCOMPARE(logOf([&] { addLoginItemForCurrentApplicationToLoginItemList(global); }),
                 QStringList("Warning: could not add login item to list"));
    }

    // The quoting of the Exec key, then the escapes of a string value, by the desktop entry format.
    void execQuoting_data() {
        QTest::addColumn<QString>("path");
        QTest::addColumn<QString>("exec");
        QTest::newRow("plain") << "/usr/bin/tavel"
                               << "/usr/bin/tavel";
        QTest::newRow("space") << "/opt/my app/run"
                               << "\"/opt/my app/run\"";
        QTest::newRow("single quote") << "/tmp/it's"
                                      << "\"/tmp/it's\"";
        QTest::newRow("double quote") << "/tmp/a\"b"
                                      << "\"/tmp/a\\\\\"b\"";
        QTest::newRow("dollar") << "/tmp/$HOME"
                                << "\"/tmp/\\\\$HOME\"";
        QTest::newRow("backslash: four") << "/tmp/back\\slash"
                                         << "\"/tmp/back\\\\\\\\slash\"";
        QTest::newRow("percent") << "/tmp/100%"
                                 << "/tmp/100%%";
        QTest::newRow("percent, quoted") << "/tmp/100% sure"
                                         << "\"/tmp/100%% sure\"";
        QTest::newRow("newline") << "/tmp/a\nb"
                                 << "\"/tmp/a\\nb\"";
    }
    void execQuoting() {
        QFETCH(QString, path);
        QFETCH(QString, exec);
        QCOMPARE(desktopEntryExecValue(path), exec);
    }

    // An item written for a program at an awkward path resolves to that program again.
    void awkwardPathRoundTrip() {
        const QString program = root + "/odd 'dir' \"$x\" \\ 100% `b` ;#/tavel";
        QVERIFY(writeFile(program, "#!/bin/sh\n"));
        QVERIFY(QFile::setPermissions(program, QFile::ReadOwner | QFile::ExeOwner));
        const Ref<CFStringRef> path(CFStringCreateWithQString(program));
        const Ref<CFURLRef> url(CFURLCreateWithFileSystemPath(nullptr, path, kCFURLPOSIXPathStyle, false));
        const Ref<LSSharedFileListRef> list(
            LSSharedFileListCreate(nullptr, kLSSharedFileListSessionLoginItems, nullptr));
        const Ref<LSSharedFileListItemRef> added(LSSharedFileListInsertItemURL(
            list, kLSSharedFileListItemLast, nullptr, nullptr, url, nullptr, nullptr));
        QVERIFY(added);
        const Ref<CFArrayRef> items(LSSharedFileListCopySnapshot(list, nullptr));
        QCOMPARE(CFArrayGetCount(items), CFIndex(1));
        Ref<CFURLRef> resolved;
        const auto item =
            static_cast<LSSharedFileListItemRef>(const_cast<void*>(CFArrayGetValueAtIndex(items, 0)));
        QCOMPARE(LSSharedFileListItemResolve(item, 3, resolved.out(), nullptr), OSStatus(noErr));
        QVERIFY(CFEqual(resolved, url));
        const Ref<CFStringRef> displayName(LSSharedFileListItemCopyDisplayName(item));
        QCOMPARE(QStringFromCFString(displayName), QString("tavel"));
    }
};

UIET_TEST_MAIN(tst_OsxLoginItems)
#include "tst_osxLoginItems.moc"
