#pragma once

#include "capture/framefile/BRFrameIndexRecord.h"
#include "capture/framefile/BRRawCompression.h"
#include "foundation/PXBinaryStream.h"
#include "foundation/PXError.h"
#include "foundation/PXGeometry.h"
#include "foundation/PXPixelView.h"

#include <QString>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <vector>

/// The names of the frame file and of what tells about it, in a captured movie's folder.
extern const QString kBRCaptureVideoDataName;
extern const QString kBRMovieInfoName;

/// Order of a pixel's four bytes in memory.
enum class BRPixelOrder { ARGB, BGRA };

/// What the first bytes of a capture say. Zeros as duration and count are those of a recording that
/// runs, or was interrupted.
struct BRFrameFileHeader {
    PXSize selectionSize; ///< Pixels.
    double duration = 0; ///< Seconds.
    std::uint32_t numberOfFrames = 0;
    int fileFormat = 2;
};

/// Appends frames to a raw capture, or reads them back; the factory decides which, for good.
/// Owns the frame file, its index (the same path with ".index" appended) and the scratch buffers;
/// destroying it closes both files. No lock: the writer thread uses it while recording, the main
/// thread after joining that one; `bytesReadWritten` is for any thread. Rectangles are pixels of
/// the recorded selection, y up; times are seconds since frame 0. Misuse (a rectangle outside its
/// buffer, more rectangles than announced, writing to a reader) throws std::logic_error.
/// docs/raw-capture-format.md has the bytes.
class BRFrameStreamer final {
public:
    ~BRFrameStreamer();
    BRFrameStreamer(const BRFrameStreamer &) = delete;
    BRFrameStreamer &operator=(const BRFrameStreamer &) = delete;

    /// Creates or empties both files and writes the header. `selectionSize` is whole pixels, each
    /// side 1 to 32767; `lossyLevel` 0 to 4 matters for RLE only. On failure the error has the
    /// system's code and the path, and nothing stays open.
    [[nodiscard]] static PXExpected<std::unique_ptr<BRFrameStreamer>>
    withFilePathForWriting(const QString &filePath, PXSize selectionSize,
                           BRRawCompression compression, int lossyLevel);

    /// Opens a capture of any version and reads its header and index. `isUpsideDown` matters for
    /// version 1 with LZO: its rectangles are then flipped after decoding. Fails when the file
    /// cannot be opened and when its header cannot be one (empty file, absurd size, unknown
    /// compression). A damaged or missing index is not a failure: its sound beginning is used.
    [[nodiscard]] static PXExpected<std::unique_ptr<BRFrameStreamer>>
    withFilePathForReading(const QString &filePath, bool isUpsideDown);

    /// Opens an interrupted recording of version 2 (`wasInterrupted`): unlike the others this has
    /// the index that lies beside it, which may be longer than the file, and counts no frames.
    [[nodiscard]] static PXExpected<std::unique_ptr<BRFrameStreamer>>
    withFilePathForRepair(const QString &filePath);

    /// Reads nothing else. Fails as `withFilePathForReading`.
    [[nodiscard]] static PXExpected<BRFrameFileHeader> headerOfFile(const QString &filePath);

    // Writing

    /// Begins a frame; exactly `dirtyRects.size()` calls of `writeDirtyRect` follow. After the
    /// last of them (at once for none) the frame is handed to the system, the frame file before
    /// its index record. A failure anywhere in a frame (a full disk: code ENOSPC) cuts the frame
    /// file back to the end of the last whole frame, so that it stays readable; the frame's other
    /// rectangles then return the same error, and the next frame may be tried.
    PXExpected<void> writeFrameWithDirtyRects(std::span<const PXRect> dirtyRects, double timestamp);

    /// Encodes one changed rectangle. `dirtyRect` is its place in the frame, stored truncated to
    /// whole pixels; `rect` says where its pixels lie in `buffer`: pixels, y up from the buffer's
    /// lowest row, same size. The buffer's alpha bytes are ignored: every pixel is stored opaque.
    PXExpected<void> writeDirtyRect(const PXRect &dirtyRect, const PXRect &rect,
                                    const PXPixelView &buffer);

    /// Patches the header; the position for the next frame stays.
    PXExpected<void> setDuration(double duration);
    PXExpected<void> setTotalNumberOfFrames(std::uint32_t numberOfFrames);

    /// Closes both files; a frame that misses rectangles is cut off. Nothing when closed.
    void close();
    /// Removes the frame file; the index stays where it is.
    PXExpected<void> deleteFile();
    /// Whole frames written so far.
    [[nodiscard]] std::uint32_t numberOfFramesWritten() const { return mV2CurrentFrameIndex; }

