#pragma once

// A kind of on-screen element rather than one element: two types are the same kind when their
// identifiers are equal. The description is for people and plays no part in that.

#include "NativeUIElement.h"
#include "ZREntity.h"
#include "ZRSerializableStructures.h"

#include <QDebug>
#include <QMap>
#include <QObject>
#include <QString>

class UIElementType : public ZREntity {
    Q_OBJECT
    // Human-readable name of the kind: the platform's role description.
    ZR_ENTITY_PROPERTY(QString, description, setDescription)
    // The role under "AXRole", the subrole under "AXSubrole" where there is one, and the reserved
    // key "_special".
    ZR_ENTITY_PROPERTY(ZRSerializableStringMap, identifiers, setIdentifiers)
public:
    Q_INVOKABLE explicit UIElementType(QObject* parent = nullptr);
    UIElementType(const QMap<QString, QString>& identifiers, const QString& description,
                  QObject* parent = nullptr);

    bool isNull() const;
    void addIdentifier(const QString& key, const QString& value);
    QString identifier(const QString& key) const;
    // A special element is one that carries the "_special" key, whatever its value.
    bool isSpecialElement() const;
    QString specialValue() const;
    void setSpecialValue(const QString& value);

    // One shared type with nothing set, never to be re-parented or deleted.
    static UIElementType* nullElementType();
    // Whether start or one of its ancestors is of this kind, and how many levels up; result and
    // levelsUp are written only on a match.
    bool matchingElementUnderElement(NativeUIElement& result, int& levelsUp,
                                     const NativeUIElement& start) const;
};

QDebug operator<<(QDebug debug, const UIElementType& type);
QDebug operator<<(QDebug debug, const UIElementType* type);
