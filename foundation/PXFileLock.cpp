#include "foundation/PXFileLock.h"

#include <QFile>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

using namespace Qt::StringLiterals;

namespace {

/// Whether `file` still lies at `path`: its last holder may have removed it.
bool liesAt(const QByteArray &path, const struct stat &file)
{
    struct stat there = {};
    return ::lstat(path.constData(), &there) == 0 && there.st_dev == file.st_dev
        && there.st_ino == file.st_ino;
}

} // namespace

PXExpected<std::unique_ptr<PXFileLock>> PXFileLock::take(const QString &path, Mode mode,
                                                         IfHeld ifHeld)
{
    const QByteArray name = QFile::encodeName(path);
    const auto fail
        = [&](int error) { return PXFail(PXPOSIXError(error, u"Could not lock "_s + path)); };
    for (;;) {
        constexpr int kFlags = O_RDWR | O_CLOEXEC | O_NOFOLLOW;
        int file = ::open(name.constData(), kFlags | O_CREAT | O_EXCL, 0600);
        const bool isNew = file >= 0;
        if (!isNew && errno != EEXIST)
            return fail(errno);
        if (!isNew)
            file = ::open(name.constData(), kFlags);
        if (file < 0 && errno == ENOENT)
            continue; // Removed in between.
        if (file < 0)
            return fail(errno);
        std::unique_ptr<PXFileLock> lock(new PXFileLock(path, file, isNew));
        const auto failWithoutTrace = [&](int error) {
            if (isNew)
                lock->removeFile();
            return fail(error);
        };
        struct stat status = {};
        if (::fstat(file, &status) != 0 || status.st_uid != ::geteuid() || !S_ISREG(status.st_mode))
            return failWithoutTrace(EPERM);
        const int operation
            = (mode == Mode::Shared ? LOCK_SH : LOCK_EX) | (ifHeld == IfHeld::GiveUp ? LOCK_NB : 0);
        int result = ::flock(file, operation);
        while (result != 0 && errno == EINTR)
            result = ::flock(file, operation);
        if (result != 0 && errno == EWOULDBLOCK)
            return std::unique_ptr<PXFileLock>();
        if (result != 0)
            return failWithoutTrace(errno);
        if (liesAt(name, status))
            return lock;
    }
}

void PXFileLock::removeFile()
{
    QFile::remove(_path);
}

PXFileLock::~PXFileLock()
{
    ::close(_file);
}
