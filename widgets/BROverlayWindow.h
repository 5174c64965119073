#pragma once

#include "foundation/PXGeometry.h"
#include "foundation/PXTimerTarget.h"
#include "platform/PXWindowServer.h"

#include <QColor>
#include <QRegion>
#include <QWidget>

#include <functional>
#include <optional>

/// A window without a border over a part of the screen, on all others' top unless told otherwise,
/// translucent where the desktop can blend. What is on it is its content view, a child that fills
/// it. Frames are the desktop's pixels, whatever the toolkit's scale.
/// Main thread. What it is (level, keyboard, mouse, stickiness) is said before it is shown first.
class BROverlayWindow : public QWidget {
public:
    /// Whatever the style mask says, the window has no border: callers that ask for a title bar
    /// would put it over what they cover.
    BROverlayWindow(PXWindowServer &server, const PXPixelRect &contentRect,
                    Qt::WindowFlags styleMask = {});
    ~BROverlayWindow() override;

    void setCanBecomeKeyWindow(bool canBecomeKeyWindow);
    [[nodiscard]] bool canBecomeKeyWindow() const { return _canBecomeKeyWindow; }
    /// To be the program's main window; a window without a border is none by itself.
    void setCanBecomeMainWindow(bool canBecomeMainWindow)
    {
        _canBecomeMainWindow = canBecomeMainWindow;
    }
    [[nodiscard]] bool canBecomeMainWindow() const { return _canBecomeMainWindow; }
    /// On all desktops, whatever is asked for: an overlay that stayed behind on one of them would
    /// leave the screen uncovered on the others.
    void setSticky(bool sticky);
    void setLevel(PXWindowLevel level) { _level = level; }
    /// Also while it is shown.
    void setIgnoresMouseEvents(bool ignores);

    /// What is below the content view; may be translucent where the desktop can blend. Clear unless
    /// set.
    void setBackgroundColor(const QColor &color);
    /// Of all of it, its background too. Only seen where the desktop can blend; 1 is opaque.
    void setAlphaValue(double alpha);
    [[nodiscard]] double alphaValue() const { return _alphaValue; }
    /// Whether the desktop blends translucent windows with what is below them.
    [[nodiscard]] bool isCompositing() const { return _server.isCompositing(); }
    /// Hears of it on the main thread when that changes.
    void setCompositingDidChange(std::function<void()> didChange);
    /// What is left of the window, in its own pixels; nothing given is all of it. For a desktop
    /// that cannot blend.
    void setShape(const std::optional<QRegion> &shape);

    /// Fills the window from now on; taken over.
    void setContentView(QWidget *view);
    [[nodiscard]] QWidget *contentView() const { return _contentView; }

    void setFrame(const PXPixelRect &frame);
    /// With another shape at once, so that between the two nothing shows that neither has.
    void setFrame(const PXPixelRect &frame, const std::optional<QRegion> &shape);
    [[nodiscard]] const PXPixelRect &frame() const { return _frame; }
    [[nodiscard]] PXWindowServer &windowServer() const { return _server; }

    void orderFront();
    /// With the keyboard, if it can become key, and takes it again when a window that is not ours
    /// has got it, a few times a second at most, until it is ordered out.
    void makeKeyAndOrderFront();
    void orderOut();

protected:
    void paintEvent(QPaintEvent *event) override;
    void resizeEvent(QResizeEvent *event) override;
    bool event(QEvent *event) override;

private:
    void _createIfNeeded();
    void _applyFrame();
    void _applyShape();
    void _takeKeyboardSoon();

    PXWindowServer &_server;
    PXPixelRect _frame;
    PXWindowLevel _level = PXWindowLevel::Maximum;
    bool _canBecomeKeyWindow = true;
    bool _canBecomeMainWindow = false;
    bool _isSticky = false;
    bool _ignoresMouseEvents = false;
    bool _isCreated = false;
    bool _isKey = false; ///< Or is to be.
    PXTimerTarget _keyTimer;
    QColor _backgroundColor = Qt::transparent;
    double _alphaValue = 1;
    std::optional<QRegion> _shape;
    QWidget *_contentView = nullptr;
    std::function<void()> _compositingDidChange;
    // Last: its function uses the rest.
    PXObservation _compositing;
};
