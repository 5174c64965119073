#include "export/BRMovieFolderLock.h"

#include <QDir>
#include <QFileInfo>

using namespace Qt::StringLiterals;

namespace {

QString lockPathIn(const QString &movieFolder)
{
    return QDir(movieFolder).filePath(u".lock"_s);
}

} // namespace

PXExpected<std::unique_ptr<BRMovieFolderLock>> BRMovieFolderLock::take(const QString &movieFolder)
{
    auto lock = PXFileLock::take(lockPathIn(movieFolder), PXFileLock::Mode::Exclusive,
                                 PXFileLock::IfHeld::GiveUp);
    if (!lock)
        return PXFail(lock.error());
    return std::unique_ptr<BRMovieFolderLock>(*lock ? new BRMovieFolderLock(*std::move(lock))
                                                    : nullptr);
}

bool BRMovieFolderLock::isThere(const QString &movieFolder)
{
    return QFileInfo::exists(lockPathIn(movieFolder));
}
