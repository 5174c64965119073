// The part of BRAudioRecorder that opens the devices, and gives the default output back.

#include "audio/BRAudioRecorder.h"

#include "audio/BRAudioDevices.h"
#include "audio/BRRunEventLoop.h"
#include "foundation/BRLog.h"
#include "foundation/PXDefaults.h"

#include <utility>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

namespace {

constexpr PXSoundEncoding kMicrophoneEncoding{.codec = PXFourCharCode("sowt")};
constexpr PXSoundEncoding kSystemAudioEncoding{.codec = PXFourCharCode("aac "),
                                               .quality = kPXBestQuality};

const QString kDriverUID = QString::fromLatin1(kPXVirtualAudioDeviceUID);
constexpr auto kTimeToSwitch = 10ms;

enum class SystemAudioSource { DriverElseMonitor = 0, Driver = 1, Monitor = 2 };

SystemAudioSource systemAudioSource()
{
    return static_cast<SystemAudioSource>(
        PXDefaults::standardUserDefaults().intValue(u"systemAudioSource"_s));
}

} // namespace

bool BRAudioRecorder::usesDriver(PXSoundPlatform &sound)
{
    return systemAudioSource() != SystemAudioSource::Monitor && isKernelExtensionInstalled(sound);
}

std::unique_ptr<PXCaptureSession> BRAudioRecorder::_makeSession()
{
    PXCaptureSessionDelegate &delegate = *this;
    return std::make_unique<PXCaptureSession>(delegate);
}

std::unique_ptr<PXCaptureMovieFileOutput>
BRAudioRecorder::_makeOutput(const PXSoundEncoding &encoding)
{
    PXCaptureMovieFileOutputDelegate &delegate = *this;
    return std::make_unique<PXCaptureMovieFileOutput>(_media, encoding, delegate);
}

void BRAudioRecorder::prepareToRecordDeviceWithUID(const QString &uid)
{
    mCaptureSession1 = _makeSession();
    BRLog(BRLogDebug, "BRAudioRecorder capture session 1: %p",
          static_cast<void *>(mCaptureSession1.get()));
    mCaptureMovieFileOutput1 = _makeOutput(kMicrophoneEncoding);
    _microphoneOutput = mCaptureMovieFileOutput1.get();
    mCaptureSession1->addOutput(*mCaptureMovieFileOutput1);
    auto input = _sound.openInput(uid);
    if (!input) {
        _beepAndLog("Could not open sound device. %@", input.error());
        return;
    }
    mCaptureSession1->addInput(*std::move(input));
    mIsRecordingMicrophoneAudio = true;
}

void BRAudioRecorder::prepareToRecordSystemAudio()
{
    if (usesDriver(_sound)) {
        _prepareDriver();
    } else if (systemAudioSource() == SystemAudioSource::Driver) {
        _beepAndLog(u"Tolvane can't record system audio because the kernel extension is not "
                    u"installed."_s);
    } else {
        _prepareMonitor();
    }
}

void BRAudioRecorder::_prepareDriver()
{
    _makeSystemAudioSession();
    // Without the lock, which is logged, another program may take the driver away meanwhile.
    if (auto use = _sound.lockVirtualOutput(PXFileLock::Mode::Shared, PXFileLock::IfHeld::Wait))
        _driverUse = *std::move(use);
    if (!_switchToDriver())
        return;
    auto preview
        = _sound.makeAudioPreviewOutput(kDriverUID, mOriginalSystemAudioOutputDeviceUID, 1.0);
    if (!preview) {
        _beepAndLog("prepareToRecordSystemAudio Error: Could not add the audio preview output to "
                    "capture session 2. %@",
                    preview.error());
        return;
    }
    mCaptureAudioPreviewOutput = *std::move(preview);
    _playsOnTo = mOriginalSystemAudioOutputDeviceUID;
    _devicesObservation = _sound.addDevicesObserver([this] { _followDriver(); });
    mIsRecordingSystemAudio = _openSystemAudioDevice(kDriverUID);
}

// What plays goes to the virtual output from now on, and from there to where it was heard before.
bool BRAudioRecorder::_switchToDriver()
{
    const auto fail = [this](const PXError &error) {
        _beepAndLog("prepareToRecordSystemAudio Error: Could not switch the output device. %@",
                    error);
        return false;
    };
    if (const auto loaded = _sound.loadVirtualOutput(); !loaded)
        return fail(loaded.error());
    const auto driver = BRAudioDevices::audioDeviceIDForUID(_sound, kDriverUID);
    if (!driver)
        return fail(driver.error());
    // Not simply what is in use: that is the virtual output where another recording, or one that
    // crashed, has switched to it.
    const auto original = _restorer.outputInUse();
    if (!original)
        return fail(original.error());
    mOriginalSystemAudioOutputDeviceUID = original->uid;
    // Whoever puts it back after us must find it, also when we are killed before the switch is
    // confirmed: it may still come.
    _restorer.writeUID(mOriginalSystemAudioOutputDeviceUID);
    _isOutputSwitched = true;
    if (const auto set = _sound.setDefaultOutputDevice(*driver); !set)
        return fail(set.error());
    if (BRAudioDevices::systemAudioOutputDeviceID(_sound) != *driver)
        BRRunEventLoop(kTimeToSwitch);
    _restorer.writeUID(mOriginalSystemAudioOutputDeviceUID);
    _driver = *driver;
    _outputMadeDefault = kDriverUID;
    return true;
}

