#include "ZRSerializableStructures.h"

#include "ZRMetaTypeRegistrar.h"

template class ZRMetaTypeRegistrar<ZRSerializableVariantMap>;
template class ZRMetaTypeRegistrar<ZRSerializableStringMap>;
template class ZRMetaTypeRegistrar<ZRSerializableVariantList>;
template class ZRMetaTypeRegistrar<ZRSerializableStringList>;

ZRSerializableVariantMap::ZRSerializableVariantMap(const QMap<QString, QVariant>& other)
    : QMap<QString, QVariant>(other) {}

ZRSerializableVariantMap::~ZRSerializableVariantMap() = default;

bool ZRSerializableVariantMap::isSequentialStructure() const {
    return false;
}

QList<QString> ZRSerializableVariantMap::keyList() const {
    return keys();
}

QVariant& ZRSerializableVariantMap::getValueRef(const QString& key) {
    return (*this)[key];
}

QVariant ZRSerializableVariantMap::getValue(const QString& key) const {
    return value(key, defaultValue());
}

ZRSerializableStringMap::ZRSerializableStringMap(const QMap<QString, QString>& other)
    : QMap<QString, QString>(other) {}

ZRSerializableStringMap::~ZRSerializableStringMap() = default;

bool ZRSerializableStringMap::isSequentialStructure() const {
    return false;
}

QList<QString> ZRSerializableStringMap::keyList() const {
    return keys();
}

QString& ZRSerializableStringMap::getValueRef(const QString& key) {
    return (*this)[key];
}

QString ZRSerializableStringMap::getValue(const QString& key) const {
    return value(key, defaultValue());
}

ZRSerializableVariantList::ZRSerializableVariantList(const QList<QVariant>& other) : QList<QVariant>(other) {}

ZRSerializableVariantList::~ZRSerializableVariantList() = default;

bool ZRSerializableVariantList::isSequentialStructure() const {
    return true;
}

QList<int> ZRSerializableVariantList::keyList() const {
    return indexList(*this);
}

QVariant& ZRSerializableVariantList::getValueRef(const int& key) {
    return growingElementRef<QVariant>(*this, key, defaultValue());
}

// Only ever asked for keys from serializableKeys() of the same list.
QVariant ZRSerializableVariantList::getValue(const int& key) const {
    return at(key);
}

ZRSerializableStringList::ZRSerializableStringList(const QList<QString>& other) : QList<QString>(other) {}

ZRSerializableStringList::~ZRSerializableStringList() = default;

bool ZRSerializableStringList::isSequentialStructure() const {
    return true;
}

QList<int> ZRSerializableStringList::keyList() const {
    return indexList(*this);
}

QString& ZRSerializableStringList::getValueRef(const int& key) {
    return growingElementRef<QString>(*this, key, defaultValue());
}

QString ZRSerializableStringList::getValue(const int& key) const {
    return at(key);
}
