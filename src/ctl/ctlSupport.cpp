#include "ctlSupport.h"

#include <QFile>
#include <QJsonDocument>
#include <QRegularExpression>

#include <cstdio>

QTextStream& ctlOut() {
    static QTextStream stream(stdout);
    return stream;
}

QTextStream& ctlErr() {
    static QTextStream stream(stderr);
    return stream;
}

void ctlPrintAnswer(bool json, const QStringList& lines, const QJsonObject& object) {
    if (json)
        ctlOut() << QJsonDocument(object).toJson(QJsonDocument::Compact) << '\n';
    else
        for (const QString& line : lines)
            ctlOut() << line << '\n';
    ctlOut().flush();
}

int ctlFail(int status, const QString& text) {
    ctlErr() << "ui-element-ctl: " << text << '\n';
    ctlErr().flush();
    return status;
}

bool readFile(const QString& filePath, QByteArray& content, QString& error) {
    QFile file(filePath);
    if (!file.open(QIODevice::ReadOnly)) {
        error = QStringLiteral("cannot read %1: %2").arg(filePath, file.errorString());
        return false;
    }
    content = file.readAll();
    return true;
}

bool useDesktopFile(const QString& desktopFile) {
    if (desktopFile.isEmpty())
        return true;
    if (!QFile::exists(desktopFile)) {
        ctlFail(ctlExitUsage, QStringLiteral("no desktop file %1").arg(desktopFile));
        return false;
    }
    // Chosen once per process, at the first platform call: this comes before any.
    qputenv("UIET_ACCESSIBILITY", "virtual:" + QFile::encodeName(desktopFile));
    return true;
}

bool parseScreenPoint(const QString& text, QPointF& point) {
    static const QRegularExpression pattern(QStringLiteral("^(-?\\d+(?:\\.\\d+)?),(-?\\d+(?:\\.\\d+)?)$"));
    const QRegularExpressionMatch match = pattern.match(text);
    if (!match.hasMatch())
        return false;
    point = QPointF(match.captured(1).toDouble(), match.captured(2).toDouble());
    return qAbs(point.x()) <= maximumScreenCoordinate && qAbs(point.y()) <= maximumScreenCoordinate;
}

bool readScreenPoint(const QString& text, QPoint& point) {
    QPointF exact;
    if (!parseScreenPoint(text, exact)) {
        ctlFail(ctlExitUsage,
                QStringLiteral("the point must be X,Y in screen coordinates, not '%1' (each from -%2 to %2)")
                    .arg(text)
                    .arg(maximumScreenCoordinate, 0, 'f', 0));
        return false;
    }
    point = QPoint(int(exact.x()), int(exact.y()));
    return true;
}
