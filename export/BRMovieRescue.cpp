#include "export/BRMovieRescue.h"

#include "audio/BRAudioRecorder.h"
#include "capture/framefile/BRFrameFileRepair.h"
#include "capture/framefile/BRFrameStreamer.h"
#include "export/BRCapturedMovie.h"
#include "export/BRMovieFolderLock.h"
#include "foundation/BRLog.h"
#include "foundation/PXFileManager.h"
#include "foundation/PXPropertyList.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QUuid>

#include <cerrno>
#include <cstdio>

using namespace Qt::StringLiterals;

const QString kBRWasRescuedKey = u"wasRescued"_s;

namespace {

constexpr int kRepairedFormat = 2; ///< Older captures are only read.

QString videoDataPathIn(const QString &folder)
{
    return QDir(folder).filePath(kBRCaptureVideoDataName);
}

QString infoPathIn(const QString &folder)
{
    return QDir(folder).filePath(kBRMovieInfoName);
}

/// The header's frame count says 0.
bool hasNoFrameCount(const PXExpected<BRFrameFileHeader> &header)
{
    return header && header->fileFormat == kRepairedFormat && header->numberOfFrames == 0;
}

QVariantMap newInfo(const QString &folder)
{
    const QFileInfo video(videoDataPathIn(folder));
    const QDateTime born = video.birthTime();
    return {
        {u"uuid"_s, QFileInfo(folder).fileName()},
        {u"date"_s, (born.isValid() ? born : video.lastModified()).toUTC()},
        {u"hasVideo"_s, true},
        {u"isUpsideDown"_s, true},
    };
}

/// It is not there, or torn. That it could not be read (a network that is away, another user's
/// file) says nothing about what is in it.
bool isToBeMade(const PXExpected<QVariantMap> &info)
{
    if (info)
        return info->isEmpty();
    const PXError &error = info.error();
    return (error.domain == kPXPOSIXErrorDomain && error.code == ENOENT)
        || (error.domain == kPXCocoaErrorDomain && error.code == kPXFileReadCorruptFileError);
}

bool hasSecondSound(const QString &folder)
{
    return QFileInfo(QDir(folder).filePath(kBRSecondCaptureAudioDataName)).size() > 0;
}

/// What was in it may still be of use to somebody who can read it.
PXExpected<void> putAside(const QString &path)
{
    const QString aside = PXFileManager::uniquePathForFileWithDesiredPath(path + u".damaged"_s);
    if (QFileInfo::exists(path)
        && std::rename(QFile::encodeName(path).constData(), QFile::encodeName(aside).constData())
            != 0)
        return PXFail(PXPOSIXError(errno, u"Could not move the file "_s + path));
    return {};
}

PXExpected<void> repairInfo(const QString &folder, const PXExpected<QVariantMap> &read,
                            const BRRepairedFrameFile &video, bool isMarked)
{
    const QString path = infoPathIn(folder);
    if (!read && !isToBeMade(read))
        return PXFail(read.error());
    QVariantMap info = read.value_or(QVariantMap());
    if (isToBeMade(read)) {
        if (auto done = putAside(path); !done)
            return done;
        info = newInfo(folder);
        const auto header = BRFrameStreamer::headerOfFile(videoDataPathIn(folder));
        if (!header)
            return PXFail(header.error());
        info[u"width"_s] = PXClampToInt(header->selectionSize.width);
        info[u"height"_s] = PXClampToInt(header->selectionSize.height);
    }
    info[u"hasAudio"_s] = QFileInfo(QDir(folder).filePath(kBRCaptureAudioDataName)).size() > 0;
    if (isMarked) {
        if (video.duration > 0)
            info[u"averageCaptureRate"_s] = (video.frames - 1) / video.duration;
        info[kBRWasRescuedKey] = true;
    }
    return PXPropertyList::write(info, path, PXPropertyList::Format::XML);
}

} // namespace

bool BRMovieRescue::isNeeded(const QString &movieFolder, const PXExpected<QVariantMap> &info,
                             const PXExpected<BRFrameFileHeader> &header)
{
    return isToBeMade(info) || BRMovieFolderLock::isThere(movieFolder) || hasNoFrameCount(header)
        || hasSecondSound(movieFolder);
}

PXExpected<BRRescuedMovie> BRMovieRescue::rescue(const QString &movieFolder, PXMediaPlatform &media,
                                                 const std::stop_token &stop)
{
    const QString videoDataPath = videoDataPathIn(movieFolder);
    // Asked first: where there is nothing to do no lock is left for others to see.
    if (!isNeeded(movieFolder, PXPropertyList::read(infoPathIn(movieFolder)),
                  BRFrameStreamer::headerOfFile(videoDataPath)))
        return BRRescuedMovie{};
    const auto lock = BRMovieFolderLock::take(movieFolder);
    if (!lock)
        return PXFail(lock.error());
    if (!*lock)
        return BRRescuedMovie{BRRescuedMovie::Outcome::BeingWritten};
    // And again: its recording, or another program's rescue, may have come to its end meanwhile.
    const auto info = PXPropertyList::read(infoPathIn(movieFolder));
    const bool wasInterrupted = (*lock)->wasLeft() || isToBeMade(info)
        || hasNoFrameCount(BRFrameStreamer::headerOfFile(videoDataPath));
    if (!wasInterrupted && !hasSecondSound(movieFolder))
        return BRRescuedMovie{};
    const auto video = BRRepairFrameFile(videoDataPath, stop);
    if (!video)
        return PXFail(video.error());
    if (video->frames == 0)
        return BRRescuedMovie{BRRescuedMovie::Outcome::Empty};
    if (const auto sound = BRAudioRecorder::makeOneFile(movieFolder, media, stop); !sound) {
        const bool isDamaged = sound.error().domain == kPXCocoaErrorDomain;
        // A full disk may have room later; what nobody can read is only in the way.
        if (!isDamaged)
            return PXFail(sound.error());
        BRLog(BRLogWarning, PXErrorLine(sound.error()));
        if (hasSecondSound(movieFolder)) {
            if (const auto done
                = putAside(QDir(movieFolder).filePath(kBRSecondCaptureAudioDataName));
                !done)
                return PXFail(done.error());
        }
    }
    if (const auto written = repairInfo(movieFolder, info, *video, wasInterrupted); !written)
        return PXFail(written.error());
    return BRRescuedMovie{BRRescuedMovie::Outcome::Rescued, video->frames, video->duration,
                          video->bytesCut};
}
