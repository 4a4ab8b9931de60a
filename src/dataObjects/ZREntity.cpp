#include "ZREntity.h"

#include "ZRMetaTypeRegistrar.h"

#include <QMargins>
#include <QMetaType>

template class ZRMetaTypeObjectRegistrar<ZREntity>;
// A Qt value type that stored data names; registered here because this unit is linked into every
// program that uses entities at all.
template class ZRMetaTypeAndStreamOperatorsRegistrar<QMargins>;

ZREntity::ZREntity() : ZREntity(nullptr) {}

ZREntity::ZREntity(QObject* parent) : QObject(parent) {}

void ZREntity::entityPropertyAboutToChange(int) {}

void ZREntity::entityPropertyChanged(int) {}

bool ZREntity::isDerivedFromEntity(const QMetaObject* metaObject) {
    for (; metaObject; metaObject = metaObject->superClass()) {
        if (metaObject == &ZREntity::staticMetaObject)
            return true;
    }
    return false;
}

bool ZREntity::isMetaTypeDerivedFromEntity(int metaTypeId) {
    return isDerivedFromEntity(QMetaType(metaTypeId).metaObject());
}

void _setEntityBeingSerialized(ZREntity* entity, bool value) {
    entity->beingSerialized = value;
}

void _setEntityBeingDeserialized(ZREntity* entity, bool value) {
    entity->beingDeserialized = value;
}

void setObjectBeingSerializedIfEntity(QObject* object, bool value) {
    if (auto* entity = qobject_cast<ZREntity*>(object))
        _setEntityBeingSerialized(entity, value);
}

void setObjectBeingDeserializedIfEntity(QObject* object, bool value) {
    if (auto* entity = qobject_cast<ZREntity*>(object))
        _setEntityBeingDeserialized(entity, value);
}

namespace {

void clearGuardInHierarchy(QObject* object, void (*setGuard)(ZREntity*, bool)) {
    if (!object)
        return;
    if (auto* entity = qobject_cast<ZREntity*>(object))
        setGuard(entity, false);
    const QList<ZREntity*> descendants = object->findChildren<ZREntity*>();
    for (ZREntity* descendant : descendants)
        setGuard(descendant, false);
}

} // namespace

void recursivelyMarkObjectHierarchyAsNotBeingSerialized(QObject* object) {
    clearGuardInHierarchy(object, &_setEntityBeingSerialized);
}

void recursivelyMarkObjectHierarchyAsNotBeingDeserialized(QObject* object) {
    clearGuardInHierarchy(object, &_setEntityBeingDeserialized);
}
