// Processes by name over the process table: fake /proc roots written below the private TMPDIR, and
// the real /proc with a process of our own.

#include "osxProcesses.h"
#include "testSupport.h"

#include <QDir>
#include <QFile>
#include <QProcess>
#include <QScopeGuard>
#include <QTemporaryDir>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <unistd.h>
#include <vector>

namespace {

QByteArray statusWithUid(uint uid) {
    const QByteArray id = QByteArray::number(uid);
    return "Name:\tx\nUmask:\t0022\nState:\tS (sleeping)\nPid:\t1\nUid:\t" + id + "\t" + id + "\t" + id +
           "\t" + id + "\nGid:\t100\t100\t100\t100\n";
}

// The fake table of the lookups: directory, comm and the status file's real user id, where -1
// leaves the status file out and -2 garbles it.
const struct {
    const char* dir;
    const char* comm;
    int uid;
} fakeProcesses[] = {{"0", "swapper", 0},      {"101", "gtk3-icon-brows", 1000},
                     {"102", "editor", 1000},  {"103", "editor", 0},
                     {"104", "editor", 1001},  {"105", "gtk3-icon", 1000},
                     {"30", "worker", 1000},   {"4", "worker", 1000},
                     {"200", "worker", 1000},  {"self", "stray", 1000},
                     {"12a", "stray", 1000},   {"106", "no-status", -1},
                     {"107", "bad-status", -2}};

} // namespace

class TestOsxProcesses : public QObject {
    Q_OBJECT

    std::unique_ptr<QTemporaryDir> root;

    // One process directory of the fake root; a null status leaves that file out.
    void addProcess(const QString& dir, const QByteArray& comm, const QByteArray& status) {
        QVERIFY(QDir(root->path()).mkpath(dir));
        QFile commFile(root->filePath(dir + "/comm"));
        QVERIFY(commFile.open(QIODevice::WriteOnly));
        commFile.write(comm + "\n");
        if (status.isNull())
            return;
        QFile statusFile(root->filePath(dir + "/status"));
        QVERIFY(statusFile.open(QIODevice::WriteOnly));
        statusFile.write(status);
    }

    void useFakeTable() {
        for (const auto& process : fakeProcesses)
            addProcess(process.dir, process.comm,
                       process.uid == -1   ? QByteArray()
                       : process.uid == -2 ? QByteArray("Name:\tbad-status\nUid:\tnobody\n")
                                           : statusWithUid(uint(process.uid)));
        setProcessTableRootForTesting(root->path());
    }

private Q_SLOTS:
    void init() {
        root = std::make_unique<QTemporaryDir>();
        QVERIFY(root->isValid());
    }

    void cleanup() {
        setProcessTableRootForTesting(std::nullopt);
        root.reset();
    }

    void parseEntry_data() {
        QTest::addColumn<QByteArray>("comm");
        QTest::addColumn<QByteArray>("status");
        QTest::addColumn<bool>("parsed");
        QTest::addColumn<QByteArray>("name");
        QTest::addColumn<uint>("uid");
        const QByteArray status = statusWithUid(1000);
        QTest::newRow("plain") << QByteArray("bash\n") << status << true << QByteArray("bash") << 1000u;
        QTest::newRow("cut to 15") << QByteArray("gtk3-icon-browser\n") << status << true
                                   << QByteArray("gtk3-icon-brows") << 1000u;
        QTest::newRow("the real id is the first")
            << QByteArray("su") << QByteArray("Uid:\t1000\t0\t0\t0\n") << true << QByteArray("su") << 1000u;
        QTest::newRow("blanks, no line feed")
            << QByteArray("a") << QByteArray("Uid: 42 42 42 42") << true << QByteArray("a") << 42u;
        QTest::newRow("largest id") << QByteArray("a") << QByteArray("Uid:\t4294967295\n") << true
                                    << QByteArray("a") << 4294967295u;
        QTest::newRow("id too large")
            << QByteArray("a") << QByteArray("Uid:\t4294967296\n") << false << QByteArray() << 0u;
        QTest::newRow("garbled id") << QByteArray("a") << QByteArray("Uid:\t12ab\t0\n") << false
                                    << QByteArray() << 0u;
        QTest::newRow("no Uid line") << QByteArray("a") << QByteArray("Name:\ta\nRUid:\t5\nGid:\t5\n")
                                     << false << QByteArray() << 0u;
        QTest::newRow("empty name") << QByteArray("\n") << status << false << QByteArray() << 0u;
    }

