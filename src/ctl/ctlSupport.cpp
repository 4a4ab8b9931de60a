#include "ctlSupport.h"

#include "UIElement.h"
#include "dataObjectSerialization.h"

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QRegularExpression>
#include <QSize>

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

bool loadCollection(const QString& filePath, UIElementCollection& collection) {
    QByteArray saved;
    QString error;
    if (!readFile(filePath, saved, error)) {
        ctlFail(ctlExitUsage, error);
        return false;
    }
    deserializeObjectFromByteArray(&collection, saved);
    if (collection.elements().isEmpty()) {
        ctlFail(ctlExitUsage, QStringLiteral("%1 holds no UI element collection").arg(filePath));
        return false;
    }
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

bool takeValue(QStringList& arguments, qsizetype index, QString& value) {
    if (index + 1 >= arguments.size()) {
        ctlFail(ctlExitUsage, QStringLiteral("%1 needs a value").arg(arguments.at(index)));
        return false;
    }
    value = arguments.at(index + 1);
    arguments.remove(index, 2);
    return true;
}

bool readWholeNumber(const QString& text, int minimum, int maximum, int& number) {
    bool ok = false;
    number = text.toInt(&ok);
    return ok && number >= minimum && number <= maximum;
}

namespace {

bool isList(const QVariant& value) {
    return value.typeId() == QMetaType::QVariantList || value.typeId() == QMetaType::QStringList;
}

// The platform's null arrives as a null pointer: the attribute is there and holds nothing.
bool isPlatformNull(const QVariant& value) {
    return value.typeId() == QMetaType::VoidStar && !value.value<void*>();
}

} // namespace

QString rectText(const QRect& rect) {
    return QStringLiteral("%1,%2 %3x%4").arg(rect.x()).arg(rect.y()).arg(rect.width()).arg(rect.height());
}

QJsonObject rectJson(const QRect& rect) {
    return QJsonObject{{"x", rect.x()}, {"y", rect.y()}, {"width", rect.width()}, {"height", rect.height()}};
}

QString coordinatesText(const QPoint& point) {
    return QStringLiteral("%1,%2").arg(point.x()).arg(point.y());
}

QJsonObject pointJson(const QPoint& point) {
    return QJsonObject{{"x", point.x()}, {"y", point.y()}};
}

QString valueText(const QVariant& value) {
    if (!value.isValid())
        return QStringLiteral("(no value)");
    if (isPlatformNull(value))
        return QStringLiteral("null");
    if (isList(value)) {
        QStringList items;
        for (const QVariant& item : value.toList())
            items << valueText(item);
        return QLatin1Char('[') + items.join(QStringLiteral(", ")) + QLatin1Char(']');
    }
    switch (value.typeId()) {
    case QMetaType::QString:
        return QLatin1Char('"') + value.toString() + QLatin1Char('"');
    case QMetaType::QRect:
        return rectText(value.toRect());
    case QMetaType::QPoint:
        return coordinatesText(value.toPoint());
    case QMetaType::QSize:
        return QStringLiteral("%1x%2").arg(value.toSize().width()).arg(value.toSize().height());
    default:
        return value.toString();
    }
}

QJsonValue valueJson(const QVariant& value) {
    if (isPlatformNull(value))
        return QJsonValue(QJsonValue::Null);
    if (isList(value)) {
        QJsonArray items;
        for (const QVariant& item : value.toList())
            items.append(valueJson(item));
        return items;
    }
    switch (value.typeId()) {
    case QMetaType::QRect:
        return rectJson(value.toRect());
    case QMetaType::QPoint:
        return pointJson(value.toPoint());
    case QMetaType::QSize:
        return QJsonObject{{"width", value.toSize().width()}, {"height", value.toSize().height()}};
    default:
        break;
    }
    const QJsonValue converted = QJsonValue::fromVariant(value);
    // A type JSON has no form for still shows as its text.
    return converted.isNull() || converted.isUndefined() ? QJsonValue(value.toString()) : converted;
}
