#pragma once

// The private window server calls that the window lookup and the zoom conversion use. Apple
// publishes no header for them, so these declarations are this project's on every platform;
// on Apple systems the window server library answers them, elsewhere the active accessibility
// provider does (ax/WindowServer.cpp).

#include "platformAccessibility.h"

// One process's connection to the window server.
typedef int CGSConnectionID;

extern "C" {

// This process's connection.
CGSConnectionID CGSMainConnectionID(void);

// The frontmost window on screen at screenPoint (global, top-left origin) and the connection
// of its owner. zero, one and zeroAgain are the constants 0, 1, 0. Success with a window id
// or owner of 0 means that there is no window at the point. windowPoint receives the point
// relative to the window's top left corner. Every out argument may be NULL.
CGError CGSFindWindowAndOwner(CGSConnectionID connection, int zero, int one, int zeroAgain,
                              CGPoint* screenPoint, CGPoint* windowPoint, CGWindowID* windowID,
                              CGSConnectionID* ownerConnection);

// The process that owns a connection.
CGError CGSConnectionGetPID(CGSConnectionID connection, pid_t* pid);

// A window's frame in global top-left coordinates, whether it is on screen or not.
CGError CGSGetScreenRectForWindow(CGSConnectionID connection, CGWindowID windowID, CGRect* rect);

// The accessibility zoom: the origin of the magnified picture and its factor (1.0 is no
// zoom). smoothed receives whether the picture is smoothed. Every out argument may be NULL.
CGError CGSGetZoomParameters(CGSConnectionID connection, CGPoint* origin, double* factor, Boolean* smoothed);

} // extern "C"
