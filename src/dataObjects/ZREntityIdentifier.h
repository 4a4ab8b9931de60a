#pragma once

// A stable number for a live entity: it can be kept in a container, compared, passed to another
// thread or through a channel that carries no objects, and later asked whether its entity still
// lives. The value is one integer; all knowledge lies in a registry shared by the whole process.
//
// Identifiers are handed out lazily, from 1 upwards, and never reused: an entity gets its number
// with its first identifier, keeps it for life, and leaves the registry when it is destroyed.
// From then on every copy of its identifier is null, and its number never turns back into an
// identifier.

#include <QHash>
#include <QMetaType>
#include <QMutex>
#include <QPointer>

#include <utility>

class ZREntity;

class ZREntityIdentifier {
public:
    // The null identifier, 0.
    ZREntityIdentifier();
    // The identifier of `entity`, given out now if it has none yet; null for a null entity.
    // Logs a warning, and still answers, when called on another thread than the entity's.
    ZREntityIdentifier(ZREntity* entity);
    // As above for the pointer's entity; a cleared pointer gives the null identifier.
    ZREntityIdentifier(const QPointer<ZREntity>& entity);

    // Copies carry the integer only and don't touch the registry.
    ZREntityIdentifier(const ZREntityIdentifier&) = default;
    ZREntityIdentifier& operator=(const ZREntityIdentifier&) = default;

    // The identifier of the entity that `id` names while that entity lives; null for a number that
    // was never given out or whose entity is gone.
    static ZREntityIdentifier fromIntegerIdentifier(unsigned long long id);

    // True once the entity is gone (or for an identifier that never named one): nullness is asked
    // of the registry, so a copy turns null when its entity is destroyed, untouched.
    bool isNull() const;
    unsigned long long integerIdentifier() const { return identifier; }

    bool operator<(const ZREntityIdentifier& other) const { return identifier < other.identifier; }
    bool operator>(const ZREntityIdentifier& other) const { return identifier > other.identifier; }
    bool operator==(const ZREntityIdentifier& other) const { return identifier == other.identifier; }
    bool operator!=(const ZREntityIdentifier& other) const { return identifier != other.identifier; }

    // The sizes of the two registry tables, by identifier and by address; equal when healthy.
    static std::pair<int, int> trackedEntityCount();

private:
    static void removeDestroyedEntity(ZREntity* entity, unsigned long long id);

    unsigned long long identifier = 0;

    static QHash<unsigned long long, QPointer<ZREntity>> trackedEntitiesById;
    static QHash<void*, unsigned long long> trackedEntitiesByAddress;
    // The last identifier given out; 0 before the first.
    static unsigned long long currentId;
    // Guards the three above. Recursive because fromIntegerIdentifier holds it while it
    // constructs its answer, which takes it again.
    static QRecursiveMutex trackedEntitiesMutex;
};

inline size_t qHash(const ZREntityIdentifier& identifier, size_t seed = 0) {
    return qHash(identifier.integerIdentifier(), seed);
}

Q_DECLARE_METATYPE(ZREntityIdentifier)
