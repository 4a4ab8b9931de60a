#pragma once

#include "platformCursor.h"

#include <memory>

// The process's cursor platform: the one a test installed, else the live desktop's X server.
std::shared_ptr<CursorPlatform> activeCursorPlatform();
