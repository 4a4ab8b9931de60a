#include "QSettingsSerializer.h"

#include "ZRSerializableStructures.h"
#include "dataObjectUtils.h"
#include "generalUtilities.h"
#include "settingsReadGuard.h"

#include <QDataStream>
#include <QDebug>
#include <QFile>
#include <QFileInfo>
#include <QIcon>
#include <QMargins>
#include <QMetaType>
#include <QRegularExpression>

#include <algorithm>

namespace {

const QString typeKeySuffix = QStringLiteral("__type");
const QString objectTypeComponent = QStringLiteral("__objectType");
const QString invalidKeyComponent = QStringLiteral("@invalid");

// Without a minus sign: a negative margin is written but does not read back.
const QRegularExpression& marginsExpression() {
    static const QRegularExpression expression(QStringLiteral("^@Margins\\((\\d+) (\\d+) (\\d+) (\\d+)\\)$"));
    return expression;
}

int marginsTypeId() {
    return QMetaType::fromType<QMargins>().id();
}

int metaTypeIdFromName(const QByteArray& name) {
    return QMetaType::fromName(name).id();
}

// Variant containers and values whose declared type is unknown are the ones that need their type
// written beside them.
bool isUndeclaredType(int declaredType) {
    return declaredType == QMetaType::QVariant || declaredType == QMetaType::UnknownType;
}

template <typename Key, typename Compute>
QString memoized(bool useCache, QHash<Key, QString>& cache, const Key& key, Compute compute) {
    if (!useCache)
        return compute();
    const QString hit = cache.value(key);
    if (!hit.isEmpty())
        return hit;
    const QString computed = compute();
    cache.insert(key, computed);
    return computed;
}

} // namespace

QSettingsSerializer::QSettingsSerializer(const QString& filePath, QFlags<Option> options)
    : QSettingsSerializer(nullptr, filePath, options) {}

QSettingsSerializer::QSettingsSerializer(const QSharedPointer<QSettings>& settings, QFlags<Option> options)
    : QSettingsSerializer(settings, QString(), options) {}

QSettingsSerializer::QSettingsSerializer(const QSharedPointer<QSettings>& settings, const QString& filePath,
                                         QFlags<Option> options)
    : settingsObject(settings), filePath(filePath), failIfFileMissing(options.testFlag(FailIfFileMissing)),
      writeTypeInfo(options.testFlag(WriteTypeInfo)), useCache(!options.testFlag(NoPathCache)) {
    // Open the file now, so that status() tells at once whether it was there.
    this->settings();
    refuseContentThatCannotBeReadHere();
}

// QSettings builds every value of a file on first access, and a value of some types aborts a
// process that runs no GUI. Such a file reads as empty and invalid, and is never written.
void QSettingsSerializer::refuseContentThatCannotBeReadHere() {
    if (fileMissing)
        return;
    const QString path = settingsObject->fileName();
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return;
    QString problem;
    if (iniTextIsReadableHere(file.readAll(), &problem))
        return;
    qDebug().noquote() << "Error: settings file" << path << "is not read: it holds" << problem;
    contentRefused = true;
    settingsObject.reset(new QSettings(nullFilePath(), QSettings::IniFormat));
}

QSharedPointer<QSettings> QSettingsSerializer::settings() {
    if (!settingsObject) {
        fileMissing = failIfFileMissing && !QFileInfo(filePath).exists();
        settingsObject.reset(new QSettings(fileMissing ? nullFilePath() : filePath, QSettings::IniFormat));
    }
    return settingsObject;
}

QString QSettingsSerializer::nullFilePath() {
    return QStringLiteral("/dev/null");
}

ZRDataError QSettingsSerializer::status() {
    if (fileMissing)
        return ZRDataError::FileNotFound;
    if (contentRefused)
        return ZRDataError::InvalidFormat;
    switch (settings()->status()) {
    case QSettings::NoError:
        return ZRDataError::NoError;
    case QSettings::AccessError:
        return ZRDataError::AccessDenied;
    case QSettings::FormatError:
        return ZRDataError::InvalidFormat;
    }
    return ZRDataError::UnknownError;
}

void QSettingsSerializer::clear() {
    settings()->clear();
}

void QSettingsSerializer::synchronize() {
    settings()->sync();
}

bool QSettingsSerializer::utilizeDirtyMarksAndSetCleanWhenWriting() {
    return false;
}

void QSettingsSerializer::preWriteOperation(const QString& group) {
    QSettings& store = *settings();
    store.sync();
    if (group.isEmpty()) {
        store.clear();
        return;
    }
    store.beginGroup(group);
    store.remove(QString());
    store.endGroup();
}

