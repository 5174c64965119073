#pragma once

#include "foundation/PXGeometry.h"
#include "foundation/PXPixelView.h"

#include <cstddef>

/// Operations on buffers of 4-byte pixels. Sizes are pixels, steps between rows bytes. No state;
/// any thread. None of them allocates.
namespace BRFrameSmoosher {

/// Reverses the four bytes of every pixel in place: A, R, G, B becomes B, G, R, A and back.
void convertBufferBetweenARGBAndBGRA(std::byte *buffer, int width, int height,
                                     std::ptrdiff_t bytesPerRow);

/// The same for one row of pixels on its way to another place; `to` may be `from`.
void reversePixels(const std::byte *from, std::byte *to, int width);

/// Mirrors a picture top to bottom. `intoBuffer` may be `buffer`; otherwise they do not overlap.
/// Both have rows `rowBytes` apart. False, and one log line, for arguments that make no sense.
bool flipBuffer(const std::byte *buffer, std::byte *intoBuffer, int width, int height,
                std::size_t rowBytes);

/// Blends a cursor over captured pixels. `cursorData` is B, G, R, A, premultiplied, top row first,
/// `size` pixels without gaps; `rect` is its place in the buffer's pixels, y up from the lowest
/// row (`y` is where the cursor's own lowest row goes), and may lie partly or wholly outside. The
/// buffer's alpha becomes 255 where the cursor is not fully transparent.
void overlayCursorData(const std::byte *cursorData, PXSize size,
                       const PXPixelView &ontoUpsidedownBuffer, const PXRect &rect);

/// Lays a decoded rectangle (top row first, width * 4 bytes a row) onto a picture `totalHeight`
/// rows high, also top row first, `bytesPerRow` apart. `inRect` counts from the picture's lower
/// left corner and must lie inside it: its rows are not clipped.
void overlayDirtyRect(const std::byte *dirtyRect, std::byte *onPixelBuffer,
                      std::ptrdiff_t bytesPerRow, const PXRect &inRect, int totalHeight);

/// Packs rows of B, G, R, A without gaps and makes every pixel opaque, in one pass. `lowestRow` is
/// the first row written and read; `bytesPerRow` leads to the next and may be negative.
void packOpaqueRows(const std::byte *lowestRow, std::ptrdiff_t bytesPerRow, int width, int height,
                    std::byte *intoBuffer);

} // namespace BRFrameSmoosher
