#include "mouse.h"

#include "platformEvents.h"

#include <QDebug>

QPointF currentMouseLocation() {
    CGEventSourceRef source = CGEventSourceCreate(kCGEventSourceStateHIDSystemState);
    if (!source) {
        qCritical().noquote() << "Critical error in currentMouseLocation: could not create event source";
        return QPointF(0, 0);
    }
    CGEventRef event = CGEventCreate(source);
    CFRelease(source);
    if (!event) {
        qCritical().noquote() << "Critical error in currentMouseLocation: could not create event";
        return QPointF(0, 0);
    }
    const CGPoint location = CGEventGetLocation(event);
    CFRelease(event);
    return QPointF(location.x, location.y);
}
