#pragma once

// Object graphs to and from a path-addressed store. The walk reads nothing but the meta objects:
// a property's value lies at its owner's path plus the property's name, an item of a structure
// at the structure's path plus its key, and a child object at the path of the property that
// holds it. What a path and a value become in a file is the store's business
// (AbstractSettingsSerializer); the byte array codec at the end ties the walk to settings files,
// the form in which the tool's commands travel.
//
// Nothing here stops at a failure: each one sets the serializer's error flag, is logged at debug
// level and skips its item; a top-level call ends with one warning if the flag is set.

#include "AbstractSettingsSerializer.h"

#include <QByteArray>
#include <QList>
#include <QSet>
#include <QString>
#include <QVariant>

class QObject;
class ZRSerializableStructureBase;

// Whole operations on one serializer. A root group that is not empty is the first component of
// every path, and only that group of the store is replaced on saving.

void saveObject(AbstractSettingsSerializer& serializer, QObject* object,
                const QString& rootGroup = QString());
// `skip` names properties of `object` itself; children are always saved whole.
void saveObjectSkippingProperties(AbstractSettingsSerializer& serializer, QObject* object,
                                  const QSet<QByteArray>& skip, const QString& rootGroup = QString());
// Restricts every object of the graph whose class declares the class-info key `flagKey` to the
// properties listed there; classes that do not declare it are saved whole.
void saveObjectFlaggedProperties(AbstractSettingsSerializer& serializer, QObject* object,
                                 const QByteArray& flagKey, const QString& rootGroup = QString());
void loadObject(AbstractSettingsSerializer& serializer, QObject* object,
                const QString& rootGroup = QString());
void loadObjectSkippingProperties(AbstractSettingsSerializer& serializer, QObject* object,
                                  const QSet<QByteArray>& skip, const QString& rootGroup = QString());
void loadObjectFlaggedProperties(AbstractSettingsSerializer& serializer, QObject* object,
                                 const QByteArray& flagKey, const QString& rootGroup = QString());

// Logs the one warning of a top-level call if the serializer's error flag is set.
void warnIfDataObjectErrorsOccurred(AbstractSettingsSerializer& serializer);

// The bytes of a settings file holding `object`, by way of a temporary file.
QByteArray serializeObjectToByteArray(QObject* object);
// Loads the bytes of a settings file into an existing object. Failures are logged; properties
// whose keys are missing keep their values.
void deserializeObjectFromByteArray(QObject* object, const QByteArray& data);

// A file name in the temporary directory that no other call, process or earlier run can have
// produced.
QString getTemporaryFilePath();

// Empty for the don't-include-if-empty rule: a null value, an empty string, an invalid date.
// The integer 0, false and empty lists are values.
bool propertyValueIsEmpty(const QVariant& value);

// The steps of the walk, for back ends and callers that need one of them alone. `path` is the
// list of raw components from the root down; `force` (dirty-mark mode only) writes a subtree
// whether or not it is dirty; `dirtyKeys` are the keys of a structure marked dirty, or null.

void saveObject(AbstractSettingsSerializer& serializer, QObject* object, const QList<QString>& path,
                bool force, const QSet<QByteArray>& skip, const QByteArray& flagKey);
void saveStructureOrChildObject(AbstractSettingsSerializer& serializer, const QVariant& value,
                                const QList<QString>& path, bool force, const QSet<QVariant>* dirtyKeys,
                                const QByteArray& flagKey);
void saveStructure(AbstractSettingsSerializer& serializer, const ZRSerializableStructureBase* structure,
                   const QList<QString>& path, bool force, bool isSimpleMap, const QSet<QVariant>* dirtyKeys,
                   const QByteArray& flagKey);
void saveVariant(AbstractSettingsSerializer& serializer, const QVariant& value, int declaredType,
                 const QList<QString>& path, bool force, const QSet<QVariant>* dirtyKeys,
                 const QByteArray& flagKey);
void saveOpaqueProperty(AbstractSettingsSerializer& serializer, const QVariant& value,
                        const QList<QString>& path, bool force);
void saveSimpleMapProperty(AbstractSettingsSerializer& serializer, const QVariant& value,
                           const QList<QString>& path, bool force, const QSet<QVariant>* dirtyKeys);

void loadObject(AbstractSettingsSerializer& serializer, QObject* object, const QList<QString>& path,
                const QSet<QByteArray>& skip, const QByteArray& flagKey);
// Objects made here become children of `parent`.
QVariant loadStructureOrChildObject(AbstractSettingsSerializer& serializer, QObject* parent, int metaTypeId,
                                    const QList<QString>& path, const QByteArray& flagKey);
QVariant loadChildObject(AbstractSettingsSerializer& serializer, QObject* parent, QObject* child,
                         const QList<QString>& path, const QByteArray& flagKey);
QVariant loadStructure(AbstractSettingsSerializer& serializer, QObject* parent, int metaTypeId,
                       const QList<QString>& path, const QByteArray& flagKey);
QVariant loadProperty(AbstractSettingsSerializer& serializer, QObject* parent, int metaTypeId,
                      const QList<QString>& path, const QByteArray& flagKey);
QVariant loadSimpleMapProperty(AbstractSettingsSerializer& serializer, int metaTypeId,
                               const QList<QString>& path);
QVariant loadSimpleMapStructure(AbstractSettingsSerializer& serializer, int metaTypeId,
                                const QList<QString>& path);
QVariant loadOpaqueProperty(AbstractSettingsSerializer& serializer, QObject* parent, int metaTypeId,
                            const QList<QString>& path);
