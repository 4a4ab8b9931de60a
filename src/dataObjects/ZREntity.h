#pragma once

// The base of every object that is stored, sent or copied. An entity's state is its list of Qt
// properties; how it takes part in serialization is declared in its class information, never
// coded per class.

#include <QObject>

struct QMetaObject;

// Declares the Qt property `name` of type `Type` with its notifier pair `nameChanged()` and
// `nameChangedToValue(oldValue, newValue)`, for classes that write the getter and setter by hand.
// The accessors must still be declared `virtual Type const& name() const` and
// `virtual void setterName(Type const&)` so that every entity exposes the same shape.
#define ZR_ENTITY_PROPERTY_NOTIFIERS(Type, name, setterName)                                                 \
    Q_PROPERTY(Type name READ name WRITE setterName NOTIFY name##Changed)                                    \
                                                                                                             \
Q_SIGNALS:                                                                                                   \
    void name##Changed();                                                                                    \
    void name##ChangedToValue(Type oldValue, Type newValue);

// The ordinary entity property (`Type const` rather than `const Type`, so that pointer types come
// out as `T* const&`): virtual getter and setter, the notifier pair, and the stored value.
// The setter never compares: listeners may count on one signal pair per call, even when the value
// stays the same. Leaves the class in private access, as Q_OBJECT does.
#define ZR_ENTITY_PROPERTY(Type, name, setterName)                                                           \
public:                                                                                                      \
    virtual Type const& name() const {                                                                       \
        return m_##name;                                                                                     \
    }                                                                                                        \
    virtual void setterName(Type const& newValue) {                                                          \
        /* Copy first: newValue may be a reference to the stored value itself. */                            \
        Type const oldValue = m_##name;                                                                      \
        m_##name = newValue;                                                                                 \
        Q_EMIT name##Changed();                                                                              \
        Q_EMIT name##ChangedToValue(oldValue, newValue);                                                     \
    }                                                                                                        \
    ZR_ENTITY_PROPERTY_NOTIFIERS(Type, name, setterName)                                                     \
                                                                                                             \
private:                                                                                                     \
    Type m_##name{};

class ZREntity : public QObject {
    Q_OBJECT
public:
    Q_INVOKABLE ZREntity();
    Q_INVOKABLE explicit ZREntity(QObject* parent);

    // Extension points for property changes. The property setters don't call them; they stay
    // empty unless a subclass gives them a meaning.
    virtual void entityPropertyAboutToChange(int propertyIndex);
    virtual void entityPropertyChanged(int propertyIndex);

    // True while a save walk is inside this object.
    bool isBeingSerialized() const { return beingSerialized; }
    // True while a load, deep copy or merge writes into this object. Setters with side effects
    // test this so that restoring data does not trigger them.
    bool isBeingDeserialized() const { return beingDeserialized; }

    static bool isDerivedFromEntity(const QMetaObject* metaObject);
    static bool isMetaTypeDerivedFromEntity(int metaTypeId);

Q_SIGNALS:
    void propertyChanged();

private:
    friend void _setEntityBeingSerialized(ZREntity* entity, bool value);
    friend void _setEntityBeingDeserialized(ZREntity* entity, bool value);

    bool beingSerialized = false;
    bool beingDeserialized = false;
};

// The only writers of the two guard fields.
void _setEntityBeingSerialized(ZREntity* entity, bool value);
void _setEntityBeingDeserialized(ZREntity* entity, bool value);

// Store the guard only if `object` is an entity; null and other objects are left alone.
void setObjectBeingSerializedIfEntity(QObject* object, bool value);
void setObjectBeingDeserializedIfEntity(QObject* object, bool value);

// Clear the guard on `object` and every entity below it. Run at the end of each top-level
// operation, as a safety net over whatever an error path left set.
void recursivelyMarkObjectHierarchyAsNotBeingSerialized(QObject* object);
void recursivelyMarkObjectHierarchyAsNotBeingDeserialized(QObject* object);
