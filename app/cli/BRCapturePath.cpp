#include "app/cli/BRCapturePath.h"

#include "app/cli/BRLoggedWarnings.h"
#include "app/cli/BRTerminal.h"
#include "capture/BRScreenRecorder.h"
#include "foundation/BRLog.h"
#include "foundation/PXPropertyList.h"

#include <QDir>
#include <QFileInfo>

#include <algorithm>
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

bool BRIsCutShort(BRFrameStreamer &streamer)
{
    const std::uint32_t frames = streamer.numberOfFrames();
    // A file loses its end; where the index knows the last frame there is no need to walk.
    auto whole
        = static_cast<std::uint32_t>(std::min<std::size_t>(frames, streamer.frameIndex().size()));
    if (whole > 0)
        streamer.gotoFrameIndex(--whole);
    while (whole < frames && streamer.isNextFrameWhole(nullptr, true))
        ++whole;
    return whole < frames || (streamer.wasInterrupted() && streamer.position() < streamer.length());
}

void BRWarnOfCutShort(const QString &path, const QString &consequence)
{
    BRLoggedWarnings::drop(u"Dirty rect stream ended early!"_s);
    BRTerminal::printWarning(u"\"%1\" was cut short: %2"_s.arg(path, consequence));
}
