#pragma once

// The file manager under Foundation's name, as far as the readers of bundles need it.

#include <QByteArray>
#include <QString>
#include <QStringList>

#include <optional>

class NSFileManager {
public:
    static NSFileManager* defaultManager();

    bool fileExistsAtPath(const QString& path) const;
    // Every file and folder below the folder, its subfolders too, each as a path relative to it,
    // in a stable order; symbolic links are not followed into. Empty for no folder.
    QStringList enumeratorAtPath(const QString& path) const;
    // The direct entries of a folder, as full paths; nullopt when it cannot be read.
    std::optional<QStringList> contentsOfDirectoryAtPath(const QString& path) const;
    // The bytes of the file; nullopt when it cannot be read or holds more than `largest` bytes,
    // also when it grows past that while it is read.
    std::optional<QByteArray> contentsAtPath(const QString& path, qint64 largest) const;

private:
    NSFileManager() = default;
};
