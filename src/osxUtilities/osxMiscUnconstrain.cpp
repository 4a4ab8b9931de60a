// Windows of osxMisc that keep the frame they are given.

#include "osxMiscUnconstrain_p.h"

#include "appkit/Foundation.h"

#include <QDebug>

QSet<id>* constrainedObjects = nullptr;

namespace {

const char kConstrainFrameRectSwizzledKey[] = "ZRUnconstrain_swizled_constrainFrameRect";
const char kDeallocSwizzledKey[] = "ZRUnconstrain_swizled_dealloc";

SEL constrainSelector() {
    return sel_registerName("constrainFrameRect:toScreen:");
}
SEL replaceConstrainSelector() {
    return sel_registerName("ZRUnconstrain_replace_constrainFrameRect:toScreen:");
}
SEL deallocSelector() {
    return sel_registerName("dealloc");
}
SEL replaceDeallocSelector() {
    return sel_registerName("ZRUnconstrain_replace_dealloc");
}

// After the exchange, the replacement's selector names the previous implementation.
CGRect replaceConstrainFrameRect(id self, SEL, CGRect frame, NSScreen* screen) {
    if (constrainedObjects && constrainedObjects->contains(self))
        return frame;
    const auto previous = reinterpret_cast<NSWindowConstrainFrameRectIMP>(
        class_getMethodImplementation(object_getClass(self), replaceConstrainSelector()));
    return previous(self, replaceConstrainSelector(), frame, screen);
}

void replaceDealloc(id self, SEL) {
    if (constrainedObjects)
        constrainedObjects->remove(self);
    const auto previous = reinterpret_cast<NSWindowDeallocIMP>(
        class_getMethodImplementation(object_getClass(self), replaceDeallocSelector()));
    previous(self, replaceDeallocSelector());
}

// The category UnconstrainWindows: its methods belong to NSWindow from the start, as a category's
// do once its image is loaded.
void loadUnconstrainWindowsCategory() {
    static const bool loaded = [] {
        const Class window = NSWindow::windowClass();
        const char* constrainTypes =
            method_getTypeEncoding(class_getInstanceMethod(window, constrainSelector()));
        const char* deallocTypes = method_getTypeEncoding(class_getInstanceMethod(window, deallocSelector()));
        class_addMethod(window, replaceConstrainSelector(), reinterpret_cast<IMP>(&replaceConstrainFrameRect),
                        constrainTypes);
        class_addMethod(window, replaceDeallocSelector(), reinterpret_cast<IMP>(&replaceDealloc),
                        deallocTypes);
        return true;
    }();
    Q_UNUSED(loaded);
}

// Exchanges the implementations of a method and its replacement on the class, once per class.
void ensureSwizzled(Class cls, const char* doneKey, SEL original, SEL replacement, const char* originalName,
                    const char* replacementName) {
    loadUnconstrainWindowsCategory();
    const CFTypeRef done = objc_getAssociatedObject(cls, doneKey);
    if (done && CFGetTypeID(done) == CFBooleanGetTypeID() &&
        CFBooleanGetValue(static_cast<CFBooleanRef>(done)))
        return;
    const Method originalMethod = class_getInstanceMethod(cls, original);
    if (!originalMethod) {
        qDebug().noquote() << QStringLiteral("Error: cannot get instance method for %1").arg(originalName);
        return;
    }
    const Method replacementMethod = class_getInstanceMethod(cls, replacement);
    if (!replacementMethod) {
        qDebug().noquote() << QStringLiteral("Error: cannot get instance method for %1").arg(replacementName);
        return;
    }
    const IMP originalImplementation = method_getImplementation(originalMethod);
    const IMP replacementImplementation = method_getImplementation(replacementMethod);
    class_replaceMethod(cls, original, replacementImplementation, method_getTypeEncoding(replacementMethod));
    class_replaceMethod(cls, replacement, originalImplementation, method_getTypeEncoding(originalMethod));
    objc_setAssociatedObject(cls, doneKey, kCFBooleanTrue, OBJC_ASSOCIATION_RETAIN_NONATOMIC);
}

} // namespace

bool swizzleMethod(Class cls, SEL selector, IMP replacement, IMP* outOriginal) {
    const Method method = class_getInstanceMethod(cls, selector);
    if (!method) {
        qDebug().noquote()
            << QStringLiteral(
                   "Error: Unable to swizzle target method in %1 class because the class cannot be found")
                   .arg(QString::fromUtf8(class_getName(cls)));
        return false;
    }
    const IMP original = method_setImplementation(method, replacement);
    if (outOriginal)
        *outOriginal = original;
    return true;
}

void ZRUnconstrain_ensureConstrainFrameRectSwizzled(Class cls) {
    ensureSwizzled(cls, kConstrainFrameRectSwizzledKey, constrainSelector(), replaceConstrainSelector(),
                   "constrainFrameRect", "ZRUnconstrain_replace_constrainFrameRect");
}

void ZRUnconstrain_ensureDeallocSwizzled(Class cls) {
    ensureSwizzled(cls, kDeallocSwizzledKey, deallocSelector(), replaceDeallocSelector(), "dealloc",
                   "ZRUnconstrain_replace_dealloc");
}

void unconstrainNSWindowClass(id object) {
    if (!constrainedObjects)
        constrainedObjects = new QSet<id>;
    if (!object)
        return;
    if (!classDerivesFrom(object_getClass(object), NSWindow::windowClass())) {
        NSLog(QStringLiteral("Error: cannot unconstrain class that is not derived from NSWindow: %1")
                  .arg(QString::fromUtf8(class_getName(object_getClass(object)))));
        return;
    }
    constrainedObjects->insert(object);
    const Class cls = object_getClass(object);
    ZRUnconstrain_ensureConstrainFrameRectSwizzled(cls);
    ZRUnconstrain_ensureDeallocSwizzled(cls);
}
