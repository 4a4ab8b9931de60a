// Deep copy, equality and merge of data objects, driven by the meta objects alone like the
// serializer's walk: a value whose type has a meta object is complex (a child object or a
// structure) and is walked into; anything else is read, written and compared as a QVariant.

#include "dataObjectUtils.h"

#include "ZREntity.h"
#include "ZRSerializableStructures.h"
#include "generalUtilities.h" // qHash(const QVariant&, size_t) for the key set of a merge

#include <QDebug>
#include <QMetaObject>
#include <QMetaType>
#include <QObject>
#include <QPointer>

#include <algorithm>
#include <utility>

namespace {

using Exclusions = QMap<const QMetaObject*, QList<QByteArray>>;

// The objects whose walk is under way on this thread, innermost last, each with its counterpart:
// the object that it is copied or merged into, or compared with. A property that leads back to
// one of them (an owner, an earlier level of a chain) closes a cycle, and following it again
// would never end.
template <typename Counterpart> class ObjectsUnderWay {
public:
    class Visit {
    public:
        Visit(ObjectsUnderWay& walk, const QObject* object, Counterpart* counterpart) : walk(walk) {
            walk.visits.emplaceBack(object, counterpart);
        }
        ~Visit() { walk.visits.removeLast(); }
        Visit(const Visit&) = delete;
        Visit& operator=(const Visit&) = delete;

    private:
        ObjectsUnderWay& walk;
    };

    // Null unless the walk is inside `object`.
    Counterpart* counterpartOf(const QObject* object) const {
        const auto found = std::find_if(visits.cbegin(), visits.cend(),
                                        [object](const auto& visit) { return visit.first == object; });
        return found == visits.cend() ? nullptr : found->second;
    }

    bool contains(const QObject* object, const Counterpart* counterpart) const {
        return std::any_of(visits.cbegin(), visits.cend(), [&](const auto& visit) {
            return visit.first == object && visit.second == counterpart;
        });
    }

private:
    QList<std::pair<const QObject*, Counterpart*>> visits;
};

thread_local ObjectsUnderWay<QObject> objectsBeingCopied;
thread_local ObjectsUnderWay<QObject> objectsBeingMerged;
thread_local ObjectsUnderWay<const QObject> objectsBeingCompared;

// One top-level merge. When a key of a structure comes to hold something other than the object
// of its class that it held, that object is deleted, but only once the whole merge has ended: the
// walk, and setters that look at the values they replace, may still reach it until then. An
// object that the merge visited, or that holds one it visited, is not deleted at all: that would
// take the merge's own objects along.
class MergeRun {
public:
    MergeRun() : outer(current) { current = this; }
    ~MergeRun() {
        current = outer;
        QSet<const QObject*> inUse;
        for (const QPointer<const QObject>& visited : std::as_const(visitedObjects)) {
            for (const QObject* object = visited.data(); object; object = object->parent())
                inUse.insert(object);
        }
        // Deleting one may delete another below it, which its QPointer then reports.
        for (const QPointer<QObject>& object : std::as_const(replacedObjects)) {
            if (object && !inUse.contains(object.data()))
                delete object.data();
        }
    }
    MergeRun(const MergeRun&) = delete;
    MergeRun& operator=(const MergeRun&) = delete;

