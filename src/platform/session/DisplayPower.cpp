#include "DisplayPower.h"

#include "x11/X11Connection.h"

#include <X11/Xlib.h>
#include <X11/extensions/dpms.h>

namespace {

// DPMS governs the display only while the server has it and it is enabled.
bool dpmsLevel(Display* display, CARD16* level) {
    int eventBase = 0, errorBase = 0;
    BOOL enabled = False;
    return DPMSQueryExtension(display, &eventBase, &errorBase) && DPMSCapable(display) &&
           DPMSInfo(display, level, &enabled) && enabled;
}

} // namespace

DisplayPower readDisplayPower(_XDisplay* display) {
    CARD16 level = DPMSModeOn;
    if (!display || !dpmsLevel(display, &level))
        return DisplayPower::Unknown;
    return level == DPMSModeOn ? DisplayPower::Awake : DisplayPower::Asleep;
}

bool wakeXDisplay() {
    const std::unique_ptr<X11Connection> connection = X11Connection::open();
    if (!connection)
        return false;
    Display* display = connection->display();
    XResetScreenSaver(display);
    CARD16 level = DPMSModeOn;
    if (dpmsLevel(display, &level) && level != DPMSModeOn)
        DPMSForceLevel(display, DPMSModeOn);
    connection->syncAndTakeErrors();
    return true;
}
