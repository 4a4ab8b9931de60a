#pragma once

// Spans a block of code that calls into the platform's object system from outside a run loop:
// an autorelease pool lives as long as the initializer, so that what the calls autorelease is
// freed at its end.

class CocoaInitializer {
public:
    CocoaInitializer();
    ~CocoaInitializer();
    CocoaInitializer(const CocoaInitializer&) = delete;
    CocoaInitializer& operator=(const CocoaInitializer&) = delete;

private:
    class Private;
    Private* d;
};
