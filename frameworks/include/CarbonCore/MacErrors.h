// The result codes that the calls of this layer give.
#pragma once

enum {
    dskFulErr = -34,
    nsvErr = -35,  // no such volume
    ioErr = -36,
    tmfoErr = -42,  // too many files open
    fnfErr = -43,   // no such file or folder
    wPrErr = -44,   // on a medium that cannot be written
    fBsyErr = -47,  // in use, or a folder that is not empty
    dupFNErr = -48,
    paramErr = -50,
    permErr = -54,
    memFullErr = -108,
    procNotFound = -600,
    errFSBadInfoBitmap = -1405,
    errFSMissingCatInfo = -1406,
    errFSNotAFolder = -1407,
    errFSNameTooLong = -1410,
    errFSNoMoreItems = -1417,
    errFSBadItemCount = -1418,
    errFSBadIteratorFlags = -1422,
    errFSIteratorNotFound = -1423,
    errFSIteratorNotSupported = -1424,
    errAECoercionFail = -1700,
    errAENotAEDesc = -1704,
    errAENotAppleEvent = -1707,
    errAEEventNotHandled = -1708,
    errAEUnknownSendMode = -1710,
    errAEUnknownAddressType = -1716,
    pathTooLongErr = -2110,
    noIconDataAvailableErr = -2582,
    invalidFolderTypeErr = -4273,
    afpAccessDenied = -5000
};

// What is added to an error number of the system that has no code of its own.
enum { kPOSIXErrorBase = 100000 };
