#pragma once

#include "foundation/PXAnimation.h"
#include "foundation/PXGeometry.h"
#include "foundation/PXObservation.h"
#include "overlays/BRScreenSelectionView.h"
#include "platform/PXScreenPlatform.h"
#include "platform/PXWindowServer.h"

#include <QObject>
#include <QString>

#include <memory>
#include <optional>

class BROverlayWindow;
class BRScreenSelectionPanel;

class BRScreenSelectionDelegate {
public:
    /// 1: the user chose the rectangle; anything else: none. On the main thread, once for each
    /// `displayWindowWithDelegate()`; the controller may be asked and used in it, but not
    /// destroyed.
    virtual void screenSelectionDidEnd(int action) = 0;

protected:
    ~BRScreenSelectionDelegate() = default;
};

/// Lets the user choose a rectangle of the main display on a frozen picture of it. The rectangle is
/// kept in the settings ("screenSelectionRect") with each change. Main thread.
class BRScreenSelectionController final : private BRScreenSelectionViewDelegate,
                                          private PXAnimationDelegate {
public:
    /// Both outlive the controller.
    BRScreenSelectionController(PXScreenPlatform &platform, PXWindowServer &windowServer);
    ~BRScreenSelectionController();

    /// Freezes the screen and shows what it is chosen with; returns when that has faded in, 0.3
    /// seconds later. Not while it is shown already.
    void displayWindowWithDelegate(BRScreenSelectionDelegate &delegate,
                                   const QString &okButtonTitle);
    /// The last one, also after the end.
    [[nodiscard]] PXRect selectionRect() const { return _selectionRect; }
    [[nodiscard]] int selectionSizing() const;
    [[nodiscard]] bool isDisplayed() const { return _blankingWindow != nullptr; }
    /// The panel; none while nothing is shown.
    [[nodiscard]] QWidget *window() const;

    /// While it fades in, these wait for the end of that.
    void okButton();
    void cancelButton();
    void setSizeFromFields();
    /// Whatever the mode; by a tag of `BRSelectionGeometry::preset()`.
    void setSizeToPreset(int tag);
    /// After the settings say the new mode.
    void selectionSizingChanged();

private:
    void screenSelectionViewRectChanged(const PXRect &rect) override;
    void screenSelectionViewDidEnd(int action, const PXRect &rect) override;
    std::optional<PXRect> screenSelectionViewWindowFrameAt(PXPoint point) override;
    void animationDidReachProgressMark(PXAnimation &animation, float progress) override;

    void _makeWindows();
    void _makePanel(const QString &okButtonTitle);
    void _showPanel();
    void _restoreSelection();
    void _fadeIn();
    void _fadeOut();
    void _runFade();
    void _setDimming(double black);
    void _close(int action);
    [[nodiscard]] PXSize _displaySize() const;

    PXScreenPlatform &_platform;
    PXWindowServer &_windowServer;
    PXPixelRect _display; ///< As it was at the beginning.
    BRScreenSelectionDelegate *_delegate = nullptr;
    std::unique_ptr<BROverlayWindow> _blankingWindow;
    std::unique_ptr<BROverlayWindow> _closedWindow; ///< Until nobody is inside it any more.
    BRScreenSelectionView *selectionView = nullptr; ///< The window's.
    BRScreenSelectionPanel *screenSelectionWindow = nullptr; ///< The window's, too.
    PXRect _selectionRect;
    int _action = 0;
    bool _fadingOut = false;
    bool _isFadingIn = false;
    std::optional<int> _actionAfterFade; ///< How it ends as soon as it has faded in.
    bool _isClosing = false;
    QObject _mainThread; ///< Context of posted calls.
    PXObservation _displayChanges; // Last: its function uses the rest.
};
