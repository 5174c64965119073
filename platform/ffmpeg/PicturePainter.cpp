#include "platform/ffmpeg/PicturePainter.h"

#include "platform/ffmpeg/YUVConverter.h"

extern "C" {
#include <libavutil/imgutils.h>
#include <libavutil/opt.h>
#include <libavutil/pixdesc.h>
}

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

using namespace Qt::StringLiterals;

namespace {

// What the encoders' and the scaler's vector code likes.
constexpr int kRowAlignment = 64;

int roundUp(int value, int step)
{
    return (value + step - 1) / step * step;
}

// Memory order B, G, R, x to R, G, B.
void convertToRGB24(const std::uint32_t *pixels, int width, int height, std::uint8_t *out,
                    std::ptrdiff_t bytesPerRow)
{
    for (int y = 0; y < height; ++y, pixels += width) {
        std::uint8_t *row = out + y * bytesPerRow;
        for (int x = 0; x < width; ++x, row += 3) {
            row[0] = static_cast<std::uint8_t>(pixels[x] >> 16);
            row[1] = static_cast<std::uint8_t>(pixels[x] >> 8);
            row[2] = static_cast<std::uint8_t>(pixels[x]);
        }
    }
}

// To A, R, G, B, opaque: the four bytes turned around.
void convertToARGB(const std::uint32_t *pixels, int width, int height, std::uint8_t *out,
                   std::ptrdiff_t bytesPerRow)
{
    for (int y = 0; y < height; ++y, pixels += width) {
        auto *row = reinterpret_cast<std::uint32_t *>(out + y * bytesPerRow);
        for (int x = 0; x < width; ++x)
            row[x] = __builtin_bswap32(pixels[x] | 0xFF000000U);
    }
}

// The bytes of one sample, all of a pixel's where they stand together.
int bytesPerSample(const AVPixFmtDescriptor &format)
{
    return format.comp[0].step;
}

} // namespace

void PictureUpdate::takeBlocks(const PXPictureView &picture, std::span<const PXPixelRect> rects,
                               int columns, int rows)
{
    const PXPixelRect bounds{0, 0, picture.width, picture.height};
    std::size_t pixelCount = 0;
    const auto add = [&](const PXPixelRect &part) {
        const int x = part.x / columns * columns;
        const int y = part.y / rows * rows;
        const PXPixelRect grown{x, y, roundUp(part.x + part.width, columns) - x,
                                roundUp(part.y + part.height, rows) - y};
        _blocks.push_back({grown, pixelCount});
        pixelCount += static_cast<std::size_t>(grown.area());
    };

    _blocks.clear();
    for (const PXPixelRect &rect : rects) {
        if (const PXPixelRect part = PXIntersection(rect, bounds); !part.isEmpty())
            add(part);
    }
    if (pixelCount > static_cast<std::size_t>(bounds.area())) {
        _blocks.clear();
        pixelCount = 0;
        add(bounds);
    }
    reserve(pixelCount);
    for (const Block &block : _blocks)
        copyBlock(picture, block);
}

void PictureUpdate::reserve(std::size_t pixelCount)
{
    if (pixelCount <= _capacity)
        return;
    _pixels = std::make_unique_for_overwrite<std::uint32_t[]>(pixelCount);
    _capacity = pixelCount;
}

void PictureUpdate::copyBlock(const PXPictureView &picture, const Block &block)
{
    const PXPixelRect &rect = block.rect;
    const int widthInside = std::min(rect.width, picture.width - rect.x);
    std::uint32_t *out = _pixels.get() + block.offset;
    for (int y = rect.y; y < rect.y + rect.height; ++y, out += rect.width) {
        const std::byte *row = picture.pixels
            + std::min(y, picture.height - 1) * picture.bytesPerRow
            + static_cast<std::ptrdiff_t>(rect.x) * 4;
        std::memcpy(out, row, static_cast<std::size_t>(widthInside) * 4);
        std::fill(out + widthInside, out + rect.width, out[widthInside - 1]);
    }
}

