#include "app/cli/BRFramesCommand.h"

#include "app/cli/BRCapturePath.h"
#include "app/cli/BRExitStatus.h"
#include "app/cli/BRTerminal.h"
#include "capture/framefile/BRFrameAssembler.h"
#include "foundation/PXFileManager.h"

#include <QDir>
#include <QImage>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSaveFile>

#include <cerrno>
#include <system_error>

using namespace Qt::StringLiterals;

namespace {

PXError errorOfFile(const QSaveFile &file)
{
    // QSaveFile keeps no number; errno is the one of its last failed call.
    return PXPOSIXError(errno ? errno : EIO, u"Could not write \"%1\""_s.arg(file.fileName()));
}

PXExpected<void> write(QSaveFile &file, const QByteArray &bytes)
{
    errno = 0;
    if (file.write(bytes) != bytes.size())
        return PXFail(errorOfFile(file));
    return {};
}

PXExpected<void> commit(QSaveFile &file)
{
    errno = 0;
    // Flushed first: commit() alone reports success when the disk fills up during its last write.
    if (!file.flush() || !file.commit())
        return PXFail(errorOfFile(file));
    return {};
}

PXExpected<void> writePicture(const BRFrameAssembler &frames, const QString &path,
                              BRPictureFormat format)
{
    QSaveFile file(path);
    errno = 0;
    if (!file.open(QIODevice::WriteOnly))
        return PXFail(errorOfFile(file));
    const std::span<const std::byte> pixels = frames.picture();
    const auto *bytes = reinterpret_cast<const uchar *>(pixels.data());
    bool isWritten = false;
    if (format == BRPictureFormat::BGRA) {
        isWritten
            = file.write(reinterpret_cast<const char *>(bytes), static_cast<qint64>(pixels.size()))
            == static_cast<qint64>(pixels.size());
    } else {
        const QImage image(bytes, frames.width(), frames.height(),
                           static_cast<qsizetype>(frames.width()) * 4, QImage::Format_RGB32);
        isWritten = image.save(&file, "PNG");
    }
    return isWritten ? commit(file) : PXFail(errorOfFile(file));
}

QJsonObject descriptionOfFrame(const BRFrameAssembler &frames)
{
    QJsonArray rects;
    for (const PXRect &rect : frames.rects()) {
        rects.append(QJsonArray{static_cast<double>(rect.x), static_cast<double>(rect.y),
                                static_cast<double>(rect.width), static_cast<double>(rect.height)});
    }
    return {{u"index"_s, static_cast<qint64>(frames.frameIndex())},
            {u"timestamp"_s, frames.timestamp()},
            {u"keyframe"_s, frames.isKeyFrame()},
            {u"rects"_s, rects}};
}

PXExpected<void> writeFrames(BRFrameStreamer &streamer, const QString &path,
                             const QString &outputFolder, BRPictureFormat format)
{
    if (auto made = PXFileManager::createAllDirectoriesForPath(outputFolder); !made)
        return made;
    const QDir folder(PXFileManager::resolvedPath(outputFolder));
    const QString extension = format == BRPictureFormat::PNG ? u"png"_s : u"bgra"_s;
    BRFrameAssembler frames(streamer, BRPixelOrder::BGRA);
    QSaveFile list(folder.filePath(u"frames.json"_s));
    errno = 0;
    if (!list.open(QIODevice::WriteOnly))
        return PXFail(errorOfFile(list));
    QByteArray separator = "[\n";
    for (std::uint32_t count = 0;; ++count) {
        const auto result = frames.readNextFrame();
        if (!result)
            return PXFail(result.error());
        if (*result == BRFrameAssembler::Result::End)
            break;
        const QString name = QString::asprintf("%06u.", frames.frameIndex()) + extension;
        if (auto written = writePicture(frames, folder.filePath(name), format); !written)
            return written;
        const QJsonDocument description(descriptionOfFrame(frames));
        if (auto written = write(list, separator + description.toJson(QJsonDocument::Compact));
            !written)
            return written;
        separator = ",\n";
        if (const std::uint32_t total = streamer.numberOfFrames(); total > 0) {
            BRTerminal::showProgress(
                {u"%1 %2 of %3 frames"_s
                     .arg(BRTerminal::progressBar(static_cast<double>(count + 1) / total, 30))
                     .arg(count + 1)
                     .arg(total)});
        }
    }
    BRTerminal::endProgress();
    if (auto ended = write(list, separator.startsWith('[') ? "[\n]\n" : "\n]\n"); !ended)
        return ended;
    if (auto committed = commit(list); !committed)
        return committed;
    if (frames.wasCutShort())
        BRWarnOfCutShort(path, u"only its complete frames were written"_s);
    return {};
}

} // namespace

int BRRunFramesCommand(const QString &path, const QString &outputFolder, BRPictureFormat format)
{
    auto capture = BRCapturePath::withPath(path);
    auto streamer = capture.and_then([](const BRCapturePath &found) { return found.open(); });
    if (!streamer) {
        BRTerminal::printError(streamer.error());
        return BRExitStatusOfError(streamer.error(), BRAccess::Reading);
    }
    const auto written = writeFrames(**streamer, path, outputFolder, format);
    if (!written) {
        BRTerminal::printError(written.error());
        return BRExitStatusOfError(written.error(), BRAccess::Writing);
    }
    return BRExitDone;
}
