#include "CocoaInitializer.h"

#include "appkit/NSAutoreleasePool.h"

class CocoaInitializer::Private {
public:
    NSAutoreleasePool* autoreleasePool = nullptr;
};

CocoaInitializer::CocoaInitializer() : d(new Private) {
    d->autoreleasePool = NSAutoreleasePool::create();
}

CocoaInitializer::~CocoaInitializer() {
    d->autoreleasePool->release();
    delete d;
}