PXExpected<std::unique_ptr<PicturePainter>> PicturePainter::make(const AVCodecContext &encoder,
                                                                 int sourceWidth, int sourceHeight,
                                                                 int width, int height)
{
    std::unique_ptr<PicturePainter> painter(
        new PicturePainter(encoder, sourceWidth, sourceHeight, width, height));
    const int bytes
        = av_image_get_buffer_size(encoder.pix_fmt, encoder.width, encoder.height, kRowAlignment);
    if (bytes < 0)
        return PXFail(ffmpeg::error(bytes, u"Could not make pictures for the encoder"_s));
    // The scaler's vector code may read and write a little behind the last row.
    painter->_pool.reset(
        av_buffer_pool_init(static_cast<std::size_t>(bytes) + kRowAlignment, nullptr));
    if (!painter->_pool)
        return PXFail(PXPOSIXError(ENOMEM, u"Could not make pictures for the encoder"_s));
    if (sourceWidth == width && sourceHeight == height)
        return painter;

    painter->_canvas.resize(static_cast<std::size_t>(sourceWidth)
                            * static_cast<std::size_t>(sourceHeight));
    if (const int status = painter->makeScaler(); status < 0) {
        return PXFail(
            ffmpeg::error(status,
                          u"Could not scale pictures of %1 x %2 to %3 x %4"_s.arg(sourceWidth)
                              .arg(sourceHeight)
                              .arg(width)
                              .arg(height)));
    }
    return painter;
}

int PicturePainter::makeScaler()
{
    _scaler.reset(sws_alloc_context());
    if (!_scaler)
        return AVERROR(ENOMEM);
    const std::pair<const char *, int> options[] = {
        {"srcw", _sourceWidth},
        {"srch", _sourceHeight},
        {"src_format", AV_PIX_FMT_BGR0},
        {"dstw", _width},
        {"dsth", _height},
        {"dst_format", _format},
        {"sws_flags", SWS_BICUBIC | SWS_ACCURATE_RND | SWS_FULL_CHR_H_INP | SWS_FULL_CHR_H_INT},
    };
    for (const auto &[name, value] : options) {
        if (const int status = av_opt_set_int(_scaler.get(), name, value, 0); status < 0)
            return status;
    }
    if (const int status = sws_init_context(_scaler.get(), nullptr, nullptr); status < 0)
        return status;
    const int *matrix = sws_getCoefficients(_space);
    // Fails for formats without a matrix, which do not need one.
    sws_setColorspaceDetails(_scaler.get(), matrix, 1, matrix, _range == AVCOL_RANGE_JPEG ? 1 : 0,
                             0, 1 << 16, 1 << 16);
    return 0;
}

PicturePainter::PicturePainter(const AVCodecContext &encoder, int sourceWidth, int sourceHeight,
                               int width, int height)
    : _format(encoder.pix_fmt),
      _range(encoder.color_range),
      _space(encoder.colorspace),
      _primaries(encoder.color_primaries),
      _transfer(encoder.color_trc),
      _codedWidth(encoder.width),
      _codedHeight(encoder.height),
      _sourceWidth(sourceWidth),
      _sourceHeight(sourceHeight),
      _width(width),
      _height(height)
{
}

ffmpeg::Frame PicturePainter::apply(const PictureUpdate &update)
{
    if (!_current || !update.blocks().empty()) {
        // A block as large as the picture leaves nothing of what was there.
        const bool isWhole = !update.blocks().empty()
            && update.blocks().front().rect.width >= _width
            && update.blocks().front().rect.height >= _height;
        if (!makeWritable(!isWhole && !_scaler))
            return nullptr;
        if (_scaler) {
            if (!scale(update))
                return nullptr;
            repeatEdges();
        } else {
            for (const PictureUpdate::Block &block : update.blocks())
                convertBlock(update, block);
        }
    }
    return ffmpeg::Frame(av_frame_clone(_current.get()));
}

