#pragma once

#include "overlays/KPKeyboardPosition.h"
#include "overlays/KPKeystrokeStyle.h"
#include "widgets/BROverlayWindow.h"

#include <QRect>
#include <QSize>

#include <optional>

/// A rounded, translucent plate for something to be read. Nobody can click it, and it never takes
/// the keyboard. Where the desktop cannot blend it is opaque, and the window is cut to its shape.
/// All sizes are pixels. Main thread.
///
/// While it goes from one size to another the window has room for both, and the bezel is drawn in
/// it as large as it is said to be shown: to resize a window at each step would make it tremble.
class KPBezelWindow : public BROverlayWindow {
public:
    static constexpr int kInset = 8; ///< Around the interior.

    KPBezelWindow(PXWindowServer &server, const PXPixelRect &contentRect);

    /// Holds the content. It fills the window, because the toolkit cannot place a view between its
    /// own units; `interiorRect()` says which pixels of it are the interior's.
    [[nodiscard]] QWidget &interiorView() const { return *mInteriorView; }
    /// In the window's pixels, as large as it is shown.
    [[nodiscard]] QRect interiorRect() const;
    [[nodiscard]] QSize interiorSize() const { return _interiorSize; }
    /// Resizes the window so that its interior has that size. With `display` it is painted anew.
    void setInteriorSize(const QSize &size, bool display);
    [[nodiscard]] QSize shownInteriorSize() const;
    /// None: as large as it is.
    void setShownInteriorSize(const std::optional<QSize> &size);

    /// Where it is, in the desktop's pixels.
    void setBezelFrame(const PXPixelRect &frame);

    [[nodiscard]] const KPKeystrokeStyle &style() const { return _style; }
    void setStyle(const KPKeystrokeStyle &style);

    /// One step of many toward opaque. True at the end, which comes at once where the desktop
    /// cannot blend or the user wants nothing to move.
    bool fadeIn();
    /// One step toward invisible; likewise.
    bool fadeOut();

    /// After the desktop's ability to blend has changed.
    void followCompositing();

    /// What of the window stays where it is when its size changes.
    [[nodiscard]] virtual KPKeyboardPosition fixedPoint() const
    {
        return {KPAnchor::Start, KPAnchor::Start};
    }

protected:
    void paintEvent(QPaintEvent *event) override;
    /// Gives the window that size, the fixed point where it is.
    virtual void resizeFrame(const QSize &size, bool display);

private:
    void _fitFrame(bool display);
    [[nodiscard]] QRect _bezelRectIn(const PXPixelRect &frame) const;
    [[nodiscard]] QRect _bezelRect() const { return _bezelRectIn(frame()); }
    [[nodiscard]] bool _fadesAtOnce() const;

    QWidget *const mInteriorView;
    QSize _interiorSize;
    std::optional<QSize> _shownInteriorSize;
    KPKeystrokeStyle _style;
    // What the window was cut to; empty for a whole one.
    QRect _shape;
    int _shapeRadius = 0;
};