    static void visit(const QObject* source, const QObject* target) {
        if (current)
            current->visitedObjects << source << target;
    }
    static void replace(QObject* object) {
        if (current)
            current->replacedObjects << object;
    }

private:
    static thread_local MergeRun* current;
    MergeRun* outer;
    QList<QPointer<const QObject>> visitedObjects;
    QList<QPointer<QObject>> replacedObjects;
};

thread_local MergeRun* MergeRun::current = nullptr;

// A top-level copy or merge without a source or a target is misuse: logged, and nothing happens.
bool bothGiven(const QObject* source, const QObject* target, const char* noSource, const char* noTarget) {
    if (!source)
        qCritical("%s", noSource);
    else if (!target)
        qCritical("%s", noTarget);
    return source && target;
}

const char* typeName(int metaTypeId) {
    return QMetaType(metaTypeId).name();
}

QObject* objectInVariant(const QVariant& value) {
    return value.value<QObject*>();
}

// Whether `property` is one of the properties of the object's class.
bool objectHasProperty(const QObject* object, const QMetaProperty& property) {
    const QMetaObject* declaringClass = property.enclosingMetaObject();
    return object && declaringClass && object->metaObject()->inherits(declaringClass);
}

// Deep copy

void deepCopyObjectInternal(const QObject* source, QObject* target, bool requireSameType,
                            const QSet<QByteArray>& skip);
void deepCopyProperty(const QObject* source, QObject* target, QMetaProperty sourceProperty,
                      QMetaProperty targetProperty, bool requireSameType);
QVariant deepCopyStructureOrObject(QObject* parent, int metaTypeId, const QVariant& value,
                                   bool requireSameType);
QVariant deepCopyChildObject(QObject* parent, const QVariant& sourceValue, QObject* newObject,
                             bool requireSameType);
void deepCopyStructure(const ZRSerializableStructureBase* source, ZRSerializableStructureBase* target,
                       bool requireSameType, QObject* parent);

void deepCopyObjectInternal(const QObject* source, QObject* target, bool requireSameType,
                            const QSet<QByteArray>& skip) {
    if (!source || !target)
        return;
    // Lets the target's setters see that a restore is under way.
    setObjectBeingDeserializedIfEntity(target, true);
    const QMetaObject* sourceClass = source->metaObject();
    const QMetaObject* targetClass = target->metaObject();
    if (sourceClass != targetClass && requireSameType) {
        qCritical("Error: tried to do a deep copy on two objects that are not of the same type!");
        return;
    }
    const ObjectsUnderWay<QObject>::Visit visit(objectsBeingCopied, source, target);
    target->setObjectName(source->objectName());
    // By name, not by index, so that classes that differ share every property with a twin.
    for (int index = 0; index < sourceClass->propertyCount(); ++index) {
        const QMetaProperty sourceProperty = sourceClass->property(index);
        if (skip.contains(sourceProperty.name()))
            continue;
        const int targetIndex = targetClass->indexOfProperty(sourceProperty.name());
        if (targetIndex < 0) {
            qWarning("Warning: cannot copy property '%s' of class '%s' on to class '%s'",
                     sourceProperty.name(), sourceClass->className(), targetClass->className());
            continue;
        }
        deepCopyProperty(source, target, sourceProperty, targetClass->property(targetIndex), requireSameType);
    }
    setObjectBeingDeserializedIfEntity(target, false);
}

// A property is copied by its declared type, an item of a structure by the type it holds.
void deepCopyProperty(const QObject* source, QObject* target, QMetaProperty sourceProperty,
                      QMetaProperty targetProperty, bool requireSameType) {
    const int declaredType = sourceProperty.metaType().id();
    QVariant value = sourceProperty.read(source);
    if (typeIsObjectOrStructure(declaredType))
        value = deepCopyStructureOrObject(target, declaredType, value, requireSameType);
    // A property that cannot be written keeps its value.
    targetProperty.write(target, value);
}

QVariant deepCopyStructureOrObject(QObject* parent, int metaTypeId, const QVariant& value,
                                   bool requireSameType) {
    // A reconstitution type may stand in only where the copy need not be of the same type.
    if (QObject* newObject = createObjectOfTypeIfTypeIsQObjectDerived(metaTypeId, !requireSameType))
        return deepCopyChildObject(parent, value, newObject, requireSameType);
    if (isMetaTypeSerializableStructure(metaTypeId)) {
        return newSerializableStructure(metaTypeId, [&](ZRSerializableStructureBase* copy) {
            deepCopyStructure(serializableStructureInVariant(value), copy, requireSameType, parent);
        });
    }
    qCritical() << "Error during deep copy: cannot determine type of object:" << typeName(metaTypeId);
    return {};
}

QVariant deepCopyChildObject(QObject* parent, const QVariant& sourceValue, QObject* newObject,
                             bool requireSameType) {
    const QObject* sourceChild = objectInVariant(sourceValue);
    if (!sourceChild) {
        // A null child stays a null child, of the declared type.
        QObject* const none = nullptr;
        const QVariant nullChild(QMetaType(metaTypeIdOfQObjectDerivedClass(newObject)), &none);
        delete newObject;
        return nullChild;
    }
    if (QObject* counterpart = objectsBeingCopied.counterpartOf(sourceChild)) {
        delete newObject;
        return variantFromQObjectDerivedClass(counterpart);
    }
    newObject->setParent(parent);
    deepCopyObjectInternal(sourceChild, newObject, requireSameType, {});
    return variantFromQObjectDerivedClass(newObject);
}

// Objects in a structure become children of the object that owns the structure.
void deepCopyStructure(const ZRSerializableStructureBase* source, ZRSerializableStructureBase* target,
                       bool requireSameType, QObject* parent) {
    const QList<QVariant> keys = source->serializableKeys();
    for (const QVariant& key : keys) {
        const QVariant value = source->variantValueForKey(key);
        const int type = determineVariantType(value);
        if (typeIsObjectOrStructure(type))
            target->setVariantValueForKey(key,
                                          deepCopyStructureOrObject(parent, type, value, requireSameType));
        else
            target->setVariantValueForKey(key, value);
    }
}

// Merge

constexpr char nestedStructuresNotSupported[] =
    "Warning: merge-copying structures with value types that are also structures is not supported";

void mergeObjectsInternal(const QObject* source, QObject* target, const QByteArray& flagKey);
void mergeStructureOrObject(QObject* target, QMetaProperty property, const QVariant& sourceValue,
                            const QVariant& targetValue, const QByteArray& flagKey);
void mergeChildObject(QObject* target, QMetaProperty property, const QVariant& sourceValue,
                      const QVariant& targetValue, const QByteArray& flagKey);
void mergeStructuresFromVariants(QObject* target, QMetaProperty property, const QVariant& sourceValue,
                                 const QVariant& targetValue, const QByteArray& flagKey);
bool mergeStructures(QObject* parent, const ZRSerializableStructureBase* source,
                     ZRSerializableStructureBase* target, const QByteArray& flagKey);

void logCannotMerge(int metaTypeId) {
    qCritical() << "Error during merge-copy: cannot determine type of object:" << typeName(metaTypeId);
}

// A child of `parent` for the merge to fill, of the class itself and never its reconstitution
// type; null, and logged, if the class cannot be made.
QObject* newMergeChild(int metaTypeId, QObject* parent) {
    QObject* child = createObjectOfTypeIfTypeIsQObjectDerived(metaTypeId, false);
    if (!child) {
        logCannotMerge(metaTypeId);
        return nullptr;
    }
    child->setParent(parent);
    return child;
}

void mergeTopLevel(const QObject* source, QObject* target, const QByteArray& flagKey) {
    if (!bothGiven(source, target, "Error: tried to merge-copy null pointer",
                   "Error: tried to merge-copy onto null pointer"))
        return;
    {
        const MergeRun run;
        mergeObjectsInternal(source, target, flagKey);
    }
    recursivelyMarkObjectHierarchyAsNotBeingDeserialized(target);
}

void mergeObjectsInternal(const QObject* source, QObject* target, const QByteArray& flagKey) {
    if (!source || !target)
        return;
    setObjectBeingDeserializedIfEntity(target, true);
    const QMetaObject* metaObject = source->metaObject();
    if (metaObject != target->metaObject()) {
        qCritical("Error: tried to do a merge-copy two objects that are not of the same type!");
        return;
    }
    if (metaObject->propertyOffset() == metaObject->propertyCount()) {
        qWarning("Warning: trying to merge-copy object with no properties!");
        return;
    }
    const QSet<QByteArray> flagged = propertiesFlaggedByKey(metaObject, flagKey);
    const ObjectsUnderWay<QObject>::Visit visit(objectsBeingMerged, source, target);
    MergeRun::visit(source, target);
    for (int index = metaObject->propertyOffset(); index < metaObject->propertyCount(); ++index) {
        const QMetaProperty property = metaObject->property(index);
        if (!flagged.isEmpty() && !flagged.contains(property.name()))
            continue;
        if (typeIsObjectOrStructure(property.metaType().id()))
            mergeStructureOrObject(target, property, property.read(source), property.read(target), flagKey);
        else
            property.write(target, property.read(source));
    }
    setObjectBeingDeserializedIfEntity(target, false);
}

void mergeStructureOrObject(QObject* target, QMetaProperty property, const QVariant& sourceValue,
                            const QVariant& targetValue, const QByteArray& flagKey) {
    const int declaredType = property.metaType().id();
    if (isQObjectType(declaredType))
        mergeChildObject(target, property, sourceValue, targetValue, flagKey);
    else if (isMetaTypeSerializableStructure(declaredType))
        mergeStructuresFromVariants(target, property, sourceValue, targetValue, flagKey);
    else
        logCannotMerge(declaredType);
}

void mergeChildObject(QObject* target, QMetaProperty property, const QVariant& sourceValue,
                      const QVariant& targetValue, const QByteArray& flagKey) {
    const QObject* sourceChild = objectInVariant(sourceValue);
    if (!sourceChild)
        return;
    QObject* targetChild = objectInVariant(targetValue);
    if (QObject* counterpart = objectsBeingMerged.counterpartOf(sourceChild)) {
        if (targetChild != counterpart)
            property.write(target, variantFromQObjectDerivedClass(counterpart));
        return;
    }
    if (!targetChild) {
        targetChild = newMergeChild(property.metaType().id(), target);
        if (!targetChild)
            return;
        property.write(target, variantFromQObjectDerivedClass(targetChild));
    }
    mergeObjectsInternal(sourceChild, targetChild, flagKey);
}

// An empty source leaves the property unwritten.
void mergeStructuresFromVariants(QObject* target, QMetaProperty property, const QVariant& sourceValue,
                                 const QVariant& targetValue, const QByteArray& flagKey) {
    QVariant merged = targetValue;
    if (mergeStructures(target, serializableStructureInVariant(sourceValue),
                        mutableSerializableStructureInVariant(merged), flagKey))
        property.write(target, merged);
}

// The source's keys are merged in and the keys that only the target has stay; in a list the key
// is the index, so a shorter source overwrites the front of the target and keeps its tail.
bool mergeStructures(QObject* parent, const ZRSerializableStructureBase* source,
                     ZRSerializableStructureBase* target, const QByteArray& flagKey) {
    const QList<QVariant> keys = source->serializableKeys();
    if (keys.isEmpty())
        return false;
    const QList<QVariant> targetKeyList = target->serializableKeys();
    const QSet<QVariant> targetKeys(targetKeyList.cbegin(), targetKeyList.cend());
    QList<QObject*> replaced;
    for (const QVariant& key : keys) {
        const QVariant value = source->variantValueForKey(key);
        const int sourceType = determineVariantType(value);
        if (isMetaTypeSerializableStructure(sourceType)) {
            qDebug("%s", nestedStructuresNotSupported);
            continue;
        }
        QObject* targetObject = nullptr;
        QObject* replacedObject = nullptr;
        if (targetKeys.contains(key)) {
            const QVariant targetValue = target->variantValueForKey(key);
            const int targetType = determineVariantType(targetValue);
            if (isMetaTypeSerializableStructure(targetType)) {
                qDebug("%s", nestedStructuresNotSupported);
                continue;
            }
            if (isMetaTypePointerToQObject(targetType)) {
                if (targetType == sourceType)
                    targetObject = objectInVariant(targetValue);
                else
                    replacedObject = objectInVariant(targetValue);
            }
        }
        if (!isMetaTypePointerToQObject(sourceType)) {
            target->setVariantValueForKey(key, value);
            replaced << replacedObject;
            continue;
        }
        const QObject* sourceObject = objectInVariant(value);
        if (QObject* counterpart = objectsBeingMerged.counterpartOf(sourceObject)) {
            if (counterpart != targetObject) {
                target->setVariantValueForKey(key, variantFromQObjectDerivedClass(counterpart));
                replaced << replacedObject;
            }
            continue;
        }
        if (!targetObject) {
            targetObject = newMergeChild(sourceType, parent);
            if (!targetObject)
                continue;
            target->setVariantValueForKey(key, variantFromQObjectDerivedClass(targetObject));
        }
        replaced << replacedObject;
        mergeObjectsInternal(sourceObject, targetObject, flagKey);
    }
    // An object that the structure still holds under another key is not replaced.
    QSet<QObject*> stillHeld;
    const QList<QVariant> keysAfterMerge = target->serializableKeys();
    for (const QVariant& key : keysAfterMerge)
        stillHeld << objectInVariant(target->variantValueForKey(key));
    for (QObject* object : std::as_const(replaced)) {
        if (object && !stillHeld.contains(object))
            MergeRun::replace(object);
    }
    return true;
}

} // namespace

