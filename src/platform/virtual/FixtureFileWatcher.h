#pragma once

// Tells when a fixture file may have changed. Editors and tests often save by writing a new file
// and renaming it over the old one; the watch on the old file dies with it, so the directory is
// watched too, and the file is watched again whenever it is back. Bursts of changes (a write in
// several pieces) are answered once, when they have settled.

#include <QObject>
#include <QString>

#include <functional>

class QFileSystemWatcher;
class QTimer;

class FixtureFileWatcher : public QObject {
public:
    FixtureFileWatcher(const QString& path, std::function<void()> changed);

private:
    void noticeChange();

    const QString path;
    const std::function<void()> changed;
    QFileSystemWatcher* watcher;
    QTimer* settle;
};
