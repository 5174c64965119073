#include "capture/framefile/BRFrameFormat.h"
#include "capture/framefile/BRFrameSmoosher.h"
#include "capture/framefile/BRFrameStreamer.h"
#include "capture/framefile/BRRowCodecs.h"
#include "foundation/BRLog.h"

#include <QFile>

#include <lzo/lzo1x.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <stdexcept>

using namespace Qt::StringLiterals;

namespace {

/// Small frames leave in one call; blocks that are larger go past the buffer.
constexpr std::size_t kFileBufferSize = std::size_t{64} * 1024;
/// Encoded rows are handed over in blocks of this size, which stay in the second-level cache.
constexpr std::size_t kRowBlockSize = std::size_t{256} * 1024;

bool isWholeSide(float side)
{
    return side >= 1 && side <= static_cast<float>(BRFrameFormat::kLargestSide)
        && std::floor(side) == side;
}

void writeUInt32(std::byte *to, std::size_t value)
{
    for (unsigned i = 0; i < 4; ++i)
        to[i] = static_cast<std::byte>(value >> (8 * i));
}

PXError outOfMemory()
{
    return PXPOSIXError(ENOMEM, u"Could not make the buffers of a raw capture"_s);
}

} // namespace

PXExpected<void> BRFrameStreamer::openFilePathForWriting(PXSize selectionSize,
                                                         BRRawCompression compression,
                                                         int lossyLevel)
{
    if (!isWholeSide(selectionSize.width) || !isWholeSide(selectionSize.height))
        throw std::logic_error("BRFrameStreamer: a side of the selection is not 1 to 32767");
    _isWriting = true;
    mSelectionSize = selectionSize;
    mCompressionType = compression;
    mPixelFormat = compression == BRRawCompression::LZO ? 2 : 1;
    mLossyLevel = static_cast<std::uint32_t>(lossyLevel);
    mLossyMask = BRLossyLevelToMask(lossyLevel);
    auto made = _allocateWritingBuffers();
    if (!made)
        return made;

    constexpr unsigned flags
        = PXBinaryStream::Read | PXBinaryStream::Write | PXBinaryStream::LittleEndian;
    // A file of its own: whoever still has the one of before open cannot write into this one. Not
    // by QSaveFile, which waits for the disk, and the first grab with it.
    int errorNumber = unlink(QFile::encodeName(mFilePath).constData()) == 0 ? 0 : errno;
    if (errorNumber == ENOENT)
        errorNumber = 0;
    if (errorNumber == 0) {
        if (const auto opened = mFileStream.open(flags); !opened)
            errorNumber = opened.error().code;
    }
    if (errorNumber != 0) {
        BRLog(BRLogError, "BRFrameStreamer Error: Could not create the file streamer file.");
        return PXFail(PXPOSIXError(errorNumber, u"Could not create file "_s + mFilePath));
    }
    if (auto opened = mV2FrameIndexFileStream.open(flags); !opened)
        return opened;
    mFileStream.setFileBufferSize(kFileBufferSize);
    v2_writeHeader();
    return mFileStream.flush();
}

PXExpected<void> BRFrameStreamer::_allocateWritingBuffers()
{
    const std::size_t pixels = _selectionBytes() / 4;
    // What the library needs at worst, and one row of runs: more than the usual size only where
    // the selection is a few pixels.
    const std::size_t least
        = std::max(pixels * 4 + pixels / 4 + 67, RLEMaximumLength(_width()) + 4);
    const std::size_t compressedSize = std::max(pixels * 8, least);
    mTemporaryBuffer.reset(static_cast<std::byte *>(PXvalloc2(
        pixels * 4, BRFrameFormat::kTemporaryBufferBound, "Source/BRFrameStreamer", __LINE__)));
    mCompressedDataBuffer.reset(static_cast<std::byte *>(PXmalloc2(
        compressedSize, BRFrameFormat::kWritingBufferBound, "Source/BRFrameStreamer", __LINE__)));
    if (!mTemporaryBuffer || !mCompressedDataBuffer)
        return PXFail(outOfMemory());
    _compressedDataBufferSize = compressedSize;
    if (mCompressionType != BRRawCompression::LZO)
        return {};
    if (lzo_init() != LZO_E_OK)
        return PXFail(PXPOSIXError(ENOTSUP, u"The LZO library does not work"_s));
    _lzoWorkMemory.reset(static_cast<std::byte *>(std::malloc(LZO1X_1_MEM_COMPRESS)));
    if (!_lzoWorkMemory)
        return PXFail(outOfMemory());
    return {};
}

void BRFrameStreamer::v2_writeHeader()
{
    mFileStream.writeUInt32(BRFrameFormat::kV2Magic);
    mFileStream.writeInt32(mFileFormat);
    mFileStream.writeUInt32(static_cast<std::uint32_t>(mV2VideoFramesPosition));
    mFileStream.writeUInt32(_width());
    mFileStream.writeUInt32(_height());
    mFileStream.writeDouble(mDuration);
    mFileStream.writeUInt32(mNumberOfFrames);
    mFileStream.writeUInt32(static_cast<std::uint32_t>(mCompressionType));
    mFileStream.writeUInt32(mPixelFormat);
    mFileStream.writeBool(mIsUpsideDown);
}

