#include "QDropEventExtensions.h"

#include <QDropEvent>

namespace {

// The position is a protected member of QDropEvent. A pointer to it, taken inside a subclass,
// reaches it in any QDropEvent without pretending that the event is of the subclass's type.
class DropEventPositionAccess : public QDropEvent {
public:
    static constexpr QPointF QDropEvent::*position = &DropEventPositionAccess::m_pos;
};

} // namespace

void setDragEventPosition(QDropEvent* event, QPointF position) {
    _terribleHackSetDragEventPosition(event, position);
}

void _terribleHackSetDragEventPosition(QDropEvent* event, QPointF position) {
    if (event) {
        event->*DropEventPositionAccess::position = position;
    }
}
