// What became of a command, and what the server does about it. The numbers are part of the
// service's interface.
#pragma once

enum class Status : int {
    kSuccess = 0,          // "Success " and the reply text
    kFailure = -1,         // "Failure " and the reason
    kSyntaxError = -2,     // "SyntaxError " and the reason
    kStartPenData = -3,    // no reply; the client becomes the one that pen data goes to
    kStopPenData = -4,     // no reply; it no longer is
    kCloseClient = -5,     // no reply; the connection is closed. Also: the peer has closed it
    kEndService = -6,      // no reply; everything is closed and the service ends
    kQuitRequested = -7,   // "QuitAcknowledged"
    kNothingHandled = -8,  // no complete message has been received
    kYes = -9,             // "True"
    kNo = -10,             // "False"
    kIconReady = -11,      // "IconReady"
    kIconMissing = -12,    // "IconMissing"
};
