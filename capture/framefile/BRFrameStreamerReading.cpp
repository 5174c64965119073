#include "capture/framefile/BRFrameFormat.h"
#include "capture/framefile/BRFrameSmoosher.h"
#include "capture/framefile/BRFrameStreamer.h"
#include "capture/framefile/BRRowCodecs.h"

#include <lzo/lzo1x.h>

#include <fcntl.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <limits>
#include <stdexcept>

using namespace Qt::StringLiterals;

namespace {

constexpr std::size_t kFileBufferSize = std::size_t{64} * 1024;

PXError corruptFile(const QString &path, const QString &why)
{
    return {kPXCocoaErrorDomain,
            kPXFileReadCorruptFileError,
            u"%1 is not a raw capture: %2"_s.arg(path, why),
            {},
            {}};
}

} // namespace

PXExpected<std::unique_ptr<BRFrameStreamer>>
BRFrameStreamer::withFilePathForRepair(const QString &filePath)
{
    std::unique_ptr<BRFrameStreamer> streamer(new BRFrameStreamer(filePath));
    constexpr bool kIsUpsideDown = false; // Version 1 is not repaired.
    const auto opened = streamer->_openAndReadHeader(kIsUpsideDown, HeaderOnly::No);
    if (!opened)
        return PXFail(opened.error());
    streamer->_wasInterrupted = streamer->_isVersion2 && streamer->mNumberOfFrames == 0;
    if (streamer->_wasInterrupted)
        streamer->v2_readFrameIndex(std::numeric_limits<std::uint32_t>::max());
    return streamer;
}

PXExpected<BRFrameFileHeader> BRFrameStreamer::headerOfFile(const QString &filePath)
{
    BRFrameStreamer streamer(filePath);
    constexpr bool kIsUpsideDown = false; // Does not matter without pixels.
    return streamer._openAndReadHeader(kIsUpsideDown, HeaderOnly::Yes).map([&] {
        return BRFrameFileHeader{streamer.mSelectionSize, streamer.mDuration,
                                 streamer.mNumberOfFrames, streamer.mFileFormat};
    });
}

PXExpected<void> BRFrameStreamer::openFilePathForReading(bool isUpsideDown)
{
    auto opened = _openAndReadHeader(isUpsideDown, HeaderOnly::No);
    if (!opened)
        return opened;
    if (_isVersion2)
        v2_readFrameIndex(mNumberOfFrames);
    if (mNumberOfFrames == 0)
        _countFrames();
    return {};
}

PXExpected<void> BRFrameStreamer::_openAndReadHeader(bool isUpsideDown, HeaderOnly headerOnly)
{
    auto opened = mFileStream.open(PXBinaryStream::Read | PXBinaryStream::LittleEndian);
    if (!opened)
        return opened;
    if (headerOnly == HeaderOnly::No) {
        mFileStream.setFileBufferSize(kFileBufferSize);
    } else {
        // A disk would be made to read what follows as well: for a thousand files that is felt.
        ::posix_fadvise(::fileno(mFileStream.file()), 0, 0, POSIX_FADV_RANDOM);
    }
    _length = mFileStream.length();
    if (_length == 0)
        return PXFail(corruptFile(mFilePath, u"it is empty"_s));

    const std::uint32_t firstWord = mFileStream.readUInt32();
    _isVersion2 = firstWord == BRFrameFormat::kV2Magic;
    if (_isVersion2)
        v2_readHeader();
    else
        v1_readHeader(firstWord, isUpsideDown);
    auto checked = _checkHeader();
    if (!checked)
        return checked;
    if (!(std::isfinite(mDuration) && mDuration > 0))
        mDuration = 0;
    return headerOnly == HeaderOnly::No ? _allocateReadingBuffers() : PXExpected<void>();
}

