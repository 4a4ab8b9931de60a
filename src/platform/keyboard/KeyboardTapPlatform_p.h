#pragma once

#include "platformEvents.h"

#include <memory>

// The process's keyboard tap platform: the one a test installed, else the live desktop's X server.
std::shared_ptr<KeyboardTapPlatform> activeKeyboardTapPlatform();
