#pragma once

#include "rawmovie/view/BRRawMovieView.h"

#include <QTimer>
#include <QWidget>

#include <functional>
#include <memory>

class QLabel;
class QSlider;
class QToolButton;

/// A raw movie with what steers it: a button, a slider, the time, and the keys: Space plays and
/// pauses, left and right go a second, with Shift a frame, Home and End to the ends. Main thread.
class BRRawMoviePlayer final : public QWidget {
public:
    explicit BRRawMoviePlayer(BRRawMovieView::MakeDisplayLink makeDisplayLink,
                              QWidget *parent = nullptr);

    /// Null takes the movie away.
    void setMovie(std::shared_ptr<BRRawMovie> movie);
    [[nodiscard]] BRRawMovieView &view() { return *_view; }
    /// Hears why a movie cannot be played.
    void setDidFail(std::function<void(const PXError &)> didFail) { _didFail = std::move(didFail); }

    void togglePlaying();
    /// Seconds from the beginning, as far as the movie goes.
    void goTo(double time);

protected:
    void keyPressEvent(QKeyEvent *event) override;

private:
    void _showState();
    void _showTime();

    BRRawMovieView *const _view;
    QToolButton *const _playButton;
    QSlider *const _slider; ///< Milliseconds.
    QLabel *const _time;
    QTimer _ticker;
    std::function<void(const PXError &)> _didFail;
};
