#include "NSFileManager.h"

#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QFileInfo>

#include <algorithm>

NSFileManager* NSFileManager::defaultManager() {
    static NSFileManager manager;
    return &manager;
}

bool NSFileManager::fileExistsAtPath(const QString& path) const {
    return QFileInfo::exists(path);
}

QStringList NSFileManager::enumeratorAtPath(const QString& path) const {
    QStringList relative;
    if (!QFileInfo(path).isDir())
        return relative;
    const QDir root(path);
    QDirIterator entries(path, QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden | QDir::System,
                         QDirIterator::Subdirectories);
    while (entries.hasNext())
        relative.append(root.relativeFilePath(entries.next()));
    relative.sort();
    return relative;
}

std::optional<QStringList> NSFileManager::contentsOfDirectoryAtPath(const QString& path) const {
    const QDir dir(path);
    if (!dir.exists() || !dir.isReadable())
        return std::nullopt;
    QStringList entries;
    for (const QString& name :
         dir.entryList(QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden | QDir::System, QDir::Name))
        entries.append(dir.filePath(name));
    return entries;
}

std::optional<QByteArray> NSFileManager::contentsAtPath(const QString& path, qint64 largest) const {
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly) || file.size() > largest)
        return std::nullopt;
    // The size can change, or be unknown (as for special files), between the check and the read;
    // reading in steps also keeps QIODevice::read from allocating the whole limit each time.
    QByteArray data;
    while (data.size() <= largest) {
        const QByteArray part = file.read(
            std::min(largest + 1 - data.size(), std::max(file.bytesAvailable(), qint64(64 * 1024))));
        if (part.isEmpty())
            break;
        data += part;
    }
    if (data.size() > largest || file.error() != QFileDevice::NoError)
        return std::nullopt;
    return data;
}
