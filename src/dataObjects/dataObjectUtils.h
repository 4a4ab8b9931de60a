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