void BRAudioRecorder::_prepareMonitor()
{
    const auto monitor = BRAudioDevices::monitorOfDefaultOutput(_sound);
    if (!monitor) {
        _beepAndLog("Tolvane can't record system audio. %@", monitor.error());
        return;
    }
    _makeSystemAudioSession();
    mIsRecordingSystemAudio = _openSystemAudioDevice(monitor->uid);
    // The user may turn to other loudspeakers while recording: the sound is looked for there.
    _devicesObservation = _sound.addDevicesObserver([this] { _followDefaultOutput(); });
}

void BRAudioRecorder::_makeSystemAudioSession()
{
    mCaptureSession2 = _makeSession();
    BRLog(BRLogDebug, "BRAudioRecorder capture session 2: %p",
          static_cast<void *>(mCaptureSession2.get()));
    mCaptureMovieFileOutput2 = _makeOutput(kSystemAudioEncoding);
    mCaptureSession2->addOutput(*mCaptureMovieFileOutput2);
}

bool BRAudioRecorder::_openSystemAudioDevice(const QString &uid)
{
    auto input = _sound.openInput(uid);
    if (!input) {
        _beepAndLog("prepareToRecordSystemAudio Error: Could not open sound device. %@",
                    input.error());
        return false;
    }
    mCaptureSession2->addInput(*std::move(input));
    _monitorUID = uid;
    return true;
}

void BRAudioRecorder::_followDefaultOutput()
{
    const auto monitor = BRAudioDevices::monitorOfDefaultOutput(_sound);
    if (!mCaptureSession2 || !mCaptureSession2->input() || !monitor || monitor->uid == _monitorUID)
        return;
    auto input = _sound.openInput(monitor->uid, mCaptureSession2->input()->format());
    PXExpected<void> replaced;
    if (input)
        replaced = mCaptureSession2->replaceInput(*std::move(input));
    else
        replaced = PXFail(input.error());
    // After a failure it is tried again with the next change, also with the one before.
    _monitorUID = replaced ? monitor->uid : QString();
    if (!replaced)
        captureSessionRuntimeError(*mCaptureSession2, replaced.error());
}

// The driver's device comes and goes with the sound server, and is gone for good where nothing
// loads it again. The user is to hear what plays all the same, and it is to be recorded whenever it
// can be.
void BRAudioRecorder::_followDriver()
{
    const auto output = _sound.defaultOutputDevice();
    if (!output)
        return; // The server has gone, and tells when it is back.
    const QString uid = BRAudioDevices::UIDOfAudioDeviceWithID(_sound, *output).value_or(QString());
    const auto driver
        = BRAudioDevices::audioDeviceIDForUID(_sound, kDriverUID).value_or(kPXNoAudioDevice);
    if (driver != _driver)
        mCaptureAudioPreviewOutput.reset(); // PipeWire keeps one that reads what has gone.
    // Asked last: a server that still plays on has not been restarted since, which changes the
    // default output as well.
    const bool isSameServer = driver == _driver
        && (driver == kPXNoAudioDevice
            || (mCaptureAudioPreviewOutput && mCaptureAudioPreviewOutput->isPlaying()));
    if (isSameServer && !uid.isEmpty() && !_outputMadeDefault.isEmpty()
        && uid != _outputMadeDefault)
        _hasUserChosenOutput = true;
    _driver = driver;
    const bool isThere = driver != kPXNoAudioDevice;
    if (isThere && !_playOn())
        return; // Tried again with the next change.
    const QString wanted = isThere ? kDriverUID : mOriginalSystemAudioOutputDeviceUID;
    if (_hasUserChosenOutput || (isSameServer && wanted == _outputMadeDefault))
        return;
    // Also where the server has chosen the same: both servers remember the last one that was named.
    const auto set = BRAudioDevices::audioDeviceIDForUID(_sound, wanted)
                         .and_then([this](PXAudioDeviceID device) {
                             return _sound.setDefaultOutputDevice(device);
                         });
    _outputMadeDefault = set ? wanted : QString();
}

// To the output that was in use; while that is unplugged, to another.
bool BRAudioRecorder::_playOn()
{
    const auto output = _restorer.realOutput(mOriginalSystemAudioOutputDeviceUID);
    if (!output)
        return false;
    if (mCaptureAudioPreviewOutput && output->uid == _playsOnTo
        && mCaptureAudioPreviewOutput->isPlaying())
        return true;
    auto preview = _sound.makeAudioPreviewOutput(kDriverUID, output->uid, 1.0);
    if (!preview)
        return false;
    mCaptureAudioPreviewOutput = *std::move(preview);
    _playsOnTo = output->uid;
    return true;
}

// Puts back what was, unless another recording uses the driver: then that one will.
void BRAudioRecorder::_leaveDriver()
{
    if (!_isOutputSwitched && !mCaptureAudioPreviewOutput)
        return _driverUse.reset();
    _driverUse.reset();
    const auto lock
        = _sound.lockVirtualOutput(PXFileLock::Mode::Exclusive, PXFileLock::IfHeld::GiveUp);
    if (lock && !*lock) {
        _isOutputSwitched = false;
        if (mCaptureAudioPreviewOutput)
            mCaptureAudioPreviewOutput->leaveToOthers();
    }
    _putBackOutputDevice();
    // Until now what plays went to the virtual output, and from there to where it is heard.
    mCaptureAudioPreviewOutput.reset();
}

void BRAudioRecorder::_putBackOutputDevice()
{
    if (!std::exchange(_isOutputSwitched, false))
        return;
    if (const auto done = _restorer.putBack(mOriginalSystemAudioOutputDeviceUID); !done)
        BRLog(BRLogError, PXErrorLine(done.error()));
    mOriginalSystemAudioOutputDeviceUID.clear();
}
