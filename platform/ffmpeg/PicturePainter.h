#pragma once

#include "platform/PXCompressionSession.h"
#include "platform/ffmpeg/FFmpegHandles.h"

#include "foundation/PXGeometry.h"

#include <cstdint>
#include <memory>
#include <span>
#include <vector>

/// What a frame changes in the picture: blocks of its pixels, taken while the frame was there.
class PictureUpdate final {
public:
    struct Block {
        PXPixelRect rect; ///< Where it goes; may reach beyond the picture to an even edge.
        std::size_t offset; ///< Of its first pixel; rows follow without gaps.
    };

    /// Replaces what is in here by the parts `rects` of `picture`, each grown to multiples of
    /// `columns` and `rows`; what then lies beyond the picture repeats its edge. Where the parts
    /// overlap so much that the whole is less, the whole is taken.
    void takeBlocks(const PXPictureView &picture, std::span<const PXPixelRect> rects, int columns,
                    int rows);

    [[nodiscard]] const std::vector<Block> &blocks() const { return _blocks; }
    [[nodiscard]] const std::uint32_t *pixels(const Block &block) const
    {
        return _pixels.get() + block.offset;
    }

    std::int64_t displayTime = 0;

private:
    void reserve(std::size_t pixelCount);
    void copyBlock(const PXPictureView &picture, const Block &block);

    std::vector<Block> _blocks;
    std::unique_ptr<std::uint32_t[]> _pixels; ///< Grows only: updates are used again and again.
    std::size_t _capacity = 0;
};

/// Keeps the picture as the encoder wants it and changes in it only what an update changes.
/// One thread.
class PicturePainter final {
public:
    /// Pictures of `sourceWidth` x `sourceHeight` become ones of `width` x `height` in the format
    /// and size of `encoder`, which are the same or a little larger. Throws std::bad_alloc, too.
    static PXExpected<std::unique_ptr<PicturePainter>>
    make(const AVCodecContext &encoder, int sourceWidth, int sourceHeight, int width, int height);

    /// The picture with the update in it. It stays as it is while somebody holds it. Null, and
    /// the update is lost, when there is no memory.
    ffmpeg::Frame apply(const PictureUpdate &update);

private:
    PicturePainter(const AVCodecContext &encoder, int sourceWidth, int sourceHeight, int width,
                   int height);
    int makeScaler();
    bool makeWritable(bool keepsContent);
    void convertBlock(const PictureUpdate &update, const PictureUpdate::Block &block);
    [[nodiscard]] bool scale(const PictureUpdate &update);
    void repeatEdges();

    AVPixelFormat _format;
    AVColorRange _range;
    AVColorSpace _space;
    AVColorPrimaries _primaries;
    AVColorTransferCharacteristic _transfer;
    int _codedWidth, _codedHeight;
    int _sourceWidth, _sourceHeight;
    int _width, _height;
    ffmpeg::BufferPool _pool;
    ffmpeg::Frame _current;
    ffmpeg::Scaler _scaler; ///< Only where the sizes differ,
    std::vector<std::uint32_t> _canvas; ///< as is this: the picture before scaling.
};
