#include "appkit/Foundation.h"
#include "appkit/Processes.h"
#include "commands.h"
#include "files.h"
#include "logCapture.h"
#include "osxSystemVersion.h"
#include "platformTime.h"
#include "processSupport.h"
#include "testSupport.h"
#include "timeUtils.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <ctime>
#include <limits>

namespace {

// Set in the copy of this program that meets the Shortcuts on a system before macOS 12.
const char* const kClosedGateChild = "UIET_TEST_CLOSED_VERSION_GATE";
const QString shortcutsProgram = QStringLiteral("/usr/bin/shortcuts");

bool isClosedGateChild() {
    return qEnvironmentVariableIsSet(kClosedGateChild);
}

QString tempPath(const QString& name) {
    return QDir(qEnvironmentVariable("TMPDIR")).filePath(name);
}

QString runsFile() {
    return tempPath(QStringLiteral("shortcuts.runs"));
}

// The Shortcuts tool becomes a shell script that notes each run in runsFile() and then runs body,
// with the arguments of the call as "$@".
void replaceShortcutsTool(const QString& body) {
    replaceSystemProgramForTesting(
        shortcutsProgram,
        ProgramInvocation{QStringLiteral("/bin/sh"),
                          {QStringLiteral("-c"), QStringLiteral("echo run >> \"$0\"; ") + body, runsFile()}});
}

int runCount() {
    QFile runs(runsFile());
    return runs.open(QIODevice::ReadOnly) ? runs.readAll().count('\n') : 0;
}

void writeFile(const QString& path, const QByteArray& contents) {
    QDir().mkpath(QFileInfo(path).absolutePath());
    QFile file(path);
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write(contents);
}

quint64 monotonicNow() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return quint64(now.tv_sec) * 1000000000u + quint64(now.tv_nsec);
}

// Counts the processes whose objects are deleted later.
class ProcessDeletions : public QObject {
public:
    ProcessDeletions() { QCoreApplication::instance()->installEventFilter(this); }
    int count = 0;

protected:
    bool eventFilter(QObject* watched, QEvent* event) override {
        if (event->type() == QEvent::DeferredDelete && qobject_cast<QProcess*>(watched)) {
            ++count;
        }
        return false;
    }
};

} // namespace

class TestSystemServices : public QObject {
    Q_OBJECT

private slots:
    void initTestCase();
    void cleanup();

    void sanitizesFileNames_data();
    void sanitizesFileNames();
    void sanitizedNamesFitTheFileSystem();
    void clockScalesTicks_data();
    void clockScalesTicks();
    void realClockIsMonotonicNanoseconds();
    void movesToTrash_data();
    void movesToTrash();
    void shellCommandRunsInUsersShell_data();
    void shellCommandRunsInUsersShell();

    // In this order: the list's lifetime must not have begun before the unanswered readings.
    void unansweredShortcutsListIsEmpty_data();
    void unansweredShortcutsListIsEmpty();
    void shortcutsListIsReadAndKept();
    void shortcutProcessIsConfigured();
    void shortcutsNeedMonterey();

private:
    QByteArray shell;
    bool shellWasSet = false;
};

void TestSystemServices::initTestCase() {
    if (isClosedGateChild()) {
        return;
    }
    // Before anything asks: the version is read once per process.
    setGestaltResponsesForTesting(QHash<OSType, SInt32>{
        {gestaltSystemVersionMajor, 12}, {gestaltSystemVersionMinor, 0}, {gestaltSystemVersionBugFix, 0}});
    QVERIFY(isMontereyOrLater());

    // A private trash, before anything looks for the user's.
    qputenv("HOME", tempPath(QStringLiteral("home")).toLocal8Bit());
    qputenv("XDG_DATA_HOME", tempPath(QStringLiteral("home/data")).toLocal8Bit());
    QVERIFY(QDir().mkpath(tempPath(QStringLiteral("home/data"))));

    shellWasSet = qEnvironmentVariableIsSet("SHELL");
    shell = qgetenv("SHELL");
}

void TestSystemServices::cleanup() {
    setMachAbsoluteTimeForTesting({});
    replaceSystemProgramForTesting(shortcutsProgram, std::nullopt);
    if (shellWasSet) {
        qputenv("SHELL", shell);
    } else {
        qunsetenv("SHELL");
    }
}

