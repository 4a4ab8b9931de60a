// ui-element-ctl capture run as a person or a script runs it, on the example virtual desktop: the
// file holds the description that this process captures itself at the same point, and watch
// sends that file to the running tool. Nothing is written where the answer is refused.

#include "UIElement.h"
#include "dataObjectSerialization.h"
#include "platformTestSupport.h"
#include "processSupport.h"
#include "testSupport.h"

#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QScopeGuard>

#include <unistd.h>

namespace {

const QString desktopFile = QStringLiteral(UIET_FIXTURES_DIR "/desktop-basic.json");

// Runs ui-element-ctl to its end: its exit status (-1 when it did not end) and what it printed.
int runCtl(const QStringList& arguments, QString& output, QString& errors) {
    Binary ctl(UIET_CTL_PATH, arguments, QProcess::SeparateChannels);
    const int status = ctl.finish() ? ctl.process.exitCode() : -1;
    output = ctl.output();
    errors = ctl.errorOutput();
    return status;
}

} // namespace

class tst_ctlCapture : public QObject, private VirtualDesktopTestBase {
    Q_OBJECT

private Q_SLOTS:
    // The same desktop in this process, for the captures to compare with.
    void init() {
        QFile file(desktopFile);
        QVERIFY(file.open(QIODevice::ReadOnly));
        const QByteArray fixture = file.readAll();
        QVERIFY(installDesktop([&](VirtualDesktop& desktop) { return desktop.load(fixture); }));
    }
    void cleanup() { uninstallDesktopAndCheckReferences(); }

    void captureAndWatch_data() {
        QTest::addColumn<QPoint>("point");
        QTest::addColumn<QStringList>("roles"); // none: nothing there
        QTest::newRow("button in a toolbar")
            << QPoint(140, 148) << QStringList{"AXApplication", "AXWindow", "AXToolbar", "AXButton"};
        QTest::newRow("button of the window in front")
            << QPoint(750, 510) << QStringList{"AXApplication", "AXWindow", "AXButton"};
        QTest::newRow("nothing there") << QPoint(5000, 5000) << QStringList{};
    }
    void captureAndWatch() {
        QFETCH(QPoint, point);
        QFETCH(QStringList, roles);
        const UIElement captured(point); // the reference, made in this process
        const QString title = captured.platformSpecificEntity()->title();
        const QString pointText = QStringLiteral("%1,%2").arg(point.x()).arg(point.y());
        const QString path = QDir::temp().filePath("captured.ini");
        const int status = roles.isEmpty() ? 1 : 0;
        QString output, errors;
        QCOMPARE(runCtl({"capture", "--json", pointText, "--desktop", desktopFile, path}, output, errors),
                 status);
        const QJsonObject answer = QJsonDocument::fromJson(output.toUtf8()).object();
        const QJsonArray levels = answer["levels"].toArray();
        QStringList answeredRoles;
        for (const QJsonValue& level : levels)
            answeredRoles << level["role"].toString();
        QCOMPARE(answeredRoles, roles);
        QCOMPARE(answer["file"].toString(), path);
        QCOMPARE(answer["null"].toBool(), roles.isEmpty());
        if (roles.isEmpty()) {
            QVERIFY(errors.contains("no element at 5000,5000; " + path + " holds a null description"));
        } else {
            QCOMPARE(answer["bundleId"].toString(), QString("com.example.editor"));
            // The application is defined by its bundle id; a button with no other telling attribute
            // than its role also by its place among its siblings, the first.
            QCOMPARE(levels.first()["definingAttributes"].toArray(), QJsonArray{"bundleId"});
            QCOMPARE(levels.last()["definingAttributes"].toArray(), (QJsonArray{"AXRole", "childIndex"}));
            QCOMPARE(levels.last()["childIndex"].toInt(), 0);
            QCOMPARE(levels.last()["title"].toString(), title);
        }

        // The text answer, and the file it writes once more.
        QCOMPARE(runCtl({"capture", "--desktop", desktopFile, pointText, path}, output, errors), status);
        QVERIFY(output.endsWith("\nwritten to " + path + "\n"));
        if (!roles.isEmpty()) {
            QVERIFY(output.startsWith("level 0: AXApplication \"Editor\"\n"));
            QVERIFY(output.contains(
                QStringLiteral("\nlevel %1: AXButton \"%2\"\n").arg(roles.size() - 1).arg(title)));
            QVERIFY(output.contains("\napplication name: Editor\n"));
        }
        QFile file(path);
        QVERIFY(file.open(QIODevice::ReadOnly));
        UIElementCollection saved;
        deserializeObjectFromByteArray(&saved, file.readAll());
        QCOMPARE(saved.elements().size(), 1);
        QCOMPARE(saved.elements().first()->isNull(), roles.isEmpty());
        QVERIFY(saved.elements().first()->platformSpecificEntity()->isEqualToElement(
            captured.platformSpecificEntity()));

        // The running tool takes the file as it stands, and the second time refuses the id.
        Binary tool(UIET_TOOL_PATH, {});
        QVERIFY(tool.waitForOutput("Ostrik Conductor UI element tool running"));
        for (const QStringList& arguments :
             {QStringList{"watch", "7", path}, QStringList{"watch", "7", path}, QStringList{"stop", "7"}}) {
            QCOMPARE(runCtl(arguments, output, errors), 0);
            QCOMPARE(output, QString("ack\n"));
        }
        QVERIFY(tool.waitForOutput("with already used ID: 7\n"));
    }

