#include "dataObjectSerialization.h"

#include "QSettingsSerializer.h"
#include "ZRDirtyableEntity.h"
#include "ZREntity.h"
#include "ZRSerializableStructures.h"
#include "dataObjectUtils.h"
#include "generalUtilities.h"

#include <QCoreApplication>
#include <QDate>
#include <QDebug>
#include <QFile>
#include <QMetaProperty>
#include <QRegularExpression>
#include <QStandardPaths>
#include <QUuid>

#include <atomic>

namespace {

using Path = QList<QString>;

// A list grows up to the highest index it is given. A null object in a typed list writes nothing,
// so a saved list may have gaps and an index may exceed the number of items found; but an index
// is trusted only up to twice that number plus a few, so that what a list allocates stays in
// proportion to what the message holds.
qlonglong largestTrustedListIndex(qsizetype itemCount) {
    return 2 * qlonglong(itemCount) + 8;
}

// Objects and structures are loaded recursively, one level per nesting in the file. A real graph
// is a few dozen levels deep; the bound keeps a crafted message from exhausting the stack.
constexpr qsizetype maximumLoadedPathLength = 1000;

// Every failure of a walk goes through here: the flag for the closing warning, then the line.
QDebug failure(AbstractSettingsSerializer& serializer) {
    serializer.setErrorOccurred();
    return qDebug();
}

bool isComplex(const QVariant& value) {
    return typeIsObjectOrStructure(value.metaType().id());
}

bool hasOwnProperties(const QMetaObject* metaObject) {
    return metaObject->propertyOffset() != metaObject->propertyCount();
}

// Stored, not left out by name, and among the flagged ones if the class declares the flag key.
bool propertyIsWalked(const QMetaProperty& property, const QSet<QByteArray>& leftOut,
                      const QSet<QByteArray>& flagged) {
    const QByteArray name(property.name());
    return property.isStored() && !leftOut.contains(name) && (flagged.isEmpty() || flagged.contains(name));
}

Path pathOfProperty(const Path& ownerPath, const QMetaProperty& property, const QSet<QByteArray>& notInPath) {
    if (propertyIsNotIncludedInSerializationPath(property, notInPath))
        return ownerPath;
    return ownerPath + Path{QString::fromLocal8Bit(property.name())};
}

Path rootPath(const QString& rootGroup) {
    return rootGroup.isEmpty() ? Path() : Path{rootGroup};
}

QObject* objectInVariant(const QVariant& value) {
    return value.value<QObject*>();
}

// Null unless the serializer writes by dirty marks and the object keeps them.
ZRDirtyableEntity* dirtyableInDirtyMarkMode(AbstractSettingsSerializer& serializer, QObject* object) {
    if (!serializer.utilizeDirtyMarksAndSetCleanWhenWriting())
        return nullptr;
    return qobject_cast<ZRDirtyableEntity*>(object);
}

// A list index that the store let through as an integer may still be negative or absurdly large.
bool itemKeyIsUsable(AbstractSettingsSerializer& serializer, const ZRSerializableStructureBase* structure,
                     const AbstractSettingsSerializer::KeyAndPath& item, qsizetype itemCount) {
    if (!structure->isSequentialStructure())
        return true;
    const qlonglong index = item.key.toLongLong();
    if (index >= 0 && index <= largestTrustedListIndex(itemCount))
        return true;
    failure(serializer) << "Warning: list index out of range at:" << item.path;
    return false;
}

void saveTopLevel(AbstractSettingsSerializer& serializer, QObject* object, const QSet<QByteArray>& skip,
                  const QByteArray& flagKey, const QString& rootGroup) {
    serializer.preWriteOperation(rootGroup);
    setObjectBeingSerializedIfEntity(object, true);
    saveObject(serializer, object, rootPath(rootGroup), false, skip, flagKey);
    serializer.postWriteOperation(rootGroup);
    recursivelyMarkObjectHierarchyAsNotBeingSerialized(object);
    warnIfDataObjectErrorsOccurred(serializer);
}

void loadTopLevel(AbstractSettingsSerializer& serializer, QObject* object, const QSet<QByteArray>& skip,
                  const QByteArray& flagKey, const QString& rootGroup) {
    serializer.preReadOperation(rootGroup);
    setObjectBeingDeserializedIfEntity(object, true);
    loadObject(serializer, object, rootPath(rootGroup), skip, flagKey);
    serializer.postReadOperation(rootGroup);
    recursivelyMarkObjectHierarchyAsNotBeingDeserialized(object);
    warnIfDataObjectErrorsOccurred(serializer);
}

} // namespace

