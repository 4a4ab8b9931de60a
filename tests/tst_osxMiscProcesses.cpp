// Processes of osxMisc against real processes: the parent of a process, the parent's identity,
// a restart through the shell from a path that needs quoting, and the modifier keys held down on a
// private X server.

#include "liveDesktopSession.h"
#include "osxMisc.h"
#include "testSupport.h"

#include <QDir>
#include <QFile>
#include <QProcess>

#include <climits>
#include <unistd.h>

// Xlib's macro None hides the enumerators of that name: these are named before Xlib comes in.
constexpr auto kNoBus = LiveDesktopSession::Bus::None;
constexpr auto kNoWindowManager = LiveDesktopSession::WindowManager::None;

#include <X11/Xlib.h>
#include <X11/extensions/XTest.h>
#include <X11/keysym.h>

namespace {

const char kRestartLogVariable[] = "UIET_TEST_RESTART_LOG";
const char kPrintParentVariable[] = "UIET_TEST_PRINT_PARENT";

QStringList linesOf(const QString& path) {
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return {};
    return QString::fromUtf8(file.readAll()).split(u'\n', Qt::SkipEmptyParts);
}

bool isRunning(const QString& pid) {
    QFile status("/proc/" + pid + "/status");
    if (!status.open(QIODevice::ReadOnly))
        return false;
    for (const QByteArray& line : status.readAll().split('\n')) {
        if (line.startsWith("State:"))
            return !line.mid(6).trimmed().startsWith('Z') && !line.mid(6).trimmed().startsWith('X');
    }
    return false;
}

// The program in its helper modes. Restart: the first start notes its pid and restarts; the
// second notes its pid and whether the first was gone by then.
int runHelper(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    if (qEnvironmentVariableIsSet(kPrintParentVariable)) {
        std::printf("%s\n", parentProcessIsQtCreator() ? "true" : "false");
        return 0;
    }
    const QString logPath = qEnvironmentVariable(kRestartLogVariable);
    const QStringList lines = linesOf(logPath);
    QFile log(logPath);
    if (!log.open(QIODevice::Append))
        return 1;
    const QString pid = QString::number(QCoreApplication::applicationPid());
    if (lines.isEmpty()) {
        log.write((pid + " first\n").toUtf8());
        log.close();
        restartApplicationAfterExit();
        return 0;
    }
    const QString first = lines[0].section(u' ', 0, 0);
    log.write((pid + (isRunning(first) ? " during\n" : " after\n")).toUtf8());
    return 0;
}

} // namespace

class tst_OsxMiscProcesses : public QObject {
    Q_OBJECT

private slots:
    void parentOfProcesses() {
        QCOMPARE(getParentProcessId(getpid()), int(getppid()));
        // A command name with spaces and parentheses in it must not shift the fields.
        const QString program = QDir::tempPath() + "/x) 1 2 (y";
        QVERIFY(QFile::copy("/bin/sleep", program));
        QProcess child;
        child.start(program, {"60"});
        QVERIFY(child.waitForStarted());
        QCOMPARE(getParentProcessId(int(child.processId())), int(getpid()));
        child.kill();
        child.waitForFinished();
    }

    void parentOfNoProcess_data() {
        QTest::addColumn<int>("pid");
        QTest::newRow("0") << 0;
        QTest::newRow("-1") << -1;
        QTest::newRow("beyond any pid") << INT_MAX;
    }
    void parentOfNoProcess() {
        QFETCH(int, pid);
        QCOMPARE(getParentProcessId(pid), 0);
    }

    // This test program is the parent of the helper; with a desktop entry of Qt Creator's id
    // whose program it is, it is Qt Creator.
    void parentIsQtCreator_data() {
        QTest::addColumn<bool>("withEntry");
        QTest::newRow("entry of Qt Creator") << true;
        QTest::newRow("no entry") << false;
    }
    void parentIsQtCreator() {
        QFETCH(bool, withEntry);
        const QString data = QDir::tempPath() + (withEntry ? "/withEntry" : "/withoutEntry");
        QVERIFY(QDir().mkpath(data + "/applications"));
        if (withEntry) {
            QFile entry(data + "/applications/org.qt-project.qtcreator.desktop");
            QVERIFY(entry.open(QIODevice::WriteOnly));
            entry.write("[Desktop Entry]\nType=Application\nName=Qt Creator\nExec=" +
                        QFileInfo(QCoreApplication::applicationFilePath()).fileName().toUtf8() + " %F\n");
        }
        QProcess helper;
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.insert(kPrintParentVariable, "1");
        env.insert("XDG_DATA_DIRS", data);
        env.insert("XDG_DATA_HOME", data + "/home");
        helper.setProcessEnvironment(env);
        helper.start(QCoreApplication::applicationFilePath());
        QVERIFY(helper.waitForFinished(60000));
        QCOMPARE(helper.readAllStandardOutput().trimmed(),
                 withEntry ? QByteArray("true") : QByteArray("false"));
    }

    // The program is a copy at a path with both kinds of quote and a "$" in it; the shell must
    // start it again, and only after the first run has ended.
    void restartAfterExit() {
        const QString folder = QDir::tempPath() + "/it's \"here\" $HOME";
        QVERIFY(QDir().mkpath(folder));
        const QString program = folder + "/tavel 'copy'";
        QVERIFY(QFile::copy(QCoreApplication::applicationFilePath(), program));
        const QString logPath = QDir::tempPath() + "/restarts";
        QProcess first;
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.insert(kRestartLogVariable, logPath);
        first.setProcessEnvironment(env);
        first.start(program);
        QVERIFY(first.waitForStarted());
        const QString firstPid = QString::number(first.processId());
        QVERIFY(first.waitForFinished(60000));
        QCOMPARE(first.exitCode(), 0);
        QVERIFY(QTest::qWaitFor([&] { return linesOf(logPath).size() >= 2; }, 120000));
        const QStringList lines = linesOf(logPath);
        QCOMPARE(lines.size(), 2);
        QCOMPARE(lines[0], firstPid + " first");
        QVERIFY(lines[1].endsWith(" after"));
        QVERIFY(lines[1].section(u' ', 0, 0) != firstPid);
    }
};