void BRFrameStreamer::v2_readHeader()
{
    mFileFormat = mFileStream.readInt32();
    mFramesByteOffset = mFileStream.readUInt32();
    const std::int32_t width = mFileStream.readInt32();
    const std::int32_t height = mFileStream.readInt32();
    _setSelectionSize(width, height);
    mDuration = mFileStream.readDouble();
    mNumberOfFrames = mFileStream.readUInt32();
    mCompressionType = static_cast<BRRawCompression>(mFileStream.readUInt32());
    mPixelFormat = mFileStream.readUInt32();
    mIsUpsideDown = mFileStream.readBool();
}

PXExpected<void> BRFrameStreamer::_checkHeader() const
{
    const auto fail = [this](const QString &why) { return PXFail(corruptFile(mFilePath, why)); };
    if (mFileStream.isEndOfFile())
        return fail(u"its header is cut short"_s);
    if (_isVersion2 && mFileFormat != 2)
        return fail(u"file format %1 is not known"_s.arg(mFileFormat));
    const auto isSane = [](float side) { return side >= 1 && side <= BRFrameFormat::kLargestSide; };
    if (!isSane(mSelectionSize.width) || !isSane(mSelectionSize.height))
        return fail(u"its size would be %1 x %2"_s.arg(qint64(mSelectionSize.width))
                        .arg(qint64(mSelectionSize.height)));
    if (mCompressionType > BRRawCompression::RLE)
        return fail(
            u"compression %1 is not known"_s.arg(static_cast<std::uint32_t>(mCompressionType)));
    return {};
}

PXExpected<void> BRFrameStreamer::_allocateReadingBuffers()
{
    const std::uint64_t bytes = _selectionBytes();
    _temporaryBufferSize = std::min(bytes, BRFrameFormat::pixelBytesJustified(_length));
    // What LZO makes of noise at worst; more than the usual size matters for a few pixels only.
    _compressedDataBufferSize = std::min(bytes + bytes / 16 + 67, _length);
    mTemporaryBuffer.reset(static_cast<std::byte *>(PXvalloc2(_temporaryBufferSize,
                                                              BRFrameFormat::kTemporaryBufferBound,
                                                              "Source/BRFrameStreamer", __LINE__)));
    mCompressedDataBuffer.reset(static_cast<std::byte *>(
        PXmalloc2(_compressedDataBufferSize, BRFrameFormat::kTemporaryBufferBound,
                  "Source/BRFrameStreamer", __LINE__)));
    if (!mTemporaryBuffer || !mCompressedDataBuffer)
        return PXFail(PXPOSIXError(ENOMEM, u"Could not read file "_s + mFilePath));
    if (lzo_init() != LZO_E_OK)
        return PXFail(PXPOSIXError(ENOTSUP, u"The LZO library does not work"_s));
    return {};
}

void BRFrameStreamer::v2_readFrameIndex(std::uint32_t most)
{
    PXBinaryStream &stream = mV2FrameIndexFileStream;
    if (!stream.open(PXBinaryStream::Read | PXBinaryStream::LittleEndian))
        return;
    _numberOfIndexRecords = stream.length() / BRFrameFormat::kV2IndexRecordLength;
    const std::uint64_t usable = std::min<std::uint64_t>(_numberOfIndexRecords, most);
    // The position of a record that was not written yet, or one of another file, would take a
    // reader into the middle of pixels: from the first that cannot be on none is used.
    const auto isSound = [&](const BRFrameIndexRecord &record) {
        const bool isFirst = &record == mV2FrameIndex.data();
        const BRFrameIndexRecord &previous = isFirst ? BRFrameIndexRecord() : *(&record - 1);
        return record.index == static_cast<std::uint64_t>(&record - mV2FrameIndex.data())
            && record.position > previous.position && record.position < _length
            && record.position >= BRFrameFormat::kV2HeaderLength && std::isfinite(record.timestamp)
            && record.timestamp >= previous.timestamp;
    };
    // An hour a piece. Room for all is not made ahead: neither the header's count nor a sparse
    // file's length is to be believed.
    constexpr std::uint64_t kRecordsAPiece = 108'000;
    for (std::uint64_t done = 0; done < usable;) {
        const std::uint64_t wanted = std::min(usable - done, kRecordsAPiece);
        mV2FrameIndex.resize(done + wanted);
        const auto piece = std::span(mV2FrameIndex).subspan(done);
        const std::size_t bytes = stream.readData(std::as_writable_bytes(piece));
        const auto read = piece.first(bytes / sizeof(BRFrameIndexRecord));
        const auto sound = std::find_if_not(read.begin(), read.end(), isSound) - read.begin();
        done += static_cast<std::uint64_t>(sound);
        if (static_cast<std::uint64_t>(sound) < wanted) {
            mV2FrameIndex.resize(done);
            break;
        }
    }
    stream.close();
}

