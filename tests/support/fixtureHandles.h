#pragma once

// Handles on the elements of a virtual desktop, by their fixture ids. Header only: include it only
// from tests that link crossplatformUtilities.

#include "NativeUIElement.h"
#include "virtual/VirtualDesktop.h"

#include <QPoint>
#include <QString>

// The handle takes over the desktop's reference; `point` is its screen position.
inline NativeUIElement fixtureHandle(const VirtualDesktop& desktop, const QString& id,
                                     QPoint point = QPoint()) {
    NativeUIElement element;
    element.setOSSpecificElementReference(
        const_cast<void*>(static_cast<const void*>(desktop.copyElement(id))));
    element.setScreenPosition(point);
    return element;
}
