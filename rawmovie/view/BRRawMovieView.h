#pragma once

#include "foundation/PXError.h"
#include "foundation/PXMutex.h"
#include "platform/PXDisplayLink.h"
#include "rawmovie/BRRawMovie.h"

#include <QRect>
#include <QWidget>

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>

/// Shows a raw movie, and plays it paced by the display: the largest picture of the movie's
/// proportions that fits, on black. Main thread; while it plays, frames are built on the link's.
class BRRawMovieView : public QWidget {
public:
    using MakeDisplayLink = std::function<PXExpected<std::unique_ptr<PXDisplayLink>>()>;

    explicit BRRawMovieView(MakeDisplayLink makeDisplayLink, QWidget *parent = nullptr);
    ~BRRawMovieView() override;

    /// Stops what is playing. Null shows black.
    void setMovie(std::shared_ptr<BRRawMovie> movie);
    [[nodiscard]] BRRawMovie *movie() const { return mMovie.get(); }

    /// From the movie's current time to its end, where it stops by itself. Nothing without a
    /// movie, and while it plays.
    PXExpected<void> play();
    /// Ends playing and goes to the beginning.
    void stop();
    /// Ends playing and stays.
    void pause();
    [[nodiscard]] bool isPlaying() const { return mDisplayLink != nullptr; }

    /// Goes to a time, playing or not.
    void setCurrentTime(double time);
    /// Seconds from the beginning, also between two frames; 0 without a movie.
    [[nodiscard]] double currentTime() const;

    /// Called when playing has ended by itself. The view may be destroyed in it.
    void setDidStop(std::function<void()> didStop) { _didStop = std::move(didStop); }

    [[nodiscard]] QSize sizeHint() const override;

protected:
    void paintEvent(QPaintEvent *event) override;

private:
    std::uint64_t _displayLinkCallback();
    bool _followClock();
    void _endPlaying();
    void _showChanges();
    [[nodiscard]] QRect _pictureRect() const;

    std::shared_ptr<BRRawMovie> mMovie; ///< Stays the same while the link runs.
    std::unique_ptr<PXDisplayLink> mDisplayLink;
    /// Held while the movie's time changes, so that a seek and the clock do not mix.
    mutable PXMutex _timeLock;
    /// Reference date at which the movie's time was set last; 0 while it does not play.
    double mLastFrameTime PX_GUARDED_BY(_timeLock) = 0;
    MakeDisplayLink _makeDisplayLink;
    std::function<void()> _didStop;
    std::atomic<bool> _isChangeUnderWay = false; ///< For the main thread: one message at a time.
};
