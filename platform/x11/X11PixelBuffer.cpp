#include "platform/x11/X11PixelBuffer.h"

#include "platform/x11/X11FileDescriptor.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

using namespace Qt::StringLiterals;

PXExpected<std::unique_ptr<X11PixelBuffer>> X11PixelBuffer::_mapped(std::size_t size, int flags,
                                                                    int fd)
{
    void *memory = mmap(nullptr, size, PROT_READ | PROT_WRITE, flags, fd, 0);
    if (memory == MAP_FAILED)
        return PXFail(PXPOSIXError(errno, u"Could not map %1 bytes of pixels"_s.arg(size)));
    return std::unique_ptr<X11PixelBuffer>(
        new X11PixelBuffer(static_cast<std::byte *>(memory), size));
}

PXExpected<std::unique_ptr<X11PixelBuffer>> X11PixelBuffer::withBytes(std::size_t size)
{
    return _mapped(std::max<std::size_t>(size, 1), MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1);
}

PXExpected<std::unique_ptr<X11PixelBuffer>>
X11PixelBuffer::sharedWithBytes(std::size_t size, X11Connection &connection)
{
    size = std::max<std::size_t>(size, 1);
    // A file without a name: unlike a numbered System V segment it cannot be mistaken for another
    // one by a server in another container, and nothing stays behind after a crash.
    const X11FileDescriptor file(memfd_create("tolvane-pixels", MFD_CLOEXEC));
    if (file.get() < 0 || ftruncate(file.get(), static_cast<off_t>(size)) != 0)
        return PXFail(PXPOSIXError(errno, u"Could not make %1 bytes of shared memory"_s.arg(size)));
    auto result = _mapped(size, MAP_SHARED, file.get());
    if (!result)
        return result;
    // xcb closes the descriptor that it sends.
    const int sent = fcntl(file.get(), F_DUPFD_CLOEXEC, 0);
    if (sent < 0)
        return PXFail(PXPOSIXError(errno, u"Could not share %1 bytes of memory"_s.arg(size)));
    X11Segment segment(connection.get());
    auto attached = connection.check(
        "xcb_shm_attach_fd", xcb_shm_attach_fd_checked(connection.get(), segment.id(), sent, 0));
    if (!attached) {
        segment.forget();
        return PXFail(std::move(attached).error());
    }
    (*result)->_segment = std::move(segment);
    return result;
}

X11PixelBuffer::~X11PixelBuffer()
{
    munmap(_bytes, _size);
}

xcb_pixmap_t X11PixelBuffer::pixmap(X11Connection &connection, int width, int height)
{
    if (!_pixmap || _pixmapWidth != width || _pixmapHeight != height) {
        _pixmap = X11Pixmap(connection.get());
        _pixmapWidth = width;
        _pixmapHeight = height;
        xcb_shm_create_pixmap(connection.get(), _pixmap.id(), connection.root(),
                              static_cast<std::uint16_t>(width), static_cast<std::uint16_t>(height),
                              connection.screen().root_depth, segment(), 0);
    }
    return _pixmap.id();
}

void X11PixelBuffer::forgetPixmap(X11Connection &connection)
{
    if (!_pixmap)
        return;
    // If it was never made, the server refuses to free it, and nobody needs to know.
    xcb_discard_reply(connection.get(),
                      xcb_free_pixmap_checked(connection.get(), _pixmap.id()).sequence);
    _pixmap.forget();
}
