#pragma once

// What the data objects library reads from Qt's meta-object system: the class-information keys by
// which a class declares its part in serialization, and the helpers that tell plain values from
// objects and structures.

#include <QByteArray>
#include <QList>
#include <QMetaProperty>
#include <QSet>
#include <QVariant>

struct QMetaObject;
class QObject;

// The items of the class's own entry `name`, split at every comma and not trimmed ("a, b" gives
// "a" and " b"). Entries of base classes are not consulted: the walks cover only the most derived
// class's own properties, so its own declaration is the one that fits them. A null `name` matches
// an entry with an empty name. No entry: an empty list.
QList<QByteArray> valueOfCommaSeparatedItemizedClassInfo(const QMetaObject* metaObject, const char* name);
// The same as a set, for any key including a caller's own flag key. Empty means no property.
QSet<QByteArray> commaSeparatedClassInfoSet(const QMetaObject* metaObject, const char* name);

QSet<QByteArray> propertiesNotWrittenWhenSerializing(const QMetaObject* metaObject);
QSet<QByteArray> opaqueProperties(const QMetaObject* metaObject);
QSet<QByteArray> simpleMapProperties(const QMetaObject* metaObject);
QSet<QByteArray> dontIncludeIfEmptyProperties(const QMetaObject* metaObject);
QSet<QByteArray> notIncludedInPathProperties(const QMetaObject* metaObject);

// The type that instances of this class are to be loaded as, from its own `ZRReconstituteAs`
// entry, or null. A name that is unknown or has no meta object is logged and passed over.
const QMetaObject* alternateTypeForReconstitution(const QMetaObject* metaObject);

// The one test that separates complex values (objects and structures) from plain ones.
bool typeIsObjectOrStructure(int metaTypeId);
// Unlike the keys above, the structure marker is inherited: a class derived from a structure is one.
bool isSerializableStructure(const QMetaObject* metaObject);
bool isMetaTypeSerializableStructure(int metaTypeId);
bool isQObjectType(int metaTypeId);
bool propertyIsNotIncludedInSerializationPath(const QMetaProperty& property,
                                              const QSet<QByteArray>& notIncludedInPath);

// The registered id of the object's run-time class as a pointer ("UIElement*"), or 0.
int metaTypeIdOfQObjectDerivedClass(QObject* object);
int metaTypeIdOfObjectPointer(const QObject* object);
// The object in a QVariant of its run-time pointer type; invalid if that type is not registered.
QVariant variantFromQObjectDerivedClass(QObject* object);

// The true type of a value, which may differ from its declared type: a variant declared as a base
// pointer reports the registered subclass that it holds. A null pointer reports its declared type,
// an invalid variant 0.
int determineVariantType(const QVariant& value);

// A new instance of the QObject class of that type, or of its reconstitution type when asked for.
// Null for plain types, structures and classes without an invokable default constructor.
QObject* createObjectOfTypeIfTypeIsQObjectDerived(int metaTypeId, bool useAlternateType);

// Pieces that every walk over objects and structures shares.

#include <QMap>

#include <functional>

class ZRSerializableStructureBase;

// A registered pointer to a QObject class ("UIElement*"), as opposed to a gadget or a plain value.
bool isMetaTypePointerToQObject(int metaTypeId);
// The structure that a variant of a structure type holds. Every structure begins with its
// structure base (checked when it is registered), so the variant's data is that base. The
// mutable form detaches the variant first.
const ZRSerializableStructureBase* serializableStructureInVariant(const QVariant& value);
ZRSerializableStructureBase* mutableSerializableStructureInVariant(QVariant& value);
// A variant of the structure type `metaTypeId`, holding a new default structure after `fill` has
// worked on it.
QVariant newSerializableStructure(int metaTypeId,
                                  const std::function<void(ZRSerializableStructureBase*)>& fill);
// The properties listed under the class's own `flagKey` entry; empty for an empty key, and for a
// class that does not declare it, which is then walked whole.
QSet<QByteArray> propertiesFlaggedByKey(const QMetaObject* metaObject, const QByteArray& flagKey);

// Deep copy, equality and merge of data objects.
//
// Copy walks every property of the source's class, base classes and `objectName` included, and
// writes each into the target property of the same name: plain values as they are, child objects
// and structures as new copies, so that the copy shares no object with its original. Objects made
// by the copy are children of the object whose property or structure holds them.
//
// Equality compares the own properties of the most derived class only; `exclusions` sends a
// class's exact meta object (not its subclasses') to the names of properties that do not count.
//
// Merge brings the own properties of the source into a target of the same class: a plain value
// takes the source's value, a child object is merged into the target's child (made if missing),
// and a structure takes the source's keys and keeps those that only the target has.
//
// A property that leads back to an object whose walk is under way (an owner, an earlier level of
// a chain) is not followed again: copy and merge point it at that object's counterpart, and
// equality takes the pair as equal for as far as the walk has come.
//
// Misuse (null pointers, classes that differ where the same class is required) is logged at
// critical level and leaves the target alone; what a walk cannot handle is logged and skipped.

// With `requireSameType` false, the classes may differ: every property with a twin of the same
// name is copied, the others are logged, and child objects may be made as their reconstitution
// type. `skip` names properties of `source` itself that are not copied.
void deepCopyObject(const QObject* source, QObject* target, bool requireSameType);
void deepCopyObject(const QObject* source, QObject* target, bool requireSameType,
                    const QSet<QByteArray>& skip);
void deepCopyObjectSkippingProperties(const QObject* source, QObject* target, const QSet<QByteArray>& skip,
                                      bool requireSameType);
// A new object of the source's class (or, with `requireSameType` false, of its reconstitution
// type) holding a deep copy; the caller owns it. Null if the class is not registered or has no
// invokable default constructor.
QObject* duplicateObject(const QObject* source, bool requireSameType);

// Two null objects are equal, one null object is not; objects of different classes never are.
bool objectsAreEqual(const QObject* a, const QObject* b);
bool objectsAreEqual(const QObject* a, const QObject* b,
                     const QMap<const QMetaObject*, QList<QByteArray>>& exclusions);
// Complex values by their true type: objects through objectsAreEqual, structures key by key.
// A value that is neither is logged and taken as different.
bool objectsOrStructuresAreEqual(const QVariant& a, const QVariant& b,
                                 const QMap<const QMetaObject*, QList<QByteArray>>& exclusions);
bool serializableStructuresAreEqual(ZRSerializableStructureBase* a, ZRSerializableStructureBase* b,
                                    const QMap<const QMetaObject*, QList<QByteArray>>& exclusions);
// `property` must be a property of both objects' class; for any other pair the answer is false.
bool propertiesAreEqual(const QObject* a, const QObject* b, QMetaProperty property,
                        const QMap<const QMetaObject*, QList<QByteArray>>& exclusions);

void mergeObjects(const QObject* source, QObject* target);
// Restricts every object of the walk whose class declares the class-info key `flagKey` to the
// properties listed there; classes that do not declare it are merged whole.
void mergeObjectsCopyingFlaggedProperties(const QObject* source, QObject* target, const QByteArray& flagKey);
