#pragma once

// ui-element-ctl capture: describes the element at a screen point as Ostrik Conductor saves it, a
// UIElementCollection of one UIElement, into a file that `watch` sends to the tool as it stands.

#include "inspectorCommands.h"

#include <QJsonObject>
#include <QString>
#include <QStringList>

class UIElement_p;

// Captures the element at the point into filePath and prints the description's chain, the
// application first. Status 1 when nothing is there (a null description is written all the same),
// 2 for bad input or a file that cannot be written; an existing file is replaced only whole.
int runCapture(const InspectorOptions& options, const QString& pointText, const QString& filePath);

// One level of a saved description as a person reads it ("level INDEX: ROLE "TITLE"", then its
// attributes, indices, frames, interaction point and actions), and as JSON.
QStringList descriptionLevelLines(int index, const UIElement_p* level);
QJsonObject descriptionLevelObject(const UIElement_p* level);
