#include "platform/ffmpeg/ReplacementFile.h"

#include <QFile>
#include <QFileInfo>

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

using namespace Qt::StringLiterals;

ReplacementFile::ReplacementFile(QString replaced)
    : _replaced(std::move(replaced)), _file(QFileInfo(_replaced).path() + u"/.tolvane-XXXXXX.mov"_s)
{
}

PXExpected<std::unique_ptr<ReplacementFile>> ReplacementFile::of(const QString &path)
{
    std::unique_ptr<ReplacementFile> file(new ReplacementFile(QFileInfo(path).canonicalFilePath()));
    errno = 0;
    if (!file->_file.open()) {
        return PXFail(PXPOSIXError(errno != 0 ? errno : EIO,
                                   u"Could not create a file beside %1"_s.arg(path)));
    }
    return file;
}

PXExpected<void> ReplacementFile::replace()
{
    const QByteArray from = QFile::encodeName(_file.fileName());
    const QByteArray to = QFile::encodeName(_replaced);
    struct stat status = {};
    if (::stat(to.constData(), &status) != 0
        || ::fchmod(_file.handle(), status.st_mode & ALLPERMS) != 0 || ::fsync(_file.handle()) != 0
        || ::rename(from.constData(), to.constData()) != 0)
        return PXFail(PXPOSIXError(errno, u"Could not replace %1"_s.arg(_replaced)));
    _file.setAutoRemove(false);
    return {};
}
