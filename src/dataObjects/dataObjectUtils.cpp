#include "dataObjectUtils.h"

#include <QDebug>
#include <QMetaClassInfo>
#include <QMetaObject>
#include <QMetaType>
#include <QObject>

#include <cstring>

namespace {

constexpr char disableWriteToDiskKey[] = "ZRDisableWriteToDisk";
constexpr char opaquePropertiesKey[] = "ZROpaqueProperties";
constexpr char simpleMapPropertiesKey[] = "ZRSimpleMapProperties";
constexpr char dontIncludeIfEmptyKey[] = "ZRDontIncludeIfEmpty";
constexpr char dontIncludeInSerializationPathKey[] = "ZRDontIncludeInSerializationPath";
constexpr char reconstituteAsKey[] = "ZRReconstituteAs";
constexpr char serializableStructureMarker[] = "__ZRSerializableStructure";

bool inheritsQObject(const QMetaObject* metaObject) {
    return metaObject && metaObject->inherits(&QObject::staticMetaObject);
}

} // namespace

QList<QByteArray> valueOfCommaSeparatedItemizedClassInfo(const QMetaObject* metaObject, const char* name) {
    if (!metaObject)
        return {};
    const char* wanted = name ? name : "";
    for (int i = metaObject->classInfoOffset(); i < metaObject->classInfoCount(); ++i) {
        const QMetaClassInfo info = metaObject->classInfo(i);
        if (std::strcmp(info.name(), wanted) == 0)
            return QByteArray(info.value()).split(',');
    }
    return {};
}

QSet<QByteArray> commaSeparatedClassInfoSet(const QMetaObject* metaObject, const char* name) {
    const QList<QByteArray> items = valueOfCommaSeparatedItemizedClassInfo(metaObject, name);
    return QSet<QByteArray>(items.cbegin(), items.cend());
}

QSet<QByteArray> propertiesNotWrittenWhenSerializing(const QMetaObject* metaObject) {
    return commaSeparatedClassInfoSet(metaObject, disableWriteToDiskKey);
}

QSet<QByteArray> opaqueProperties(const QMetaObject* metaObject) {
    return commaSeparatedClassInfoSet(metaObject, opaquePropertiesKey);
}

QSet<QByteArray> simpleMapProperties(const QMetaObject* metaObject) {
    return commaSeparatedClassInfoSet(metaObject, simpleMapPropertiesKey);
}

QSet<QByteArray> dontIncludeIfEmptyProperties(const QMetaObject* metaObject) {
    return commaSeparatedClassInfoSet(metaObject, dontIncludeIfEmptyKey);
}

QSet<QByteArray> notIncludedInPathProperties(const QMetaObject* metaObject) {
    return commaSeparatedClassInfoSet(metaObject, dontIncludeInSerializationPathKey);
}

const QMetaObject* alternateTypeForReconstitution(const QMetaObject* metaObject) {
    if (!metaObject)
        return nullptr;
    for (int i = metaObject->classInfoOffset(); i < metaObject->classInfoCount(); ++i) {
        const QMetaClassInfo info = metaObject->classInfo(i);
        if (std::strcmp(info.name(), reconstituteAsKey) != 0)
            continue;
        if (const QMetaObject* alternate = QMetaType::fromName(info.value()).metaObject())
            return alternate;
        qDebug() << "Error:" << metaObject->className() << "marked to reconstitute as" << info.value()
                 << "but the type either doesn't exist or has no meta object";
    }
    return nullptr;
}

bool typeIsObjectOrStructure(int metaTypeId) {
    return QMetaType(metaTypeId).metaObject() != nullptr;
}

bool isSerializableStructure(const QMetaObject* metaObject) {
    return metaObject && metaObject->indexOfClassInfo(serializableStructureMarker) != -1;
}

bool isMetaTypeSerializableStructure(int metaTypeId) {
    return isSerializableStructure(QMetaType(metaTypeId).metaObject());
}

bool isQObjectType(int metaTypeId) {
    const QMetaObject* metaObject = QMetaType(metaTypeId).metaObject();
    return metaObject && !isSerializableStructure(metaObject);
}

bool propertyIsNotIncludedInSerializationPath(const QMetaProperty& property,
                                              const QSet<QByteArray>& notIncludedInPath) {
    return property.isUser() || notIncludedInPath.contains(property.name());
}

int metaTypeIdOfQObjectDerivedClass(QObject* object) {
    return metaTypeIdOfObjectPointer(object);
}

int metaTypeIdOfObjectPointer(const QObject* object) {
    if (!object)
        return 0;
    const QByteArray pointerName = QByteArray(object->metaObject()->className()) + '*';
    return QMetaType::fromName(pointerName).id();
}

QVariant variantFromQObjectDerivedClass(QObject* object) {
    const int typeId = metaTypeIdOfQObjectDerivedClass(object);
    if (typeId == 0)
        return {};
    return QVariant(QMetaType(typeId), &object);
}

int determineVariantType(const QVariant& value) {
    const QMetaType objectPointerType = QMetaType::fromType<QObject*>();
    QObject* object = nullptr;
    if (value.metaType() == objectPointerType)
        object = value.value<QObject*>();
    else
        QMetaType::convert(value.metaType(), value.constData(), objectPointerType, &object);
    if (object) {
        const int runTimeType = metaTypeIdOfObjectPointer(object);
        if (runTimeType > 0)
            return runTimeType;
    }
    return value.metaType().id();
}

QObject* createObjectOfTypeIfTypeIsQObjectDerived(int metaTypeId, bool useAlternateType) {
    const QMetaObject* metaObject = QMetaType(metaTypeId).metaObject();
    if (!inheritsQObject(metaObject))
        return nullptr;
    if (useAlternateType) {
        if (const QMetaObject* alternate = alternateTypeForReconstitution(metaObject))
            metaObject = alternate;
        // newInstance() of a gadget would hand out a non-QObject as a QObject*.
        if (!inheritsQObject(metaObject))
            return nullptr;
    }
    return metaObject->newInstance();
}

bool isMetaTypePointerToQObject(int metaTypeId) {
    return QMetaType(metaTypeId).flags() & QMetaType::PointerToQObject;
}

const ZRSerializableStructureBase* serializableStructureInVariant(const QVariant& value) {
    return static_cast<const ZRSerializableStructureBase*>(value.constData());
}

ZRSerializableStructureBase* mutableSerializableStructureInVariant(QVariant& value) {
    return static_cast<ZRSerializableStructureBase*>(value.data());
}

QVariant newSerializableStructure(int metaTypeId,
                                  const std::function<void(ZRSerializableStructureBase*)>& fill) {
    const QMetaType type(metaTypeId);
    void* data = type.create();
    fill(static_cast<ZRSerializableStructureBase*>(data));
    QVariant result(type, data);
    type.destroy(data);
    return result;
}

QSet<QByteArray> propertiesFlaggedByKey(const QMetaObject* metaObject, const QByteArray& flagKey) {
    if (flagKey.isEmpty())
        return {};
    return commaSeparatedClassInfoSet(metaObject, flagKey.constData());
}
