#pragma once

// An entity that remembers which of its properties, and which keys inside its structure
// properties, changed since it was last saved, so that a serializer working with dirty marks can
// write only what changed.

#include "ZREntity.h"

#include "generalUtilities.h" // qHash(const QVariant&, size_t) for the key sets

#include <QMap>
#include <QSet>
#include <QVariant>

class ZRSerializableStructureBase;

class ZRDirtyableEntity : public ZREntity {
    Q_OBJECT
public:
    Q_INVOKABLE ZRDirtyableEntity();
    Q_INVOKABLE explicit ZRDirtyableEntity(QObject* parent);

    static bool isDerivedFromDirtyableEntity(const QMetaObject* metaObject);
    static bool isMetaTypeDerivedFromDirtyableEntity(int metaTypeId);

    // Marked itself, or holds a dirty entity in one of its own properties, directly or inside a
    // structure.
    bool isDirty() const;
    bool anyStructureKeysMarkedDirty() const;
    // Whether the value of the property contains dirty entities. The property's own mark is not
    // consulted; callers that care look at both.
    bool isPropertyDirty(int propertyIndex) const;

    static bool doesVariantContainDirtyElements(const QVariant& value);
    static bool doesSerializableStructureContainDirtyElements(const ZRSerializableStructureBase* structure);

    // Forgets this entity's marks; children keep theirs.
    void markClean();
    // Forgets the marks of this entity and of every dirtyable QObject child below it. Entities held
    // only in structures, without being children, are not reached.
    void recursivelyMarkClean();

    void printDebugInfo() const;

    const QSet<int>& dirtyProperties() const { return dirtyPropertyIndices; }
    const QMap<int, QSet<QVariant>>& dirtyStructureKeys() const { return dirtyKeysByProperty; }

Q_SIGNALS:
    void propertyBecameDirty(int propertyIndex);

protected:
    // For subclasses that decide what makes them dirty.
    void markPropertyDirty(int propertyIndex);
    void markStructureKeyDirty(int propertyIndex, const QVariant& key);
    // Takes the key out of the property's set; an emptied set no longer counts as dirty.
    void markStructureKeyClean(int propertyIndex, const QVariant& key);

private:
    QSet<int> dirtyPropertyIndices;
    QMap<int, QSet<QVariant>> dirtyKeysByProperty;
};