void QSettingsSerializer::postWriteOperation(const QString&) {
    settings()->sync();
}

// The cache always covers the whole file, whatever group is loaded.
void QSettingsSerializer::preReadOperation(const QString&) {
    settings()->sync();
    if (useCache) {
        buildChildGroupAndKeyStructures();
        cacheBuilt = true;
    }
}

QString QSettingsSerializer::encodedPathString(const QList<QString>& path) {
    return memoized(useCache, pathStringCache, path, [&] {
        QStringList components;
        components.reserve(path.size());
        for (const QString& component : path)
            components.append(encodedPathComponent(component));
        return components.join(u'/');
    });
}

QString QSettingsSerializer::encodedPathComponent(const QString& component) {
    return memoized(useCache, encodeCache, component, [&] { return computeEncodedPathComponent(component); });
}

QString QSettingsSerializer::decodedPathComponent(const QString& component) {
    return memoized(useCache, decodeCache, component, [&] { return computeDecodedPathComponent(component); });
}

QList<QString> QSettingsSerializer::decodedPath(const QList<QString>& path) {
    QList<QString> decoded;
    decoded.reserve(path.size());
    for (const QString& component : path)
        decoded.append(decodedPathComponent(component));
    return decoded;
}

QString QSettingsSerializer::computeEncodedPathComponent(const QString& component) {
    // Literal escapes first, so that they stay apart from the escapes put in for the slashes.
    QString encoded = component;
    encoded.replace(QStringLiteral("@VQfslash_"), QStringLiteral("@VQfslash__"));
    encoded.replace(QStringLiteral("@VQbslash_"), QStringLiteral("@VQbslash__"));
    encoded.replace(u'/', QStringLiteral("@VQfslash_"));
    encoded.replace(u'\\', QStringLiteral("@VQbslash_"));
    return encoded;
}

QString QSettingsSerializer::computeDecodedPathComponent(const QString& component) {
    static const QRegularExpression forwardSlash(QStringLiteral("@VQfslash_(?!_)"));
    static const QRegularExpression backslash(QStringLiteral("@VQbslash_(?!_)"));
    static const QRegularExpression literalForwardSlashEscape(QStringLiteral("(@VQfslash_+)_"));
    static const QRegularExpression literalBackslashEscape(QStringLiteral("(@VQbslash_+)_"));
    QString decoded = component;
    decoded.replace(forwardSlash, QStringLiteral("/"));
    decoded.replace(backslash, QStringLiteral("\\"));
    decoded.replace(literalForwardSlashEscape, QStringLiteral("\\1"));
    decoded.replace(literalBackslashEscape, QStringLiteral("\\1"));
    return decoded;
}

void QSettingsSerializer::writeValue(const QList<QString>& path, const QVariant& value, int declaredType) {
    const QString key = encodedPathString(path);
    if (typeIsObjectOrStructure(value.typeId())) {
        setErrorOccurred();
        qDebug() << "QSettingsSerializer error: cannot write out complex data format for path:" << path;
    } else {
        setStoredValue(key, storableValue(value, declaredType));
    }
    if (writeTypeInfo && isUndeclaredType(declaredType))
        setStoredValue(key + typeKeySuffix, QString::fromLatin1(value.typeName()));
}

// Writes for a missing file go nowhere. Every QSettings of the process on the null device shares
// one content, which later readers of other missing files would see; and syncing it replaces the
// device with a regular file when the process may write to its directory.
void QSettingsSerializer::setStoredValue(const QString& key, const QVariant& value) {
    if (!fileMissing && !contentRefused)
        settings()->setValue(key, value);
}

QVariant QSettingsSerializer::storableValue(const QVariant& value, int declaredType) const {
    if (value.typeId() == marginsTypeId()) {
        const QMargins margins = value.value<QMargins>();
        return QStringLiteral("@Margins(%1 %2 %3 %4)")
            .arg(margins.left())
            .arg(margins.top())
            .arg(margins.right())
            .arg(margins.bottom());
    }
    if (value.typeId() == QMetaType::QIcon)
        return iconToSerializableData(value.value<QIcon>());
    // QSettings would write such a value as a stream it cannot make (the platform's null, a
    // void*, among them) and warn; it is written as an invalid value, and its type key brings
    // back its empty value.
    if (value.isValid() && !value.metaType().hasRegisteredDataStreamOperators())
        return QVariant();
    // Without a type key, "true" would read back from a variant container as a string; a number
    // converts to bool in any consumer.
    if (declaredType == QMetaType::QVariant && !writeTypeInfo && value.typeId() == QMetaType::Bool)
        return value.toInt();
    return value;
}

