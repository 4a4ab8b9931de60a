#pragma once

#include <QFont>

namespace QtBugWorkarounds {
// The system's fixed font is sometimes not fixed-pitch; this one always is, as far as the
// installed fonts allow.
QFont fixedWidthSystemFont();
} // namespace QtBugWorkarounds
