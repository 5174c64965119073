#pragma once

#include "platform/PXMainDisplay.h"

#include <QRect>
#include <QRegion>
#include <QWidget>

class BROverlayWindow;

/// A square around the pointer on an overlay over the main display. The toolkit's painter draws it,
/// and only where it was and where it is now. Where the desktop cannot blend, the overlay is cut to
/// the square. Main thread.
class BROpenGLView final : public QWidget {
public:
    /// Both outlive it.
    BROpenGLView(BROverlayWindow &window, PXMainDisplay &mainDisplay);

    void drawSomething() { _setDraws(true); }
    void drawNothing() { _setDraws(false); }
    /// Draws again, where the pointer is now.
    void setNeedsDisplay();

protected:
    void paintEvent(QPaintEvent *event) override;

private:
    void _setDraws(bool draws);

    BROverlayWindow &_window;
    PXMainDisplay &_mainDisplay;
    bool _draws = true;
    QRect _square; ///< Pixels of the window.
    QRegion _shape; ///< The window's.
};