QVariant QSettingsSerializer::readValue(const QList<QString>& path, int declaredType) {
    const QString key = encodedPathString(path);
    QSettings& store = *settings();
    QVariant raw = store.value(key, QVariant());
    if (typeIsObjectOrStructure(declaredType)) {
        setErrorOccurred();
        qDebug() << "QSettingsSerializer error: cannot read in complex data format for path:" << path;
        return QVariant();
    }
    if (declaredType == marginsTypeId())
        return QVariant::fromValue(parseMarginsString(raw.toString()));
    if (declaredType == QMetaType::QVariant && !writeTypeInfo &&
        marginsExpression().match(raw.toString()).hasMatch())
        return QVariant::fromValue(parseMarginsString(raw.toString()));
    if (declaredType == QMetaType::QIcon)
        return QVariant::fromValue(entityVariantToIcon(QVariant(raw.toByteArray())));
    if (!writeTypeInfo || !isUndeclaredType(declaredType))
        return raw;
    const QString typeName = store.value(key + typeKeySuffix).toString();
    if (!raw.isValid()) {
        // An empty list, and a value that has no stream form, are written @Invalid() as an
        // invalid value is; the saved type tells them apart, so that they come back as the empty
        // value they were.
        const int type =
            typeName.isEmpty() ? int(QMetaType::UnknownType) : metaTypeIdFromName(typeName.toUtf8());
        if (type == QMetaType::UnknownType || typeNeedsGuiApplication(type))
            return raw;
        return QVariant(QMetaType(type));
    }

    if (typeName.isEmpty()) {
        setErrorOccurred();
        qDebug() << "Error: no saved type for setting at path:" << key;
        return raw;
    }
    const int type = metaTypeIdFromName(typeName.toUtf8());
    if (type == QMetaType::UnknownType) {
        setErrorOccurred();
        qDebug() << "Error: unknown or invalid saved type:" << typeName << " ...for setting at path:" << key;
        return raw;
    }
    if (type == marginsTypeId())
        return QVariant::fromValue(parseMarginsString(raw.toString()));
    if (typeNeedsGuiApplication(type)) {
        setErrorOccurred();
        qDebug() << "Error: saved type" << typeName
                 << "cannot be read without a GUI, for setting at path:" << key;
        return QVariant();
    }
    // A failed conversion leaves a null value of the saved type, as a missing item would.
    raw.convert(QMetaType(type));
    return raw;
}

QMargins QSettingsSerializer::parseMarginsString(const QString& string) {
    const QRegularExpressionMatch match = marginsExpression().match(string);
    if (!match.hasMatch()) {
        setErrorOccurred();
        qDebug() << "Error: invalid Margins value when parsing using QSettingsSerializer:" << string;
        return QMargins();
    }
    // toInt gives 0 for a number beyond int.
    return QMargins(match.captured(1).toInt(), match.captured(2).toInt(), match.captured(3).toInt(),
                    match.captured(4).toInt());
}

QByteArray QSettingsSerializer::iconToSerializableData(const QIcon& icon) {
    QByteArray data;
    QDataStream stream(&data, QIODevice::WriteOnly);
    stream << icon;
    return data.toBase64();
}

QIcon QSettingsSerializer::serializableDataToIcon(const QByteArray& data) {
    if (data.isEmpty())
        return QIcon();
    if (typeNeedsGuiApplication(QMetaType::QIcon)) {
        qDebug() << "Error: icon data cannot be read without a GUI; the icon is left empty.";
        return QIcon();
    }
    const QByteArray bytes = QByteArray::fromBase64(data);
    QDataStream stream(bytes);
    QIcon icon;
    stream >> icon;
    return icon;
}

QIcon QSettingsSerializer::entityVariantToIcon(const QVariant& value) {
    if (value.typeId() == QMetaType::QIcon)
        return value.value<QIcon>();
    return serializableDataToIcon(value.toByteArray());
}

QList<QString> QSettingsSerializer::pathForItemInSequentialStructure(const QList<QString>& path, int index) {
    return path + QList<QString>{QString::number(index)};
}

QList<QString> QSettingsSerializer::pathForItemInAssociativeStructure(const QList<QString>& path,
                                                                      const QVariant& key) {
    if (QMetaType::canConvert(key.metaType(), QMetaType::fromType<QString>()))
        return path + QList<QString>{key.toString()};
    setErrorOccurred();
    qDebug() << "Error: QSettingsSerializer can only serialize associative structures whose key type is "
                "representable as a string. Key type:"
             << key.typeName();
    return path + QList<QString>{invalidKeyComponent};
}

