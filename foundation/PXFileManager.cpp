#include "foundation/PXFileManager.h"

#include "foundation/BRLog.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

using namespace Qt::StringLiterals;

namespace {

constexpr mode_t kEverything = 0777; // What the user's umask leaves of it.

bool isTaken(const QString &path)
{
    const QFileInfo info(path);
    return info.exists() || info.isSymLink();
}

} // namespace

namespace PXFileManager {

PXExpected<void> createAllDirectoriesForPath(const QString &path)
{
    if (path.isEmpty())
        return {};
    const QString whole = resolvedPath(path);
    for (qsizetype end = whole.indexOf(u'/', 1);; end = whole.indexOf(u'/', end + 1)) {
        const QString prefix = end < 0 ? whole : whole.first(end);
        const QByteArray name = QFile::encodeName(prefix);
        // Another program may make it between the question and the call.
        if (!QFileInfo(prefix).isDir() && ::mkdir(name.constData(), kEverything) != 0) {
            const int errorNumber = errno;
            if (errorNumber != EEXIST || !QFileInfo(prefix).isDir()) {
                PXError error
                    = PXPOSIXError(errorNumber, u"Could not create the folder "_s + prefix);
                BRLog(BRLogError, error.description);
                return PXFail(std::move(error));
            }
        }
        if (end < 0)
            return {};
    }
}

QString resolvedPath(const QString &path)
{
    QString resolved = path.startsWith(u'/') ? QString() : QDir::currentPath();
    for (const QString &step : path.split(u'/', Qt::SkipEmptyParts)) {
        if (step == u"..") {
            if (const QFileInfo before(resolved); before.exists())
                resolved = before.canonicalFilePath();
            resolved.truncate(std::max(qsizetype{0}, resolved.lastIndexOf(u'/')));
        } else if (step != u".") {
            resolved += u'/' + step;
        }
    }
    return resolved.isEmpty() ? u"/"_s : resolved;
}

QString uniquePathForFileWithDesiredPath(const QString &path)
{
    return firstFreePath(path, [](const QString &stem, int counter) {
        return counter == 0 ? stem : stem + u' ' + QString::number(counter + 1);
    });
}

QString firstFreePath(const QString &path,
                      const std::function<QString(const QString &stem, int counter)> &name)
{
    const qsizetype nameStart = path.lastIndexOf(u'/') + 1;
    const qsizetype dot = path.lastIndexOf(u'.');
    // A dot in front hides a file and one at the end stands for itself; neither begins an
    // extension.
    const bool hasExtension = dot > nameStart && dot < path.size() - 1;
    const QString stem = hasExtension ? path.first(dot) : path;
    const QString extension = hasExtension ? path.sliced(dot) : QString();
    for (int counter = 0;; ++counter) {
        QString candidate = name(stem, counter) + extension;
        if (!isTaken(candidate))
            return candidate;
    }
}

std::optional<QString> runtimeFolder()
{
    const QByteArray path = qgetenv("XDG_RUNTIME_DIR");
    struct stat status = {};
    const bool isOurs = path.startsWith('/') && ::lstat(path.constData(), &status) == 0
        && S_ISDIR(status.st_mode) && status.st_uid == ::geteuid()
        && (status.st_mode & (S_IWGRP | S_IWOTH)) == 0;
    return isOurs ? std::optional(QFile::decodeName(path)) : std::nullopt;
}

PXExpected<int> openRegularFile(const QString &path)
{
    const QString whatFailed = u"Could not read "_s + path;
    // A pipe that nobody writes to would keep a plain open() waiting for ever.
    const int file = ::open(QFile::encodeName(path).constData(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    struct stat status = {};
    if (file >= 0 && ::fstat(file, &status) == 0 && S_ISREG(status.st_mode))
        return file;
    if (file < 0)
        return PXFail(PXPOSIXError(errno, whatFailed));
    ::close(file);
    if (S_ISDIR(status.st_mode))
        return PXFail(PXPOSIXError(EISDIR, whatFailed));
    return PXFail(
        {kPXPOSIXErrorDomain, EINVAL, whatFailed + u": it is not a regular file"_s, {}, {}});
}

} // namespace PXFileManager