void deepCopyObject(const QObject* source, QObject* target, bool requireSameType) {
    deepCopyObject(source, target, requireSameType, {});
}

void deepCopyObject(const QObject* source, QObject* target, bool requireSameType,
                    const QSet<QByteArray>& skip) {
    if (!bothGiven(source, target, "Error: tried to deep copy null pointer",
                   "Error: tried to deep copy onto null pointer"))
        return;
    deepCopyObjectInternal(source, target, requireSameType, skip);
    recursivelyMarkObjectHierarchyAsNotBeingDeserialized(target);
}

void deepCopyObjectSkippingProperties(const QObject* source, QObject* target, const QSet<QByteArray>& skip,
                                      bool requireSameType) {
    deepCopyObject(source, target, requireSameType, skip);
}

QObject* duplicateObject(const QObject* source, bool requireSameType) {
    const int type = metaTypeIdOfObjectPointer(source);
    if (type == 0)
        return nullptr;
    QObject* duplicate = createObjectOfTypeIfTypeIsQObjectDerived(type, !requireSameType);
    if (!duplicate)
        return nullptr;
    // An alternate type may have been made, so the copy itself never requires the same type.
    deepCopyObject(source, duplicate, false, {});
    return duplicate;
}

bool objectsAreEqual(const QObject* a, const QObject* b) {
    return objectsAreEqual(a, b, {});
}

