#include "files.h"

#include <QDebug>
#include <QFile>

QString sanitizeFileName(QString name) {
    // The two names that stand for directories may not name a file of their own.
    if (name == QLatin1String(".")) {
        return QStringLiteral("_");
    }
    if (name == QLatin1String("..")) {
        return QStringLiteral("__");
    }
    // "/" separates path components, and ":" did so in the Mac's older file interfaces.
    name.replace(QLatin1Char('/'), QLatin1Char('_'));
    name.replace(QLatin1Char(':'), QLatin1Char('_'));
    name.truncate(maximumFileNameLength());
    return name;
}

void moveToTrash(const QList<QString>& paths) {
    for (const QString& path : paths) {
        // The caller is not told; the line lets a person see what stayed in place.
        if (!QFile::moveToTrash(path)) {
            qDebug().noquote() << "Note: could not move to the trash:" << path;
        }
    }
}

QString getApplicationsFolder() {
#ifdef __APPLE__
    return QStringLiteral("/Applications");
#else
    // Where the desktop entries of installed applications live, which stand for their bundles.
    return QStringLiteral("/usr/share/applications");
#endif
}

QString nullFilePath() {
    return QStringLiteral("/dev/null");
}

int maximumFileNameLength() {
    return 255;
}

QSize messageBoxIconSize() {
    return QSize(64, 64);
}
