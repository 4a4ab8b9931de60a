#pragma once

// Running ui-element-ctl from process-level tests, and the files that its verbs read and write.

#include "processSupport.h"

#include <QDir>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>

// One run of ui-element-ctl to its end.
struct CtlRun {
    int status = -1; // -1: it did not end
    QString output, errors;
    QJsonObject json() const { return QJsonDocument::fromJson(output.toUtf8()).object(); }
};

inline CtlRun runCtl(const QStringList& arguments) {
    Binary binary(UIET_CTL_PATH, arguments, QProcess::SeparateChannels);
    const bool ended = binary.finish();
    return CtlRun{ended ? binary.process.exitCode() : -1, binary.output(), binary.errorOutput()};
}

// A path in the test's private temporary directory.
inline QString tempPath(const QString& name) {
    return QDir::temp().filePath(name);
}

// The whole file; empty when it cannot be read.
inline QByteArray fileContent(const QString& path) {
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

// Replaces the file's content; a file that cannot be written ends the test program.
inline void writeFileContent(const QString& path, const QByteArray& content) {
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate) || file.write(content) != content.size())
        qFatal("cannot write %s", qPrintable(path));
}
