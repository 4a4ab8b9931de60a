// The real ui-element-tool and ui-element-ctl binaries, talking over their real sockets in the
// private temporary directory of this run.

#include "QtLocalPeer.h"
#include "StateReport.h"
#include "testSupport.h"
#include "toolIds.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QProcess>
#include <QThread>

#include <functional>

#include <csignal>

namespace {

constexpr int processTimeout = 20000;

// A started binary whose output, both channels merged, is collected as it comes.
class Binary {
public:
    Binary(const QString& program, const QStringList& arguments,
           QProcess::ProcessChannelMode mode = QProcess::MergedChannels) {
        process.setProcessChannelMode(mode);
        process.start(program, arguments);
    }
    ~Binary() {
        if (process.state() != QProcess::NotRunning) {
            process.kill();
            process.waitForFinished();
        }
    }

    // Waits until the collected output holds `text`, or the process ends, or time runs out.
    bool waitForOutput(const QString& text) {
        return waitFor([&] { return output().contains(text); });
    }
    bool waitForErrorOutput(const QString& text) {
        return waitFor([&] { return errorOutput().contains(text); });
    }

    QString output() {
        collected += process.readAllStandardOutput();
        return QString::fromUtf8(collected);
    }
    QString errorOutput() {
        collectedErrors += process.readAllStandardError();
        return QString::fromUtf8(collectedErrors);
    }
    bool finish() { return process.waitForFinished(processTimeout); }

    QProcess process;

private:
    bool waitFor(const std::function<bool()>& condition) {
        QElapsedTimer timer;
        timer.start();
        while (!condition()) {
            if (timer.hasExpired(processTimeout) || process.state() == QProcess::NotRunning)
                return condition();
            QTest::qWait(20); // lets the process object read both channels
        }
        return true;
    }

    QByteArray collected;
    QByteArray collectedErrors;
};

QString writeFile(const QString& name, const QByteArray& content) {
    const QString path = QDir::temp().filePath(name);
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(content) != content.size())
        qFatal("cannot write %s", qPrintable(path));
    return path;
}

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
        QTest::newRow("bad time-out") << QStringList{"send", "x", "soon"} << 2 << "not 'soon'";
        QTest::newRow("no tool running")
            << QStringList{"send", "@file", "400"} << 1 << "no ack from the UI element tool";
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
