#include "platform/x11/X11FrameBufferReader.h"

#include "foundation/BRLog.h"

#include <algorithm>
#include <cstring>
#include <stdexcept>

using namespace Qt::StringLiterals;

namespace {

constexpr int kBytesPerPixel = 4;
/// X counts pixels in 16 bits with a sign.
constexpr int kLongestSide = 32767;
constexpr std::uint32_t kAllPlanes = 0xFFFFFFFF;
/// Any that makes the height of a large buffer fit: a page a row.
constexpr std::size_t kPreparedRowBytes = 4096;
constexpr int kPreparedWidth = kPreparedRowBytes / kBytesPerPixel;
/// From so many requests on the server is faster with their union.
constexpr std::size_t kMostImagesARead = 16;

std::size_t bytesOf(const PXPixelRect &rect)
{
    return static_cast<std::size_t>(rect.area()) * kBytesPerPixel;
}

/// Where a pixel of the desktop lies in a buffer that holds `area`, top row first.
std::byte *placeOf(int x, int y, const PXPixelRect &area, std::byte *bytes)
{
    return bytes
        + (static_cast<std::size_t>(y - area.y) * static_cast<std::size_t>(area.width)
           + static_cast<std::size_t>(x - area.x))
        * kBytesPerPixel;
}

void layInPlace(const std::byte *packed, const PXPixelRect &rect, const PXPixelRect &area,
                std::byte *bytes)
{
    const std::size_t rowBytes = static_cast<std::size_t>(rect.width) * kBytesPerPixel;
    for (int row = 0; row < rect.height; ++row)
        std::memcpy(placeOf(rect.x, rect.y + row, area, bytes),
                    packed + static_cast<std::size_t>(row) * rowBytes, rowBytes);
}

void blacken(int left, int top, int right, int bottom, const PXPixelRect &area, std::byte *bytes)
{
    for (int y = top; y < bottom && left < right; ++y)
        std::memset(placeOf(left, y, area, bytes), 0,
                    static_cast<std::size_t>(right - left) * kBytesPerPixel);
}

/// What of `rect` is not in `visible`, its part on the screen: at most a frame of four pieces.
void blackenOutside(const PXPixelRect &rect, const PXPixelRect &visible, const PXPixelRect &area,
                    std::byte *bytes)
{
    const int right = rect.x + rect.width;
    const int bottom = rect.y + rect.height;
    if (visible.isEmpty())
        return blacken(rect.x, rect.y, right, bottom, area, bytes);
    const int visibleRight = visible.x + visible.width;
    const int visibleBottom = visible.y + visible.height;
    blacken(rect.x, rect.y, right, visible.y, area, bytes);
    blacken(rect.x, visibleBottom, right, bottom, area, bytes);
    blacken(rect.x, visible.y, visible.x, visibleBottom, area, bytes);
    blacken(visibleRight, visible.y, right, visibleBottom, area, bytes);
}

bool hasPixelsWeKnow(const X11Connection &connection)
{
    const xcb_setup_t *setup = xcb_get_setup(connection.get());
    const xcb_screen_t &screen = connection.screen();
    bool has32Bits = false;
    auto formats = xcb_setup_pixmap_formats_iterator(setup);
    for (; formats.rem > 0; xcb_format_next(&formats))
        if (formats.data->depth == screen.root_depth)
            has32Bits = formats.data->bits_per_pixel == 8 * kBytesPerPixel;
    auto depths = xcb_screen_allowed_depths_iterator(&screen);
    for (; depths.rem > 0; xcb_depth_next(&depths)) {
        auto visuals = xcb_depth_visuals_iterator(depths.data);
        for (; visuals.rem > 0; xcb_visualtype_next(&visuals))
            if (visuals.data->visual_id == screen.root_visual)
                return has32Bits && setup->image_byte_order == XCB_IMAGE_ORDER_LSB_FIRST
                    && visuals.data->red_mask == 0xFF0000 && visuals.data->green_mask == 0xFF00
                    && visuals.data->blue_mask == 0xFF;
    }
    return false;
}

/// The best way that the server has, at most as good as `wish`.
X11PixelWay wayOf(X11Connection &connection, X11PixelWay wish)
{
    if (wish == X11PixelWay::PlainImage || !connection.isLocal()
        || !connection.hasExtension(xcb_shm_id))
        return X11PixelWay::PlainImage;
    const auto version = connection.reply<xcb_shm_query_version_reply>(
        "xcb_shm_query_version", xcb_shm_query_version(connection.get()));
    // Memory is passed as a file since 1.2.
    if (!version || (*version)->major_version != 1 || (*version)->minor_version < 2)
        return X11PixelWay::PlainImage;
    const bool hasPixmaps
        = (*version)->shared_pixmaps != 0 && (*version)->pixmap_format == XCB_IMAGE_FORMAT_Z_PIXMAP;
    return hasPixmaps && wish != X11PixelWay::SharedImage ? X11PixelWay::SharedPixmap
                                                          : X11PixelWay::SharedImage;
}

/// What images to fetch so that all of `rects` are there: themselves, or their union where that
/// costs less.
std::vector<PXPixelRect> imagesFor(std::span<const PXPixelRect> rects)
{
    PXPixelRect whole;
    std::int64_t areas = 0;
    for (const PXPixelRect &rect : rects) {
        whole = PXUnion(whole, rect);
        areas += rect.area();
    }
    if (rects.size() > kMostImagesARead || areas > whole.area() / 2)
        return {whole};
    return {rects.begin(), rects.end()};
}

PXError tooFewPixels()
{
    BRLog(BRLogError, "xcb_get_image() gave fewer pixels than were asked for");
    return {kPXDisplayErrorDomain,
            PXDisplayRequestRefused,
            u"The display gave fewer pixels than it has"_s,
            {},
            {}};
}

} // namespace

