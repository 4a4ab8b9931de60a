#pragma once

// The start of the tests that speak X themselves: a private X server applied to this process,
// and an Xlib connection of the test's own on which XTEST is there to inject input. A macro, as
// it skips or fails the calling test function.

#include "liveDesktopSession.h"
#include "x11/X11Connection.h"

#include <QTest>

#include <X11/Xlib.h>
#include <X11/extensions/XTest.h>

#define UIET_START_X11_TEST_SESSION(session, client, xDisplay)                                               \
    do {                                                                                                     \
        session = std::make_unique<LiveDesktopSession>();                                                    \
        if (!session->isReady())                                                                             \
            QSKIP(qPrintable(session->skipReason()));                                                        \
        session->applyToThisProcess();                                                                       \
        client = X11Connection::open();                                                                      \
        QVERIFY(client);                                                                                     \
        xDisplay = client->display();                                                                        \
        int xtestEvent = 0, xtestError = 0, xtestMajor = 0, xtestMinor = 0;                                  \
        QVERIFY(XTestQueryExtension(xDisplay, &xtestEvent, &xtestError, &xtestMajor, &xtestMinor));          \
    } while (false)
