#pragma once

// The modifier state of an X server in the terms of Core Graphics' event flags, for every part of
// the platform layer that reads modifiers from X11.

#include "platformEvents.h"

struct _XDisplay;

// Shift, Lock and Control from their fixed bits; Command from the modifier that Super_L or
// Super_R is bound to; Alternate (the Option key) from the one of ISO_Level3_Shift (AltGr). Those
// two bits are looked up in the server's modifier mapping at each call, as a keymap may bind
// them anywhere; Alt gives no flag. state is the modifier part of a core event's or a query's
// state.
CGEventFlags CGEventFlagsFromX11ModifierState(_XDisplay* display, unsigned int state);
