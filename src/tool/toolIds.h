#pragma once

// The two channel ids that the tool and Ostrik Conductor share. Both ends derive the socket
// names from them, so they are the whole of the agreement on where to meet.
inline constexpr const char* toolCommandPeerId = "com.velmora.ostrikconductor.uielementtool";
inline constexpr const char* toolReportPeerId = "com.velmora.ostrikconductor.gesturemodifiermanager";

// The commands of a ZRUIElementToolData: plain numbers on the wire.
inline constexpr int toolCommandStartWatching = 1;
inline constexpr int toolCommandStopWatching = 2;