void saveObject(AbstractSettingsSerializer& serializer, QObject* object, const QString& rootGroup) {
    saveTopLevel(serializer, object, {}, {}, rootGroup);
}

void saveObjectSkippingProperties(AbstractSettingsSerializer& serializer, QObject* object,
                                  const QSet<QByteArray>& skip, const QString& rootGroup) {
    saveTopLevel(serializer, object, skip, {}, rootGroup);
}

void saveObjectFlaggedProperties(AbstractSettingsSerializer& serializer, QObject* object,
                                 const QByteArray& flagKey, const QString& rootGroup) {
    saveTopLevel(serializer, object, {}, flagKey, rootGroup);
}

void loadObject(AbstractSettingsSerializer& serializer, QObject* object, const QString& rootGroup) {
    loadTopLevel(serializer, object, {}, {}, rootGroup);
}

void loadObjectSkippingProperties(AbstractSettingsSerializer& serializer, QObject* object,
                                  const QSet<QByteArray>& skip, const QString& rootGroup) {
    loadTopLevel(serializer, object, skip, {}, rootGroup);
}

void loadObjectFlaggedProperties(AbstractSettingsSerializer& serializer, QObject* object,
                                 const QByteArray& flagKey, const QString& rootGroup) {
    loadTopLevel(serializer, object, {}, flagKey, rootGroup);
}

void warnIfDataObjectErrorsOccurred(AbstractSettingsSerializer& serializer) {
    if (serializer.errorOccurred())
        qWarning("Errors occurred while saving or loading data. See previous debug-level log entries for "
                 "more information");
}

bool propertyValueIsEmpty(const QVariant& value) {
    if (value.isNull())
        return true;
    if (value.metaType().id() == QMetaType::QString)
        return value.toString().isEmpty();
    if (value.metaType().id() == QMetaType::QDate)
        return !value.toDate().isValid();
    return false;
}

// Saving

void saveObject(AbstractSettingsSerializer& serializer, QObject* object, const QList<QString>& path,
                bool force, const QSet<QByteArray>& skip, const QByteArray& flagKey) {
    if (!object)
        return;
    const QMetaObject* metaObject = object->metaObject();
    if (!hasOwnProperties(metaObject)) {
        failure(serializer) << "Warning: trying to save object with no properties!";
        return;
    }
    ZRDirtyableEntity* dirtyable = dirtyableInDirtyMarkMode(serializer, object);
    if (dirtyable && !force && !dirtyable->isDirty())
        return;

    const QSet<QByteArray> leftOut = propertiesNotWrittenWhenSerializing(metaObject) | skip;
    const QSet<QByteArray> opaque = opaqueProperties(metaObject);
    const QSet<QByteArray> simpleMap = simpleMapProperties(metaObject);
    const QSet<QByteArray> notInPath = notIncludedInPathProperties(metaObject);
    const QSet<QByteArray> dontIncludeIfEmpty = dontIncludeIfEmptyProperties(metaObject);
    const QSet<QByteArray> flagged = propertiesFlaggedByKey(metaObject, flagKey);

    for (int index = metaObject->propertyOffset(); index < metaObject->propertyCount(); ++index) {
        const QMetaProperty property = metaObject->property(index);
        if (!propertyIsWalked(property, leftOut, flagged))
            continue;
        const QByteArray name(property.name());
        const Path propertyPath = pathOfProperty(path, property, notInPath);
        // An opaque or simple map property is forced by what it holds, never by the caller.
        const auto containsDirt = [&] { return dirtyable && dirtyable->isPropertyDirty(index); };
        if (opaque.contains(name)) {
            saveOpaqueProperty(serializer, property.read(object), propertyPath, containsDirt());
            continue;
        }
        const bool markedDirty = dirtyable && dirtyable->dirtyProperties().contains(index);
        const QSet<QVariant>* dirtyKeys = nullptr;
        if (dirtyable) {
            const auto keys = dirtyable->dirtyStructureKeys().constFind(index);
            if (keys != dirtyable->dirtyStructureKeys().constEnd())
                dirtyKeys = &keys.value();
        }
        const QVariant value = property.read(object);
        if (simpleMap.contains(name)) {
            saveSimpleMapProperty(serializer, value, propertyPath, markedDirty || containsDirt(), dirtyKeys);
            continue;
        }
        if (dontIncludeIfEmpty.contains(name) && propertyValueIsEmpty(value))
            continue;
        saveVariant(serializer, value, property.metaType().id(), propertyPath, markedDirty || force,
                    dirtyKeys, flagKey);
    }
    if (dirtyable)
        dirtyable->markClean();
}

