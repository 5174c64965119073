#include "app/cli/BRCapturePath.h"

#include "capture/BRScreenRecorder.h"
#include "foundation/BRLog.h"
#include "foundation/PXPropertyList.h"

#include <QDir>
#include <QFileInfo>

#include <cerrno>

using namespace Qt::StringLiterals;

PXExpected<BRCapturePath> BRCapturePath::withPath(const QString &path)
{
    const QFileInfo file(path);
    if (!file.exists())
        return PXFail(PXPOSIXError(ENOENT, u"Could not open \"%1\""_s.arg(path)));
    BRCapturePath capture;
    capture.videoDataPath = file.isDir() ? QDir(path).filePath(kBRCaptureVideoDataName) : path;
    if (!QFileInfo::exists(capture.videoDataPath)) {
        return PXFail(PXPOSIXError(
            ENOENT,
            u"\"%1\" is no captured movie: it has no \"%2\""_s.arg(path, kBRCaptureVideoDataName)));
    }
    const QString infoPath = QFileInfo(capture.videoDataPath).dir().filePath(kBRMovieInfoName);
    if (QFileInfo::exists(infoPath)) {
        if (auto info = PXPropertyList::read(infoPath))
            capture.info = *std::move(info);
        else
            BRLog(BRLogWarning, PXErrorLine(info.error()));
    }
    return capture;
}

PXExpected<std::unique_ptr<BRFrameStreamer>> BRCapturePath::open() const
{
    return BRFrameStreamer::withFilePathForReading(videoDataPath,
                                                   info.value(u"isUpsideDown"_s).toBool());
}
