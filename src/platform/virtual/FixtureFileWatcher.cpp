#include "FixtureFileWatcher.h"

#include <QFileInfo>
#include <QFileSystemWatcher>
#include <QTimer>

namespace {

// Long enough to let a writer finish, short enough that a test waiting for the reload hardly
// notices it.
constexpr int kSettleMs = 20;

} // namespace

FixtureFileWatcher::FixtureFileWatcher(const QString& path, std::function<void()> changed)
    : path(QFileInfo(path).absoluteFilePath()), changed(std::move(changed)),
      watcher(new QFileSystemWatcher(this)), settle(new QTimer(this)) {
    settle->setSingleShot(true);
    settle->setInterval(kSettleMs);
    connect(settle, &QTimer::timeout, this, [this] { this->changed(); });
    connect(watcher, &QFileSystemWatcher::fileChanged, this, &FixtureFileWatcher::noticeChange);
    connect(watcher, &QFileSystemWatcher::directoryChanged, this, &FixtureFileWatcher::noticeChange);
    watcher->addPath(QFileInfo(this->path).absolutePath());
    if (QFileInfo::exists(this->path))
        watcher->addPath(this->path);
}

void FixtureFileWatcher::noticeChange() {
    if (QFileInfo::exists(path) && !watcher->files().contains(path))
        watcher->addPath(path);
    settle->start();
}
