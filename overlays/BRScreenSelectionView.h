#pragma once

#include "foundation/PXGeometry.h"
#include "overlays/BRSelectionGeometry.h"
#include "widgets/PXGradient.h"

#include <QImage>
#include <QRegion>
#include <QWidget>

#include <functional>
#include <map>
#include <optional>
#include <utility>

class BRScreenSelectionView;

/// How choosing goes on. On the main thread.
class BRScreenSelectionViewDelegate {
public:
    virtual void screenSelectionViewRectChanged(const PXRect &rect) = 0;
    /// 1: the rectangle is the one; 0: none is. The view may not be destroyed before this returns.
    virtual void screenSelectionViewDidEnd(int action, const PXRect &rect) = 0;
    /// The frame of the window under a point, in the view's coordinates; none where there is none.
    virtual std::optional<PXRect> screenSelectionViewWindowFrameAt(PXPoint point) = 0;

protected:
    ~BRScreenSelectionViewDelegate() = default;
};

/// The frozen picture of the main display, on which a rectangle is chosen by mouse and keys: dimmed
/// but for the selection, which has eight handles and a box with its numbers. It covers the main
/// display: its coordinates are the display's, in pixels, y up. Only what a change touches is
/// painted again. Main thread.
class BRScreenSelectionView final : public QWidget {
public:
    /// `frame`: the display's size in pixels.
    explicit BRScreenSelectionView(PXSize frame, QWidget *parent = nullptr);

    void setDelegate(BRScreenSelectionViewDelegate *value) { delegate = value; }
    /// Of the display's size. Without one the view is white.
    void setBackgroundImage(const QImage &image);
    /// While the screen fades: the picture alone, with so much black over it; none is the usual
    /// look.
    void setFading(std::optional<double> black);

    [[nodiscard]] PXRect selectionRect() const { return _chosenRect; }
    /// Moved inside the display first, and cut to its size.
    void setSelectionRect(const PXRect &rect);
    /// Gives the selection the height of the aspect where one is fixed.
    void resetSelectionRect();
    [[nodiscard]] PXSize selectionAspect() const
    {
        return {_selectionAspectWidth, _selectionAspectHeight};
    }
    /// Two terms above 0; others fix nothing.
    void setSelectionAspect(PXSize aspect);
    /// As the settings say now: 0 free, 1 the aspect is fixed.
    [[nodiscard]] int selectionSizing() const;
    /// Where a handle is grabbed; the zero rectangle for what is none.
    [[nodiscard]] PXRect rectForGrabHandle(int handle) const
    {
        return BRSelectionGeometry::rectForGrabHandle(handle, _chosenRect);
    }

protected:
    void paintEvent(QPaintEvent *event) override;
    void mousePressEvent(QMouseEvent *event) override;
    void mouseMoveEvent(QMouseEvent *event) override;
    void mouseReleaseEvent(QMouseEvent *event) override;
    void keyPressEvent(QKeyEvent *event) override;

private:
    enum Mode { Idle = 0, Moving = 1, SizingFromAnchor = 2, DraggingEdge = 3 };
    /// The box of numbers: where its parts stand, in pixels with y down.
    struct InfoBox {
        QRect box;
        QRect labels;
        QRect values;
        QString text;
    };

    [[nodiscard]] PXPoint _pointOf(const QMouseEvent &event) const;
    [[nodiscard]] PXPoint _reachingEdges(PXPoint point) const;
    [[nodiscard]] std::optional<PXSize> _fixedAspect() const;
    void _grab(PXPoint point);
    void _resetCursorRects(PXPoint point);
    void _describe();

    [[nodiscard]] QRect _pixelsOf(const PXRect &rect) const;
    [[nodiscard]] QRegion _looksOf(const PXRect &selection) const;
    [[nodiscard]] InfoBox _infoBox() const;
    void _drawPicture(QPainter &painter, const QRegion &dirty, double black) const;
    void _drawShadow(QPainter &painter, const QRegion &dirty) const;
    void _drawSelection(QPainter &painter, const QRegion &dirty) const;
    void drawSelectionInfo(QPainter &painter) const;
    void drawGrabHandles(QPainter &painter, const QRegion &dirty);
    void drawGrabHandleInRect(QPainter &painter, const PXRect &rect);
    [[nodiscard]] QImage _pictureOfHandle(QPointF fraction) const;

    BRScreenSelectionViewDelegate *delegate = nullptr;
    QImage _backgroundImage;
    QImage _dimmedImage; ///< The same under the usual black: dimming it at each change costs more.
    std::optional<double> _fading;
    const PXSize _frame;
    PXRect _chosenRect;
    PXPoint _initialPoint;
    PXPoint _lastPoint;
    int _grabbedHandle = BRSelectionGeometry::kNoHandle;
    Mode _mode = Idle;
    float _selectionAspectWidth = 0;
    float _selectionAspectHeight = 0;
    const PXGradient mHandleGradient;
    /// By the part of a pixel at which they stand: none or half in general.
    std::map<std::pair<double, double>, QImage> _handlePictures;
};