PXExpected<void> BRFrameStreamer::writeFrameWithDirtyRects(std::span<const PXRect> dirtyRects,
                                                           double timestamp)
{
    if (!_isWriting || !mFileStream.isOpen())
        throw std::logic_error("BRFrameStreamer: not open for writing");
    if (_openFrame && _openFrame->rectsLeft > 0 && !_openFrame->error)
        throw std::logic_error("BRFrameStreamer: the frame before misses rectangles");
    const PXRect wholeSelection{0, 0, mSelectionSize.width, mSelectionSize.height};
    const bool isKeyFrame = dirtyRects.size() == 1 && dirtyRects[0] == wholeSelection;
    return v2_writeFrameWithNumberOfRects(static_cast<std::uint32_t>(dirtyRects.size()), timestamp,
                                          isKeyFrame ? BRFrameFormat::kKeyFrameFlag : 0);
}

PXExpected<void> BRFrameStreamer::v2_writeFrameWithNumberOfRects(std::uint32_t numberOfRects,
                                                                 double timestamp,
                                                                 std::uint32_t flags)
{
    _openFrame = OpenFrame{mFileStream.position(), timestamp,         flags,
                           numberOfRects,          mBytesReadWritten, std::nullopt};
    mFileStream.writeUInt32(numberOfRects);
    mFileStream.writeDouble(timestamp);
    mBytesReadWritten += 12;
    return numberOfRects == 0 ? _endFrame() : PXExpected<void>();
}

PXExpected<void> BRFrameStreamer::writeDirtyRect(const PXRect &dirtyRect, const PXRect &rect,
                                                 const PXPixelView &buffer)
{
    if (!_openFrame || _openFrame->rectsLeft == 0)
        throw std::logic_error("BRFrameStreamer: more rectangles than the frame has");
    if (_openFrame->error)
        return PXFail(*_openFrame->error);
    const RectangleRecord record{PXClampToUInt32(dirtyRect.x), PXClampToUInt32(dirtyRect.y),
                                 PXClampToUInt32(dirtyRect.width),
                                 PXClampToUInt32(dirtyRect.height)};
    const std::byte *lowestRow = nullptr;
    if (record.width > 0 && record.height > 0) {
        const int x = PXClampToInt(rect.x);
        const int y = PXClampToInt(rect.y);
        const bool fitsBuffer = x >= 0 && y >= 0 && x + std::int64_t{record.width} <= buffer.width
            && y + std::int64_t{record.height} <= buffer.height;
        if (!fitsBuffer || record.width > _width() || record.height > _height())
            throw std::logic_error("BRFrameStreamer: a rectangle reaches outside its buffer");
        lowestRow = buffer.pixel(x, y);
    }

    for (const std::uint32_t value : {record.x, record.y, record.width, record.height})
        mFileStream.writeUInt32(value);
    mBytesReadWritten += 16;
    if (mCompressionType == BRRawCompression::LZO)
        compression_LZO_writeDirtyRect(record, lowestRow, buffer.bytesPerRow);
    else if (mCompressionType == BRRawCompression::RLE)
        compression_RLE_writeDirtyRect(record, lowestRow, buffer.bytesPerRow);
    else
        compression_None_writeDirtyRect(record, lowestRow, buffer.bytesPerRow);

    if (mFileStream.writeErrorNumber() != 0)
        return _failFrame(mFileStream.flush().error());
    return --_openFrame->rectsLeft == 0 ? _endFrame() : PXExpected<void>();
}

void BRFrameStreamer::compression_None_writeDirtyRect(const RectangleRecord &record,
                                                      const std::byte *lowestRow,
                                                      std::ptrdiff_t bytesPerRow)
{
    const std::uint32_t declaredBytes = record.width * record.height * 4;
    mFileStream.writeUInt32(declaredBytes);
    mBytesReadWritten += 4 + std::uint64_t{declaredBytes};
    const std::span<const std::byte> pixels(mTemporaryBuffer.get(), std::size_t{record.width} * 4);
    for (std::uint32_t y = 0; y < record.height; ++y) {
        if (!pixels.empty())
            BRFrameSmoosher::packOpaqueRows(lowestRow + y * bytesPerRow, bytesPerRow,
                                            static_cast<int>(record.width), 1,
                                            mTemporaryBuffer.get());
        mFileStream.writeData(pixels);
        // The file has whole rows of the buffer. What lies beside the rectangle there has nothing
        // to do with it and may be outside the selection, so zeros stand in for it.
        static constexpr std::array<std::byte, 4096> zeros = {};
        for (std::size_t written = pixels.size(),
                         end = static_cast<std::size_t>(std::abs(bytesPerRow));
             written < end;) {
            const std::size_t part = std::min(end - written, zeros.size());
            mFileStream.writeData({zeros.data(), part});
            written += part;
        }
    }
}

