#include "audio/BRAudioRecorder.h"

#include "audio/BRRunEventLoop.h"
#include "foundation/BRLog.h"
#include "foundation/PXClock.h"
#include "foundation/PXDefaults.h"
#include "foundation/PXFileManager.h"

#include <QDir>
#include <QEventLoop>
#include <QFile>
#include <QFileInfo>

#include <cerrno>
#include <chrono>
#include <cstdio>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

const QString kBRCaptureAudioDataName = u"Brimmet Capture Audio Data 1.mov"_s;
const QString kBRSecondCaptureAudioDataName = u"Brimmet Capture Audio Data 2.mov"_s;

namespace {

constexpr auto kTimeUntilCheck = 4s;
constexpr auto kTimeToFinishFiles = 500ms;
constexpr auto kLongestWaitForTheEnd = 200ms; ///< Twice what a server takes.
constexpr auto kTimeBetweenLooks = 10ms;

} // namespace

BRAudioRecorder::BRAudioRecorder(QString uuid, BRAudioRecorderDelegate *delegate,
                                 BRAudioRecorderHost &host, PXSoundPlatform &sound,
                                 PXMediaPlatform &media)
    : _delegate(delegate),
      mUUID(std::move(uuid)),
      _host(host),
      _sound(sound),
      _media(media),
      _restorer(sound)
{
    mCheckIfActuallyRecordingTimer.setSingleShot(true);
    QObject::connect(&mCheckIfActuallyRecordingTimer, &QTimer::timeout, &_mainThread,
                     [this] { checkIfActuallyRecording(); });
    BRLog(BRLogDebug, "BRAudioRecorder created");
}

BRAudioRecorder::~BRAudioRecorder()
{
    BRLog(BRLogDebug, "BRAudioRecorder dealloc");
    // The sessions first: their threads call us.
    mCaptureSession1.reset();
    mCaptureSession2.reset();
    _leaveDriver();
}

void BRAudioRecorder::startForPlayThough()
{
    if (!mCaptureSession2)
        return;
    if (const auto started = mCaptureSession2->startRunning(); !started)
        captureSessionRuntimeError(*mCaptureSession2, started.error());
}

PXExpected<void> BRAudioRecorder::startRecording()
{
    const QString folder
        = QDir(PXDefaults::standardUserDefaults().stringValue(u"moviesFolderPath"_s))
              .filePath(mUUID);
    if (auto made = PXFileManager::createAllDirectoriesForPath(folder); !made)
        return made;
    mOutputFile1 = QDir(folder).filePath(kBRCaptureAudioDataName);
    mOutputFile2 = QDir(folder).filePath(kBRSecondCaptureAudioDataName);
    BRLog(BRLogDebug, "BRAudioRecorder startrecording");
    mIsRecording = true;
    if (mCaptureSession1) {
        BRLog(BRLogDebug, "BRAudioRecord - Start Running 1");
        if (const auto started = mCaptureSession1->startRunning(); !started)
            captureSessionRuntimeError(*mCaptureSession1, started.error());
    }
    if (mCaptureSession2) {
        BRLog(BRLogDebug, "BRAudioRecord - Start Running 2 -- %p",
              static_cast<void *>(mCaptureSession2.get()));
        startForPlayThough();
    }
    mCheckIfActuallyRecordingTimer.start(kTimeUntilCheck);
    return {};
}

void BRAudioRecorder::ignoreSamplesBeforeHostTime(std::uint64_t hostTime)
{
    mIgnoreSamplesBeforeHostTime = hostTime;
}

void BRAudioRecorder::waitForFirstSamples(std::chrono::milliseconds most)
{
    const int sources
        = static_cast<int>(mIsRecordingMicrophoneAudio) + static_cast<int>(mIsRecordingSystemAudio);
    if (_sourcesHeard >= sources)
        return;
    QEventLoop loop;
    _sourceWasHeard = [&] {
        if (_sourcesHeard >= sources)
            loop.quit();
    };
    QTimer::singleShot(most, &loop, &QEventLoop::quit);
    loop.exec();
    _sourceWasHeard = nullptr;
}

