#include "ZREntityIdentifier.h"

#include "ZREntity.h"
#include "ZRMetaTypeRegistrar.h"

#include <QMutexLocker>
#include <QThread>

template class ZRMetaTypeRegistrar<ZREntityIdentifier>;

// All constant-initialized, so that they are ready before any other start-up code can run.
QHash<unsigned long long, QPointer<ZREntity>> ZREntityIdentifier::trackedEntitiesById;
QHash<void*, unsigned long long> ZREntityIdentifier::trackedEntitiesByAddress;
unsigned long long ZREntityIdentifier::currentId = 0;
QRecursiveMutex ZREntityIdentifier::trackedEntitiesMutex;

ZREntityIdentifier::ZREntityIdentifier() {
    const QMutexLocker locker(&trackedEntitiesMutex);
    identifier = 0;
}

ZREntityIdentifier::ZREntityIdentifier(ZREntity* entity) {
    const QMutexLocker locker(&trackedEntitiesMutex);
    identifier = 0;
    if (!entity)
        return;
    if (QThread::currentThread() != entity->thread())
        qWarning("Warning: creating ZREntityIdentifier in different thread than entity.");

    const auto known = trackedEntitiesByAddress.constFind(entity);
    if (known != trackedEntitiesByAddress.cend()) {
        identifier = *known;
        return;
    }

    identifier = ++currentId;
    trackedEntitiesById.insert(identifier, QPointer<ZREntity>(entity));
    trackedEntitiesByAddress.insert(entity, identifier);
    // Direct, so that the entry is gone before the entity's memory is freed and a new entity at
    // the same address can be given an identifier of its own.
    QObject::connect(
        entity, &QObject::destroyed, entity, [entity, id = identifier] { removeDestroyedEntity(entity, id); },
        Qt::DirectConnection);
}

ZREntityIdentifier::ZREntityIdentifier(const QPointer<ZREntity>& entity)
    : ZREntityIdentifier(entity.data()) {}

ZREntityIdentifier ZREntityIdentifier::fromIntegerIdentifier(unsigned long long id) {
    // Held while the answer is constructed: an entity destroyed on another thread meanwhile waits
    // in removeDestroyedEntity, so the entity read here stays in memory until we are done with it.
    const QMutexLocker locker(&trackedEntitiesMutex);
    const auto found = trackedEntitiesById.constFind(id);
    if (found == trackedEntitiesById.cend())
        return ZREntityIdentifier();
    return ZREntityIdentifier(found->data());
}

bool ZREntityIdentifier::isNull() const {
    // Locked, though it only reads: another thread may be growing or shrinking the tables.
    const QMutexLocker locker(&trackedEntitiesMutex);
    const auto found = trackedEntitiesById.constFind(identifier);
    return found == trackedEntitiesById.cend() || found->isNull();
}

std::pair<int, int> ZREntityIdentifier::trackedEntityCount() {
    const QMutexLocker locker(&trackedEntitiesMutex);
    return {int(trackedEntitiesById.size()), int(trackedEntitiesByAddress.size())};
}

void ZREntityIdentifier::removeDestroyedEntity(ZREntity* entity, unsigned long long id) {
    const QMutexLocker locker(&trackedEntitiesMutex);
    trackedEntitiesById.remove(id);
    trackedEntitiesByAddress.remove(entity);
}