    void parseEntry() {
        QFETCH(QByteArray, comm);
        QFETCH(QByteArray, status);
        QFETCH(bool, parsed);
        kinfo_proc entry;
        std::memset(&entry, 0x55, sizeof entry);
        QCOMPARE(parseProcessEntry(comm, status, &entry), parsed);
        if (!parsed)
            return;
        QCOMPARE(entry.kp_proc.p_comm[MAXCOMLEN], '\0');
        QTEST(QByteArray(entry.kp_proc.p_comm), "name");
        QTEST(uint(entry.kp_eproc.e_pcred.p_ruid), "uid");
    }

    void lookups_data() {
        QTest::addColumn<QByteArray>("name");
        QTest::addColumn<int>("uid"); // -1: any user
        QTest::addColumn<QList<int>>("pids");
        QTest::newRow("full name of a cut one") << QByteArray("gtk3-icon-browser") << -1 << QList<int>{101};
        QTest::newRow("cut name") << QByteArray("gtk3-icon-brows") << -1 << QList<int>{101};
        QTest::newRow("shorter name, not its prefix") << QByteArray("gtk3-icon") << -1 << QList<int>{105};
        QTest::newRow("a prefix only") << QByteArray("edit") << -1 << QList<int>{};
        QTest::newRow("all users") << QByteArray("editor") << -1 << QList<int>{102, 103, 104};
        QTest::newRow("one user") << QByteArray("editor") << 1001 << QList<int>{104};
        QTest::newRow("root") << QByteArray("editor") << 0 << QList<int>{103};
        QTest::newRow("user without it") << QByteArray("editor") << 4242 << QList<int>{};
        QTest::newRow("pid order") << QByteArray("worker") << -1 << QList<int>{4, 30, 200};
        QTest::newRow("pid 0") << QByteArray("swapper") << -1 << QList<int>{};
        QTest::newRow("not numeric") << QByteArray("stray") << -1 << QList<int>{};
        QTest::newRow("no status") << QByteArray("no-status") << -1 << QList<int>{};
        QTest::newRow("garbled status") << QByteArray("bad-status") << -1 << QList<int>{};
    }

    void lookups() {
        QFETCH(QByteArray, name);
        QFETCH(int, uid);
        QFETCH(QList<int>, pids);
        useFakeTable();
        QList<int> found{999, 998}; // a table with entries replaces what was there
        if (uid < 0) {
            QCOMPARE(getPIDForProcessName(name.constData()), pids.value(0, -1));
            getAllPIDsForProcessName(found, name.constData());
        } else {
            QCOMPARE(getPIDForProcessNameRunByUser(name.constData(), uint(uid)), pids.value(0, -1));
            getAllPIDsForProcessNameRunByUser(found, name.constData(), uint(uid));
        }
        QCOMPARE(found, pids);
    }

    void currentUser() {
        addProcess("9", "editor", statusWithUid(getuid()));
        addProcess("7", "editor", statusWithUid(getuid() + 1));
        addProcess("8", "editor", statusWithUid(getuid()));
        setProcessTableRootForTesting(root->path());
        QCOMPARE(getPIDForProcessNameRunByCurrentUser("editor"), 8);
        QList<int> found;
        getAllPIDsForProcessNameRunByCurrentUser(found, "editor");
        QCOMPARE(found, (QList<int>{8, 9}));
    }

    void unreadableOrEmptyTable_data() {
        QTest::addColumn<QString>("rootName");
        QTest::addColumn<bool>("onlyStrays");
        QTest::addColumn<int>("result");
        QTest::addColumn<int>("error");
        QTest::newRow("missing") << "missing" << false << -3 << ENOENT;
        QTest::newRow("a file") << "stray/comm" << true << -3 << ENOTDIR;
        QTest::newRow("empty") << "." << false << 0 << 0;
        QTest::newRow("no processes") << "." << true << 0 << 0;
    }

    void unreadableOrEmptyTable() {
        QFETCH(QString, rootName);
        QFETCH(bool, onlyStrays);
        QFETCH(int, result);
        if (onlyStrays) {
            addProcess("stray", "editor", statusWithUid(1000));
            addProcess("12", "editor", QByteArray());
        }
        setProcessTableRootForTesting(root->filePath(rootName));
        kinfo_proc* list = nullptr;
        unsigned int count = 77;
        int error = -1;
        QCOMPARE(getInfoForAllProcesses(&list, &count, &error), result);
        std::free(list);
        QTEST(error, "error");
        QCOMPARE(count, result == 0 ? 0u : 77u);

        QCOMPARE(getPIDForProcessName("editor"), -1);
        QCOMPARE(getPIDForProcessNameRunByUser("editor", 1000), -1);
        QCOMPARE(getPIDForProcessNameRunByCurrentUser("editor"), -1);
        const QList<int> old{3, 1, 2};
        QList<int> pids = old;
        getAllPIDsForProcessName(pids, "editor");
        getAllPIDsForProcessNameRunByUser(pids, "editor", 1000);
        getAllPIDsForProcessNameRunByCurrentUser(pids, "editor");
        QCOMPARE(pids, old);
    }

