#include "NSMenu.h"

#include "ax/AccessibilityProvider.h"

double NSMenu::menuBarHeight() {
    return activeAccessibilityProvider()->menuBarHeight();
}
