#include "app/cli/BRMovieExport.h"

#include "app/cli/BRCapturePath.h"
#include "app/cli/BRTerminal.h"
#include "foundation/PXMainThread.h"

#include <cerrno>
#include <cmath>
#include <utility>

using namespace Qt::StringLiterals;

namespace {

constexpr int kProgressBarWidth = 15; ///< So that the time left fits on 80 columns.
constexpr int kNameWidth = 20; ///< Columns of it, before the bars of several.
/// A thread's last message may still be under way.
constexpr int kLongestSilenceMs = 1000;

QString stringFromSeconds(double seconds)
{
    const auto whole = std::llround(seconds);
    return QString::asprintf("%lld:%02lld", whole / 60, whole % 60);
}

/// So many columns of it, without what would break the line.
QString columnOf(QString text, int width)
{
    for (QChar &character : text) {
        if (character.category() == QChar::Other_Control)
            character = u' ';
    }
    return text.size() > width ? text.left(width - 1) + u'…' : text.leftJustified(width);
}

} // namespace

BRMovieExport::BRMovieExport(std::unique_ptr<BRCapturedMovie> movie, Job job)
    : _movie(std::move(movie)),
      _job(std::move(job)),
      _wasToHaveSound(_movie->hasAudio() && _movie->includeAudio())
{
    _movie->frameCompressor().setAlert(this);
}

BRMovieExport::~BRMovieExport()
{
    _movie->frameCompressor().setAlert(nullptr);
}

bool BRMovieExport::start()
{
    _hasBegun = true;
    if (const auto started = _movie->startCompression(_job.outputPath, this); !started) {
        BRTerminal::printError(u"\"%1\": %2"_s.arg(_job.outputPath, PXErrorLine(started.error())));
        _status = BRExitStatusOfError(started.error(), BRAccess::Writing);
        return false;
    }
    _isRunning = true;
    _clock.start();
    return true;
}

void BRMovieExport::cancel()
{
    if (!_hasBegun) {
        _hasBegun = true;
        _status = BRExitFailed;
        BRTerminal::printError(u"the export of \"%1\" was cancelled"_s.arg(_job.what));
    }
    if (!_isRunning)
        return;
    if (!_isSoundOnItsWay) {
        _movie->cancelCompression();
        return;
    }
    if (_movie->isMerging()) {
        _movie->cancelMerging(); // Its end tells whether that was in time.
        return;
    }
    // The picture is in its place. What is begun for its sound is given up with the movie.
    _endWithoutSound();
}

void BRMovieExport::endIfSilent()
{
    if (!_isRunning || !_movie->hasEndedSilently()) {
        _silence.invalidate();
    } else if (!_silence.isValid()) {
        _silence.start();
    } else if (_silence.hasExpired(kLongestSilenceMs)) {
        BRTerminal::printError(u"the export of \"%1\" ended without a word"_s.arg(_job.what));
        _end(BRExitFailed);
    }
}

QString BRMovieExport::progressLine() const
{
    if (!_job.isOneOfSeveral)
        return _progress();
    return columnOf(_movie->name(), kNameWidth) + u' ' + _progress();
}

QString BRMovieExport::_progress() const
{
    if (_isSoundOnItsWay) {
        return u"Compressing the sound, %1 done"_s.arg(
            stringFromSeconds(_movie->audioSecondsDone()));
    }
    const BRFrameCompressor::Progress progress = _movie->frameCompressor().progress();
    if (progress.totalFrames == 0)
        return {};
    const double done = static_cast<double>(progress.framesDone) / progress.totalFrames;
    const double seconds = static_cast<double>(_clock.elapsed()) / 1000;
    QString line = u"%1 %2% %3 of %4 frames"_s.arg(BRTerminal::progressBar(done, kProgressBarWidth))
                       .arg(static_cast<int>(done * 100), 3)
                       .arg(progress.framesDone)
                       .arg(progress.totalFrames);
    if (progress.framesDone > 0 && seconds > 0) {
        line += u", %1 frames/s, %2 left"_s.arg(progress.framesDone / seconds, 0, 'f', 1)
                    .arg(stringFromSeconds(seconds * (1 - done) / done));
    }
    return line;
}

void BRMovieExport::_endWithoutSound()
{
    BRTerminal::printError(
        u"the export of \"%1\" was cancelled: the movie has no sound"_s.arg(_job.what));
    _end(BRExitFailed);
}

void BRMovieExport::_end(int status)
{
    if (!std::exchange(_isRunning, false))
        return;
    _status = status;
    if (_didEnd)
        _didEnd();
}

void BRMovieExport::_tellWhatIsMissing(const QString &movieFilePath) const
{
    const auto tell = [&](const QString &what) {
        BRTerminal::printWarning(u"\"%1\" "_s.arg(movieFilePath) + what);
    };
    if (const std::uint32_t missing = _movie->missingFrames(); missing > 0) {
        tell(u"lacks %1 of its %2 pictures: the encoder refused them"_s.arg(missing).arg(
            _movie->totalNumberOfFrames()));
    }
    if (_movie->audioError()) {
        BRTerminal::printError(
            u"\"%1\" has no sound: %2"_s.arg(movieFilePath, PXErrorLine(*_movie->audioError())));
    }
    if (_wasToHaveSound && _movie->hasUnjoinedAudio())
        tell(u"lacks what the computer played: the recording did not come to its end"_s);
    if (_wasToHaveSound && !_movie->hasAudio())
        tell(u"has no sound: the capture's sound file is missing"_s);
    if (_job.isCutShort)
        BRWarnOfCutShort(_job.what, u"only its complete frames were exported"_s);
}

void BRMovieExport::capturedMovieWillBeginAudioCompression(BRCapturedMovie &)
{
    _isSoundOnItsWay = true;
}

void BRMovieExport::capturedMovieIsDoneCompressing(BRCapturedMovie &movie,
                                                   const QString &movieFilePath)
{
    if (!_isRunning) // Cancelled while its sound was compressed.
        return;
    if (movie.audioError() && movie.audioError()->code == ECANCELED) {
        _endWithoutSound();
        return;
    }
    BRTerminal::endProgress();
    BRTerminal::print(movieFilePath);
    _tellWhatIsMissing(movieFilePath);
    _end(movie.audioError() ? BRExitStatusOfError(*movie.audioError(), BRAccess::Writing)
                            : BRExitDone);
}

void BRMovieExport::capturedMovieCompressionWasCancelled(BRCapturedMovie &)
{
    BRTerminal::printError(u"the export of \"%1\" was cancelled"_s.arg(_job.what));
    _end(BRExitFailed);
}

void BRMovieExport::capturedMovieCompressionFailed(BRCapturedMovie &, const PXError &error)
{
    if (_job.isOneOfSeveral)
        BRTerminal::printError(u"\"%1\": %2"_s.arg(_job.what, PXErrorLine(error)));
    else
        BRTerminal::printError(error);
    _end(BRExitStatusOfError(error, BRAccess::Writing));
}

void BRMovieExport::beep(const QString &message)
{
    PXMainThread::post(&_mainThread, [this, message] { _alert(message); });
}

// A message that comes with every frame is told once.
void BRMovieExport::_alert(const QString &message)
{
    if (!_alerts.contains(message)) {
        _alerts << message;
        BRTerminal::ringBell();
        BRTerminal::printWarning(message);
    }
    // Nobody tells of the end when there is no memory for a single picture.
    if (!_movie->frameCompressor().isCompressing() && !_isSoundOnItsWay)
        _end(BRExitFailed);
}
