#include "X11Modifiers.h"
#include "X11Connection.h"

#include <X11/Xlib.h>
#include <X11/keysym.h>

#include <algorithm>
#include <initializer_list>

namespace {

// The modifier bits (of Mod1 to Mod5) that any key carrying one of these keysyms is bound to.
unsigned int modifierMaskOfKeysyms(Display* display, std::initializer_list<KeySym> wanted) {
    XModifierKeymap* map = XGetModifierMapping(display);
    if (!map)
        return 0;
    unsigned int mask = 0;
    for (int modifier = Mod1MapIndex; modifier <= Mod5MapIndex; ++modifier) {
        for (int i = 0; i < map->max_keypermod; ++i) {
            const KeyCode code = map->modifiermap[modifier * map->max_keypermod + i];
            if (code == 0)
                continue;
            int symsPerCode = 0;
            KeySym* syms = XGetKeyboardMapping(display, code, 1, &symsPerCode);
            if (!syms)
                continue;
            if (std::any_of(syms, syms + symsPerCode, [&](KeySym sym) {
                    return std::find(wanted.begin(), wanted.end(), sym) != wanted.end();
                }))
                mask |= 1u << modifier;
            XFree(syms);
        }
    }
    XFreeModifiermap(map);
    return mask;
}

} // namespace

CGEventFlags CGEventFlagsFromX11ModifierState(Display* display, unsigned int state) {
    CGEventFlags flags = 0;
    if (state & ShiftMask)
        flags |= kCGEventFlagMaskShift;
    if (state & LockMask)
        flags |= kCGEventFlagMaskAlphaShift;
    if (state & ControlMask)
        flags |= kCGEventFlagMaskControl;
    if (!display)
        return flags;
    if (state & modifierMaskOfKeysyms(display, {XK_Super_L, XK_Super_R}))
        flags |= kCGEventFlagMaskCommand;
    if (state & modifierMaskOfKeysyms(display, {XK_ISO_Level3_Shift}))
        flags |= kCGEventFlagMaskAlternate;
    return flags;
}

// A connection of its own for each question: modifiers are asked for rarely (when a key event is
// interpreted), and so no connection lingers that a server going away could break.
CGEventFlags CGEventSourceFlagsState(CGEventSourceStateID) {
    const std::unique_ptr<X11Connection> connection = X11Connection::open();
    if (!connection)
        return 0;
    Display* display = connection->display();
    Window root = 0, child = 0;
    int rootX = 0, rootY = 0, x = 0, y = 0;
    unsigned int state = 0;
    // The state is valid also when the pointer is on another screen, which makes the call false.
    XQueryPointer(display, DefaultRootWindow(display), &root, &child, &rootX, &rootY, &x, &y, &state);
    return CGEventFlagsFromX11ModifierState(display, state);
}