    // Reading

    /// The next frame's number of rectangles and timestamp. False at the end of the file, and
    /// where the bytes are no frame record: also for a time that is negative or before that of the
    /// frame read last (none after `gotoFrameIndex`). The count is what the file says: up to
    /// 2^32-1, so do not allocate by it; `readDirtyRect` returns false where the file ends.
    bool readFrame(std::uint32_t &rectangleCount, double &timestamp);

    /// The next rectangle and its pixels, width * 4 bytes a row: for LZO and RLE A, R, G, B, top
    /// row first; for none the stored bytes (B, G, R, A, lowest row first). `destination` holds at
    /// least selection width * height * 4 bytes; only the rectangle's own are written. False at
    /// the end of the file and for a record that cannot be (outside the selection, longer than
    /// the file, undecodable); the destination's content is undefined then.
    bool readDirtyRect(PXRect &rect, std::span<std::byte> destination);

    /// The same, with the pixels laid directly into a picture of the whole selection (top row
    /// first, rows without gaps) in the byte order `order`, the right way up for every
    /// compression and version.
    bool readDirtyRectOntoCanvas(PXRect &rect, std::span<std::byte> canvas, BRPixelOrder order);

    /// The next rectangle without its pixels, to come back to with `setPosition` if they are
    /// wanted. False as `readDirtyRect`, save that pixels are not decoded, and those of the frame's
    /// last rectangle, behind which nobody reads on, not even walked over.
    bool skipDirtyRect(PXRect &rect, bool isLast);
    /// Where a frame or a rectangle begins, as `position` said before it was read or skipped.
    void setPosition(std::uint64_t position)
    {
        mFileStream.setPosition(position);
        _lastTimestamp.reset();
    }

    /// Walks over the next frame without decoding: whether all of its rectangles are there. The
    /// position stays. With `skip` it is moved behind the frame when that is whole.
    bool isNextFrameWhole(double *timestamp = nullptr, bool skip = false);

    /// Goes to a frame of the index; false, and nothing happens, where there is none.
    bool gotoFrameIndex(std::uint32_t index);
    /// Empty for version 1, without a readable index, and when the header says 0 frames.
    [[nodiscard]] const std::vector<BRFrameIndexRecord> &frameIndex() const
    {
        return mV2FrameIndex;
    }

    // Facts

    [[nodiscard]] const QString &filePath() const { return mFilePath; }
    [[nodiscard]] PXSize selectionSize() const { return mSelectionSize; }
    /// What the header says, or, where it still says 0, what was found by walking over the file.
    [[nodiscard]] std::uint32_t numberOfFrames() const { return mNumberOfFrames; }
    [[nodiscard]] double duration() const { return mDuration; }
    /// The header says 0 frames though something follows it: a recording that was interrupted.
    [[nodiscard]] bool wasInterrupted() const { return _wasInterrupted; }
    /// Whole records in the index file, sound or not.
    [[nodiscard]] std::uint64_t numberOfIndexRecords() const { return _numberOfIndexRecords; }
    [[nodiscard]] int fileFormat() const { return mFileFormat; }
    [[nodiscard]] BRRawCompression compressionType() const { return mCompressionType; }
    /// 1, or 2 where LZO holds B, G, R, A.
    [[nodiscard]] std::uint32_t pixelFormat() const { return mPixelFormat; }
    [[nodiscard]] bool isUpsideDown() const { return mIsUpsideDown; }
    /// What the user is shown as the recording's size. Any thread.
    [[nodiscard]] std::uint64_t bytesReadWritten() const { return mBytesReadWritten; }
    /// The frame file's length when it was opened for reading, and where the next read begins.
    [[nodiscard]] std::uint64_t length() const { return _length; }
    [[nodiscard]] std::uint64_t position() const { return mFileStream.position(); }

private:
    /// Where a rectangle's decoded rows go: the row that is topmost in the picture first.
    struct Destination {
        std::byte *topRow;
        std::ptrdiff_t bytesPerRow;
        BRPixelOrder order;
    };
    struct RectangleRecord {
        std::uint32_t x, y, width, height;
    };

    explicit BRFrameStreamer(const QString &filePath);
    [[nodiscard]] std::uint32_t _width() const { return PXClampToUInt32(mSelectionSize.width); }
    [[nodiscard]] std::uint32_t _height() const { return PXClampToUInt32(mSelectionSize.height); }
    [[nodiscard]] std::uint64_t _selectionBytes() const;