    // Nothing is written, and a file that was there stays as it was.
    void refusedWithoutTouchingAnyFile_data() {
        QTest::addColumn<QStringList>("arguments"); // @ is a directory with one file, kept.ini
        QTest::addColumn<QString>("message");
        QTest::addColumn<bool>("readOnlyDirectory");
        QTest::newRow("bad point") << QStringList{"12;4", "@/kept.ini"}
                                   << "X,Y in screen coordinates, not '12;4'" << false;
        QTest::newRow("missing directory")
            << QStringList{"140,148", "@/missing/new.ini"} << "cannot write @/missing/new.ini: " << false;
        QTest::newRow("a file for a directory")
            << QStringList{"140,148", "@/kept.ini/new.ini"} << "cannot write @/kept.ini/new.ini: " << false;
        QTest::newRow("a directory") << QStringList{"140,148", "@"} << "cannot write @: it is a directory"
                                     << false;
        QTest::newRow("a directory without write permission")
            << QStringList{"140,148", "@/kept.ini"} << "cannot write @/kept.ini: " << true;
        QTest::newRow("no file") << QStringList{"140,148"} << "usage: ui-element-ctl" << false;
    }
    void refusedWithoutTouchingAnyFile() {
        QFETCH(QStringList, arguments);
        QFETCH(QString, message);
        QFETCH(bool, readOnlyDirectory);
        if (readOnlyDirectory && geteuid() == 0)
            QSKIP("the superuser writes into any directory");
        const QString dir = QDir::temp().filePath(QTest::currentDataTag());
        QVERIFY(QDir().mkpath(dir));
        QFile kept(dir + "/kept.ini");
        QVERIFY(kept.open(QIODevice::WriteOnly) && kept.write("[General]\nkept=1\n") > 0);
        kept.close();
        const auto restore = qScopeGuard(
            [&] { QFile::setPermissions(dir, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner); });
        if (readOnlyDirectory)
            QVERIFY(QFile::setPermissions(dir, QFile::ReadOwner | QFile::ExeOwner));
        const QStringList entries = QDir(dir).entryList(QDir::AllEntries | QDir::Hidden);
        QString output, errors;
        QCOMPARE(
            runCtl(QStringList{"capture", "--desktop", desktopFile} + arguments.replaceInStrings("@", dir),
                   output, errors),
            2);
        QVERIFY2(errors.contains(message.replace("@", dir)), qPrintable(errors));
        QVERIFY(output.isEmpty());
        QCOMPARE(QDir(dir).entryList(QDir::AllEntries | QDir::Hidden), entries);
        QVERIFY(kept.open(QIODevice::ReadOnly));
        QCOMPARE(kept.readAll(), QByteArray("[General]\nkept=1\n"));
    }
};

UIET_TEST_MAIN(tst_ctlCapture)
#include "tst_ctlCapture.moc"