void saveStructureOrChildObject(AbstractSettingsSerializer& serializer, const QVariant& value,
                                const QList<QString>& path, bool force, const QSet<QVariant>* dirtyKeys,
                                const QByteArray& flagKey) {
    const int type = determineVariantType(value);
    if (isMetaTypePointerToQObject(type)) {
        QObject* child = objectInVariant(value);
        setObjectBeingSerializedIfEntity(child, true);
        saveObject(serializer, child, path, force, {}, flagKey);
        setObjectBeingSerializedIfEntity(child, false);
    } else if (isMetaTypeSerializableStructure(type)) {
        saveStructure(serializer, serializableStructureInVariant(value), path, force, false, dirtyKeys,
                      flagKey);
    } else {
        failure(serializer) << "Warning: cannot determine type of object at path:" << path;
    }
}

void saveStructure(AbstractSettingsSerializer& serializer, const ZRSerializableStructureBase* structure,
                   const QList<QString>& path, bool force, bool isSimpleMap, const QSet<QVariant>* dirtyKeys,
                   const QByteArray& flagKey) {
    const bool dirtyMarkMode = serializer.utilizeDirtyMarksAndSetCleanWhenWriting();
    if (!dirtyMarkMode || force || (dirtyKeys && !dirtyKeys->isEmpty())) {
        if (isSimpleMap)
            serializer.performPrewriteOperationsForSimpleMapStructure(path, structure);
        else
            serializer.writeInfoForSerializableStructure(path, structure);
    }
    const QList<AbstractSettingsSerializer::KeyAndPath> items =
        isSimpleMap ? serializer.simpleMapKeysAndValuePathsFromStructureWrittenAtPath(path, structure)
                    : serializer.keysAndValuePathsFromStructureWrittenAtPath(path, structure);
    for (const AbstractSettingsSerializer::KeyAndPath& item : items) {
        const bool keyIsDirty = dirtyMarkMode && !force && dirtyKeys && dirtyKeys->contains(item.key);
        const QVariant value = structure->variantValueForKey(item.key);
        if (isSimpleMap && isComplex(value)) {
            failure(serializer) << "Warning: property marked as simple map contains complex value. Path:"
                                << item.path;
            continue;
        }
        saveVariant(serializer, value, structure->valueType(), item.path, keyIsDirty || force, nullptr,
                    flagKey);
    }
}

void saveVariant(AbstractSettingsSerializer& serializer, const QVariant& value, int declaredType,
                 const QList<QString>& path, bool force, const QSet<QVariant>* dirtyKeys,
                 const QByteArray& flagKey) {
    if (isComplex(value))
        saveStructureOrChildObject(serializer, value, path, force, dirtyKeys, flagKey);
    else if (force || !serializer.utilizeDirtyMarksAndSetCleanWhenWriting())
        serializer.writeValue(path, value, declaredType);
}

void saveOpaqueProperty(AbstractSettingsSerializer& serializer, const QVariant& value,
                        const QList<QString>& path, bool force) {
    const bool dirtyMarkMode = serializer.utilizeDirtyMarksAndSetCleanWhenWriting();
    if (dirtyMarkMode && !force)
        return;
    if (!isMetaTypePointerToQObject(determineVariantType(value))) {
        failure(serializer) << "Warning: trying to save opaque property that is not derived from QObject";
        return;
    }
    QObject* object = objectInVariant(value);
    if (!object)
        return;
    setObjectBeingSerializedIfEntity(object, true);
    const QByteArray base64 = serializeObjectToByteArray(object).toBase64();
    serializer.writeValue(path, QVariant(base64), QMetaType::QString);
    if (dirtyMarkMode) {
        if (auto* dirtyable = qobject_cast<ZRDirtyableEntity*>(object))
            dirtyable->recursivelyMarkClean();
    }
    setObjectBeingSerializedIfEntity(object, false);
}

void saveSimpleMapProperty(AbstractSettingsSerializer& serializer, const QVariant& value,
                           const QList<QString>& path, bool force, const QSet<QVariant>* dirtyKeys) {
    if (serializer.utilizeDirtyMarksAndSetCleanWhenWriting() && !force)
        return;
    if (!isComplex(value)) {
        failure(serializer) << "Error: tried to save property marked as simple map that is not an object or "
                               "serializable structure";
        return;
    }
    if (!isMetaTypeSerializableStructure(determineVariantType(value))) {
        failure(serializer)
            << "Error: tried to save property marked as simple map that is not a serializable "
               "structure";
        return;
    }
    const ZRSerializableStructureBase* structure = serializableStructureInVariant(value);
    if (structure->isSequentialStructure()) {
        failure(serializer)
            << "Error: tried to save property marked as simple map that is not a serializable "
               "associative structure";
        return;
    }
    saveStructure(serializer, structure, path, force, true, dirtyKeys, QByteArray());
}

