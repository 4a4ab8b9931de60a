// The real ui-element-tool and ui-element-ctl binaries, talking over their real sockets in the
// private temporary directory of this run.

#include "QtLocalPeer.h"
#include "StateReport.h"
#include "UIElement.h"
#include "dataObjectSerialization.h"
#include "processSupport.h"
#include "testSupport.h"
#include "toolIds.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QProcess>
#include <QSaveFile>
#include <QScopeGuard>
#include <QThread>

#include <functional>

#include <csignal>

namespace {

QString writeFile(const QString& name, const QByteArray& content) {
    const QString path = QDir::temp().filePath(name);
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(content) != content.size())
        qFatal("cannot write %s", qPrintable(path));
    return path;
}

// Runs ui-element-ctl to its end and tells whether it printed "ack" and nothing else.
bool ctlAcknowledged(const QStringList& arguments) {
    Binary ctl(UIET_CTL_PATH, arguments, QProcess::SeparateChannels);
    return ctl.finish() && ctl.process.exitCode() == 0 && ctl.output() == QLatin1String("ack\n");
}

// A start command as Ostrik Conductor sends it: id 9, a collection of one element whose
// implementation has a child index and options.
const QByteArray startCommand("[General]\ncommand=1\nid=9\n\n[elements]\n"
                              "elements\\0\\childIndex=3\n"
                              "elements\\0\\options\\a%40VQfslash_b=2\n"
                              "elements\\0\\options\\a%40VQfslash_b__type=int\n"
                              "elements\\0\\options\\flag=true\n"
                              "elements\\0\\options\\flag__type=bool\n");

} // namespace