bool objectsAreEqual(const QObject* a, const QObject* b, const Exclusions& exclusions) {
    if (!a || !b)
        return !a && !b;
    const QMetaObject* metaObject = a->metaObject();
    if (metaObject != b->metaObject())
        return false;
    // Met again below itself: as equal as the comparison further up finds them.
    if (objectsBeingCompared.contains(a, b))
        return true;
    const ObjectsUnderWay<const QObject>::Visit visit(objectsBeingCompared, a, b);
    const QList<QByteArray> excluded = exclusions.value(metaObject);
    for (int index = metaObject->propertyOffset(); index < metaObject->propertyCount(); ++index) {
        const QMetaProperty property = metaObject->property(index);
        if (!excluded.contains(property.name()) && !propertiesAreEqual(a, b, property, exclusions))
            return false;
    }
    return true;
}

bool propertiesAreEqual(const QObject* a, const QObject* b, QMetaProperty property,
                        const Exclusions& exclusions) {
    // Reading a property through an object of another class would read some other member.
    if (!objectHasProperty(a, property) || !objectHasProperty(b, property))
        return false;
    const QVariant valueOfA = property.read(a);
    const QVariant valueOfB = property.read(b);
    if (typeIsObjectOrStructure(property.metaType().id()))
        return objectsOrStructuresAreEqual(valueOfA, valueOfB, exclusions);
    return valueOfA == valueOfB;
}

