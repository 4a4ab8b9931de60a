#pragma once

// The command object that Ostrik Conductor sends: start (1) or stop (2) watching the
// collection `elements` under the caller's `id`.

#include "UIElement.h"

#include <QObject>

class ZRUIElementToolData : public QObject {
    Q_OBJECT
    Q_PROPERTY(int command READ command WRITE setCommand NOTIFY commandChanged)
    Q_PROPERTY(qulonglong id READ id WRITE setId NOTIFY idChanged)
    Q_PROPERTY(UIElementCollection* elements READ elements WRITE setElements NOTIFY elementsChanged)
public:
    Q_INVOKABLE explicit ZRUIElementToolData(QObject* parent = nullptr);

    virtual const int& command() const;
    virtual void setCommand(const int& newValue);
    virtual const qulonglong& id() const;
    virtual void setId(const qulonglong& newValue);
    // Not owned: the loader makes the collection a child of this object.
    virtual UIElementCollection* const& elements() const;
    virtual void setElements(UIElementCollection* const& newValue);

Q_SIGNALS:
    void commandChanged();
    void commandChangedToValue(int oldValue, int newValue);
    void idChanged();
    void idChangedToValue(qulonglong oldValue, qulonglong newValue);
    void elementsChanged();
    void elementsChangedToValue(UIElementCollection* oldValue, UIElementCollection* newValue);

private:
    int m_command = 0;
    qulonglong m_id = 0;
    UIElementCollection* m_elements = nullptr;
};
