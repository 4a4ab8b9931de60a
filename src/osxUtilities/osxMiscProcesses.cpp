// Processes of osxMisc: the parent process, and a restart of this one.

#include "osxMisc.h"

#include "appkit/ProcessIdentity.h"

#include <QCoreApplication>
#include <QFile>
#include <QFileInfo>
#include <QProcess>

int getParentProcessId(int pid) {
    // /proc/PID/stat: "PID (COMM) STATE PPID ..."; the command name may hold spaces and
    // parentheses, so the fields are counted from its last ")".
    QFile stat(QStringLiteral("/proc/%1/stat").arg(pid));
    if (pid <= 0 || !stat.open(QIODevice::ReadOnly))
        return 0;
    const QByteArray content = stat.readAll();
    const qsizetype nameEnd = content.lastIndexOf(')');
    if (nameEnd < 0)
        return 0;
    const QList<QByteArray> fields = content.mid(nameEnd + 1).simplified().split(' ');
    bool ok = false;
    const int parent = fields.size() >= 2 ? fields[1].toInt(&ok) : 0;
    return ok ? parent : 0;
}

// The parent's identity as the platform gives any running application's: the id of the desktop
// entry of its executable ("org.qt-project.qtcreator" for Qt Creator's), else the executable's
// name.
bool parentProcessIsQtCreator() {
    const int parent = getParentProcessId(int(QCoreApplication::applicationPid()));
    if (parent == 0)
        return false;
    return bundleIdentifierOfProcess(parent) == QLatin1String("org.qt-project.qtcreator");
}

// The helper shell waits while this process runs; a process that has ended but is not yet
// reaped (state Z or X in /proc/PID/status) counts as gone. Debian's /bin/sh is dash, whose
// test knows no "==", and ps need not be installed, so /proc is asked directly; and the program
// is started by its path, as there is no "open".
void restartApplicationAfterExit() {
    const QString path = QFileInfo(QStringLiteral("/proc/self/exe")).canonicalFilePath();
    QString quotedPath = path;
    quotedPath.replace(QLatin1String("'"), QLatin1String("'\"'\"'"));
    quotedPath = QStringLiteral("'%1'").arg(quotedPath);
    const QString command =
        QStringLiteral(
            "while grep -qs '^State:[[:space:]]*[^ZX]' /proc/%1/status; do sleep 0.5; done; exec %2")
            .arg(QString::number(QCoreApplication::applicationPid()), quotedPath);
    QProcess::startDetached(QStringLiteral("/bin/sh"), {QStringLiteral("-c"), command});
}
