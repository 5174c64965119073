#pragma once

#include "platform/PXFrameBufferReader.h"
#include "platform/x11/X11Connection.h"
#include "platform/x11/X11Ids.h"
#include "platform/x11/X11PixelBuffer.h"
#include "platform/x11/X11ScreenPlatform.h"

#include <memory>
#include <vector>

/// Copies from the root window, what lies in its windows included; the cursor is not in it.
/// Each read is one round trip, however many rectangles it has.
class X11FrameBufferReader final : public PXFrameBufferReader {
public:
    /// Fails with `PXDisplayNotSupported` when the screen's pixels are not B, G, R and a byte.
    static PXExpected<std::unique_ptr<X11FrameBufferReader>>
    onConnection(std::unique_ptr<X11Connection> connection, X11PixelWay wish);

    PXExpected<std::unique_ptr<PXPixelBuffer>> makeBuffer(int width, int height) override;
    void prepare(PXPixelBuffer &buffer) override;
    PXExpected<PXPixelView> read(std::span<const PXPixelRect> rects,
                                 PXPixelBuffer &buffer) override;

    /// The one in use; never `Best`.
    [[nodiscard]] X11PixelWay way() const { return _way; }

private:
    X11FrameBufferReader(std::unique_ptr<X11Connection> connection, X11PixelWay way);
    PXExpected<void> _findRootSize();
    PXExpected<void> _read(std::span<const PXPixelRect> rects, const PXPixelRect &area,
                           X11PixelBuffer &buffer);
    PXExpected<void> _readByPixmap(std::span<const PXPixelRect> visible, const PXPixelRect &area,
                                   X11PixelBuffer &buffer);
    PXExpected<void> _readBySharedImage(std::span<const PXPixelRect> visible,
                                        const PXPixelRect &area, X11PixelBuffer &buffer);
    PXExpected<void> _readByPlainImage(std::span<const PXPixelRect> visible,
                                       const PXPixelRect &area, X11PixelBuffer &buffer);
    PXExpected<void> _makeScratch(std::size_t size);
    /// To a way that asks less of the server; false when there is none.
    bool _takeNextWay();

    std::unique_ptr<X11Connection> _connection;
    X11PixelWay _way;
    bool _hasRead = false; ///< The way has worked: what is refused now has another reason.
    PXPixelRect _root; ///< What the server said last; screens change their size.
    X11GraphicsContext _copyContext;
    std::unique_ptr<X11PixelBuffer> _scratch; ///< Packed rectangles before they are laid in place.
    std::vector<PXPixelRect> _visible; ///< A member to keep its memory.
};