void BRFrameStreamer::_countFrames()
{
    const std::uint64_t here = mFileStream.position();
    _wasInterrupted = here < _length;
    double lastTimestamp = 0;
    while (isNextFrameWhole(&lastTimestamp, true))
        ++mNumberOfFrames;
    _lastTimestamp.reset();
    if (mDuration == 0)
        mDuration = std::max(lastTimestamp, 0.0);
    mFileStream.setPosition(here);
}

bool BRFrameStreamer::readFrame(std::uint32_t &rectangleCount, double &timestamp)
{
    if (!_isVersion2 && mFileStream.readUInt32() != BRFrameFormat::kV1FrameTag)
        return false;
    const std::uint32_t count = mFileStream.readUInt32();
    const double time = mFileStream.readDouble();
    if (_hasReadingFailed() || !std::isfinite(time))
        return false;
    // Where the power failed, the file system may have left zeros in place of frames.
    const bool isZeros = _isVersion2 && _lastTimestamp && count == 0 && time == 0;
    if (time < _lastTimestamp.value_or(0) || isZeros)
        return false;
    _lastTimestamp = time;
    mBytesReadWritten += 12;
    rectangleCount = count;
    timestamp = time;
    return true;
}

bool BRFrameStreamer::_readRectangleRecord(RectangleRecord &record)
{
    if (!_isVersion2 && mFileStream.readUInt32() != BRFrameFormat::kV1RectangleTag)
        return false;
    // Version 1 has signed values: a negative one is a large one here, and refused like that.
    for (std::uint32_t *value : {&record.x, &record.y, &record.width, &record.height})
        *value = mFileStream.readUInt32();
    if (_hasReadingFailed())
        return false;
    return record.width <= _width() && record.x <= _width() - record.width
        && record.height <= _height() && record.y <= _height() - record.height;
}

bool BRFrameStreamer::isNextFrameWhole(double *timestamp, bool skip)
{
    const std::uint64_t start = mFileStream.position();
    const std::uint64_t bytesBefore = mBytesReadWritten;
    const std::optional<double> timestampBefore = _lastTimestamp;
    std::uint32_t count = 0;
    double time = 0;
    bool isWhole = readFrame(count, time);
    for (std::uint32_t i = 0; i < count && isWhole; ++i) {
        RectangleRecord record = {};
        isWhole = _readRectangleRecord(record) && _skipPixels(record);
    }
    mBytesReadWritten = bytesBefore;
    if (isWhole && timestamp != nullptr)
        *timestamp = time;
    if (!isWhole || !skip) {
        mFileStream.setPosition(start);
        _lastTimestamp = timestampBefore;
    }
    return isWhole;
}

bool BRFrameStreamer::_skipPixels(const RectangleRecord &record)
{
    if (mCompressionType != BRRawCompression::RLE) {
        const std::uint32_t length = mFileStream.readUInt32();
        if (_hasReadingFailed() || length > _bytesLeft())
            return false;
        if (mCompressionType == BRRawCompression::None && length != _pixelBytes(record))
            return false;
        mFileStream.setPosition(mFileStream.position() + length);
        return true;
    }
    // Rows are short and lie in the stream's buffer, which a seek would throw away.
    std::span<const std::byte> row;
    for (std::uint32_t y = 0; y < record.height; ++y) {
        if (!_readBlock(row) || (row.empty() && record.width > 0))
            return false;
    }
    return true;
}

