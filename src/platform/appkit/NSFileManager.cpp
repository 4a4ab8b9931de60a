#include "NSFileManager.h"

#include <QDir>
#include <QDirIterator>
#include <QFileInfo>

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