void TestSystemServices::sanitizesFileNames_data() {
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("expected");
    const QString longest(255, QLatin1Char('n'));
    QTest::newRow("current directory") << "."
                                       << "_";
    QTest::newRow("parent directory") << ".."
                                      << "__";
    QTest::newRow("three dots") << "..."
                                << "...";
    QTest::newRow("dot and slash") << "./"
                                   << "._";
    QTest::newRow("separators") << "a/b:c"
                                << "a_b_c";
    QTest::newRow("only separators") << "//::"
                                     << "____";
    QTest::newRow("empty") << ""
                           << "";
    QTest::newRow("longest") << longest << longest;
    QTest::newRow("one too long") << longest + "/" << longest;
    QTest::newRow("300 characters") << QString(300, QLatin1Char('x')) << QString(255, QLatin1Char('x'));
    QTest::newRow("separator before the cut")
        << QString(254, QLatin1Char('x')) + ":yz" << QString(254, QLatin1Char('x')) + "_";
}

void TestSystemServices::sanitizesFileNames() {
    QFETCH(QString, name);
    QFETCH(QString, expected);
    QCOMPARE(sanitizeFileName(name), expected);
}

void TestSystemServices::sanitizedNamesFitTheFileSystem() {
    const QString name = sanitizeFileName(QString(300, QLatin1Char('f')) + "/:");
    QFile file(tempPath(name));
    QVERIFY2(file.open(QIODevice::WriteOnly), qPrintable(file.errorString()));
    QFile tooLong(tempPath(name + "f"));
    QVERIFY(!tooLong.open(QIODevice::WriteOnly));

    QCOMPARE(nullFilePath(), QProcess::nullDevice());
    QFile sink(nullFilePath());
    QVERIFY(sink.open(QIODevice::WriteOnly));
    QCOMPARE(sink.write("discarded"), 9);
}

void TestSystemServices::clockScalesTicks_data() {
    QTest::addColumn<quint64>("ticks");
    QTest::addColumn<quint64>("nanoseconds");
    QTest::addColumn<double>("ms");
    // The timebase of the Linux clock is 1/1: a tick is a nanosecond.
    QTest::newRow("zero") << Q_UINT64_C(0) << Q_UINT64_C(0) << 0.0;
    QTest::newRow("one nanosecond") << Q_UINT64_C(1) << Q_UINT64_C(1) << 0.000001;
    QTest::newRow("fraction") << Q_UINT64_C(1234567) << Q_UINT64_C(1234567) << 1.234567;
    QTest::newRow("an hour") << Q_UINT64_C(3600000000000) << Q_UINT64_C(3600000000000) << 3600000.0;
    QTest::newRow("above 2^53") << Q_UINT64_C(9007199254740993) << Q_UINT64_C(9007199254740993)
                                << 9007199254.740993;
    QTest::newRow("largest") << std::numeric_limits<quint64>::max() << Q_UINT64_C(18446744073709551615)
                             << 18446744073709.551615;
}

void TestSystemServices::clockScalesTicks() {
    QFETCH(quint64, ticks);
    QFETCH(quint64, nanoseconds);
    QFETCH(double, ms);
    setMachAbsoluteTimeForTesting([ticks] { return ticks; });
    QCOMPARE(getSystenTimeInNanoseconds(), nanoseconds);
    QCOMPARE(milliseconds(), ms);
}

void TestSystemServices::realClockIsMonotonicNanoseconds() {
    const quint64 before = monotonicNow();
    const quint64 now = getSystenTimeInNanoseconds();
    const double ms = milliseconds();
    const quint64 after = monotonicNow();
    QVERIFY(before <= now && now <= after);
    QVERIFY(double(now) / 1e6 <= ms && ms <= double(after) / 1e6);

    quint64 previous = now;
    for (int i = 0; i < 10000; ++i) {
        const quint64 next = getSystenTimeInNanoseconds();
        QVERIFY(next >= previous);
        previous = next;
    }
}

