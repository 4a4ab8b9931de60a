#include "FixtureReader.h"

#include "axErrorNames.h"
#include "platformCoreFoundation.h"

#include <QJsonArray>
#include <QStringList>
#include <QVariant>

#include <cmath>
#include <limits>

namespace VirtualDesktopModel {

namespace {

// The keys of an object as one text for messages: {"a", "b"}.
QString keyList(const QJsonObject& object) {
    QStringList keys;
    for (const QString& key : object.keys())
        keys.append(QLatin1Char('"') + key + QLatin1Char('"'));
    return QLatin1Char('{') + keys.join(QStringLiteral(", ")) + QLatin1Char('}');
}

bool hasExactly(const QJsonObject& object, std::initializer_list<const char*> keys) {
    if (object.size() != qsizetype(keys.size()))
        return false;
    for (const char* key : keys) {
        if (!object.contains(QLatin1String(key)))
            return false;
    }
    return true;
}

bool isValidUrl(const QString& text) {
    CFStringRef string = CFStringCreateWithQString(text);
    CFURLRef url = CFURLCreateWithString(kCFAllocatorDefault, string, nullptr);
    CFRelease(string);
    const bool valid = url != nullptr;
    CFRelease(url);
    return valid;
}

} // namespace

QString placeOfKey(const QString& place, const QString& key) {
    return place.isEmpty() ? key : place + QLatin1Char('.') + key;
}

QString placeOfIndex(const QString& place, qsizetype index) {
    return place + QLatin1Char('[') + QString::number(index) + QLatin1Char(']');
}

bool FixtureReader::fail(const QString& where, const QString& problem) {
    if (!failed()) {
        place = where.isEmpty() ? QStringLiteral("top level") : where;
        problemText = problem;
    }
    return false;
}

bool FixtureReader::readObject(const QJsonValue& value, const QString& where, QJsonObject* object) {
    if (!value.isObject())
        return fail(where, QStringLiteral("expected an object"));
    *object = value.toObject();
    return true;
}

bool FixtureReader::checkKeys(const QJsonObject& object, const QString& where,
                              std::initializer_list<const char*> allowed) {
    for (auto it = object.constBegin(); it != object.constEnd(); ++it) {
        bool known = false;
        for (const char* key : allowed)
            known = known || it.key() == QLatin1String(key);
        if (!known)
            return fail(where, QStringLiteral("unknown key \"%1\"").arg(it.key()));
    }
    return true;
}

bool FixtureReader::readInteger(const QJsonValue& value, const QString& where, qint64 minimum, qint64 maximum,
                                qint64* integer) {
    // Whole numbers that fit 64 bits arrive as integers; anything else is a double.
    const bool whole = value.isDouble() && value.toVariant().typeId() == QMetaType::LongLong;
    if (!whole || value.toInteger() < minimum || value.toInteger() > maximum)
        return fail(where, QStringLiteral("expected an integer from %1 to %2").arg(minimum).arg(maximum));
    *integer = value.toInteger();
    return true;
}

bool FixtureReader::readNumber(const QJsonValue& value, const QString& where, double* number) {
    if (!value.isDouble() || !std::isfinite(value.toDouble()))
        return fail(where, QStringLiteral("expected a number"));
    *number = value.toDouble();
    return true;
}

bool FixtureReader::readBoolean(const QJsonValue& value, const QString& where, bool* boolean) {
    if (!value.isBool())
        return fail(where, QStringLiteral("expected true or false"));
    *boolean = value.toBool();
    return true;
}

bool FixtureReader::readString(const QJsonValue& value, const QString& where, QString* string) {
    if (!value.isString())
        return fail(where, QStringLiteral("expected a string"));
    *string = value.toString();
    return true;
}

bool FixtureReader::readNumberField(const QJsonObject& object, const QString& where, const char* key,
                                    double* number) {
    Fields fields(*this, object, where);
    return fields.require(key) && fields.number(key, number);
}

bool FixtureReader::readExtent(const QJsonObject& object, const QString& where, CGSize* size) {
    if (!readNumberField(object, where, "width", &size->width) ||
        !readNumberField(object, where, "height", &size->height))
        return false;
    if (size->width < 0 || size->height < 0)
        return fail(where, QStringLiteral("width and height must not be negative"));
    return true;
}

bool FixtureReader::readPoint(const QJsonValue& value, const QString& where, CGPoint* point) {
    QJsonObject object;
    return readObject(value, where, &object) && checkKeys(object, where, {"x", "y"}) &&
           readNumberField(object, where, "x", &point->x) && readNumberField(object, where, "y", &point->y);
}

bool FixtureReader::readSize(const QJsonValue& value, const QString& where, CGSize* size) {
    QJsonObject object;
    return readObject(value, where, &object) && checkKeys(object, where, {"width", "height"}) &&
           readExtent(object, where, size);
}

bool FixtureReader::readRect(const QJsonValue& value, const QString& where, CGRect* rect) {
    QJsonObject object;
    return readObject(value, where, &object) && checkKeys(object, where, {"x", "y", "width", "height"}) &&
           readNumberField(object, where, "x", &rect->origin.x) &&
           readNumberField(object, where, "y", &rect->origin.y) && readExtent(object, where, &rect->size);
}

bool FixtureReader::readError(const QJsonValue& value, const QString& where, AXError* error) {
    std::optional<int> code;
    if (value.isString())
        code = axErrorCode(value.toString());
    else if (value.isDouble() && std::abs(value.toDouble()) < 1e9 &&
             value.toDouble() == std::trunc(value.toDouble()))
        code = int(value.toDouble());
    if (code && axErrorName(*code).isEmpty())
        code.reset();
    if (code && *code != kAXErrorSuccess) {
        *error = AXError(*code);
        return true;
    }
    return fail(where, QStringLiteral("expected an AXError other than success, as a code or a name "
                                      "(-25204 or \"kAXErrorCannotComplete\")"));
}

bool FixtureReader::readValue(const QJsonValue& value, const QString& where, Value* result) {
    switch (value.type()) {
    case QJsonValue::Null:
        result->kind = Value::Kind::Null;
        return true;
    case QJsonValue::Bool:
        result->kind = Value::Kind::Boolean;
        result->boolean = value.toBool();
        return true;
    case QJsonValue::Double:
        if (value.toVariant().typeId() == QMetaType::LongLong) {
            result->kind = Value::Kind::Integer;
            result->integer = value.toInteger();
            return true;
        }
        result->kind = Value::Kind::Double;
        return readNumber(value, where, &result->number);
    case QJsonValue::String:
        result->kind = Value::Kind::String;
        result->text = value.toString();
        return true;
    case QJsonValue::Array: {
        result->kind = Value::Kind::Array;
        const QJsonArray array = value.toArray();
        result->items.resize(std::size_t(array.size()));
        for (qsizetype i = 0; i < array.size(); ++i) {
            if (!readValue(array.at(i), placeOfIndex(where, i), &result->items[std::size_t(i)]))
                return false;
        }
        return true;
    }
    case QJsonValue::Object:
        return readValueObject(value.toObject(), where, result);
    case QJsonValue::Undefined:
        break;
    }
    return fail(where, QStringLiteral("expected a value"));
}

bool FixtureReader::readValueObject(const QJsonObject& object, const QString& where, Value* result) {
    if (hasExactly(object, {"x", "y"})) {
        result->kind = Value::Kind::Point;
        return readPoint(object, where, &result->rect.origin);
    }
    if (hasExactly(object, {"width", "height"})) {
        result->kind = Value::Kind::Size;
        return readSize(object, where, &result->rect.size);
    }
    if (hasExactly(object, {"x", "y", "width", "height"})) {
        result->kind = Value::Kind::Rect;
        return readRect(object, where, &result->rect);
    }
    Fields fields(*this, object, where);
    if (hasExactly(object, {"location", "length"})) {
        result->kind = Value::Kind::Range;
        qint64 location = 0;
        qint64 length = 0;
        const qint64 largest = std::numeric_limits<CFIndex>::max();
        if (!fields.integer("location", 0, largest, &location) ||
            !fields.integer("length", 0, largest, &length))
            return false;
        result->range = CFRangeMake(CFIndex(location), CFIndex(length));
        return true;
    }
    if (hasExactly(object, {"double"})) {
        result->kind = Value::Kind::Double;
        return fields.number("double", &result->number);
    }
    if (hasExactly(object, {"url"})) {
        result->kind = Value::Kind::Url;
        return fields.string("url", &result->text) &&
               (isValidUrl(result->text) || fail(fields.placeOf("url"), QStringLiteral("not a valid URL")));
    }
    return readReference(object, where, result);
}

bool FixtureReader::readReference(const QJsonObject& object, const QString& where, Value* result) {
    Fields fields(*this, object, where);
    result->kind = Value::Kind::Element;
    QString id;
    qint64 number = 0;
    if (hasExactly(object, {"element"})) {
        if (!fields.string("element", &id))
            return false;
        result->reference = QStringLiteral("id:") + id;
    } else if (hasExactly(object, {"application"})) {
        if (!fields.integer("application", 1, std::numeric_limits<qint32>::max(), &number))
            return false;
        result->reference = QStringLiteral("app:") + QString::number(number);
    } else if (hasExactly(object, {"window"})) {
        if (!fields.integer("window", 1, std::numeric_limits<CGWindowID>::max(), &number))
            return false;
        result->reference = QStringLiteral("window:") + QString::number(number);
    } else {
        return fail(where, QStringLiteral("unknown value form %1").arg(keyList(object)));
    }
    return true;
}

bool Fields::require(const char* key) {
    return has(key) || reader.fail(place, QStringLiteral("\"%1\" is missing").arg(QLatin1String(key)));
}

bool Fields::string(const char* key, QString* string) {
    return !has(key) || reader.readString(value(key), placeOf(key), string);
}

bool Fields::boolean(const char* key, bool* boolean) {
    return !has(key) || reader.readBoolean(value(key), placeOf(key), boolean);
}

bool Fields::integer(const char* key, qint64 minimum, qint64 maximum, qint64* integer) {
    return !has(key) || reader.readInteger(value(key), placeOf(key), minimum, maximum, integer);
}

bool Fields::number(const char* key, double* number) {
    return !has(key) || reader.readNumber(value(key), placeOf(key), number);
}

bool Fields::point(const char* key, CGPoint* point) {
    return !has(key) || reader.readPoint(value(key), placeOf(key), point);
}

bool Fields::size(const char* key, CGSize* size) {
    return !has(key) || reader.readSize(value(key), placeOf(key), size);
}

bool Fields::rect(const char* key, CGRect* rect) {
    return !has(key) || reader.readRect(value(key), placeOf(key), rect);
}

} // namespace VirtualDesktopModel
