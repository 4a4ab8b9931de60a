#pragma once

// The settings-file store of the data objects library, and with it the wire format of the tool's
// messages: an object graph laid out as the keys of a QSettings file in IniFormat. A path
// component may hold any text, so "/" and "\", which QSettings takes as separators, are escaped
// as "@VQfslash_" and "@VQbslash_". Values of undeclared type carry their type name in a
// neighbouring key ending in "__type"; complex values in variant containers carry their class in
// an "__objectType" component below them.

#include "AbstractSettingsSerializer.h"

#include <QByteArray>
#include <QFlags>
#include <QHash>
#include <QList>
#include <QSettings>
#include <QSharedPointer>
#include <QString>
#include <QVariant>

class QIcon;
class QMargins;

class QSettingsSerializer : public AbstractSettingsSerializer {
public:
    enum Option {
        // A missing file is not created: the null device is read instead, writes are dropped,
        // and status() reports FileNotFound. (A file holding values that this process cannot
        // build is treated alike, whatever the options, with status() InvalidFormat.)
        FailIfFileMissing = 1,
        WriteTypeInfo = 2,
        // Every query goes to QSettings; the slow form against which the caches are checked.
        NoPathCache = 4,
    };
    Q_DECLARE_FLAGS(Options, Option)

    // The children of one group, by decoded name, in the order in which QSettings lists them.
    struct KeysAndGroups {
        QList<QString> keys;
        QList<QString> groups;
    };

    explicit QSettingsSerializer(const QString& filePath, QFlags<Option> options = {});
    explicit QSettingsSerializer(const QSharedPointer<QSettings>& settings, QFlags<Option> options = {});

    QSharedPointer<QSettings> settings();
    bool builtCache() const { return cacheBuilt; }
    static QString nullFilePath();

    void writeValue(const QList<QString>& path, const QVariant& value, int declaredType) override;
    QVariant readValue(const QList<QString>& path, int declaredType) override;
    void preWriteOperation(const QString& group) override;
    void preReadOperation(const QString& group) override;
    void postWriteOperation(const QString& group) override;
    void writeInfoForSerializableStructure(const QList<QString>& path,
                                           const ZRSerializableStructureBase* structure) override;
    QList<KeyAndPath>
    keysAndValuePathsFromStructureWrittenAtPath(const QList<QString>& path,
                                                const ZRSerializableStructureBase* structure) override;
    QList<KeyAndPath>
    readKeysAndValuePathsForStructureAtPath(const QList<QString>& path,
                                            const ZRSerializableStructureBase* structure) override;
    bool itemAtPathIsObjectOrStructure(const QList<QString>& path) override;
    int objectTypeAtPath(const QList<QString>& path) override;
    bool itemAtPathExists(const QList<QString>& path) override;
    ZRDataError status() override;
    void clear() override;
    void synchronize() override;
    bool utilizeDirtyMarksAndSetCleanWhenWriting() override;
    // A simple map is laid out like any other structure in this format.
    QList<KeyAndPath> simpleMapKeysAndValuePathsFromStructureWrittenAtPath(
        const QList<QString>& path, const ZRSerializableStructureBase* structure) override;
    QList<KeyAndPath>
    readSimpleMapKeysAndValuePathsForStructureAtPath(const QList<QString>& path,
                                                     const ZRSerializableStructureBase* structure) override;

    // The settings key of a path, and the escapes of its components.
    QString encodedPathString(const QList<QString>& path);
    QString encodedPathComponent(const QString& component);
    QString decodedPathComponent(const QString& component);
    QList<QString> decodedPath(const QList<QString>& path);
    static QString computeEncodedPathComponent(const QString& component);
    // "x/_y" encodes to the same text as the literal "x@VQfslash_y" and comes back as that: the
    // one gap of the scheme, kept because stored files depend on it.
    static QString computeDecodedPathComponent(const QString& component);

    static QList<QString> pathForItemInSequentialStructure(const QList<QString>& path, int index);
    // A key that cannot become a string gives the component "@invalid", shared by all such keys.
    QList<QString> pathForItemInAssociativeStructure(const QList<QString>& path, const QVariant& key);
    // Decoded names of the items below `path`, keys first, then groups; "__type" keys left out.
    QList<QString> childItemsAtPath(const QList<QString>& path);
    // The name that "__objectType" carries for a complex type: a class without its "*", or a
    // structure's own name. Empty, and an error, for anything else.
    QByteArray objectTypeNameForMetaTypeId(int metaTypeId);

    // "@Margins(left top right bottom)", non-negative numbers only; anything else is an error and
    // gives zero margins.
    QMargins parseMarginsString(const QString& string);
    static QByteArray iconToSerializableData(const QIcon& icon);
    static QIcon serializableDataToIcon(const QByteArray& data);
    static QIcon entityVariantToIcon(const QVariant& value);

private:
    // One group of the file in the structure cache, and where its child groups lie in it.
    struct CachedGroup {
        KeysAndGroups children;
        QHash<QString, qsizetype> childGroupEntries;
    };

    QSettingsSerializer(const QSharedPointer<QSettings>& settings, const QString& filePath,
                        QFlags<Option> options);

    void refuseContentThatCannotBeReadHere();
    QVariant storableValue(const QVariant& value, int declaredType) const;
    void setStoredValue(const QString& key, const QVariant& value);
    QList<QString> pathForItem(const QList<QString>& path, const ZRSerializableStructureBase* structure,
                               const QVariant& key);
    KeysAndGroups keysAndGroupsAtPath(const QList<QString>& path);
    KeysAndGroups cachedKeysAndGroupsAtPath(const QList<QString>& path) const;
    QList<QString> addressableDecodedNames(const QStringList& storedNames);
    QString addressableDecodedName(const QString& storedName);
    void buildChildGroupAndKeyStructures();
    qsizetype cachedChildGroup(qsizetype parent, const QString& storedName, const QString& name);

    QSharedPointer<QSettings> settingsObject;
    QString filePath;
    bool fileMissing = false;
    bool contentRefused = false;
    bool failIfFileMissing = false;
    bool writeTypeInfo = false;
    bool useCache = false;
    bool cacheBuilt = false;
    // The whole key tree, filled in one pass over the file's keys by preReadOperation. Entry 0 is
    // the root; a group refers to its child groups by index, so that the cache stays as large as
    // the file however deeply its keys nest.
    QList<CachedGroup> structureCache;
    QHash<QList<QString>, QString> pathStringCache;
    QHash<QString, QString> encodeCache;
    QHash<QString, QString> decodeCache;
};

Q_DECLARE_OPERATORS_FOR_FLAGS(QSettingsSerializer::Options)