PXExpected<std::unique_ptr<X11FrameBufferReader>>
X11FrameBufferReader::onConnection(std::unique_ptr<X11Connection> connection, X11PixelWay wish)
{
    if (!hasPixelsWeKnow(*connection))
        return PXFail({kPXDisplayErrorDomain,
                       PXDisplayNotSupported,
                       u"The display's pixels have a depth or order that Tolvane cannot read"_s,
                       u"Set the display to 24 bits of colour."_s,
                       {}});
    const X11PixelWay way = wayOf(*connection, wish);
    std::unique_ptr<X11FrameBufferReader> result(
        new X11FrameBufferReader(std::move(connection), way));
    if (auto found = result->_findRootSize(); !found)
        return PXFail(std::move(found).error());
    // Attaching may be refused all the same (a server in a sandbox, a forwarded socket): find
    // out now. Memory that nobody touches costs nothing.
    if (way != X11PixelWay::PlainImage && !result->_makeScratch(bytesOf(result->_root))) {
        BRLog(BRLogWarning, "The X server does not share memory with us; reading is slower.");
        result->_way = X11PixelWay::PlainImage;
    }
    return result;
}

X11FrameBufferReader::X11FrameBufferReader(std::unique_ptr<X11Connection> connection,
                                           X11PixelWay way)
    : _connection(std::move(connection)), _way(way), _copyContext(_connection->get())
{
    const std::uint32_t values[] = {XCB_SUBWINDOW_MODE_INCLUDE_INFERIORS, 0};
    xcb_create_gc(_connection->get(), _copyContext.id(), _connection->root(),
                  XCB_GC_SUBWINDOW_MODE | XCB_GC_GRAPHICS_EXPOSURES, values);
}

PXExpected<std::unique_ptr<PXPixelBuffer>> X11FrameBufferReader::makeBuffer(int width, int height)
{
    if (width <= 0 || height <= 0)
        throw std::logic_error("X11FrameBufferReader: a buffer of no pixels");
    const std::size_t size = bytesOf({0, 0, width, height});
    if (_way == X11PixelWay::PlainImage)
        return X11PixelBuffer::withBytes(size);
    return X11PixelBuffer::sharedWithBytes(size, *_connection);
}