    void nullArguments() {
        kinfo_proc* list = nullptr;
        unsigned int count = 0;
        int error = 77;
        QCOMPARE(getInfoForAllProcesses(nullptr, &count, &error), -2);
        QCOMPARE(getInfoForAllProcesses(&list, nullptr, &error), -2);
        QCOMPARE(error, 77);
        QCOMPARE(getInfoForAllProcesses(&list, &count, nullptr), 0); // error is optional
        QVERIFY(count > 0);
        std::free(list);
    }

    void sysctlAnswers_data() {
        QTest::addColumn<QList<int>>("name");
        QTest::addColumn<bool>("setting");
        QTest::addColumn<int>("bufferEntries"); // -1: no buffer, the size is asked
        QTest::addColumn<int>("error");         // 0: success
        const QList<int> table{CTL_KERN, KERN_PROC, KERN_PROC_ALL};
        QTest::newRow("size") << table << false << -1 << 0;
        QTest::newRow("exact buffer") << table << false << 3 << 0;
        QTest::newRow("larger buffer") << table << false << 5 << 0;
        QTest::newRow("buffer too small") << table << false << 2 << ENOMEM;
        QTest::newRow("empty buffer") << table << false << 0 << ENOMEM;
        QTest::newRow("setting") << table << true << 3 << EPERM;
        QTest::newRow("by pid") << QList<int>{CTL_KERN, KERN_PROC, 1, 1} << false << 3 << ENOTSUP;
        QTest::newRow("short name") << QList<int>{CTL_KERN, KERN_PROC} << false << 3 << ENOTSUP;
        QTest::newRow("other subtree") << QList<int>{2, KERN_PROC, KERN_PROC_ALL} << false << -1 << ENOTSUP;
    }

    void sysctlAnswers() {
        QFETCH(QList<int>, name);
        QFETCH(bool, setting);
        QFETCH(int, bufferEntries);
        QFETCH(int, error);
        for (const char* pid : {"1", "2", "3"})
            addProcess(pid, "p", statusWithUid(1000));
        setProcessTableRootForTesting(root->path());
        std::vector<kinfo_proc> buffer(size_t(std::max(bufferEntries, 1))); // never null, even when empty
        size_t size = size_t(std::max(bufferEntries, 0)) * sizeof(kinfo_proc);
        int value = 1;
        errno = 0;
        const int result = sysctl(name.data(), uint(name.size()), bufferEntries < 0 ? nullptr : buffer.data(),
                                  &size, setting ? &value : nullptr, setting ? sizeof value : 0);
        QCOMPARE(errno, error);
        QCOMPARE(result, error ? -1 : 0);
        if (error)
            return;
        QCOMPARE(size, 3 * sizeof(kinfo_proc));
        if (bufferEntries >= 0)
            QCOMPARE(buffer[2].kp_proc.p_pid, 3);
    }

    // A process of our own under a long name, unique to this run in the part that the kernel keeps.
    void aRealProcess() {
        const QByteArray name = "uiet-" + QByteArray::number(getpid()) + "-sleeper-with-a-long-name";
        const QString program = QDir::temp().filePath(QString::fromLatin1(name));
        QVERIFY(QFile::copy(QStringLiteral("/bin/sleep"), program));
        QProcess sleeper;
        sleeper.start(program, {QStringLiteral("600")});
        QVERIFY2(sleeper.waitForStarted(), qPrintable(sleeper.errorString()));
        const auto stop = qScopeGuard([&sleeper] {
            sleeper.kill();
            sleeper.waitForFinished();
        });
        const int pid = int(sleeper.processId());

        QCOMPARE(getPIDForProcessName(name.constData()), pid);
        QCOMPARE(getPIDForProcessName(name.left(MAXCOMLEN).constData()), pid);
        QCOMPARE(getPIDForProcessNameRunByCurrentUser(name.constData()), pid);
        QCOMPARE(getPIDForProcessNameRunByUser(name.constData(), getuid() + 1), -1);
        QList<int> pids;
        getAllPIDsForProcessNameRunByCurrentUser(pids, name.constData());
        QCOMPARE(pids, QList<int>{pid});
        getAllPIDsForProcessNameRunByUser(pids, name.constData(), getuid() + 1);
        QCOMPARE(pids, QList<int>{});
    }
};

UIET_TEST_MAIN(TestOsxProcesses)
#include "tst_osxProcesses.moc"
