#pragma once

#include "foundation/PXError.h"
#include "foundation/PXGeometry.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

/// A cursor's picture: B, G, R, A rows, top row first, width x 4 bytes a row, premultiplied.
struct PXCursorImage {
    int width = 0;
    int height = 0;
    std::vector<std::byte> pixels;
};

/// The cursor as it stands on the desktop now.
struct PXCursor {
    std::shared_ptr<const PXCursorImage> image; ///< Shared by all moments that show the same one.
    PXPixelRect rect; ///< Place of the picture: the pointer's place minus the hot spot.
    PXPixelRect pointerPixel; ///< The pointer's place, as `pointerPixel()` tells it.
    std::uint64_t serial = 0; ///< Changes with the picture.
};

/// The mouse cursor, which is not part of the frame buffer, and the pointer's place.
/// One thread at a time asks; the handler comes on a thread of the back end.
class PXCursorSource {
public:
    virtual ~PXCursorSource() = default;

    /// Says that `cursor()` or `pointerPixel()` comes soon: the answer is then on its way while the
    /// caller waits for something else, and both cost one wake-up of the display server.
    virtual void askAhead() { }
    /// Empty while no cursor is visible (an application hid it, or its picture is all
    /// transparent) or when the display draws it into the frame buffer itself.
    virtual PXExpected<std::optional<PXCursor>> cursor() = 0;
    /// The pointer's hot spot in the desktop's pixels.
    virtual PXExpected<PXPixelRect> pointerPixel() = 0;

    /// Asks to be told once, by `moved`, when the pointer moves or its picture changes. Each
    /// call arms it anew and costs nothing more when it is armed already; an empty function
    /// disarms it, and no call comes after that has returned. Warps by programs are not seen.
    virtual void callOnceWhenMoved(std::function<void()> moved) = 0;
    /// Never waits: whether the answer to the question that the call before sent out differs
    /// from what `cursor()` or `pointerPixel()` told last; then sends the question again.
    /// Five calls a second find warps for the price of five wake-ups.
    virtual bool mayHaveMoved() = 0;
};
