#pragma once

// Foundation's autorelease pools. The objects of the platform layer on Linux are reference
// counted without autorelease, so a pool holds nothing and its release frees only itself.

class NSAutoreleasePool {
public:
    static NSAutoreleasePool* create() { return new NSAutoreleasePool; }
    void release() { delete this; }

private:
    NSAutoreleasePool() = default;
    ~NSAutoreleasePool() = default;
};
