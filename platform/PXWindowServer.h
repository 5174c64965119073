#pragma once

#include "foundation/PXError.h"
#include "foundation/PXGeometry.h"
#include "foundation/PXObservation.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>

/// Where a window stands among the others.
enum class PXWindowLevel {
    Normal,
    DesktopIconPlusOne, ///< Just above the desktop's icons, below every ordinary window.
    Floating, ///< Above ordinary windows.
    Maximum, ///< Above everything, full-screen windows, menus and tooltips included.
};

/// A dashed line around a rectangle of the screen, outside of it, which no click and no focus ever
/// reaches. It costs nothing while it stands. Any thread, one at a time.
class PXDashedFrame {
public:
    virtual ~PXDashedFrame() = default;

    /// Around `inner`, 4 pixels wide; what lies outside `bounds` is cut off. Desktop's pixels.
    virtual void show(const PXPixelRect &inner, const PXPixelRect &bounds) = 0;
    /// When this returns the server shows it no more (a compositor may, until it has painted).
    virtual void hide() = 0;
};

/// What overlays ask of the window system beyond what the toolkit does. Windows are named by the
/// toolkit's `winId()`, and may go at any time: what is asked of one that has gone does nothing.
/// Main thread.
class PXWindowServer {
public:
    using WindowID = std::uintptr_t;

    virtual ~PXWindowServer() = default;

    /// Whether translucent windows are blended with what is below them; without that they are
    /// opaque, and must be cut to their shape.
    [[nodiscard]] virtual bool isCompositing() const = 0;
    /// `changed` is called on a thread of the back end when that has changed.
    virtual PXObservation addCompositingObserver(std::function<void()> changed) = 0;

    /// The pixel of the desktop under the pointer's hot spot; empty when the desktop has gone.
    [[nodiscard]] virtual PXPixelRect pointerPixel() const = 0;

    /// Whether the user has asked the desktop for less motion: then nothing slides or fades. As the
    /// desktop's settings say now.
    [[nodiscard]] virtual bool prefersReducedMotion() const = 0;

    /// Before the window is shown for the first time. For a level other than `Normal` the desktop
    /// is told that it needs no shadow, no animation and no place in a list of windows.
    virtual void setLevel(WindowID window, PXWindowLevel level) = 0;
    /// On all desktops from now on. Before the window is shown for the first time.
    virtual void joinAllSpaces(WindowID window) = 0;
    /// To exactly these pixels of the desktop, which the toolkit cannot reach with a scale factor.
    virtual void setFrame(WindowID window, const PXPixelRect &frame) = 0;
    /// Cuts it to these parts of it, its own pixels; none at all makes it invisible.
    virtual void setShape(WindowID window, std::span<const PXPixelRect> parts) = 0;
    /// The whole window again.
    virtual void clearShape(WindowID window) = 0;

    /// Raises it, and raises it again whenever another program's window comes above it, a few times
    /// a second at most, until it is let go or has gone.
    virtual void keepOnTop(WindowID window) = 0;
    virtual void letGo(WindowID window) = 0;

    /// Gives it the keyboard, also where no window manager would. The first such window's
    /// predecessor is kept in mind.
    virtual void focus(WindowID window) = 0;
    /// Gives the keyboard back to the window that had it before the first `focus()`, where it still
    /// is there.
    virtual void giveFocusBack() = 0;

    /// The frame of the frontmost window that shows at that pixel of the desktop: with the window
    /// manager's decorations, without a shadow that the program itself draws. Windows of the
    /// program to which `own` belongs are looked through, as are those that let clicks through. The
    /// desktop's own window (its icons, its background) counts; none where there is nothing but the
    /// root.
    [[nodiscard]] virtual std::optional<PXPixelRect> windowFrameAt(int x, int y, WindowID own) = 0;

    /// The server outlives its frames.
    [[nodiscard]] virtual PXExpected<std::unique_ptr<PXDashedFrame>> makeDashedFrame() = 0;
};