bool PicturePainter::makeWritable(bool keepsContent)
{
    if (_current && av_frame_is_writable(_current.get()) > 0)
        return true;
    ffmpeg::Frame frame(av_frame_alloc());
    if (frame)
        frame->buf[0] = av_buffer_pool_get(_pool.get());
    if (!frame || !frame->buf[0])
        return false;
    frame->format = _format;
    frame->width = _codedWidth;
    frame->height = _codedHeight;
    frame->color_range = _range;
    frame->colorspace = _space;
    // ProRes writes the frame's own tags, not the encoder's.
    frame->color_primaries = _primaries;
    frame->color_trc = _transfer;
    av_image_fill_arrays(frame->data, frame->linesize, frame->buf[0]->data, _format, _codedWidth,
                         _codedHeight, kRowAlignment);
    if (_current && keepsContent)
        av_frame_copy(frame.get(), _current.get());
    _current = std::move(frame);
    return true;
}

void PicturePainter::convertBlock(const PictureUpdate &update, const PictureUpdate::Block &block)
{
    const PXPixelRect &rect = block.rect;
    AVFrame &frame = *_current;
    const AVPixFmtDescriptor &format = *av_pix_fmt_desc_get(_format);
    const auto place = [&](int plane, int x, int y) {
        return frame.data[plane] + static_cast<std::ptrdiff_t>(y) * frame.linesize[plane]
            + static_cast<std::ptrdiff_t>(x) * bytesPerSample(format);
    };
    if ((format.flags & AV_PIX_FMT_FLAG_RGB) != 0) {
        const auto convert = _format == AV_PIX_FMT_ARGB ? convertToARGB : convertToRGB24;
        convert(update.pixels(block), rect.width, rect.height, place(0, rect.x, rect.y),
                frame.linesize[0]);
        return;
    }
    const YUVConverter::Layout layout{
        format.log2_chroma_w, format.log2_chroma_h, format.comp[0].depth,
        _range == AVCOL_RANGE_JPEG ? YUVConverter::Matrix::BT601Full
                                   : YUVConverter::Matrix::BT709Limited};
    const int chromaX = rect.x >> format.log2_chroma_w;
    const int chromaY = rect.y >> format.log2_chroma_h;
    YUVConverter::convert(
        layout, reinterpret_cast<const std::byte *>(update.pixels(block)),
        static_cast<std::ptrdiff_t>(rect.width) * 4, rect.width, rect.height,
        {{place(0, rect.x, rect.y), place(1, chromaX, chromaY), place(2, chromaX, chromaY)},
         {frame.linesize[0], frame.linesize[1], frame.linesize[2]}});
}

bool PicturePainter::scale(const PictureUpdate &update)
{
    for (const PictureUpdate::Block &block : update.blocks()) {
        const PXPixelRect &rect = block.rect;
        const std::uint32_t *pixels = update.pixels(block);
        for (int y = 0; y < rect.height; ++y, pixels += rect.width) {
            std::copy_n(pixels, rect.width,
                        _canvas.data() + static_cast<std::ptrdiff_t>(rect.y + y) * _sourceWidth
                            + rect.x);
        }
    }
    const auto *source = reinterpret_cast<const std::uint8_t *>(_canvas.data());
    const int bytesPerRow = _sourceWidth * 4;
    // The scaler makes lines for itself as it goes.
    return sws_scale(_scaler.get(), &source, &bytesPerRow, 0, _sourceHeight, _current->data,
                     _current->linesize)
        >= 0;
}

// A scaled picture of an odd size: the planes of colour, rounded up, are whole already; only the
// luma lacks its last column or row.
void PicturePainter::repeatEdges()
{
    const int step = bytesPerSample(*av_pix_fmt_desc_get(_format));
    std::uint8_t *const luma = _current->data[0];
    const std::ptrdiff_t bytesPerRow = _current->linesize[0];
    if (_codedWidth > _width) {
        for (int y = 0; y < _height; ++y) {
            std::uint8_t *edge
                = luma + y * bytesPerRow + static_cast<std::ptrdiff_t>(_width) * step;
            std::memcpy(edge, edge - step, static_cast<std::size_t>(step));
        }
    }
    if (_codedHeight > _height) {
        std::memcpy(luma + _height * bytesPerRow, luma + (_height - 1) * bytesPerRow,
                    static_cast<std::size_t>(_codedWidth) * static_cast<std::size_t>(step));
    }
}
