// The install and the Debian package: the tool, its peer and the systemd user unit, with the unit
// naming the tool where this install put it. Installs the build tree into a private prefix, and
// packages it with CPack into a private directory.

#include "testSupport.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QTest>

namespace {

// Runs a program to its end; its output, with the status in `status`.
QByteArray run(const QString& program, const QStringList& arguments, int* status,
               const QString& directory = QString()) {
    QProcess process;
    process.setProcessChannelMode(QProcess::MergedChannels);
    if (!directory.isEmpty())
        process.setWorkingDirectory(directory);
    process.start(program, arguments);
    if (!process.waitForFinished(300000)) {
        *status = -1;
        return process.readAll();
    }
    *status = process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1;
    return process.readAll();
}

QByteArray unitOf(const QString& path) {
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

} // namespace

class tst_install : public QObject {
    Q_OBJECT

private slots:
    void installsTheToolThePeerAndTheUnit_data() {
        QTest::addColumn<QString>("prefix"); // below the temporary directory
        QTest::newRow("plain") << QStringLiteral("usr");
        QTest::newRow("with a blank") << QStringLiteral("opt/ui element tool");
    }
    void installsTheToolThePeerAndTheUnit() {
        QFETCH(QString, prefix);
        QTemporaryDir directory;
        QVERIFY(directory.isValid());
        const QString root = directory.filePath(prefix);
        int status = 0;
        const QByteArray output =
            run(QStringLiteral("cmake"), {"--install", UIET_BUILD_DIR, "--prefix", root}, &status);
        QVERIFY2(status == 0, output.constData());
        for (const char* program : {"bin/ui-element-tool", "bin/ui-element-ctl"}) {
            const QFileInfo installed(root + QLatin1Char('/') + QLatin1String(program));
            QVERIFY2(installed.isFile() && installed.isExecutable(), program);
        }
        // The installed peer runs: without arguments it prints its usage and refuses.
        const QByteArray usage = run(root + QStringLiteral("/bin/ui-element-ctl"), {}, &status);
        QCOMPARE(status, 2);
        QVERIFY(usage.contains("usage: ui-element-ctl"));

        const QByteArray unit = unitOf(root + QStringLiteral("/lib/systemd/user/ui-element-tool.service"));
        QVERIFY(!unit.isEmpty());
        // systemd splits a command line at blanks unless the word is quoted.
        const QString tool = root + QStringLiteral("/bin/ui-element-tool");
        const QString command =
            tool.contains(QLatin1Char(' ')) ? QLatin1Char('"') + tool + QLatin1Char('"') : tool;
        QVERIFY2(unit.contains("\nExecStart=" + command.toUtf8() + '\n'), unit.constData());
        QVERIFY(unit.contains("\n[Install]\nWantedBy=graphical-session.target\n"));
        QVERIFY(!unit.contains('@'));
    }

    void packagesTheSameForDebian() {
        QTemporaryDir directory;
        QVERIFY(directory.isValid());
        int status = 0;
        QByteArray output = run(QStringLiteral("cpack"), {"-G", "DEB", "-B", directory.path()}, &status,
                                QStringLiteral(UIET_BUILD_DIR));
        QVERIFY2(status == 0, output.constData());
        const QStringList packages = QDir(directory.path()).entryList({QStringLiteral("*.deb")}, QDir::Files);
        QCOMPARE(packages.size(), 1);
        const QString package = directory.filePath(packages.first());

        output = run(QStringLiteral("dpkg-deb"), {"--contents", package}, &status);
        QCOMPARE(status, 0);
        for (const char* path : {"./usr/bin/ui-element-tool", "./usr/bin/ui-element-ctl",
                                 "./usr/lib/systemd/user/ui-element-tool.service"})
            QVERIFY2(output.contains(path), output.constData());

        output = run(QStringLiteral("dpkg-deb"), {"--field", package, "Package", "Depends"}, &status);
        QCOMPARE(status, 0);
        QVERIFY(output.startsWith("Package: ui-element-tool\n"));
        // The libraries the programs link, found by the packaging, Qt's among them.
        QVERIFY2(QRegularExpression(QStringLiteral("Depends: .*libqt6core6"))
                     .match(QString::fromUtf8(output))
                     .hasMatch(),
                 output.constData());

        QTemporaryDir unpacked;
        QVERIFY(unpacked.isValid());
        run(QStringLiteral("dpkg-deb"), {"--extract", package, unpacked.path()}, &status);
        QCOMPARE(status, 0);
        const QByteArray unit =
            unitOf(unpacked.filePath(QStringLiteral("usr/lib/systemd/user/ui-element-tool.service")));
        QVERIFY2(unit.contains("\nExecStart=/usr/bin/ui-element-tool\n"), unit.constData());
    }
};

QTEST_GUILESS_MAIN(tst_install)
#include "tst_install.moc"