void BRFrameStreamer::compression_LZO_writeDirtyRect(const RectangleRecord &record,
                                                     const std::byte *lowestRow,
                                                     std::ptrdiff_t bytesPerRow)
{
    if (lowestRow != nullptr)
        BRFrameSmoosher::packOpaqueRows(lowestRow, bytesPerRow, static_cast<int>(record.width),
                                        static_cast<int>(record.height), mTemporaryBuffer.get());
    const std::size_t length
        = lowestRow != nullptr ? std::size_t{record.width} * record.height * 4 : 0;
    lzo_uint compressedLength = 0;
    // Never fails: it has no other result than LZO_E_OK, and the buffer is large enough.
    lzo1x_1_compress(reinterpret_cast<const unsigned char *>(mTemporaryBuffer.get()), length,
                     reinterpret_cast<unsigned char *>(mCompressedDataBuffer.get()),
                     &compressedLength, _lzoWorkMemory.get());
    mFileStream.writeUInt32(static_cast<std::uint32_t>(compressedLength));
    mFileStream.writeData({mCompressedDataBuffer.get(), compressedLength});
    mBytesReadWritten += 4 + compressedLength;
}

void BRFrameStreamer::compression_RLE_writeDirtyRect(const RectangleRecord &record,
                                                     const std::byte *lowestRow,
                                                     std::ptrdiff_t bytesPerRow)
{
    if (record.height == 0)
        return;
    const std::uint32_t mask = mLossyLevel == 0 ? 0 : mLossyMask;
    const std::size_t longestRow = RLEMaximumLength(record.width) + 4;
    const std::size_t blockSize
        = std::min(_compressedDataBufferSize, std::max(kRowBlockSize, longestRow));
    std::byte *block = mCompressedDataBuffer.get();
    std::size_t used = 0;
    for (std::uint32_t y = 0; y < record.height; ++y) {
        if (used + longestRow > blockSize) {
            mFileStream.writeData({block, used});
            mBytesReadWritten += used;
            used = 0;
        }
        const std::size_t length = record.width == 0
            ? 0
            : RLECompressOpaqueBGRAToRGB(lowestRow + y * bytesPerRow, record.width,
                                         block + used + 4, mask);
        writeUInt32(block + used, length);
        used += 4 + length;
    }
    mFileStream.writeData({block, used});
    mBytesReadWritten += used;
}

PXExpected<void> BRFrameStreamer::_endFrame()
{
    const auto flushed = mFileStream.flush();
    if (!flushed)
        return _failFrame(flushed.error());
    mV2FrameIndexFileStream.writeUInt32(mV2CurrentFrameIndex);
    mV2FrameIndexFileStream.writeUInt64(_openFrame->position);
    mV2FrameIndexFileStream.writeDouble(_openFrame->timestamp);
    mV2FrameIndexFileStream.writeUInt32(_openFrame->flags);
    const auto indexFlushed = mV2FrameIndexFileStream.flush();
    if (!indexFlushed)
        return _failFrame(indexFlushed.error());
    ++mV2CurrentFrameIndex;
    return {};
}

PXExpected<void> BRFrameStreamer::_failFrame(const PXError &error)
{
    BRLog(BRLogError, error.description);
    _openFrame->error = error;
    _cutOffOpenFrame();
    return PXFail(error);
}

void BRFrameStreamer::_cutOffOpenFrame()
{
    // Cutting off needs no room, so it works on a full disk; where it fails too, the device has
    // gone and the error that is on its way says so.
    const auto cut = mFileStream.truncate(_openFrame->position);
    const auto indexCut = mV2FrameIndexFileStream.truncate(
        mV2CurrentFrameIndex * std::uint64_t{BRFrameFormat::kV2IndexRecordLength});
    if (!cut || !indexCut)
        BRLog(BRLogError, (cut ? indexCut : cut).error().description);
    mBytesReadWritten = _openFrame->bytesBefore;
}

PXExpected<void> BRFrameStreamer::setDuration(double duration)
{
    mDuration = duration;
    return _patchHeader(mV2DurationPosition, [&] { mFileStream.writeDouble(duration); });
}

PXExpected<void> BRFrameStreamer::setTotalNumberOfFrames(std::uint32_t numberOfFrames)
{
    mNumberOfFrames = numberOfFrames;
    return _patchHeader(mV2NumberOfFramesPosition,
                        [&] { mFileStream.writeUInt32(numberOfFrames); });
}

template <typename Write>
PXExpected<void> BRFrameStreamer::_patchHeader(std::uint64_t position, Write write)
{
    if (!_isWriting || !mFileStream.isOpen())
        throw std::logic_error("BRFrameStreamer: not open for writing");
    const std::uint64_t here = mFileStream.position();
    mFileStream.setPosition(position);
    write();
    mBytesReadWritten += mFileStream.position() - position;
    mFileStream.setPosition(here);
    auto flushed = mFileStream.flush();
    if (!flushed)
        BRLog(BRLogError, flushed.error().description);
    return flushed;
}

void BRFrameStreamer::close()
{
    if (_isWriting && mFileStream.isOpen() && _openFrame && _openFrame->rectsLeft > 0
        && !_openFrame->error)
        _cutOffOpenFrame();
    _openFrame.reset();
    mFileStream.close();
    mV2FrameIndexFileStream.close();
}
