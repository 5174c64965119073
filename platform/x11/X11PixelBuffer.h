#pragma once

#include "platform/PXFrameBufferReader.h"
#include "platform/x11/X11Connection.h"
#include "platform/x11/X11Ids.h"

#include <cstddef>

/// Zeroed memory, page by page only as it is touched, and shared with the X server where that
/// works. The connection must outlive it.
class X11PixelBuffer final : public PXPixelBuffer {
public:
    /// Memory of this process alone.
    static PXExpected<std::unique_ptr<X11PixelBuffer>> withBytes(std::size_t size);
    /// An error when the server cannot or may not attach it.
    static PXExpected<std::unique_ptr<X11PixelBuffer>> sharedWithBytes(std::size_t size,
                                                                       X11Connection &connection);
    ~X11PixelBuffer() override;
    X11PixelBuffer(const X11PixelBuffer &) = delete;
    X11PixelBuffer &operator=(const X11PixelBuffer &) = delete;

    [[nodiscard]] std::byte *bytes() const { return _bytes; }
    [[nodiscard]] std::size_t size() const { return _size; }
    [[nodiscard]] xcb_shm_seg_t segment() const { return _segment.id(); }

    /// A pixmap over the segment's beginning; the last one is kept, since most reads are as
    /// large as the one before.
    xcb_pixmap_t pixmap(X11Connection &connection, int width, int height);
    /// Makes a new one the next time: it may be that the server refused this one.
    void forgetPixmap(X11Connection &connection);

private:
    static PXExpected<std::unique_ptr<X11PixelBuffer>> _mapped(std::size_t size, int flags, int fd);
    X11PixelBuffer(std::byte *bytes, std::size_t size) : _bytes(bytes), _size(size) { }

    std::byte *_bytes;
    std::size_t _size;
    X11Segment _segment;
    X11Pixmap _pixmap;
    int _pixmapWidth = 0;
    int _pixmapHeight = 0;
};
