#include "Support/ErrnoStatus.h"

#include <CarbonCore/MacErrors.h>

#include <cerrno>

namespace frameworks {

OSStatus StatusOfErrno(int error) {
    switch (error) {
        case 0:
            return noErr;
        case ENOENT:
            return fnfErr;
        case ENOTDIR:
            return errFSNotAFolder;
        case EINVAL:
            return paramErr;
        case EEXIST:
            return dupFNErr;
        case EBUSY:
        case ENOTEMPTY:
        case ETXTBSY:
            return fBsyErr;
        case EACCES:
            return afpAccessDenied;
        case EPERM:
            return permErr;
        case EROFS:
            return wPrErr;
        case EIO:
            return ioErr;
        case ENOSPC:
            return dskFulErr;
        case ENOMEM:
            return memFullErr;
        case EMFILE:
        case ENFILE:
            return tmfoErr;
        case ENAMETOOLONG:
            return errFSNameTooLong;
        case ESRCH:
            return procNotFound;
        default:
            return kPOSIXErrorBase + error;
    }
}

}  // namespace frameworks
