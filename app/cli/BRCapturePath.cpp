#include "app/cli/BRCapturePath.h"

#include "app/cli/BRLoggedWarnings.h"
#include "app/cli/BRTerminal.h"
#include "export/BRMovieLibrary.h"
#include "foundation/BRLog.h"
#include "foundation/PXDefaults.h"
#include "foundation/PXPropertyList.h"

#include <QDir>
#include <QFileInfo>

#include <algorithm>
#include <cerrno>

using namespace Qt::StringLiterals;

PXExpected<QString> BRCapturePath::movieFolder(const QString &text)
{
    // Whole, and without what stands for a folder: its last part is the movie's UUID.
    if (QFileInfo(text).isDir())
        return QDir::cleanPath(QFileInfo(text).absoluteFilePath());
    const QString library = PXDefaults::standardUserDefaults().stringValue(u"moviesFolderPath"_s);
    const QStringList found = BRMovieLibrary::foldersFor(text, library);
    if (found.size() == 1)
        return found.first();
    if (found.isEmpty()) {
        return PXFail(
            PXPOSIXError(ENOENT,
                         u"\"%1\" is neither a file nor the UUID or name of a movie in %2"_s.arg(
                             text, library)));
    }
    QStringList names;
    for (const QString &folder : found)
        names << QFileInfo(folder).fileName();
    return PXFail(PXError{kPXPOSIXErrorDomain,
                          ENOTUNIQ,
                          u"\"%1\" may mean several movies: %2"_s.arg(text, names.join(u", "_s)),
                          {},
                          {}});
}

PXExpected<BRCapturePath> BRCapturePath::withPath(const QString &text)
{
    const auto folder = QFileInfo::exists(text) ? PXExpected<QString>(text) : movieFolder(text);
    if (!folder)
        return PXFail(folder.error());
    const QString &path = *folder;
    const QFileInfo file(path);
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
