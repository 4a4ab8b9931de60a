#pragma once

// Stored files name their types, and QMetaType::fromName knows a name only once the type has been
// registered. The object being loaded may be the first use of its class in the process, so every
// class that can occur in stored data registers itself before main through one of these.
//
// Usage, in the translation unit that defines the class (so that the linker keeps it whenever
// the class is used at all):
//
//     template class ZRMetaTypeObjectRegistrar<MyEntity>;
//
// The explicit instantiation defines the static member, whose constructor does the registration.

#include <QDataStream>
#include <QMetaType>
#include <QtGlobal>

#include <type_traits>

class ZRSerializableStructureBase;

// The library reads a structure held in a QVariant through constData() as a
// ZRSerializableStructureBase*, with no conversion. That is only sound while the structure base
// lies at the very start of the object; a class that breaks it is refused at start-up.
template <typename T> void requireSerializableStructureBaseFirst() {
    const T probe{};
    const void* base = static_cast<const ZRSerializableStructureBase*>(&probe);
    if (base != static_cast<const void*>(&probe))
        qFatal("Error: serializable structure %s does not begin with its ZRSerializableStructureBase",
               QMetaType::fromType<T>().name());
}

// Registers the value type T under its plain name, so that QMetaType::create makes default and
// copy instances of it.
template <typename T> class ZRMetaTypeRegistrar {
public:
    ZRMetaTypeRegistrar() {
        qRegisterMetaType<T>();
        if constexpr (std::is_base_of_v<ZRSerializableStructureBase, T>)
            requireSerializableStructureBaseFirst<T>();
    }

    static ZRMetaTypeRegistrar _registrar;
};

template <typename T> ZRMetaTypeRegistrar<T> ZRMetaTypeRegistrar<T>::_registrar;

// Registers T* for an object type T, the pointer name being what stored files carry.
template <typename T> class ZRMetaTypeObjectRegistrar {
public:
    ZRMetaTypeObjectRegistrar() { qRegisterMetaType<T*>(); }

    static ZRMetaTypeObjectRegistrar _registrar;
};

template <typename T> ZRMetaTypeObjectRegistrar<T> ZRMetaTypeObjectRegistrar<T>::_registrar;

template <> class ZRMetaTypeObjectRegistrar<void> {
public:
    ZRMetaTypeObjectRegistrar() {}
};

// Registers a value type that is written to settings files through its data stream operators.
// The meta-type system picks the operators up from the type itself; requiring them here turns a
// type that lacks them into a compile error instead of an empty value in a file.
template <typename T> class ZRMetaTypeAndStreamOperatorsRegistrar {
    static_assert(QTypeTraits::has_stream_operator_v<QDataStream, T>,
                  "a type registered with its stream operators must have both of them");

public:
    ZRMetaTypeAndStreamOperatorsRegistrar() { qRegisterMetaType<T>(); }

    static ZRMetaTypeAndStreamOperatorsRegistrar _registrar;
};

template <typename T>
ZRMetaTypeAndStreamOperatorsRegistrar<T> ZRMetaTypeAndStreamOperatorsRegistrar<T>::_registrar;