// Loading

void loadObject(AbstractSettingsSerializer& serializer, QObject* object, const QList<QString>& path,
                const QSet<QByteArray>& skip, const QByteArray& flagKey) {
    if (!object)
        return;
    const QMetaObject* metaObject = object->metaObject();
    if (!hasOwnProperties(metaObject)) {
        failure(serializer) << "Warning: trying to load object with no properties!";
        return;
    }
    const QSet<QByteArray> opaque = opaqueProperties(metaObject);
    const QSet<QByteArray> simpleMap = simpleMapProperties(metaObject);
    const QSet<QByteArray> notInPath = notIncludedInPathProperties(metaObject);
    const QSet<QByteArray> flagged = propertiesFlaggedByKey(metaObject, flagKey);

    for (int index = metaObject->propertyOffset(); index < metaObject->propertyCount(); ++index) {
        const QMetaProperty property = metaObject->property(index);
        if (!propertyIsWalked(property, skip, flagged))
            continue;
        const QByteArray name(property.name());
        // A property without a path component of its own is always loaded: its content lies
        // among its owner's keys, and there is nothing of its own to test for.
        const bool hasOwnComponent = !propertyIsNotIncludedInSerializationPath(property, notInPath);
        const Path propertyPath = pathOfProperty(path, property, notInPath);
        if (hasOwnComponent && !serializer.itemAtPathExists(propertyPath))
            continue;
        const int declaredType = property.metaType().id();
        QVariant value;
        if (opaque.contains(name))
            value = loadOpaqueProperty(serializer, object, declaredType, propertyPath);
        else if (simpleMap.contains(name))
            value = loadSimpleMapProperty(serializer, declaredType, propertyPath);
        else
            value = loadProperty(serializer, object, declaredType, propertyPath, flagKey);
        property.write(object, value);
    }
    if (ZRDirtyableEntity* dirtyable = dirtyableInDirtyMarkMode(serializer, object))
        dirtyable->markClean();
}

QVariant loadStructureOrChildObject(AbstractSettingsSerializer& serializer, QObject* parent, int metaTypeId,
                                    const QList<QString>& path, const QByteArray& flagKey) {
    if (path.size() > maximumLoadedPathLength) {
        failure(serializer) << "Warning: object nesting too deep at path:" << path;
        return {};
    }
    if (QObject* child = createObjectOfTypeIfTypeIsQObjectDerived(metaTypeId, true))
        return loadChildObject(serializer, parent, child, path, flagKey);
    if (isMetaTypeSerializableStructure(metaTypeId))
        return loadStructure(serializer, parent, metaTypeId, path, flagKey);
    failure(serializer) << "Warning: cannot instantiate and/or determine type of object at path:" << path;
    return {};
}

QVariant loadChildObject(AbstractSettingsSerializer& serializer, QObject* parent, QObject* child,
                         const QList<QString>& path, const QByteArray& flagKey) {
    setObjectBeingDeserializedIfEntity(child, true);
    child->setParent(parent);
    loadObject(serializer, child, path, {}, flagKey);
    const QVariant wrapped = variantFromQObjectDerivedClass(child);
    setObjectBeingDeserializedIfEntity(child, false);
    return wrapped;
}

QVariant loadStructure(AbstractSettingsSerializer& serializer, QObject* parent, int metaTypeId,
                       const QList<QString>& path, const QByteArray& flagKey) {
    return newSerializableStructure(metaTypeId, [&](ZRSerializableStructureBase* structure) {
        const QList<AbstractSettingsSerializer::KeyAndPath> items =
            serializer.readKeysAndValuePathsForStructureAtPath(path, structure);
        for (const AbstractSettingsSerializer::KeyAndPath& item : items) {
            if (!itemKeyIsUsable(serializer, structure, item, items.size()))
                continue;
            QVariant value;
            if (serializer.itemAtPathIsObjectOrStructure(item.path)) {
                // A variant container names the type of each complex item beside it.
                int valueType = structure->valueType();
                if (valueType == QMetaType::QVariant)
                    valueType = serializer.objectTypeAtPath(item.path);
                value = loadStructureOrChildObject(serializer, parent, valueType, item.path, flagKey);
            } else {
                value = serializer.readValue(item.path, structure->valueType());
            }
            structure->setVariantValueForKey(item.key, value);
        }
    });
}