bool BRFrameStreamer::skipDirtyRect(PXRect &rect, bool isLast)
{
    RectangleRecord record = {};
    if (!_readRectangleRecord(record) || !(isLast || _skipPixels(record)))
        return false;
    rect = _rectOf(record);
    return true;
}

bool BRFrameStreamer::readDirtyRect(PXRect &rect, std::span<std::byte> destination)
{
    RectangleRecord record = {};
    if (!_readRectangleRecord(record))
        return false;
    const std::size_t rowBytes = std::size_t{record.width} * 4;
    if (rowBytes * record.height > destination.size())
        throw std::logic_error("BRFrameStreamer: the destination is smaller than the selection");
    Destination rows{destination.data(), static_cast<std::ptrdiff_t>(rowBytes), BRPixelOrder::ARGB};
    if (mCompressionType == BRRawCompression::None && record.height > 0)
        rows = {destination.data() + rowBytes * (record.height - 1),
                -static_cast<std::ptrdiff_t>(rowBytes), _storedOrder()};
    return _readPixels(record, rows, rect);
}

bool BRFrameStreamer::readDirtyRectOntoCanvas(PXRect &rect, std::span<std::byte> canvas,
                                              BRPixelOrder order)
{
    if (canvas.size() < _selectionBytes())
        throw std::logic_error("BRFrameStreamer: the canvas is smaller than the selection");
    RectangleRecord record = {};
    if (!_readRectangleRecord(record))
        return false;
    const std::size_t canvasRowBytes = std::size_t{_width()} * 4;
    const std::size_t topRow = _height() - record.y - record.height;
    return _readPixels(record,
                       {canvas.data() + topRow * canvasRowBytes + std::size_t{record.x} * 4,
                        static_cast<std::ptrdiff_t>(canvasRowBytes), order},
                       rect);
}

bool BRFrameStreamer::_readPixels(const RectangleRecord &record, const Destination &destination,
                                  PXRect &rect)
{
    bool isRead = false;
    if (mCompressionType == BRRawCompression::LZO)
        isRead = compression_LZO_readPixels(record, destination);
    else if (mCompressionType == BRRawCompression::RLE)
        isRead = compression_RLE_readPixels(record, destination);
    else
        isRead = compression_None_readPixels(record, destination);
    if (isRead)
        rect = _rectOf(record);
    return isRead;
}

bool BRFrameStreamer::compression_None_readPixels(const RectangleRecord &record,
                                                  const Destination &destination)
{
    const std::uint32_t length = mFileStream.readUInt32();
    const std::size_t rowBytes = std::size_t{record.width} * 4;
    // A short block would have a few bytes of file clear a whole picture, again and again.
    if (_hasReadingFailed() || length > _bytesLeft() || length != _pixelBytes(record))
        return false;
    const bool mustReverse = _storedOrder() != destination.order;
    for (std::uint32_t y = 0; y < record.height; ++y) {
        std::byte *row = destination.topRow
            + static_cast<std::ptrdiff_t>(record.height - 1 - y) * destination.bytesPerRow;
        if (mFileStream.readData({row, rowBytes}) != rowBytes)
            return false;
        if (mustReverse)
            BRFrameSmoosher::reversePixels(row, row, static_cast<int>(record.width));
    }
    mBytesReadWritten += 4 + std::uint64_t{length};
    return true;
}

