#pragma once

// The element tree of a running application as text: one element per line, indented by its
// depth, with its role, title and frame.

#include "platformAccessibility.h"

#include <QJsonObject>
#include <QStringList>

// Deeper trees are cut there with a line saying so: a desktop whose parent links form a cycle
// must still print.
inline constexpr int elementTreeMaximumDepth = 64;

// "AXButton "Save" 110,133 60x30", or "no frame" where the element has none.
QString elementLine(AXUIElementRef element);

// The element and everything below it, `depth` levels in.
QStringList elementTreeLines(AXUIElementRef element, int depth = 0);

// The element's ancestors from its application down, then the element itself, each indented one
// level deeper than the one before.
QStringList elementAncestryLines(AXUIElementRef element);

// The same as JSON: role, subrole where there is one, title and frame (null when it has none).
QJsonObject elementObject(AXUIElementRef element);

// The element with its descendants under "children", cut at the same depth as the lines.
QJsonObject elementTreeObject(AXUIElementRef element, int depth = 0);
