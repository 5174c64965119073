#include "export/BRReplacedFile.h"

#include "foundation/BRLog.h"
#include "foundation/PXFileManager.h"

#include <QFile>
#include <QFileInfo>

#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {

// So that the hidden name, with a counter behind it, still fits into 255 bytes.
constexpr int kLongestName = 60;

bool isThere(const QString &path)
{
    const QFileInfo info(path);
    return info.exists() || info.isSymLink();
}

// Never onto another file, and atomically where the file system can.
bool moveToFreePlace(const QByteArray &from, const QByteArray &to)
{
    if (renameat2(AT_FDCWD, from.constData(), AT_FDCWD, to.constData(), RENAME_NOREPLACE) == 0)
        return true;
    if (errno != EINVAL && errno != ENOSYS)
        return false;
    // Network and shared file systems do not know the flag: onto an empty file of our own then.
    const int claimed = open(to.constData(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
    if (claimed < 0)
        return false;
    close(claimed);
    if (rename(from.constData(), to.constData()) == 0)
        return true;
    const int error = errno;
    unlink(to.constData());
    errno = error;
    return false;
}

} // namespace

PXExpected<BRReplacedFile> BRReplacedFile::takeAway(const QString &path)
{
    BRReplacedFile file;
    if (!isThere(path))
        return file;
    const QString whatFailed = u"Could not move %1 out of the way"_s.arg(path);
    const QFileInfo info(path);
    // A device or a pipe is not ours to move, nor to delete in the end.
    if (!info.isFile())
        return PXFail(PXPOSIXError(info.isDir() ? EISDIR : EINVAL, whatFailed));
    const QString desired
        = info.path() + u"/."_s + info.fileName().left(kLongestName) + u".replaced"_s;
    QString hiddenPath = PXFileManager::uniquePathForFileWithDesiredPath(desired);
    while (!moveToFreePlace(QFile::encodeName(path), QFile::encodeName(hiddenPath))) {
        if (errno != EEXIST)
            return PXFail(PXPOSIXError(errno, whatFailed));
        hiddenPath = PXFileManager::uniquePathForFileWithDesiredPath(desired);
    }
    file._path = path;
    file._hiddenPath = hiddenPath;
    return file;
}

void BRReplacedFile::putBack()
{
    if (_hiddenPath.isEmpty())
        return;
    if (isThere(_path) || !QFile::rename(_hiddenPath, _path)) {
        BRLog(BRLogWarning, u"Could not put %1 back; it is kept as %2"_s.arg(_path, _hiddenPath));
    }
    _hiddenPath.clear();
}

void BRReplacedFile::remove()
{
    if (!_hiddenPath.isEmpty() && !QFile::remove(_hiddenPath))
        BRLog(BRLogWarning, u"Could not remove the replaced file %1"_s.arg(_hiddenPath));
    _hiddenPath.clear();
}
