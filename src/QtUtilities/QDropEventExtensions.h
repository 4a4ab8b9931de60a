#pragma once

#include <QPointF>

class QDropEvent;

// Qt offers no setter for the position stored in a drop event; these overwrite it.
void setDragEventPosition(QDropEvent* event, QPointF position);
void _terribleHackSetDragEventPosition(QDropEvent* event, QPointF position);