QList<QString> QSettingsSerializer::pathForItem(const QList<QString>& path,
                                                const ZRSerializableStructureBase* structure,
                                                const QVariant& key) {
    return structure->isSequentialStructure() ? pathForItemInSequentialStructure(path, key.toInt())
                                              : pathForItemInAssociativeStructure(path, key);
}

QList<AbstractSettingsSerializer::KeyAndPath>
QSettingsSerializer::keysAndValuePathsFromStructureWrittenAtPath(
    const QList<QString>& path, const ZRSerializableStructureBase* structure) {
    QList<KeyAndPath> items;
    const QList<QVariant> keys = structure->serializableKeys();
    for (const QVariant& key : keys)
        items.append({key, pathForItem(path, structure, key)});
    return items;
}

QList<AbstractSettingsSerializer::KeyAndPath>
QSettingsSerializer::simpleMapKeysAndValuePathsFromStructureWrittenAtPath(
    const QList<QString>& path, const ZRSerializableStructureBase* structure) {
    return keysAndValuePathsFromStructureWrittenAtPath(path, structure);
}

QList<AbstractSettingsSerializer::KeyAndPath>
QSettingsSerializer::readSimpleMapKeysAndValuePathsForStructureAtPath(
    const QList<QString>& path, const ZRSerializableStructureBase* structure) {
    return readKeysAndValuePathsForStructureAtPath(path, structure);
}

// A typed container declares its value type in code; only the complex items of a variant container
// need their class written down for the loader.
void QSettingsSerializer::writeInfoForSerializableStructure(const QList<QString>& path,
                                                            const ZRSerializableStructureBase* structure) {
    if (structure->valueType() != QMetaType::QVariant)
        return;
    const QList<QVariant> keys = structure->serializableKeys();
    for (const QVariant& key : keys) {
        const int type = determineVariantType(structure->variantValueForKey(key));
        if (!typeIsObjectOrStructure(type))
            continue;
        const QString typeName = QString::fromUtf8(objectTypeNameForMetaTypeId(type));
        writeValue(pathForItem(path, structure, key) << objectTypeComponent, typeName, QMetaType::QString);
    }
}

QByteArray QSettingsSerializer::objectTypeNameForMetaTypeId(int metaTypeId) {
    const QByteArray name = QMetaType(metaTypeId).name();
    if (isQObjectType(metaTypeId)) {
        if (name.endsWith('*'))
            return name.chopped(1);
        setErrorOccurred();
        qDebug() << "Error: tried to get type name for an object type that is not stored by pointer: "
                 << name.constData();
        return QByteArray();
    }
    if (isMetaTypeSerializableStructure(metaTypeId))
        return name;
    setErrorOccurred();
    qDebug() << "Error: tried to get type name for a value that is neither an object nor a serializable "
                "structure: "
             << name.constData();
    return QByteArray();
}

// Structures are stored under their own name, classes under the name of their pointer type.
int QSettingsSerializer::objectTypeAtPath(const QList<QString>& path) {
    const QByteArray name =
        settings()->value(encodedPathString(path + QList<QString>{objectTypeComponent})).toString().toUtf8();
    const int type = metaTypeIdFromName(name);
    if (type != QMetaType::UnknownType && isMetaTypeSerializableStructure(type))
        return type;
    return metaTypeIdFromName(name + '*');
}

QList<AbstractSettingsSerializer::KeyAndPath>
QSettingsSerializer::readKeysAndValuePathsForStructureAtPath(const QList<QString>& path,
                                                             const ZRSerializableStructureBase* structure) {
    QList<KeyAndPath> items;
    const QList<QString> names = childItemsAtPath(path);
    for (const QString& name : names) {
        if (name == objectTypeComponent)
            continue;
        if (!structure->isSequentialStructure()) {
            items.append({QVariant(name), pathForItemInAssociativeStructure(path, QVariant(name))});
            continue;
        }
        // A list grows up to the highest index it is given; a negative one would lie before its
        // first element.
        if (!stringIsInteger(name) || name.toInt() < 0) {
            setErrorOccurred();
            qDebug() << "Warning: non-integer list index at:" << path;
            continue;
        }
        // The key stays a string; the structure casts it to its index.
        items.append({QVariant(name), pathForItemInSequentialStructure(path, name.toInt())});
    }
    return items;
}

