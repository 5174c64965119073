#include "capture/framefile/BRFrameStreamer.h"

#include <QFile>

#include <unistd.h>

#include <cerrno>

using namespace Qt::StringLiterals;

const QString kBRCaptureVideoDataName = u"Brimmet Capture Video Data"_s;
const QString kBRMovieInfoName = u"Info.plist"_s;

BRFrameStreamer::BRFrameStreamer(const QString &filePath)
    : mFilePath(filePath), mFileStream(filePath), mV2FrameIndexFileStream(filePath + u".index"_s)
{
}

BRFrameStreamer::~BRFrameStreamer()
{
    close();
}

PXExpected<std::unique_ptr<BRFrameStreamer>>
BRFrameStreamer::withFilePathForWriting(const QString &filePath, PXSize selectionSize,
                                        BRRawCompression compression, int lossyLevel)
{
    std::unique_ptr<BRFrameStreamer> streamer(new BRFrameStreamer(filePath));
    const auto opened = streamer->openFilePathForWriting(selectionSize, compression, lossyLevel);
    if (!opened)
        return PXFail(opened.error());
    return streamer;
}

PXExpected<std::unique_ptr<BRFrameStreamer>>
BRFrameStreamer::withFilePathForReading(const QString &filePath, bool isUpsideDown)
{
    std::unique_ptr<BRFrameStreamer> streamer(new BRFrameStreamer(filePath));
    const auto opened = streamer->openFilePathForReading(isUpsideDown);
    if (!opened)
        return PXFail(opened.error());
    return streamer;
}

PXExpected<void> BRFrameStreamer::deleteFile()
{
    if (unlink(QFile::encodeName(mFilePath).constData()) != 0)
        return PXFail(PXPOSIXError(errno, u"Could not remove file "_s + mFilePath));
    return {};
}

std::uint64_t BRFrameStreamer::_selectionBytes() const
{
    return std::uint64_t{_width()} * _height() * 4;
}
