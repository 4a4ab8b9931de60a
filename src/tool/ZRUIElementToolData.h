#pragma once

// The command object that Ostrik Conductor sends: start (1) or stop (2) watching the
// collection `elements` under the caller's `id`.

#include "UIElement.h"
#include "ZREntity.h"

#include <QObject>

class ZRUIElementToolData : public ZREntity {
    Q_OBJECT
    ZR_ENTITY_PROPERTY(int, command, setCommand)
    ZR_ENTITY_PROPERTY(qulonglong, id, setId)
    // Not owned: the loader makes the collection a child of this object.
    ZR_ENTITY_PROPERTY(UIElementCollection*, elements, setElements)
public:
    Q_INVOKABLE explicit ZRUIElementToolData(QObject* parent = nullptr);
};