void TestSystemServices::movesToTrash_data() {
    QTest::addColumn<QStringList>("created");
    QTest::addColumn<QStringList>("trashed");
    QTest::addColumn<QStringList>("missing");
    QTest::newRow("file") << QStringList{"a.txt", "a.txt.bak"} << QStringList{"a.txt"} << QStringList{};
    QTest::newRow("directory") << QStringList{"dir/inner.txt", "dir/sub/deep.txt", "dirt.txt"}
                               << QStringList{"dir"} << QStringList{};
    QTest::newRow("missing among others")
        << QStringList{"b.txt", "c.txt", "keep.txt"} << QStringList{"b.txt", "gone.txt", "c.txt"}
        << QStringList{"gone.txt"};
    QTest::newRow("empty list") << QStringList{"d.txt"} << QStringList{} << QStringList{};
}

void TestSystemServices::movesToTrash() {
    QFETCH(QStringList, created);
    QFETCH(QStringList, trashed);
    QFETCH(QStringList, missing);
    const QDir trash(tempPath(QStringLiteral("home/data/Trash/files")));
    const QStringList trashBefore = trash.entryList(QDir::AllEntries | QDir::NoDotAndDotDot);

    QTemporaryDir work;
    for (const QString& path : created) {
        writeFile(work.filePath(path), path.toUtf8());
    }
    QStringList paths;
    QStringList expectedLog;
    for (const QString& name : trashed) {
        paths << work.filePath(name);
    }
    for (const QString& name : missing) {
        expectedLog << "Note: could not move to the trash: " + work.filePath(name);
    }

    QCOMPARE(logOf([&] { moveToTrash(paths); }), expectedLog);

    QStringList arrived = trash.entryList(QDir::AllEntries | QDir::NoDotAndDotDot);
    for (const QString& name : trashBefore) {
        arrived.removeOne(name);
    }
    QStringList expectedArrivals = trashed;
    for (const QString& name : missing) {
        expectedArrivals.removeOne(name);
    }
    arrived.sort();
    expectedArrivals.sort();
    QCOMPARE(arrived, expectedArrivals);
    for (const QString& path : created) {
        const bool wasTrashed = trashed.contains(path.section(QLatin1Char('/'), 0, 0));
        QCOMPARE(QFile::exists(work.filePath(path)), !wasTrashed);
        if (wasTrashed) {
            QFile moved(trash.filePath(path));
            QVERIFY2(moved.open(QIODevice::ReadOnly), qPrintable(path));
            QCOMPARE(moved.readAll(), path.toUtf8());
        }
    }
}

void TestSystemServices::shellCommandRunsInUsersShell_data() {
    QTest::addColumn<QString>("shell");
    QTest::addColumn<QString>("program");
    QTest::addColumn<bool>("login");
    QTest::newRow("bash") << "/bin/bash"
                          << "/bin/bash" << true;
    QTest::newRow("zsh") << "/usr/bin/zsh"
                         << "/usr/bin/zsh" << true;
    QTest::newRow("sh") << "/bin/sh"
                        << "/bin/sh" << false;
    QTest::newRow("restricted bash") << "/bin/rbash"
                                     << "/bin/rbash" << false;
    QTest::newRow("fish") << "/usr/bin/fish"
                          << "/usr/bin/fish" << false;
    QTest::newRow("unset") << QString() << "/bin/bash" << true;
}

void TestSystemServices::shellCommandRunsInUsersShell() {
    QFETCH(QString, shell);
    QFETCH(QString, program);
    QFETCH(bool, login);
    if (shell.isNull()) {
        qunsetenv("SHELL");
    } else {
        qputenv("SHELL", shell.toLocal8Bit());
    }
    const QString command = QStringLiteral("cd \"$HOME\" && ls -l; echo 'done'");

    QObject parent;
    QProcess* process = createProcessExecutingShellCommand(command, &parent);
    QCOMPARE(process->parent(), &parent);
    QCOMPARE(process->state(), QProcess::NotRunning);
    QCOMPARE(process->program(), program);
    QStringList expected{QStringLiteral("-c"), command};
    if (login) {
        expected.prepend(QStringLiteral("-l"));
    }
    QCOMPARE(process->arguments(), expected);
}

void TestSystemServices::unansweredShortcutsListIsEmpty_data() {
    QTest::addColumn<bool>("hangs");
    QTest::newRow("tool hangs") << true;
    QTest::newRow("tool cannot start") << false;
}