void X11FrameBufferReader::prepare(PXPixelBuffer &buffer)
{
    if (_way != X11PixelWay::SharedPixmap)
        return;
    // By the server, which has to find each page of its own too: it fills them with its zero.
    auto &pixels = static_cast<X11PixelBuffer &>(buffer); // Made by makeBuffer().
    const auto height
        = static_cast<int>(std::min<std::size_t>(pixels.size() / kPreparedRowBytes, kLongestSide));
    if (height == 0)
        return;
    const xcb_rectangle_t all = {0, 0, kPreparedWidth, static_cast<std::uint16_t>(height)};
    xcb_poly_fill_rectangle(_connection->get(), pixels.pixmap(*_connection, kPreparedWidth, height),
                            _copyContext.id(), 1, &all);
    xcb_flush(_connection->get());
}

PXExpected<PXPixelView> X11FrameBufferReader::read(std::span<const PXPixelRect> rects,
                                                   PXPixelBuffer &buffer)
{
    PXPixelRect area;
    for (const PXPixelRect &rect : rects)
        area = PXUnion(area, rect);
    if (area.isEmpty())
        return PXPixelView{};
    auto &pixels = static_cast<X11PixelBuffer &>(buffer); // Made by makeBuffer().
    if (bytesOf(area) > pixels.size() || area.width > kLongestSide || area.height > kLongestSide)
        throw std::logic_error("X11FrameBufferReader: more pixels than the buffer holds");

    if (auto done = _read(rects, area, pixels); !done)
        return PXFail(std::move(done).error());
    const std::ptrdiff_t bytesPerRow = static_cast<std::ptrdiff_t>(area.width) * kBytesPerPixel;
    return PXPixelView{pixels.bytes() + (area.height - 1) * bytesPerRow, -bytesPerRow, area.width,
                       area.height};
}

PXExpected<void> X11FrameBufferReader::_read(std::span<const PXPixelRect> rects,
                                             const PXPixelRect &area, X11PixelBuffer &buffer)
{
    // Again when the screen changed its size: what was outside may be inside now, and the
    // other way round an image is refused.
    for (;;) {
        const PXPixelRect root = _root;
        _visible.clear();
        for (const PXPixelRect &rect : rects) {
            const PXPixelRect visible = PXIntersection(rect, root);
            if (visible != rect)
                blackenOutside(rect, visible, area, buffer.bytes());
            if (!visible.isEmpty())
                _visible.push_back(visible);
        }
        auto done = _way == X11PixelWay::SharedPixmap ? _readByPixmap(_visible, area, buffer)
            : _way == X11PixelWay::SharedImage        ? _readBySharedImage(_visible, area, buffer)
                                                      : _readByPlainImage(_visible, area, buffer);
        if (_connection->isLost())
            return done;
        if (_root != root)
            continue;
        if (done || _hasRead || !_takeNextWay()) {
            _hasRead |= done.has_value() && !_visible.empty();
            return done;
        }
    }
}

bool X11FrameBufferReader::_takeNextWay()
{
    if (_way == X11PixelWay::PlainImage)
        return false;
    _way = _way == X11PixelWay::SharedPixmap ? X11PixelWay::SharedImage : X11PixelWay::PlainImage;
    BRLog(BRLogWarning, "The X server cannot do what it offers; reading is slower.");
    return true;
}

PXExpected<void> X11FrameBufferReader::_findRootSize()
{
    // Also tells that everything sent before is done, and whether the screen is still as large.
    auto root = _connection->reply<xcb_get_geometry_reply>(
        "xcb_get_geometry", xcb_get_geometry(_connection->get(), _connection->root()));
    if (!root)
        return PXFail(std::move(root).error());
    _root = {0, 0, (*root)->width, (*root)->height};
    return {};
}

PXExpected<void> X11FrameBufferReader::_readByPixmap(std::span<const PXPixelRect> visible,
                                                     const PXPixelRect &area,
                                                     X11PixelBuffer &buffer)
{
    xcb_connection_t *c = _connection->get();
    const xcb_pixmap_t pixmap = buffer.pixmap(*_connection, area.width, area.height);
    for (const PXPixelRect &rect : visible)
        xcb_copy_area(
            c, _connection->root(), pixmap, _copyContext.id(), static_cast<std::int16_t>(rect.x),
            static_cast<std::int16_t>(rect.y), static_cast<std::int16_t>(rect.x - area.x),
            static_cast<std::int16_t>(rect.y - area.y), static_cast<std::uint16_t>(rect.width),
            static_cast<std::uint16_t>(rect.height));
    if (auto found = _findRootSize(); !found)
        return found;
    // The requests have no replies; what was refused waits in the queue by now.
    PXExpected<void> result;
    while (const X11Event event{xcb_poll_for_queued_event(c)})
        if (event->response_type == 0)
            result = PXFail(_connection->failure(
                "xcb_copy_area", reinterpret_cast<const xcb_generic_error_t *>(event.get())));
    if (!result)
        buffer.forgetPixmap(*_connection);
    return result;
}