// The modifier keys, pressed through XTEST on a private X server with a keymap that has the
// third level on Right Alt.
class tst_NativeModifiers : public QObject {
    Q_OBJECT

    std::unique_ptr<LiveDesktopSession> session;
    Display* x = nullptr;

    void press(const QList<KeySym>& keys, bool down) {
        for (KeySym key : keys)
            XTestFakeKeyEvent(x, XKeysymToKeycode(x, key), down, CurrentTime);
        XSync(x, False);
    }

    // The modifier index that a key is bound to; -1 when none.
    int modifierOf(KeySym key) {
        XModifierKeymap* map = XGetModifierMapping(x);
        const KeyCode code = XKeysymToKeycode(x, key);
        int found = -1;
        for (int i = 0; i < 8 * map->max_keypermod; ++i) {
            if (map->modifiermap[i] == code)
                found = i / map->max_keypermod;
        }
        XFreeModifiermap(map);
        return found;
    }

private slots:
    void initTestCase() {
        session = std::make_unique<LiveDesktopSession>(kNoBus, kNoWindowManager);
        if (!session->isReady())
            QSKIP(qPrintable(session->skipReason()));
        session->applyToThisProcess();
        QCOMPARE(QProcess::execute("setxkbmap", {"-display", session->display(), "-layout", "us", "-option",
                                                 "lv3:ralt_switch"}),
                 0);
        x = XOpenDisplay(qPrintable(session->display()));
        QVERIFY(x);
        QVERIFY(XKeysymToKeycode(x, XK_ISO_Level3_Shift) != 0);
    }
    void cleanupTestCase() {
        if (x)
            XCloseDisplay(x);
        session.reset();
    }

    void heldModifiers_data() {
        QTest::addColumn<QList<KeySym>>("keys");
        QTest::addColumn<quint64>("flags");
        QTest::newRow("none") << QList<KeySym>() << quint64(0);
        QTest::newRow("shift") << QList<KeySym>{XK_Shift_L} << quint64(kCGEventFlagMaskShift);
        QTest::newRow("control") << QList<KeySym>{XK_Control_R} << quint64(kCGEventFlagMaskControl);
        QTest::newRow("super") << QList<KeySym>{XK_Super_L} << quint64(kCGEventFlagMaskCommand);
        QTest::newRow("third level") << QList<KeySym>{XK_ISO_Level3_Shift}
                                     << quint64(kCGEventFlagMaskAlternate);
        QTest::newRow("alt") << QList<KeySym>{XK_Alt_L} << quint64(0);
        QTest::newRow("all") << QList<KeySym>{XK_Shift_R, XK_Control_L, XK_Super_L, XK_ISO_Level3_Shift,
                                              XK_Alt_L}
                             << quint64(kCGEventFlagMaskShift | kCGEventFlagMaskControl |
                                        kCGEventFlagMaskCommand | kCGEventFlagMaskAlternate);
    }
    void heldModifiers() {
        QFETCH(QList<KeySym>, keys);
        QFETCH(quint64, flags);
        press(keys, true);
        const CGEventFlags held = getCurrentNativeModifiers();
        press(keys, false);
        QCOMPARE(quint64(held), flags);
        QCOMPARE(quint64(getCurrentNativeModifiers()), quint64(0));
    }

    void capsLock() {
        press({XK_Caps_Lock}, true);
        press({XK_Caps_Lock}, false);
        const CGEventFlags locked = getCurrentNativeModifiers();
        press({XK_Caps_Lock}, true);
        press({XK_Caps_Lock}, false);
        QCOMPARE(quint64(locked), quint64(kCGEventFlagMaskAlphaShift));
        QCOMPARE(quint64(getCurrentNativeModifiers()), quint64(0));
    }

    // Super moved from its usual modifier to another one is still Command.
    void superOnAnotherModifier() {
        const int usual = modifierOf(XK_Super_L);
        QVERIFY(usual >= Mod1MapIndex);
        const int moved = usual == Mod3MapIndex ? Mod2MapIndex : Mod3MapIndex;
        XModifierKeymap* map = XGetModifierMapping(x);
        const KeyCode code = XKeysymToKeycode(x, XK_Super_L);
        map = XDeleteModifiermapEntry(map, code, usual);
        map = XInsertModifiermapEntry(map, code, moved);
        QCOMPARE(XSetModifierMapping(x, map), int(MappingSuccess));
        XFreeModifiermap(map);
        XSync(x, False);
        QCOMPARE(modifierOf(XK_Super_L), moved);
        press({XK_Super_L}, true);
        const CGEventFlags held = getCurrentNativeModifiers();
        press({XK_Super_L}, false);
        QCOMPARE(quint64(held), quint64(kCGEventFlagMaskCommand));
    }
};

int main(int argc, char** argv) {
    if (qEnvironmentVariableIsSet(kRestartLogVariable) || qEnvironmentVariableIsSet(kPrintParentVariable))
        return runHelper(argc, argv);
    PrivateTempDir privateTempDir;
    QCoreApplication app(argc, argv);
    tst_OsxMiscProcesses processes;
    tst_NativeModifiers modifiers;
    QTEST_SET_MAIN_SOURCE_PATH
    return QTest::qExec(&processes, argc, argv) | QTest::qExec(&modifiers, argc, argv);
}
#include "tst_osxMiscProcesses.moc"
