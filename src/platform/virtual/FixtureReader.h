#pragma once

// Reading the parts of a desktop fixture, with the place of every problem as a JSON path
// ("applications[2].windows[0].children[3]"). The first problem ends the reading; every read
// function answers false from then on, so that callers can simply stop.

#include "DesktopModel.h"

#include <QJsonObject>
#include <QJsonValue>
#include <QString>

#include <initializer_list>

namespace VirtualDesktopModel {

QString placeOfKey(const QString& place, const QString& key);
QString placeOfIndex(const QString& place, qsizetype index);

class FixtureReader {
public:
    // Records the problem (only the first) and answers false.
    bool fail(const QString& place, const QString& problem);
    bool failed() const { return !problemText.isEmpty(); }
    const QString& problemPlace() const { return place; }
    const QString& problem() const { return problemText; }

    bool readObject(const QJsonValue& value, const QString& place, QJsonObject* object);
    // Refuses keys that it does not know: a misspelt key would otherwise be silently ignored.
    bool checkKeys(const QJsonObject& object, const QString& place,
                   std::initializer_list<const char*> allowed);
    bool readInteger(const QJsonValue& value, const QString& place, qint64 minimum, qint64 maximum,
                     qint64* integer);
    // Finite numbers only.
    bool readNumber(const QJsonValue& value, const QString& place, double* number);
    bool readBoolean(const QJsonValue& value, const QString& place, bool* boolean);
    bool readString(const QJsonValue& value, const QString& place, QString* string);

    bool readPoint(const QJsonValue& value, const QString& place, CGPoint* point);
    // Sizes and rectangles have no negative extent.
    bool readSize(const QJsonValue& value, const QString& place, CGSize* size);
    bool readRect(const QJsonValue& value, const QString& place, CGRect* rect);
    // A code other than success, as a number (-25204) or by name ("kAXErrorCannotComplete").
    bool readError(const QJsonValue& value, const QString& place, AXError* error);
    // An attribute value; element references are left for the loader to resolve.
    bool readValue(const QJsonValue& value, const QString& place, Value* result);

private:
    bool readNumberField(const QJsonObject& object, const QString& place, const char* key, double* number);
    bool readExtent(const QJsonObject& object, const QString& place, CGSize* size);
    bool readValueObject(const QJsonObject& object, const QString& place, Value* result);
    bool readReference(const QJsonObject& object, const QString& place, Value* result);

    QString place;
    QString problemText;
};

// The keys of one object of a fixture. Each read function reads its key when the object has it
// and leaves the target alone when not, so that defaults stay where the key is missing.
class Fields {
public:
    Fields(FixtureReader& reader, const QJsonObject& object, const QString& place)
        : reader(reader), object(object), place(place) {}

    bool has(const char* key) const { return object.contains(QLatin1String(key)); }
    QJsonValue value(const char* key) const { return object.value(QLatin1String(key)); }
    QString placeOf(const char* key) const { return placeOfKey(place, QLatin1String(key)); }
    // Fails with "\"key\" is missing".
    bool require(const char* key);

    bool string(const char* key, QString* string);
    bool boolean(const char* key, bool* boolean);
    bool integer(const char* key, qint64 minimum, qint64 maximum, qint64* integer);
    bool number(const char* key, double* number);
    bool point(const char* key, CGPoint* point);
    bool size(const char* key, CGSize* size);
    bool rect(const char* key, CGRect* rect);

private:
    FixtureReader& reader;
    const QJsonObject& object;
    const QString place;
};

} // namespace VirtualDesktopModel
