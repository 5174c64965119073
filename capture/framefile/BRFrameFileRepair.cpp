#include "capture/framefile/BRFrameFileRepair.h"

#include "capture/framefile/BRFrameFormat.h"
#include "capture/framefile/BRFrameStreamer.h"

#include <QFile>
#include <QSaveFile>

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cerrno>
#include <span>
#include <vector>

using namespace Qt::StringLiterals;

namespace {

/// Several times what a recorder lets pass before it has the disk store what was written.
constexpr double kUnsureSeconds = 10;

/// The whole frames, and where the last one ends.
struct WholeFrames {
    std::vector<BRFrameIndexRecord> index;
    std::uint64_t end = BRFrameFormat::kV2HeaderLength;
};

/// Reads over the next frame; false where it is not whole.
bool addNextFrame(BRFrameStreamer &streamer, WholeFrames &frames)
{
    BRFrameIndexRecord record{static_cast<std::uint32_t>(frames.index.size()), streamer.position(),
                              0, 0};
    std::uint32_t count = 0;
    double timestamp = 0;
    if (!streamer.readFrame(count, timestamp))
        return false;
    // Nobody records so many, but a file that was damaged may claim them.
    if (count > BRFrameFormat::kMostRectsOfAFrame)
        return false;
    PXRect rect;
    for (std::uint32_t i = 0; i < count; ++i) {
        if (!streamer.skipDirtyRect(rect, false))
            return false;
    }
    const PXSize size = streamer.selectionSize();
    record.timestamp = timestamp;
    record.flags = count == 1 && rect == PXRect{0, 0, size.width, size.height}
        ? BRFrameFormat::kKeyFrameFlag
        : 0;
    frames.index.push_back(record);
    frames.end = streamer.position();
    return true;
}

/// Those before `first` as the index has them, and what is walked over from there; `begin` is the
/// place of frame 0.
WholeFrames framesWalkedFrom(std::uint32_t first, std::uint64_t begin, BRFrameStreamer &streamer,
                             const std::stop_token &stop)
{
    const auto known = streamer.frameIndex();
    WholeFrames frames;
    frames.index.assign(known.begin(), known.begin() + first);
    streamer.setPosition(first > 0 ? known[first].position : begin);
    while (!stop.stop_requested() && addNextFrame(streamer, frames)) { }
    return frames;
}

WholeFrames wholeFramesOf(BRFrameStreamer &streamer, const std::stop_token &stop)
{
    const std::uint64_t begin = streamer.position();
    const auto known = streamer.frameIndex();
    if (known.empty() || known.front().position != begin)
        return framesWalkedFrom(0, begin, streamer, stop);
    // The recorder had the disk store all but the last seconds: those alone may be other than the
    // index says, where the machine has lost its power.
    const double unsure = known.back().timestamp - kUnsureSeconds;
    const auto isBefore
        = [](const BRFrameIndexRecord &record, double time) { return record.timestamp < time; };
    const auto first = static_cast<std::uint32_t>(
        std::lower_bound(known.begin(), known.end(), unsure, isBefore) - known.begin());
    WholeFrames frames = framesWalkedFrom(first, begin, streamer, stop);
    const bool isSound = frames.index.size() > first && frames.index[first] == known[first];
    return isSound || first == 0 ? frames : framesWalkedFrom(0, begin, streamer, stop);
}

PXExpected<void> writeIndex(const QString &path, const std::vector<BRFrameIndexRecord> &index)
{
    const auto bytes = std::as_bytes(std::span(index));
    const QByteArray data = QByteArray::fromRawData(reinterpret_cast<const char *>(bytes.data()),
                                                    static_cast<qsizetype>(bytes.size()));
    if (QFile there(path); there.open(QIODevice::ReadOnly) && there.readAll() == data)
        return {};
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(data) != data.size() || !file.flush()
        || !file.commit())
        return PXFail(PXPOSIXError(errno != 0 ? errno : EIO, u"Could not write "_s + path));
    return {};
}

/// Copies what lies behind the last whole frame into a file of its own: mostly it is the frame that
/// was being written, but behind damage there may be more.
PXExpected<void> keepRest(const QString &path, std::uint64_t end)
{
    constexpr qint64 kPiece = qint64{1} << 20;
    const QString restPath = path + u".rest"_s;
    QFile file(path);
    QSaveFile rest(restPath);
    bool isCopied = file.open(QIODevice::ReadOnly) && file.seek(static_cast<qint64>(end))
        && rest.open(QIODevice::WriteOnly);
    while (isCopied && !file.atEnd()) {
        const QByteArray piece = file.read(kPiece);
        isCopied = !piece.isEmpty() && rest.write(piece) == piece.size();
    }
    if (!isCopied || !rest.commit())
        return PXFail(PXPOSIXError(errno != 0 ? errno : EIO, u"Could not write "_s + restPath));
    return {};
}

/// Cuts the file, and then tells its header what is in it.
PXExpected<void> finishFile(const QString &path, std::uint64_t end, double duration,
                            std::uint32_t frames)
{
    const int file = ::open(QFile::encodeName(path).constData(), O_WRONLY | O_CLOEXEC);
    // Duration and count lie one behind the other.
    std::array<std::byte, 12> patch;
    const auto durationBytes = std::bit_cast<std::array<std::byte, 8>>(duration);
    const auto frameBytes = std::bit_cast<std::array<std::byte, 4>>(frames);
    std::copy(durationBytes.begin(), durationBytes.end(), patch.begin());
    std::copy(frameBytes.begin(), frameBytes.end(), patch.begin() + durationBytes.size());
    const bool isDone = file >= 0 && ::ftruncate(file, static_cast<off_t>(end)) == 0
        && ::fdatasync(file) == 0
        && ::pwrite(file, patch.data(), patch.size(), BRFrameFormat::kV2DurationPosition)
            == static_cast<ssize_t>(patch.size())
        && ::fdatasync(file) == 0;
    const int error = errno;
    if (file >= 0)
        ::close(file);
    if (!isDone)
        return PXFail(PXPOSIXError(error, u"Could not repair "_s + path));
    return {};
}

} // namespace

PXExpected<BRRepairedFrameFile> BRRepairFrameFile(const QString &filePath,
                                                  const std::stop_token &stop)
{
    auto streamer = BRFrameStreamer::withFilePathForRepair(filePath);
    if (!streamer)
        return PXFail(streamer.error());
    if (!(*streamer)->wasInterrupted())
        return BRRepairedFrameFile{(*streamer)->numberOfFrames(), (*streamer)->duration(), 0};
    const WholeFrames frames = wholeFramesOf(**streamer, stop);
    if (stop.stop_requested())
        return PXFail(PXPOSIXError(ECANCELED, u"Repairing "_s + filePath));
    const std::uint64_t length = (*streamer)->length();
    streamer->reset();
    if (frames.index.empty())
        return BRRepairedFrameFile{};
    const BRRepairedFrameFile repaired = {static_cast<std::uint32_t>(frames.index.size()),
                                          frames.index.back().timestamp, length - frames.end};
    auto done = length > frames.end ? keepRest(filePath, frames.end) : PXExpected<void>();
    if (done)
        done = writeIndex(filePath + u".index"_s, frames.index);
    if (done)
        done = finishFile(filePath, frames.end, repaired.duration, repaired.frames);
    if (!done)
        return PXFail(done.error());
    return repaired;
}
