#pragma once

// The object system of Objective-C, as far as the replacement of a class's methods needs it, under
// the runtime's own names. Linux has no such object system; here classes are tables of instance
// methods by selector, each class may derive from another, and an object is anything that starts
// with its class pointer (objc_object). A call goes through the object's class
// (class_getMethodImplementation), so that a replaced implementation answers it, as a message
// would.
//
// Associated values are platform objects (on Apple systems id and CFTypeRef are one), retained
// under a retaining policy. Classes live as long as the process. Like the object system's
// callers on Apple systems, its callers here use it from the main thread only.

#include "cf/CFBase.h"

#include <QByteArray>
#include <QHash>

#include <cstddef>
#include <cstdint>
#include <memory>

struct objc_class;
typedef objc_class* Class;

struct objc_object {
    Class isa;
};
typedef objc_object* id;

typedef const struct objc_selector* SEL;
typedef struct objc_method* Method;

// A class is an object too (its own class is left null: there are no class methods).
struct objc_class : objc_object {
    QByteArray name;
    Class superclass;
    QHash<SEL, std::shared_ptr<objc_method>> methods;
};
// An implementation; callers cast it to the function type of the method, whose first two
// parameters are the receiver (id) and the selector.
typedef void (*IMP)(void);

typedef std::uintptr_t objc_AssociationPolicy;
enum : objc_AssociationPolicy {
    OBJC_ASSOCIATION_ASSIGN = 0,
    OBJC_ASSOCIATION_RETAIN_NONATOMIC = 1,
    OBJC_ASSOCIATION_COPY_NONATOMIC = 3,
    OBJC_ASSOCIATION_RETAIN = 01401,
    OBJC_ASSOCIATION_COPY = 01403,
};

// The one selector of this name.
SEL sel_registerName(const char* name);
const char* sel_getName(SEL selector);

// Null when no class of this name has been made.
Class objc_getClass(const char* name);
// A new class derived from superclass (null: a root class), usable at once; null when the name
// is taken. Only instances of a root class's own object type exist, so extraBytes must be 0.
Class objc_allocateClassPair(Class superclass, const char* name, std::size_t extraBytes);
const char* class_getName(Class cls);
Class class_getSuperclass(Class cls);
Class object_getClass(id object);
// Whether cls is ancestor or derives from it (NSObject's isKindOfClass: for an instance of cls).
bool classDerivesFrom(Class cls, Class ancestor);

// The class's own method of this selector, else the nearest inherited one; null when none.
Method class_getInstanceMethod(Class cls, SEL name);
// What a call of the selector on an instance of the class runs; null when it has no such method.
IMP class_getMethodImplementation(Class cls, SEL name);
IMP method_getImplementation(Method method);
// Gives the previous implementation.
IMP method_setImplementation(Method method, IMP implementation);
const char* method_getTypeEncoding(Method method);
// False when the class itself already has a method of this selector (an inherited one is
// overridden).
bool class_addMethod(Class cls, SEL name, IMP implementation, const char* types);
// Replaces the implementation of the class's own method and gives the previous one; a method
// that the class only inherits is added to the class instead, and null given.
IMP class_replaceMethod(Class cls, SEL name, IMP implementation, const char* types);

CFTypeRef objc_getAssociatedObject(id object, const void* key);
// A null value removes the association.
void objc_setAssociatedObject(id object, const void* key, CFTypeRef value, objc_AssociationPolicy policy);
// Releases every value associated with the object; called when an object ends.
void objc_removeAssociatedObjects(id object);