bool objectsOrStructuresAreEqual(const QVariant& a, const QVariant& b, const Exclusions& exclusions) {
    const int type = determineVariantType(a);
    if (type != determineVariantType(b))
        return false;
    if (isMetaTypePointerToQObject(type))
        return objectsAreEqual(objectInVariant(a), objectInVariant(b), exclusions);
    if (isMetaTypeSerializableStructure(type)) {
        // The structure interface is not const, so the comparison works on copies.
        const QMetaType metaType(type);
        void* copyOfA = metaType.create(a.constData());
        void* copyOfB = metaType.create(b.constData());
        const bool equal =
            serializableStructuresAreEqual(static_cast<ZRSerializableStructureBase*>(copyOfA),
                                           static_cast<ZRSerializableStructureBase*>(copyOfB), exclusions);
        metaType.destroy(copyOfA);
        metaType.destroy(copyOfB);
        return equal;
    }
    qWarning("Warning: cannot determine type of object in objectsOrStructuresAreEqual");
    return false;
}

bool serializableStructuresAreEqual(ZRSerializableStructureBase* a, ZRSerializableStructureBase* b,
                                    const Exclusions& exclusions) {
    if (!a || !b)
        return !a && !b;
    const QList<QVariant> keys = a->serializableKeys();
    if (keys != b->serializableKeys())
        return false;
    for (const QVariant& key : keys) {
        const QVariant valueOfA = a->variantValueForKey(key);
        const QVariant valueOfB = b->variantValueForKey(key);
        const int type = determineVariantType(valueOfA);
        if (type != determineVariantType(valueOfB))
            return false;
        const bool equal = typeIsObjectOrStructure(type)
                               ? objectsOrStructuresAreEqual(valueOfA, valueOfB, exclusions)
                               : valueOfA == valueOfB;
        if (!equal)
            return false;
    }
    return true;
}

void mergeObjects(const QObject* source, QObject* target) {
    mergeTopLevel(source, target, {});
}

void mergeObjectsCopyingFlaggedProperties(const QObject* source, QObject* target, const QByteArray& flagKey) {
    mergeTopLevel(source, target, flagKey);
}