void TestSystemServices::unansweredShortcutsListIsEmpty() {
    QFETCH(bool, hangs);
    if (hangs) {
        replaceShortcutsTool(QStringLiteral("exec sleep 600"));
    } else {
        replaceSystemProgramForTesting(shortcutsProgram,
                                       ProgramInvocation{tempPath(QStringLiteral("no-such-tool")), {}});
    }
    ProcessDeletions deletions;
    QTest::ignoreMessage(QtDebugMsg, "Error: attempt to get current Shortcuts timed out");
    QCOMPARE(getMacOSShortcuts(300), QStringList());
    // The abandoned process object goes once the process has ended.
    QTRY_COMPARE_WITH_TIMEOUT(deletions.count, 1, processTimeout);
}

void TestSystemServices::shortcutsListIsReadAndKept() {
    const QString output = tempPath(QStringLiteral("shortcuts.out"));
    writeFile(output, QByteArray("Morning routine\n\nBack up photos\n\n\n\xc3\x9c"
                                 "berweisung senden\n") +
                          '\0' + "Hidden after the zero byte\n");
    replaceShortcutsTool(QStringLiteral("[ \"$*\" = list ] && cat '%1'").arg(output));
    const QStringList expected{"Morning routine", "Back up photos",
                               QString::fromUtf8("\xc3\x9c"
                                                 "berweisung senden")};

    const int runsBefore = runCount();
    QCOMPARE(getMacOSShortcuts(processTimeout), expected);
    QCOMPARE(runCount(), runsBefore + 1);
    writeFile(output, "Evening\n");
    QCOMPARE(getMacOSShortcuts(processTimeout), expected);
    QCOMPARE(runCount(), runsBefore + 1);

    // Past its lifetime the list is read again.
    QTest::qWait(3200);
    QCOMPARE(getMacOSShortcuts(processTimeout), QStringList{"Evening"});
    QCOMPARE(runCount(), runsBefore + 2);
}

void TestSystemServices::shortcutProcessIsConfigured() {
    QObject parent;
    QProcess* process = createProcessExecutingMacOSShortcut(QStringLiteral("Morning routine"), &parent);
    QVERIFY(process);
    QCOMPARE(process->parent(), &parent);
    QCOMPARE(process->state(), QProcess::NotRunning);
    QCOMPARE(process->program(), shortcutsProgram);
    QCOMPARE(process->arguments(), QStringList({"run", "Morning routine"}));

    // The replacement reads its input to the end: with the null device that end comes at once.
    replaceShortcutsTool(QStringLiteral("cat; printf '%s\\n' \"$@\""));
    QProcess* replaced = createProcessExecutingMacOSShortcut(QStringLiteral("Morning routine"), &parent);
    replaced->start();
    QVERIFY(replaced->waitForFinished(processTimeout));
    QCOMPARE(replaced->readAllStandardOutput(), QByteArray("run\nMorning routine\n"));
}

void TestSystemServices::shortcutsNeedMonterey() {
    if (isClosedGateChild()) {
        // This process never opened the gate, so the platform's own version holds.
        replaceShortcutsTool(QStringLiteral("echo Morning routine"));
        QTest::ignoreMessage(QtDebugMsg,
                             "Error: attempting to get macOS Shortcuts in unsupported macOS version");
        QCOMPARE(getMacOSShortcuts(processTimeout), QStringList());
        QTest::ignoreMessage(QtDebugMsg,
                             "Error: attempting to run macOS Shortcut in unsupported macOS version");
        QObject parent;
        QCOMPARE(createProcessExecutingMacOSShortcut(QStringLiteral("Morning routine"), &parent), nullptr);
        QVERIFY(parent.children().isEmpty());
        QCOMPARE(runCount(), 0);
        QVERIFY(!isMontereyOrLater());
        return;
    }

    QProcess child;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QString::fromLatin1(kClosedGateChild), QStringLiteral("1"));
    child.setProcessEnvironment(environment);
    child.setProcessChannelMode(QProcess::MergedChannels);
    child.start(QCoreApplication::applicationFilePath(), {QStringLiteral("shortcutsNeedMonterey")});
    QVERIFY(child.waitForFinished(processTimeout));
    const QString output = QString::fromUtf8(child.readAll());
    QVERIFY2(child.exitStatus() == QProcess::NormalExit && child.exitCode() == 0, qPrintable(output));
    QVERIFY2(output.contains("PASS   : TestSystemServices::shortcutsNeedMonterey()"), qPrintable(output));
}

UIET_TEST_MAIN(TestSystemServices)
#include "tst_systemServices.moc"
