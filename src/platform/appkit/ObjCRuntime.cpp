#include "ObjCRuntime.h"

#include <QByteArray>
#include <QHash>

#include <memory>
#include <utility>

struct objc_selector {
    QByteArray name;
};

struct objc_method {
    SEL selector;
    IMP implementation;
    QByteArray types;
};

namespace {

struct Association {
    CFTypeRef value;
    bool retained;
};

struct Runtime {
    QHash<QByteArray, std::shared_ptr<objc_selector>> selectors;
    QHash<QByteArray, std::shared_ptr<objc_class>> classes;
    QHash<id, QHash<const void*, Association>> associations;
};

Runtime& runtime() {
    static Runtime instance;
    return instance;
}

void releaseAssociation(const Association& association) {
    if (association.retained)
        CFRelease(association.value);
}

} // namespace

SEL sel_registerName(const char* name) {
    auto& selector = runtime().selectors[QByteArray(name)];
    if (!selector)
        selector = std::make_shared<objc_selector>(objc_selector{QByteArray(name)});
    return selector.get();
}

const char* sel_getName(SEL selector) {
    return selector ? selector->name.constData() : "<null selector>";
}

Class objc_getClass(const char* name) {
    const auto found = runtime().classes.constFind(QByteArray(name));
    return found == runtime().classes.constEnd() ? nullptr : found->get();
}

Class objc_allocateClassPair(Class superclass, const char* name, std::size_t extraBytes) {
    if (!name || extraBytes != 0 || objc_getClass(name))
        return nullptr;
    auto cls = std::make_shared<objc_class>();
    cls->isa = nullptr;
    cls->name = QByteArray(name);
    cls->superclass = superclass;
    runtime().classes.insert(cls->name, cls);
    return cls.get();
}

const char* class_getName(Class cls) {
    return cls ? cls->name.constData() : "nil";
}

Class class_getSuperclass(Class cls) {
    return cls ? cls->superclass : nullptr;
}

Class object_getClass(id object) {
    return object ? object->isa : nullptr;
}

bool classDerivesFrom(Class cls, Class ancestor) {
    for (; cls; cls = cls->superclass) {
        if (cls == ancestor)
            return true;
    }
    return false;
}

Method class_getInstanceMethod(Class cls, SEL name) {
    for (; cls; cls = cls->superclass) {
        if (const auto method = cls->methods.value(name))
            return method.get();
    }
    return nullptr;
}

IMP class_getMethodImplementation(Class cls, SEL name) {
    return method_getImplementation(class_getInstanceMethod(cls, name));
}

IMP method_getImplementation(Method method) {
    return method ? method->implementation : nullptr;
}

IMP method_setImplementation(Method method, IMP implementation) {
    if (!method)
        return nullptr;
    return std::exchange(method->implementation, implementation);
}

const char* method_getTypeEncoding(Method method) {
    return method ? method->types.constData() : nullptr;
}

bool class_addMethod(Class cls, SEL name, IMP implementation, const char* types) {
    if (!cls || !name || cls->methods.contains(name))
        return false;
    cls->methods.insert(name,
                        std::make_shared<objc_method>(objc_method{name, implementation, QByteArray(types)}));
    return true;
}

IMP class_replaceMethod(Class cls, SEL name, IMP implementation, const char* types) {
    if (!cls || !name)
        return nullptr;
    if (const auto own = cls->methods.value(name))
        return method_setImplementation(own.get(), implementation);
    class_addMethod(cls, name, implementation, types);
    return nullptr;
}

CFTypeRef objc_getAssociatedObject(id object, const void* key) {
    const auto values = runtime().associations.constFind(object);
    return values == runtime().associations.constEnd() ? nullptr : values->value(key).value;
}

void objc_setAssociatedObject(id object, const void* key, CFTypeRef value, objc_AssociationPolicy policy) {
    if (!object)
        return;
    auto& values = runtime().associations[object];
    const auto previous = values.take(key);
    if (value) {
        const bool retained = policy != OBJC_ASSOCIATION_ASSIGN;
        values.insert(key, {retained ? CFRetain(value) : value, retained});
    }
    if (previous.value)
        releaseAssociation(previous);
    if (values.isEmpty())
        runtime().associations.remove(object);
}

void objc_removeAssociatedObjects(id object) {
    const auto values = runtime().associations.take(object);
    for (const Association& association : values)
        releaseAssociation(association);
}
