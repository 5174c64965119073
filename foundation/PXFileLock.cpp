#include "foundation/PXFileLock.h"

#include <QFile>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

using namespace Qt::StringLiterals;

PXExpected<std::unique_ptr<PXFileLock>> PXFileLock::take(const QString &path, Mode mode,
                                                         IfHeld ifHeld)
{
    const auto fail
        = [&](int error) { return PXFail(PXPOSIXError(error, u"Could not lock "_s + path)); };
    const int file = ::open(QFile::encodeName(path).constData(),
                            O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600);
    if (file < 0)
        return fail(errno);
    std::unique_ptr<PXFileLock> lock(new PXFileLock(file));
    struct stat status = {};
    if (::fstat(file, &status) != 0 || status.st_uid != ::geteuid() || !S_ISREG(status.st_mode))
        return fail(EPERM);
    const int operation
        = (mode == Mode::Shared ? LOCK_SH : LOCK_EX) | (ifHeld == IfHeld::GiveUp ? LOCK_NB : 0);
    int result = ::flock(file, operation);
    while (result != 0 && errno == EINTR)
        result = ::flock(file, operation);
    if (result == 0)
        return lock;
    if (errno == EWOULDBLOCK)
        return std::unique_ptr<PXFileLock>();
    return fail(errno);
}

PXFileLock::~PXFileLock()
{
    ::close(_file);
}