class TestToolProcess : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void terminatingSignalsExitInOrder_data() {
        QTest::addColumn<int>("signalNumber");
        QTest::newRow("SIGTERM") << SIGTERM;
        QTest::newRow("SIGQUIT") << SIGQUIT;
        QTest::newRow("SIGINT") << SIGINT;
    }
    void terminatingSignalsExitInOrder() {
        QFETCH(int, signalNumber);
        Binary tool(UIET_TOOL_PATH, {});
        QVERIFY(tool.waitForOutput("Ostrik Conductor UI element tool running"));
        QVERIFY(tool.output().startsWith("Ostrik Conductor UI element tool starting up\n"));
        ::kill(pid_t(tool.process.processId()), signalNumber);
        QVERIFY(tool.finish());
        QCOMPARE(tool.process.exitStatus(), QProcess::NormalExit);
        QCOMPARE(tool.process.exitCode(), 0);
        QVERIFY(tool.output().endsWith("Ostrik Conductor UI element tool exiting\n"));
    }

    void commandsFromTheCtlAreAcknowledgedAndRead() {
        Binary tool(UIET_TOOL_PATH, {});
        QVERIFY(tool.waitForOutput("Ostrik Conductor UI element tool running"));

        Binary stop(UIET_CTL_PATH, {"send", writeFile("stop.ini", "[General]\ncommand=2\nid=42\n")},
                    QProcess::SeparateChannels);
        QVERIFY(stop.finish());
        QCOMPARE(stop.process.exitCode(), 0);
        QCOMPARE(stop.output(), QString("ack\n"));
        QVERIFY(tool.waitForOutput(
            "Error: UI element tool received command to stop watching UI elements with invalid ID: 42\n"));

        Binary garbage(UIET_CTL_PATH, {"send", writeFile("garbage.bin", QByteArray("\x00\xff[[=\n\x01", 7))});
        QVERIFY(garbage.finish());
        QCOMPARE(garbage.process.exitCode(), 0);
        QVERIFY(tool.waitForOutput(
            "Error: UI element tool received invalid command ID from Ostrik Conductor: 0\n"));

        // A value that only a GUI could build is refused, and the tool carries on.
        QVERIFY(ctlAcknowledged(
            {"send", writeFile("bitmap.ini", "[General]\ncommand=2\nid=@Variant(\\0\\0\\0I)\n")}));
        QVERIFY(tool.waitForOutput("is not read: it holds a value of type QBitmap\n"));
        QVERIFY(ctlAcknowledged({"stop", "43"}));
        QVERIFY(tool.waitForOutput("stop watching UI elements with invalid ID: 43\n"));
    }

    void startAndStopEndToEnd() {
        Binary tool(UIET_TOOL_PATH, {});
        QVERIFY(tool.waitForOutput("Ostrik Conductor UI element tool running"));
        const QString start = writeFile("start.ini", startCommand);
        QVERIFY(ctlAcknowledged({"send", start}));
        QVERIFY(ctlAcknowledged({"send", start}));
        QVERIFY(tool.waitForOutput(
            "Error: UI element tool received command to watch UI elements with already used ID: 9\n"));
        QVERIFY(ctlAcknowledged({"stop", "9"}));
        QVERIFY(ctlAcknowledged({"stop", "9"}));
        const QString invalid =
            "Error: UI element tool received command to stop watching UI elements with invalid ID: 9\n";
        QVERIFY(tool.waitForOutput(invalid));
        // The first start and the first stop were taken silently.
        QCOMPARE(tool.output().count("with already used ID"), 1);
        QCOMPARE(tool.output().count(invalid), 1);
        QVERIFY(!tool.output().contains("without a UI element collection"));
    }

    // Two alternatives captured on the example desktop, the Save button and the Apply button, as
    // Ostrik Conductor saves them. watch sends a collection only when it loads back whole.
    void watchSendsTheSavedCollection() {
        // Chosen at this process's first accessibility call, and kept from the processes it starts.
        qputenv("UIET_ACCESSIBILITY", "virtual:" UIET_FIXTURES_DIR "/desktop-basic.json");
        UIElementCollection collection;
        collection.setElements(
            {new UIElement(QPoint(140, 148), &collection), new UIElement(QPoint(750, 510), &collection)});
        qunsetenv("UIET_ACCESSIBILITY");
        QCOMPARE(collection.elements().at(0)->platformSpecificEntity()->hierarchySize(), 4);
        QCOMPARE(collection.elements().at(1)->platformSpecificEntity()->hierarchySize(), 3);
        const QString saved = writeFile("collection.ini", serializeObjectToByteArray(&collection));
        Binary tool(UIET_TOOL_PATH, {});
        QVERIFY(tool.waitForOutput("Ostrik Conductor UI element tool running"));
        QVERIFY(ctlAcknowledged({"watch", "18446744073709551615", saved}));
        QVERIFY(ctlAcknowledged({"watch", "18446744073709551615", saved}));
        QVERIFY(tool.waitForOutput("with already used ID: 18446744073709551615\n"));
        QVERIFY(ctlAcknowledged({"stop", "18446744073709551615"}));
        QVERIFY(ctlAcknowledged({"stop", "18446744073709551615"}));
        QVERIFY(tool.waitForOutput("with invalid ID: 18446744073709551615\n"));
        QCOMPARE(tool.output().count("with invalid ID"), 1);
    }

    // What a user captured is resolved by the tool, and each flip is reported: found, gone when
    // the element changes so that it no longer matches, and found again.
    void toolReportsEachFlipOfACapturedElement() {
        QFile fixture(UIET_FIXTURES_DIR "/capture-desktop.json");
        QVERIFY(fixture.open(QIODevice::ReadOnly));
        const QByteArray original = fixture.readAll();
        QByteArray changed = original;
        changed.replace("\"AXToggle\"", "\"AXSwitch\"");
        const QString desktop = writeFile("desktop.json", original);
        // Rewritten whole, as the desktop file wants it, so that the tool reloads it once.
        const auto rewrite = [&](const QByteArray& content) {
            QSaveFile file(desktop);
            return file.open(QIODevice::WriteOnly) && file.write(content) == content.size() && file.commit();
        };
        qputenv("UIET_ACCESSIBILITY", ("virtual:" + desktop).toUtf8());
        const auto unset = qScopeGuard([] { qunsetenv("UIET_ACCESSIBILITY"); });

        const QString saved = QDir::temp().filePath("mute.ini");
        Binary capture(UIET_CTL_PATH, {"capture", "130,160", saved});
        QVERIFY(capture.finish());
        QCOMPARE(capture.process.exitCode(), 0);
        Binary reports(UIET_CTL_PATH, {"reports"}, QProcess::SeparateChannels);
        QVERIFY(reports.waitForErrorOutput("listening for reports"));
        Binary tool(UIET_TOOL_PATH, {});
        QVERIFY(tool.waitForOutput("Ostrik Conductor UI element tool running"));
        QVERIFY(ctlAcknowledged({"watch", "5", saved}));
        QVERIFY(reports.waitForOutput("5 found\n"));
        QVERIFY(rewrite(changed));
        QVERIFY(reports.waitForOutput("5 found\n5 not found\n"));
        QVERIFY(rewrite(original));
        QVERIFY(reports.waitForOutput("5 found\n5 not found\n5 found\n"));
        QVERIFY(ctlAcknowledged({"stop", "5"}));
    }

    void ctlPrintsEachReport() {
        Binary reports(UIET_CTL_PATH, {"reports"}, QProcess::SeparateChannels);
        QVERIFY(reports.waitForErrorOutput("listening for reports"));

        Binary second(UIET_CTL_PATH, {"reports"}, QProcess::SeparateChannels);
        QVERIFY(second.finish());
        QCOMPARE(second.process.exitCode(), 1);
        QVERIFY(second.errorOutput().contains("another process is already listening for reports"));

        QtLocalPeer sender(nullptr, QString::fromLatin1(toolReportPeerId),
                           QtLocalPeer::NoLockFile | QtLocalPeer::ByteArrayMessagesOnly);
        QVERIFY(sender.sendMessage(makeStateReport(7, true), 5000));
        QVERIFY(sender.sendMessage(makeStateReport(~0ULL, false), 5000));
        QVERIFY(sender.sendMessage(QByteArray("short"), 5000));
        QVERIFY(reports.waitForOutput("7 found\n18446744073709551615 not found\n"));
        QVERIFY(reports.waitForErrorOutput("ignoring a message of 5 bytes that is not a state report"));
        QCOMPARE(reports.output(), QString("7 found\n18446744073709551615 not found\n"));
    }

    // The element tree of the example desktop, whose fixture gives every role, title and frame:
    // the Save button lies in the toolbar of the document window, four levels below the
    // application's header line.
    void ctlPrintsTheElementTree_data() {
        QTest::addColumn<QStringList>("selection");
        QTest::addColumn<int>("exitCode");
        QTest::addColumn<QStringList>("present");
        QTest::addColumn<QStringList>("absent");
        const QString editor = "Editor (com.example.editor, pid 4101)\n";
        const QString files = "Files (com.example.files, pid 4202)\n";
        const QString save = "\n        AXButton \"Save\" 110,133 60x30\n";
        const QString menu = "\n    AXMenuBar \"\" 0,0 1440x24\n      AXMenuBarItem \"File\" 60,0 40x24\n";
        QTest::newRow("all applications")
            << QStringList{} << 0 << QStringList{editor, files, save, menu} << QStringList{};
        QTest::newRow("by bundle id")
            << QStringList{"com.example.files"} << 0 << QStringList{files} << QStringList{editor, save};
        QTest::newRow("by pid") << QStringList{"4101"} << 0 << QStringList{editor, save}
                                << QStringList{files};
        QTest::newRow("no such application")
            << QStringList{"999"} << 1 << QStringList{} << QStringList{editor, files};
    }
    void ctlPrintsTheElementTree() {
        QFETCH(QStringList, selection);
        QFETCH(int, exitCode);
        QFETCH(QStringList, present);
        QFETCH(QStringList, absent);
        Binary ctl(UIET_CTL_PATH,
                   QStringList{"tree", "--desktop", UIET_FIXTURES_DIR "/desktop-basic.json"} + selection,
                   QProcess::SeparateChannels);
        QVERIFY(ctl.finish());
        QCOMPARE(ctl.process.exitCode(), exitCode);
        const QString output = ctl.output();
        for (const QString& text : present)
            QVERIFY2(output.contains(text), qPrintable(text));
        for (const QString& text : absent)
            QVERIFY2(!output.contains(text), qPrintable(text));
        if (exitCode != 0)
            QVERIFY(ctl.errorOutput().contains("no running application " + selection.join(' ')));
    }

    void ctlPrintsTheElementAtAPoint_data() {
        QTest::addColumn<QString>("point");
        QTest::addColumn<int>("exitCode");
        QTest::addColumn<QString>("output");
        const QString window = "AXApplication \"Editor\" no frame\n  AXWindow \"Untitled\" 100,100 800x600\n";
        const QString platform = "found by the platform's answer\n";
        QTest::newRow("button in a toolbar")
            << "140,148" << 0
            << window + "    AXToolbar \"\" 100,128 800x40\n      AXButton \"Save\" 110,133 60x30\n" + platform;
        QTest::newRow("overlapping panels")
            << "560,360" << 0 << window + "    AXGroup \"\" 550,350 200x200\n" + platform;
        QTest::newRow("nothing there") << "5000,5000" << 1 << QString();
    }
    void ctlPrintsTheElementAtAPoint() {
        QFETCH(QString, point);
        QFETCH(int, exitCode);
        QFETCH(QString, output);
        Binary ctl(UIET_CTL_PATH, {"at", "--desktop", UIET_FIXTURES_DIR "/desktop-basic.json", point},
                   QProcess::SeparateChannels);
        QVERIFY(ctl.finish());
        QCOMPARE(ctl.process.exitCode(), exitCode);
        QCOMPARE(ctl.output(), output);
        if (exitCode != 0)
            QVERIFY(ctl.errorOutput().contains("no element at " + point));
    }

    void ctlRejectsBadInput_data() {
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<int>("exitCode");
        QTest::addColumn<QString>("message");
        QTest::newRow("no verb") << QStringList{} << 2 << "usage: ui-element-ctl";
        QTest::newRow("unknown verb")
            << QStringList{"frobnicate"} << 2 << "unknown or incomplete command 'frobnicate'";
        QTest::newRow("send without file") << QStringList{"send"} << 2 << "usage: ui-element-ctl";
        QTest::newRow("missing file")
            << QStringList{"send", "/nonexistent/command.ini"} << 2 << "cannot read /nonexistent/command.ini";
        QTest::newRow("tree of a missing desktop")
            << QStringList{"tree", "--desktop", "/nonexistent/desktop.json"} << 2
            << "no desktop file /nonexistent/desktop.json";
        QTest::newRow("tree with two applications")
            << QStringList{"tree", "1", "2"} << 2 << "usage: ui-element-ctl";
        QTest::newRow("bad time-out") << QStringList{"send", "x", "soon"} << 2 << "not 'soon'";
        QTest::newRow("at without a point") << QStringList{"at"} << 2 << "usage: ui-element-ctl";
        QTest::newRow("at a bad point")
            << QStringList{"at", "12;4"} << 2 << "X,Y in screen coordinates, not '12;4'";
        QTest::newRow("no tool running")
            << QStringList{"send", "@file", "400"} << 1 << "no ack from the UI element tool";
        QTest::newRow("watch without file") << QStringList{"watch", "1"} << 2 << "usage: ui-element-ctl";
        QTest::newRow("watch word id") << QStringList{"watch", "nine", "@file"} << 2 << "not 'nine'";
        QTest::newRow("watch negative id") << QStringList{"watch", "-1", "@file"} << 2 << "not '-1'";
        QTest::newRow("watch id too large")
            << QStringList{"watch", "18446744073709551616", "@file"} << 2 << "not '18446744073709551616'";
        QTest::newRow("watch missing file")
            << QStringList{"watch", "1", "/nonexistent/c.ini"} << 2 << "cannot read /nonexistent/c.ini";
        QTest::newRow("watch file without collection")
            << QStringList{"watch", "1", "@file"} << 2 << "command.ini holds no UI element collection";
        QTest::newRow("stop word id") << QStringList{"stop", "x"} << 2 << "not 'x'";
        QTest::newRow("stop with no tool running") << QStringList{"stop", "1", "400"} << 1 << "no ack";
    }
    void ctlRejectsBadInput() {
        QFETCH(QStringList, arguments);
        QFETCH(int, exitCode);
        QFETCH(QString, message);
        arguments.replaceInStrings("@file", writeFile("command.ini", "[General]\ncommand=2\nid=1\n"));
        Binary ctl(UIET_CTL_PATH, arguments, QProcess::SeparateChannels);
        QVERIFY(ctl.finish());
        QCOMPARE(ctl.process.exitCode(), exitCode);
        QVERIFY2(ctl.errorOutput().contains(message), qPrintable(message));
        QVERIFY(ctl.output().isEmpty());
    }
};

UIET_TEST_MAIN(TestToolProcess)
#include "tst_toolProcess.moc"
