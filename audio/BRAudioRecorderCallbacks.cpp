// The part of BRAudioRecorder that hears of the samples and of what becomes of the files.

#include "audio/BRAudioRecorder.h"

#include "foundation/BRLog.h"
#include "foundation/PXClock.h"
#include "foundation/PXMainThread.h"

using namespace Qt::StringLiterals;

namespace {

constexpr int kWasStopped = 1201; ///< The end of a recording that somebody asked for.

} // namespace

int BRAudioRecorder::_numberOf(const PXCaptureMovieFileOutput &output) const
{
    return &output == _microphoneOutput ? 1 : 2;
}

void BRAudioRecorder::captureOutputDidOutputSampleBuffer(PXCaptureMovieFileOutput &output,
                                                         const PXSoundBuffer &buffer)
{
    const bool isFirst = _numberOf(output) == 1;
    std::atomic<bool> &hasSwitched
        = isFirst ? mHasSwitchedFromJunkFile1 : mHasSwitchedFromJunkFile2;
    if (hasSwitched)
        return;
    std::uint64_t &previous = isFirst ? mPreviousSampleHostTime1 : mPreviousSampleHostTime2;
    std::uint64_t hostTime = buffer.hostTime;
    // A source whose time stands still, or that has none.
    if (hostTime == 0 || hostTime == previous)
        hostTime = PXCurrentHostTime();
    if (previous == 0) {
        previous = hostTime;
        PXMainThread::post(&_mainThread, [this] {
            ++_sourcesHeard;
            if (_sourceWasHeard)
                _sourceWasHeard();
        });
    }
    const std::uint64_t start = mIgnoreSamplesBeforeHostTime;
    if (hostTime < start)
        return;
    hasSwitched = true;
    output.recordToOutputFile(isFirst ? mOutputFile1 : mOutputFile2, start);
    BRLog(BRLogDebug, "HAS SWITCHED %d", isFirst ? 1 : 2);
}

void BRAudioRecorder::captureOutputWillStartRecording(PXCaptureMovieFileOutput &output,
                                                      const QString &)
{
    BRLog(BRLogDebug, "BRAudioRecorder: capture output %d will start recording.",
          _numberOf(output));
}

void BRAudioRecorder::captureOutputDidStartRecording(PXCaptureMovieFileOutput &output,
                                                     const QString &)
{
    BRLog(BRLogDebug, "BRAudioRecorder: capture output %d did start recording.", _numberOf(output));
}

void BRAudioRecorder::captureOutputMustChangeOutputFile(PXCaptureMovieFileOutput &output,
                                                        const QString &, const PXError &error)
{
    BRLog(BRLogError,
          u"BRAudioRecorder error. The capture output %1 must change its output url. %2"_s
              .arg(_numberOf(output))
              .arg(PXErrorLine(error)));
    PXMainThread::post(&_mainThread, [this, error] {
        if (!mIsRecording)
            return; // The end has been asked for meanwhile.
        _host.stopRecordingDueToError(
            {kBRErrorDomain,
             3,
             u"Tolvane must stop recording due to an error."_s,
             u"%1\n%2"_s.arg(error.description, error.suggestion).trimmed(),
             {{u"trueErrorCode"_s, error.domain == kPXPOSIXErrorDomain ? error.code : 0}}});
    });
}

void BRAudioRecorder::captureOutputWillFinishRecording(PXCaptureMovieFileOutput &output,
                                                       const QString &,
                                                       const std::optional<PXError> &error)
{
    _finishRecording("willFinishRecording", _numberOf(output), error);
}

void BRAudioRecorder::captureOutputDidFinishRecording(PXCaptureMovieFileOutput &output,
                                                      const QString &,
                                                      const std::optional<PXError> &error)
{
    _finishRecording("didFinishRecording", _numberOf(output), error);
}

void BRAudioRecorder::_finishRecording(const char *callback, int number,
                                       const std::optional<PXError> &error)
{
    const QString line = error ? PXErrorLine(*error) : u"(null)"_s;
    const QString name = QString::fromLatin1(callback);
    BRLog(BRLogError, u"%1 Error: %2 -- %3"_s.arg(name, QString::number(number), line));
    if (error && error->code != kWasStopped)
        BRLog(BRLogError, u"%1 Error: %2"_s.arg(name, line));
    if (error && mIsRecording) {
        const PXLock lock(_errorsLock);
        mErrorsDurringRecording
            += u"\nBRAudioRecorder: %1ToOutputFileAtURL error %2"_s.arg(name, line);
        BRLog(BRLogError, mErrorsDurringRecording);
    }
}

void BRAudioRecorder::captureSessionRuntimeError(PXCaptureSession &session, const PXError &error)
{
    const QString source = &session == mCaptureSession1.get() ? u"microphone"_s : u"system audio"_s;
    BRLog(
        BRLogError,
        u"QTCaptureSessionRuntimeErrorNotification: -- %1 -- %2"_s.arg(source, PXErrorLine(error)));
    // Stopping ends what the sources have begun.
    if (_alert && !_isStopping) {
        _alert->beep(u"The recording goes on without the %1 until it is back: %2"_s.arg(
            source, PXErrorLine(error)));
    }
}
