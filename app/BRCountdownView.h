#pragma once

#include "foundation/PXTimerTarget.h"

#include <QRegion>
#include <QWidget>

class BROverlayWindow;

/// A number on a dial, over which a hand turns once a second. Where the desktop cannot blend, all
/// of it is opaque and has a dark outline, and the window is cut to that; what the desktop can do
/// may change at any time. Nothing is painted again but what the hand leaves and enters.
class BRCountdownView final : public QWidget {
public:
    /// To be the content of that window.
    explicit BRCountdownView(BROverlayWindow &window);

    /// Shows it; the hand starts at twelve o'clock, for a number greater than 0 it runs for a
    /// second.
    void setTimerCount(int count);

protected:
    void paintEvent(QPaintEvent *event) override;

private:
    void spin();
    void _followCompositing();
    void _cutWindow();

    BROverlayWindow &_window;
    PXTimerTarget _countdownTimer;
    int _timerCount = 0;
    double _time = 0; ///< When the number was set; seconds since the reference date.
    double _turn = 0; ///< How far the hand has turned on the screen.
    bool _isCut = false;
    QRegion _dialShape; ///< Of a window that is cut: all but the hand.
};
