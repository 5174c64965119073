#include "rawmovie/view/BRRawMoviePlayer.h"

#include <QHBoxLayout>
#include <QKeyEvent>
#include <QLabel>
#include <QSignalBlocker>
#include <QSlider>
#include <QStyle>
#include <QToolButton>
#include <QVBoxLayout>

#include <algorithm>
#include <cmath>
#include <utility>

using namespace Qt::StringLiterals;

namespace {

constexpr int kTickMs = 50; ///< While playing: how often slider and time follow.
constexpr double kStep = 1.0; ///< Seconds that an arrow key goes.
constexpr int kPagesInMovie = 20; ///< That clicks beside the slider's handle go through.

int millisecondsOf(double seconds)
{
    return static_cast<int>(std::clamp(std::round(seconds * 1000), 0.0, 2e9));
}

QString textOfTime(double seconds)
{
    const int all = millisecondsOf(seconds) / 100;
    const QString minutes
        = QString::asprintf("%02d:%02d.%d", all / 600 % 60, all / 10 % 60, all % 10);
    return all >= 36'000 ? QString::asprintf("%d:", all / 36'000) + minutes : minutes;
}

} // namespace

BRRawMoviePlayer::BRRawMoviePlayer(BRRawMovieView::MakeDisplayLink makeDisplayLink, QWidget *parent)
    : QWidget(parent),
      _view(new BRRawMovieView(std::move(makeDisplayLink), this)),
      _playButton(new QToolButton(this)),
      _slider(new QSlider(Qt::Horizontal, this)),
      _time(new QLabel(this))
{
    _playButton->setAutoRaise(true);
    _slider->setAccessibleName(u"Position"_s);
    // The player's own keys go a second or a frame, wherever the focus is.
    _slider->setFocusPolicy(Qt::NoFocus);
    _playButton->setFocusPolicy(Qt::NoFocus);
    setFocusPolicy(Qt::StrongFocus);
    _time->setTextInteractionFlags(Qt::NoTextInteraction);

    auto *controls = new QHBoxLayout;
    controls->setContentsMargins(6, 4, 10, 4);
    controls->addWidget(_playButton);
    controls->addWidget(_slider, 1);
    controls->addWidget(_time);
    auto *all = new QVBoxLayout(this);
    all->setContentsMargins(0, 0, 0, 0);
    all->setSpacing(0);
    all->addWidget(_view, 1);
    all->addLayout(controls);

    connect(_playButton, &QToolButton::clicked, this, [this] { togglePlaying(); });
    connect(_slider, &QSlider::valueChanged, this,
            [this](int milliseconds) { goTo(milliseconds / 1000.0); });
    connect(&_ticker, &QTimer::timeout, this, [this] { _showTime(); });
    _view->setDidStop([this] { _showState(); });
    setMovie(nullptr);
}

void BRRawMoviePlayer::setMovie(std::shared_ptr<BRRawMovie> movie)
{
    const double duration = movie ? movie->duration() : 0;
    _view->setMovie(std::move(movie));
    {
        const QSignalBlocker blocker(_slider);
        _slider->setRange(0, millisecondsOf(duration));
        _slider->setPageStep(std::max(1, _slider->maximum() / kPagesInMovie));
    }
    setEnabled(_view->movie() != nullptr);
    _showState();
}

void BRRawMoviePlayer::togglePlaying()
{
    if (_view->isPlaying()) {
        _view->pause();
    } else if (const auto played = _view->play(); !played && _didFail) {
        _didFail(played.error());
    }
    _showState();
}

void BRRawMoviePlayer::goTo(double time)
{
    if (!_view->movie())
        return;
    _view->setCurrentTime(std::clamp(time, 0.0, _view->movie()->duration()));
    _showTime();
}

void BRRawMoviePlayer::keyPressEvent(QKeyEvent *event)
{
    const BRRawMovie *const movie = _view->movie();
    if (!movie)
        return QWidget::keyPressEvent(event);
    const bool byFrame = event->modifiers().testFlag(Qt::ShiftModifier);
    switch (event->key()) {
    case Qt::Key_Space:
        return togglePlaying();
    case Qt::Key_Left:
        return goTo(byFrame ? movie->timeOfPreviousFrame() : _view->currentTime() - kStep);
    case Qt::Key_Right:
        return goTo(byFrame ? movie->timeOfNextFrame() : _view->currentTime() + kStep);
    case Qt::Key_Home:
        return goTo(0);
    case Qt::Key_End:
        return goTo(movie->duration());
    default:
        return QWidget::keyPressEvent(event);
    }
}

void BRRawMoviePlayer::_showState()
{
    const bool isPlaying = _view->isPlaying();
    if (isPlaying)
        _ticker.start(kTickMs);
    else
        _ticker.stop();
    const QString action = isPlaying ? u"Pause"_s : u"Play"_s;
    _playButton->setIcon(
        style()->standardIcon(isPlaying ? QStyle::SP_MediaPause : QStyle::SP_MediaPlay));
    _playButton->setAccessibleName(action);
    _playButton->setToolTip(action + u" (Space)"_s);
    _showTime();
}

void BRRawMoviePlayer::_showTime()
{
    const BRRawMovie *const movie = _view->movie();
    const double time = _view->currentTime();
    const double duration = movie ? movie->duration() : 0;
    const QSignalBlocker blocker(_slider);
    _slider->setValue(millisecondsOf(time));
    _time->setText(textOfTime(time) + u" / "_s + textOfTime(duration));
}