void BRAudioRecorder::stopRecording()
{
    // Asked for again while the event loop runs below: the end is on its way.
    if (_isStopping)
        return;
    _isStopping = true;
    BRLog(BRLogDebug, "BRAudioRecorder stopRecording");
    mCheckIfActuallyRecordingTimer.stop();
    {
        const PXLock lock(_errorsLock);
        mErrorsDurringRecording.clear();
    }
    mIsRecording = false;
    _waitForSamplesUntil(PXCurrentHostTime());
    for (auto *session : {mCaptureSession1.get(), mCaptureSession2.get()}) {
        if (session)
            session->stopRunning();
    }
    BRRunEventLoopDuring([this] {
        for (auto *output : {mCaptureMovieFileOutput1.get(), mCaptureMovieFileOutput2.get()}) {
            if (output)
                output->close();
        }
    });
    // With the sessions go the devices; what plays the sound on stays until the output is back.
    mCaptureSession1.reset();
    mCaptureSession2.reset();
    mCaptureMovieFileOutput1.reset();
    mCaptureMovieFileOutput2.reset();
    BRRunEventLoop(kTimeToFinishFiles);
    // Copying the sound of hours takes seconds.
    PXExpected<void> made;
    if (!mOutputFile1.isEmpty())
        BRRunEventLoopDuring([&] { made = makeOneFile(QFileInfo(mOutputFile1).path(), _media); });
    if (!made)
        _beepAndLog(PXErrorLine(made.error()));
    _devicesObservation.end(); // What follows is no news.
    _leaveDriver();
    if (const auto path = _host.pathInApplicationSupportFolder(u"Audio Output Device UID"_s))
        QFile::remove(*path);
    mIsRecordingMicrophoneAudio = false;
    mIsRecordingSystemAudio = false;
    _isStopping = false;
    BRLog(BRLogDebug, "BRAudioRecorder stopRecording end");
    if (_delegate)
        _delegate->audioRecorderDidStopRecording(*this);
}

// What was heard until now is still on its way, and with it the last word.
void BRAudioRecorder::_waitForSamplesUntil(std::uint64_t hostTime)
{
    const auto isHere
        = [&](const PXCaptureSession *session, const PXCaptureMovieFileOutput *output) {
              return !session || !session->isRunning() || output->endOfSamples() >= hostTime;
          };
    const auto deadline = std::chrono::steady_clock::now() + kLongestWaitForTheEnd;
    while (std::chrono::steady_clock::now() < deadline
           && !(isHere(mCaptureSession1.get(), mCaptureMovieFileOutput1.get())
                && isHere(mCaptureSession2.get(), mCaptureMovieFileOutput2.get())))
        BRRunEventLoop(kTimeBetweenLooks);
}

// What grew in fragments becomes an ordinary movie, which every program reads. What cannot be
// merged stays as a file of its own. A source that never gave a sample has none.
PXExpected<void> BRAudioRecorder::makeOneFile(const QString &movieFolder, PXMediaPlatform &media,
                                              const std::stop_token &stop)
{
    const QString first = QDir(movieFolder).filePath(kBRCaptureAudioDataName);
    const QString second = QDir(movieFolder).filePath(kBRSecondCaptureAudioDataName);
    const auto hasSound = [](const QString &path) { return QFileInfo(path).size() > 0; };
    if (hasSound(second) && hasSound(first)) {
        const auto tracks = media.numberOfSoundTracks(first);
        if (!tracks)
            return PXFail(tracks.error());
        // Else whoever merged them was killed before the next line.
        if (*tracks < 2) {
            if (auto merged = mergeAudioFromMovieAtPath(media, second, first, stop); !merged)
                return merged;
        }
        QFile::remove(second);
    } else if (hasSound(second)) {
        if (std::rename(QFile::encodeName(second).constData(), QFile::encodeName(first).constData())
            != 0)
            return PXFail(PXPOSIXError(errno, u"Could not move the file "_s + second));
    }
    return hasSound(first) ? media.flattenMovie(first, stop) : PXExpected<void>();
}

PXExpected<void> BRAudioRecorder::mergeAudioFromMovieAtPath(PXMediaPlatform &media,
                                                            const QString &source,
                                                            const QString &target,
                                                            const std::stop_token &stop)
{
    auto inserted = media.insertSoundTrack(source, target, stop);
    if (!inserted && inserted.error().code != ECANCELED)
        BRLog(BRLogError, "InsertTrackSegment error %d", inserted.error().code);
    return inserted;
}

// A device that is not recorded for four seconds will not be recorded later either.
void BRAudioRecorder::checkIfActuallyRecording()
{
    if (!mCaptureSession2)
        return;
    if (mCaptureSession2->isRunning() && mCaptureMovieFileOutput2->recordedBytes() > 0)
        return;
    QString suggestion
        = u"Please start the recording again. If that does not help, tell the makers of Tolvane."_s;
    {
        const PXLock lock(_errorsLock);
        if (!mErrorsDurringRecording.isEmpty()) {
            suggestion
                = u"%1%2\n%3"_s.arg(u"Please try starting your recording again. We are working "
                                    u"hard to find the cause of this problem. "_s,
                                    u"Please send the following information to the makers of "
                                    u"Tolvane:"_s,
                                    mErrorsDurringRecording);
        }
    }
    _host.stopRecordingDueToError(
        {kBRErrorDomain, 3, u"Tolvane did not start recording system audio."_s, suggestion, {}});
}

void BRAudioRecorder::_beepAndLog(const QString &message)
{
    BRLog(BRLogError, message);
    if (_alert)
        _alert->beep(message);
}

void BRAudioRecorder::_beepAndLog(const char *format, const PXError &error)
{
    _beepAndLog(QString::fromLatin1(format).replace(u"%@"_s, PXErrorLine(error)));
}
