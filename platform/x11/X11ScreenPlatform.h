#pragma once

#include "platform/PXScreenPlatform.h"

#include <QString>

#include <memory>

/// How pixels come from the X server. `Best` takes the first that works, in this order; the
/// others are for tests and for comparing them.
enum class X11PixelWay {
    Best,
    SharedPixmap, ///< The server copies to the final place in memory that both see.
    SharedImage, ///< The server packs rectangles into shared memory, we lay them in place.
    PlainImage, ///< The pixels come through the connection: remote displays.
};

/// The desktop of an X server.
namespace X11ScreenPlatform {

/// Connects to `displayName` (":1"; empty: what DISPLAY says). Fails with the code
/// `PXDisplayCannotOpen` when no server answers, and with `PXDisplayNotSupported` in a Wayland
/// session or when the server lacks something that recording needs.
///
/// Every service has connections of its own, and none of them ends the process: a server that
/// goes away arrives as `PXDisplayLost`. So that writing to such a connection is an error and
/// not a signal, SIGPIPE is ignored from the first call on unless the program handles it.
///
/// The platform must outlive what it makes.
PXExpected<std::unique_ptr<PXScreenPlatform>> open(const QString &displayName = {},
                                                   X11PixelWay pixelWay = X11PixelWay::Best);

} // namespace X11ScreenPlatform