QList<QString> QSettingsSerializer::childItemsAtPath(const QList<QString>& path) {
    const KeysAndGroups children = keysAndGroupsAtPath(path);
    QList<QString> items;
    for (const QString& key : children.keys) {
        // Also drops a map key that really ends so; the format cannot tell the two apart.
        if (!key.endsWith(typeKeySuffix))
            items.append(key);
    }
    return items + children.groups;
}

// A complex value is stored as a group, a plain one as a key; a name that is both is complex.
bool QSettingsSerializer::itemAtPathIsObjectOrStructure(const QList<QString>& path) {
    return !path.isEmpty() && keysAndGroupsAtPath(path.first(path.size() - 1)).groups.contains(path.last());
}

bool QSettingsSerializer::itemAtPathExists(const QList<QString>& path) {
    if (path.isEmpty())
        return false;
    const KeysAndGroups siblings = keysAndGroupsAtPath(path.first(path.size() - 1));
    return siblings.groups.contains(path.last()) || siblings.keys.contains(path.last());
}

// The cached and the uncached answers differ only in where they come from.
QSettingsSerializer::KeysAndGroups QSettingsSerializer::keysAndGroupsAtPath(const QList<QString>& path) {
    if (cacheBuilt)
        return cachedKeysAndGroupsAtPath(path);
    // No stored name is empty: QSettings folds an empty component into the separators around it.
    if (path.contains(QString()))
        return {};
    QSettings& store = *settings();
    store.beginGroup(encodedPathString(path));
    KeysAndGroups children{addressableDecodedNames(store.childKeys()),
                           addressableDecodedNames(store.childGroups())};
    store.endGroup();
    return children;
}

QSettingsSerializer::KeysAndGroups
QSettingsSerializer::cachedKeysAndGroupsAtPath(const QList<QString>& path) const {
    qsizetype group = 0;
    for (const QString& name : path) {
        group = structureCache.at(group).childGroupEntries.value(name, -1);
        if (group < 0)
            return {};
    }
    return structureCache.at(group).children;
}

QList<QString> QSettingsSerializer::addressableDecodedNames(const QStringList& storedNames) {
    QList<QString> names;
    for (const QString& storedName : storedNames) {
        const QString name = addressableDecodedName(storedName);
        if (!name.isEmpty())
            names.append(name);
    }
    return names;
}

// The decoded form of a name as QSettings lists it, or an empty string for a name that no path
// can reach: an empty one, or one that is not the encoding of its decoded form, such as a name
// with a backslash from a hand-written "%5C". Such names are left out of every answer, so that the
// items that a load finds are exactly those whose values it can read.
QString QSettingsSerializer::addressableDecodedName(const QString& storedName) {
    if (storedName.isEmpty())
        return QString();
    if (!storedName.contains(u'@') && !storedName.contains(u'\\'))
        return storedName;
    const QString name = decodedPathComponent(storedName);
    return encodedPathComponent(name) == storedName ? name : QString();
}

// One pass over the file's keys rather than a beginGroup and childGroups per group: the cost
// stays in proportion to the file, and no nesting of keys, however deep, can exhaust the stack.
void QSettingsSerializer::buildChildGroupAndKeyStructures() {
    structureCache = {CachedGroup()};
    const QStringList storedKeys = settings()->allKeys();
    for (const QString& storedKey : storedKeys) {
        const QStringList storedNames = storedKey.split(u'/');
        QList<QString> path;
        qsizetype group = 0;
        for (const QString& storedName : storedNames) {
            const QString name = addressableDecodedName(storedName);
            if (name.isEmpty())
                break;
            path.append(name);
            if (path.size() < storedNames.size()) {
                group = cachedChildGroup(group, storedName, name);
            } else {
                structureCache[group].children.keys.append(storedName);
                pathStringCache.insert(path, storedKey);
            }
        }
    }
    // The children were collected under their stored names, so that they can take the order in
    // which QSettings lists them.
    for (CachedGroup& group : structureCache) {
        for (QList<QString>* names : {&group.children.keys, &group.children.groups}) {
            std::sort(names->begin(), names->end());
            for (QString& name : *names)
                name = addressableDecodedName(name);
        }
    }
}

qsizetype QSettingsSerializer::cachedChildGroup(qsizetype parent, const QString& storedName,
                                                const QString& name) {
    const qsizetype existing = structureCache.at(parent).childGroupEntries.value(name, -1);
    if (existing >= 0)
        return existing;
    structureCache.append(CachedGroup());
    const qsizetype child = structureCache.size() - 1;
    structureCache[parent].childGroupEntries.insert(name, child);
    structureCache[parent].children.groups.append(storedName);
    return child;
}
