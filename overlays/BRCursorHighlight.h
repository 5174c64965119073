#pragma once

#include "overlays/BRDisplayOverlayWindow.h"
#include "overlays/BROpenGLView.h"
#include "platform/PXScreenPlatform.h"

#include <QObject>

#include <atomic>
#include <memory>

/// A red square that follows the pointer on the main display, at the display's rate while the
/// pointer moves; while it stands still nothing wakes up. A pointer that a program has put
/// elsewhere is followed with the hand's next movement. Main thread, unless said.
class BRCursorHighlight final {
public:
    /// Shown at once. Both outlive it.
    static PXExpected<std::unique_ptr<BRCursorHighlight>> onScreen(PXScreenPlatform &platform,
                                                                   PXWindowServer &windowServer);
    ~BRCursorHighlight();

    [[nodiscard]] BROverlayWindow &window() { return mOverlayWindow; }
    /// A blue square that is moved with the pointer and never shown.
    [[nodiscard]] BROverlayWindow &cursorWindow() { return mCursorWindow; }

    void moveCursorWindow();
    /// Has the square drawn where the pointer is. Any thread; does not wait.
    void displayLinkCallback();
    void drawSomething() { mOpenGLView->drawSomething(); }
    void drawNothing() { mOpenGLView->drawNothing(); }
    /// Follows the pointer no more.
    void shutdown();

private:
    BRCursorHighlight(PXScreenPlatform &platform, PXWindowServer &windowServer,
                      std::unique_ptr<PXCursorSource> cursorSource,
                      std::unique_ptr<PXDisplayLink> displayLink);
    PXExpected<void> _followPointer();

    PXWindowServer &_windowServer;
    BRDisplayOverlayWindow mOverlayWindow;
    BROverlayWindow mCursorWindow;
    BROpenGLView *mOpenGLView; ///< The window's.
    QObject _context;
    std::atomic<bool> _isDrawingWanted = false; ///< And on its way to the main thread.
    std::unique_ptr<PXCursorSource> _cursorSource;
    std::unique_ptr<PXDisplayLink> _displayLink;
};
