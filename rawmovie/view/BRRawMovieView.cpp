#include "rawmovie/view/BRRawMovieView.h"

#include "foundation/PXClock.h"
#include "foundation/PXMainThread.h"

#include <QPaintEvent>
#include <QPainter>

#include <algorithm>
#include <cmath>
#include <utility>

BRRawMovieView::BRRawMovieView(MakeDisplayLink makeDisplayLink, QWidget *parent)
    : QWidget(parent), _makeDisplayLink(std::move(makeDisplayLink))
{
    setAttribute(Qt::WA_OpaquePaintEvent);
    setMinimumSize(16, 9);
}

BRRawMovieView::~BRRawMovieView()
{
    _endPlaying();
}

void BRRawMovieView::setMovie(std::shared_ptr<BRRawMovie> movie)
{
    if (mMovie && isPlaying())
        stop();
    mMovie = std::move(movie);
    updateGeometry();
    update();
}

PXExpected<void> BRRawMovieView::play()
{
    if (!mMovie || isPlaying())
        return {};
    auto link = _makeDisplayLink();
    if (!link)
        return PXFail(link.error());
    if (mMovie->currentTime() >= mMovie->duration())
        setCurrentTime(0);
    {
        const PXLock lock(_timeLock);
        mLastFrameTime = PXTimeIntervalSinceReferenceDate();
    }
    mDisplayLink = *std::move(link);
    auto started = mDisplayLink->start([this](std::uint64_t) { return _displayLinkCallback(); });
    if (!started)
        _endPlaying();
    return started;
}

void BRRawMovieView::pause()
{
    if (!isPlaying())
        return;
    mDisplayLink->stop();
    _followClock();
    _endPlaying();
    _showChanges();
}

void BRRawMovieView::stop()
{
    _endPlaying();
    setCurrentTime(0);
}

void BRRawMovieView::_endPlaying()
{
    if (mDisplayLink)
        mDisplayLink->stop();
    mDisplayLink.reset();
    const PXLock lock(_timeLock);
    mLastFrameTime = 0;
}

void BRRawMovieView::setCurrentTime(double time)
{
    if (!mMovie)
        return;
    {
        const PXLock lock(_timeLock);
        mMovie->setCurrentTime(std::max(time, 0.0));
        if (mLastFrameTime > 0)
            mLastFrameTime = PXTimeIntervalSinceReferenceDate();
    }
    _showChanges();
    if (mDisplayLink)
        mDisplayLink->wake();
}

double BRRawMovieView::currentTime() const
{
    if (!mMovie)
        return 0;
    const PXLock lock(_timeLock);
    const double passed
        = mLastFrameTime > 0 ? PXTimeIntervalSinceReferenceDate() - mLastFrameTime : 0;
    return std::min(mMovie->currentTime() + passed, mMovie->duration());
}

/// Brings the movie to the time that it is by now; whether another frame is shown.
bool BRRawMovieView::_followClock()
{
    const PXLock lock(_timeLock);
    const double now = PXTimeIntervalSinceReferenceDate();
    return mMovie->advanceTime(now - std::exchange(mLastFrameTime, now));
}

/// On the link's thread. Rests until the next frame is due: a picture that stands still costs
/// nothing to play.
std::uint64_t BRRawMovieView::_displayLinkCallback()
{
    if (_followClock() && !_isChangeUnderWay.exchange(true)) {
        PXMainThread::post(this, [this] {
            _isChangeUnderWay = false;
            _showChanges();
        });
    }
    const double left = mMovie->duration() - mMovie->currentTime();
    if (left > 0) {
        const double untilNext = mMovie->timeOfNextFrame() - mMovie->currentTime();
        return PXHostTimeForReferenceTime(PXTimeIntervalSinceReferenceDate()
                                          + std::min(left, untilNext));
    }
    PXMainThread::post(this, [this, movie = mMovie.get()] {
        // Somebody may have gone back, or to another movie, in between.
        if (movie != mMovie.get() || !isPlaying() || movie->currentTime() < movie->duration())
            return;
        stop();
        if (const auto didStop = _didStop)
            didStop();
    });
    return PXDisplayLink::kWhenWoken;
}

void BRRawMovieView::_showChanges()
{
    if (!mMovie)
        return;
    const QRectF picture = _pictureRect();
    const PXSize size = mMovie->dimensions();
    const double scaleX = picture.width() / size.width;
    const double scaleY = picture.height() / size.height;
    const double ratio = devicePixelRatioF();
    QRegion changed;
    for (const QRect &rect : mMovie->takeChanges()) {
        // A pixel shines into where its neighbours are when the picture is smoothed.
        const QRectF wider = rect.adjusted(-1, -1, 1, 1);
        changed += QRectF((picture.x() + wider.x() * scaleX) / ratio,
                          (picture.y() + wider.y() * scaleY) / ratio,
                          wider.width() * scaleX / ratio, wider.height() * scaleY / ratio)
                       .toAlignedRect();
    }
    update(changed);
}

/// The movie's picture in pixels of the screen, whole ones: an edge between two would be blurred.
QRect BRRawMovieView::_pictureRect() const
{
    const QSize size(PXClampToInt(mMovie->dimensions().width),
                     PXClampToInt(mMovie->dimensions().height));
    const QSize room = (QSizeF(this->size()) * devicePixelRatioF()).toSize();
    const QSize fitted = size.scaled(room, Qt::KeepAspectRatio).expandedTo({1, 1});
    return {QPoint((room.width() - fitted.width()) / 2, (room.height() - fitted.height()) / 2),
            fitted};
}

QSize BRRawMovieView::sizeHint() const
{
    if (!mMovie)
        return {640, 360};
    const PXSize size = mMovie->dimensions();
    // A pixel of the movie on each of the screen.
    return (QSizeF(static_cast<double>(size.width), static_cast<double>(size.height))
            / devicePixelRatioF())
        .toSize();
}

void BRRawMovieView::paintEvent(QPaintEvent *event)
{
    QPainter painter(this);
    if (!mMovie) {
        painter.fillRect(event->rect(), Qt::black);
        return;
    }
    const double ratio = devicePixelRatioF();
    painter.scale(1 / ratio, 1 / ratio);
    const QRect picture = _pictureRect();
    const QRect all(QPoint(), (QSizeF(size()) * ratio).toSize() + QSize(1, 1));
    for (const QRect &rest : QRegion(all).subtracted(picture))
        painter.fillRect(rest, Qt::black);
    mMovie->useCurrentFrame([&](const QImage &frame) {
        // Enlarged by a whole number its pixels stay squares.
        const bool isWhole
            = picture.width() % frame.width() == 0 && picture.height() % frame.height() == 0;
        painter.setRenderHint(QPainter::SmoothPixmapTransform, !isWhole);
        painter.drawImage(picture, frame);
    });
}
