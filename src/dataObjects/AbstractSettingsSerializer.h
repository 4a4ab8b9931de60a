#pragma once

// The interface between the object walk and a store: what lies at which path is decided by the
// walk, how a path and a value are kept is decided here. A serializer lives on the stack of the
// function that uses it; no destructor is virtual.

#include "ZRDataError.h"

#include <QList>
#include <QString>
#include <QVariant>

class ZRSerializableStructureBase;

class AbstractSettingsSerializer {
public:
    struct KeyAndPath {
        QVariant key;        // the key as the structure understands it
        QList<QString> path; // the full path of the item
    };

    virtual void writeValue(const QList<QString>& path, const QVariant& value, int declaredType) = 0;
    virtual QVariant readValue(const QList<QString>& path, int declaredType) = 0;
    virtual void preWriteOperation(const QString& group) = 0;
    virtual void preReadOperation(const QString& group) = 0;
    virtual void postWriteOperation(const QString& group) = 0;
    virtual void postReadOperation(const QString& /*group*/) {}
    virtual void writeInfoForSerializableStructure(const QList<QString>& path,
                                                   const ZRSerializableStructureBase* structure) = 0;
    virtual QList<KeyAndPath>
    keysAndValuePathsFromStructureWrittenAtPath(const QList<QString>& path,
                                                const ZRSerializableStructureBase* structure) = 0;
    virtual QList<KeyAndPath>
    readKeysAndValuePathsForStructureAtPath(const QList<QString>& path,
                                            const ZRSerializableStructureBase* structure) = 0;
    virtual bool itemAtPathIsObjectOrStructure(const QList<QString>& path) = 0;
    virtual int objectTypeAtPath(const QList<QString>& path) = 0;
    virtual bool itemAtPathExists(const QList<QString>& path) = 0;
    virtual ZRDataError status() = 0;
    virtual void clear() = 0;
    virtual void synchronize() = 0;
    virtual bool utilizeDirtyMarksAndSetCleanWhenWriting() = 0;
    virtual void
    performPrewriteOperationsForSimpleMapStructure(const QList<QString>& path,
                                                   const ZRSerializableStructureBase* structure) {
        writeInfoForSerializableStructure(path, structure);
    }
    virtual QList<KeyAndPath>
    simpleMapKeysAndValuePathsFromStructureWrittenAtPath(const QList<QString>& path,
                                                         const ZRSerializableStructureBase* structure) = 0;
    virtual QList<KeyAndPath>
    readSimpleMapKeysAndValuePathsForStructureAtPath(const QList<QString>& path,
                                                     const ZRSerializableStructureBase* structure) = 0;

    // Set by every failure of a walk or a store operation; never cleared.
    bool errorOccurred() const { return errorFlag; }
    void setErrorOccurred() { errorFlag = true; }

private:
    bool errorFlag = false;
};
