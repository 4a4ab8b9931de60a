#pragma once

// What the fuzz targets of the property list readers hold every result to: each value is of a
// type the readers name, and no container nests deeper than their limit.

#include "appkit/PropertyList.h"

#include <QByteArray>
#include <QDateTime>
#include <QVariantList>

#include <cstdlib>
#include <limits>

// With `textForm`, only the four types of the old text form may appear.
inline void checkPropertyListValue(const QVariant& value, bool textForm, int depth = 1) {
    switch (value.typeId()) {
    case QMetaType::QVariantMap:
    case QMetaType::QVariantList: {
        if (depth > kDeepestPropertyListNesting)
            std::abort();
        const QVariantList children =
            value.typeId() == QMetaType::QVariantMap ? value.toMap().values() : value.toList();
        for (const QVariant& child : children)
            checkPropertyListValue(child, textForm, depth + 1);
        return;
    }
    case QMetaType::QString:
    case QMetaType::QByteArray:
        return;
    case QMetaType::LongLong:
    case QMetaType::Double:
    case QMetaType::Bool:
        if (textForm)
            std::abort();
        return;
    case QMetaType::ULongLong:
        // Only what qint64 cannot hold comes as quint64.
        if (textForm || value.toULongLong() <= quint64(std::numeric_limits<qint64>::max()))
            std::abort();
        return;
    case QMetaType::QDateTime:
        if (textForm || value.toDateTime().timeSpec() != Qt::UTC)
            std::abort();
        return;
    default:
        std::abort();
    }
}
