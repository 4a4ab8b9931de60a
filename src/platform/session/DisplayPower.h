#pragma once

// The display's power as the X server tells it: asleep or awake from DPMS where the server has
// the extension and it is enabled; unknown otherwise (Xvfb, Xwayland), as nothing else says it.

struct _XDisplay;

enum class DisplayPower { Unknown, Awake, Asleep };

DisplayPower readDisplayPower(_XDisplay* display);

// Resets the screen saver (its idle time is 0 again) and turns the display on where there is
// DPMS. False without an X display.
bool wakeXDisplay();
