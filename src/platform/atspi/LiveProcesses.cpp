#include "LiveProcesses.h"

#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QFileInfo>
#include <QHash>
#include <QMutex>
#include <QProcess>
#include <QStandardPaths>

namespace {

// The program of an Exec line: its first word, past "env" and its assignments.
QString programOfExecLine(const QString& exec) {
    const QStringList words = QProcess::splitCommand(exec);
    qsizetype i = 0;
    if (i < words.size() && QFileInfo(words[i]).fileName() == QLatin1String("env")) {
        ++i;
        while (i < words.size() && words[i].contains(u'=') && !words[i].startsWith(u'-'))
            ++i;
    }
    return i < words.size() ? QFileInfo(words[i]).fileName() : QString();
}

bool readDesktopEntry(const QString& path, DesktopEntry* entry, QString* program) {
    QFile file(path);
    return file.open(QIODevice::ReadOnly) && parseDesktopEntry(file.readAll(), entry, program);
}

QHash<QString, DesktopEntry> readAllDesktopEntries() {
    QHash<QString, DesktopEntry> byProgram;
    // Earlier directories take precedence, as do the first entries found for a program.
    for (const QString& directory : QStandardPaths::standardLocations(QStandardPaths::ApplicationsLocation)) {
        QDirIterator files(directory, {QStringLiteral("*.desktop")}, QDir::Files,
                           QDirIterator::Subdirectories);
        while (files.hasNext()) {
            const QString path = files.next();
            DesktopEntry entry;
            QString program;
            if (!readDesktopEntry(path, &entry, &program) || byProgram.contains(program))
                continue;
            entry.id =
                QDir(directory).relativeFilePath(path).chopped(int(qstrlen(".desktop"))).replace(u'/', u'-');
            byProgram.insert(program, entry);
        }
    }
    return byProgram;
}

} // namespace

bool parseDesktopEntry(const QByteArray& content, DesktopEntry* entry, QString* program) {
    bool inMainGroup = false;
    QString exec, tryExec;
    for (const QByteArray& rawLine : content.split('\n')) {
        const QString line = QString::fromUtf8(rawLine).trimmed();
        if (line.startsWith(u'[')) {
            inMainGroup = line == QLatin1String("[Desktop Entry]");
            continue;
        }
        const qsizetype equals = line.indexOf(u'=');
        if (!inMainGroup || equals <= 0)
            continue;
        const QString key = line.left(equals).trimmed();
        const QString value = line.mid(equals + 1).trimmed();
        if (key == QLatin1String("Name"))
            entry->name = value;
        else if (key == QLatin1String("Exec"))
            exec = value;
        else if (key == QLatin1String("TryExec"))
            tryExec = value;
    }
    *program = tryExec.isEmpty() ? programOfExecLine(exec) : QFileInfo(tryExec).fileName();
    return !program->isEmpty();
}

DesktopEntry desktopEntryForProgram(const QString& programFileName) {
    static QMutex mutex;
    static QHash<QString, DesktopEntry> entries;
    static bool read = false;
    QMutexLocker locker(&mutex);
    if (!read) {
        entries = readAllDesktopEntries();
        read = true;
    }
    return entries.value(programFileName);
}

ApplicationInfo describeLiveProcess(pid_t pid, const QString& accessibleName) {
    ApplicationInfo info;
    info.pid = pid;
    QString executable = QFileInfo(QStringLiteral("/proc/%1/exe").arg(pid)).symLinkTarget();
    executable.remove(QLatin1String(" (deleted)"));
    info.executablePath = executable;
    const QString program = QFileInfo(executable).fileName();
    const DesktopEntry entry = desktopEntryForProgram(program);
    info.bundleIdentifier = entry.id.isEmpty() ? program : entry.id;
    info.name = !entry.name.isEmpty() ? entry.name : !accessibleName.isEmpty() ? accessibleName : program;
    return info;
}