    PXExpected<void> openFilePathForWriting(PXSize selectionSize, BRRawCompression compression,
                                            int lossyLevel);
    PXExpected<void> _allocateWritingBuffers();
    void v2_writeHeader();
    PXExpected<void> v2_writeFrameWithNumberOfRects(std::uint32_t numberOfRects, double timestamp,
                                                    std::uint32_t flags);
    void compression_None_writeDirtyRect(const RectangleRecord &record, const std::byte *lowestRow,
                                         std::ptrdiff_t bytesPerRow);
    void compression_LZO_writeDirtyRect(const RectangleRecord &record, const std::byte *lowestRow,
                                        std::ptrdiff_t bytesPerRow);
    void compression_RLE_writeDirtyRect(const RectangleRecord &record, const std::byte *lowestRow,
                                        std::ptrdiff_t bytesPerRow);
    PXExpected<void> _endFrame();
    PXExpected<void> _failFrame(const PXError &error);
    void _cutOffOpenFrame();
    template <typename Write> PXExpected<void> _patchHeader(std::uint64_t position, Write write);

    PXExpected<void> openFilePathForReading(bool isUpsideDown);
    enum class HeaderOnly { No, Yes };
    PXExpected<void> _openAndReadHeader(bool isUpsideDown, HeaderOnly headerOnly);
    void v2_readHeader();
    void v1_readHeader(std::uint32_t firstWord, bool isUpsideDown);
    [[nodiscard]] PXExpected<void> _checkHeader() const;
    PXExpected<void> _allocateReadingBuffers();
    void v2_readFrameIndex(std::uint32_t most);
    void _countFrames();
    bool _readRectangleRecord(RectangleRecord &record);
    bool _readBlock(std::span<const std::byte> &block);
    bool _skipPixels(const RectangleRecord &record);
    bool _readPixels(const RectangleRecord &record, const Destination &destination, PXRect &rect);
    bool compression_None_readPixels(const RectangleRecord &record, const Destination &destination);
    bool compression_LZO_readPixels(const RectangleRecord &record, const Destination &destination);
    bool compression_RLE_readPixels(const RectangleRecord &record, const Destination &destination);
    [[nodiscard]] bool _hasReadingFailed() const;
    [[nodiscard]] static PXRect _rectOf(const RectangleRecord &record);
    [[nodiscard]] static std::uint64_t _pixelBytes(const RectangleRecord &record);
    [[nodiscard]] std::uint64_t _bytesLeft() const;
    [[nodiscard]] BRPixelOrder _storedOrder() const;
    void _setSelectionSize(std::int32_t width, std::int32_t height);

    QString mFilePath;
    PXBinaryStream mFileStream;
    PXBuffer mTemporaryBuffer; ///< Packing area; decompression target when reading.
    PXBuffer mCompressedDataBuffer;
    std::uint32_t mLossyMask = 0;
    std::uint32_t mLossyLevel = 0;
    std::int32_t mFileFormat = 2;
    std::uint32_t mFramesByteOffset = 0;
    PXSize mSelectionSize;
    double mDuration = 0;
    std::uint32_t mNumberOfFrames = 0;
    BRRawCompression mCompressionType = BRRawCompression::None;
    std::uint32_t mPixelFormat = 1;
    bool mIsUpsideDown = true;
    std::uint64_t mV2DurationPosition = 20;
    std::uint64_t mV2NumberOfFramesPosition = 28;
    std::uint64_t mV2VideoFramesPosition = 48; ///< Written, never sought: frames begin at 41.
    std::uint32_t mV2CurrentFrameIndex = 0;
    PXBinaryStream mV2FrameIndexFileStream;
    std::vector<BRFrameIndexRecord> mV2FrameIndex;
    std::atomic<std::uint64_t> mBytesReadWritten = 0;

    // Writing: the frame that is being written.
    struct OpenFrame {
        std::uint64_t position;
        double timestamp;
        std::uint32_t flags;
        std::uint32_t rectsLeft;
        std::uint64_t bytesBefore; ///< mBytesReadWritten, to take back with the frame.
        std::optional<PXError> error; ///< Set once the frame failed and was cut off.
    };
    std::optional<OpenFrame> _openFrame;
    PXBuffer _lzoWorkMemory;
    std::size_t _compressedDataBufferSize = 0; ///< Also when reading.

    // Reading.
    std::uint64_t _length = 0;
    std::size_t _temporaryBufferSize = 0;
    std::uint64_t _numberOfIndexRecords = 0;
    std::optional<double> _lastTimestamp; ///< Of the frame read last.
    bool _isVersion2 = true; ///< Its magic stood in front, whatever the stored format.
    bool _isWriting = false;
    bool _wasInterrupted = false;
};
