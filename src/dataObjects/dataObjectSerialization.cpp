#include "dataObjectSerialization.h"

#include <QCoreApplication>
#include <QDebug>
#include <QDir>
#include <QFile>
#include <QMetaProperty>
#include <QRegularExpression>
#include <QSettings>
#include <QStandardPaths>
#include <QUuid>

#include <atomic>

QString getTemporaryFilePath() {
    static const QString uuidString =
        QUuid::createUuid().toString().remove(QRegularExpression(QStringLiteral("[^a-zA-Z0-9_]")));
    static const QString appName =
        QCoreApplication::applicationName().replace(QLatin1Char(' '), QLatin1Char('_'));
    static std::atomic<quint64> counter{1};
    const QString name = QStringLiteral("%1_%2_%3_%4")
                             .arg(appName)
                             .arg(QCoreApplication::applicationPid())
                             .arg(counter.fetch_add(1))
                             .arg(uuidString);
    return QDir(QStandardPaths::writableLocation(QStandardPaths::TempLocation)).filePath(name);
}

namespace {

// The file's state in the numbers of the data objects' error enumeration.
int settingsStatusToDataError(QSettings::Status status) {
    switch (status) {
    case QSettings::NoError:
        return 0;
    case QSettings::AccessError:
        return 2;
    case QSettings::FormatError:
        return 3;
    }
    return 1;
}

// Loads the plain-valued properties that the object's own class declares. Child objects and
// containers are not read yet: a start command's collection arrives empty.
void loadPlainProperties(QObject* object, const QSettings& settings) {
    const QMetaObject* meta = object->metaObject();
    for (int i = meta->propertyOffset(); i < meta->propertyCount(); ++i) {
        const QMetaProperty property = meta->property(i);
        if (property.metaType().flags() & QMetaType::PointerToQObject)
            continue;
        const QString key = QString::fromLocal8Bit(property.name());
        if (settings.contains(key))
            property.write(object, settings.value(key));
    }
}

} // namespace

void deserializeObjectFromByteArray(QObject* object, const QByteArray& data) {
    const QString path = getTemporaryFilePath();
    {
        QFile file(path);
        if (file.open(QIODevice::WriteOnly))
            file.write(data);
    }
    int status = 5; // the file could not be written, so it is missing
    if (QFile::exists(path)) {
        QSettings settings(path, QSettings::IniFormat);
        settings.sync();
        status = settingsStatusToDataError(settings.status());
        if (status == 0)
            loadPlainProperties(object, settings);
    }
    if (status != 0)
        qDebug() << "Error: failed to deserialize object from byte array. Error:" << status;
    QFile::remove(path);
}