bool BRFrameStreamer::compression_LZO_readPixels(const RectangleRecord &record,
                                                 const Destination &destination)
{
    std::span<const std::byte> block;
    const std::size_t rowBytes = std::size_t{record.width} * 4;
    const std::size_t pixelBytes = rowBytes * record.height;
    if (pixelBytes > _temporaryBufferSize || !_readBlock(block))
        return false;
    lzo_uint length = pixelBytes;
    const int status = lzo1x_decompress_safe(
        reinterpret_cast<const unsigned char *>(block.data()), block.size(),
        reinterpret_cast<unsigned char *>(mTemporaryBuffer.get()), &length, nullptr);
    if (status != LZO_E_OK || length != pixelBytes)
        return false;
    // Byte order, flip and the copy to the destination in one go over the pixels.
    const bool mustReverse = _storedOrder() != destination.order;
    for (std::uint32_t y = 0; y < record.height; ++y) {
        const std::byte *from
            = mTemporaryBuffer.get() + rowBytes * (mIsUpsideDown ? record.height - 1 - y : y);
        std::byte *to
            = destination.topRow + static_cast<std::ptrdiff_t>(y) * destination.bytesPerRow;
        if (mustReverse)
            BRFrameSmoosher::reversePixels(from, to, static_cast<int>(record.width));
        else
            std::memcpy(to, from, rowBytes);
    }
    mBytesReadWritten += 24 + block.size();
    return true;
}

bool BRFrameStreamer::compression_RLE_readPixels(const RectangleRecord &record,
                                                 const Destination &destination)
{
    const auto decode
        = destination.order == BRPixelOrder::ARGB ? RLEUncompressRGBToARGB : RLEUncompressRGBToBGRA;
    const std::size_t rowBytes = std::size_t{record.width} * 4;
    for (std::uint32_t y = 0; y < record.height; ++y) {
        std::span<const std::byte> block;
        if (!_readBlock(block) || (block.empty() && record.width > 0))
            return false;
        // The lowest row comes first in the file.
        std::byte *row = destination.topRow
            + static_cast<std::ptrdiff_t>(record.height - 1 - y) * destination.bytesPerRow;
        const std::size_t length = decode(block, {row, rowBytes});
        std::memset(row + length, 0, rowBytes - length);
        mBytesReadWritten += 24 + block.size();
    }
    return true;
}

/// A length and that many bytes, which stay valid until the next one.
bool BRFrameStreamer::_readBlock(std::span<const std::byte> &block)
{
    const std::uint32_t length = mFileStream.readUInt32();
    if (_hasReadingFailed() || length > _compressedDataBufferSize || length > _bytesLeft())
        return false;
    block = {mCompressedDataBuffer.get(), length};
    return mFileStream.readData({mCompressedDataBuffer.get(), length}) == length;
}

bool BRFrameStreamer::gotoFrameIndex(std::uint32_t index)
{
    if (index >= mV2FrameIndex.size())
        return false;
    if (mFileStream.position() != mV2FrameIndex[index].position)
        mFileStream.setPosition(mV2FrameIndex[index].position);
    _lastTimestamp.reset();
    return true;
}

bool BRFrameStreamer::_hasReadingFailed() const
{
    return mFileStream.isEndOfFile() || mFileStream.lastErrorCode() != 0;
}

PXRect BRFrameStreamer::_rectOf(const RectangleRecord &record)
{
    return {static_cast<float>(record.x), static_cast<float>(record.y),
            static_cast<float>(record.width), static_cast<float>(record.height)};
}

std::uint64_t BRFrameStreamer::_pixelBytes(const RectangleRecord &record)
{
    return std::uint64_t{record.width} * record.height * 4;
}

std::uint64_t BRFrameStreamer::_bytesLeft() const
{
    const std::uint64_t here = mFileStream.position();
    return here < _length ? _length - here : 0;
}

BRPixelOrder BRFrameStreamer::_storedOrder() const
{
    // Version 1 holds A, R, G, B whatever its compression.
    const bool isBGRA
        = _isVersion2 && (mPixelFormat == 2 || mCompressionType == BRRawCompression::None);
    return isBGRA ? BRPixelOrder::BGRA : BRPixelOrder::ARGB;
}

void BRFrameStreamer::_setSelectionSize(std::int32_t width, std::int32_t height)
{
    mSelectionSize = {static_cast<float>(width), static_cast<float>(height)};
}
