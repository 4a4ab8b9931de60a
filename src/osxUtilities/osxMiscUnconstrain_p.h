#pragma once

// The windows exempted from being kept on screen, for the tests of osxMisc.

#include "osxMisc.h"

#include <QSet>

// Made on the first unconstrainNSWindowClass call. It does not keep its windows alive: a window
// leaves it as it ends.
extern QSet<id>* constrainedObjects;
