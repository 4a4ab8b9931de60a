#include "DesktopEntries.h"

#include <QDir>
#include <QDirIterator>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QHash>
#include <QMutex>
#include <QMutexLocker>
#include <QProcess>
#include <QSet>
#include <QStandardPaths>

#include <sys/stat.h>

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

enum class Reading { Application, Hidden, NotAnApplication };

Reading parseEntry(const QByteArray& content, DesktopEntry* entry) {
    bool inMainGroup = false;
    QString exec, tryExec, type;
    bool hidden = false;
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
        else if (key == QLatin1String("Icon"))
            entry->icon = value;
        else if (key == QLatin1String("X-GNOME-Gettext-Domain"))
            entry->gettextDomain = value;
        else if (key == QLatin1String("Type"))
            type = value;
        else if (key == QLatin1String("Hidden"))
            hidden = value == QLatin1String("true");
    }
    entry->program = tryExec.isEmpty() ? programOfExecLine(exec) : QFileInfo(tryExec).fileName();
    if (hidden)
        return Reading::Hidden;
    return !entry->program.isEmpty() && (type.isEmpty() || type == QLatin1String("Application"))
               ? Reading::Application
               : Reading::NotAnApplication;
}

Reading readEntryFile(const QString& path, DesktopEntry* entry) {
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return Reading::NotAnApplication;
    entry->path = path;
    return parseEntry(file.readAll(), entry);
}

QString idOfEntryFile(const QString& applicationsFolder, const QString& path) {
    return QDir(applicationsFolder)
        .relativeFilePath(path)
        .chopped(int(qstrlen(".desktop")))
        .replace(u'/', u'-');
}

// What the folders were when they were read: each folder (and those below it) with the time of
// its last change, in nanoseconds. Installing, removing or renaming an entry changes its folder.
QList<QPair<QString, qint64>> folderStamps(const QStringList& folders) {
    QList<QPair<QString, qint64>> stamps;
    const auto stamp = [&](const QString& folder) {
        struct stat status {};
        const QByteArray name = QFile::encodeName(folder);
        if (::stat(name.constData(), &status) == 0)
            stamps.append({folder, qint64(status.st_mtim.tv_sec) * 1000000000 + status.st_mtim.tv_nsec});
    };
    for (const QString& folder : folders) {
        stamp(folder);
        QDirIterator below(folder, QDir::Dirs | QDir::NoDotAndDotDot, QDirIterator::Subdirectories);
        while (below.hasNext())
            stamp(below.next());
    }
    return stamps;
}

class Index {
public:
    static Index& instance() {
        static Index index;
        return index;
    }

    // The entries, current within rescanIntervalMs.
    QList<DesktopEntry> entries() {
        QMutexLocker locker(&mutex);
        if (!lastLook.isValid() || lastLook.elapsed() >= rescanIntervalMs) {
            lastLook.start();
            const QStringList folders =
                QStandardPaths::standardLocations(QStandardPaths::ApplicationsLocation);
            auto stamps = folderStamps(folders);
            if (stamps != lastStamps || folders != lastFolders) {
                read = readAll(folders);
                lastStamps = std::move(stamps);
                lastFolders = folders;
            }
        }
        return read;
    }

    void forgetLastLook() {
        QMutexLocker locker(&mutex);
        lastLook.invalidate();
    }

private:
    static QList<DesktopEntry> readAll(const QStringList& folders) {
        QList<DesktopEntry> result;
        QSet<QString> ids;
        for (const QString& folder : folders) {
            QDirIterator files(folder, {QStringLiteral("*.desktop")}, QDir::Files,
                               QDirIterator::Subdirectories);
            QStringList paths;
            while (files.hasNext())
                paths.append(files.next());
            // The file system's order is arbitrary; a sorted one makes "the first entry" stable.
            paths.sort();
            for (const QString& path : std::as_const(paths)) {
                DesktopEntry entry;
                entry.id = idOfEntryFile(folder, path);
                if (ids.contains(entry.id))
                    continue;
                const Reading reading = readEntryFile(path, &entry);
                // A hidden entry hides its id in later directories too.
                if (reading != Reading::NotAnApplication)
                    ids.insert(entry.id);
                if (reading == Reading::Application)
                    result.append(entry);
            }
        }
        return result;
    }

    QMutex mutex;
    QElapsedTimer lastLook;
    QStringList lastFolders;
    QList<QPair<QString, qint64>> lastStamps;
    QList<DesktopEntry> read;
};

template <class Predicate> std::optional<DesktopEntry> firstEntry(Predicate wanted) {
    for (const DesktopEntry& entry : Index::instance().entries()) {
        if (wanted(entry))
            return entry;
    }
    return std::nullopt;
}

} // namespace

bool parseDesktopEntry(const QByteArray& content, DesktopEntry* entry) {
    return parseEntry(content, entry) == Reading::Application;
}

std::optional<DesktopEntry> desktopEntryWithId(const QString& id) {
    return firstEntry([&](const DesktopEntry& entry) { return entry.id == id; });
}

std::optional<DesktopEntry> desktopEntryForProgram(const QString& programFileName) {
    return firstEntry([&](const DesktopEntry& entry) { return entry.program == programFileName; });
}

std::optional<DesktopEntry> desktopEntryNamed(const QString& name) {
    if (name.isEmpty())
        return std::nullopt;
    if (auto byName = firstEntry(
            [&](const DesktopEntry& entry) { return entry.name.compare(name, Qt::CaseInsensitive) == 0; }))
        return byName;
    QString id = name;
    if (id.endsWith(QLatin1String(".desktop")))
        id.chop(int(qstrlen(".desktop")));
    return desktopEntryWithId(id);
}

std::optional<DesktopEntry> desktopEntryAtPath(const QString& path) {
    const QFileInfo info(path);
    if (!info.isFile() || info.suffix() != QLatin1String("desktop"))
        return std::nullopt;
    const QString canonical = info.canonicalFilePath();
    // An installed entry has the id of its place among the folders.
    if (auto installed = firstEntry([&](const DesktopEntry& entry) {
            return QFileInfo(entry.path).canonicalFilePath() == canonical;
        }))
        return installed;
    DesktopEntry entry;
    entry.id = info.completeBaseName();
    if (readEntryFile(path, &entry) != Reading::Application)
        return std::nullopt;
    return entry;
}

void rescanDesktopEntriesForTesting() {
    Index::instance().forgetLastLook();
}
