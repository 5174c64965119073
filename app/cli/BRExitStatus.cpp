#include "app/cli/BRExitStatus.h"

#include <cerrno>

namespace {

/// An export's movie that could not be put in its place.
constexpr int kFilePermissionError = -54;

int statusOfSystemError(int number, BRAccess access)
{
    switch (number) {
    case ENOSPC:
    case EDQUOT:
    case EFBIG:
    case EROFS:
        return BRExitNotWritable;
    case EACCES:
    case EPERM:
    case EEXIST:
    case ENOTDIR:
    case EISDIR:
        return access == BRAccess::Writing ? BRExitNotWritable : BRExitFailed;
    case ENOENT:
        return access == BRAccess::Writing ? BRExitNotWritable : BRExitNotFound;
    default:
        return BRExitFailed;
    }
}

} // namespace

int BRExitStatusOfError(const PXError &error, BRAccess access)
{
    if (error.domain == kPXDisplayErrorDomain)
        return BRExitNoDisplay;
    if (error.domain == kPXSoundErrorDomain)
        return BRExitNoSoundDevice;
    if (error.domain == kPXCocoaErrorDomain)
        return error.code == kFilePermissionError ? BRExitNotWritable : BRExitFailed;
    if (error.domain == kPXPOSIXErrorDomain)
        return statusOfSystemError(error.code, access);
    return statusOfSystemError(error.userInfo.value(QStringLiteral("trueErrorCode")).toInt(),
                               access);
}