QVariant loadProperty(AbstractSettingsSerializer& serializer, QObject* parent, int metaTypeId,
                      const QList<QString>& path, const QByteArray& flagKey) {
    if (typeIsObjectOrStructure(metaTypeId))
        return loadStructureOrChildObject(serializer, parent, metaTypeId, path, flagKey);
    return serializer.readValue(path, metaTypeId);
}

QVariant loadSimpleMapProperty(AbstractSettingsSerializer& serializer, int metaTypeId,
                               const QList<QString>& path) {
    if (!typeIsObjectOrStructure(metaTypeId)) {
        failure(serializer) << "Error: tried to read property marked as simple map that is not an object or "
                               "serializable structure";
        return {};
    }
    if (!isMetaTypeSerializableStructure(metaTypeId)) {
        failure(serializer)
            << "Error: tried to read property marked as simple map that is not a serializable "
               "structure";
        return {};
    }
    return loadSimpleMapStructure(serializer, metaTypeId, path);
}

QVariant loadSimpleMapStructure(AbstractSettingsSerializer& serializer, int metaTypeId,
                                const QList<QString>& path) {
    return newSerializableStructure(metaTypeId, [&](ZRSerializableStructureBase* structure) {
        const QList<AbstractSettingsSerializer::KeyAndPath> items =
            serializer.readSimpleMapKeysAndValuePathsForStructureAtPath(path, structure);
        for (const AbstractSettingsSerializer::KeyAndPath& item : items) {
            if (!itemKeyIsUsable(serializer, structure, item, items.size()))
                continue;
            if (serializer.itemAtPathIsObjectOrStructure(item.path)) {
                failure(serializer)
                    << "Error: simple map property contains value that is an object or structure "
                       "at path:"
                    << item.path;
                continue;
            }
            structure->setVariantValueForKey(item.key, serializer.readValue(item.path, QMetaType::QString));
        }
    });
}

QVariant loadOpaqueProperty(AbstractSettingsSerializer& serializer, QObject* parent, int metaTypeId,
                            const QList<QString>& path) {
    QObject* object = createObjectOfTypeIfTypeIsQObjectDerived(metaTypeId, true);
    if (!object) {
        failure(serializer) << "Warning: cannot deserialize opaque property that is not an object";
        return {};
    }
    setObjectBeingDeserializedIfEntity(object, true);
    object->setParent(parent);
    const QByteArray base64 = serializer.readValue(path, QMetaType::QString).toString().toLatin1();
    deserializeObjectFromByteArray(object, QByteArray::fromBase64(base64));
    if (serializer.utilizeDirtyMarksAndSetCleanWhenWriting()) {
        if (auto* dirtyable = qobject_cast<ZRDirtyableEntity*>(object))
            dirtyable->recursivelyMarkClean();
    }
    setObjectBeingDeserializedIfEntity(object, false);
    return variantFromQObjectDerivedClass(object);
}

// The byte array codec

QByteArray serializeObjectToByteArray(QObject* object) {
    const QString path = getTemporaryFilePath();
    {
        QSettingsSerializer serializer(path, QSettingsSerializer::WriteTypeInfo);
        saveObject(serializer, object);
        serializer.synchronize();
    }
    QFile file(path);
    QByteArray bytes;
    if (file.open(QIODevice::ReadOnly))
        bytes = file.readAll();
    file.close();
    file.remove();
    return bytes;
}

void deserializeObjectFromByteArray(QObject* object, const QByteArray& data) {
    const QString path = getTemporaryFilePath();
    {
        QFile file(path);
        if (file.open(QIODevice::WriteOnly))
            file.write(data);
    }
    {
        QSettingsSerializer serializer(path,
                                       QSettingsSerializer::Options(QSettingsSerializer::FailIfFileMissing |
                                                                    QSettingsSerializer::WriteTypeInfo));
        serializer.synchronize();
        loadObject(serializer, object);
        if (serializer.status() != ZRDataError::NoError)
            qDebug() << "Error: failed to deserialize object from byte array. Error:"
                     << int(serializer.status());
    }
    QFile::remove(path);
}

QString getTemporaryFilePath() {
    static const QString uuidString =
        QUuid::createUuid().toString().remove(QRegularExpression(QStringLiteral("[^a-zA-Z0-9_]")));
    static const QString appName =
        QCoreApplication::applicationName().replace(QLatin1Char(' '), QLatin1Char('_'));
    static std::atomic<quint64> counter{1};
    const QString name = QStringLiteral("%1_%2_%3_%4")
                             .arg(appName)
                             .arg(QCoreApplication::applicationPid())
                             .arg(counter.fetch_add(1))
                             .arg(uuidString);
    return joinPaths(QStandardPaths::writableLocation(QStandardPaths::TempLocation), {name});
}