PXExpected<void> X11FrameBufferReader::_readBySharedImage(std::span<const PXPixelRect> visible,
                                                          const PXPixelRect &area,
                                                          X11PixelBuffer &buffer)
{
    const std::vector<PXPixelRect> images = imagesFor(visible);
    // The whole area needs no second copy: the server packs it just as it shall lie.
    const bool isInPlace = images.size() == 1 && images.front() == area;
    std::size_t size = 0;
    for (const PXPixelRect &image : images)
        size += bytesOf(image);
    if (!isInPlace)
        if (auto made = _makeScratch(size); !made)
            return made;

    const xcb_shm_seg_t segment = isInPlace ? buffer.segment() : _scratch->segment();
    std::vector<xcb_shm_get_image_cookie_t> cookies;
    cookies.reserve(images.size());
    std::size_t offset = 0;
    for (const PXPixelRect &image : images) {
        cookies.push_back(xcb_shm_get_image(
            _connection->get(), _connection->root(), static_cast<std::int16_t>(image.x),
            static_cast<std::int16_t>(image.y), static_cast<std::uint16_t>(image.width),
            static_cast<std::uint16_t>(image.height), kAllPlanes, XCB_IMAGE_FORMAT_Z_PIXMAP,
            segment, static_cast<std::uint32_t>(offset)));
        offset += bytesOf(image);
    }
    PXExpected<void> result = _findRootSize();
    offset = 0;
    for (std::size_t i = 0; i < images.size(); ++i) {
        auto reply = _connection->reply<xcb_shm_get_image_reply>("xcb_shm_get_image", cookies[i]);
        if (!reply)
            result = PXFail(std::move(reply).error());
        else if (!isInPlace)
            layInPlace(_scratch->bytes() + offset, images[i], area, buffer.bytes());
        offset += bytesOf(images[i]);
    }
    return result;
}

PXExpected<void> X11FrameBufferReader::_readByPlainImage(std::span<const PXPixelRect> visible,
                                                         const PXPixelRect &area,
                                                         X11PixelBuffer &buffer)
{
    const std::vector<PXPixelRect> images = imagesFor(visible);
    std::vector<xcb_get_image_cookie_t> cookies;
    cookies.reserve(images.size());
    for (const PXPixelRect &image : images)
        cookies.push_back(xcb_get_image(_connection->get(), XCB_IMAGE_FORMAT_Z_PIXMAP,
                                        _connection->root(), static_cast<std::int16_t>(image.x),
                                        static_cast<std::int16_t>(image.y),
                                        static_cast<std::uint16_t>(image.width),
                                        static_cast<std::uint16_t>(image.height), kAllPlanes));
    PXExpected<void> result = _findRootSize();
    for (std::size_t i = 0; i < images.size(); ++i) {
        auto reply = _connection->reply<xcb_get_image_reply>("xcb_get_image", cookies[i]);
        if (!reply)
            result = PXFail(std::move(reply).error());
        else if (static_cast<std::size_t>(xcb_get_image_data_length(reply->get()))
                 < bytesOf(images[i]))
            result = PXFail(tooFewPixels());
        else
            layInPlace(reinterpret_cast<const std::byte *>(xcb_get_image_data(reply->get())),
                       images[i], area, buffer.bytes());
    }
    return result;
}

PXExpected<void> X11FrameBufferReader::_makeScratch(std::size_t size)
{
    if (_scratch && _scratch->size() >= size)
        return {};
    auto scratch = X11PixelBuffer::sharedWithBytes(size, *_connection);
    if (!scratch)
        return PXFail(std::move(scratch).error());
    _scratch = *std::move(scratch);
    return {};
}
