#pragma once

// Lists and maps that the data objects library can walk. Each structure is a real QMap or QList
// that ordinary code uses as such, and also shows its keys and values as QVariants through the
// small interface of ZRSerializableStructureBase, so that saving, loading, copying, comparing and
// dirty tracking need no code per container type.
//
// Layout rule: the structure base must be the first base class of every structure. The library
// takes QVariant::constData() of a variant that holds a structure and uses it directly as a
// ZRSerializableStructureBase*; ZRMetaTypeRegistrar refuses a structure that breaks this.

#include <QList>
#include <QMap>
#include <QMetaType>
#include <QObject>
#include <QString>
#include <QVariant>

#include <type_traits>

class ZRSerializableStructureBase {
public:
    virtual QList<QVariant> serializableKeys() const = 0;
    virtual QVariant variantValueForKey(const QVariant& key) const = 0;
    virtual void setVariantValueForKey(const QVariant& key, const QVariant& value) = 0;
    virtual int valueType() const = 0;
    virtual int keyType() const = 0;
    virtual bool isSequentialStructure() const = 0;

protected:
    // Structures are made and destroyed through their concrete type (QMetaType::create and
    // destroy), never deleted through this interface.
    ZRSerializableStructureBase() = default;
    ZRSerializableStructureBase(const ZRSerializableStructureBase&) = default;
    ZRSerializableStructureBase& operator=(const ZRSerializableStructureBase&) = default;
    ~ZRSerializableStructureBase() = default;
};

// The QVariant side of a structure with keys K and values V, in terms of the typed operations
// that each concrete structure supplies.
template <typename K, typename V>
class ZRSerializableStructureTemplateBase : public ZRSerializableStructureBase {
public:
    QList<QVariant> serializableKeys() const override {
        const QList<K> keys = keyList();
        QList<QVariant> result;
        result.reserve(keys.size());
        for (const K& key : keys)
            result.append(QVariant::fromValue(key));
        return result;
    }

    QVariant variantValueForKey(const QVariant& key) const override {
        const V value = getValue(qvariant_cast<K>(key));
        if constexpr (std::is_same_v<V, QVariant>)
            return value;
        else
            return QVariant::fromValue(value);
    }

    void setVariantValueForKey(const QVariant& key, const QVariant& value) override {
        getValueRef(qvariant_cast<K>(key)) = valueFromVariant(value);
    }

    int valueType() const override { return QMetaType::fromType<V>().id(); }
    int keyType() const override { return QMetaType::fromType<K>().id(); }

    virtual QList<K> keyList() const = 0;
    // The stored value, inserted or grown to first if the key is absent.
    virtual V& getValueRef(const K& key) = 0;
    virtual V getValue(const K& key) const = 0;
    virtual V defaultValue() const { return V(); }

protected:
    ZRSerializableStructureTemplateBase() = default;
    ZRSerializableStructureTemplateBase(const ZRSerializableStructureTemplateBase&) = default;
    ZRSerializableStructureTemplateBase& operator=(const ZRSerializableStructureTemplateBase&) = default;
    ~ZRSerializableStructureTemplateBase() = default;

private:
    static V valueFromVariant(const QVariant& value) {
        if constexpr (std::is_same_v<V, QVariant>) {
            // A variant that was wrapped once more on its way here is stored as what it wraps.
            if (value.metaType() == QMetaType::fromType<QVariant>())
                return *static_cast<const QVariant*>(value.constData());
            return value;
        } else if constexpr (std::is_pointer_v<V>) {
            // Object pointers arrive under any pointer type of the class tree; convert() checks
            // the run-time class and leaves null when it does not fit.
            V pointer = nullptr;
            QMetaType::convert(value.metaType(), value.constData(), QMetaType::fromType<V>(), &pointer);
            return pointer;
        } else {
            return qvariant_cast<V>(value);
        }
    }
};

// The element at `index`, growing the list with `fill` up to it first. The settings format gives
// list items back in string order ("0", "1", "10", "2", ...), so a loader may write a later index
// before an earlier one. `index` must not be negative.
template <typename V> V& growingElementRef(QList<V>& list, qsizetype index, const V& fill) {
    while (list.size() <= index)
        list.append(fill);
    return list[index]; // detaches if shared
}

// The indices 0 to size - 1.
template <typename V> QList<int> indexList(const QList<V>& list) {
    QList<int> indices;
    indices.reserve(list.size());
    for (int i = 0; i < list.size(); ++i)
        indices.append(i);
    return indices;
}

class ZRSerializableVariantMap : public ZRSerializableStructureTemplateBase<QString, QVariant>,
                                 public QMap<QString, QVariant> {
    Q_GADGET
    Q_CLASSINFO("__ZRSerializableStructure", "")
public:
    using QMap<QString, QVariant>::QMap;
    ZRSerializableVariantMap() = default;
    ZRSerializableVariantMap(const QMap<QString, QVariant>& other);
    ZRSerializableVariantMap(const ZRSerializableVariantMap&) = default;
    ZRSerializableVariantMap& operator=(const ZRSerializableVariantMap&) = default;
    virtual ~ZRSerializableVariantMap();

    Q_INVOKABLE bool isSequentialStructure() const override;
    QList<QString> keyList() const override;
    QVariant& getValueRef(const QString& key) override;
    QVariant getValue(const QString& key) const override;
};

class ZRSerializableStringMap : public ZRSerializableStructureTemplateBase<QString, QString>,
                                public QMap<QString, QString> {
    Q_GADGET
    Q_CLASSINFO("__ZRSerializableStructure", "")
public:
    using QMap<QString, QString>::QMap;
    ZRSerializableStringMap() = default;
    ZRSerializableStringMap(const QMap<QString, QString>& other);
    ZRSerializableStringMap(const ZRSerializableStringMap&) = default;
    ZRSerializableStringMap& operator=(const ZRSerializableStringMap&) = default;
    virtual ~ZRSerializableStringMap();

    Q_INVOKABLE bool isSequentialStructure() const override;
    QList<QString> keyList() const override;
    QString& getValueRef(const QString& key) override;
    QString getValue(const QString& key) const override;
};

class ZRSerializableVariantList : public ZRSerializableStructureTemplateBase<int, QVariant>,
                                  public QList<QVariant> {
    Q_GADGET
    Q_CLASSINFO("__ZRSerializableStructure", "")
public:
    using QList<QVariant>::QList;
    ZRSerializableVariantList() = default;
    ZRSerializableVariantList(const QList<QVariant>& other);
    ZRSerializableVariantList(const ZRSerializableVariantList&) = default;
    ZRSerializableVariantList& operator=(const ZRSerializableVariantList&) = default;
    virtual ~ZRSerializableVariantList();

    Q_INVOKABLE bool isSequentialStructure() const override;
    QList<int> keyList() const override;
    QVariant& getValueRef(const int& key) override;
    QVariant getValue(const int& key) const override;
};

class ZRSerializableStringList : public ZRSerializableStructureTemplateBase<int, QString>,
                                 public QList<QString> {
    Q_GADGET
    Q_CLASSINFO("__ZRSerializableStructure", "")
public:
    using QList<QString>::QList;
    ZRSerializableStringList() = default;
    ZRSerializableStringList(const QList<QString>& other);
    ZRSerializableStringList(const ZRSerializableStringList&) = default;
    ZRSerializableStringList& operator=(const ZRSerializableStringList&) = default;
    virtual ~ZRSerializableStringList();

    Q_INVOKABLE bool isSequentialStructure() const override;
    QList<int> keyList() const override;
    QString& getValueRef(const int& key) override;
    QString getValue(const int& key) const override;
};
