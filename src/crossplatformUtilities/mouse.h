#pragma once

// Where the mouse pointer is.

#include <QPointF>

// Global, top-left origin, as the desktop has it (without any accessibility zoom taken out);
// (0, 0), logged, when the platform cannot tell.
QPointF currentMouseLocation();
