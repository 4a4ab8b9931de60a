#include "ZRDirtyableEntity.h"

#include "ZRMetaTypeRegistrar.h"
#include "ZRSerializableStructures.h"
#include "dataObjectUtils.h"

#include <QDebug>
#include <QMetaProperty>
#include <QMetaType>

#include <atomic>

template class ZRMetaTypeObjectRegistrar<ZRDirtyableEntity>;

ZRDirtyableEntity::ZRDirtyableEntity() : ZRDirtyableEntity(nullptr) {}

ZRDirtyableEntity::ZRDirtyableEntity(QObject* parent) : ZREntity(parent) {}

bool ZRDirtyableEntity::isDerivedFromDirtyableEntity(const QMetaObject* metaObject) {
    // Looked up by name, as stored data names it; two threads may both look it up, with one result.
    static std::atomic<const QMetaObject*> dirtyableEntityMetaObject{nullptr};
    const QMetaObject* wanted = dirtyableEntityMetaObject.load(std::memory_order_relaxed);
    if (!wanted) {
        wanted = QMetaType::fromName("ZRDirtyableEntity*").metaObject();
        dirtyableEntityMetaObject.store(wanted, std::memory_order_relaxed);
    }
    if (!wanted)
        qDebug()
            << "Couldn't get QMetaObject of ZRDirtyableEntity? Is it registered using qRegisterMetaType?";
    for (; metaObject; metaObject = metaObject->superClass()) {
        if (metaObject == wanted)
            return true;
    }
    return false;
}

bool ZRDirtyableEntity::isMetaTypeDerivedFromDirtyableEntity(int metaTypeId) {
    return isDerivedFromDirtyableEntity(QMetaType(metaTypeId).metaObject());
}

bool ZRDirtyableEntity::isDirty() const {
    if (!dirtyPropertyIndices.isEmpty() || anyStructureKeysMarkedDirty())
        return true;
    const QMetaObject* meta = metaObject();
    for (int i = meta->propertyOffset(); i < meta->propertyCount(); ++i) {
        if (doesVariantContainDirtyElements(meta->property(i).read(this)))
            return true;
    }
    return false;
}

bool ZRDirtyableEntity::anyStructureKeysMarkedDirty() const {
    for (const QSet<QVariant>& keys : dirtyKeysByProperty) {
        if (!keys.isEmpty())
            return true;
    }
    return false;
}

bool ZRDirtyableEntity::isPropertyDirty(int propertyIndex) const {
    return doesVariantContainDirtyElements(metaObject()->property(propertyIndex).read(this));
}

bool ZRDirtyableEntity::doesVariantContainDirtyElements(const QVariant& value) {
    const QMetaType type = value.metaType();
    const QMetaObject* typeMetaObject = type.metaObject();
    if (isDerivedFromDirtyableEntity(typeMetaObject)) {
        if (!(type.flags() & QMetaType::PointerToQObject))
            return false;
        const auto* entity =
            qobject_cast<const ZRDirtyableEntity*>(*static_cast<QObject* const*>(value.constData()));
        return entity && entity->isDirty();
    }
    if (isSerializableStructure(typeMetaObject)) {
        void* copy = type.create(value.constData());
        if (!copy) {
            qDebug() << "Could not instantiate serializable structure from variant value";
            return false;
        }
        const bool dirty =
            doesSerializableStructureContainDirtyElements(static_cast<ZRSerializableStructureBase*>(copy));
        type.destroy(copy);
        return dirty;
    }
    return false;
}

bool ZRDirtyableEntity::doesSerializableStructureContainDirtyElements(
    const ZRSerializableStructureBase* structure) {
    const QList<QVariant> keys = structure->serializableKeys();
    for (const QVariant& key : keys) {
        if (doesVariantContainDirtyElements(structure->variantValueForKey(key)))
            return true;
    }
    return false;
}

void ZRDirtyableEntity::markClean() {
    dirtyPropertyIndices.clear();
    dirtyKeysByProperty.clear();
}

void ZRDirtyableEntity::recursivelyMarkClean() {
    markClean();
    const QList<ZRDirtyableEntity*> descendants = findChildren<ZRDirtyableEntity*>();
    for (ZRDirtyableEntity* descendant : descendants)
        descendant->markClean();
}

void ZRDirtyableEntity::printDebugInfo() const {
    const QMetaObject* meta = metaObject();
    qDebug() << "Debug info for:" << this;
    qDebug() << "Is dirty:" << isDirty();
    qDebug() << "Dirty properties:";
    for (int index : dirtyPropertyIndices)
        qDebug().nospace().noquote() << "  " << index << " : " << meta->property(index).name();
    qDebug() << "Dirty structure keys:";
    for (auto it = dirtyKeysByProperty.cbegin(); it != dirtyKeysByProperty.cend(); ++it) {
        for (const QVariant& key : it.value())
            qDebug().nospace().noquote()
                << "  " << it.key() << " / " << meta->property(it.key()).name() << " : " << key;
    }
}

void ZRDirtyableEntity::markPropertyDirty(int propertyIndex) {
    dirtyPropertyIndices.insert(propertyIndex);
}

void ZRDirtyableEntity::markStructureKeyDirty(int propertyIndex, const QVariant& key) {
    dirtyKeysByProperty[propertyIndex].insert(key);
}

void ZRDirtyableEntity::markStructureKeyClean(int propertyIndex, const QVariant& key) {
    const auto it = dirtyKeysByProperty.find(propertyIndex);
    if (it != dirtyKeysByProperty.end())
        it->remove(key);
}
